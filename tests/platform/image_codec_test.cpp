// The decoders of the images other programs offer: exact pixels where the format is lossless,
// the first frame of animations, EXIF orientation, and clear errors for damaged or huge images.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "platform/codec/images.hpp"
#include "support/image_samples.hpp"

namespace {

using namespace pf::graphics::codec;
using test_images::RgbaPixels;

RgbaPixels decode(std::string const& bytes) {
  return decode_image_rgba(bytes.data(), bytes.size());
}

int maxDifference(RgbaPixels const& a, RgbaPixels const& b) {
  int worst = 0;
  for (std::size_t i = 0; i < a.rgba.size() && i < b.rgba.size(); ++i)
    worst = std::max(worst, std::abs(int(a.rgba[i]) - int(b.rgba[i])));
  return worst;
}

struct FormatCase {
  char const* name;
  ImageFormat format;
  std::function<std::string(RgbaPixels const&)> encode;
  bool alpha;     // the format keeps alpha
  int tolerance;  // 0: lossless
};

class EveryFormat : public ::testing::TestWithParam<FormatCase> {};

TEST_P(EveryFormat, DecodesToThePixelsThatWereEncoded) {
  auto const& c = GetParam();
  // 13x7: odd sizes catch row padding and chroma rounding.
  // Palettes and lossy chroma get two flat colours; the rest a pattern of distinct pixels.
  auto const original = c.format == ImageFormat::gif || c.name == std::string("bmp8") ||
                                c.name == std::string("webp_lossy")
                            ? test_images::halves(14, 7, 0x102030, 0xF0E0D0)
                            : test_images::pattern(13, 7, c.alpha);
  auto const bytes = c.encode(original);
  EXPECT_EQ(sniff_image_format(bytes.data(), bytes.size()), c.format);
  auto const pixels = decode(bytes);
  ASSERT_EQ(pixels.width, original.width);
  ASSERT_EQ(pixels.height, 7u);
  ASSERT_EQ(pixels.rgba.size(), original.rgba.size());
  EXPECT_LE(maxDifference(pixels, original), c.tolerance);
}

TEST_P(EveryFormat, ATruncatedImageIsAClearError) {
  auto const& c = GetParam();
  auto const bytes = c.encode(test_images::pattern(40, 30, c.alpha));
  for (std::size_t keep : {bytes.size() / 2, std::size_t{20}, std::size_t{3}}) {
    auto const cut = bytes.substr(0, keep);
    try {
      decode(cut);
      ADD_FAILURE() << "kept " << keep << " of " << bytes.size() << " bytes, no error";
    } catch (std::invalid_argument const& error) {
      // The message says which decoder failed, unless too little was left to tell the format.
      if (keep > 12) {
        EXPECT_NE(std::strstr(error.what(), image_format_name(c.format)), nullptr) << error.what();
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, EveryFormat,
    ::testing::Values(
        FormatCase{"jpeg", ImageFormat::jpeg,
                   [](auto const& p) { return test_images::jpeg(p, 100); }, false, 12},
        FormatCase{"webp_lossless", ImageFormat::webp, test_images::webpLossless, true, 0},
        FormatCase{"webp_lossy", ImageFormat::webp,
                   [](auto const& p) { return test_images::webpLossy(p, 100); }, false, 24},
        FormatCase{"gif", ImageFormat::gif, [](auto const& p) { return test_images::gif({p}); },
                   false, 0},
        FormatCase{"gif_interlaced", ImageFormat::gif,
                   [](auto const& p) { return test_images::gif({p}, true); }, false, 0},
        // libtiff hands out premultiplied colour: undoing that rounds.
        FormatCase{"tiff", ImageFormat::tiff, test_images::tiff, true, 2},
        FormatCase{"bmp24", ImageFormat::bmp, test_images::bmp24, false, 0},
        FormatCase{"bmp32_bit_fields", ImageFormat::bmp, test_images::bmp32BitFields, true, 0},
        FormatCase{"bmp8", ImageFormat::bmp, test_images::bmp8, false, 0}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(ImageCodec, AnimationsGiveTheirFirstFrame) {
  auto const first = test_images::halves(16, 8, 0xFF0000, 0x00FF00);
  auto const second = test_images::halves(16, 8, 0x0000FF, 0xFFFFFF);
  for (auto const& bytes :
       {test_images::gif({first, second}), test_images::webpAnimation({first, second})}) {
    auto const pixels = decode(bytes);
    EXPECT_EQ(maxDifference(pixels, first), 0);
  }
}

// 3x2 pixels numbered 0..5 in their red channel; each orientation's upright picture, row by row.
struct OrientationCase {
  int orientation;
  std::uint32_t width;
  std::vector<int> order;
};

class ExifOrientation : public ::testing::TestWithParam<OrientationCase> {};

TEST_P(ExifOrientation, TurnsThePixelsUpright) {
  RgbaPixels stored{3, 2, std::vector<std::uint8_t>(24, 255)};
  for (int i = 0; i < 6; ++i)
    stored.rgba[static_cast<std::size_t>(i) * 4] = static_cast<std::uint8_t>(i);
  auto const turned = apply_exif_orientation(stored, GetParam().orientation);
  EXPECT_EQ(turned.width, GetParam().width);
  EXPECT_EQ(turned.height, 6 / GetParam().width);
  std::vector<int> order;
  for (std::size_t i = 0; i < turned.rgba.size(); i += 4)
    order.push_back(turned.rgba[i]);
  EXPECT_EQ(order, GetParam().order);
}

// Stored:  0 1 2
//          3 4 5
INSTANTIATE_TEST_SUITE_P(Orientations, ExifOrientation,
                         ::testing::Values(OrientationCase{1, 3, {0, 1, 2, 3, 4, 5}},
                                           OrientationCase{2, 3, {2, 1, 0, 5, 4, 3}},
                                           OrientationCase{3, 3, {5, 4, 3, 2, 1, 0}},
                                           OrientationCase{4, 3, {3, 4, 5, 0, 1, 2}},
                                           OrientationCase{5, 2, {0, 3, 1, 4, 2, 5}},
                                           OrientationCase{6, 2, {3, 0, 4, 1, 5, 2}},
                                           OrientationCase{7, 2, {5, 2, 4, 1, 3, 0}},
                                           OrientationCase{8, 2, {2, 5, 1, 4, 0, 3}},
                                           OrientationCase{9, 3, {0, 1, 2, 3, 4, 5}}));

TEST(ImageCodec, AJpegIsTurnedAsItsExifSays) {
  // Red left, blue right; orientation 6 means the camera was turned: upright, red is on top.
  auto const bytes = test_images::jpeg(test_images::halves(32, 16, 0xFF0000, 0x0000FF), 95, 6);
  EXPECT_EQ(jpeg_exif_orientation(bytes.data(), bytes.size()), 6);
  auto const pixels = decode(bytes);
  ASSERT_EQ(pixels.width, 16u);
  ASSERT_EQ(pixels.height, 32u);
  auto const at = [&](std::size_t x, std::size_t y) { return &pixels.rgba[(y * 16 + x) * 4]; };
  EXPECT_GT(at(8, 2)[0], 200);
  EXPECT_LT(at(8, 2)[2], 60);
  EXPECT_GT(at(8, 29)[2], 200);
  EXPECT_LT(at(8, 29)[0], 60);
}

TEST(ImageCodec, BadExifIsIgnored) {
  auto bytes = test_images::jpeg(test_images::pattern(8, 8), 90, 6);
  // The IFD offset pointed far outside the segment.
  auto const ifd = bytes.find("II*") + 4;
  bytes[ifd] = '\x7F';
  bytes[ifd + 3] = '\x7F';
  EXPECT_EQ(jpeg_exif_orientation(bytes.data(), bytes.size()), 1);
  EXPECT_EQ(decode(bytes).width, 8u);
}

TEST(ImageCodec, ImagesOverTheSizeLimitAreRefusedBeforeDecoding) {
  // Headers that claim more pixels than the limits allow; the pixel data is absent.
  auto bmp = test_images::bmp24(test_images::pattern(2, 2));
  bmp[18] = '\x00';
  bmp[19] = '\x00';
  bmp[20] = '\x01';  // width 65536
  auto gif = test_images::gif({test_images::halves(4, 4, 0, 0xFFFFFF)});
  gif[6] = '\xFF';
  gif[7] = '\xFF';  // screen width 65535
  auto jpeg = test_images::jpeg(test_images::pattern(8, 8), 90);
  auto const sof = jpeg.find("\xFF\xC0");
  ASSERT_NE(sof, std::string::npos);
  jpeg[sof + 5] = '\x9C';
  jpeg[sof + 6] = '\x40';  // height 40000
  for (auto const* bytes : {&bmp, &gif, &jpeg}) {
    try {
      decode(*bytes);
      ADD_FAILURE() << "no error";
    } catch (std::invalid_argument const& error) {
      EXPECT_NE(std::strstr(error.what(), "exceeds the size limit"), nullptr) << error.what();
    }
  }
  EXPECT_THROW(check_image_size(32768, 32768, "x"), std::invalid_argument);  // 4 GiB of RGBA
  EXPECT_NO_THROW(check_image_size(32768, 8192, "x"));
  EXPECT_THROW(check_image_size(32769, 1, "x"), std::invalid_argument);
  EXPECT_THROW(check_image_size(0, 1, "x"), std::invalid_argument);
}

TEST(ImageCodec, SniffingAndNames) {
  struct Case {
    std::string bytes;
    ImageFormat format;
  };
  for (auto const& c :
       {Case{"\x89PNG\r\n\x1A\n....", ImageFormat::png},
        Case{"\xFF\xD8\xFF\xE0", ImageFormat::jpeg}, Case{"GIF87a", ImageFormat::gif},
        Case{"GIF89a..", ImageFormat::gif},
        Case{std::string("RIFF\x10\0\0\0WEBPVP8 ", 16), ImageFormat::webp},
        Case{std::string("RIFF\x10\0\0\0WAVEfmt ", 16), ImageFormat::unknown},
        Case{std::string("II*\0", 4), ImageFormat::tiff},
        Case{std::string("MM\0*", 4), ImageFormat::tiff}, Case{"BM", ImageFormat::bmp},
        Case{"<svg", ImageFormat::unknown}, Case{"", ImageFormat::unknown}}) {
    EXPECT_EQ(sniff_image_format(c.bytes.data(), c.bytes.size()), c.format) << c.bytes;
  }
  EXPECT_EQ(image_format_of_mime("image/JPEG"), ImageFormat::jpeg);
  EXPECT_EQ(image_format_of_mime("image/x-MS-bmp"), ImageFormat::bmp);
  EXPECT_EQ(image_format_of_mime("image/tiff; q=1"), ImageFormat::tiff);
  EXPECT_EQ(image_format_of_mime("image/svg+xml"), ImageFormat::unknown);
  EXPECT_EQ(image_format_of_mime("image/jpegx"), ImageFormat::unknown);
  EXPECT_THROW(decode("not an image at all"), std::invalid_argument);
}

}  // namespace
