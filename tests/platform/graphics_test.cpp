#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/codec/base64.hpp"
#include "platform/codec/png.hpp"
#include "platform/formats/payload_formats.hpp"
#include "platform/graphics.hpp"
#include "support/image_samples.hpp"

namespace gfx = pf::graphics;
namespace codec = pf::graphics::codec;

namespace {

using pf::clipboard::formats::bytesOf;
using pf::clipboard::formats::stringOf;

std::vector<std::uint8_t> gradient(std::uint32_t w, std::uint32_t h) {
  return test_images::pattern(w, h, true).rgba;
}

std::vector<std::byte> sample_png() {
  auto const px = gradient(13, 11);
  return codec::png_encode_rgba(13, 11, px.data(), px.size());
}

std::string const kSvg = R"(<svg xmlns="http://www.w3.org/2000/svg" width="4" height="4"/>)";

// ---- rebuilding images from base64 -----------------------------------------------------------

// Bare, after the comma of a data URL, and wrapped in MIME lines.
TEST(FromBase64, PngBytesPassThroughUnchanged) {
  auto const png = sample_png();
  std::string const text = codec::base64_encode(png);
  std::string wrapped = ",";
  for (std::size_t i = 0; i < text.size(); i += 76)
    wrapped += text.substr(i, 76) + "\r\n";
  for (std::string const& input : {text, "," + text, wrapped}) {
    auto const image = gfx::constructPFGraphicsFromBase64(input);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->kind(), gfx::kRasterImage);
    EXPECT_EQ(image->encode(gfx::kEncodePng, gfx::kEncodeRaw, {})->bytes, png);
    EXPECT_EQ(stringOf(image->encode(gfx::kEncodePng, gfx::kEncodeBase64, {})->bytes), text);
  }
}

struct SvgCase {
  char const* name;
  std::string text;
};

class FromBase64Svg : public ::testing::TestWithParam<SvgCase> {};

TEST_P(FromBase64Svg, IsAVectorImageWithItsOwnBytes) {
  std::string const& svg = GetParam().text;
  std::string const b64 = codec::base64_encode(svg.data(), svg.size());
  auto const image = gfx::constructPFGraphicsFromBase64("," + b64);
  EXPECT_EQ(image->kind(), gfx::kVectorImage);
  EXPECT_EQ(image->encode(gfx::kEncodeSvg, gfx::kEncodeRaw, {})->bytes, bytesOf(svg));
  EXPECT_EQ(stringOf(image->encode(gfx::kEncodeSvg, gfx::kEncodeBase64, {})->bytes), b64);
}

INSTANTIATE_TEST_SUITE_P(
    Prologs, FromBase64Svg,
    ::testing::ValuesIn(std::vector<SvgCase>{
        {"Bare", kSvg},
        {"SelfClosingNoAttributes", "<svg/>"},
        {"OpenTag", "<svg>\n<rect/></svg>"},
        {"ByteOrderMark", "\xEF\xBB\xBF" + kSvg},
        {"XmlDeclaration", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + kSvg},
        {"LeadingWhiteSpace", " \t\r\n" + kSvg},
        {"Comment", "<!-- made by hand, <svg> in a comment -->" + kSvg},
        {"DoctypeWithInternalSubset",
         "<!DOCTYPE svg [ <!ENTITY w \"4\"> <!ENTITY gt \">\"> ]>\n" + kSvg},
        {"NamespacePrefix", "<svg:svg xmlns:svg=\"http://www.w3.org/2000/svg\"/>"},
        {"EverythingTogether",
         "\xEF\xBB\xBF<?xml version=\"1.0\"?><!-- a --><!DOCTYPE svg>\n<!-- b -->" + kSvg}}),
    [](auto const& info) { return std::string(info.param.name); });

struct GarbageCase {
  char const* name;
  std::string text;  // what is handed to constructPFGraphicsFromBase64
};

std::string b64(std::string const& s) {
  return codec::base64_encode(s.data(), s.size());
}

// Damaged PNGs are in the codec's tests; this one shows the PNG is checked at all.
std::string png_with_bad_crc_base64() {
  auto png = sample_png();
  png[29] ^= std::byte{0x01};  // inside the IHDR CRC
  return codec::base64_encode(png);
}

class FromBase64Garbage : public ::testing::TestWithParam<GarbageCase> {};

TEST_P(FromBase64Garbage, IsRejected) {
  EXPECT_THROW(gfx::constructPFGraphicsFromBase64(GetParam().text), std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(Table, FromBase64Garbage,
                         ::testing::ValuesIn(std::vector<GarbageCase>{
                             {"Empty", ""},
                             {"TwoCommas", ",," + b64(kSvg)},
                             {"WholeDataUrl", "data:image/svg+xml;base64," + b64(kSvg)},
                             {"BadPadding", ",iVBORw0KGgo="},
                             {"Html", b64("<html></html>")},
                             {"SvgLikeName", b64("<svgfoo/>")},
                             {"SvgAfterText", b64("text before <svg/>")},
                             {"UnterminatedComment", b64("<!-- <svg/>")},
                             {"UnterminatedDeclaration", b64("<?xml <svg/>")},
                             {"PngSignatureOnly", b64("\x89PNG\r\n\x1A\n")},
                             {"PngWithBadCrc", png_with_bad_crc_base64()}}),
                         [](auto const& info) { return std::string(info.param.name); });

// ---- encode() --------------------------------------------------------------------------------

enum class Outcome { raw, base64, rejected };

struct EncodeCase {
  char const* name;
  bool svg;  // the image under test
  int code;
  int flag;
  Outcome outcome;
};

class EncodeTable : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(EncodeTable, AnswersAsDocumented) {
  auto const& c = GetParam();
  std::vector<std::byte> const source = c.svg ? bytesOf(kSvg) : sample_png();
  gfx::PFImage const image(c.svg ? gfx::PFImage::Format::svg : gfx::PFImage::Format::png, source);
  gfx::EncodeOptions const options{{u"quality", u"ignored"}};
  switch (c.outcome) {
    case Outcome::rejected:
      EXPECT_THROW(image.encode(c.code, c.flag, options), std::invalid_argument);
      break;
    case Outcome::raw:
      EXPECT_EQ(image.encode(c.code, c.flag, options)->bytes, source);
      break;
    case Outcome::base64:
      EXPECT_EQ(codec::base64_decode(stringOf(image.encode(c.code, c.flag, options)->bytes)),
                source);
      break;
  }
}

INSTANTIATE_TEST_SUITE_P(CodesAndFlags, EncodeTable,
                         ::testing::ValuesIn(std::vector<EncodeCase>{
                             {"PngRaw", false, 2, 0, Outcome::raw},
                             {"PngBase64", false, 2, 1, Outcome::base64},
                             {"PngAsSvg", false, 7, 1, Outcome::rejected},
                             {"SvgRaw", true, 7, 0, Outcome::raw},
                             {"SvgBase64", true, 7, 1, Outcome::base64},
                             {"SvgAsPng", true, 2, 1, Outcome::rejected},
                             {"UnknownCode", false, 3, 1, Outcome::rejected},
                             {"NegativeCode", true, -7, 0, Outcome::rejected},
                             {"UnknownFlag", false, 2, 2, Outcome::rejected},
                             {"NegativeFlag", true, 7, -1, Outcome::rejected}}),
                         [](auto const& info) { return std::string(info.param.name); });

// ---- pixels ----------------------------------------------------------------------------------

TEST(FromRgba, EncodesToAPngOfTheSamePixels) {
  auto const px = gradient(40, 30);
  auto const image = gfx::PFImage::fromRgba(40, 30, px);
  EXPECT_EQ(image->kind(), gfx::kRasterImage);
  auto const png = image->encode(gfx::kEncodePng, gfx::kEncodeRaw, {})->bytes;
  auto const decoded = codec::png_decode_rgba(png.data(), png.size());
  EXPECT_EQ(decoded.width, 40u);
  EXPECT_EQ(decoded.height, 30u);
  EXPECT_EQ(decoded.rgba, px);
  EXPECT_THROW(image->encode(gfx::kEncodeSvg, gfx::kEncodeRaw, {}), std::invalid_argument);
}

TEST(FromRgba, EncodesOnceForConcurrentCallers) {
  auto const image = gfx::PFImage::fromRgba(300, 200, gradient(300, 200));
  constexpr int kThreads = 8;
  std::vector<std::vector<std::byte> const*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] { seen[i] = &image->encodedBytes(); });
  }
  for (auto& t : threads)
    t.join();
  for (auto const* p : seen)
    EXPECT_EQ(p, seen[0]);
  EXPECT_NO_THROW(codec::png_validate(seen[0]->data(), seen[0]->size()));
}

TEST(FromRgba, PixelsThatDoNotMatchTheSizeAreRejected) {
  struct Args {
    std::uint32_t width, height;
    std::size_t size;
  };
  for (auto const& a : {Args{0, 0, 0}, Args{0, 3, 12}, Args{3, 0, 12}, Args{2, 2, 15},
                        Args{2, 2, 17}, Args{2, 2, 24}}) {
    EXPECT_THROW(gfx::PFImage::fromRgba(a.width, a.height, std::vector<std::uint8_t>(a.size)),
                 std::invalid_argument)
        << a.width << "x" << a.height << ", " << a.size << " bytes";
  }
}

}  // namespace
