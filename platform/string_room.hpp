// Growing a std::string whose new bytes the caller is about to write anyway. resize() fills
// them with zeros first; for texts of many megabytes that fill is a whole extra pass over
// memory. Internal to the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fl::strings {

namespace detail {

#if defined(__GLIBCXX__) && _GLIBCXX_USE_CXX11_ABI
// libstdc++ sets a string's length (and its terminating NUL) without touching the bytes before
// it in a private member function. An explicit instantiation may name a private member, and
// the friend it defines hands the member out. Each file that includes this has its own copy
// (unnamed namespace), so the explicit instantiations never meet.
namespace {

template <class String>
using SetLength = void (String::*)(typename String::size_type);

SetLength<std::string> set_length_member(std::string*);
SetLength<std::u16string> set_length_member(std::u16string*);

template <class String, SetLength<String> kMember>
struct SetLengthKey {
  friend SetLength<String> set_length_member(String*) { return kMember; }
};

template struct SetLengthKey<std::string, &std::string::_M_set_length>;
template struct SetLengthKey<std::u16string, &std::u16string::_M_set_length>;

// The length setter itself: size must be within the capacity.
template <class String>
inline void set_length(String& text, typename String::size_type size) {
  (text.*set_length_member(static_cast<String*>(nullptr)))(size);
}

}  // namespace
#define FL_STRINGS_HAVE_SET_LENGTH 1
#endif

// Copies size (at most 16) bytes with at most two loads and two stores of a fixed width,
// which overlap when size is not a power of two; memcpy with a size known only at run time
// is a call.
inline void copy_short(char* to, char const* from, std::size_t size) {
  if (size >= 8) {
    std::uint64_t head;
    std::uint64_t tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + size - 8, 8);
    std::memcpy(to, &head, 8);
    std::memcpy(to + size - 8, &tail, 8);
  } else if (size >= 4) {
    std::uint32_t head;
    std::uint32_t tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + size - 4, 4);
    std::memcpy(to, &head, 4);
    std::memcpy(to + size - 4, &tail, 4);
  } else if (size != 0) {
    to[0] = from[0];
    to[size / 2] = from[size / 2];
    to[size - 1] = from[size - 1];
  }
}

}  // namespace detail

// Makes the empty string `text` hold the size bytes at bytes. Inline and without any call
// when they fit in the string itself (15 bytes with libstdc++), as most keys and short values
// of requests do: std::string's own constructor and assign call memcpy, and the call costs
// more than the copy.
inline void assign_short(std::string& text, char const* bytes, std::size_t size) {
#if defined(FL_STRINGS_HAVE_SET_LENGTH)
  if (size <= text.capacity() && size <= 16) {
    detail::copy_short(text.data(), bytes, size);
    detail::set_length(text, size);
    return;
  }
#endif
  text.assign(bytes, size);
}

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
