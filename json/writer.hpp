// foundation::json writer: a Value to its JSON text.
#pragma once

#include <string>

#include "json/value.hpp"

namespace foundation::json {

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

}  // namespace foundation::json
