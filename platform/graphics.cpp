#include "platform/graphics.hpp"

#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/codec/base64.hpp"
#include "platform/codec/png.hpp"

namespace pf::graphics {

struct PFImage::Pixels {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> rgba;
  std::once_flag encoded;
};

PFGraphics::~PFGraphics() = default;

PFImage::PFImage(Format format, std::vector<std::byte> encoded)
    : format_(format),
      encoded_(std::make_shared<std::vector<std::byte> const>(std::move(encoded))) {}

PFImage::~PFImage() = default;

std::unique_ptr<PFImage> PFImage::fromRgba(std::uint32_t width, std::uint32_t height,
                                           std::vector<std::uint8_t> rgba) {
  if (width == 0 || height == 0 || rgba.size() / 4 / width != height ||
      rgba.size() % (std::size_t{width} * 4) != 0) {
    throw std::invalid_argument("PFImage::fromRgba: not width * height RGBA pixels");
  }
  std::unique_ptr<PFImage> image(new PFImage());
  image->pixels_ = std::make_shared<Pixels>();
  image->pixels_->width = width;
  image->pixels_->height = height;
  image->pixels_->rgba = std::move(rgba);
  return image;
}

std::vector<std::byte> const& PFImage::encodedBytes() const {
  if (pixels_) {
    // call_once orders the write of encoded_ before every reader that gets past it; a throw
    // leaves the flag unset and the pixels in place for the next caller.
    std::call_once(pixels_->encoded, [this] {
      Pixels& p = *pixels_;
      encoded_ = std::make_shared<std::vector<std::byte> const>(
          codec::png_encode_rgba(p.width, p.height, p.rgba.data(), p.rgba.size()));
      std::vector<std::uint8_t>().swap(p.rgba);
    });
  }
  return *encoded_;
}

std::unique_ptr<PFEncodedImage> PFImage::encode(int code, int flag,
                                                EncodeOptions const& /*options*/) const {
  if (flag != kEncodeRaw && flag != kEncodeBase64) {
    throw std::invalid_argument("PFImage::encode: unknown flag " + std::to_string(flag));
  }
  if (code != kEncodePng && code != kEncodeSvg) {
    throw std::invalid_argument("PFImage::encode: unknown code " + std::to_string(code));
  }
  if ((code == kEncodeSvg) != (format_ == Format::svg)) {
    throw std::invalid_argument(code == kEncodeSvg ? "PFImage::encode: a raster image has no SVG"
                                                   : "PFImage::encode: an SVG has no PNG");
  }
  std::vector<std::byte> const& bytes = encodedBytes();
  auto result = std::make_unique<PFEncodedImage>();
  if (flag == kEncodeRaw) {
    result->bytes = bytes;
  } else {
    result->bytes.resize(codec::base64_encoded_size(bytes.size()));
    codec::base64_encode_to(bytes.data(), bytes.size(),
                            reinterpret_cast<char*>(result->bytes.data()));
  }
  return result;
}

int PFImage::kind() const {
  return format_ == Format::svg ? kVectorImage : kRasterImage;
}

namespace {

bool starts_with(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

bool is_xml_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Skips past `end`; false when it never comes.
bool skip_past(std::string_view& s, std::string_view end) {
  auto const at = s.find(end);
  if (at == std::string_view::npos)
    return false;
  s.remove_prefix(at + end.size());
  return true;
}

// Whether the root element is <svg> (or <prefix:svg>), looking past the prolog: a byte order
// mark, an XML declaration and other processing instructions, comments, a doctype with or
// without an internal subset, and white space.
bool is_svg(std::vector<std::byte> const& bytes) {
  std::string_view s(reinterpret_cast<char const*>(bytes.data()), bytes.size());
  if (starts_with(s, "\xEF\xBB\xBF"))
    s.remove_prefix(3);
  for (;;) {
    while (!s.empty() && is_xml_space(s.front()))
      s.remove_prefix(1);
    if (starts_with(s, "<?")) {
      if (!skip_past(s, "?>"))
        return false;
    } else if (starts_with(s, "<!--")) {
      if (!skip_past(s, "-->"))
        return false;
    } else if (starts_with(s, "<!DOCTYPE")) {
      auto const close = s.find('>');
      auto const subset = s.find('[');
      if (subset < close && !skip_past(s, "]"))
        return false;
      if (!skip_past(s, ">"))
        return false;
    } else {
      break;
    }
  }
  if (!starts_with(s, "<"))
    return false;
  s.remove_prefix(1);
  auto const name_end = s.find_first_of(" \t\r\n/>");
  if (name_end == std::string_view::npos)
    return false;
  std::string_view name = s.substr(0, name_end);
  if (auto const colon = name.find(':'); colon != std::string_view::npos && colon != 0) {
    name.remove_prefix(colon + 1);
  }
  return name == "svg";
}

}  // namespace

std::unique_ptr<PFGraphics> constructPFGraphicsFromBase64(std::string const& text) {
  std::string_view data(text);
  if (starts_with(data, ","))
    data.remove_prefix(1);  // the tail of a data URL
  std::vector<std::byte> bytes = codec::base64_decode(data);
  if (codec::png_has_signature(bytes.data(), bytes.size())) {
    codec::png_validate(bytes.data(), bytes.size());
    return std::make_unique<PFImage>(PFImage::Format::png, std::move(bytes));
  }
  if (is_svg(bytes))
    return std::make_unique<PFImage>(PFImage::Format::svg, std::move(bytes));
  throw std::invalid_argument("constructPFGraphicsFromBase64: neither PNG nor SVG");
}

}  // namespace pf::graphics
