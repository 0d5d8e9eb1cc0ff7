// A front end's view: what one set request puts on the clipboard, a get request gives back.
#include "platform/codec/base64.hpp"
#include "service_fixture.hpp"

namespace service_test {
namespace {

using RoundTrip = ServiceTest;

TEST_F(RoundTrip, EveryFamilyComesBackAsItWasSet) {
  std::vector<std::uint8_t> rgba;
  for (int i = 0; i < 6; ++i) {
    rgba.insert(rgba.end(), {static_cast<std::uint8_t>(40 * i), 200, 10, 255});
  }
  std::string const png =
      "data:image/png;base64," + pf::graphics::codec::base64_encode(
                                     pf::graphics::PFImage::fromRgba(3, 2, rgba)->encodedBytes());
  std::string const svg = pf::graphics::codec::base64_encode(
      bytesOf(R"(<?xml version="1.0"?><svg xmlns="http://www.w3.org/2000/svg"/>)"));

  Reply const set = send(
      Request::set,
      R"({"requestid":"s","uid":"front","clipboardItems":[)"
      R"({"mimeType":"text/plain","data":"snow \u2603, escaped \ud83d\ude00, raw 😀 é"},)"
      R"({"mimeType":"text/uri-list","action":"cut","data":["/tmp/one","/tmp/two words","file:///tmp/x%20y"]},)"
      R"({"mimeType":"application/x-editor-state","data":"{\"k\":[1,2]} \u00e9"},)"
      R"({"mimeType":"image/png","data":")" +
          png + R"("},{"mimeType":"image/svg+xml","data":"data:image/svg+xml;base64,)" + svg +
          R"("}]})");
  EXPECT_EQ(set.text, R"({"requestid":"s","success":true})");

  Reply const got = send(Request::get, R"({"requestid":"g","uid":"front","flavors":[]})");
  EXPECT_EQ(got.uid, "front");
  EXPECT_EQ(
      Value(parseObject(got.text)),
      Value(Object{{"success", true},
                   {"requestid", "g"},
                   {"clipboardItems",
                    Object{{"text/plain",
                            "snow \xE2\x98\x83, escaped \xF0\x9F\x98\x80, raw \xF0\x9F\x98\x80 "
                            "\xC3\xA9"},
                           {"text/uri-list", Array{"/tmp/one", "/tmp/two words", "/tmp/x y"}},
                           {"application/x-editor-state", "{\"k\":[1,2]} \xC3\xA9"},
                           {"image/png", png},
                           {"image/svg", "data:image/svg;base64," + svg}}}}));
  EXPECT_EQ(backend->lastWrite()->clipboardAction(), pf::clipboard::PFClipboardAction::cut);
}

}  // namespace
}  // namespace service_test
