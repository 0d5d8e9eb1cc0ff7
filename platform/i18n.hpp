// fl::i18n: conversion between the service's UTF-8 strings and the platform's UTF-16 strings,
// and the ASCII character classes of the JSON reader.
//
// Both directions are correct for all of Unicode, surrogate pairs included. Malformed input
// never throws: a byte sequence that is not valid UTF-8 (a stray continuation byte, a truncated
// sequence, an overlong form, an encoded surrogate, a code point above U+10FFFF) becomes one
// U+FFFD per maximal invalid subpart, and an unpaired UTF-16 surrogate becomes U+FFFD.
#pragma once

#include <string>

namespace fl::i18n {

std::u16string to_ustring(std::string const& utf8);

std::string ustring_to_utf8(std::u16string const& utf16);

// Reads up to the first NUL code unit; a null pointer gives the empty string.
std::string ustring_to_utf8(char16_t const* utf16);

namespace lcctype {

// Space, horizontal tab, line feed, vertical tab, form feed, carriage return.
constexpr bool isspace_ascii(char32_t c) {
  return c == U' ' || (c >= U'\t' && c <= U'\r');
}

constexpr bool isdigit_ascii(char32_t c) {
  return c >= U'0' && c <= U'9';
}

}  // namespace lcctype
}  // namespace fl::i18n
