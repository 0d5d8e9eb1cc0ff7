// foundation::json: the pieces of the JSON library that the service calls.
//
// The value type itself lives in json/value.hpp; this header only needs its name.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace foundation::json {

class Value;

// The two payload-free kinds. Their default constructors are user-provided on purpose: it keeps
// them from being taken as the never-empty fallback of the variant, so that a kind-changing
// assignment that fails leaves a Value of kind bool.
struct Undefined {
  Undefined() {}
};
struct Null {
  Null() {}
};

inline bool operator==(Undefined, Undefined) {
  return true;
}
inline bool operator==(Null, Null) {
  return true;
}

// Display name of each kind, used in the "invalid conversion: " message of the getters.
template <class T>
struct traits;

template <>
struct traits<Undefined> {
  static char const* const name;
};
template <>
struct traits<Null> {
  static char const* const name;
};
template <>
struct traits<bool> {
  static char const* const name;
};
template <>
struct traits<double> {
  static char const* const name;
};
template <>
struct traits<std::string> {
  static char const* const name;
};
template <>
struct traits<std::vector<Value>> {
  static char const* const name;
};
template <>
struct traits<std::map<std::string, Value>> {
  static char const* const name;
};
template <>
struct traits<float> {
  static char const* const name;
};
template <>
struct traits<long> {
  static char const* const name;
};
template <>
struct traits<unsigned long> {
  static char const* const name;
};

// JSON text of a Value. The text is always valid JSON that a strict parser accepts:
//  - strings: '"', '\\' and every control character below U+0020 are escaped; bytes that are not
//    valid UTF-8 (overlong forms, surrogates, code points above U+10FFFF, truncated sequences)
//    are each replaced by U+FFFD;
//  - double and float: shortest text that reads back to the same value, independent of the
//    locale; NaN and the infinities are written as null;
//  - int64 and uint64: exact decimal;
//  - Undefined and Null: null;
//  - objects in the map's (byte-wise) key order; no white space anywhere.
std::string serialize(Value const& value);

namespace detail {

// The bytes of [first, last) as a string.
std::string get_utf8_string(char const* first, char const* last);

// Decimal number text (JSON number syntax, "." as the point) to the nearest double, independent
// of the locale. Reads up to the first byte that cannot continue a number; text that starts no
// number gives 0. Magnitudes beyond the double range give +-infinity, underflow gives +-0.
double string_to_double(char const* text);

// One code point given as one or two UTF-16 code units (count 1 or 2) to UTF-8. A high
// surrogate followed by a low one gives the four-byte form of the pair; an unpaired or
// mismatched surrogate becomes U+FFFD (and the second unit, when it is not a low surrogate, is
// converted on its own).
std::string u16_to_u8(char16_t const* units, int count);

}  // namespace detail
}  // namespace foundation::json
