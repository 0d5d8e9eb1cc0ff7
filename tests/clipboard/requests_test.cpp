// What the front end sees of each request kind: request text in, reply text and uid out, one
// table per kind for the uid, the parse flag and the members every request carries.
#include <optional>
#include <stdexcept>

#include "service_fixture.hpp"

namespace service_test {
namespace {

std::string const kParse = "JSON Parse Error";
std::string const kFlavorsUid = "[handleRequestForAvailableDataFlavors] UID is empty";
std::string const kGetUid = "[handleGetClipboardDataRequest] UID is empty";
std::string const kSetUid = "[handleSetClipboardDataRequest] UID is empty";
// The subscription logs a missing request id with the same words as a missing uid.
std::string const kSubscribeUid = "[handleRequestForClipboardChangeSubscription] UID is empty";
std::string const kGetFields =
    "[handleGetClipboardDataRequest] JSON message does not contain required fields";
std::string const kSetFields =
    "[handleSetClipboardDataRequest] JSON message does not contain required fields";

using Log = std::vector<std::string>;

struct Row {
  char const* name;
  std::string request;
  std::string reply;  // the exact reply text
  std::string uid;
  Log log;
  std::optional<PFClipboardMode> written = std::nullopt;  // set: the mode the clipboard got
  PFClipboardMode mode = PFClipboardMode::clipboard;
};

struct Case {
  Request kind;
  Row row;
};

// Test names show the row's name, not its bytes.
void PrintTo(Case const& c, std::ostream* os) {
  *os << c.row.name;
}

auto rowsOf(Request kind, std::vector<Row> const& rows) {
  std::vector<Case> out;
  for (auto const& row : rows) {
    out.push_back({kind, row});
  }
  return ::testing::ValuesIn(out);
}

std::string nameOf(::testing::TestParamInfo<Case> const& info) {
  return info.param.row.name;
}

class Envelope : public ServiceTest, public ::testing::WithParamInterface<Case> {};

// The system clipboard and the selection hold different content in every row.
TEST_P(Envelope, RepliesWithTheUidBesideTheReplyText) {
  auto const& [kind, row] = GetParam();
  put({{u"text/plain", text(u"t")}, {u"text/html", text(u"h")}});
  put({{u"text/plain", text(u"p")}, {u"text/x-primary", text(u"x")}}, PFClipboardMode::selection);

  Reply const reply = send(kind, row.request, row.mode);
  EXPECT_EQ(reply.text, row.reply);
  EXPECT_EQ(reply.uid, row.uid);
  EXPECT_EQ(logged(), row.log);
  if (row.written) {
    EXPECT_EQ(backend->writes(), 1);
    EXPECT_EQ(backend->lastMode(), *row.written);
  } else {
    EXPECT_EQ(backend->writes(), 0);
  }
}

std::string const kListedR =
    R"({"flavors":["text/plain","text/html"],"requestid":"r","success":true})";
std::string const kListed =
    R"({"flavors":["text/plain","text/html"],"requestid":"","success":true})";
INSTANTIATE_TEST_SUITE_P(
    Flavors, Envelope,
    rowsOf(Request::flavors,
           {
               {"UidPassed", R"({"requestid":"r","uid":"front-7"})", kListedR, "front-7", Log{}},
               {"EmptyUid", R"({"requestid":"r","uid":""})", kListedR, "", Log{}},
               {"NoUid", R"({"requestid":"r"})", kListedR, "", Log{kFlavorsUid}},
               {"NumberUid", R"({"requestid":"r","uid":7})", kListedR, "", Log{kFlavorsUid}},
               {"NullUid", R"({"requestid":"r","uid":null})", kListedR, "", Log{kFlavorsUid}},
               {"NoRequestId", R"({"uid":"u"})", kListed, "u", Log{kFlavorsNoRequestId}},
               {"NumberRequestId", R"({"requestid":7,"uid":"u"})", kListed, "u",
                Log{kFlavorsNoRequestId}},
               {"NotJson", "not json", kListed, "", Log{kParse, kFlavorsNoRequestId, kFlavorsUid}},
               // Members read before the text broke off are not kept.
               {"CutShort", R"({"requestid":"r","uid":"u",)", kListed, "",
                Log{kParse, kFlavorsNoRequestId, kFlavorsUid}},
           }),
    nameOf);

std::string const kGotT = R"({"clipboardItems":{"text/plain":"t"},"requestid":"g","success":true})";
std::string const kRefusedGet = R"({"clipboardItems":{},"requestid":"","success":false})";
std::string const kAllG =
    R"({"clipboardItems":{"text/html":"h","text/plain":"t"},"requestid":"g","success":false})";
std::string const kAll =
    R"({"clipboardItems":{"text/html":"h","text/plain":"t"},"requestid":"","success":false})";
Log const kFieldsLog = {kGetFields, kFlavorsNoRequestId};
INSTANTIATE_TEST_SUITE_P(
    Get, Envelope,
    rowsOf(Request::get,
           {
               {"UidPassed", R"({"requestid":"g","uid":"front-7","flavors":["text/plain"]})", kGotT,
                "front-7", Log{}},
               {"NoUid", R"({"requestid":"g","flavors":["text/plain"]})", kGotT, "", Log{kGetUid}},
               {"NotJson", "not json", kRefusedGet, "", Log{kParse, kGetUid}},
               {"TextAfterTheObject", R"({"requestid":"g","uid":"u","flavors":["text/plain"]} [x)",
                kGotT, "u", Log{}},
               {"OwnSuccessMember",
                R"({"success":false,"requestid":"g","uid":"u","flavors":["text/plain"]})", kGotT,
                "u", Log{}},
               // A request that names no readable flavors fails but is answered with everything.
               {"NoFlavors", R"({"requestid":"g","uid":"u"})", kAllG, "u", kFieldsLog},
               {"FlavorsNotAnArray", R"({"requestid":"g","uid":"u","flavors":"text/html"})", kAllG,
                "u", kFieldsLog},
               // Once the request id has failed the flavor list is not read.
               {"NoRequestId", R"({"uid":"u","flavors":["text/html"]})", kAll, "u", kFieldsLog},
               {"NumberRequestId", R"({"requestid":1,"uid":"u","flavors":["text/html"]})", kAll,
                "u", kFieldsLog},
               // The listing is of the system clipboard, the reads are of the mode asked for.
               {"SelectionReadsWhatTheClipboardLists",
                R"({"requestid":"g","uid":"u","flavors":[]})",
                R"({"clipboardItems":{"text/plain":"p"},"requestid":"g","success":true})", "u",
                Log{kFlavorsNoRequestId}, std::nullopt, PFClipboardMode::selection},
           }),
    nameOf);

std::string const kOneItem = R"("clipboardItems":[{"mimeType":"text/plain","data":"t"}]})";
std::string const kSetDone = R"({"requestid":"s","success":true})";
std::string const kSetFailed = R"({"requestid":"s","success":false})";
std::string const kRefusedSet = R"({"requestid":"","success":false})";
auto const kSystem = PFClipboardMode::clipboard;
INSTANTIATE_TEST_SUITE_P(
    Set, Envelope,
    rowsOf(Request::set,
           {
               {"UidPassedAndModeUsed", R"({"requestid":"s","uid":"front-7",)" + kOneItem, kSetDone,
                "front-7", Log{}, PFClipboardMode::selection, PFClipboardMode::selection},
               {"NoUid", R"({"requestid":"s",)" + kOneItem, kSetDone, "", Log{kSetUid}, kSystem},
               {"NotJson", R"({"requestid":"s","uid":"u","clipboardItems":[)", kRefusedSet, "",
                Log{kParse, kSetUid}},
               {"TextAfterTheObject", R"({"requestid":"s","uid":"u",)" + kOneItem + "}{", kSetDone,
                "u", Log{}, kSystem},
               {"OwnSuccessMember", R"({"success":false,"requestid":"s","uid":"u",)" + kOneItem,
                kSetDone, "u", Log{}, kSystem},
               {"NoRequestId", R"({"uid":"u",)" + kOneItem, kRefusedSet, "u", Log{kSetFields}},
               {"NumberRequestId", R"({"requestid":1,"uid":"u",)" + kOneItem, kRefusedSet, "u",
                Log{kSetFields}},
               {"NoItems", R"({"requestid":"s","uid":"u"})", kSetFailed, "u", Log{kSetFields}},
               {"ItemsNotAnArray",
                R"({"requestid":"s","uid":"u","clipboardItems":{"mimeType":"text/plain"}})",
                kSetFailed, "u", Log{kSetFields}},
           }),
    nameOf);

// Success is the string "true", not a bool.
std::string const kSubscribed = R"({"requestid":"b","success":"true"})";
INSTANTIATE_TEST_SUITE_P(
    Subscribe, Envelope,
    rowsOf(Request::subscribe,
           {
               {"UidPassed", R"({"requestid":"b","uid":"front-7"})", kSubscribed, "front-7", Log{}},
               {"NoUid", R"({"requestid":"b"})", kSubscribed, "", Log{kSubscribeUid}},
               {"NoRequestId", R"({"uid":"u"})", R"({"requestid":"","success":"true"})", "u",
                Log{kSubscribeUid}},
               {"NotJson", "not json", R"({"requestid":"","success":"true"})", "",
                Log{kParse, kSubscribeUid, kSubscribeUid}},
           }),
    nameOf);

using Requests = ServiceTest;

// The map forms are called by the entries only, with the flag always present.
TEST_F(Requests, MapWithoutTheParseFlagThrows) {
  RequestMap const request = {
      {"requestid", "r"}, {"flavors", Array{}}, {"clipboardItems", Array{}}};
  EXPECT_THROW(service.handleGetClipboardDataRequest(request, PFClipboardMode::clipboard),
               std::runtime_error);
  EXPECT_THROW(service.handleSetClipboardDataRequest(request, PFClipboardMode::clipboard),
               std::runtime_error);
  EXPECT_TRUE(backend->reads().empty());
  EXPECT_EQ(backend->listCalls(), 0);
  EXPECT_EQ(backend->writes(), 0);
}

TEST_F(Requests, OnlyTheMessageBytesAreRead) {
  // A view whose bytes continue past its end: the reader must stop at the range's end.
  std::string const storage = R"({"requestid":"r1"}{"requestid":"r2"})";
  auto const view = connector::message_service::JsonMessage::view(storage.data(), 10);
  EXPECT_FALSE(service.convertMessageToJson(view).at("success").get<bool>());
}

TEST_F(Requests, EmptyReplyCallbackRunsTheHandlerThenThrows) {
  ClipboardImpl::ReplyCallback const empty;
  EXPECT_THROW(service.handleRequestForAvailableDataFlavors(
                   message(R"({"requestid":"r","uid":"u"})"), empty),
               std::bad_function_call);
  EXPECT_EQ(backend->listCalls(), 1);
  EXPECT_THROW(service.handleSetClipboardDataRequest(
                   message(R"({"requestid":"r","uid":"u",)" + kOneItem), kSystem, empty),
               std::bad_function_call);
  ASSERT_TRUE(backend->lastWrite()) << "the clipboard is written before the callback is called";
  EXPECT_NE(backend->lastWrite()->find(u"text/plain"), nullptr);
}

TEST_F(Requests, HandlerExceptionSendsNoReply) {
  backend->failListing(true);
  Replies replies;
  EXPECT_THROW(service.handleRequestForAvailableDataFlavors(message(R"({"requestid":"r"})"),
                                                            replies.callback()),
               std::runtime_error);
  EXPECT_TRUE(replies.replies().empty());
}

}  // namespace
}  // namespace service_test
