// The set request: clipboard items from JSON to one platform payload, written once.
#include <optional>
#include <stdexcept>

#include "platform/codec/base64.hpp"
#include "service_fixture.hpp"

namespace service_test {
namespace {

using pf::clipboard::PFClipboardAction;

std::string const kRequiredFields =
    "[handleSetClipboardDataRequest] JSON message does not contain required fields";

std::string failed(std::string const& mime) {
  return "Exception caught for flavor :: " + mime + "\n";
}

Value item(std::string const& mime, Value data) {
  return Object{{"mimeType", mime}, {"data", std::move(data)}};
}

RequestMap setRequest(Array items, std::string const& id = "s1") {
  return {{"success", true}, {"requestid", id}, {"clipboardItems", std::move(items)}};
}

Path native(std::u16string const& text) {
  return Path(fl::filesystem::detail::make_native_form(text, true));
}

class SetTest : public ServiceTest {
 protected:
  // Sends the items, expects a success reply and one write, and gives the payload written.
  std::shared_ptr<PFClipboardData> set(Array items) {
    auto const reply = service.handleSetClipboardDataRequest(setRequest(std::move(items)),
                                                             PFClipboardMode::clipboard);
    EXPECT_EQ(reply, (ClipboardImpl::ReplyMap{{"success", true}, {"requestid", "s1"}}));
    EXPECT_EQ(backend->writes(), 1);
    auto written = backend->lastWrite();
    return written ? written : std::make_shared<PFClipboardData>();
  }
};

TEST_F(SetTest, TextAndApplicationItemsReachTheClipboardInTheirOwnForm) {
  struct Case {
    char const* name;
    Value item;
    std::u16string mime;
    ClipboardContent content;
  } const cases[] = {
      {"text", item("text/plain", "h\xC3\xA9llo \xF0\x9F\x98\x80"), u"text/plain",
       std::u16string(u"h\u00e9llo \U0001F600")},
      {"type of no family is text", item("x-custom/thing", "abc"), u"x-custom/thing",
       std::u16string(u"abc")},
      {"bytes", item("application/x-editor", "AB"), u"application/x-editor",
       byteList({0x41, 0x42})},
      {"utf-8 bytes unchanged", item("application/x-editor", std::string("\xC3\xA9\0z", 4)),
       u"application/x-editor", byteList({0xC3, 0xA9, 0x00, 'z'})},
      {"no decoding", item("application/x-editor", "\xFF\xFE%41"), u"application/x-editor",
       byteList({0xFF, 0xFE, '%', '4', '1'})},
      {"empty bytes", item("application/x-editor", ""), u"application/x-editor",
       std::vector<std::byte>()},
      {"platform-side name", item("application/rtf", "{\\rtf1}"), u"application/rtf",
       bytesOf("{\\rtf1}")},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    ClipboardImpl fresh;
    auto scripted = std::make_shared<test_support::ScriptedBackend>();
    test_support::InstalledBackend installedHere(scripted);
    auto const reply =
        fresh.handleSetClipboardDataRequest(setRequest({c.item}), PFClipboardMode::clipboard);
    EXPECT_EQ(reply.at("success"), Value(true));
    ASSERT_TRUE(scripted->lastWrite());
    auto const& entries = scripted->lastWrite()->entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].first, c.mime);
    EXPECT_TRUE(entries[0].second == c.content) << "alternative " << entries[0].second.index();
  }
  EXPECT_TRUE(logged().empty());
}

TEST_F(SetTest, UriListItemsCarryPathsAndTheAction) {
  struct Case {
    char const* name;
    Object item;
    std::optional<std::vector<Path>> paths;  // nullopt: nothing added
    PFClipboardAction action;
    std::vector<std::string> log;
  } const cases[] = {
      {"copy",
       {{"action", "copy"}, {"data", Array{"/tmp/a", "", "file:///tmp/b%20c", "/x//y/./z/"}}},
       std::vector<Path>{native(u"/tmp/a"), Path(), native(u"file:///tmp/b%20c"),
                         native(u"/x//y/./z/")},
       PFClipboardAction::copy,
       {}},
      {"cut",
       {{"action", "cut"}, {"data", Array{"/tmp/a"}}},
       pathsOf({u"/tmp/a"}),
       PFClipboardAction::cut,
       {}},
      {"other action",
       {{"action", "Cut"}, {"data", Array{"/tmp/a"}}},
       pathsOf({u"/tmp/a"}),
       PFClipboardAction::copy,
       {}},
      {"no entries",
       {{"action", "cut"}, {"data", Array{}}},
       std::vector<Path>(),
       PFClipboardAction::cut,
       {}},
      // Without a readable action the entries are not read either.
      {"no action", {{"data", Array{"/tmp/a"}}}, std::vector<Path>(), PFClipboardAction::copy, {}},
      {"action not a string",
       {{"action", 1.0}, {"data", Array{"/tmp/a"}}},
       std::vector<Path>(),
       PFClipboardAction::copy,
       {}},
      {"cut without entries",
       {{"action", "cut"}},
       std::vector<Path>(),
       PFClipboardAction::copy,
       {}},
      {"cut with entries not an array",
       {{"action", "cut"}, {"data", "/tmp/a"}},
       std::vector<Path>(),
       PFClipboardAction::copy,
       {}},
      // The action is set before the entries are converted, and stays.
      {"cut with a number entry",
       {{"action", "cut"}, {"data", Array{"/tmp/a", 2.0}}},
       std::nullopt,
       PFClipboardAction::cut,
       {failed("text/uri-list")}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    auto scripted = std::make_shared<test_support::ScriptedBackend>();
    test_support::InstalledBackend installedHere(scripted);
    log.clear();
    Object uriItem = c.item;
    uriItem["mimeType"] = "text/uri-list";
    auto const reply =
        service.handleSetClipboardDataRequest(setRequest({uriItem}), PFClipboardMode::clipboard);
    EXPECT_EQ(reply.at("success"), Value(true));
    ASSERT_EQ(scripted->writes(), 1);
    auto const written = scripted->lastWrite();
    EXPECT_EQ(written->clipboardAction(), c.action);
    auto const* content = written->find(u"text/uri-list");
    if (!c.paths) {
      EXPECT_EQ(content, nullptr);
    } else {
      ASSERT_NE(content, nullptr);
      EXPECT_TRUE(*content == ClipboardContent(*c.paths));
    }
    EXPECT_EQ(logged(), c.log);
  }
}

TEST_F(SetTest, DefaultActionTextIsComparedLikeAnyOther) {
  ClipboardVocabulary v = EditorServices::defaultClipboardVocabulary();
  v.defaultActionText = v.actionOneText;
  ClipboardImpl custom(v);
  custom.handleSetClipboardDataRequest(
      setRequest({Object{{"mimeType", "text/uri-list"}, {"data", Array{"/tmp/a"}}}}),
      PFClipboardMode::clipboard);
  ASSERT_TRUE(backend->lastWrite());
  EXPECT_EQ(backend->lastWrite()->clipboardAction(), PFClipboardAction::cut);
}

TEST_F(SetTest, ImagesAreRebuiltFromBase64AndDataUrls) {
  auto const png =
      pf::graphics::PFImage::fromRgba(2, 1, {255, 0, 0, 255, 0, 0, 255, 128})->encodedBytes();
  std::string const pngText = pf::graphics::codec::base64_encode(png);
  auto const svg = bytesOf(R"(<svg xmlns="http://www.w3.org/2000/svg" width="1" height="1"/>)");
  std::string const svgText = pf::graphics::codec::base64_encode(svg);
  struct Case {
    char const* name;
    std::string mime;
    Value data;
    std::u16string stored;  // empty: the item fails
    std::vector<std::byte> const* encoded;
  } const cases[] = {
      {"png data url", "image/png", "data:image/png;base64," + pngText, u"image/png", &png},
      {"plain base64", "image/png", pngText, u"image/png", &png},
      {"other image type", "image/jpeg", "data:image/jpeg;base64," + pngText, u"image/png", &png},
      {"svg data url", "image/svg+xml", "data:image/svg+xml;base64," + svgText, u"image/svg", &svg},
      {"svg plain base64", "image/svg+xml", svgText, u"image/svg", &svg},
      {"svg text under another type", "image/x-svg", svgText, u"image/png", &svg},
      {"header without comma", "image/png", "data:image/png;base64" + pngText, u"", nullptr},
      // The text from the comma on, the comma included, goes to the decoder.
      {"second comma", "image/png", "data:image/png;base64,," + pngText, u"", nullptr},
      {"first comma inside the header", "image/png", "data:image/png;a=b,c;base64," + pngText, u"",
       nullptr},
      {"not an image header", "image/png", "data:application/x;base64," + pngText, u"", nullptr},
      {"not an image", "image/png", pf::graphics::codec::base64_encode(bytesOf("hello")), u"",
       nullptr},
      {"data not a string", "image/png", Array{pngText}, u"", nullptr},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    auto scripted = std::make_shared<test_support::ScriptedBackend>();
    test_support::InstalledBackend installedHere(scripted);
    log.clear();
    auto const reply = service.handleSetClipboardDataRequest(setRequest({item(c.mime, c.data)}),
                                                             PFClipboardMode::clipboard);
    EXPECT_EQ(reply.at("success"), Value(true));
    ASSERT_EQ(scripted->writes(), 1);
    auto const& entries = scripted->lastWrite()->entries();
    if (c.stored.empty()) {
      EXPECT_TRUE(entries.empty());
      EXPECT_EQ(logged(), std::vector<std::string>{failed(c.mime)});
      continue;
    }
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].first, c.stored);
    ASSERT_EQ(entries[0].second.index(), 3u);
    auto const* image =
        dynamic_cast<pf::graphics::PFImage const*>(std::get<3>(entries[0].second).get());
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->encodedBytes(), *c.encoded);
    EXPECT_TRUE(logged().empty());
  }
}

TEST_F(SetTest, ItemsAreAddedInOrderAndASecondItemOfATypeReplacesTheFirst) {
  auto const written = set({item("text/plain", "one"), item("text/html", "<b>h</b>"),
                            item("application/x-a", "a"), item("text/plain", "two")});
  auto const& entries = written->entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].first, u"text/plain");
  EXPECT_TRUE(entries[0].second == ClipboardContent(std::u16string(u"two")));
  EXPECT_EQ(entries[1].first, u"text/html");
  EXPECT_EQ(entries[2].first, u"application/x-a");
}

TEST_F(SetTest, IgnoredTypeIsSkippedSilently) {
  auto const written = set({item("application/x-java-jvm-local-objectref", 5.0),
                            Object{{"mimeType", "application/x-java-jvm-local-objectref"}},
                            item("text/plain", "t")});
  ASSERT_EQ(written->entries().size(), 1u);
  EXPECT_EQ(written->entries()[0].first, u"text/plain");
  EXPECT_TRUE(logged().empty());
}

TEST_F(SetTest, FailingItemsAreLoggedOneByOneAndTheClipboardIsStillWritten) {
  auto const written =
      set({42.0, Object{{"mimeType", 7.0}, {"data", "x"}}, Object{{"data", "x"}},
           item("text/plain", 5.0), item("application/x-a", Array{}), item("image/png", "!!")});
  EXPECT_TRUE(written->entries().empty());
  EXPECT_EQ(logged(),
            (std::vector<std::string>{failed(""), failed(""), failed(""), failed("text/plain"),
                                      failed("application/x-a"), failed("image/png")}));
}

TEST_F(SetTest, EmptyItemListWritesAnEmptyPayload) {
  EXPECT_TRUE(set({})->entries().empty());
  EXPECT_TRUE(logged().empty());
}

TEST_F(SetTest, ModeIsPassedThrough) {
  service.handleSetClipboardDataRequest(setRequest({item("text/plain", "t")}),
                                        PFClipboardMode::selection);
  EXPECT_EQ(backend->lastMode(), PFClipboardMode::selection);
}

TEST_F(SetTest, FailingWriteFailsTheReply) {
  backend->failWrites(true);
  auto const reply = service.handleSetClipboardDataRequest(setRequest({item("text/plain", "t")}),
                                                           PFClipboardMode::clipboard);
  EXPECT_EQ(reply, (ClipboardImpl::ReplyMap{{"success", false}, {"requestid", "s1"}}));
  EXPECT_EQ(backend->writes(), 1);
  EXPECT_EQ(logged(), std::vector<std::string>{kRequiredFields});
}

TEST_F(SetTest, UnreadableRequestIdOrItemsFailWithoutWriting) {
  Array const items = {item("text/plain", "t")};
  struct Case {
    char const* name;
    RequestMap request;
    std::string echoed;
  } const cases[] = {
      {"no request id", {{"success", true}, {"clipboardItems", items}}, ""},
      {"request id a number",
       {{"success", true}, {"requestid", 1.0}, {"clipboardItems", items}},
       ""},
      {"no items", {{"success", true}, {"requestid", "s9"}}, "s9"},
      {"items not an array",
       {{"success", true}, {"requestid", "s9"}, {"clipboardItems", item("text/plain", "t")}},
       "s9"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    log.clear();
    auto const reply = service.handleSetClipboardDataRequest(c.request, PFClipboardMode::clipboard);
    EXPECT_EQ(reply, (ClipboardImpl::ReplyMap{{"success", false}, {"requestid", c.echoed}}));
    EXPECT_EQ(logged(), std::vector<std::string>{kRequiredFields});
  }
  EXPECT_EQ(backend->writes(), 0);
}

TEST_F(SetTest, UnparsedRequestLeavesTheClipboardAlone) {
  RequestMap request = setRequest({item("text/plain", "t")});
  request["success"] = false;
  EXPECT_EQ(service.handleSetClipboardDataRequest(request, PFClipboardMode::clipboard),
            (ClipboardImpl::ReplyMap{{"success", false}, {"requestid", ""}}));
  request.erase("success");
  EXPECT_THROW(service.handleSetClipboardDataRequest(request, PFClipboardMode::clipboard),
               std::runtime_error);
  EXPECT_EQ(backend->writes(), 0);
  EXPECT_TRUE(logged().empty());
}

TEST_F(SetTest, MessageFormRepliesWithTheUid) {
  Reply reply = setByMessage(
      R"({"requestid":"s1","uid":"u9","clipboardItems":[{"mimeType":"text/plain","data":"t"}]})");
  EXPECT_EQ(reply.calls, 1);
  EXPECT_EQ(reply.uid, "u9");
  EXPECT_EQ(Value(parseObject(reply.text)), Value(Object{{"requestid", "s1"}, {"success", true}}));
  EXPECT_EQ(backend->writes(), 1);
  EXPECT_TRUE(logged().empty());

  reply = setByMessage(R"({"requestid":"s2","clipboardItems":[]})");
  EXPECT_EQ(reply.uid, "");
  EXPECT_EQ(Value(parseObject(reply.text)), Value(Object{{"requestid", "s2"}, {"success", true}}));
  EXPECT_EQ(logged(), std::vector<std::string>{"[handleSetClipboardDataRequest] UID is empty"});
}

TEST_F(SetTest, MessageThatDoesNotParseIsAnsweredWithoutWriting) {
  Reply const reply = setByMessage(R"({"requestid":"s1","clipboardItems":[)");
  EXPECT_EQ(reply.calls, 1);
  EXPECT_EQ(Value(parseObject(reply.text)), Value(Object{{"requestid", ""}, {"success", false}}));
  EXPECT_EQ(backend->writes(), 0);
  EXPECT_EQ(logged(), (std::vector<std::string>{"JSON Parse Error",
                                                "[handleSetClipboardDataRequest] UID is empty"}));
}

TEST_F(SetTest, EmptyReplyCallbackStillWritesThenThrows) {
  connector::message_service::JsonMessage const message(
      R"({"requestid":"s1","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"t"}]})");
  EXPECT_THROW(service.handleSetClipboardDataRequest(message, PFClipboardMode::clipboard,
                                                     ClipboardImpl::ReplyCallback()),
               std::bad_function_call);
  EXPECT_EQ(backend->writes(), 1);
  ASSERT_TRUE(backend->lastWrite());
  EXPECT_NE(backend->lastWrite()->find(u"text/plain"), nullptr);
}

}  // namespace
}  // namespace service_test
