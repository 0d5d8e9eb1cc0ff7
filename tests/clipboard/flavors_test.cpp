#include <gtest/gtest.h>

#include "clipboard/clipboard_impl.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_backend.hpp"
#include "support/service_harness.hpp"

namespace {

using EditorServices::ClipboardImpl;
using foundation::json::Value;

class Flavors : public ::testing::Test {
 protected:
  void offer(std::vector<std::u16string> const& mimeTypes,
             pf::clipboard::PFClipboardMode mode = pf::clipboard::PFClipboardMode::clipboard) {
    pf::clipboard::PFClipboardData data;
    for (auto const& mime : mimeTypes) {
      data.addData(mime, std::u16string(u"x"));
    }
    backend->put(std::move(data), mode);
  }

  std::shared_ptr<test_support::ScriptedBackend> backend =
      std::make_shared<test_support::ScriptedBackend>();
  test_support::InstalledBackend installed{backend};
  ClipboardImpl service;
  test_support::LogCapture log;
};

TEST_F(Flavors, ListsThePlatformTypesInItsOrderAsUtf8) {
  offer({u"text/plain", u"image/png", u"application/x-\u00e9t\u00e9"});
  auto reply = service.handleRequestForAvailableDataFlavors({{"requestid", Value("r-1")}});
  ASSERT_EQ(reply.size(), 3u);
  EXPECT_TRUE(reply.at(service.successKey).get<bool>());
  EXPECT_EQ(reply.at(service.replyRequestIdKey).get<std::string>(), "r-1");
  EXPECT_EQ(reply.at(service.flavorsKey),
            Value(foundation::json::Array{Value("text/plain"), Value("image/png"),
                                          Value("application/x-\xc3\xa9t\xc3\xa9")}));
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(Flavors, AlwaysListsTheSystemClipboard) {
  offer({u"text/plain"}, pf::clipboard::PFClipboardMode::clipboard);
  offer({u"application/x-primary-only"}, pf::clipboard::PFClipboardMode::selection);
  auto reply = service.handleRequestForAvailableDataFlavors({});
  EXPECT_EQ(reply.at(service.flavorsKey).get<foundation::json::Array>(),
            foundation::json::Array{Value("text/plain")});
}

TEST_F(Flavors, EmptyClipboardIsStillASuccess) {
  auto reply = service.handleRequestForAvailableDataFlavors({{"requestid", Value("r")}});
  EXPECT_TRUE(reply.at(service.successKey).get<bool>());
  EXPECT_TRUE(reply.at(service.flavorsKey).get<foundation::json::Array>().empty());
}

TEST_F(Flavors, RequestIdThatIsNotAStringIsLoggedAndLeftEmpty) {
  for (Value const& id : {Value(7.0), Value(), Value(foundation::json::Null())}) {
    log.clear();
    ClipboardImpl::RequestMap request;
    if (id.kind() != foundation::json::Kind::undefined) {
      request["requestid"] = id;
    }
    auto reply = service.handleRequestForAvailableDataFlavors(request);
    EXPECT_EQ(reply.at(service.replyRequestIdKey).get<std::string>(), "");
    EXPECT_TRUE(reply.at(service.successKey).get<bool>());
    EXPECT_EQ(log.messages(),
              std::vector<std::string>{"[handleRequestForAvailableDataFlavors] JSON message does "
                                       "not contain required fields 'requestid'"});
  }
}

TEST_F(Flavors, LastReportedFlavorsAreKeptOnlyWhileSubscribed) {
  offer({u"text/plain"});
  service.handleRequestForAvailableDataFlavors({});
  EXPECT_TRUE(service.lastReportedFlavorsSnapshot().empty());

  service.handleRequestForClipboardChangeSubscription({}, [](std::string) {});
  offer({u"image/png", u"image/png"});  // notifies, and the listener reports
  auto reply = service.handleRequestForAvailableDataFlavors({});
  auto const& flavors = reply.at(service.flavorsKey).get<foundation::json::Array>();
  EXPECT_EQ(flavors.size(), 1u);  // the payload keeps one entry per type
  EXPECT_EQ(service.lastReportedFlavorsSnapshot(), flavors);

  backend->put(pf::clipboard::PFClipboardData());
  service.handleRequestForAvailableDataFlavors({});
  EXPECT_TRUE(service.lastReportedFlavorsSnapshot().empty()) << "an empty list replaces too";
}

TEST_F(Flavors, FailingPlatformLeavesLastReportedFlavorsAlone) {
  service.handleRequestForClipboardChangeSubscription({}, [](std::string) {});
  offer({u"text/plain"});
  auto const before = service.lastReportedFlavorsSnapshot();
  ASSERT_EQ(before.size(), 1u);
  backend->failListing(true);
  EXPECT_THROW(service.handleRequestForAvailableDataFlavors({}), std::runtime_error);
  EXPECT_EQ(service.lastReportedFlavorsSnapshot(), before);
}

// A platform list with the same type twice is passed on as it is.
class DuplicatingBackend final : public pf::clipboard::PFClipboardBackend {
 public:
  std::vector<std::u16string> availableMimeTypes(pf::clipboard::PFClipboardMode) override {
    return {u"text/plain", u"text/plain"};
  }
  pf::clipboard::ClipboardContent read(std::u16string const&,
                                       pf::clipboard::PFClipboardMode) override {
    return {};
  }
  void write(std::unique_ptr<pf::clipboard::PFClipboardData>,
             pf::clipboard::PFClipboardMode) override {}
};

TEST(FlavorsDuplicates, AreNotRemoved) {
  test_support::InstalledBackend installed(std::make_shared<DuplicatingBackend>());
  ClipboardImpl service;
  auto reply = service.handleRequestForAvailableDataFlavors({});
  EXPECT_EQ(reply.at(service.flavorsKey).get<foundation::json::Array>().size(), 2u);
}

}  // namespace
