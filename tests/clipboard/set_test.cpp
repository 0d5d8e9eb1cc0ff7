// The set request: clipboard items from JSON to one platform payload, written once.
#include <optional>
#include <stdexcept>

#include "platform/codec/base64.hpp"
#include "service_fixture.hpp"

namespace service_test {
namespace {

using pf::clipboard::PFClipboardAction;

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
  // Sends the items, expects a success reply and one more write, and gives the payload written.
  std::shared_ptr<PFClipboardData> set(Array items) {
    int const writes = backend->writes();
    auto const reply = service.handleSetClipboardDataRequest(setRequest(std::move(items)),
                                                             PFClipboardMode::clipboard);
    EXPECT_EQ(reply, (ClipboardImpl::ReplyMap{{"success", true}, {"requestid", "s1"}}));
    EXPECT_EQ(backend->writes(), writes + 1);
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
      {"bytes unchanged", item("application/x-editor", std::string("\xC3\xA9\0\xFF%41", 7)),
       u"application/x-editor", byteList({0xC3, 0xA9, 0x00, 0xFF, '%', '4', '1'})},
      {"platform-side name", item("application/rtf", "{\\rtf1}"), u"application/rtf",
       bytesOf("{\\rtf1}")},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    auto const& entries = set({c.item})->entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].first, c.mime);
    EXPECT_TRUE(entries[0].second == c.content) << "alternative " << entries[0].second.index();
  }
  EXPECT_TRUE(logged().empty());
}

// A uri-list item; an Undefined action or data is left out.
Object uriItem(Value action, Value data) {
  Object o = {{"mimeType", "text/uri-list"}};
  if (action.kind() != foundation::json::Kind::undefined) {
    o["action"] = std::move(action);
  }
  if (data.kind() != foundation::json::Kind::undefined) {
    o["data"] = std::move(data);
  }
  return o;
}

TEST_F(SetTest, UriListItemsCarryPathsAndTheAction) {
  auto const copy = PFClipboardAction::copy;
  auto const cut = PFClipboardAction::cut;
  std::vector<Path> const none;
  struct Case {
    char const* name;
    Object item;
    std::optional<std::vector<Path>> paths;  // nullopt: nothing added
    PFClipboardAction action;
    std::string log;
  } const cases[] = {
      {"copy", uriItem("copy", Array{"/tmp/a", "", "file:///tmp/b%20c", "/x//y/./z/"}),
       std::vector<Path>{native(u"/tmp/a"), Path(), native(u"file:///tmp/b%20c"),
                         native(u"/x//y/./z/")},
       copy, ""},
      {"cut", uriItem("cut", Array{"/tmp/a"}), pathsOf({u"/tmp/a"}), cut, ""},
      {"other action", uriItem("Cut", Array{"/tmp/a"}), pathsOf({u"/tmp/a"}), copy, ""},
      {"no entries", uriItem("cut", Array{}), none, cut, ""},
      // Without a readable action the entries are not read either.
      {"no action", uriItem(Value(), Array{"/tmp/a"}), none, copy, ""},
      {"action not a string", uriItem(1.0, Array{"/tmp/a"}), none, copy, ""},
      {"cut without entries", uriItem("cut", Value()), none, copy, ""},
      {"cut with entries not an array", uriItem("cut", "/tmp/a"), none, copy, ""},
      // The action is set before the entries are converted, and stays.
      {"cut with a number entry", uriItem("cut", Array{"/tmp/a", 2.0}), std::nullopt, cut,
       failed("text/uri-list")},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    log.clear();
    auto const written = set({c.item});
    EXPECT_EQ(written->clipboardAction(), c.action);
    auto const* content = written->find(u"text/uri-list");
    if (!c.paths) {
      EXPECT_EQ(content, nullptr);
    } else {
      ASSERT_NE(content, nullptr);
      EXPECT_TRUE(*content == ClipboardContent(*c.paths));
    }
    EXPECT_EQ(logged(), c.log.empty() ? std::vector<std::string>() : std::vector{c.log});
  }
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
    log.clear();
    auto const written = set({item(c.mime, c.data)});
    auto const& entries = written->entries();
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

TEST_F(SetTest, FailingWriteFailsTheReply) {
  backend->failWrites(true);
  auto const reply = service.handleSetClipboardDataRequest(setRequest({item("text/plain", "t")}),
                                                           PFClipboardMode::clipboard);
  EXPECT_EQ(reply, (ClipboardImpl::ReplyMap{{"success", false}, {"requestid", "s1"}}));
  EXPECT_EQ(backend->writes(), 1);
  EXPECT_EQ(logged(), std::vector<std::string>{
                          "[handleSetClipboardDataRequest] JSON message does not contain required "
                          "fields"});
}

}  // namespace
}  // namespace service_test
