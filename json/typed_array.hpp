// Typed arrays: the integers of a "qvdata" array read straight into Values, and the rule by
// which the reader's arrays make room for one more element. Shared by the reader's files only.
#pragma once

#include <string_view>

#include "json/value.hpp"

namespace foundation::json::reading {

enum class TypeGroup { none, signed_integer, unsigned_integer };

// The group of an integer type name (int8..int64, uint8..uint64); none for anything else.
TypeGroup type_group(std::string_view name);

// A typed array at pos: int64 elements when Signed, else uint64, each a plain decimal integer
// saturated at the limits of its type. out is written only on success.
template <bool Signed>
int read_typed_array(char const*& pos, char const* end, bool comments, Array& out);

// std::vector would copy Values when it grows (their move may allocate, so it is not
// noexcept); strings and scalars move for free, so grow by hand.
void grow(Array& values);

inline void make_room(Array& values) {
  if (values.size() == values.capacity()) {
    if (values.capacity() == 0) {
      values.reserve(4);  // most arrays in requests are short: one allocation
    } else {
      grow(values);
    }
  }
}

}  // namespace foundation::json::reading
