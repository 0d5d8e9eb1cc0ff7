// foundation::json reader: request text to Values.
//
// A JSON dialect read with these rules:
//  - a request is an object that starts at the very first byte; nothing after its closing brace
//    is looked at;
//  - a value is tried as string, number, object, array, boolean, null in that order; when all
//    fail, the code of the one that got furthest into the text is reported (the earlier one on a
//    tie), so a byte that starts nothing reports expected_string;
//  - every plain number is a double;
//  - in any object, a "qvtype" member naming an integer type (int8..int64, uint8..uint64) makes
//    the "qvdata" member of the same object an array of int64 (signed names) or uint64
//    (unsigned names) read with saturation, whichever of the two comes first;
//  - of two members with the same key the first stays.
//
// Every function reads from pos (advanced as it reads, left where a failure was found) up to
// end, never beyond, and needs no terminating NUL. The output is written only on success.
// No exception is thrown for malformed text; allocation failures propagate, except while
// reading a "qvdata" value, where they give unexpected_end.
//
// Nesting of "[" and "{" is bounded by max_nesting_depth: deeper text gives too_deep instead of
// running out of stack.
#pragma once

#include <string>
#include <string_view>

#include "json/value.hpp"

namespace foundation::json {

namespace read_result {
inline constexpr int ok = 0;
// Mismatch codes handed to match_literal by the null and boolean alternatives.
inline constexpr int not_null = 1;
inline constexpr int not_boolean = 2;
// A \u escape with a non-hex digit, or a high surrogate not followed by a second \u escape.
inline constexpr int bad_unicode_escape = 5;
inline constexpr int bad_escape = 6;
// Also what a value that starts no alternative at all gives.
inline constexpr int expected_string = 8;
inline constexpr int expected_digit = 11;
inline constexpr int expected_fraction_digit = 12;
inline constexpr int expected_exponent_digit = 13;
inline constexpr int expected_array = 14;
inline constexpr int expected_comma_or_bracket = 15;
inline constexpr int expected_object = 16;
inline constexpr int expected_comma_or_brace = 17;
inline constexpr int expected_colon = 18;
inline constexpr int unexpected_end = 19;
// An element of a typed ("qvdata") array that is not a plain decimal integer.
inline constexpr int bad_typed_element = 20;
// More than max_nesting_depth arrays and objects open at once.
inline constexpr int too_deep = 21;
}  // namespace read_result

// Arrays and objects nested deeper than this give read_result::too_deep. Real requests nest a
// handful of levels. At the limit the reader uses about 0.25 MiB of stack in an optimised build
// and about 0.7 MiB under AddressSanitizer, well inside a default 8 MiB thread stack. Each call
// of parse_object, parse_value, parse_array or parse_typed_data counts from its own start.
inline constexpr int max_nesting_depth = 512;

// The entry point for a request: an object starting exactly at pos. On success out is replaced
// by the members read.
int parse_object(char const*& pos, char const* end, bool comments, Object& out);

int parse_value(char const*& pos, char const* end, bool comments, Value& out);

int parse_array(char const*& pos, char const* end, bool comments, Array& out);

// A quoted string with JSON escapes; the bytes between are taken as they are.
int parse_string(char const*& pos, char const* end, std::string& out);

// Moves pos over a number; the value is converted by the caller.
int scan_number(char const*& pos, char const* end);

// Gives mismatch when the text differs from literal, unexpected_end when the text is empty or
// a cut-off beginning of literal; pos moves only on success.
int match_literal(char const*& pos, char const* end, std::string_view literal, int mismatch);

// Four hexadecimal digits as one UTF-16 code unit.
int parse_hex4(char const*& pos, char const* end, char16_t& out);

// Skips white space and, with comments on, /* */ and // comments as well; a comment that the
// end of the text cuts off reaches to the end.
void skip_space(char const*& pos, char const* end, bool comments);

// A "qvdata" value under the pending type name: a signed type name reads an int64 array, an
// unsigned one a uint64 array, anything else (the empty name) a plain value.
int parse_typed_data(char const*& pos, char const* end, bool comments, std::string const& type_name,
                     Value& out);

int parse_int64_array(char const*& pos, char const* end, bool comments, Array& out);
int parse_uint64_array(char const*& pos, char const* end, bool comments, Array& out);

// True for the eight integer type names.
bool is_type_name(std::string_view name);

}  // namespace foundation::json
