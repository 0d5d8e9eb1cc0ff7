// PNG through libspng: validation of PNG bytes that arrive from outside, decoding to RGBA and
// encoding of RGBA pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pf::graphics::codec {

// Larger images are refused by png_validate and png_decode_rgba: a few kilobytes of PNG can
// otherwise claim gigabytes of pixels.
constexpr std::uint32_t kPngMaxSide = 32768;

struct PngInfo {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

struct RgbaPixels {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> rgba;  // width * height * 4 bytes, row by row
};

// True when the bytes begin with the 8-byte PNG signature.
bool png_has_signature(void const* data, std::size_t size) noexcept;

// Checks that the bytes are one whole PNG: every chunk's CRC, the zlib stream of the image data
// inflated and unfiltered row by row down to the last row (with its Adler-32, which libspng
// checks when the stream ends there), the chunks after it and the IEND chunk. Only one row is
// held in memory at a time, so a screenshot costs about what inflating it does. Throws
// std::invalid_argument for anything else.
PngInfo png_validate(void const* data, std::size_t size);

// Decodes any PNG to 8-bit RGBA (tRNS applied). Throws std::invalid_argument when the bytes are
// not a valid PNG.
RgbaPixels png_decode_rgba(void const* data, std::size_t size);

// Encodes width * height RGBA pixels with zlib level 1 and no row filters (about seven times
// faster than the defaults, within a few percent of their size on screenshots). Fully opaque
// images are written without the alpha channel. Throws std::invalid_argument for an empty or
// oversized image or a pixel buffer of the wrong size, std::runtime_error if libspng fails.
std::vector<std::byte> png_encode_rgba(std::uint32_t width, std::uint32_t height,
                                       std::uint8_t const* rgba, std::size_t size);

}  // namespace pf::graphics::codec
