// The available-flavors request: the types the system clipboard holds, and the list kept for
// a subscriber's empty get requests.
#include <stdexcept>

#include "service_fixture.hpp"

namespace service_test {
namespace {

using Flavors = ServiceTest;

TEST_F(Flavors, ListsThePlatformTypesInItsOrderAsUtf8) {
  put({{u"text/plain", text(u"x")},
       {u"image/png", text(u"x")},
       {u"application/x-\u00e9t\u00e9", text(u"x")}});
  EXPECT_EQ(Value(service.handleRequestForAvailableDataFlavors({{"requestid", "r-1"}})),
            Value(Object{
                {"success", true},
                {"requestid", "r-1"},
                {"flavors", Array{"text/plain", "image/png", "application/x-\xc3\xa9t\xc3\xa9"}}}));
  EXPECT_TRUE(logged().empty());
}

TEST_F(Flavors, LastReportedFlavorsAreKeptOnlyWhileSubscribed) {
  put({{u"text/plain", text(u"x")}});
  service.handleRequestForAvailableDataFlavors({});
  EXPECT_TRUE(service.lastReportedFlavorsSnapshot().empty());

  service.handleRequestForClipboardChangeSubscription({}, [](std::string) {});
  put({{u"image/png", text(u"x")}});  // notifies, and the listener reports
  EXPECT_EQ(service.lastReportedFlavorsSnapshot(), std::vector<Value>{"image/png"});

  backend->put(PFClipboardData());
  service.handleRequestForAvailableDataFlavors({});
  EXPECT_TRUE(service.lastReportedFlavorsSnapshot().empty()) << "an empty list replaces too";
}

TEST_F(Flavors, FailingPlatformLeavesLastReportedFlavorsAlone) {
  service.handleRequestForClipboardChangeSubscription({}, [](std::string) {});
  put({{u"text/plain", text(u"x")}});
  backend->failListing(true);
  EXPECT_THROW(service.handleRequestForAvailableDataFlavors({}), std::runtime_error);
  EXPECT_EQ(service.lastReportedFlavorsSnapshot(), std::vector<Value>{"text/plain"});
}

}  // namespace
}  // namespace service_test
