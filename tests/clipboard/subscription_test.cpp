#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "clipboard/clipboard_impl.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_backend.hpp"
#include "support/service_harness.hpp"

namespace {

using namespace std::chrono_literals;
using EditorServices::ClipboardImpl;
using foundation::json::Value;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;
using test_support::Replies;

PFClipboardData textPayload(std::u16string const& mime) {
  PFClipboardData data;
  data.addData(mime, std::u16string(u"content"));
  return data;
}

class Subscription : public ::testing::Test {
 protected:
  void TearDown() override { pf::event::PFAbstractEventListenerFactory::setManagerMaker(nullptr); }

  std::shared_ptr<test_support::ScriptedBackend> backend =
      std::make_shared<test_support::ScriptedBackend>();
  test_support::InstalledBackend installed{backend};
  test_support::LogCapture log;
};

TEST_F(Subscription, FirstRequestRegistersAndEachChangeNotifies) {
  ClipboardImpl service;
  Replies first;
  auto reply = service.handleRequestForClipboardChangeSubscription(
      {{"requestid", Value("sub-1")}, {"success", Value(true)}}, first.notifier());
  EXPECT_EQ(reply.size(), 2u);
  EXPECT_EQ(reply.at(service.successKey), Value("true"));  // a string, not a bool
  EXPECT_EQ(reply.at(service.replyRequestIdKey), Value("sub-1"));
  EXPECT_TRUE(service.hasChangeRegistration());
  EXPECT_TRUE(service.isChangeSubscriptionActive());

  log.clear();
  backend->put(textPayload(u"text/plain"));
  backend->put(textPayload(u"text/plain"));  // unchanged content still notifies
  auto const notifications = first.notifications();
  ASSERT_EQ(notifications.size(), 2u);
  auto const body = test_support::parsed(notifications[0]);
  EXPECT_EQ(body.at(service.successKey), Value(true));
  EXPECT_EQ(body.at(service.replyRequestIdKey), Value(""));
  EXPECT_EQ(body.at(service.flavorsKey), Value(foundation::json::Array{Value("text/plain")}));
  EXPECT_EQ(log.messages().size(), 2u);  // the flavors handler's 'requestid' line, per change
}

TEST_F(Subscription, SecondRequestKeepsTheFirstCallback) {
  ClipboardImpl service;
  Replies first;
  Replies second;
  service.handleRequestForClipboardChangeSubscription({{"requestid", Value("a")}},
                                                      first.notifier());
  auto reply = service.handleRequestForClipboardChangeSubscription({{"requestid", Value("b")}},
                                                                   second.notifier());
  EXPECT_EQ(reply.at(service.successKey), Value("true"));
  EXPECT_EQ(reply.at(service.replyRequestIdKey), Value("b"));
  backend->put(textPayload(u"text/plain"));
  EXPECT_EQ(first.notifications().size(), 1u);
  EXPECT_TRUE(second.notifications().empty());
}

TEST_F(Subscription, MissingRequestIdIsLoggedAndSubscribesAnyway) {
  ClipboardImpl service;
  Replies replies;
  auto reply = service.handleRequestForClipboardChangeSubscription({}, replies.notifier());
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"[handleRequestForClipboardChangeSubscription] UID is empty"});
  EXPECT_EQ(reply.at(service.successKey), Value("true"));
  EXPECT_EQ(reply.at(service.replyRequestIdKey), Value(""));
}

TEST_F(Subscription, FailingManagerRepliesFalseAndARetryRegisters) {
  ClipboardImpl service;
  Replies replies;
  pf::event::PFAbstractEventListenerFactory::setManagerMaker(
      [](pf::event::PFEventComponent) -> std::unique_ptr<pf::event::PFEventListenerManager> {
        throw std::runtime_error("no event manager here");
      });
  auto reply = service.handleRequestForClipboardChangeSubscription({{"requestid", Value("1")}},
                                                                   replies.notifier());
  EXPECT_EQ(reply.at(service.successKey), Value("false"));
  EXPECT_TRUE(service.isChangeSubscriptionActive());
  EXPECT_FALSE(service.hasChangeRegistration());
  EXPECT_TRUE(log.messages().empty());

  pf::event::PFAbstractEventListenerFactory::setManagerMaker(nullptr);
  reply = service.handleRequestForClipboardChangeSubscription({{"requestid", Value("2")}},
                                                              replies.notifier());
  EXPECT_EQ(reply.at(service.successKey), Value("true"));
  backend->put(textPayload(u"text/plain"));
  EXPECT_EQ(replies.notifications().size(), 1u);
}

TEST_F(Subscription, EmptyCallbackSubscribesAndDoesNotBreakTheClipboard) {
  ClipboardImpl service;
  auto reply = service.handleRequestForClipboardChangeSubscription({{"requestid", Value("r")}},
                                                                   ClipboardImpl::NotifyCallback());
  EXPECT_EQ(reply.at(service.successKey), Value("true"));
  // The listener throws std::bad_function_call into the emission; the write stands.
  EXPECT_NO_THROW(backend->put(textPayload(u"text/plain")));
  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard).size(), 1u);
}

TEST_F(Subscription, DestructionDetachesTheListener) {
  Replies replies;
  {
    ClipboardImpl service;
    service.handleRequestForClipboardChangeSubscription({}, replies.notifier());
    backend->put(textPayload(u"text/plain"));
  }
  backend->put(textPayload(u"text/html"));
  EXPECT_EQ(replies.notifications().size(), 1u);
}

TEST_F(Subscription, DestructorWaitsForANotificationUnderWay) {
  auto threaded = std::make_shared<pf::clipboard::PFMemoryClipboard>(
      pf::clipboard::PFMemoryClipboard::Delivery::ownThread);
  test_support::InstalledBackend installedThreaded(threaded);
  std::promise<void> entered;
  std::promise<void> release;
  auto releaseFuture = release.get_future().share();
  std::atomic<bool> callbackDone{false};
  auto service = std::make_unique<ClipboardImpl>();
  service->handleRequestForClipboardChangeSubscription({}, [&](std::string) {
    entered.set_value();
    releaseFuture.wait();
    callbackDone = true;
  });
  threaded->copyFromOtherProgram(textPayload(u"text/plain"), PFClipboardMode::clipboard);
  entered.get_future().wait();

  auto destroyed = std::async(std::launch::async, [&] { service.reset(); });
  EXPECT_EQ(destroyed.wait_for(100ms), std::future_status::timeout);
  release.set_value();
  destroyed.wait();
  EXPECT_TRUE(callbackDone.load());
}

TEST_F(Subscription, MessageFormRepliesWithStringSuccess) {
  ClipboardImpl service;
  Replies replies;
  service.handleRequestForClipboardChangeSubscription(
      test_support::message(R"({"requestid":"m","uid":"u-9"})"), replies.notifier(),
      replies.callback());
  auto const got = replies.replies();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].uid, "u-9");
  EXPECT_EQ(got[0].text, R"({"requestid":"m","success":"true"})");
}

// Requests and changes from several threads while the service is torn down. Run under
// ThreadSanitizer in CI.
TEST(SubscriptionStress, ConcurrentRequestsChangesAndTeardown) {
  auto clipboard = std::make_shared<pf::clipboard::PFMemoryClipboard>(
      pf::clipboard::PFMemoryClipboard::Delivery::ownThread);
  test_support::InstalledBackend installed(clipboard);

  std::atomic<bool> stopChanges{false};
  std::thread changer([&] {
    std::u16string const types[] = {u"text/plain", u"text/html", u"image/png"};
    for (int i = 0; !stopChanges; ++i) {
      PFClipboardData data;
      data.addData(types[i % 3], std::u16string(u"v"));
      if (i % 2) {
        data.addData(u"application/x-extra", std::u16string(u"w"));
      }
      clipboard->copyFromOtherProgram(std::move(data), PFClipboardMode::clipboard);
    }
  });

  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> destroyed{false};
    std::atomic<int> lateNotifications{0};
    std::atomic<int> badNotifications{0};
    std::atomic<int> notifications{0};
    auto service = std::make_unique<ClipboardImpl>();
    auto notify = [&](std::string text) {
      if (destroyed) {
        ++lateNotifications;
      }
      foundation::json::Object body;
      char const* position = text.data();
      if (foundation::json::parse_object(position, text.data() + text.size(), false, body) != 0 ||
          body.count("flavors") != 1 ||
          body.at("flavors").kind() != foundation::json::Kind::array ||
          body.at("success") != Value(true)) {
        ++badNotifications;
      }
      ++notifications;
    };

    auto requests = [&](int seed) {
      Replies replies;
      for (int i = 0; i < 30; ++i) {
        switch ((i + seed) % 3) {
          case 0:
            service->handleRequestForAvailableDataFlavors(
                test_support::message(R"({"requestid":"f","uid":"u"})"), replies.callback());
            break;
          case 1:
            service->handleGetClipboardDataRequest(
                test_support::message(R"({"requestid":"g","uid":"u","flavors":[]})"),
                PFClipboardMode::clipboard, replies.callback());
            break;
          default:
            service->handleRequestForClipboardChangeSubscription(
                test_support::message(R"({"requestid":"s","uid":"u"})"), notify,
                replies.callback());
        }
      }
      EXPECT_EQ(replies.replies().size(), 30u);
    };
    std::thread a(requests, 0);
    std::thread b(requests, 1);
    a.join();
    b.join();

    service.reset();
    destroyed = true;
    std::this_thread::sleep_for(2ms);  // changes keep arriving after the teardown
    EXPECT_EQ(lateNotifications.load(), 0);
    EXPECT_EQ(badNotifications.load(), 0);
  }
  stopChanges = true;
  changer.join();
  clipboard->waitUntilDelivered();
}

}  // namespace
