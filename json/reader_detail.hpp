// Helpers of the JSON reader: byte ranges to strings, number text to double, UTF-16 to UTF-8.
#pragma once

#include <string>

namespace foundation::json::detail {

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

}  // namespace foundation::json::detail
