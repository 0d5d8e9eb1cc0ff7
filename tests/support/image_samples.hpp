// Images in every format the decoders read, encoded by the formats' own libraries (BMP by hand),
// for tests that need real files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codec/png.hpp"

namespace test_images {

using pf::graphics::codec::RgbaPixels;

// A w x h image whose pixels are all different (alpha included when `alpha`).
RgbaPixels pattern(std::uint32_t width, std::uint32_t height, bool alpha = false);
// The left half one colour, the right half another; opaque.
RgbaPixels halves(std::uint32_t width, std::uint32_t height, std::uint32_t left,
                  std::uint32_t right);

// `orientation` > 0 adds an EXIF APP1 segment holding it.
std::string jpeg(RgbaPixels const& pixels, int quality = 95, int orientation = 0);
std::string webpLossless(RgbaPixels const& pixels);
std::string webpLossy(RgbaPixels const& pixels, float quality = 90);
std::string webpAnimation(std::vector<RgbaPixels> const& frames);
// Colours must number 256 at most; the first colour of `transparent` (if any) is transparent.
std::string gif(std::vector<RgbaPixels> const& frames, bool interlaced = false);
std::string tiff(RgbaPixels const& pixels);
std::string bmp24(RgbaPixels const& pixels);
std::string bmp32BitFields(RgbaPixels const& pixels);  // V5 header, top-down, with alpha
std::string bmp8(RgbaPixels const& pixels);            // palette of the image's colours

}  // namespace test_images
