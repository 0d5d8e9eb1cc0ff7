// Growing a std::string whose new bytes the caller is about to write anyway. resize() fills
// them with zeros first; for texts of many megabytes that fill is a whole extra pass over
// memory. Internal to the library.
#pragma once

#include <cstddef>
#include <string>

namespace fl::strings {

// Sets the size of `text` to `size`. Bytes below the old size keep their values. With
// libstdc++, bytes from the old size on hold whatever the buffer held, and the caller must
// write each one before anything reads it; elsewhere they are zeros.
void grow_uninitialized(std::string& text, std::size_t size);
// The same for UTF-16 text (units rather than bytes).
void grow_uninitialized(std::u16string& text, std::size_t size);

// Backs a fresh large buffer with huge pages where the kernel allows and faults it in with one
// call instead of one trap per page; the contents stay as they are. Buffers under 512 KiB are
// left alone. Only an optimization: a kernel without either just says no.
void prefault(void* data, std::size_t size) noexcept;

}  // namespace fl::strings
