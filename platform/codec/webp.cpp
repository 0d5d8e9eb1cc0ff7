// WebP through libwebp; animations through its demuxer's frame decoder, which composes the
// first frame onto the canvas.
#include <webp/decode.h>
#include <webp/demux.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/codec/images.hpp"

namespace pf::graphics::codec {
namespace {

[[noreturn]] void reject(char const* why) {
  throw std::invalid_argument(std::string("WebP: ") + why);
}

struct AnimDecoderDeleter {
  void operator()(WebPAnimDecoder* decoder) const noexcept { WebPAnimDecoderDelete(decoder); }
};

}  // namespace

RgbaPixels webp_decode_rgba(void const* data, std::size_t size, std::uint64_t max_bytes) {
  auto const* bytes = static_cast<std::uint8_t const*>(data);
  WebPBitstreamFeatures features{};
  if (WebPGetFeatures(bytes, size, &features) != VP8_STATUS_OK)
    reject("not a valid WebP image");
  // For an animation these are the canvas's; libwebp caps both at 16383.
  check_image_size(static_cast<std::uint64_t>(features.width),
                   static_cast<std::uint64_t>(features.height), "WebP", max_bytes);
  auto const width = static_cast<std::uint32_t>(features.width);
  auto const height = static_cast<std::uint32_t>(features.height);
  std::size_t const stride = std::size_t{width} * 4;
  RgbaPixels pixels{width, height, {}};
  if (!features.has_animation) {
    pixels.rgba.resize(stride * height);
    if (!WebPDecodeRGBAInto(bytes, size, pixels.rgba.data(), pixels.rgba.size(),
                            static_cast<int>(stride))) {
      reject("the image data is damaged");
    }
    return pixels;
  }
  WebPData const webp{bytes, size};
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options))
    reject("library version mismatch");
  options.color_mode = MODE_RGBA;
  options.use_threads = 0;
  std::unique_ptr<WebPAnimDecoder, AnimDecoderDeleter> const decoder(
      WebPAnimDecoderNew(&webp, &options));
  if (!decoder)
    reject("not a valid WebP animation");
  WebPAnimInfo info{};
  if (!WebPAnimDecoderGetInfo(decoder.get(), &info) || info.canvas_width != width ||
      info.canvas_height != height || info.frame_count == 0) {
    reject("not a valid WebP animation");
  }
  std::uint8_t* frame = nullptr;
  int timestamp = 0;
  if (!WebPAnimDecoderGetNext(decoder.get(), &frame, &timestamp) || !frame)
    reject("the first frame is damaged");
  pixels.rgba.assign(frame, frame + stride * height);
  return pixels;
}

}  // namespace pf::graphics::codec
