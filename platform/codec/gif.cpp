// GIF through giflib, record by record, so that only the first frame is read: DGifSlurp would
// decode every frame of an animation first.
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/codec/images.hpp"

namespace pf::graphics::codec {
namespace {

struct Input {
  std::uint8_t const* data;
  std::size_t size;
  std::size_t offset;
};

int readInput(GifFileType* gif, GifByteType* out, int wanted) {
  auto* input = static_cast<Input*>(gif->UserData);
  if (wanted <= 0)
    return 0;
  std::size_t const n =
      std::min<std::size_t>(static_cast<std::size_t>(wanted), input->size - input->offset);
  std::memcpy(out, input->data + input->offset, n);
  input->offset += n;
  return static_cast<int>(n);
}

[[noreturn]] void reject(int error) {
  char const* text = GifErrorString(error);
  throw std::invalid_argument(std::string("GIF: ") + (text ? text : "damaged image"));
}

class Decoder {
 public:
  explicit Decoder(Input& input) {
    int error = 0;
    gif_ = DGifOpen(&input, readInput, &error);
    if (!gif_)
      reject(error);
  }
  ~Decoder() {
    int error = 0;
    DGifCloseFile(gif_, &error);
  }
  Decoder(Decoder const&) = delete;
  Decoder& operator=(Decoder const&) = delete;
  GifFileType* operator->() const noexcept { return gif_; }
  GifFileType* get() const noexcept { return gif_; }
  void check(int rc) const {
    if (rc != GIF_OK)
      reject(gif_->Error);
  }

 private:
  GifFileType* gif_ = nullptr;
};

}  // namespace

RgbaPixels gif_decode_rgba(void const* data, std::size_t size, std::uint64_t max_bytes) {
  Input input{static_cast<std::uint8_t const*>(data), size, 0};
  Decoder gif(input);
  check_image_size(static_cast<std::uint64_t>(std::max(gif->SWidth, 0)),
                   static_cast<std::uint64_t>(std::max(gif->SHeight, 0)), "GIF", max_bytes);
  std::size_t const width = static_cast<std::size_t>(gif->SWidth);
  std::size_t const height = static_cast<std::size_t>(gif->SHeight);
  int transparent = NO_TRANSPARENT_COLOR;
  for (;;) {
    GifRecordType record = UNDEFINED_RECORD_TYPE;
    gif.check(DGifGetRecordType(gif.get(), &record));
    if (record == TERMINATE_RECORD_TYPE)
      throw std::invalid_argument("GIF: no image in the file");
    if (record == EXTENSION_RECORD_TYPE) {
      int code = 0;
      GifByteType* block = nullptr;
      gif.check(DGifGetExtension(gif.get(), &code, &block));
      if (code == GRAPHICS_EXT_FUNC_CODE && block && block[0] >= 4) {
        GraphicsControlBlock control{};
        if (DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK)
          transparent = control.TransparentColor;
      }
      while (block) {
        gif.check(DGifGetExtensionNext(gif.get(), &block));
      }
      continue;
    }
    if (record != IMAGE_DESC_RECORD_TYPE)
      continue;
    gif.check(DGifGetImageDesc(gif.get()));
    GifImageDesc const frame = gif->Image;
    ColorMapObject const* colors = frame.ColorMap ? frame.ColorMap : gif->SColorMap;
    if (!colors || frame.Width <= 0 || frame.Height <= 0 || frame.Left < 0 || frame.Top < 0)
      throw std::invalid_argument("GIF: the first frame has no colours or no size");
    auto const frameWidth = static_cast<std::size_t>(frame.Width);
    auto const frameHeight = static_cast<std::size_t>(frame.Height);
    // A frame may reach past the screen; what lies outside is dropped. Its rows are read into
    // a buffer of their own, bounded by the screen's width.
    if (frameWidth > kPngMaxSide || frameHeight > kPngMaxSide)
      throw std::invalid_argument("GIF: frame exceeds the size limit");
    RgbaPixels pixels{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                      std::vector<std::uint8_t>(width * height * 4, 0)};
    std::vector<GifPixelType> row(frameWidth);
    auto const put = [&](std::size_t y) {
      std::size_t const top = static_cast<std::size_t>(frame.Top) + y;
      if (top >= height)
        return;
      for (std::size_t x = 0; x < frameWidth; ++x) {
        std::size_t const left = static_cast<std::size_t>(frame.Left) + x;
        int const index = row[x];
        if (left >= width || index == transparent || index >= colors->ColorCount)
          continue;
        auto* out = &pixels.rgba[(top * width + left) * 4];
        out[0] = colors->Colors[index].Red;
        out[1] = colors->Colors[index].Green;
        out[2] = colors->Colors[index].Blue;
        out[3] = 0xFF;
      }
    };
    if (frame.Interlace) {
      static constexpr std::size_t kStart[] = {0, 4, 2, 1};
      static constexpr std::size_t kStep[] = {8, 8, 4, 2};
      for (int pass = 0; pass < 4; ++pass) {
        for (std::size_t y = kStart[pass]; y < frameHeight; y += kStep[pass]) {
          gif.check(DGifGetLine(gif.get(), row.data(), frame.Width));
          put(y);
        }
      }
    } else {
      for (std::size_t y = 0; y < frameHeight; ++y) {
        gif.check(DGifGetLine(gif.get(), row.data(), frame.Width));
        put(y);
      }
    }
    return pixels;
  }
}

}  // namespace pf::graphics::codec
