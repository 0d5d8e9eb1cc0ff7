// A front end's view: request texts in, reply texts out, the clipboard in between.
#include "platform/codec/base64.hpp"
#include "service_fixture.hpp"

namespace service_test {
namespace {

class RoundTrip : public ServiceTest {
 protected:
  void setItems(std::string const& items) {
    Reply const reply =
        setByMessage(R"({"requestid":"s","uid":"front","clipboardItems":)" + items + "}");
    EXPECT_EQ(reply.calls, 1);
    EXPECT_EQ(reply.uid, "front");
    EXPECT_EQ(Value(parseObject(reply.text)), Value(Object{{"requestid", "s"}, {"success", true}}));
  }

  Object getFlavors(std::string const& flavors) {
    Reply const reply =
        getByMessage(R"({"requestid":"g","uid":"front","flavors":)" + flavors + "}");
    EXPECT_EQ(reply.calls, 1);
    EXPECT_EQ(reply.uid, "front");
    Object members = parseObject(reply.text);
    EXPECT_EQ(members.size(), 3u) << reply.text;
    EXPECT_EQ(members["success"], Value(true));
    EXPECT_EQ(members["requestid"], Value("g"));
    return members["clipboardItems"].is<Object>() ? members["clipboardItems"].get<Object>()
                                                  : Object();
  }

  static std::string pngBase64() {
    std::vector<std::uint8_t> rgba;
    for (int i = 0; i < 6; ++i) {
      rgba.insert(rgba.end(), {static_cast<std::uint8_t>(40 * i), 200, 10, 255});
    }
    return pf::graphics::codec::base64_encode(
        pf::graphics::PFImage::fromRgba(3, 2, std::move(rgba))->encodedBytes());
  }

  std::string const svgBase64 = pf::graphics::codec::base64_encode(
      bytesOf(R"(<?xml version="1.0"?><svg xmlns="http://www.w3.org/2000/svg"/>)"));
};

TEST_F(RoundTrip, TextWithCharactersBeyondTheBasicPlane) {
  setItems(R"([{"mimeType":"text/plain","data":"snow \u2603, escaped \ud83d\ude00, raw 😀 é"}])");
  EXPECT_EQ(Value(getFlavors(R"(["text/plain"])")),
            Value(Object{{"text/plain",
                          "snow \xE2\x98\x83, escaped \xF0\x9F\x98\x80, raw \xF0\x9F\x98\x80 "
                          "\xC3\xA9"}}));
}

TEST_F(RoundTrip, UriList) {
  setItems(
      R"([{"mimeType":"text/uri-list","action":"copy","data":["/tmp/one","/tmp/two words","file:///tmp/x%20y"]}])");
  EXPECT_EQ(Value(getFlavors(R"(["text/uri-list"])")),
            Value(Object{{"text/uri-list", Array{"/tmp/one", "/tmp/two words", "/tmp/x y"}}}));
}

TEST_F(RoundTrip, PngAndSvgDataUrlsComeBackUnchanged) {
  std::string const png = "data:image/png;base64," + pngBase64();
  setItems(R"([{"mimeType":"image/png","data":")" + png +
           R"("},{"mimeType":"image/svg+xml","data":"data:image/svg+xml;base64,)" + svgBase64 +
           R"("}])");
  EXPECT_EQ(Value(getFlavors(R"(["image/png","image/svg"])")),
            Value(Object{{"image/png", png}, {"image/svg", "data:image/svg;base64," + svgBase64}}));
}

TEST_F(RoundTrip, ApplicationBytes) {
  setItems(R"([{"mimeType":"application/x-editor-state","data":"{\"k\":[1,2]} \u00e9"}])");
  EXPECT_EQ(Value(getFlavors(R"(["application/x-editor-state"])")),
            Value(Object{{"application/x-editor-state", "{\"k\":[1,2]} \xC3\xA9"}}));
}

TEST_F(RoundTrip, JavaSerializedStringIsReadUnderThePlatformSideName) {
  std::string const java =
      "application/x-java-serialized-object; class=java.lang.String; format=json";
  put({{std::u16string(java.begin(), java.end()), bytes(javaString("{\"a\":\"\xC3\xA9\"}"))}});
  EXPECT_EQ(Value(getFlavors(R"(["application/json"])")),
            Value(Object{{"application/json", "{\"a\":\"\xC3\xA9\"}"}}));
}

TEST_F(RoundTrip, EmptyFlavorListAnswersEverythingThatWasSet) {
  std::string const png = "data:image/png;base64," + pngBase64();
  setItems(R"([{"mimeType":"text/plain","data":"t"},{"mimeType":"text/html","data":"<b>t</b>"},)"
           R"({"mimeType":"text/uri-list","action":"cut","data":["/tmp/a"]},)"
           R"({"mimeType":"application/x-editor-state","data":"s"},)"
           R"({"mimeType":"image/png","data":")" +
           png + R"("}])");
  EXPECT_EQ(Value(getFlavors("[]")), Value(Object{{"application/x-editor-state", "s"},
                                                  {"image/png", png},
                                                  {"text/html", "<b>t</b>"},
                                                  {"text/plain", "t"},
                                                  {"text/uri-list", Array{"/tmp/a"}}}));
}

}  // namespace
}  // namespace service_test
