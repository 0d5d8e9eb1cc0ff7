// Image codecs: base64 against OpenSSL's block functions and memcpy, PNG encoding against libpng
// at its defaults and libspng at level 1 without filters, PNG validation against a full decode,
// and JPEG and WebP screenshots read as image/png (decoded, then encoded to PNG).
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <png.h>
#include <spng.h>
#include <turbojpeg.h>
#include <webp/encode.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/codec/base64.hpp"
#include "platform/codec/images.hpp"
#include "platform/codec/png.hpp"
#include "platform/formats/derived_formats.hpp"
#include "platform/graphics.hpp"

namespace codec = pf::graphics::codec;

namespace {

constexpr std::size_t kBase64Size = std::size_t{32} << 20;
constexpr std::uint32_t kShotWidth = 3840;
constexpr std::uint32_t kShotHeight = 2160;

std::vector<unsigned char> const& random_block() {
  static std::vector<unsigned char> const data = [] {
    std::vector<unsigned char> d(kBase64Size);
    std::mt19937_64 gen(42);
    for (std::size_t i = 0; i < d.size(); i += 8) {
      std::uint64_t const r = gen();
      std::memcpy(&d[i], &r, 8);
    }
    return d;
  }();
  return data;
}

// 32 MiB of base64 text (24 MiB of data), without line breaks as OpenSSL's block decoder wants.
std::string const& base64_block() {
  static std::string const text = [] {
    auto const& d = random_block();
    return codec::base64_encode(d.data(), kBase64Size / 4 * 3);
  }();
  return text;
}

// A desktop screenshot stand-in: a gradient title bar, flat panels, rows of anti-aliased glyphs
// from a small font in a few syntax colours, and a picture panel with a 2-D gradient.
std::vector<std::uint8_t> make_screenshot(std::uint32_t w, std::uint32_t h) {
  std::vector<std::uint8_t> px(std::size_t{w} * h * 4);
  auto put = [&](std::uint32_t x, std::uint32_t y, std::uint32_t rgb) {
    auto* p = &px[(std::size_t{y} * w + x) * 4];
    p[0] = rgb >> 16 & 0xFF;
    p[1] = rgb >> 8 & 0xFF;
    p[2] = rgb & 0xFF;
    p[3] = 0xFF;
  };
  auto fill = [&](std::uint32_t x0, std::uint32_t y0, std::uint32_t x1, std::uint32_t y1,
                  std::uint32_t rgb) {
    for (std::uint32_t y = y0; y < y1 && y < h; ++y) {
      for (std::uint32_t x = x0; x < x1 && x < w; ++x)
        put(x, y, rgb);
    }
  };
  std::uint32_t seed = 12345;
  auto rnd = [&] {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
  };
  fill(0, 0, w, h, 0xF3F3F3);
  for (std::uint32_t y = 0; y < 40 && y < h; ++y) {
    for (std::uint32_t x = 0; x < w; ++x) {
      std::uint32_t const t = x * 255 / w;
      put(x, y, (0x30 + t / 3) << 16 | 0x50 << 8 | (0xC0 - t / 4));
    }
  }
  std::uint32_t const side = w / 12;
  fill(0, 40, side, h, 0x2B2B2B);
  fill(side, 40, w, h, 0xFFFFFF);
  std::uint8_t font[64][14][8];
  for (auto& glyph : font) {
    for (auto& row : glyph) {
      for (auto& c : row) {
        std::uint32_t const r = rnd() % 10;
        c = r < 6 ? 0 : r < 8 ? 255 : static_cast<std::uint8_t>(64 + rnd() % 160);
      }
    }
  }
  std::uint32_t const palette[] = {0x202020, 0x0000C0, 0x008000, 0xA31515, 0x795E26, 0x267F99};
  auto text = [&](std::uint32_t x0, std::uint32_t x1, std::uint32_t y0, std::uint32_t y1,
                  std::uint32_t bg, bool light) {
    for (std::uint32_t y = y0; y + 14 < y1; y += 20) {
      std::uint32_t x = x0 + (rnd() % 6) * 16;
      std::uint32_t const end = x0 + (x1 - x0) * (30 + rnd() % 70) / 100;
      while (x + 8 < end) {
        std::uint32_t const fg = light ? 0xD4D4D4 : palette[rnd() % 6];
        std::uint32_t const len = 2 + rnd() % 9;
        for (std::uint32_t k = 0; k < len && x + 8 < end; ++k, x += 8) {
          auto const& g = font[rnd() % 64];
          for (int gy = 0; gy < 14; ++gy) {
            for (int gx = 0; gx < 8; ++gx) {
              std::uint32_t const a = g[gy][gx];
              std::uint32_t rgb = 0;
              for (int s = 0; s < 24; s += 8) {
                rgb |= (((fg >> s & 0xFF) * a + (bg >> s & 0xFF) * (255 - a)) / 255) << s;
              }
              put(x + gx, y + gy, rgb);
            }
          }
        }
        x += 8;
      }
    }
  };
  std::uint32_t const gx0 = w * 2 / 3, gy0 = h / 5, gx1 = w - 40, gy1 = h * 3 / 5;
  text(8, side - 8, 50, h, 0x2B2B2B, true);
  text(side + 20, gx0 - 20, 50, h, 0xFFFFFF, false);
  text(gx0, gx1, gy1 + 20, h, 0xFFFFFF, false);
  for (std::uint32_t y = gy0; y < gy1; ++y) {
    for (std::uint32_t x = gx0; x < gx1; ++x) {
      std::uint32_t const u = (x - gx0) * 255 / (gx1 - gx0), v = (y - gy0) * 255 / (gy1 - gy0);
      put(x, y, u << 16 | v << 8 | (255 - (u + v) / 2));
    }
  }
  return px;
}

std::vector<std::uint8_t> const& screenshot() {
  static std::vector<std::uint8_t> const px = make_screenshot(kShotWidth, kShotHeight);
  return px;
}

// ---- base64 ----------------------------------------------------------------------------------

void BM_Base64Encode_Ours(benchmark::State& state) {
  auto const& in = random_block();
  std::vector<char> out(codec::base64_encoded_size(in.size()));
  for (auto _ : state) {
    codec::base64_encode_to(in.data(), in.size(), out.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

void BM_Base64Encode_OursString(benchmark::State& state) {
  auto const& in = random_block();
  for (auto _ : state) {
    std::string out = codec::base64_encode(in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

void BM_Base64Encode_OpenSSL(benchmark::State& state) {
  auto const& in = random_block();
  std::vector<unsigned char> out(codec::base64_encoded_size(in.size()) + 1);  // + NUL
  for (auto _ : state) {
    int const n = EVP_EncodeBlock(out.data(), in.data(), static_cast<int>(in.size()));
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

// With a fresh output buffer per call, as an API that returns its result pays for.
void BM_Base64Encode_OpenSSLFreshBuffer(benchmark::State& state) {
  auto const& in = random_block();
  for (auto _ : state) {
    std::unique_ptr<unsigned char[]> out(
        new unsigned char[codec::base64_encoded_size(in.size()) + 1]);
    int const n = EVP_EncodeBlock(out.get(), in.data(), static_cast<int>(in.size()));
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(out.get());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

void BM_Base64Decode_Ours(benchmark::State& state) {
  auto const& text = base64_block();
  std::vector<std::byte> out(codec::base64_decoded_capacity(text.size()));
  for (auto _ : state) {
    std::size_t const n = codec::base64_decode_to(text, out.data());
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Base64Decode_OursVector(benchmark::State& state) {
  auto const& text = base64_block();
  for (auto _ : state) {
    std::vector<std::byte> out = codec::base64_decode(text);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Base64Decode_OursWrapped76(benchmark::State& state) {
  // MIME-style line breaks every 76 characters take the character-by-character path.
  auto const& flat = base64_block();
  std::string text;
  text.reserve(flat.size() + flat.size() / 38);
  for (std::size_t i = 0; i < flat.size(); i += 76)
    text.append(flat, i, 76).append("\r\n");
  std::vector<std::byte> out(codec::base64_decoded_capacity(text.size()));
  for (auto _ : state) {
    std::size_t const n = codec::base64_decode_to(text, out.data());
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Base64Decode_OpenSSLFreshBuffer(benchmark::State& state) {
  auto const& text = base64_block();
  for (auto _ : state) {
    std::unique_ptr<unsigned char[]> out(
        new unsigned char[codec::base64_decoded_capacity(text.size())]);
    int const n = EVP_DecodeBlock(out.get(), reinterpret_cast<unsigned char const*>(text.data()),
                                  static_cast<int>(text.size()));
    if (n < 0)
      state.SkipWithError("EVP_DecodeBlock failed");
    benchmark::DoNotOptimize(out.get());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Base64Decode_OpenSSL(benchmark::State& state) {
  auto const& text = base64_block();
  std::vector<unsigned char> out(codec::base64_decoded_capacity(text.size()));
  for (auto _ : state) {
    int const n = EVP_DecodeBlock(out.data(), reinterpret_cast<unsigned char const*>(text.data()),
                                  static_cast<int>(text.size()));
    if (n < 0)
      state.SkipWithError("EVP_DecodeBlock failed");
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Memcpy(benchmark::State& state) {
  auto const& in = random_block();
  std::vector<unsigned char> out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

BENCHMARK(BM_Base64Encode_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Encode_OursString)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Encode_OpenSSL)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Encode_OpenSSLFreshBuffer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Decode_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Decode_OursVector)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Decode_OursWrapped76)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Decode_OpenSSL)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Decode_OpenSSLFreshBuffer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

// ---- PNG encoding ----------------------------------------------------------------------------

void png_append(png_structp png, png_bytep data, png_size_t size) {
  auto* out = static_cast<std::vector<unsigned char>*>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + size);
}

void png_no_flush(png_structp) {}

std::vector<unsigned char> libpng_encode_default(std::vector<std::uint8_t> const& px,
                                                 std::uint32_t w, std::uint32_t h) {
  std::vector<unsigned char> out;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw std::runtime_error("libpng failed");
  }
  png_set_write_fn(png, &out, png_append, png_no_flush);
  png_set_IHDR(png, info, w, h, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (std::uint32_t y = 0; y < h; ++y) {
    png_write_row(png, const_cast<png_bytep>(&px[std::size_t{y} * w * 4]));
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return out;
}

// libspng on RGBA; level < 0 keeps libspng's defaults.
std::size_t spng_encode_rgba(std::vector<std::uint8_t> const& px, std::uint32_t w, std::uint32_t h,
                             int level) {
  spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
  spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
  spng_ihdr ihdr{w, h, 8, SPNG_COLOR_TYPE_TRUECOLOR_ALPHA, 0, 0, 0};
  spng_set_ihdr(ctx, &ihdr);
  if (level >= 0) {
    spng_set_option(ctx, SPNG_IMG_COMPRESSION_LEVEL, level);
    spng_set_option(ctx, SPNG_FILTER_CHOICE, SPNG_DISABLE_FILTERING);
  }
  int const rc = spng_encode_image(ctx, px.data(), px.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
  std::size_t size = 0;
  int error = 0;
  void* buffer = rc == 0 ? spng_get_png_buffer(ctx, &size, &error) : nullptr;
  std::free(buffer);
  spng_ctx_free(ctx);
  if (rc != 0 || error != 0)
    throw std::runtime_error("libspng failed");
  return size;
}

std::size_t libpng_default_size() {
  static std::size_t const size =
      libpng_encode_default(screenshot(), kShotWidth, kShotHeight).size();
  return size;
}

void report_png(benchmark::State& state, std::size_t size) {
  state.counters["png_bytes"] = static_cast<double>(size);
  state.counters["size_vs_libpng"] =
      static_cast<double>(size) / static_cast<double>(libpng_default_size());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * screenshot().size()));
}

void BM_PngEncode_Ours(benchmark::State& state) {
  auto const& px = screenshot();
  std::size_t size = 0;
  for (auto _ : state) {
    auto png = codec::png_encode_rgba(kShotWidth, kShotHeight, px.data(), px.size());
    size = png.size();
    benchmark::DoNotOptimize(png.data());
  }
  report_png(state, size);
}

void BM_PngEncode_LibpngDefault(benchmark::State& state) {
  auto const& px = screenshot();
  std::size_t size = 0;
  for (auto _ : state) {
    auto png = libpng_encode_default(px, kShotWidth, kShotHeight);
    size = png.size();
    benchmark::DoNotOptimize(png.data());
  }
  report_png(state, size);
}

void BM_PngEncode_SpngDefault(benchmark::State& state) {
  auto const& px = screenshot();
  std::size_t size = 0;
  for (auto _ : state)
    size = spng_encode_rgba(px, kShotWidth, kShotHeight, -1);
  report_png(state, size);
}

void BM_PngEncode_SpngLevel1NoFilter(benchmark::State& state) {
  auto const& px = screenshot();
  std::size_t size = 0;
  for (auto _ : state)
    size = spng_encode_rgba(px, kShotWidth, kShotHeight, 1);
  report_png(state, size);
}

// The floor: one copy of the screenshot's pixels.
void BM_MemcpyOfScreenshot(benchmark::State& state) {
  auto const& px = screenshot();
  std::vector<std::uint8_t> out(px.size());
  for (auto _ : state) {
    std::memcpy(out.data(), px.data(), px.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * px.size()));
}

BENCHMARK(BM_PngEncode_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_PngEncode_LibpngDefault)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_PngEncode_SpngDefault)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_PngEncode_SpngLevel1NoFilter)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_MemcpyOfScreenshot)->Unit(benchmark::kMillisecond);

// ---- Other formats read as PNG ----------------------------------------------------------------

// The screenshot as a screenshot tool or viewer would offer it: JPEG at quality 90 (4:2:0),
// lossy WebP at quality 90.
std::string const& screenshot_jpeg() {
  static std::string const bytes = [] {
    tjhandle handle = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    if (tjCompress2(handle, screenshot().data(), kShotWidth, 0, kShotHeight, TJPF_RGBA, &out, &size,
                    TJSAMP_420, 90, 0) != 0) {
      throw std::runtime_error("JPEG encoding failed");
    }
    std::string jpeg(reinterpret_cast<char*>(out), size);
    tjFree(out);
    tjDestroy(handle);
    return jpeg;
  }();
  return bytes;
}

std::string const& screenshot_webp() {
  static std::string const bytes = [] {
    std::uint8_t* out = nullptr;
    std::size_t const size =
        WebPEncodeRGBA(screenshot().data(), kShotWidth, kShotHeight, kShotWidth * 4, 90, &out);
    if (size == 0)
      throw std::runtime_error("WebP encoding failed");
    std::string webp(reinterpret_cast<char*>(out), size);
    WebPFree(out);
    return webp;
  }();
  return bytes;
}

// What a read of image/png does for an owner that offers only `type`, and the front end's
// request for its PNG bytes after it.
void to_png(benchmark::State& state, char const* type, std::string const& bytes) {
  std::size_t size = 0;
  for (auto _ : state) {
    auto const content = pf::clipboard::formats::derivedContent("image/png", type, bytes);
    auto const& image = std::get<std::shared_ptr<pf::graphics::PFGraphics>>(content);
    auto png = image->encode(pf::graphics::kEncodePng, pf::graphics::kEncodeRaw, {});
    size = png->bytes.size();
    benchmark::DoNotOptimize(png->bytes.data());
  }
  state.counters["input_bytes"] = static_cast<double>(bytes.size());
  state.counters["png_bytes"] = static_cast<double>(size);
}

void decode_only(benchmark::State& state, std::string const& bytes) {
  for (auto _ : state) {
    auto pixels = codec::decode_image_rgba(bytes.data(), bytes.size());
    benchmark::DoNotOptimize(pixels.rgba.data());
  }
}

void BM_JpegToPng_Ours(benchmark::State& state) {
  to_png(state, "image/jpeg", screenshot_jpeg());
}
void BM_JpegDecode_Ours(benchmark::State& state) {
  decode_only(state, screenshot_jpeg());
}
void BM_WebpToPng_Ours(benchmark::State& state) {
  to_png(state, "image/webp", screenshot_webp());
}
void BM_WebpDecode_Ours(benchmark::State& state) {
  decode_only(state, screenshot_webp());
}

BENCHMARK(BM_JpegToPng_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_JpegDecode_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_WebpToPng_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_WebpDecode_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// ---- PNG in: validation and the whole base64 -> image path --------------------------------------

std::vector<std::byte> const& screenshot_png() {
  static std::vector<std::byte> const png =
      codec::png_encode_rgba(kShotWidth, kShotHeight, screenshot().data(), screenshot().size());
  return png;
}

void BM_PngValidate_Ours(benchmark::State& state) {
  auto const& png = screenshot_png();
  for (auto _ : state) {
    auto info = codec::png_validate(png.data(), png.size());
    benchmark::DoNotOptimize(info);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * png.size()));
}

void BM_PngDecodeRgba_Ours(benchmark::State& state) {
  auto const& png = screenshot_png();
  for (auto _ : state) {
    auto pixels = codec::png_decode_rgba(png.data(), png.size());
    benchmark::DoNotOptimize(pixels.rgba.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * png.size()));
}

void BM_ImageFromBase64(benchmark::State& state) {
  std::string const text = "," + codec::base64_encode(screenshot_png());
  for (auto _ : state) {
    auto image = pf::graphics::constructPFGraphicsFromBase64(text);
    benchmark::DoNotOptimize(image.get());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

BENCHMARK(BM_PngValidate_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PngDecodeRgba_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImageFromBase64)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
