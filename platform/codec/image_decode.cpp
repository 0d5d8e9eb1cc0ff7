// Signature sniffing, size limits, EXIF orientation and the dispatch to each format's decoder.
#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/codec/images.hpp"

namespace pf::graphics::codec {
namespace {

bool startsWith(void const* data, std::size_t size, char const* magic, std::size_t length) {
  return size >= length && std::memcmp(data, magic, length) == 0;
}

bool equalsNoCase(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size())
    return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto const lower = [](char c) {
      return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
    };
    if (lower(a[i]) != lower(b[i]))
      return false;
  }
  return true;
}

// Bounds-checked reads of a TIFF structure (the EXIF block) in either byte order.
struct TiffView {
  unsigned char const* p;
  std::size_t size;
  bool bigEndian;

  bool u16(std::size_t at, unsigned& out) const {
    if (at > size || size - at < 2)
      return false;
    out = bigEndian ? (p[at] << 8 | p[at + 1]) : (p[at] | p[at + 1] << 8);
    return true;
  }
  bool u32(std::size_t at, std::uint32_t& out) const {
    if (at > size || size - at < 4)
      return false;
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
      v |= std::uint32_t{p[at + (bigEndian ? 3 - i : i)]} << (8 * i);
    out = v;
    return true;
  }
};

int orientationOfExif(unsigned char const* p, std::size_t size) {
  if (size < 8)
    return 1;
  TiffView view{p, size, false};
  if (p[0] == 'M' && p[1] == 'M')
    view.bigEndian = true;
  else if (!(p[0] == 'I' && p[1] == 'I'))
    return 1;
  unsigned magic = 0;
  std::uint32_t ifd = 0;
  unsigned count = 0;
  if (!view.u16(2, magic) || magic != 42 || !view.u32(4, ifd) || !view.u16(ifd, count))
    return 1;
  for (unsigned i = 0; i < count; ++i) {
    std::size_t const entry = std::size_t{ifd} + 2 + std::size_t{i} * 12;
    unsigned tag = 0, type = 0, value = 0;
    if (!view.u16(entry, tag) || !view.u16(entry + 2, type))
      return 1;
    if (tag != 0x0112)
      continue;
    if (type != 3 || !view.u16(entry + 8, value) || value < 1 || value > 8)
      return 1;
    return static_cast<int>(value);
  }
  return 1;
}

}  // namespace

ImageFormat sniff_image_format(void const* data, std::size_t size) noexcept {
  if (png_has_signature(data, size))
    return ImageFormat::png;
  if (startsWith(data, size, "\xFF\xD8\xFF", 3))
    return ImageFormat::jpeg;
  if (startsWith(data, size, "GIF87a", 6) || startsWith(data, size, "GIF89a", 6))
    return ImageFormat::gif;
  if (size >= 12 && startsWith(data, size, "RIFF", 4) &&
      std::memcmp(static_cast<char const*>(data) + 8, "WEBP", 4) == 0) {
    return ImageFormat::webp;
  }
  if (startsWith(data, size, "II*\0", 4) || startsWith(data, size, "MM\0*", 4))
    return ImageFormat::tiff;
  if (startsWith(data, size, "BM", 2))
    return ImageFormat::bmp;
  return ImageFormat::unknown;
}

ImageFormat image_format_of_mime(std::string_view mime) noexcept {
  mime = mime.substr(0, mime.find(';'));
  while (!mime.empty() && mime.back() == ' ')
    mime.remove_suffix(1);
  struct Name {
    char const* mime;
    ImageFormat format;
  };
  static constexpr Name kNames[] = {
      {"image/png", ImageFormat::png},      {"image/jpeg", ImageFormat::jpeg},
      {"image/jpg", ImageFormat::jpeg},     {"image/pjpeg", ImageFormat::jpeg},
      {"image/gif", ImageFormat::gif},      {"image/webp", ImageFormat::webp},
      {"image/tiff", ImageFormat::tiff},    {"image/tif", ImageFormat::tiff},
      {"image/bmp", ImageFormat::bmp},      {"image/x-bmp", ImageFormat::bmp},
      {"image/x-ms-bmp", ImageFormat::bmp}, {"image/x-win-bitmap", ImageFormat::bmp},
  };
  for (auto const& name : kNames) {
    if (equalsNoCase(mime, name.mime))
      return name.format;
  }
  return ImageFormat::unknown;
}

char const* image_format_name(ImageFormat format) noexcept {
  switch (format) {
    case ImageFormat::png:
      return "PNG";
    case ImageFormat::jpeg:
      return "JPEG";
    case ImageFormat::gif:
      return "GIF";
    case ImageFormat::webp:
      return "WebP";
    case ImageFormat::tiff:
      return "TIFF";
    case ImageFormat::bmp:
      return "BMP";
    case ImageFormat::unknown:
      break;
  }
  return "image";
}

void check_image_size(std::uint64_t width, std::uint64_t height, char const* format,
                      std::uint64_t max_bytes) {
  if (width == 0 || height == 0)
    throw std::invalid_argument(std::string(format) + ": empty image");
  if (width > kPngMaxSide || height > kPngMaxSide || width * height * 4 > max_bytes) {
    throw std::invalid_argument(std::string(format) + ": image of " + std::to_string(width) + "x" +
                                std::to_string(height) + " exceeds the size limit");
  }
}

RgbaPixels decode_image_rgba(void const* data, std::size_t size, std::uint64_t max_bytes) {
  switch (sniff_image_format(data, size)) {
    case ImageFormat::png: {
      // IHDR comes first: its size is checked against the budget before libspng allocates.
      auto const* p = static_cast<unsigned char const*>(data);
      if (size >= 24) {
        auto const be32 = [p](std::size_t at) {
          return std::uint64_t{p[at]} << 24 | std::uint64_t{p[at + 1]} << 16 |
                 std::uint64_t{p[at + 2]} << 8 | p[at + 3];
        };
        check_image_size(be32(16), be32(20), "PNG", max_bytes);
      }
      return png_decode_rgba(data, size);
    }
    case ImageFormat::jpeg:
      return jpeg_decode_rgba(data, size, max_bytes);
    case ImageFormat::gif:
      return gif_decode_rgba(data, size, max_bytes);
    case ImageFormat::webp:
      return webp_decode_rgba(data, size, max_bytes);
    case ImageFormat::tiff:
      return tiff_decode_rgba(data, size, max_bytes);
    case ImageFormat::bmp:
      return bmp_decode_rgba(data, size, max_bytes);
    case ImageFormat::unknown:
      break;
  }
  throw std::invalid_argument("image: not a PNG, JPEG, GIF, WebP, TIFF or BMP image");
}

int jpeg_exif_orientation(void const* data, std::size_t size) noexcept {
  auto const* p = static_cast<unsigned char const*>(data);
  if (size < 4 || p[0] != 0xFF || p[1] != 0xD8)
    return 1;
  std::size_t at = 2;
  // Segments up to the start of scan; EXIF sits in one of the first APP1 segments.
  while (at + 4 <= size) {
    if (p[at] != 0xFF)
      return 1;
    unsigned const marker = p[at + 1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    if (marker == 0xDA || marker == 0xD9)
      return 1;
    std::size_t const length = std::size_t{p[at + 2]} << 8 | p[at + 3];
    if (length < 2 || size - at - 2 < length)
      return 1;
    if (marker == 0xE1 && length >= 8 && std::memcmp(p + at + 4, "Exif\0\0", 6) == 0) {
      return orientationOfExif(p + at + 10, length - 8);
    }
    at += 2 + length;
  }
  return 1;
}

RgbaPixels apply_exif_orientation(RgbaPixels pixels, int orientation) {
  if (orientation < 2 || orientation > 8)
    return pixels;
  std::size_t const w = pixels.width, h = pixels.height;
  bool const swap = orientation >= 5;
  std::size_t const outW = swap ? h : w;
  std::size_t const outH = swap ? w : h;
  RgbaPixels out{static_cast<std::uint32_t>(outW), static_cast<std::uint32_t>(outH),
                 std::vector<std::uint8_t>(pixels.rgba.size())};
  auto const* src = pixels.rgba.data();
  auto* dst = out.rgba.data();
  for (std::size_t y = 0; y < outH; ++y) {
    for (std::size_t x = 0; x < outW; ++x) {
      std::size_t sx = x, sy = y;
      switch (orientation) {
        case 2:  // mirrored
          sx = w - 1 - x;
          break;
        case 3:  // turned 180
          sx = w - 1 - x;
          sy = h - 1 - y;
          break;
        case 4:  // upside down, mirrored
          sy = h - 1 - y;
          break;
        case 5:  // transposed
          sx = y;
          sy = x;
          break;
        case 6:  // shown turned 90 clockwise
          sx = y;
          sy = h - 1 - x;
          break;
        case 7:  // transversed
          sx = w - 1 - y;
          sy = h - 1 - x;
          break;
        default:  // 8: shown turned 90 counter-clockwise
          sx = w - 1 - y;
          sy = x;
          break;
      }
      std::memcpy(dst + (y * outW + x) * 4, src + (sy * w + sx) * 4, 4);
    }
  }
  return out;
}

}  // namespace pf::graphics::codec
