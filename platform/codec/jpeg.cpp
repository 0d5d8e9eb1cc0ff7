// JPEG through the TurboJPEG API of libjpeg-turbo: errors come back as codes, so no longjmp
// crosses C++ frames.
#include <turbojpeg.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "platform/codec/images.hpp"

namespace pf::graphics::codec {
namespace {

struct HandleDeleter {
  void operator()(void* handle) const noexcept { tjDestroy(handle); }
};

[[noreturn]] void reject(tjhandle handle) {
  throw std::invalid_argument(std::string("JPEG: ") + tjGetErrorStr2(handle));
}

}  // namespace

RgbaPixels jpeg_decode_rgba(void const* data, std::size_t size, std::uint64_t max_bytes) {
  if (size < 4 || size > 0xFFFFFFFFu)
    throw std::invalid_argument("JPEG: not a JPEG image");
  std::unique_ptr<void, HandleDeleter> const handle(tjInitDecompress());
  if (!handle)
    throw std::bad_alloc();
  auto const* bytes = static_cast<unsigned char const*>(data);
  auto const length = static_cast<unsigned long>(size);
  int width = 0, height = 0, subsampling = 0, colorspace = 0;
  if (tjDecompressHeader3(handle.get(), bytes, length, &width, &height, &subsampling,
                          &colorspace) != 0) {
    reject(handle.get());
  }
  check_image_size(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height), "JPEG",
                   max_bytes);
  RgbaPixels pixels{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                    std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * 4)};
  // A warning (a truncated or damaged stream) fails the image instead of leaving grey rows;
  // progressive images with absurd scan counts are refused rather than decoded for minutes.
  if (tjDecompress2(handle.get(), bytes, length, pixels.rgba.data(), width, 0, height, TJPF_RGBA,
                    TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS | TJFLAG_NOREALLOC) != 0) {
    reject(handle.get());
  }
  return apply_exif_orientation(std::move(pixels), jpeg_exif_orientation(data, size));
}

}  // namespace pf::graphics::codec
