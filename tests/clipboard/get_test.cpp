// The get request: formats named by the front end, read from the clipboard, answered as JSON.
#include <stdexcept>

#include "service_fixture.hpp"

namespace service_test {
namespace {

std::string const kJava1 =
    "application/x-java-serialized-object; class=java.lang.String; format=rtf";
std::string const kJava2 =
    "application/x-java-serialized-object; class=java.lang.String; format=xhtml";
std::string const kJava3 =
    "application/x-java-serialized-object; class=java.lang.String; format=json";
std::string const kTagged = "image/x-java-image; class=java.awt.Image";
std::string const kFlavorsNoRequestId =
    "[handleRequestForAvailableDataFlavors] JSON message does not contain required fields "
    "'requestid'";
std::string const kRequiredFields =
    "[handleGetClipboardDataRequest] JSON message does not contain required fields";

RequestMap getRequest(Array flavors, std::string const& id = "g1") {
  return {{"success", true}, {"requestid", id}, {"flavors", std::move(flavors)}};
}

std::u16string u16(std::string const& s) {
  return std::u16string(s.begin(), s.end());
}

class GetTest : public ServiceTest {
 protected:
  Object itemsOf(ClipboardImpl::ReplyMap const& reply) {
    EXPECT_EQ(reply.size(), 3u);
    return reply.at("clipboardItems").get<Object>();
  }
  Object get(Array flavors, PFClipboardMode mode = PFClipboardMode::clipboard) {
    auto const reply = service.handleGetClipboardDataRequest(getRequest(std::move(flavors)), mode);
    EXPECT_EQ(reply.at("success"), Value(true));
    EXPECT_EQ(reply.at("requestid"), Value("g1"));
    return itemsOf(reply);
  }
};

// Which conversion a mime type gets: the first category that applies, no falling through.
enum class Vocabulary { standard, sharedImageTextApplication, sharedTextApplication };

struct CategoryCase {
  char const* name;
  Vocabulary vocabulary;
  std::string mime;
  Fill fill;
  Value expected;  // Undefined: no member
};

void PrintTo(CategoryCase const& c, std::ostream* os) {
  *os << c.name;
}

class GetCategory : public GetTest, public ::testing::WithParamInterface<CategoryCase> {};

TEST_P(GetCategory, ProducesTheValueOfTheFirstMatchingCategory) {
  auto const& c = GetParam();
  ClipboardVocabulary v = EditorServices::defaultClipboardVocabulary();
  if (c.vocabulary == Vocabulary::sharedImageTextApplication) {
    v.graphicsMimePrefix = v.textMimePrefix = v.applicationMimePrefix = "mixed/";
  } else if (c.vocabulary == Vocabulary::sharedTextApplication) {
    v.textMimePrefix = v.applicationMimePrefix = "mixed/";
  }
  ClipboardImpl custom(v);
  put({{u16(c.mime), c.fill}});
  auto const items = itemsOf(
      custom.handleGetClipboardDataRequest(getRequest({c.mime}), PFClipboardMode::clipboard));
  if (c.expected.kind() == foundation::json::Kind::undefined) {
    EXPECT_TRUE(items.empty()) << Value(items);
  } else {
    EXPECT_EQ(Value(items), Value(Object{{c.mime, c.expected}}));
  }
  EXPECT_TRUE(logged().empty());
}

Object const kTaggedValue = {{"__type__", "image"}, {"__value__", "data:image/png;base64,QUJD"}};

INSTANTIATE_TEST_SUITE_P(
    Table, GetCategory,
    ::testing::Values(
        CategoryCase{"NativeNameWithBytes", Vocabulary::standard, "application/rtf",
                     bytes(bytesOf("{\\rtf1 x}")), "{\\rtf1 x}"},
        CategoryCase{"UriList", Vocabulary::standard, "text/uri-list",
                     paths(pathsOf({u"/a", u"/b c"})), Array{"/a", "/b c"}},
        CategoryCase{"UriListIsNotText", Vocabulary::standard, "text/uri-list", text(u"file:///a"),
                     Value()},
        CategoryCase{"RasterImage", Vocabulary::standard, "image/png", image(0, "QUJD"),
                     "data:image/png;base64,QUJD"},
        CategoryCase{"AnyImageType", Vocabulary::standard, "image/bmp", image(0, "QUJD"),
                     "data:image/bmp;base64,QUJD"},
        CategoryCase{"VectorImage", Vocabulary::standard, "image/svg+xml", image(1, "PHN2Zy8+"),
                     "data:image/svg+xml;base64,PHN2Zy8+"},
        CategoryCase{"TaggedImage", Vocabulary::standard, kTagged, image(0, "QUJD"), kTaggedValue},
        CategoryCase{"ImageTypeIsNotText", Vocabulary::standard, "image/png", text(u"x"), Value()},
        CategoryCase{"Text", Vocabulary::standard, "text/plain", text(u"h\u00e9llo \U0001F600"),
                     "h\xC3\xA9llo \xF0\x9F\x98\x80"},
        CategoryCase{"AnyTextType", Vocabulary::standard, "text/html", text(u"<b>x</b>"),
                     "<b>x</b>"},
        CategoryCase{"TextTypeIsNotBytes", Vocabulary::standard, "text/plain",
                     bytes(bytesOf("abc")), Value()},
        CategoryCase{"ApplicationBytes", Vocabulary::standard, "application/octet-stream",
                     bytes(bytesOf("abc")), "abc"},
        CategoryCase{"ApplicationIsNotText", Vocabulary::standard, "application/x-thing",
                     text(u"abc"), Value()},
        CategoryCase{"NoCategory", Vocabulary::standard, "font/ttf", bytes(bytesOf("abc")),
                     Value()},
        CategoryCase{"CaseMatters", Vocabulary::standard, "Text/plain", text(u"abc"), Value()},
        CategoryCase{"ImageBeforeText", Vocabulary::sharedImageTextApplication, "mixed/a",
                     image(0, "QUJD"), "data:mixed/a;base64,QUJD"},
        CategoryCase{"ImageDoesNotFallThrough", Vocabulary::sharedImageTextApplication, "mixed/a",
                     text(u"abc"), Value()},
        CategoryCase{"TextBeforeApplication", Vocabulary::sharedTextApplication, "mixed/a",
                     text(u"abc"), "abc"},
        CategoryCase{"TextDoesNotFallThrough", Vocabulary::sharedTextApplication, "mixed/a",
                     bytes(bytesOf("abc")), Value()}),
    [](auto const& info) { return std::string(info.param.name); });

// The platform-side name of a pair whose own bytes give no text: the Java-side format is read
// and its string answered under the platform-side name.
TEST_F(GetTest, PlatformSideNameFallsBackToTheJavaSideString) {
  struct Case {
    char const* name;
    std::string native;
    std::string java;
    std::vector<std::pair<std::u16string, Fill>> clipboard;
    Value expected;
    bool secondRead;
  } const cases[] = {
      {"nothing native",
       "application/rtf",
       kJava1,
       {{u16(kJava1), bytes(javaString("r"))}},
       "r",
       true},
      {"empty bytes",
       "application/xhtml+xml",
       kJava2,
       {{u"application/xhtml+xml", bytes({})}, {u16(kJava2), bytes(javaString("<p/>"))}},
       "<p/>",
       true},
      {"native text",
       "application/json",
       kJava3,
       {{u"application/json", text(u"{}")}, {u16(kJava3), bytes(javaString("{\"a\":1}"))}},
       "{\"a\":1}",
       true},
      {"native bytes win",
       "application/json",
       kJava3,
       {{u"application/json", bytes(bytesOf("[1]"))}, {u16(kJava3), bytes(javaString("{}"))}},
       "[1]",
       false},
      {"java side not serialized",
       "application/rtf",
       kJava1,
       {{u16(kJava1), bytes(bytesOf("plain"))}},
       Value(),
       true},
      {"neither", "application/rtf", kJava1, {{u"text/plain", text(u"x")}}, Value(), true},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    auto scripted = std::make_shared<test_support::ScriptedBackend>();
    test_support::InstalledBackend installedHere(scripted);
    PFClipboardData data;
    for (auto const& [mime, fill] : c.clipboard) {
      fill(data, mime);
    }
    scripted->put(std::move(data));
    auto const items = itemsOf(
        service.handleGetClipboardDataRequest(getRequest({c.native}), PFClipboardMode::clipboard));
    if (c.expected.kind() == foundation::json::Kind::undefined) {
      EXPECT_TRUE(items.empty()) << Value(items);
    } else {
      EXPECT_EQ(Value(items), Value(Object{{c.native, c.expected}}));
    }
    std::vector<std::u16string> reads = {u16(c.native)};
    if (c.secondRead) {
      reads.push_back(u16(c.java));
    }
    EXPECT_EQ(scripted->reads(), reads);
  }
}

TEST_F(GetTest, FailingJavaSideReadLeavesTheHandler) {
  backend->failReadOf(u16(kJava1));
  EXPECT_THROW(service.handleGetClipboardDataRequest(getRequest({"application/rtf"}),
                                                     PFClipboardMode::clipboard),
               std::runtime_error);
  // Through the message form no reply goes out.
  Reply reply;
  EXPECT_THROW(service.handleGetClipboardDataRequest(
                   connector::message_service::JsonMessage(
                       R"({"requestid":"g","uid":"u","flavors":["application/rtf"]})"),
                   PFClipboardMode::clipboard, recorder(reply)),
               std::runtime_error);
  EXPECT_EQ(reply.calls, 0);
}

TEST_F(GetTest, DuplicatesGiveOneMemberAndEveryNameIsRead) {
  put({{u"text/plain", text(u"t")}, {u"image/png", image(0, "QUJD")}});
  auto const items = get({"text/plain", "image/png", "text/plain", "image/png"});
  EXPECT_EQ(Value(items),
            Value(Object{{"image/png", "data:image/png;base64,QUJD"}, {"text/plain", "t"}}));
  std::vector<std::u16string> const reads = {u"text/plain", u"image/png", u"text/plain",
                                             u"image/png"};
  EXPECT_EQ(backend->reads(), reads);
}

TEST_F(GetTest, EmptyResultsGiveNoMember) {
  put({{u"text/plain", text(u"")},
       {u"text/uri-list", paths({})},
       {u"application/x-a", bytes({})},
       {u"image/png", image(0, "")}});
  EXPECT_TRUE(
      get({"text/plain", "text/uri-list", "application/x-a", "image/png", "text/html"}).empty());
  EXPECT_TRUE(logged().empty());
}

TEST_F(GetTest, EmptyFlavorListReadsEveryOfferedType) {
  put({{u"text/plain", text(u"t")}, {u"text/html", text(u"<i>t</i>")}});
  auto const items = get({});
  EXPECT_EQ(Value(items), Value(Object{{"text/html", "<i>t</i>"}, {"text/plain", "t"}}));
  EXPECT_EQ(backend->listCalls(), 1);
  EXPECT_EQ(backend->reads(), (std::vector<std::u16string>{u"text/plain", u"text/html"}));
  EXPECT_EQ(logged(), std::vector<std::string>{kFlavorsNoRequestId});
}

TEST_F(GetTest, EmptyFlavorListWhileSubscribedReadsTheLastReportedFlavors) {
  put({{u"text/plain", text(u"before")}});
  service.handleRequestForClipboardChangeSubscription({{"success", true}, {"requestid", "s"}},
                                                      [](std::string) {});
  // Nothing reported since the subscription: nothing to read, and the clipboard is not listed.
  EXPECT_TRUE(get({}).empty());
  EXPECT_EQ(backend->listCalls(), 0);
  EXPECT_TRUE(backend->reads().empty());

  put({{u"text/html", text(u"after")}});  // reported to the subscriber
  int const listed = backend->listCalls();
  backend->failListing(true);
  log.clear();
  EXPECT_EQ(Value(get({})), Value(Object{{"text/html", "after"}}));
  EXPECT_EQ(backend->listCalls(), listed);
  EXPECT_TRUE(logged().empty());
}

TEST_F(GetTest, UnreadableRequestIdOrFlavorsFailTheReplyButTheClipboardIsStillRead) {
  put({{u"text/plain", text(u"t")}, {u"text/html", text(u"h")}});
  Object const everything = {{"text/html", "h"}, {"text/plain", "t"}};
  struct Case {
    char const* name;
    RequestMap request;
    std::string echoed;
  } const cases[] = {
      {"no flavors", {{"success", true}, {"requestid", "g7"}}, "g7"},
      {"flavors not an array",
       {{"success", true}, {"requestid", "g8"}, {"flavors", "text/plain"}},
       "g8"},
      // The flavor list is not read once the request id has failed.
      {"no request id", {{"success", true}, {"flavors", Array{"text/html"}}}, ""},
      {"request id a number",
       {{"success", true}, {"requestid", 5.0}, {"flavors", Array{"text/html"}}},
       ""},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    log.clear();
    auto const reply = service.handleGetClipboardDataRequest(c.request, PFClipboardMode::clipboard);
    EXPECT_EQ(reply.at("success"), Value(false));
    EXPECT_EQ(reply.at("requestid"), Value(c.echoed));
    EXPECT_EQ(Value(itemsOf(reply)), Value(everything));
    EXPECT_EQ(logged(), (std::vector<std::string>{kRequiredFields, kFlavorsNoRequestId}));
  }
}

TEST_F(GetTest, FailingListingFallsBackToTheFallbackFlavors) {
  put({{u"text/plain", text(u"t")}, {u"text/uri-list", paths(pathsOf({u"/f"}))}});
  backend->failListing(true);
  EXPECT_EQ(Value(get({})), Value(Object{{"text/plain", "t"}, {"text/uri-list", Array{"/f"}}}));
  EXPECT_EQ(backend->reads(),
            (std::vector<std::u16string>{u"text/plain", u"text/uri-list", u"image/png"}));
  EXPECT_EQ(logged(), (std::vector<std::string>{
                          kFlavorsNoRequestId,
                          kRequiredFields + " from handleRequestForAvailableDataFlavors API"}));
}

TEST_F(GetTest, ThrowingReadSkipsOnlyThatType) {
  put({{u"text/plain", text(u"t")}, {u"text/html", text(u"h")}});
  backend->failReadOf(u"text/html");
  EXPECT_EQ(Value(get({"text/html", "text/plain"})), Value(Object{{"text/plain", "t"}}));
  EXPECT_EQ(logged(), std::vector<std::string>{
                          "getClipboardDataSync threw an exception for mime Type: text/html"});
}

TEST_F(GetTest, NonStringFlavorsAreSkipped) {
  put({{u"text/plain", text(u"t")}, {u"text/html", text(u"h")}});
  EXPECT_EQ(Value(get({3.0, "text/plain", Value(foundation::json::Null()), Array{"text/html"}})),
            Value(Object{{"text/plain", "t"}}));
  EXPECT_EQ(backend->reads(), std::vector<std::u16string>{u"text/plain"});
  EXPECT_EQ(logged(), std::vector<std::string>(3, "Invalid JSON format sent for getClipboardData"));
}

TEST_F(GetTest, MimeTypeIsReadAndAnsweredInItsRepairedForm) {
  put({{u"text/plain\uFFFD", text(u"t")}});
  EXPECT_EQ(Value(get({"text/plain\xC3"})), Value(Object{{"text/plain\xEF\xBF\xBD", "t"}}));
  EXPECT_EQ(backend->reads(), std::vector<std::u16string>{u"text/plain\uFFFD"});
}

TEST_F(GetTest, ModeReachesTheReadsButTheListingUsesTheSystemClipboard) {
  put({{u"text/plain", text(u"primary")},
       {u"text/html", text(u"h")},
       {u16(kJava1), bytes(javaString("primary"))}},
      PFClipboardMode::selection);
  put({{u"text/plain", text(u"system")}});
  EXPECT_EQ(Value(get({}, PFClipboardMode::selection)), Value(Object{{"text/plain", "primary"}}));
  // The Java-side read of a pair uses the same mode.
  put({{u16(kJava1), bytes(javaString("system"))}});
  EXPECT_EQ(Value(get({"application/rtf"}, PFClipboardMode::selection)),
            Value(Object{{"application/rtf", "primary"}}));
}

TEST_F(GetTest, UnparsedRequestReadsNothing) {
  put({{u"text/plain", text(u"t")}});
  RequestMap request = getRequest({"text/plain"}, "x");
  request["success"] = false;
  auto const reply = service.handleGetClipboardDataRequest(request, PFClipboardMode::clipboard);
  EXPECT_EQ(reply.at("success"), Value(false));
  EXPECT_EQ(reply.at("requestid"), Value(""));
  EXPECT_TRUE(itemsOf(reply).empty());
  EXPECT_TRUE(backend->reads().empty());
  EXPECT_EQ(backend->listCalls(), 0);
  EXPECT_TRUE(logged().empty());

  request.erase("success");
  EXPECT_THROW(service.handleGetClipboardDataRequest(request, PFClipboardMode::clipboard),
               std::runtime_error);
  EXPECT_TRUE(backend->reads().empty());
}

TEST_F(GetTest, MessageFormRepliesWithMembersInNameOrderAndTheUid) {
  put({{u"text/plain", text(u"t")},
       {u"image/png", image(0, "QUJD")},
       {u16(kTagged), image(0, "Rg==")}});
  Reply const reply = getByMessage(
      R"({"requestid":"m1","uid":"front-7","flavors":["text/plain","image/x-java-image; class=java.awt.Image","image/png"]})");
  EXPECT_EQ(reply.calls, 1);
  EXPECT_EQ(reply.uid, "front-7");
  Object const expected = {
      {"success", true},
      {"requestid", "m1"},
      {"clipboardItems",
       Object{{"image/png", "data:image/png;base64,QUJD"},
              {kTagged, Object{{"__type__", "image"}, {"__value__", "data:image/png;base64,Rg=="}}},
              {"text/plain", "t"}}}};
  EXPECT_EQ(Value(parseObject(reply.text)), Value(expected));
  auto const png = reply.text.find("\"image/png\"");
  auto const tagged = reply.text.find("\"image/x-java-image");
  auto const plain = reply.text.find("\"text/plain\"");
  EXPECT_LT(png, tagged);
  EXPECT_LT(tagged, plain);
  EXPECT_NE(plain, std::string::npos);
  EXPECT_TRUE(logged().empty());
}

TEST_F(GetTest, MessageFormLogsItsLineForAnUnreadableUid) {
  put({{u"text/plain", text(u"t")}});
  struct Case {
    char const* text;
    bool logs;
  } const cases[] = {
      {R"({"requestid":"m","flavors":["text/plain"]})", true},
      {R"({"requestid":"m","uid":5,"flavors":["text/plain"]})", true},
      {R"({"requestid":"m","uid":"","flavors":["text/plain"]})", false},
  };
  for (auto const& c : cases) {
    log.clear();
    Reply const reply = getByMessage(c.text);
    EXPECT_EQ(reply.calls, 1) << c.text;
    EXPECT_EQ(reply.uid, "");
    EXPECT_EQ(parseObject(reply.text).at("clipboardItems"), Value(Object{{"text/plain", "t"}}));
    EXPECT_EQ(logged(),
              c.logs ? std::vector<std::string>{"[handleGetClipboardDataRequest] UID is empty"}
                     : std::vector<std::string>{})
        << c.text;
  }
}

TEST_F(GetTest, MessageThatDoesNotParseGetsAFailureReplyAndNoRead) {
  put({{u"text/plain", text(u"t")}});
  for (char const* payload : {"", "not json", "[\"text/plain\"]"}) {
    log.clear();
    Reply const reply = getByMessage(payload);
    EXPECT_EQ(reply.calls, 1);
    EXPECT_EQ(Value(parseObject(reply.text)),
              Value(Object{{"success", false}, {"requestid", ""}, {"clipboardItems", Object{}}}))
        << payload;
    EXPECT_EQ(logged(), (std::vector<std::string>{"JSON Parse Error",
                                                  "[handleGetClipboardDataRequest] UID is empty"}));
  }
  EXPECT_TRUE(backend->reads().empty());
  EXPECT_EQ(backend->listCalls(), 0);
}

}  // namespace
}  // namespace service_test
