#include "image_samples.hpp"

#include <gif_lib.h>
#include <tiffio.h>
#include <turbojpeg.h>
#include <unistd.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace test_images {
namespace {

void put16(std::string& out, unsigned v) {
  out.push_back(static_cast<char>(v & 0xFF));
  out.push_back(static_cast<char>((v >> 8) & 0xFF));
}
void put32(std::string& out, std::uint32_t v) {
  for (int i = 0; i < 4; ++i)
    out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

std::string bmpFile(std::string const& dib, std::size_t pixelOffsetInDib) {
  std::string out = "BM";
  put32(out, static_cast<std::uint32_t>(14 + dib.size()));
  put32(out, 0);
  put32(out, static_cast<std::uint32_t>(14 + pixelOffsetInDib));
  return out + dib;
}

// A bottom-up BMP with a 40-byte header: 24-bit colour, or 8-bit indices into a palette of the
// image's colours.
std::string bmpBottomUp(RgbaPixels const& pixels, bool palette) {
  std::map<std::uint32_t, int> index;
  std::string table;
  for (std::size_t i = 0; palette && i < pixels.rgba.size(); i += 4) {
    std::uint32_t const c = pixels.rgba[i] << 16 | pixels.rgba[i + 1] << 8 | pixels.rgba[i + 2];
    if (index.emplace(c, static_cast<int>(index.size())).second) {
      table += {static_cast<char>(pixels.rgba[i + 2]), static_cast<char>(pixels.rgba[i + 1]),
                static_cast<char>(pixels.rgba[i]), '\0'};
    }
  }
  std::string dib;
  put32(dib, 40);
  put32(dib, pixels.width);
  put32(dib, pixels.height);  // positive: bottom-up
  put16(dib, 1);
  put16(dib, palette ? 8 : 24);
  for (int i = 0; i < 4; ++i)
    put32(dib, 0);
  put32(dib, static_cast<std::uint32_t>(index.size()));  // colours used
  put32(dib, 0);
  dib += table;
  std::size_t const offset = dib.size();
  std::size_t const stride = (pixels.width * (palette ? 1 : 3) + 3) / 4 * 4;
  for (std::uint32_t r = 0; r < pixels.height; ++r) {
    std::uint32_t const y = pixels.height - 1 - r;
    std::string row;
    for (std::uint32_t x = 0; x < pixels.width; ++x) {
      auto const* p = &pixels.rgba[(std::size_t{y} * pixels.width + x) * 4];
      if (palette)
        row.push_back(static_cast<char>(index.at(p[0] << 16 | p[1] << 8 | p[2])));
      else
        row += {static_cast<char>(p[2]), static_cast<char>(p[1]), static_cast<char>(p[0])};
    }
    row.resize(stride, '\0');
    dib += row;
  }
  return bmpFile(dib, offset);
}

int writeGif(GifFileType* gif, GifByteType const* bytes, int length) {
  static_cast<std::string*>(gif->UserData)
      ->append(reinterpret_cast<char const*>(bytes), static_cast<std::size_t>(length));
  return length;
}

}  // namespace

RgbaPixels pattern(std::uint32_t width, std::uint32_t height, bool alpha) {
  RgbaPixels p{width, height, std::vector<std::uint8_t>(std::size_t{width} * height * 4)};
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      auto* o = &p.rgba[(std::size_t{y} * width + x) * 4];
      o[0] = static_cast<std::uint8_t>(x * 37 + y * 11);
      o[1] = static_cast<std::uint8_t>(y * 53 + 7);
      o[2] = static_cast<std::uint8_t>(x * 5 + y * 91 + 3);
      o[3] = alpha ? static_cast<std::uint8_t>(255 - (x + y) * 13 % 200) : 255;
    }
  }
  return p;
}

RgbaPixels halves(std::uint32_t width, std::uint32_t height, std::uint32_t left,
                  std::uint32_t right) {
  RgbaPixels p{width, height, std::vector<std::uint8_t>(std::size_t{width} * height * 4)};
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      std::uint32_t const c = x < width / 2 ? left : right;
      auto* o = &p.rgba[(std::size_t{y} * width + x) * 4];
      o[0] = static_cast<std::uint8_t>(c >> 16);
      o[1] = static_cast<std::uint8_t>(c >> 8);
      o[2] = static_cast<std::uint8_t>(c);
      o[3] = 255;
    }
  }
  return p;
}

std::string jpeg(RgbaPixels const& pixels, int quality, int orientation) {
  tjhandle handle = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  int const rc =
      tjCompress2(handle, pixels.rgba.data(), static_cast<int>(pixels.width), 0,
                  static_cast<int>(pixels.height), TJPF_RGBA, &out, &size, TJSAMP_444, quality, 0);
  std::string bytes(reinterpret_cast<char*>(out), rc == 0 ? size : 0);
  tjFree(out);
  tjDestroy(handle);
  if (rc != 0)
    throw std::runtime_error("tjCompress2 failed");
  if (orientation > 0) {
    // APP1: "Exif\0\0", a little-endian TIFF header and IFD0 with the one orientation entry.
    std::string exif = std::string("Exif\0\0", 6) + "II";
    put16(exif, 42);
    put32(exif, 8);
    put16(exif, 1);
    put16(exif, 0x0112);
    put16(exif, 3);
    put32(exif, 1);
    put16(exif, static_cast<unsigned>(orientation));
    put16(exif, 0);
    put32(exif, 0);
    std::string segment = "\xFF\xE1";
    segment.push_back(static_cast<char>((exif.size() + 2) >> 8));
    segment.push_back(static_cast<char>((exif.size() + 2) & 0xFF));
    bytes.insert(2, segment + exif);
  }
  return bytes;
}

std::string webpLossless(RgbaPixels const& pixels) {
  std::uint8_t* out = nullptr;
  std::size_t const size = WebPEncodeLosslessRGBA(
      pixels.rgba.data(), static_cast<int>(pixels.width), static_cast<int>(pixels.height),
      static_cast<int>(pixels.width * 4), &out);
  std::string bytes(reinterpret_cast<char*>(out), size);
  WebPFree(out);
  return bytes;
}

std::string webpLossy(RgbaPixels const& pixels, float quality) {
  std::uint8_t* out = nullptr;
  std::size_t const size = WebPEncodeRGBA(pixels.rgba.data(), static_cast<int>(pixels.width),
                                          static_cast<int>(pixels.height),
                                          static_cast<int>(pixels.width * 4), quality, &out);
  std::string bytes(reinterpret_cast<char*>(out), size);
  WebPFree(out);
  return bytes;
}

std::string webpAnimation(std::vector<RgbaPixels> const& frames) {
  WebPAnimEncoderOptions options;
  WebPAnimEncoderOptionsInit(&options);
  auto const w = static_cast<int>(frames.at(0).width), h = static_cast<int>(frames.at(0).height);
  WebPAnimEncoder* encoder = WebPAnimEncoderNew(w, h, &options);
  WebPConfig config;
  WebPConfigInit(&config);
  config.lossless = 1;
  int timestamp = 0;
  for (auto const& frame : frames) {
    WebPPicture picture;
    WebPPictureInit(&picture);
    picture.use_argb = 1;
    picture.width = w;
    picture.height = h;
    WebPPictureImportRGBA(&picture, frame.rgba.data(), w * 4);
    WebPAnimEncoderAdd(encoder, &picture, timestamp, &config);
    WebPPictureFree(&picture);
    timestamp += 100;
  }
  WebPAnimEncoderAdd(encoder, nullptr, timestamp, nullptr);
  WebPData data;
  WebPDataInit(&data);
  WebPAnimEncoderAssemble(encoder, &data);
  std::string bytes(reinterpret_cast<char const*>(data.bytes), data.size);
  WebPDataClear(&data);
  WebPAnimEncoderDelete(encoder);
  return bytes;
}

std::string gif(std::vector<RgbaPixels> const& frames, bool interlaced) {
  std::map<std::uint32_t, int> index;
  std::vector<GifColorType> colors;
  for (auto const& frame : frames) {
    for (std::size_t i = 0; i < frame.rgba.size(); i += 4) {
      std::uint32_t const c = frame.rgba[i] << 16 | frame.rgba[i + 1] << 8 | frame.rgba[i + 2];
      if (index.emplace(c, static_cast<int>(colors.size())).second)
        colors.push_back({frame.rgba[i], frame.rgba[i + 1], frame.rgba[i + 2]});
    }
  }
  int size = 2;
  while (size < static_cast<int>(colors.size()))
    size *= 2;
  colors.resize(static_cast<std::size_t>(size));
  std::string out;
  int error = 0;
  GifFileType* gif = EGifOpen(&out, writeGif, &error);
  ColorMapObject* map = GifMakeMapObject(size, colors.data());
  auto const w = static_cast<int>(frames.at(0).width), h = static_cast<int>(frames.at(0).height);
  EGifSetGifVersion(gif, true);
  EGifPutScreenDesc(gif, w, h, 8, 0, map);
  for (auto const& frame : frames) {
    EGifPutImageDesc(gif, 0, 0, w, h, interlaced, nullptr);
    std::vector<GifPixelType> row(static_cast<std::size_t>(w));
    // Rows go out in the order the file stores them: interlaced in four passes.
    std::vector<int> order;
    for (auto const& [start, step] :
         interlaced ? std::vector<std::pair<int, int>>{{0, 8}, {4, 8}, {2, 4}, {1, 2}}
                    : std::vector<std::pair<int, int>>{{0, 1}}) {
      for (int y = start; y < h; y += step)
        order.push_back(y);
    }
    for (int y : order) {
      for (int x = 0; x < w; ++x) {
        auto const* p = &frame.rgba[(static_cast<std::size_t>(y) * w + x) * 4];
        row[static_cast<std::size_t>(x)] =
            static_cast<GifPixelType>(index.at(p[0] << 16 | p[1] << 8 | p[2]));
      }
      EGifPutLine(gif, row.data(), w);
    }
  }
  GifFreeMapObject(map);
  EGifCloseFile(gif, &error);
  return out;
}

std::string tiff(RgbaPixels const& pixels) {
  char name[] = "/tmp/image-sample-XXXXXX";
  int const fd = ::mkstemp(name);
  ::close(fd);
  TIFF* tif = TIFFOpen(name, "w");
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, pixels.width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, pixels.height);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 4);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  std::uint16_t const extra = EXTRASAMPLE_UNASSALPHA;
  TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, pixels.height);
  for (std::uint32_t y = 0; y < pixels.height; ++y) {
    TIFFWriteScanline(
        tif, const_cast<std::uint8_t*>(&pixels.rgba[std::size_t{y} * pixels.width * 4]), y, 0);
  }
  TIFFClose(tif);
  std::ifstream in(name, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  std::remove(name);
  return bytes;
}

std::string bmp24(RgbaPixels const& pixels) {
  return bmpBottomUp(pixels, false);
}

std::string bmp32BitFields(RgbaPixels const& pixels) {
  std::string dib;
  put32(dib, 124);
  put32(dib, pixels.width);
  put32(dib, static_cast<std::uint32_t>(-static_cast<std::int32_t>(pixels.height)));  // top-down
  put16(dib, 1);
  put16(dib, 32);
  put32(dib, 3);  // bit fields
  for (int i = 0; i < 5; ++i)
    put32(dib, 0);
  put32(dib, 0x000000FF);  // red in the lowest byte: not the usual order, on purpose
  put32(dib, 0x0000FF00);
  put32(dib, 0x00FF0000);
  put32(dib, 0xFF000000);
  dib.resize(124, '\0');
  for (std::size_t i = 0; i < pixels.rgba.size(); ++i)
    dib.push_back(static_cast<char>(pixels.rgba[i]));
  return bmpFile(dib, 124);
}

std::string bmp8(RgbaPixels const& pixels) {
  return bmpBottomUp(pixels, true);
}

}  // namespace test_images
