// The reader's scanning of text: white space, strings and numbers. Shared by the reader's
// files only; the public entry points are in json/reader.hpp.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "json/reader.hpp"
#include "platform/i18n.hpp"

// Rarely taken paths are kept out of line so that the frames of the functions that recurse
// (value, object, array) stay small; sanitizer builds make every local expensive.
#if defined(__GNUC__)
#define FOUNDATION_JSON_NOINLINE __attribute__((noinline))
#else
#define FOUNDATION_JSON_NOINLINE
#endif

namespace foundation::json::reading {

inline bool is_space(char c) {
  return fl::i18n::lcctype::isspace_ascii(static_cast<unsigned char>(c));
}

inline bool is_digit(char c) {
  return fl::i18n::lcctype::isdigit_ascii(static_cast<unsigned char>(c));
}

#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define FOUNDATION_JSON_SWAR 1
// Bit 7 of each byte of the result is set where v holds the byte c; exact for the lowest such
// byte, which is all the callers look at.
inline std::uint64_t bytes_equal(std::uint64_t v, unsigned char c) {
  constexpr std::uint64_t ones = 0x0101010101010101ULL;
  std::uint64_t const x = v ^ (ones * c);
  return (x - ones) & ~x & (ones << 7);
}
#endif

// The first '"' or '\\' in [p, end), or end. Plain string bytes are skipped in blocks; this is
// where long strings spend their time.
inline char const* find_quote_or_backslash(char const* p, char const* end) {
#if defined(__SSE2__)
  __m128i const quote = _mm_set1_epi8('"');
  __m128i const backslash = _mm_set1_epi8('\\');
  while (end - p >= 16) {
    __m128i const block = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
    int const mask = _mm_movemask_epi8(
        _mm_or_si128(_mm_cmpeq_epi8(block, quote), _mm_cmpeq_epi8(block, backslash)));
    if (mask != 0) {
      return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
    p += 16;
  }
#endif
#if defined(FOUNDATION_JSON_SWAR)
  while (end - p >= 8) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    std::uint64_t const hits = bytes_equal(word, '"') | bytes_equal(word, '\\');
    if (hits != 0) {
      return p + (__builtin_ctzll(hits) >> 3);
    }
    p += 8;
  }
#endif
  while (p != end && *p != '"' && *p != '\\') {
    ++p;
  }
  return p;
}

// The closing quote of a string whose bytes start at first, when no backslash comes before it;
// nullptr when one does or the text ends first. A string of up to fifteen bytes is found in one
// block: the quote's place comes from the quotes alone, and the backslashes are only checked
// beside it, which keeps them off the path each next step waits on.
inline char const* find_plain_string_end(char const* first, char const* end) {
#if defined(__SSE2__)
  if (end - first >= 16) {
    __m128i const block = _mm_loadu_si128(reinterpret_cast<__m128i const*>(first));
    auto const quotes =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8('"'))));
    auto const backslashes =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8('\\'))));
    unsigned const before_quote = (quotes & (0u - quotes)) - 1;  // all ones without a quote
    if ((backslashes & before_quote) != 0) {
      return nullptr;
    }
    if (quotes != 0) {
      return first + __builtin_ctz(quotes);
    }
  }
#endif
  char const* const run_end = find_quote_or_backslash(first, end);
  return run_end != end && *run_end == '"' ? run_end : nullptr;
}

// The rest of read_string, from its first backslash (run_end), or from the end when the text
// ends inside the string.
int read_escaped_string(char const*& pos, char const* first, char const* run_end, char const* end,
                        std::string& decoded, std::string_view& text);

// Reads a quoted string. Without escapes its bytes stay in the text and text views them; with
// escapes they are decoded into decoded and text views that. Nothing is written on failure.
// The common case, a short string without escapes, is inline; the rest is not.
inline int read_string(char const*& pos, char const* end, std::string& decoded,
                       std::string_view& text) {
  if (pos == end) {
    return read_result::unexpected_end;
  }
  if (*pos != '"') {
    return read_result::expected_string;
  }
  char const* const first = pos + 1;
  if (char const* const close = find_plain_string_end(first, end); close != nullptr) {
    text = std::string_view(first, static_cast<std::size_t>(close - first));
    pos = close + 1;
    return read_result::ok;
  }
  return read_escaped_string(pos, first, find_quote_or_backslash(first, end), end, decoded, text);
}

// Skips white space, and comments when they are on.
inline void skip_blank(char const*& pos, char const* end, bool comments) {
  // Requests are mostly written without white space: one test sees a byte above the space
  // and no comment to skip.
  if (pos != end && static_cast<unsigned char>(*pos) > ' ' && (*pos != '/' || !comments)) {
    return;
  }
  if (!comments) {
    while (pos != end && is_space(*pos)) {
      ++pos;
    }
  } else {
    skip_space(pos, end, true);
  }
}

// The value of a number's text, as scan_number found it.
double number_value(char const* first, char const* last);

}  // namespace foundation::json::reading
