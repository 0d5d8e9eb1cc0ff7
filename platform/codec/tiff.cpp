// TIFF through libtiff's RGBA interface (every photometric and compression it knows), read
// from memory, with its messages kept off stderr and its allocations capped.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/codec/images.hpp"

namespace pf::graphics::codec {
namespace {

struct Input {
  std::uint8_t const* data;
  std::size_t size;
  std::size_t offset;
  std::string error;
};

tmsize_t readInput(thandle_t handle, void* out, tmsize_t wanted) {
  auto* input = static_cast<Input*>(handle);
  if (wanted <= 0 || input->offset >= input->size)
    return 0;
  std::size_t const n =
      std::min<std::size_t>(static_cast<std::size_t>(wanted), input->size - input->offset);
  std::memcpy(out, input->data + input->offset, n);
  input->offset += n;
  return static_cast<tmsize_t>(n);
}

tmsize_t writeNothing(thandle_t, void*, tmsize_t) {
  return 0;
}

toff_t seekInput(thandle_t handle, toff_t offset, int whence) {
  auto* input = static_cast<Input*>(handle);
  std::uint64_t base = 0;
  if (whence == SEEK_CUR)
    base = input->offset;
  else if (whence == SEEK_END)
    base = input->size;
  std::uint64_t const target = base + offset;
  if (target < base || target > input->size)
    return static_cast<toff_t>(-1);
  input->offset = static_cast<std::size_t>(target);
  return target;
}

int closeInput(thandle_t) {
  return 0;
}

toff_t sizeOfInput(thandle_t handle) {
  return static_cast<Input*>(handle)->size;
}

int noMap(thandle_t, void**, toff_t*) {
  return 0;
}

void noUnmap(thandle_t, void*, toff_t) {}

int keepError(TIFF*, void* user, char const*, char const* format, va_list args) {
  auto* input = static_cast<Input*>(user);
  if (input->error.empty()) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    input->error = text;
  }
  return 1;
}

int dropWarning(TIFF*, void*, char const*, char const*, va_list) {
  return 1;
}

struct TiffCloser {
  void operator()(TIFF* tif) const noexcept { TIFFClose(tif); }
};
struct OptionsDeleter {
  void operator()(TIFFOpenOptions* options) const noexcept { TIFFOpenOptionsFree(options); }
};

[[noreturn]] void reject(Input const& input, char const* fallback) {
  throw std::invalid_argument(std::string("TIFF: ") +
                              (input.error.empty() ? fallback : input.error.c_str()));
}

}  // namespace

RgbaPixels tiff_decode_rgba(void const* data, std::size_t size, std::uint64_t max_bytes) {
  Input input{static_cast<std::uint8_t const*>(data), size, 0, {}};
  std::unique_ptr<TIFFOpenOptions, OptionsDeleter> const options(TIFFOpenOptionsAlloc());
  if (!options)
    throw std::bad_alloc();
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(max_bytes));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepError, &input);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), dropWarning, nullptr);
  std::unique_ptr<TIFF, TiffCloser> const tif(
      TIFFClientOpenExt("clipboard", "rm", &input, readInput, writeNothing, seekInput, closeInput,
                        sizeOfInput, noMap, noUnmap, options.get()));
  if (!tif)
    reject(input, "not a valid TIFF image");
  std::uint32_t width = 0, height = 0;
  if (!TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width) ||
      !TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height)) {
    reject(input, "no image size");
  }
  check_image_size(width, height, "TIFF", max_bytes);
  char why[1024] = "";
  if (!TIFFRGBAImageOK(tif.get(), why))
    throw std::invalid_argument(std::string("TIFF: ") + why);
  // libtiff writes one packed 32-bit word per pixel; it lands in the RGBA buffer itself, which
  // is then rewritten in place, so the image is held once, not twice.
  RgbaPixels pixels{width, height, std::vector<std::uint8_t>(std::size_t{width} * height * 4)};
  if (!TIFFReadRGBAImageOriented(tif.get(), width, height,
                                 reinterpret_cast<std::uint32_t*>(pixels.rgba.data()),
                                 ORIENTATION_TOPLEFT, 1)) {
    reject(input, "the image data is damaged");
  }
  for (std::size_t i = 0; i < pixels.rgba.size(); i += 4) {
    std::uint32_t abgr;
    std::memcpy(&abgr, &pixels.rgba[i], 4);
    unsigned const a = TIFFGetA(abgr);
    unsigned r = TIFFGetR(abgr), g = TIFFGetG(abgr), b = TIFFGetB(abgr);
    // libtiff hands out premultiplied colour; PNG holds it straight.
    if (a != 0 && a != 255) {
      r = std::min(255u, (r * 255 + a / 2) / a);
      g = std::min(255u, (g * 255 + a / 2) / a);
      b = std::min(255u, (b * 255 + a / 2) / a);
    }
    auto* out = &pixels.rgba[i];
    out[0] = static_cast<std::uint8_t>(r);
    out[1] = static_cast<std::uint8_t>(g);
    out[2] = static_cast<std::uint8_t>(b);
    out[3] = static_cast<std::uint8_t>(a);
  }
  return pixels;
}

}  // namespace pf::graphics::codec
