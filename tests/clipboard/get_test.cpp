// The get request: formats named by the front end, read from the clipboard, answered as JSON;
// and the mime names and families it goes by.
#include <stdexcept>

#include "service_fixture.hpp"

namespace service_test {
namespace {

std::string const kNative[] = {"application/rtf", "application/xhtml+xml", "application/json"};
std::string const kJava[] = {
    "application/x-java-serialized-object; class=java.lang.String; format=rtf",
    "application/x-java-serialized-object; class=java.lang.String; format=xhtml",
    "application/x-java-serialized-object; class=java.lang.String; format=json"};
std::string const kTagged = "image/x-java-image; class=java.awt.Image";

RequestMap getRequest(Array flavors, std::string const& id = "g1") {
  return {{"success", true}, {"requestid", id}, {"flavors", std::move(flavors)}};
}

class GetTest : public ServiceTest {
 protected:
  Object get(Array flavors, PFClipboardMode mode = PFClipboardMode::clipboard) {
    auto const reply = service.handleGetClipboardDataRequest(getRequest(std::move(flavors)), mode);
    EXPECT_EQ(reply.at("success"), Value(true));
    EXPECT_EQ(reply.at("requestid"), Value("g1"));
    return reply.at("clipboardItems").get<Object>();
  }
};

// The first family that applies decides; a family whose getter gives nothing does not fall
// through to the next.
TEST_F(GetTest, EachMimeTypeGetsTheValueOfItsFirstMatchingCategory) {
  struct Case {
    char const* name;
    std::string mime;
    Fill fill;
    Value expected;  // Undefined: no member
  } const cases[] = {
      {"platform-side name", "application/rtf", bytes(bytesOf("{\\rtf1}")), "{\\rtf1}"},
      // Each path up to its first NUL, in order, duplicates and empty ones kept.
      {"uri list as given", "text/uri-list",
       paths(pathsOf({u"/tmp/b", u"", u"/tmp/\u00e9\U0001F600",
                      std::u16string(u"/tmp/cut\0tail", 13), u"/tmp/b"})),
       Array{"/tmp/b", "", "/tmp/\xC3\xA9\xF0\x9F\x98\x80", "/tmp/cut", "/tmp/b"}},
      {"uri list is not text", "text/uri-list", text(u"file:///a"), Value()},
      {"raster image", "image/png", image(0, "QUJD"), "data:image/png;base64,QUJD"},
      {"vector image", "image/svg+xml", image(1, "PHN2Zy8+"), "data:image/svg+xml;base64,PHN2Zy8+"},
      {"tagged image", kTagged, image(0, "QUJD"),
       Object{{"__type__", "image"}, {"__value__", "data:image/png;base64,QUJD"}}},
      {"image type is not text", "image/png", text(u"x"), Value()},
      {"text", "text/plain", text(u"h\u00e9llo \U0001F600"), "h\xC3\xA9llo \xF0\x9F\x98\x80"},
      {"text up to its end, NUL included", "text/plain", text(std::u16string(u"a\0b", 3)),
       std::string("a\0b", 3)},
      {"text type is not bytes", "text/plain", bytes(bytesOf("abc")), Value()},
      {"application bytes", "application/octet-stream", bytes(bytesOf("abc")), "abc"},
      {"bytes not UTF-8 are repaired", "application/x-a", bytes(byteList({0xFF, 'a'})),
       u8"\uFFFDa"},
      {"no category", "font/ttf", bytes(bytesOf("abc")), Value()},
      {"empty text", "text/plain", text(u""), Value()},
      {"empty uri list", "text/uri-list", paths({}), Value()},
      {"empty bytes", "application/x-a", bytes({}), Value()},
      {"empty image", "image/png", image(0, ""), Value()},
      {"nothing offered", "text/html", nullptr, Value()},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    put({{u16(c.mime), c.fill}});
    Object const items = get({c.mime});
    if (c.expected.kind() == foundation::json::Kind::undefined) {
      EXPECT_TRUE(items.empty()) << Value(items);
    } else {
      EXPECT_EQ(Value(items), Value(Object{{c.mime, c.expected}}));
    }
  }
  EXPECT_TRUE(logged().empty());
}

// A platform-side name whose own bytes give no text is answered with the string of its
// Java-side format, under the platform-side name.
TEST_F(GetTest, PlatformSideNameFallsBackToTheJavaSideString) {
  struct Case {
    char const* name;
    int pair;
    Fill native;
    Fill java;
    Value expected;
  } const cases[] = {
      {"nothing native", 0, nullptr, bytes(javaString("r")), "r"},
      {"empty bytes", 1, bytes({}), bytes(javaString("<p/>")), "<p/>"},
      {"native text", 2, text(u"{}"), bytes(javaString("{\"a\":1}")), "{\"a\":1}"},
      {"native bytes win", 2, bytes(bytesOf("[1]")), bytes(javaString("{}")), "[1]"},
      {"java side not serialized", 0, nullptr, bytes(bytesOf("plain")), Value()},
      {"neither", 0, nullptr, nullptr, Value()},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    std::string const& native = kNative[c.pair];
    put({{u16(native), c.native}, {u16(kJava[c.pair]), c.java}});
    Object const items = get({native});
    if (c.expected.kind() == foundation::json::Kind::undefined) {
      EXPECT_TRUE(items.empty()) << Value(items);
    } else {
      EXPECT_EQ(Value(items), Value(Object{{native, c.expected}}));
    }
  }
}

TEST_F(GetTest, FailingJavaSideReadLeavesTheHandler) {
  backend->failReadOf(u16(kJava[0]));
  EXPECT_THROW(service.handleGetClipboardDataRequest(getRequest({"application/rtf"}),
                                                     PFClipboardMode::clipboard),
               std::runtime_error);
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

TEST_F(GetTest, FailingListingFallsBackToTheFallbackFlavors) {
  put({{u"text/plain", text(u"t")}, {u"text/uri-list", paths(pathsOf({u"/f"}))}});
  backend->failListing(true);
  EXPECT_EQ(Value(get({})), Value(Object{{"text/plain", "t"}, {"text/uri-list", Array{"/f"}}}));
  EXPECT_EQ(backend->reads(),
            (std::vector<std::u16string>{u"text/plain", u"text/uri-list", u"image/png"}));
  EXPECT_EQ(logged(), (std::vector<std::string>{
                          kFlavorsNoRequestId,
                          "[handleGetClipboardDataRequest] JSON message does not contain "
                          "required fields from handleRequestForAvailableDataFlavors API"}));
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

// The Java-side read of a pair uses the mode of the request.
TEST_F(GetTest, JavaSideReadUsesTheRequestMode) {
  put({{u16(kJava[0]), bytes(javaString("primary"))}}, PFClipboardMode::selection);
  put({{u16(kJava[0]), bytes(javaString("system"))}});
  EXPECT_EQ(Value(get({"application/rtf"}, PFClipboardMode::selection)),
            Value(Object{{"application/rtf", "primary"}}));
}

// The mapping between the platform-side and Java-side names of the three string formats, and
// the family predicates, on the default vocabulary.
TEST(MimeMapping, PairsAreMatchedInBothDirections) {
  ClipboardImpl service;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(service.getJavaMimeType(kNative[i]), kJava[i]);
    EXPECT_EQ(service.getCppMimeType(kJava[i]), kNative[i]);
    EXPECT_EQ(service.getJavaMimeType(kJava[i]), "");
    EXPECT_EQ(service.getCppMimeType(kNative[i]), "");
  }
  EXPECT_EQ(service.getJavaMimeType("Application/rtf"), "");
  EXPECT_EQ(service.getCppMimeType(""), "");
}

struct PredicateCase {
  std::string mime;
  bool uriList, graphics, application, text, java;
};

class MimePredicates : public ::testing::TestWithParam<PredicateCase> {};

TEST_P(MimePredicates, ClassifyByteWise) {
  ClipboardImpl service;
  auto const& c = GetParam();
  EXPECT_EQ(service.isTextUriList(c.mime), c.uriList);
  EXPECT_EQ(service.isGraphicsType(c.mime), c.graphics);
  EXPECT_EQ(service.isApplicationType(c.mime), c.application);
  EXPECT_EQ(service.isTextType(c.mime), c.text);
  EXPECT_EQ(service.isJavaMimeType(c.mime), c.java);
}

INSTANTIATE_TEST_SUITE_P(
    DefaultVocabulary, MimePredicates,
    ::testing::Values(
        // mime                                   uri    gfx    app    text   java
        PredicateCase{"text/uri-list", true, false, false, true, false},
        PredicateCase{"Text/uri-list", false, false, false, false, false},
        PredicateCase{"text/uri-list;charset=utf-8", false, false, false, true, false},
        PredicateCase{"image/", false, true, false, false, false},        // equal to the prefix
        PredicateCase{"image", false, false, false, false, false},        // shorter than it
        PredicateCase{"x-image/png", false, false, false, false, false},  // not at the start
        PredicateCase{"application/x-java-serialized-object", false, false, true, false, true},
        PredicateCase{"application/x-jav", false, false, true, false, false},
        PredicateCase{"", false, false, false, false, false}));

}  // namespace
}  // namespace service_test
