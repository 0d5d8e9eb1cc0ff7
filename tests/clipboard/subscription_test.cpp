// The change subscription: its registration, its notifications, and its teardown while
// notifications run on other threads.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "service_fixture.hpp"

namespace service_test {
namespace {

using namespace std::chrono_literals;

using Subscription = ServiceTest;

TEST_F(Subscription, EachChangeNotifiesTheFlavorsReply) {
  send(Request::subscribe, R"({"requestid":"sub-1"})");
  EXPECT_TRUE(service.hasChangeRegistration());
  put({{u"text/plain", text(u"a")}});
  put({{u"text/plain", text(u"a")}});  // unchanged content still notifies
  EXPECT_EQ(
      notifications.notifications(),
      std::vector<std::string>(2, R"({"flavors":["text/plain"],"requestid":"","success":true})"));
}

TEST_F(Subscription, SecondRequestKeepsTheFirstCallback) {
  Replies first;
  Replies second;
  service.handleRequestForClipboardChangeSubscription({{"requestid", "a"}}, first.notifier());
  auto const reply =
      service.handleRequestForClipboardChangeSubscription({{"requestid", "b"}}, second.notifier());
  EXPECT_EQ(reply.at("success"), Value("true"));
  put({{u"text/plain", text(u"a")}});
  EXPECT_EQ(first.notifications().size(), 1u);
  EXPECT_TRUE(second.notifications().empty());
}

// An event manager that cannot deliver clipboard changes.
class RefusingManager final : public pf::event::PFEventListenerManager {
 public:
  bool prepareDelivery(pf::event::PFServiceType const&, pf::event::PFEventId const&) override {
    throw std::runtime_error("no delivery here");
  }
};

TEST_F(Subscription, FailingManagerRepliesFalseAndARetryRegisters) {
  pf::event::PFAbstractEventListenerFactory::setManagerMaker(
      [](pf::event::PFEventComponent) { return std::make_unique<RefusingManager>(); });
  EXPECT_EQ(send(Request::subscribe, R"({"requestid":"1","uid":"u"})").text,
            R"({"requestid":"1","success":"false"})");
  EXPECT_TRUE(service.isChangeSubscriptionActive());
  EXPECT_FALSE(service.hasChangeRegistration());
  EXPECT_TRUE(logged().empty());

  pf::event::PFAbstractEventListenerFactory::setManagerMaker(nullptr);
  EXPECT_EQ(send(Request::subscribe, R"({"requestid":"2","uid":"u"})").text,
            R"({"requestid":"2","success":"true"})");
  put({{u"text/plain", text(u"a")}});
  EXPECT_EQ(notifications.notifications().size(), 1u);
}

TEST_F(Subscription, EmptyCallbackSubscribesAndDoesNotBreakTheClipboard) {
  auto const reply = service.handleRequestForClipboardChangeSubscription(
      {{"requestid", "r"}}, ClipboardImpl::NotifyCallback());
  EXPECT_EQ(reply.at("success"), Value("true"));
  // The listener throws std::bad_function_call into the emission; the write stands.
  EXPECT_NO_THROW(put({{u"text/plain", text(u"a")}}));
  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard).size(), 1u);
}

TEST_F(Subscription, DestructionDetachesTheListener) {
  Replies replies;
  {
    ClipboardImpl other;
    other.handleRequestForClipboardChangeSubscription({}, replies.notifier());
    put({{u"text/plain", text(u"a")}});
  }
  put({{u"text/html", text(u"a")}});
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
  auto doomed = std::make_unique<ClipboardImpl>();
  doomed->handleRequestForClipboardChangeSubscription({}, [&](std::string) {
    entered.set_value();
    releaseFuture.wait();
    callbackDone = true;
  });
  PFClipboardData data;
  data.addData(u"text/plain", std::u16string(u"a"));
  threaded->copyFromOtherProgram(std::move(data), PFClipboardMode::clipboard);
  entered.get_future().wait();

  auto destroyed = std::async(std::launch::async, [&] { doomed.reset(); });
  EXPECT_EQ(destroyed.wait_for(100ms), std::future_status::timeout);
  release.set_value();
  destroyed.wait();
  EXPECT_TRUE(callbackDone.load());
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
            service->handleRequestForAvailableDataFlavors(message(R"({"requestid":"f","uid":"u"})"),
                                                          replies.callback());
            break;
          case 1:
            service->handleGetClipboardDataRequest(
                message(R"({"requestid":"g","uid":"u","flavors":[]})"), PFClipboardMode::clipboard,
                replies.callback());
            break;
          default:
            service->handleRequestForClipboardChangeSubscription(
                message(R"({"requestid":"s","uid":"u"})"), notify, replies.callback());
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
}  // namespace service_test
