// The set request: clipboard items from JSON to one platform payload, written once.
#include "platform/codec/base64.hpp"
#include "service_fixture.hpp"

namespace service_test {
namespace {

using pf::clipboard::PFClipboardAction;

Value item(std::string const& mime, Value data) {
  return Object{{"mimeType", mime}, {"data", std::move(data)}};
}

// A uri-list item; an Undefined action or data is left out.
Value uriItem(Value action, Value data) {
  Object o = {{"mimeType", "text/uri-list"}};
  if (action.kind() != foundation::json::Kind::undefined) {
    o["action"] = std::move(action);
  }
  if (data.kind() != foundation::json::Kind::undefined) {
    o["data"] = std::move(data);
  }
  return o;
}

Path native(std::u16string const& text) {
  return Path(fl::filesystem::detail::make_native_form(text, true));
}

// Content as it can be compared: an image as its encoded bytes.
ClipboardContent comparable(ClipboardContent const& content) {
  if (auto const* image = std::get_if<3>(&content)) {
    auto const* rebuilt = dynamic_cast<pf::graphics::PFImage const*>(image->get());
    return rebuilt ? ClipboardContent(rebuilt->encodedBytes()) : ClipboardContent();
  }
  return content;
}

class SetTest : public ServiceTest {
 protected:
  // Sends the items, expects a success reply and one more write, and gives the payload written.
  std::shared_ptr<PFClipboardData> set(Array items) {
    int const writes = backend->writes();
    RequestMap request = {{"success", true}, {"requestid", "s1"}, {"clipboardItems", items}};
    auto const reply = service.handleSetClipboardDataRequest(request, PFClipboardMode::clipboard);
    EXPECT_EQ(reply, (ClipboardImpl::ReplyMap{{"success", true}, {"requestid", "s1"}}));
    EXPECT_EQ(backend->writes(), writes + 1);
    auto written = backend->lastWrite();
    return written ? written : std::make_shared<PFClipboardData>();
  }
};

TEST_F(SetTest, EachItemReachesTheClipboardInTheFormOfItsFamily) {
  auto const png =
      pf::graphics::PFImage::fromRgba(2, 1, {255, 0, 0, 255, 0, 0, 255, 128})->encodedBytes();
  std::string const pngText = pf::graphics::codec::base64_encode(png);
  auto const svg = bytesOf(R"(<svg xmlns="http://www.w3.org/2000/svg" width="1" height="1"/>)");
  std::string const svgText = pf::graphics::codec::base64_encode(svg);
  auto const cut = PFClipboardAction::cut;
  std::vector<Path> const noPaths;
  ClipboardContent const none;
  struct Case {
    char const* name;
    Value item;
    std::u16string stored;         // empty: nothing is added
    ClipboardContent content;      // an image as its encoded bytes
    char const* failed = nullptr;  // the mime type whose failure is logged
    PFClipboardAction action = PFClipboardAction::copy;
  } const cases[] = {
      {"text", item("text/plain", "h\xC3\xA9llo \xF0\x9F\x98\x80"), u"text/plain",
       std::u16string(u"h\u00e9llo \U0001F600")},
      {"type of no family is text", item("x-custom/thing", "abc"), u"x-custom/thing",
       std::u16string(u"abc")},
      {"bytes unchanged", item("application/x-editor", std::string("\xC3\xA9\0\xFF%41", 7)),
       u"application/x-editor", byteList({0xC3, 0xA9, 0x00, 0xFF, '%', '4', '1'})},
      {"platform-side name", item("application/rtf", "{\\rtf1}"), u"application/rtf",
       bytesOf("{\\rtf1}")},
      {"ignored type", item("application/x-java-jvm-local-objectref", 5.0), u"", none},
      {"ignored type without data", Object{{"mimeType", "application/x-java-jvm-local-objectref"}},
       u"", none},
      {"not an object", 42.0, u"", none, ""},
      {"mime type not a string", Object{{"mimeType", 7.0}, {"data", "x"}}, u"", none, ""},
      {"no mime type", Object{{"data", "x"}}, u"", none, ""},
      {"text not a string", item("text/plain", 5.0), u"", none, "text/plain"},
      {"bytes not a string", item("application/x-a", Array{}), u"", none, "application/x-a"},

      {"uri list", uriItem("copy", Array{"/tmp/a", "", "file:///tmp/b%20c", "/x//y/./z/"}),
       u"text/uri-list",
       std::vector<Path>{native(u"/tmp/a"), Path(), native(u"file:///tmp/b%20c"),
                         native(u"/x//y/./z/")}},
      {"cut", uriItem("cut", Array{"/tmp/a"}), u"text/uri-list", pathsOf({u"/tmp/a"}), nullptr,
       cut},
      {"other action", uriItem("Cut", Array{"/tmp/a"}), u"text/uri-list", pathsOf({u"/tmp/a"})},
      {"cut of no entries", uriItem("cut", Array{}), u"text/uri-list", noPaths, nullptr, cut},
      // Without a readable action the entries are not read either.
      {"no action", uriItem(Value(), Array{"/tmp/a"}), u"text/uri-list", noPaths},
      {"action not a string", uriItem(1.0, Array{"/tmp/a"}), u"text/uri-list", noPaths},
      {"cut without entries", uriItem("cut", Value()), u"text/uri-list", noPaths},
      {"cut with entries not an array", uriItem("cut", "/tmp/a"), u"text/uri-list", noPaths},
      // The action is set before the entries are converted, and stays.
      {"cut with a number entry", uriItem("cut", Array{"/tmp/a", 2.0}), u"", none, "text/uri-list",
       cut},

      {"png data url", item("image/png", "data:image/png;base64," + pngText), u"image/png", png},
      {"plain base64", item("image/png", pngText), u"image/png", png},
      {"other image type", item("image/jpeg", "data:image/jpeg;base64," + pngText), u"image/png",
       png},
      {"svg data url", item("image/svg+xml", "data:image/svg+xml;base64," + svgText), u"image/svg",
       svg},
      {"svg text under another type", item("image/x-svg", svgText), u"image/png", svg},
      {"header without comma", item("image/png", "data:image/png;base64" + pngText), u"", none,
       "image/png"},
      // The text from the comma on, the comma included, goes to the decoder.
      {"second comma", item("image/png", "data:image/png;base64,," + pngText), u"", none,
       "image/png"},
      {"first comma inside the header", item("image/png", "data:image/png;a=b,c;base64," + pngText),
       u"", none, "image/png"},
      {"not an image header", item("image/png", "data:application/x;base64," + pngText), u"", none,
       "image/png"},
      {"not an image", item("image/png", pf::graphics::codec::base64_encode(bytesOf("hello"))), u"",
       none, "image/png"},
      {"image not a string", item("image/png", Array{pngText}), u"", none, "image/png"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    log.clear();
    auto const written = set({c.item});
    EXPECT_EQ(written->clipboardAction(), c.action);
    auto const& entries = written->entries();
    if (c.stored.empty()) {
      EXPECT_TRUE(entries.empty());
    } else {
      ASSERT_EQ(entries.size(), 1u);
      EXPECT_EQ(entries[0].first, c.stored);
      EXPECT_TRUE(comparable(entries[0].second) == c.content)
          << "alternative " << entries[0].second.index();
    }
    auto const line =
        "Exception caught for flavor :: " + std::string(c.failed ? c.failed : "") + "\n";
    EXPECT_EQ(logged(), c.failed ? std::vector<std::string>{line} : std::vector<std::string>());
  }
}

TEST_F(SetTest, ItemsAreAddedInOrderAndASecondItemOfATypeReplacesTheFirst) {
  auto const written = set({item("text/plain", "one"), item("text/html", "<b>h</b>"), 42.0,
                            item("application/x-a", "a"), item("text/plain", "two")});
  auto const& entries = written->entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].first, u"text/plain");
  EXPECT_TRUE(entries[0].second == ClipboardContent(std::u16string(u"two")));
  EXPECT_EQ(entries[1].first, u"text/html");
  EXPECT_EQ(entries[2].first, u"application/x-a");
  EXPECT_TRUE(set({})->entries().empty());
}

TEST_F(SetTest, FailingWriteFailsTheReply) {
  backend->failWrites(true);
  auto const reply = send(
      Request::set,
      R"({"requestid":"s","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"t"}]})");
  EXPECT_EQ(reply.text, R"({"requestid":"s","success":false})");
  EXPECT_EQ(backend->writes(), 1);
  EXPECT_EQ(logged(), std::vector<std::string>{
                          "[handleSetClipboardDataRequest] JSON message does not contain required "
                          "fields"});
}

}  // namespace
}  // namespace service_test
