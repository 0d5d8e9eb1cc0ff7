// BMP by hand: the Windows bitmap file as remote-desktop and Wine programs offer it (file header,
// then an OS/2 or Windows info header up to V5). Uncompressed 1, 4, 8, 16, 24 and 32 bits and
// bit fields; run-length coding is refused. Every offset and row is checked against the input.
#include <stdexcept>
#include <string>

#include "platform/codec/images.hpp"

namespace pf::graphics::codec {
namespace {

constexpr std::uint32_t kRgb = 0, kBitFields = 3, kAlphaBitFields = 6;

[[noreturn]] void reject(char const* why) {
  throw std::invalid_argument(std::string("BMP: ") + why);
}

std::uint32_t u32(std::uint8_t const* p) {
  return std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 |
         std::uint32_t{p[3]} << 24;
}
unsigned u16(std::uint8_t const* p) {
  return p[0] | p[1] << 8;
}

// One channel of a bit-field pixel, scaled to 8 bits.
struct Channel {
  std::uint32_t mask = 0;
  unsigned shift = 0;
  unsigned bits = 0;

  explicit Channel(std::uint32_t m = 0) : mask(m) {
    if (mask == 0)
      return;
    while (!((mask >> shift) & 1u))
      ++shift;
    while (shift + bits < 32 && ((mask >> (shift + bits)) & 1u))
      ++bits;
  }
  std::uint8_t of(std::uint32_t pixel) const {
    if (bits == 0)
      return 0;
    std::uint32_t const v = (pixel & mask) >> shift & ((bits >= 32 ? 0 : (1u << bits)) - 1u);
    if (bits >= 8)
      return static_cast<std::uint8_t>(v >> (bits - 8));
    return static_cast<std::uint8_t>(v * 255u / ((1u << bits) - 1u));
  }
};

}  // namespace

RgbaPixels bmp_decode_rgba(void const* data, std::size_t size, std::uint64_t max_bytes) {
  auto const* p = static_cast<std::uint8_t const*>(data);
  if (size < 26 || p[0] != 'B' || p[1] != 'M')
    reject("not a BMP image");
  std::uint32_t const pixelOffset = u32(p + 10);
  std::uint32_t const headerSize = u32(p + 14);
  if (headerSize < 12 || headerSize > size - 14)
    reject("truncated header");
  std::uint8_t const* h = p + 14;
  std::int64_t width = 0, height = 0;
  unsigned bpp = 0;
  std::uint32_t compression = kRgb, colorsUsed = 0;
  bool const core = headerSize == 12;
  if (core) {
    width = u16(h + 4);
    height = static_cast<std::int16_t>(u16(h + 6));
    bpp = u16(h + 10);
  } else {
    if (headerSize < 40)
      reject("unknown header");
    width = static_cast<std::int32_t>(u32(h + 4));
    height = static_cast<std::int32_t>(u32(h + 8));
    bpp = u16(h + 14);
    compression = u32(h + 16);
    colorsUsed = u32(h + 32);
  }
  bool const topDown = height < 0;
  if (topDown)
    height = -height;
  if (width <= 0)
    reject("bad width");
  check_image_size(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height), "BMP",
                   max_bytes);

  // Masks: in the V2+ header itself, or in the 12 (16 with alpha) bytes after a 40-byte one.
  Channel red, green, blue, alpha;
  std::size_t tableAt = 14 + headerSize;
  if (compression == kBitFields || compression == kAlphaBitFields) {
    if (bpp != 16 && bpp != 32)
      reject("bit fields need 16 or 32 bits a pixel");
    std::size_t masksAt = 14 + 40;
    std::size_t const count = compression == kAlphaBitFields ? 4 : 3;
    if (headerSize == 40) {
      tableAt += count * 4;
    }
    if (masksAt + count * 4 > size || (headerSize >= 56 && masksAt + 16 > size))
      reject("truncated bit fields");
    red = Channel(u32(p + masksAt));
    green = Channel(u32(p + masksAt + 4));
    blue = Channel(u32(p + masksAt + 8));
    if (count == 4 || headerSize >= 56)
      alpha = Channel(u32(p + masksAt + 12));
  } else if (compression != kRgb) {
    reject("compressed bitmaps are not supported");
  } else if (bpp == 16) {
    red = Channel(0x7C00);
    green = Channel(0x03E0);
    blue = Channel(0x001F);
  } else if (bpp == 32) {
    red = Channel(0x00FF0000);
    green = Channel(0x0000FF00);
    blue = Channel(0x000000FF);  // the fourth byte of plain 32-bit pixels is unused
  }

  std::vector<std::uint8_t> palette;  // RGB triples
  if (bpp == 1 || bpp == 4 || bpp == 8) {
    std::size_t const entry = core ? 3 : 4;
    std::size_t count = colorsUsed == 0 ? (std::size_t{1} << bpp) : colorsUsed;
    if (count > (std::size_t{1} << bpp))
      count = std::size_t{1} << bpp;
    if (tableAt > size || (size - tableAt) / entry < count)
      reject("truncated colour table");
    for (std::size_t i = 0; i < count; ++i) {
      std::uint8_t const* c = p + tableAt + i * entry;
      palette.insert(palette.end(), {c[2], c[1], c[0]});
    }
  } else if (bpp != 16 && bpp != 24 && bpp != 32) {
    reject("unsupported bits per pixel");
  }

  auto const w = static_cast<std::size_t>(width);
  auto const rows = static_cast<std::size_t>(height);
  std::size_t const stride = ((w * bpp + 31) / 32) * 4;
  if (pixelOffset > size || (size - pixelOffset) / stride < rows)
    reject("truncated pixel data");

  RgbaPixels out{static_cast<std::uint32_t>(w), static_cast<std::uint32_t>(rows),
                 std::vector<std::uint8_t>(w * rows * 4)};
  bool anyAlpha = false;
  for (std::size_t y = 0; y < rows; ++y) {
    std::uint8_t const* row = p + pixelOffset + (topDown ? y : rows - 1 - y) * stride;
    std::uint8_t* o = &out.rgba[y * w * 4];
    for (std::size_t x = 0; x < w; ++x, o += 4) {
      if (!palette.empty()) {
        unsigned const shift = 8 - bpp - static_cast<unsigned>((x * bpp) % 8);
        std::size_t const index = (row[x * bpp / 8] >> shift) & ((1u << bpp) - 1u);
        if (index * 3 < palette.size()) {
          o[0] = palette[index * 3];
          o[1] = palette[index * 3 + 1];
          o[2] = palette[index * 3 + 2];
        } else {
          o[0] = o[1] = o[2] = 0;
        }
        o[3] = 0xFF;
      } else if (bpp == 24) {
        o[0] = row[x * 3 + 2];
        o[1] = row[x * 3 + 1];
        o[2] = row[x * 3];
        o[3] = 0xFF;
      } else {
        std::uint32_t const pixel = bpp == 16 ? u16(row + x * 2) : u32(row + x * 4);
        o[0] = red.of(pixel);
        o[1] = green.of(pixel);
        o[2] = blue.of(pixel);
        o[3] = alpha.bits ? alpha.of(pixel) : 0xFF;
        anyAlpha = anyAlpha || o[3] != 0;
      }
    }
  }
  // Many writers leave the alpha field of every pixel at zero: such an image is opaque.
  if (alpha.bits && !anyAlpha) {
    for (std::size_t i = 3; i < out.rgba.size(); i += 4)
      out.rgba[i] = 0xFF;
  }
  return out;
}

}  // namespace pf::graphics::codec
