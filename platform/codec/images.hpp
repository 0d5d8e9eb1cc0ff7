// Decoders of the raster formats other programs put on a clipboard besides PNG: JPEG
// (libjpeg-turbo), WebP (libwebp), GIF (giflib), TIFF (libtiff) and BMP. Each gives 8-bit RGBA
// pixels, which PFImage::fromRgba encodes to PNG when PNG is asked for. Pure functions; shared by
// every backend that reads other programs' images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/codec/png.hpp"

namespace pf::graphics::codec {

// The pixels an image may decode to: the side limit of PNG, and at most 1 GiB of RGBA (a side
// of 32768 alone would allow 4 GiB). Metadata is skipped as it is read, never kept (EXIF is
// looked at in the input bytes); libtiff's own allocations are capped at the same budget.
constexpr std::uint64_t kMaxDecodedBytes = std::uint64_t{1} << 30;

enum class ImageFormat { unknown, png, jpeg, gif, webp, tiff, bmp };

// The format the bytes' own signature names (never the type they were offered under).
ImageFormat sniff_image_format(void const* data, std::size_t size) noexcept;
// The format a mime type names (image/jpeg, image/x-bmp, ...); unknown for others, SVG included.
ImageFormat image_format_of_mime(std::string_view mime) noexcept;
char const* image_format_name(ImageFormat format) noexcept;

// Throws std::invalid_argument when an image of that size is empty, has a side over
// kPngMaxSide or would take more than `max_bytes` of RGBA.
void check_image_size(std::uint64_t width, std::uint64_t height, char const* format,
                      std::uint64_t max_bytes = kMaxDecodedBytes);

// Each throws std::invalid_argument ("JPEG: ...") for bytes that are not a whole, valid image
// of its format or that exceed the limits above; `max_bytes` lowers the RGBA budget (a caller
// with less memory to spare, the fuzz target).
RgbaPixels jpeg_decode_rgba(void const* data, std::size_t size,  // EXIF orientation applied
                            std::uint64_t max_bytes = kMaxDecodedBytes);
RgbaPixels webp_decode_rgba(void const* data, std::size_t size,  // an animation's first frame
                            std::uint64_t max_bytes = kMaxDecodedBytes);
RgbaPixels gif_decode_rgba(void const* data, std::size_t size,  // the first frame
                           std::uint64_t max_bytes = kMaxDecodedBytes);
RgbaPixels tiff_decode_rgba(void const* data, std::size_t size,  // the first page
                            std::uint64_t max_bytes = kMaxDecodedBytes);
RgbaPixels bmp_decode_rgba(void const* data, std::size_t size,
                           std::uint64_t max_bytes = kMaxDecodedBytes);

// Decodes by the signature; PNG included (PNG has only its side limit). Throws
// std::invalid_argument for anything else.
RgbaPixels decode_image_rgba(void const* data, std::size_t size,
                             std::uint64_t max_bytes = kMaxDecodedBytes);

// The EXIF orientation (1 to 8) of a JPEG's APP1 segment; 1 when there is none or it is bad.
int jpeg_exif_orientation(void const* data, std::size_t size) noexcept;
// The pixels turned as an EXIF orientation says, so that they show upright (1 keeps them).
RgbaPixels apply_exif_orientation(RgbaPixels pixels, int orientation);

}  // namespace pf::graphics::codec
