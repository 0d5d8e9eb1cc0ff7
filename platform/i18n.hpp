// fl::i18n: conversion between the service's UTF-8 strings and the platform's UTF-16 strings,
// and the ASCII character classes of the JSON reader. The one place that says what well-formed
// UTF-8 is: the conversions, the streaming decoder of the desktop backends, the validation and
// the JSON writer's string check are all built on the pieces in fl::i18n::utf8 below (the
// AVX-512 kernels of platform/simd/ check the same rules a block at a time).
//
// Both directions are correct for all of Unicode, surrogate pairs included. Malformed input
// never throws: a byte sequence that is not valid UTF-8 (a stray continuation byte, a truncated
// sequence, an overlong form, an encoded surrogate, a code point above U+10FFFF) becomes one
// U+FFFD per maximal invalid subpart, and an unpaired UTF-16 surrogate becomes U+FFFD.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace fl::i18n {

std::u16string to_ustring(std::string const& utf8);

std::string ustring_to_utf8(std::u16string const& utf16);

// Reads up to the first NUL code unit; a null pointer gives the empty string.
std::string ustring_to_utf8(char16_t const* utf16);

// Whether `bytes` is well-formed UTF-8 throughout.
bool is_valid_utf8(std::string_view bytes) noexcept;

// UTF-8 to UTF-16 fed piece by piece, so that large transfers are decoded as their chunks
// arrive; a sequence may straddle pieces. The result is the same as to_ustring of all the
// pieces joined, whatever the cuts.
class Utf8Decoder {
 public:
  // Appends the text of `bytes` to `out`. A sequence that `bytes` ends inside of is held back
  // for the next piece. Writes into room for bytes.size() + 2 more units, which the caller may
  // have reserved ahead.
  void feed(std::string_view bytes, std::u16string& out);
  // A sequence still held back becomes U+FFFD.
  void finish(std::u16string& out);

 private:
  unsigned char held_[4] = {};
  unsigned heldSize_ = 0;
};

namespace utf8 {

inline constexpr char32_t kReplacement = 0xFFFD;

// What a byte starts: the length of its sequence and the range its second byte must be in,
// which is what rules out overlongs, encoded surrogates and values above U+10FFFF (the table of
// well-formed sequences in the Unicode standard). ASCII has length 1 and takes any next byte;
// bytes that start nothing (continuation bytes, C0, C1, F5 to FF) have length 0.
struct Lead {
  unsigned char length;
  unsigned char low;
  unsigned char high;
};

struct LeadTable {
  Lead entries[256] = {};

  constexpr LeadTable() {
    for (int c = 0; c < 0x80; ++c) {
      entries[c] = Lead{1, 0x00, 0xFF};
    }
    for (int c = 0xC2; c < 0xF5; ++c) {
      entries[c].length = c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
      entries[c].low = c == 0xE0 ? 0xA0 : c == 0xF0 ? 0x90 : 0x80;
      entries[c].high = c == 0xED ? 0x9F : c == 0xF4 ? 0x8F : 0xBF;
    }
  }
};
inline constexpr LeadTable kLeads;

// How a read of one sequence went. `truncated`: the input ended inside a sequence that was
// well-formed up to there.
enum class Status { ok, invalid, truncated };

// Reads the character at `p` (before `end`) and moves `p` past it. Malformed input moves `p`
// past one maximal invalid subpart (the lead byte and the continuation bytes that still fit)
// and gives U+FFFD, with the status saying why.
inline char32_t decode(unsigned char const*& p, unsigned char const* end, Status& status) {
  unsigned const first = p[0];
  Lead const lead = kLeads.entries[first];
  if (lead.length < 2) {
    ++p;
    status = lead.length == 1 ? Status::ok : Status::invalid;
    return lead.length == 1 ? char32_t{first} : kReplacement;
  }
  // Unrolled, with a fixed step on each branch: where `p` ends up then follows from predicted
  // branches rather than from the table, and the next read need not wait for this one.
  auto const done = [&p, &status](unsigned taken, Status how, char32_t cp) {
    p += taken;
    status = how;
    return how == Status::ok ? cp : kReplacement;
  };
  std::ptrdiff_t const left = end - p;
  if (left < 2) {
    return done(1, Status::truncated, 0);
  }
  if (p[1] < lead.low || p[1] > lead.high) {
    return done(1, Status::invalid, 0);
  }
  char32_t cp = ((first & (0x7Fu >> lead.length)) << 6) | (p[1] & 0x3Fu);
  if (lead.length == 2) {
    return done(2, Status::ok, cp);
  }
  if (left < 3) {
    return done(2, Status::truncated, 0);
  }
  if ((p[2] & 0xC0u) != 0x80u) {
    return done(2, Status::invalid, 0);
  }
  cp = (cp << 6) | (p[2] & 0x3Fu);
  if (lead.length == 3) {
    return done(3, Status::ok, cp);
  }
  if (left < 4) {
    return done(3, Status::truncated, 0);
  }
  if ((p[3] & 0xC0u) != 0x80u) {
    return done(3, Status::invalid, 0);
  }
  return done(4, Status::ok, (cp << 6) | (p[3] & 0x3Fu));
}

// The length of the well-formed character at `p`, or 0 when it is malformed there. Reads four
// bytes whatever the length, so four must be readable; without branches on the bytes, for text
// whose characters change length often.
inline unsigned well_formed_length(unsigned char const* p) {
  Lead const lead = kLeads.entries[p[0]];
  bool const well_formed = (lead.length != 0) &
                           (static_cast<unsigned char>(p[1] - lead.low) <=
                            static_cast<unsigned char>(lead.high - lead.low)) &
                           ((lead.length < 3) | ((p[2] & 0xC0) == 0x80)) &
                           ((lead.length < 4) | ((p[3] & 0xC0) == 0x80));
  return well_formed ? lead.length : 0;
}

// Writes the UTF-8 form of the scalar value `cp` (one to four bytes) at `out` and returns the
// end of what was written.
inline char* encode(char32_t cp, char* out) {
  if (cp < 0x80) {
    *out = static_cast<char>(cp);
    return out + 1;
  }
  if (cp < 0x800) {
    out[0] = static_cast<char>(0xC0 | (cp >> 6));
    out[1] = static_cast<char>(0x80 | (cp & 0x3F));
    return out + 2;
  }
  if (cp < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (cp >> 12));
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    return out + 3;
  }
  out[0] = static_cast<char>(0xF0 | (cp >> 18));
  out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (cp & 0x3F));
  return out + 4;
}

}  // namespace utf8

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
