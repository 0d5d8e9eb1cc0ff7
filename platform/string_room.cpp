#include "platform/string_room.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace fl::strings {

#if defined(__GLIBCXX__) && _GLIBCXX_USE_CXX11_ABI

// libstdc++ sets a string's length (and its terminating NUL) without touching the bytes before
// it in a private member function. An explicit instantiation may name a private member, and
// the friend it defines hands the member out.
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

template <class String>
void grow(String& text, std::size_t size) {
  if (size <= text.size()) {
    text.resize(size);
    return;
  }
  text.reserve(size);
  (text.*set_length_member(static_cast<String*>(nullptr)))(size);
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
