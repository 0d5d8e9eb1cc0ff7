// pf::graphics: images on the clipboard.
//
// An image is held as its encoded bytes (PNG or SVG text) or, when a backend only has pixels, as
// 8-bit RGBA pixels that are encoded to PNG (libspng) the first time PNG bytes are asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace pf::graphics {

// Image kinds answered by PFGraphics::kind().
constexpr int kRasterImage = 0;
constexpr int kVectorImage = 1;  // SVG

// Encoding codes of PFGraphics::encode().
constexpr int kEncodePng = 2;  // the image as PNG (a raster image; an SVG cannot be rasterized)
constexpr int kEncodeSvg = 7;  // the image as SVG text (a vector image only)

// Flags of PFGraphics::encode().
constexpr int kEncodeRaw = 0;     // the encoded bytes themselves
constexpr int kEncodeBase64 = 1;  // the encoded bytes as base64 text (RFC 4648, padded)

using EncodeOptions = std::unordered_map<std::u16string, std::u16string>;

struct PFEncodedImage {
  std::vector<std::byte> bytes;
};

class PFGraphics {
 public:
  virtual ~PFGraphics();

  // The image encoded as `code` says; `flag` kEncodeBase64 asks for base64 text. Throws
  // std::invalid_argument for a code that does not fit the image (PNG of an SVG, SVG of a
  // raster image, an unknown code or flag) and std::runtime_error when encoding fails.
  // No options are defined yet; unknown ones are ignored.
  virtual std::unique_ptr<PFEncodedImage> encode(int code, int flag,
                                                 EncodeOptions const& options) const = 0;

  // kVectorImage for SVG, kRasterImage for every other image.
  virtual int kind() const = 0;
};

// An image held as encoded bytes, or as pixels encoded on demand.
class PFImage final : public PFGraphics {
 public:
  enum class Format { png, svg };

  // Encoded bytes as they came (from the clipboard or from base64 text); not re-encoded.
  PFImage(Format format, std::vector<std::byte> encoded);

  // 8-bit RGBA pixels, row by row, width * height * 4 bytes; encoded to PNG when asked.
  static std::unique_ptr<PFImage> fromRgba(std::uint32_t width, std::uint32_t height,
                                           std::vector<std::uint8_t> rgba);

  std::unique_ptr<PFEncodedImage> encode(int code, int flag,
                                         EncodeOptions const& options) const override;
  int kind() const override;

  Format format() const noexcept { return format_; }

  // The PNG or SVG bytes (pixels are encoded on the first call; safe from several threads).
  std::vector<std::byte> const& encodedBytes() const;

  ~PFImage() override;

 private:
  struct Pixels;
  PFImage() = default;

  Format format_ = Format::png;
  std::shared_ptr<Pixels> pixels_;
  mutable std::shared_ptr<std::vector<std::byte> const> encoded_;
};

// Rebuilds an image from base64 text: plain base64, or the tail of a data URL that starts with
// its "," (the set request hands that over). White space inside the base64 text is skipped.
// PNG bytes are validated with libspng; bytes that hold SVG text (an "<svg" element, optionally
// after an XML declaration, comments or a doctype) give a vector image. Throws
// std::invalid_argument for malformed base64 and for bytes that are neither a valid PNG nor SVG.
std::unique_ptr<PFGraphics> constructPFGraphicsFromBase64(std::string const& text);

}  // namespace pf::graphics
