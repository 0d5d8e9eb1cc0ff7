#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/codec/base64.hpp"
#include "platform/codec/png.hpp"
#include "platform/formats/payload_formats.hpp"

namespace codec = pf::graphics::codec;

namespace {

using pf::clipboard::formats::bytesOf;

std::vector<std::byte> random_bytes(std::size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::vector<std::byte> b(n);
  for (auto& x : b)
    x = static_cast<std::byte>(gen() & 0xFF);
  return b;
}

// Bit-at-a-time encoder, independent of the table-driven one.
std::string reference_encode(std::vector<std::byte> const& in) {
  static char const alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  unsigned acc = 0;
  int bits = 0;
  for (std::byte b : in) {
    acc = (acc << 8 | std::to_integer<unsigned>(b)) & 0xFFFF;
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      out += alphabet[(acc >> bits) & 63];
    }
  }
  if (bits > 0)
    out += alphabet[(acc << (6 - bits)) & 63];
  while (out.size() % 4 != 0)
    out += '=';
  return out;
}

// ---- base64 --------------------------------------------------------------------------------

TEST(Base64, Rfc4648Vectors) {
  for (auto const& [plain, encoded] :
       std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foob", "Zm9vYg=="},
                                                        {"fooba", "Zm9vYmE="},
                                                        {"foobar", "Zm9vYmFy"}}) {
    EXPECT_EQ(codec::base64_encode(plain.data(), plain.size()), encoded);
    EXPECT_EQ(codec::base64_decode(encoded), bytesOf(plain));
  }
}

class Base64Lengths : public ::testing::TestWithParam<std::size_t> {};

// Each seed also spreads another kind of white space at another spacing: MIME and odd line
// lengths, between every character and inside the padding.
TEST_P(Base64Lengths, MatchesReferenceAndRoundTrips) {
  std::size_t const n = GetParam();
  struct Spacing {
    std::size_t every;
    char const* space;
  };
  Spacing const spacings[] = {{1, " "}, {3, "\t"}, {17, "\v\f"}, {76, "\r\n"}};
  for (unsigned seed = 0; seed < 4; ++seed) {
    auto const data = random_bytes(n, seed * 1000 + static_cast<unsigned>(n));
    std::string const text = codec::base64_encode(data);
    ASSERT_EQ(text.size(), codec::base64_encoded_size(n));
    EXPECT_EQ(text, reference_encode(data)) << "length " << n << " seed " << seed;
    EXPECT_EQ(codec::base64_decode(text), data) << "length " << n << " seed " << seed;
    std::string spaced = spacings[seed].space;
    for (std::size_t i = 0; i < text.size(); ++i) {
      spaced += text[i];
      if ((i + 1) % spacings[seed].every == 0)
        spaced += spacings[seed].space;
    }
    EXPECT_EQ(codec::base64_decode(spaced), data) << "spaced, length " << n << " seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(ZeroToSeventy, Base64Lengths, ::testing::Range<std::size_t>(0, 71));
INSTANTIATE_TEST_SUITE_P(Large, Base64Lengths,
                         ::testing::Values(std::size_t{1000}, std::size_t{4095},
                                           std::size_t{65537}));

TEST(Base64, DecodeToReportsLengthWithinCapacity) {
  auto const data = random_bytes(100, 7);
  std::string const text = codec::base64_encode(data) + "\n\n\n\n";
  std::vector<std::byte> out(codec::base64_decoded_capacity(text.size()));
  std::size_t const n = codec::base64_decode_to(text, out.data());
  ASSERT_EQ(n, data.size());
  out.resize(n);
  EXPECT_EQ(out, data);
}

TEST(Base64, MalformedTextIsRejected) {
  for (std::string const text : {"Z", "Zg", "Zm8", "Zg=", "Zm8==", "====", "Z===", "=Zm9",
                                 "Zg==Zg==", "Zh==", "Zm9=", "Zm9v!AAA", "Zm9-", "Zm9_",
                                 "\xC3\xA9"
                                 "AA",
                                 ",Zm9v"}) {
    EXPECT_THROW(codec::base64_decode(text), std::invalid_argument) << text;
  }
  EXPECT_THROW(codec::base64_decode(std::string("Zm9v\0AAA", 8)), std::invalid_argument);
  EXPECT_THROW(codec::base64_decode(std::string(4 * 20, 'A') + "AB"), std::invalid_argument);
}

// A bad character at every offset of a long text, so the block decoder's check is covered at
// each lane and at the character-by-character tail.
class Base64BadCharacterAt : public ::testing::TestWithParam<std::size_t> {};

TEST_P(Base64BadCharacterAt, IsRejected) {
  std::string text = codec::base64_encode(random_bytes(60, 3));  // 80 characters, no padding
  text[GetParam()] = '*';
  EXPECT_THROW(codec::base64_decode(text), std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(EveryOffset, Base64BadCharacterAt, ::testing::Range<std::size_t>(0, 80));

// ---- PNG -------------------------------------------------------------------------------------

std::vector<std::uint8_t> test_pixels(std::uint32_t w, std::uint32_t h, bool opaque,
                                      unsigned seed) {
  std::mt19937 gen(seed);
  std::vector<std::uint8_t> px(std::size_t{w} * h * 4);
  for (std::size_t i = 0; i < px.size(); ++i) {
    px[i] = (opaque && i % 4 == 3) ? 0xFF : static_cast<std::uint8_t>(gen() & 0xFF);
  }
  return px;
}

// Single pixels, odd widths, long rows and columns, with and without alpha.
TEST(Png, RoundTripDecodesToTheSamePixels) {
  struct Size {
    std::uint32_t width, height;
    bool opaque;
  };
  for (auto const& c :
       {Size{1, 1, false}, Size{1, 1, true}, Size{3, 2, false}, Size{17, 5, true},
        Size{1000, 3, false}, Size{2, 700, true}, Size{64, 64, false}, Size{64, 64, true}}) {
    SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height) +
                 (c.opaque ? " opaque" : ""));
    auto const px = test_pixels(c.width, c.height, c.opaque, c.width * 31 + c.height);
    auto const png = codec::png_encode_rgba(c.width, c.height, px.data(), px.size());
    auto const info = codec::png_validate(png.data(), png.size());
    EXPECT_EQ(info.width, c.width);
    EXPECT_EQ(info.height, c.height);
    auto const decoded = codec::png_decode_rgba(png.data(), png.size());
    EXPECT_EQ(decoded.width, c.width);
    EXPECT_EQ(decoded.height, c.height);
    EXPECT_EQ(decoded.rgba, px);
    // IHDR colour type: opaque images leave the alpha channel out.
    ASSERT_GT(png.size(), 25u);
    EXPECT_EQ(std::to_integer<int>(png[25]), c.opaque ? 2 : 6);
  }
}

TEST(Png, AlmostOpaqueImageKeepsItsOnlyTranslucentPixel) {
  auto px = test_pixels(100, 100, true, 5);
  px[(57 * 100 + 99) * 4 + 3] = 0xFE;  // past the first blocks of the opacity scan
  auto const png = codec::png_encode_rgba(100, 100, px.data(), px.size());
  EXPECT_EQ(codec::png_decode_rgba(png.data(), png.size()).rgba, px);
}

TEST(Png, EncodeArgumentsThatDoNotMatchAreRejected) {
  struct Args {
    std::uint32_t width, height;
    std::size_t size;
  };
  // Zero width, zero height, a byte short, a byte over, a row missing, not whole rows.
  for (auto const& a : {Args{0, 4, 0}, Args{4, 0, 0}, Args{4, 4, 63}, Args{4, 4, 65},
                        Args{4, 4, 48}, Args{3, 4, 40}}) {
    std::vector<std::uint8_t> px(a.size);
    EXPECT_THROW(codec::png_encode_rgba(a.width, a.height, px.data(), px.size()),
                 std::invalid_argument)
        << a.width << "x" << a.height << ", " << a.size << " bytes";
  }
}

// A small PNG with several chunks, and where each of its chunks starts.
struct ChunkedPng {
  std::vector<std::byte> bytes;
  std::vector<std::size_t> chunk_starts;
};

ChunkedPng small_png() {
  auto const px = test_pixels(9, 7, false, 99);
  ChunkedPng p{codec::png_encode_rgba(9, 7, px.data(), px.size()), {}};
  for (std::size_t at = 8; at + 12 <= p.bytes.size();) {
    p.chunk_starts.push_back(at);
    std::size_t len = 0;
    for (int i = 0; i < 4; ++i)
      len = len << 8 | std::to_integer<std::size_t>(p.bytes[at + i]);
    at += 12 + len;
  }
  return p;
}

TEST(PngCorrupt, EveryFlippedCrcIsRejected) {
  auto const png = small_png();
  ASSERT_GE(png.chunk_starts.size(), 3u);  // IHDR, IDAT, IEND
  for (std::size_t k = 0; k < png.chunk_starts.size(); ++k) {
    std::size_t const next =
        k + 1 < png.chunk_starts.size() ? png.chunk_starts[k + 1] : png.bytes.size();
    auto bad = png.bytes;
    bad[next - 1] ^= std::byte{0x01};  // last byte of the chunk's CRC
    EXPECT_THROW(codec::png_validate(bad.data(), bad.size()), std::invalid_argument)
        << "chunk " << k;
    EXPECT_THROW(codec::png_decode_rgba(bad.data(), bad.size()), std::invalid_argument)
        << "chunk " << k;
  }
}

TEST(PngCorrupt, EveryTruncationIsRejected) {
  auto const png = small_png().bytes;
  for (std::size_t n = 0; n < png.size(); ++n) {
    EXPECT_THROW(codec::png_validate(png.data(), n), std::invalid_argument) << "length " << n;
  }
  EXPECT_NO_THROW(codec::png_validate(png.data(), png.size()));
}

TEST(PngCorrupt, DamagedImageDataWithMatchingLengthIsRejected) {
  // Flip a byte inside the compressed data and fix the chunk CRC, so only the zlib stream
  // (its structure or its Adler-32) can tell.
  auto const png = small_png();
  std::size_t const idat = png.chunk_starts[1];
  ASSERT_EQ(std::memcmp(png.bytes.data() + idat + 4, "IDAT", 4), 0);
  std::size_t len = 0;
  for (int i = 0; i < 4; ++i)
    len = len << 8 | std::to_integer<std::size_t>(png.bytes[idat + i]);
  // Offsets: a deflate block length, the middle of the data, the Adler-32 at the end.
  for (std::size_t offset : {std::size_t{3}, len / 2, len - 2}) {
    auto bad = png.bytes;
    bad[idat + 8 + offset] ^= std::byte{0x10};
    // CRC-32 over type and data, as PNG defines it.
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = idat + 4; i < idat + 8 + len; ++i) {
      crc ^= std::to_integer<std::uint32_t>(bad[i]);
      for (int k = 0; k < 8; ++k)
        crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    crc ^= 0xFFFFFFFFu;
    for (int i = 0; i < 4; ++i) {
      bad[idat + 8 + len + i] = static_cast<std::byte>((crc >> (24 - 8 * i)) & 0xFF);
    }
    EXPECT_THROW(codec::png_validate(bad.data(), bad.size()), std::invalid_argument)
        << "offset " << offset;
  }
}

TEST(PngCorrupt, NonPngIsRejected) {
  std::string const text = "GIF89a not a png at all";
  EXPECT_FALSE(codec::png_has_signature(text.data(), text.size()));
  EXPECT_THROW(codec::png_validate(text.data(), text.size()), std::invalid_argument);
  EXPECT_THROW(codec::png_decode_rgba(text.data(), text.size()), std::invalid_argument);
}

TEST(Png, ForeignFileDecodes) {
  // A 1x1 PNG from another encoder: zlib level 9, its row stored with the Sub filter.
  auto const png = codec::base64_decode(
      "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNkYPhfDwAChwGA60e6kgAAAABJRU5E"
      "rkJggg==");
  auto const px = codec::png_decode_rgba(png.data(), png.size());
  ASSERT_EQ(px.width, 1u);
  ASSERT_EQ(px.height, 1u);
  EXPECT_EQ(px.rgba, (std::vector<std::uint8_t>{0x00, 0x00, 0xFF, 0x7F}));
  EXPECT_NO_THROW(codec::png_validate(png.data(), png.size()));
}

}  // namespace
