#include "platform/i18n.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace fl::i18n {
namespace {

constexpr std::uint64_t kHighBitOfEachByte = 0x8080808080808080ULL;
// A UTF-16 unit is ASCII when none of bits 7..15 is set; four units per word.
constexpr std::uint64_t kNonAsciiBitsOfEachUnit = 0xFF80FF80FF80FF80ULL;
constexpr char32_t kReplacement = 0xFFFD;

inline std::uint64_t load64(void const* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// Index of the first byte (in memory order) whose high bit is set; `mask` is not zero.
inline unsigned first_flagged_byte(std::uint64_t mask) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return static_cast<unsigned>(__builtin_clzll(mask)) / 8;
#else
  return static_cast<unsigned>(__builtin_ctzll(mask)) / 8;
#endif
}

// Eight ASCII bytes to eight UTF-16 units. A fixed-count loop the compiler turns into a
// vector widen.
inline void widen8(unsigned char const* in, char16_t* out) {
  for (int i = 0; i < 8; ++i) {
    out[i] = static_cast<char16_t>(in[i]);
  }
}

inline void narrow8(char16_t const* in, char* out) {
  for (int i = 0; i < 8; ++i) {
    out[i] = static_cast<char>(in[i]);
  }
}

// Decodes the sequence starting at `p`, whose first byte is not ASCII, and moves `p` past it.
// Well-formed sequences follow the table of the Unicode standard (the second byte's range
// depends on the lead byte: that excludes overlongs, surrogates and values above U+10FFFF).
// Anything else consumes its maximal invalid subpart, the lead byte and the continuation bytes
// that still fit, and yields U+FFFD.
inline char32_t decode_multibyte(unsigned char const*& p, unsigned char const* end) {
  unsigned const lead = *p++;
  unsigned low = 0x80;
  unsigned high = 0xBF;
  int trailing;
  char32_t cp;
  if (lead < 0xC2) {
    return kReplacement;  // stray continuation byte, or C0/C1 (always overlong)
  } else if (lead < 0xE0) {
    trailing = 1;
    cp = lead & 0x1F;
  } else if (lead < 0xF0) {
    trailing = 2;
    cp = lead & 0x0F;
    if (lead == 0xE0) {
      low = 0xA0;
    } else if (lead == 0xED) {
      high = 0x9F;
    }
  } else if (lead < 0xF5) {
    trailing = 3;
    cp = lead & 0x07;
    if (lead == 0xF0) {
      low = 0x90;
    } else if (lead == 0xF4) {
      high = 0x8F;
    }
  } else {
    return kReplacement;
  }
  if (p == end || *p < low || *p > high) {
    return kReplacement;
  }
  cp = (cp << 6) | (*p++ & 0x3Fu);
  while (--trailing > 0) {
    if (p == end || (*p & 0xC0u) != 0x80u) {
      return kReplacement;
    }
    cp = (cp << 6) | (*p++ & 0x3Fu);
  }
  return cp;
}

// Writes the UTF-16 form of [p, end) to `out` and returns the end of what was written. Every
// input byte yields at most one unit, so `out` needs room for (end - p) units.
char16_t* utf8_to_utf16(unsigned char const* p, unsigned char const* end, char16_t* out) {
  while (p != end) {
    // Mostly-ASCII text spends its time here: two words per step, then one.
    while (end - p >= 16) {
      std::uint64_t const a = load64(p);
      std::uint64_t const b = load64(p + 8);
      if (((a | b) & kHighBitOfEachByte) != 0) {
        break;
      }
      widen8(p, out);
      widen8(p + 8, out + 8);
      p += 16;
      out += 16;
    }
    if (p == end) {
      break;
    }
    if (end - p >= 8) {
      std::uint64_t const mask = load64(p) & kHighBitOfEachByte;
      if (mask == 0) {
        widen8(p, out);
        p += 8;
        out += 8;
        continue;
      }
      // Copy the ASCII bytes before the first non-ASCII one, all eight units at once: the
      // units past the count are overwritten later or lie beyond the final length.
      unsigned const ascii = first_flagged_byte(mask);
      widen8(p, out);
      p += ascii;
      out += ascii;
    } else if (*p < 0x80) {
      *out++ = *p++;
      continue;
    }
    char32_t const cp = decode_multibyte(p, end);
    if (cp < 0x10000) {
      *out++ = static_cast<char16_t>(cp);
    } else {
      out[0] = static_cast<char16_t>(0xD7C0 + (cp >> 10));
      out[1] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
      out += 2;
    }
  }
  return out;
}

inline bool is_high_surrogate(char32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
inline bool is_low_surrogate(char32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// Exact UTF-8 length of [p, end), with U+FFFD (three bytes) for each unpaired surrogate.
std::size_t utf8_length(char16_t const* p, char16_t const* end) {
  std::size_t length = 0;
  while (p != end) {
    while (end - p >= 8) {
      if (((load64(p) | load64(p + 4)) & kNonAsciiBitsOfEachUnit) != 0) {
        break;
      }
      p += 8;
      length += 8;
    }
    if (p == end) {
      break;
    }
    char32_t const u = *p++;
    if (u < 0x80) {
      length += 1;
    } else if (u < 0x800) {
      length += 2;
    } else if (is_high_surrogate(u) && p != end && is_low_surrogate(*p)) {
      ++p;
      length += 4;
    } else {
      length += 3;
    }
  }
  return length;
}

// Writes the UTF-8 form of [p, end) to `out`, which has room for utf8_length(p, end) bytes.
void utf16_to_utf8(char16_t const* p, char16_t const* end, char* out) {
  while (p != end) {
    while (end - p >= 8) {
      if (((load64(p) | load64(p + 4)) & kNonAsciiBitsOfEachUnit) != 0) {
        break;
      }
      narrow8(p, out);
      p += 8;
      out += 8;
    }
    if (p == end) {
      break;
    }
    char32_t cp = *p++;
    if (cp < 0x80) {
      *out++ = static_cast<char>(cp);
      continue;
    }
    if (cp < 0x800) {
      out[0] = static_cast<char>(0xC0 | (cp >> 6));
      out[1] = static_cast<char>(0x80 | (cp & 0x3F));
      out += 2;
      continue;
    }
    if (is_high_surrogate(cp) && p != end && is_low_surrogate(*p)) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (*p++ - 0xDC00u);
      out[0] = static_cast<char>(0xF0 | (cp >> 18));
      out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out[3] = static_cast<char>(0x80 | (cp & 0x3F));
      out += 4;
      continue;
    }
    if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = kReplacement;
    }
    out[0] = static_cast<char>(0xE0 | (cp >> 12));
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    out += 3;
  }
}

std::string to_utf8(char16_t const* first, std::size_t count) {
  std::string result;
  if (count == 0) {
    return result;
  }
  // Counting first lets the string be sized once; the pass is cheap next to the writing one.
  result.resize(utf8_length(first, first + count));
  utf16_to_utf8(first, first + count, result.data());
  return result;
}

}  // namespace

std::u16string to_ustring(std::string const& utf8) {
  std::u16string result;
  if (utf8.empty()) {
    return result;
  }
  // No input byte yields more than one unit: size for the bound, then trim.
  result.resize(utf8.size());
  auto const* in = reinterpret_cast<unsigned char const*>(utf8.data());
  char16_t* const out = result.data();
  char16_t* const out_end = utf8_to_utf16(in, in + utf8.size(), out);
  result.resize(static_cast<std::size_t>(out_end - out));
  return result;
}

std::string ustring_to_utf8(std::u16string const& utf16) {
  return to_utf8(utf16.data(), utf16.size());
}

std::string ustring_to_utf8(char16_t const* utf16) {
  if (utf16 == nullptr) {
    return std::string();
  }
  return to_utf8(utf16, std::char_traits<char16_t>::length(utf16));
}

}  // namespace fl::i18n
