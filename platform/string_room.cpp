#include "platform/string_room.hpp"

namespace fl::strings {

#if defined(__GLIBCXX__) && _GLIBCXX_USE_CXX11_ABI

// libstdc++ sets a string's length (and its terminating NUL) without touching the bytes before
// it in a private member function. An explicit instantiation may name a private member, and
// the friend it defines hands the member out.
namespace {

using SetLength = void (std::string::*)(std::string::size_type);

SetLength set_length_member();

template <SetLength kMember>
struct SetLengthKey {
  friend SetLength set_length_member() { return kMember; }
};

template struct SetLengthKey<&std::string::_M_set_length>;

}  // namespace

void grow_uninitialized(std::string& text, std::size_t size) {
  if (size <= text.size()) {
    text.resize(size);
    return;
  }
  text.reserve(size);
  (text.*set_length_member())(size);
}

#else

void grow_uninitialized(std::string& text, std::size_t size) {
  text.resize(size);
}

#endif

}  // namespace fl::strings
