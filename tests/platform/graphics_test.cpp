#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/codec/base64.hpp"
#include "platform/codec/png.hpp"
#include "platform/graphics.hpp"

namespace gfx = pf::graphics;
namespace codec = pf::graphics::codec;

namespace {

std::vector<std::byte> bytes_of(std::string const& s) {
  std::vector<std::byte> b(s.size());
  if (!s.empty())
    std::memcpy(b.data(), s.data(), s.size());
  return b;
}

std::string text_of(std::vector<std::byte> const& b) {
  return std::string(reinterpret_cast<char const*>(b.data()), b.size());
}

std::vector<std::uint8_t> gradient(std::uint32_t w, std::uint32_t h) {
  std::vector<std::uint8_t> px(std::size_t{w} * h * 4);
  for (std::uint32_t y = 0; y < h; ++y) {
    for (std::uint32_t x = 0; x < w; ++x) {
      auto* p = &px[(std::size_t{y} * w + x) * 4];
      p[0] = static_cast<std::uint8_t>(x * 9);
      p[1] = static_cast<std::uint8_t>(y * 5);
      p[2] = static_cast<std::uint8_t>(x ^ y);
      p[3] = static_cast<std::uint8_t>(128 + x);
    }
  }
  return px;
}

std::vector<std::byte> sample_png() {
  auto const px = gradient(13, 11);
  return codec::png_encode_rgba(13, 11, px.data(), px.size());
}

std::string const kSvg = R"(<svg xmlns="http://www.w3.org/2000/svg" width="4" height="4"/>)";

// ---- rebuilding images from base64 -----------------------------------------------------------

TEST(FromBase64, PngBytesPassThroughUnchanged) {
  auto const png = sample_png();
  std::string const text = codec::base64_encode(png);
  for (std::string const& input : {text, "," + text}) {
    auto const image = gfx::constructPFGraphicsFromBase64(input);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->kind(), gfx::kRasterImage);
    EXPECT_EQ(image->encode(gfx::kEncodePng, gfx::kEncodeRaw, {})->bytes, png);
    EXPECT_EQ(text_of(image->encode(gfx::kEncodePng, gfx::kEncodeBase64, {})->bytes), text);
  }
}

TEST(FromBase64, WrappedBase64IsAccepted) {
  auto const png = sample_png();
  std::string const text = codec::base64_encode(png);
  std::string wrapped;
  for (std::size_t i = 0; i < text.size(); i += 76)
    wrapped += text.substr(i, 76) + "\r\n";
  auto const image = gfx::constructPFGraphicsFromBase64("," + wrapped);
  EXPECT_EQ(image->encode(gfx::kEncodePng, gfx::kEncodeRaw, {})->bytes, png);
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
  EXPECT_EQ(image->encode(gfx::kEncodeSvg, gfx::kEncodeRaw, {})->bytes, bytes_of(svg));
  EXPECT_EQ(text_of(image->encode(gfx::kEncodeSvg, gfx::kEncodeBase64, {})->bytes), b64);
}

INSTANTIATE_TEST_SUITE_P(
    Prologs, FromBase64Svg,
    ::testing::Values(
        SvgCase{"Bare", kSvg}, SvgCase{"SelfClosingNoAttributes", "<svg/>"},
        SvgCase{"OpenTag", "<svg>\n<rect/></svg>"}, SvgCase{"ByteOrderMark", "\xEF\xBB\xBF" + kSvg},
        SvgCase{"XmlDeclaration", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + kSvg},
        SvgCase{"LeadingWhiteSpace", " \t\r\n" + kSvg},
        SvgCase{"Comment", "<!-- made by hand, <svg> in a comment -->" + kSvg},
        SvgCase{"Doctype",
                "<?xml version=\"1.0\"?>\n<!DOCTYPE svg PUBLIC \"-//W3C//DTD SVG 1.1//EN\" "
                "\"http://www.w3.org/Graphics/SVG/1.1/DTD/svg11.dtd\">\n" +
                    kSvg},
        SvgCase{"DoctypeWithInternalSubset",
                "<!DOCTYPE svg [ <!ENTITY w \"4\"> <!ENTITY gt \">\"> ]>\n" + kSvg},
        SvgCase{"StylesheetInstruction", "<?xml-stylesheet href=\"a.css\"?>" + kSvg},
        SvgCase{"NamespacePrefix", "<svg:svg xmlns:svg=\"http://www.w3.org/2000/svg\"/>"},
        SvgCase{"EverythingTogether",
                "\xEF\xBB\xBF<?xml version=\"1.0\"?><!-- a --><!DOCTYPE svg>\n<!-- b -->" + kSvg}),
    [](auto const& info) { return std::string(info.param.name); });

struct GarbageCase {
  char const* name;
  std::string text;  // what is handed to constructPFGraphicsFromBase64
};

std::string b64(std::string const& s) {
  return codec::base64_encode(s.data(), s.size());
}

std::string corrupt_png_base64(bool truncate) {
  auto png = sample_png();
  if (truncate) {
    png.resize(png.size() - 5);
  } else {
    png[29] ^= std::byte{0x01};  // inside the IHDR CRC
  }
  return codec::base64_encode(png);
}

class FromBase64Garbage : public ::testing::TestWithParam<GarbageCase> {};

TEST_P(FromBase64Garbage, IsRejected) {
  EXPECT_THROW(gfx::constructPFGraphicsFromBase64(GetParam().text), std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FromBase64Garbage,
    ::testing::Values(GarbageCase{"Empty", ""}, GarbageCase{"CommaOnly", ","},
                      GarbageCase{"TwoCommas", ",," + b64(kSvg)},
                      GarbageCase{"WholeDataUrl", "data:image/svg+xml;base64," + b64(kSvg)},
                      GarbageCase{"NotBase64", "<svg/>"},
                      GarbageCase{"BadPadding", ",iVBORw0KGgo="},
                      GarbageCase{"PlainText", b64("hello, world")},
                      GarbageCase{"Html", b64("<html></html>")},
                      GarbageCase{"SvgLikeName", b64("<svgfoo/>")},
                      GarbageCase{"SvgAfterText", b64("text before <svg/>")},
                      GarbageCase{"UnterminatedComment", b64("<!-- <svg/>")},
                      GarbageCase{"UnterminatedDeclaration", b64("<?xml <svg/>")},
                      GarbageCase{"PngSignatureOnly", b64("\x89PNG\r\n\x1A\n")},
                      GarbageCase{"PngWithBadCrc", corrupt_png_base64(false)},
                      GarbageCase{"TruncatedPng", corrupt_png_base64(true)}),
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
  std::vector<std::byte> const source = c.svg ? bytes_of(kSvg) : sample_png();
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
      EXPECT_EQ(codec::base64_decode(text_of(image.encode(c.code, c.flag, options)->bytes)),
                source);
      break;
  }
}

INSTANTIATE_TEST_SUITE_P(
    CodesAndFlags, EncodeTable,
    ::testing::Values(EncodeCase{"PngRaw", false, 2, 0, Outcome::raw},
                      EncodeCase{"PngBase64", false, 2, 1, Outcome::base64},
                      EncodeCase{"PngAsSvg", false, 7, 1, Outcome::rejected},
                      EncodeCase{"PngAsSvgRaw", false, 7, 0, Outcome::rejected},
                      EncodeCase{"SvgRaw", true, 7, 0, Outcome::raw},
                      EncodeCase{"SvgBase64", true, 7, 1, Outcome::base64},
                      EncodeCase{"SvgAsPng", true, 2, 1, Outcome::rejected},
                      EncodeCase{"SvgAsPngRaw", true, 2, 0, Outcome::rejected},
                      EncodeCase{"UnknownCode", false, 3, 1, Outcome::rejected},
                      EncodeCase{"NegativeCode", true, -7, 0, Outcome::rejected},
                      EncodeCase{"UnknownFlag", false, 2, 2, Outcome::rejected},
                      EncodeCase{"NegativeFlag", true, 7, -1, Outcome::rejected}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(Kind, FollowsTheFormat) {
  EXPECT_EQ(gfx::PFImage(gfx::PFImage::Format::svg, bytes_of(kSvg)).kind(), gfx::kVectorImage);
  EXPECT_EQ(gfx::PFImage(gfx::PFImage::Format::png, sample_png()).kind(), gfx::kRasterImage);
  EXPECT_EQ(gfx::PFImage::fromRgba(2, 2, gradient(2, 2))->kind(), gfx::kRasterImage);
}

// ---- pixels ----------------------------------------------------------------------------------

TEST(FromRgba, EncodesToAPngOfTheSamePixels) {
  auto const px = gradient(40, 30);
  auto const image = gfx::PFImage::fromRgba(40, 30, px);
  auto const png = image->encode(gfx::kEncodePng, gfx::kEncodeRaw, {})->bytes;
  auto const decoded = codec::png_decode_rgba(png.data(), png.size());
  EXPECT_EQ(decoded.width, 40u);
  EXPECT_EQ(decoded.height, 30u);
  EXPECT_EQ(decoded.rgba, px);
  EXPECT_THROW(image->encode(gfx::kEncodeSvg, gfx::kEncodeRaw, {}), std::invalid_argument);
}

TEST(FromRgba, Base64OfPixelsRebuildsTheSameImage) {
  auto const image = gfx::PFImage::fromRgba(5, 7, gradient(5, 7));
  std::string const text = text_of(image->encode(gfx::kEncodePng, gfx::kEncodeBase64, {})->bytes);
  auto const rebuilt = gfx::constructPFGraphicsFromBase64("," + text);
  EXPECT_EQ(rebuilt->encode(gfx::kEncodePng, gfx::kEncodeRaw, {})->bytes, image->encodedBytes());
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

struct BadPixels {
  char const* name;
  std::uint32_t width;
  std::uint32_t height;
  std::size_t size;
};

class FromRgbaArguments : public ::testing::TestWithParam<BadPixels> {};

TEST_P(FromRgbaArguments, AreRejected) {
  auto const& p = GetParam();
  EXPECT_THROW(gfx::PFImage::fromRgba(p.width, p.height, std::vector<std::uint8_t>(p.size)),
               std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FromRgbaArguments,
    ::testing::Values(BadPixels{"Empty", 0, 0, 0}, BadPixels{"ZeroWidth", 0, 3, 12},
                      BadPixels{"ZeroHeight", 3, 0, 12}, BadPixels{"Short", 2, 2, 15},
                      BadPixels{"Long", 2, 2, 17}, BadPixels{"ExtraRow", 2, 2, 24}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
