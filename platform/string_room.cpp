#include "platform/string_room.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace fl::strings {

#if defined(FL_STRINGS_HAVE_SET_LENGTH)

namespace {

template <class String>
void grow(String& text, std::size_t size) {
  if (size <= text.size()) {
    text.resize(size);
    return;
  }
  text.reserve(size);
  detail::set_length(text, size);
}

}  // namespace

void grow_uninitialized(std::string& text, std::size_t size) {
  grow(text, size);
}

void grow_uninitialized(std::u16string& text, std::size_t size) {
  grow(text, size);
}

#else

void grow_uninitialized(std::string& text, std::size_t size) {
  text.resize(size);
}

void grow_uninitialized(std::u16string& text, std::size_t size) {
  text.resize(size);
}

#endif

void prefault(void* data, std::size_t size) noexcept {
  constexpr std::size_t kWorthIt = std::size_t{512} << 10;
  if (size < kWorthIt)
    return;
  auto const page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  auto const begin = (reinterpret_cast<std::uintptr_t>(data) + page - 1) & ~(page - 1);
  auto const end = (reinterpret_cast<std::uintptr_t>(data) + size) & ~(page - 1);
  if (end > begin) {
    ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
  }
}

}  // namespace fl::strings
