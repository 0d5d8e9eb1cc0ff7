#include "platform/codec/png.hpp"

#include <spng.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace pf::graphics::codec {
namespace {

constexpr unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// An IEND chunk is always these 12 bytes (empty data, fixed CRC).
constexpr unsigned char kIend[12] = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
// Caps one ancillary chunk and all that libspng keeps of them (text, ICC profiles, decompressed
// included); image data is not counted.
constexpr std::size_t kAncillaryLimit = std::size_t{64} << 20;

struct CtxDeleter {
  void operator()(spng_ctx* ctx) const noexcept { spng_ctx_free(ctx); }
};
using Ctx = std::unique_ptr<spng_ctx, CtxDeleter>;

[[noreturn]] void reject(char const* why) {
  throw std::invalid_argument(std::string("PNG: ") + why);
}

void check_decode(int rc) {
  if (rc != 0)
    reject(spng_strerror(rc));
}

void check_encode(int rc) {
  if (rc != 0)
    throw std::runtime_error(std::string("PNG encoding: ") + spng_strerror(rc));
}

Ctx open_decoder(void const* data, std::size_t size) {
  if (!png_has_signature(data, size))
    reject("no PNG signature");
  Ctx ctx(spng_ctx_new(0));
  if (!ctx)
    throw std::bad_alloc();
  check_decode(spng_set_image_limits(ctx.get(), kPngMaxSide, kPngMaxSide));
  check_decode(spng_set_chunk_limits(ctx.get(), kAncillaryLimit, kAncillaryLimit));
  check_decode(spng_set_png_buffer(ctx.get(), data, size));
  return ctx;
}

// Reading the chunks after the image data reaches IEND, but libspng accepts an IEND whose
// CRC is cut off, so a stream truncated by up to four bytes would pass without this.
void require_iend(void const* data, std::size_t size) {
  auto const* b = static_cast<unsigned char const*>(data);
  if (std::find_end(b, b + size, std::begin(kIend), std::end(kIend)) == b + size) {
    reject("no complete IEND chunk");
  }
}

bool all_opaque(std::uint8_t const* rgba, std::size_t pixels) noexcept {
  constexpr std::size_t kBlock = 64;  // branch once per block so the AND vectorizes
  std::size_t i = 0;
  for (; i + kBlock <= pixels; i += kBlock) {
    std::uint8_t acc = 0xFF;
    for (std::size_t k = 0; k < kBlock; ++k)
      acc &= rgba[(i + k) * 4 + 3];
    if (acc != 0xFF)
      return false;
  }
  for (; i < pixels; ++i) {
    if (rgba[i * 4 + 3] != 0xFF)
      return false;
  }
  return true;
}

int append_to_vector(spng_ctx*, void* user, void* src, std::size_t length) {
  auto* out = static_cast<std::vector<std::byte>*>(user);
  auto const* p = static_cast<std::byte const*>(src);
  try {
    out->insert(out->end(), p, p + length);
  } catch (std::bad_alloc const&) {
    return SPNG_IO_ERROR;
  }
  return 0;
}

}  // namespace

bool png_has_signature(void const* data, std::size_t size) noexcept {
  return size >= sizeof kSignature && std::memcmp(data, kSignature, sizeof kSignature) == 0;
}

PngInfo png_validate(void const* data, std::size_t size) {
  Ctx ctx = open_decoder(data, size);
  spng_ihdr ihdr{};
  check_decode(spng_get_ihdr(ctx.get(), &ihdr));
  std::size_t image_size = 0;
  check_decode(spng_decoded_image_size(ctx.get(), SPNG_FMT_PNG, &image_size));
  check_decode(spng_decode_image(ctx.get(), nullptr, 0, SPNG_FMT_PNG, SPNG_DECODE_PROGRESSIVE));
  // Scanlines come in file order (interlace passes included); none is wider than a full row.
  std::vector<unsigned char> row(image_size / ihdr.height);
  int rc = 0;
  do {
    rc = spng_decode_scanline(ctx.get(), row.data(), row.size());
  } while (rc == 0);
  if (rc != SPNG_EOI)
    reject(spng_strerror(rc));
  check_decode(spng_decode_chunks(ctx.get()));
  require_iend(data, size);
  return PngInfo{ihdr.width, ihdr.height};
}

RgbaPixels png_decode_rgba(void const* data, std::size_t size) {
  Ctx ctx = open_decoder(data, size);
  spng_ihdr ihdr{};
  check_decode(spng_get_ihdr(ctx.get(), &ihdr));
  std::size_t image_size = 0;
  check_decode(spng_decoded_image_size(ctx.get(), SPNG_FMT_RGBA8, &image_size));
  RgbaPixels pixels{ihdr.width, ihdr.height, std::vector<std::uint8_t>(image_size)};
  check_decode(spng_decode_image(ctx.get(), pixels.rgba.data(), pixels.rgba.size(), SPNG_FMT_RGBA8,
                                 SPNG_DECODE_TRNS));
  check_decode(spng_decode_chunks(ctx.get()));
  require_iend(data, size);
  return pixels;
}

std::vector<std::byte> png_encode_rgba(std::uint32_t width, std::uint32_t height,
                                       std::uint8_t const* rgba, std::size_t size) {
  if (width == 0 || height == 0)
    throw std::invalid_argument("PNG encoding: empty image");
  if (size / 4 / width != height || size % (std::size_t{width} * 4) != 0) {
    throw std::invalid_argument("PNG encoding: pixel buffer is not width * height * 4 bytes");
  }
  bool const opaque = all_opaque(rgba, size / 4);

  Ctx ctx(spng_ctx_new(SPNG_CTX_ENCODER));
  if (!ctx)
    throw std::bad_alloc();
  std::vector<std::byte> png;
  png.reserve(size / 8);
  check_encode(spng_set_png_stream(ctx.get(), append_to_vector, &png));
  spng_ihdr ihdr{width,
                 height,
                 8,
                 static_cast<std::uint8_t>(opaque ? SPNG_COLOR_TYPE_TRUECOLOR
                                                  : SPNG_COLOR_TYPE_TRUECOLOR_ALPHA),
                 0,
                 0,
                 0};
  check_encode(spng_set_ihdr(ctx.get(), &ihdr));
  // Level 1 without filters: the filter search and deeper matching cost far more time than
  // they save bytes on flat UI areas and text.
  check_encode(spng_set_option(ctx.get(), SPNG_IMG_COMPRESSION_LEVEL, 1));
  check_encode(spng_set_option(ctx.get(), SPNG_FILTER_CHOICE, SPNG_DISABLE_FILTERING));

  if (!opaque) {
    check_encode(spng_encode_image(ctx.get(), rgba, size, SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE));
    return png;
  }
  // Opaque: drop alpha row by row; a quarter less data to deflate pays for the copy.
  check_encode(spng_encode_image(ctx.get(), nullptr, 0, SPNG_FMT_PNG,
                                 SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE));
  std::vector<std::uint8_t> row(std::size_t{width} * 3);
  int rc = 0;
  for (std::uint32_t y = 0; y < height && rc == 0; ++y) {
    std::uint8_t const* src = rgba + std::size_t{y} * width * 4;
    for (std::size_t x = 0; x < width; ++x) {
      row[x * 3] = src[x * 4];
      row[x * 3 + 1] = src[x * 4 + 1];
      row[x * 3 + 2] = src[x * 4 + 2];
    }
    rc = spng_encode_row(ctx.get(), row.data(), row.size());
  }
  if (rc != SPNG_EOI)
    check_encode(rc == 0 ? SPNG_EINTERNAL : rc);
  return png;
}

}  // namespace pf::graphics::codec
