#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "platform/event.hpp"

namespace {

using namespace std::chrono_literals;
using pf::event::PFEventRegistration;
using pf::event::PFSignalLocator;

constexpr pf::event::PFEventId kTestEvent = 77;

pf::event::PFSignalContainer& container() {
  return PFSignalLocator::Instance().containerOf(pf::event::PFServiceType::clipboard);
}

TEST(SignalLocator, KeepsContainers) {
  auto& a = PFSignalLocator::Instance();
  auto& c1 = a.containerOf(pf::event::PFServiceType::clipboard);
  EXPECT_EQ(&c1, a.locateSignals()[pf::event::PFServiceType::clipboard].get());
  EXPECT_EQ(&c1, &a.containerOf(pf::event::PFServiceType::clipboard));
}

TEST(EventRegistration, UnregisterStopsDelivery) {
  int calls = 0;
  PFEventRegistration registration(container().connect(kTestEvent, [&] { ++calls; }));
  container().emit(kTestEvent);
  registration.unregister();
  container().emit(kTestEvent);
  EXPECT_EQ(calls, 1);
  registration.unregister();  // idempotent
}

TEST(EventRegistration, DestroyingWithoutUnregisterKeepsTheListener) {
  auto calls = std::make_shared<int>(0);
  boost::signals2::connection copy;
  {
    PFEventRegistration registration(container().connect(kTestEvent, [calls] { ++*calls; }));
    copy = *registration.connection();
  }
  container().emit(kTestEvent);
  EXPECT_EQ(*calls, 1);
  copy.disconnect();
  container().emit(kTestEvent);
  EXPECT_EQ(*calls, 1);
}

TEST(EventRegistration, UnregisterWaitsForACallRunningOnAnotherThread) {
  std::promise<void> entered;
  std::promise<void> release;
  auto releaseFuture = release.get_future().share();
  std::atomic<bool> finished{false};
  PFEventRegistration registration(container().connect(kTestEvent, [&] {
    entered.set_value();
    releaseFuture.wait();
    std::this_thread::sleep_for(20ms);
    finished = true;
  }));
  std::thread emitter([] { container().emit(kTestEvent); });
  entered.get_future().wait();

  auto unregistered = std::async(std::launch::async, [&] { registration.unregister(); });
  EXPECT_EQ(unregistered.wait_for(100ms), std::future_status::timeout)
      << "unregister returned while the listener was still running";
  release.set_value();
  unregistered.wait();
  EXPECT_TRUE(finished.load());
  emitter.join();
}

TEST(EventRegistration, UnregisterFromInsideTheListenerDoesNotDeadlock) {
  int calls = 0;
  std::unique_ptr<PFEventRegistration> registration;
  registration = std::make_unique<PFEventRegistration>(container().connect(kTestEvent, [&] {
    ++calls;
    registration->unregister();
  }));
  container().emit(kTestEvent);
  container().emit(kTestEvent);
  EXPECT_EQ(calls, 1);
}

TEST(EventRegistration, ListenerExceptionLeavesEmit) {
  PFEventRegistration registration(
      container().connect(kTestEvent, [] { throw std::bad_function_call(); }));
  EXPECT_THROW(container().emit(kTestEvent), std::bad_function_call);
  registration.unregister();
  EXPECT_NO_THROW(container().emit(kTestEvent));
}

TEST(EventListenerFactory, ClipboardManagerPreparesTheContainerAndOthersFail) {
  auto manager = pf::event::PFAbstractEventListenerFactory::getEventListenerManager(
      pf::event::PFEventComponent::clipboard);
  ASSERT_TRUE(manager);
  EXPECT_TRUE(manager->prepareDelivery(pf::event::PFServiceType::clipboard, kTestEvent));
  EXPECT_THROW(pf::event::PFAbstractEventListenerFactory::getEventListenerManager(
                   static_cast<pf::event::PFEventComponent>(5)),
               std::invalid_argument);
}

}  // namespace
