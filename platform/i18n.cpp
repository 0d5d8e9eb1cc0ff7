#include "platform/i18n.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/simd/avx512.h"
#include "platform/string_room.hpp"

namespace fl::i18n {
namespace {

using utf8::kReplacement;

// Words of eight bytes or four UTF-16 units, read with memcpy so that any alignment works.
constexpr std::uint64_t kByteHighBits = 0x8080808080808080ULL;
constexpr std::uint64_t kUnitLow15 = 0x7FFF7FFF7FFF7FFFULL;
constexpr std::uint64_t kUnitHighBit = 0x8000800080008000ULL;
constexpr std::uint64_t kUnitNonAscii = 0xFF80FF80FF80FF80ULL;

inline std::uint64_t load64(void const* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// Offset in bytes, in memory order, of the lowest-addressed set bit of a non-zero mask.
inline unsigned first_set_byte(std::uint64_t mask) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return static_cast<unsigned>(__builtin_clzll(mask)) / 8;
#else
  return static_cast<unsigned>(__builtin_ctzll(mask)) / 8;
#endif
}

// Bit 15 of each unit of `word` set where that unit is >= `bound` (bound in 1..0x8000).
inline std::uint64_t units_at_least(std::uint64_t word, std::uint64_t bound) {
  std::uint64_t const add = (0x8000 - bound) * 0x0001000100010001ULL;
  return (((word & kUnitLow15) + add) | word) & kUnitHighBit;
}

// The widening loop works on local copies: without possible aliasing between source and
// destination the compilers turn it into a handful of vector instructions.
inline void widen16(unsigned char const* in, char16_t* out) {
  unsigned char bytes[16];
  std::memcpy(bytes, in, sizeof bytes);
  char16_t units[16];
  for (int i = 0; i < 16; ++i) {
    units[i] = bytes[i];
  }
  std::memcpy(out, units, sizeof units);
}

inline bool is_high_surrogate(char32_t u) {
  return (u & 0xFC00) == 0xD800;
}
inline bool is_low_surrogate(char32_t u) {
  return (u & 0xFC00) == 0xDC00;
}

// ---- UTF-8 to UTF-16 ----

// The full check. Where reading stands comes back by value: should the compiler keep this out
// of line, a cursor passed by reference would have to live in memory throughout the callers'
// loops.
struct Decoded {
  char32_t cp;
  unsigned char const* next;
};

Decoded decode_checked(unsigned char const* p, unsigned char const* end) {
  utf8::Status status;
  char32_t const cp = utf8::decode(p, end, status);
  return {cp, p};
}

// The common two- and three-byte forms take a short path; the rest goes through the full check.
inline char32_t decode(unsigned char const*& p, unsigned char const* end) {
  if (end - p >= 3) {
    unsigned const b0 = p[0];
    unsigned const b1 = p[1];
    if ((b0 & 0xE0) == 0xC0 && (b1 & 0xC0) == 0x80 && b0 >= 0xC2) {
      p += 2;
      return ((b0 & 0x1Fu) << 6) | (b1 & 0x3Fu);
    }
    unsigned const b2 = p[2];
    if ((b0 & 0xF0) == 0xE0 && (b1 & 0xC0) == 0x80 && (b2 & 0xC0) == 0x80) {
      char32_t const cp = ((b0 & 0x0Fu) << 12) | ((b1 & 0x3Fu) << 6) | (b2 & 0x3Fu);
      if (cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF)) {
        p += 3;
        return cp;
      }
    }
  }
  Decoded const decoded = decode_checked(p, end);
  p = decoded.next;
  return decoded.cp;
}

inline char16_t* put_utf16(char32_t cp, char16_t* out) {
  if (cp < 0x10000) {
    *out = static_cast<char16_t>(cp);
    return out + 1;
  }
  out[0] = static_cast<char16_t>(0xD7C0 + (cp >> 10));
  out[1] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  return out + 2;
}

// The wide blocks' widening of a run of ASCII, with both cursors handed back by value: taking
// the address of one in the loop below would cost that loop its registers.
struct Cursors {
  unsigned char const* in;
  char16_t* out;
};

[[gnu::noinline]] Cursors widen_ascii(unsigned char const* p, unsigned char const* end,
                                      char16_t* out) {
  p = simd::ascii_to_utf16_avx512(p, end, out);
  return {p, out};
}

// Writes the UTF-16 form of [p, end) and returns the end of what was written. No input byte
// yields more than one unit (a four-byte sequence gives two), so `out` needs room for
// end - p units; the block copies below write ahead into that room.
char16_t* utf8_to_utf16(unsigned char const* p, unsigned char const* end, char16_t* out) {
  // A run of ASCII that has gone on for 1 KiB is likely to go on: the wide blocks take the rest
  // of it, with stores around the cache when much is left. Shorter runs stay here, where handing
  // them over would cost more than the wide blocks save. The run's length is kept as what is
  // left of the input when it may be handed over, one compare per block.
  std::ptrdiff_t const wide_after = simd::avx512_usable() ? 1024 : PTRDIFF_MAX;
  std::ptrdiff_t wide_when_left = (end - p) - wide_after;
  while (end - p >= 16) {
    std::uint64_t const a = load64(p) & kByteHighBits;
    std::uint64_t const b = load64(p + 8) & kByteHighBits;
    widen16(p, out);
    if ((a | b) == 0) {
      p += 16;
      out += 16;
      if (end - p <= wide_when_left) {
        Cursors const after = widen_ascii(p, end, out);
        p = after.in;
        out = after.out;
      }
      continue;
    }
    // Keep the ASCII bytes in front of the first other one; the units widened past them are
    // overwritten next.
    unsigned const ascii = a != 0 ? first_set_byte(a) : 8 + first_set_byte(b);
    p += ascii;
    out += ascii;
    do {
      out = put_utf16(decode(p, end), out);
    } while (p != end && *p >= 0x80);
    wide_when_left = (end - p) - wide_after;
  }
  while (p != end) {
    if (*p < 0x80) {
      *out++ = *p++;
    } else {
      out = put_utf16(decode(p, end), out);
    }
  }
  return out;
}

// How many bytes at the end of [p, end) begin a sequence that is well-formed so far but not
// complete (0 to 3): what a piece of a stream must hold back for the next one.
unsigned open_tail(unsigned char const* p, unsigned char const* end) {
  for (unsigned k = 1; k <= 3 && k <= static_cast<std::size_t>(end - p); ++k) {
    unsigned char const c = end[-static_cast<std::ptrdiff_t>(k)];
    if (c < 0x80) {
      return 0;
    }
    if (c >= 0xC0) {
      utf8::Lead const lead = utf8::kLeads.entries[c];
      if (lead.length <= k) {
        return 0;  // complete, or a byte that starts nothing
      }
      unsigned char const second = k == 1 ? lead.low : end[1 - static_cast<std::ptrdiff_t>(k)];
      return second >= lead.low && second <= lead.high ? k : 0;
    }
  }
  return 0;
}

// ---- UTF-16 to UTF-8 ----

// UTF-8 length of the unit at `p` minus one, given its neighbours: a surrogate that is part of
// a pair gives two bytes (four per pair), an unpaired one the three of U+FFFD.
inline unsigned extra_bytes(char16_t const* p, char16_t const* begin, char16_t const* end) {
  char32_t const u = *p;
  if (u < 0x80) {
    return 0;
  }
  if (u < 0x800) {
    return 1;
  }
  if (is_high_surrogate(u)) {
    return p + 1 != end && is_low_surrogate(p[1]) ? 1 : 2;
  }
  if (is_low_surrogate(u)) {
    return p != begin && is_high_surrogate(p[-1]) ? 1 : 2;
  }
  return 2;
}

// Exact UTF-8 length of [begin, end). Four units at a time: the per-unit extra bytes (one for
// >= U+0080, one more for >= U+0800) are summed in the word's own 16-bit lanes; words that
// hold a surrogate are counted unit by unit.
std::size_t utf8_length(char16_t const* begin, char16_t const* end) {
  std::size_t length = static_cast<std::size_t>(end - begin);
  char16_t const* p = begin;
  while (end - p >= 4) {
    // At most 4096 words per round keep the sum of the four lanes below 2^16.
    char16_t const* const stop = end - p >= 4 * 4096 ? p + 4 * 4096 : end - (end - p) % 4;
    std::uint64_t lanes = 0;
    for (; p != stop; p += 4) {
      std::uint64_t const word = load64(p);
      if ((word & kUnitNonAscii) == 0) {
        continue;
      }
      std::uint64_t const top5 = (word & 0xF800F800F800F800ULL) ^ 0xD800D800D800D800ULL;
      if ((((top5 - 0x0001000100010001ULL) & ~top5) & kUnitHighBit) != 0) {
        for (int i = 0; i < 4; ++i) {
          length += extra_bytes(p + i, begin, end);
        }
        continue;
      }
      lanes += (units_at_least(word, 0x80) >> 15) + (units_at_least(word, 0x800) >> 15);
    }
    length += static_cast<std::size_t>((lanes * 0x0001000100010001ULL) >> 48);
  }
  for (; p != end; ++p) {
    length += extra_bytes(p, begin, end);
  }
  return length;
}

// Writes a unit of the Basic Multilingual Plane from U+0080 up, in two or three bytes. The two
// forms are chosen with selects rather than branches, since in text that mixes them a branch
// would often be mispredicted; so a two-byte form, too, needs room for three.
inline char* put_bmp(char32_t cp, char* out) {
  bool const three = cp >= 0x800;
  out[0] = static_cast<char>(three ? 0xE0 | (cp >> 12) : 0xC0 | (cp >> 6));
  out[1] = static_cast<char>(0x80 | ((three ? cp >> 6 : cp) & 0x3F));
  out[2] = static_cast<char>(0x80 | (cp & 0x3F));
  return out + 2 + three;
}

// Writes one unit that is not ASCII (two for a pair) and moves `p` past it.
inline char* put_utf8(char16_t const*& p, char16_t const* end, char* out) {
  char32_t cp = *p++;
  if ((cp & 0xF800) == 0xD800) {
    if (is_high_surrogate(cp) && p != end && is_low_surrogate(*p)) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (*p++ - 0xDC00u);
      return utf8::encode(cp, out);
    }
    cp = kReplacement;
  }
  return put_bmp(cp, out);
}

// Units [p, stop) one at a time; a pair that straddles `stop` is written whole, so `p` may end
// one past it.
inline char* put_units(char16_t const*& p, char16_t const* stop, char16_t const* end, char* out) {
  while (p < stop) {
    if (*p < 0x80) {
      *out++ = static_cast<char>(*p++);
    } else {
      out = put_utf8(p, end, out);
    }
  }
  return out;
}

#if defined(__SSE2__)

// Sixteen units at `p`, narrowed to bytes at `out` (the units from U+0080 up come out wrong
// and are overwritten by whoever writes them). Returns bit i set for each unit i from U+0080
// up.
inline unsigned narrow_block(char16_t const* p, char* out) {
  __m128i const a = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
  __m128i const b = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p + 8));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(a, b));
  __m128i const high = _mm_set1_epi16(static_cast<short>(0xFF80));
  __m128i const zero = _mm_setzero_si128();
  __m128i const ascii = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(a, high), zero),
                                        _mm_cmpeq_epi16(_mm_and_si128(b, high), zero));
  return ~static_cast<unsigned>(_mm_movemask_epi8(ascii)) & 0xFFFFu;
}

// Whether any of the sixteen units at `p` is a surrogate.
inline bool has_surrogate(char16_t const* p) {
  __m128i const top5 = _mm_set1_epi16(static_cast<short>(0xF800));
  __m128i const surrogate = _mm_set1_epi16(static_cast<short>(0xD800));
  __m128i const a = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
  __m128i const b = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p + 8));
  __m128i const hits = _mm_or_si128(_mm_cmpeq_epi16(_mm_and_si128(a, top5), surrogate),
                                    _mm_cmpeq_epi16(_mm_and_si128(b, top5), surrogate));
  return _mm_movemask_epi8(hits) != 0;
}

// Writes the block of sixteen units at `p` (it needs sixteen more units after it, which the
// narrowing reads) and moves `p` past it. The mask of the units that are not ASCII says where
// each one stands, so the runs of ASCII between them are narrowed again straight from the
// input: no step waits on the one before but for where the output stands.
inline char* put_block(char16_t const*& p, char16_t const* end, char* out) {
  unsigned mask = narrow_block(p, out);
  if (mask == 0) {
    p += 16;
    return out + 16;
  }
  char16_t const* const base = p;
  if (has_surrogate(base)) {
    return put_units(p, base + 16, end, out);
  }
  do {
    char16_t const* const at = base + __builtin_ctz(mask);
    narrow_block(p, out);
    out += at - p;
    out = put_bmp(*at, out);
    p = at + 1;
    mask &= mask - 1;
  } while (mask != 0);
  narrow_block(p, out);
  out += base + 16 - p;
  p = base + 16;
  return out;
}

#else

// Four flags, bit i for the i-th unit in memory, from the bit-15 flags of units_at_least. The
// multiplication moves each lane's flag to its own bit of one nibble (the partial products
// never overlap, so nothing carries).
inline unsigned unit_flags(std::uint64_t lane_flags) {
  auto const nibble =
      static_cast<unsigned>(((lane_flags >> 15) * 0x0000200040008001ULL) >> 45) & 0xF;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return ((nibble & 1) << 3) | ((nibble & 2) << 1) | ((nibble & 4) >> 1) | ((nibble & 8) >> 3);
#else
  return nibble;
#endif
}

// The narrowing loop, on local copies for the same reason as widen16.
inline void narrow16(char16_t const* in, char* out) {
  char16_t units[16];
  std::memcpy(units, in, sizeof units);
  char bytes[16];
  for (int i = 0; i < 16; ++i) {
    bytes[i] = static_cast<char>(units[i]);
  }
  std::memcpy(out, bytes, sizeof bytes);
}

// The same with words of four units: the ASCII in front of the first other unit is kept, and
// the units from there to the next ASCII one are written one at a time.
inline char* put_block(char16_t const*& p, char16_t const* end, char* out) {
  std::uint64_t const words[4] = {load64(p), load64(p + 4), load64(p + 8), load64(p + 12)};
  narrow16(p, out);
  if (((words[0] | words[1] | words[2] | words[3]) & kUnitNonAscii) == 0) {
    p += 16;
    return out + 16;
  }
  unsigned others = 0;
  for (int i = 0; i < 4; ++i) {
    others |= unit_flags(units_at_least(words[i], 0x80)) << (4 * i);
  }
  unsigned const ascii = static_cast<unsigned>(__builtin_ctz(others));
  p += ascii;
  out += ascii;
  do {
    out = put_utf8(p, end, out);
  } while (p != end && *p >= 0x80);
  return out;
}

#endif

// Writes the UTF-8 form of [p, end) at `out` and returns the end of what was written. With
// `kBounded`, stops early (moving `p` to the first unit not written) once fewer than the worst
// case of a step is left before `limit`; without, the room must be utf8_length(p, end) bytes
// plus one, for the spare byte that a two-byte form writes. Each unit gives at least one byte
// and a block runs only while thirty-two units are left, so a block's writing ahead always
// lands in room that the units after it own.
template <bool kBounded>
char* utf16_to_utf8(char16_t const*& p, char16_t const* end, char* out, char* limit) {
  constexpr std::ptrdiff_t kBlockRoom = 3 * 17 + 16;  // a block, a pair past it, a spare store
  constexpr std::ptrdiff_t kUnitRoom = 4;             // a pair
  bool const wide = simd::avx512_usable();
  while (end - p >= 32 && (!kBounded || limit - out >= kBlockRoom)) {
    if (wide) {
      char16_t const* const from = p;
      p = simd::utf16_to_utf8_avx512(p, end, out, kBounded ? limit : nullptr);
      if (p != from) {
        continue;
      }
    }
    out = put_block(p, end, out);  // a surrogate, or too little left for the wide blocks
  }
  while (p != end && (!kBounded || limit - out >= kUnitRoom)) {
    if (*p < 0x80) {
      *out++ = static_cast<char>(*p++);
    } else {
      out = put_utf8(p, end, out);
    }
  }
  return out;
}

std::string to_utf8(char16_t const* first, std::size_t count) {
  // One pass for the usual text: room for every unit plus an eighth (the input is often larger
  // than the caches, so a counting pass first would cost as much as the conversion), taken
  // without a zero fill. Text that needs more room is counted from where it ran out and moved
  // once into a string of the exact size.
  std::size_t const room = count + count / 8 + 4;
  std::string result;
  strings::grow_uninitialized(result, room);
  char16_t const* p = first;
  char16_t const* const end = first + count;
  auto written = static_cast<std::size_t>(
      utf16_to_utf8<true>(p, end, result.data(), result.data() + room) - result.data());
  if (p != end) {
    std::string larger;
    strings::grow_uninitialized(larger, written + utf8_length(p, end) + 1);
    std::memcpy(larger.data(), result.data(), written);
    result.swap(larger);
    written = static_cast<std::size_t>(
        utf16_to_utf8<false>(p, end, result.data() + written, nullptr) - result.data());
  }
  result.resize(written);
  return result;
}

}  // namespace

std::u16string to_ustring(std::string const& utf8) {
  std::u16string result;
  if (utf8.empty()) {
    return result;
  }
  // The input length bounds the output: size for it, write, then trim. Text that shrank a lot
  // (mostly three-byte characters) gives the spare room back.
  // Sized without zero-filling: every unit kept is written below.
  fl::strings::grow_uninitialized(result, utf8.size());
  auto const* in = reinterpret_cast<unsigned char const*>(utf8.data());
  char16_t* const out = result.data();
  result.resize(static_cast<std::size_t>(utf8_to_utf16(in, in + utf8.size(), out) - out));
  if (result.size() < result.capacity() / 2) {
    result.shrink_to_fit();
  }
  return result;
}

bool is_valid_utf8(std::string_view bytes) noexcept {
  auto const* p = reinterpret_cast<unsigned char const*>(bytes.data());
  auto const* const end = p + bytes.size();
  while (p != end) {
    // Runs of ASCII: a word first, which in text of mostly other characters is all the test
    // that fails, then blocks of sixteen; the ASCII in front of another byte in one step.
    if (end - p >= 8 && *p < 0x80) {
      std::uint64_t const others = load64(p) & kByteHighBits;
      if (others != 0) {
        p += first_set_byte(others);
      } else {
        p += 8;
        while (end - p >= 16 && ((load64(p) | load64(p + 8)) & kByteHighBits) == 0) {
          p += 16;
        }
        continue;
      }
    }
    utf8::Status status;
    utf8::decode(p, end, status);
    if (status != utf8::Status::ok) {
      return false;
    }
  }
  return true;
}

void Utf8Decoder::feed(std::string_view bytes, std::u16string& out) {
  // Decoded straight into the output's room, which is not filled first: for texts of many
  // megabytes that fill is a whole extra pass over memory.
  std::size_t const base = out.size();
  strings::grow_uninitialized(out, base + bytes.size() + 2);
  char16_t* o = out.data() + base;
  auto const* p = reinterpret_cast<unsigned char const*>(bytes.data());
  auto const* const end = p + bytes.size();
  if (heldSize_ != 0) {
    // The sequence held back, completed by the first bytes of this piece.
    unsigned char joined[8];
    std::memcpy(joined, held_, heldSize_);
    std::size_t const taken = std::min<std::size_t>(bytes.size(), 4 - heldSize_);
    std::memcpy(joined + heldSize_, p, taken);
    unsigned char const* q = joined;
    utf8::Status status;
    char32_t const cp = utf8::decode(q, joined + heldSize_ + taken, status);
    if (status == utf8::Status::truncated) {
      std::memcpy(held_, joined, heldSize_ + taken);  // this piece ended inside it too
      heldSize_ += static_cast<unsigned>(taken);
      out.resize(base);
      return;
    }
    o = put_utf16(cp, o);
    p += (q - joined) - heldSize_;
    heldSize_ = 0;
  }
  unsigned const open = open_tail(p, end);
  o = utf8_to_utf16(p, end - open, o);
  std::memcpy(held_, end - open, open);
  heldSize_ = open;
  out.resize(static_cast<std::size_t>(o - out.data()));
}

void Utf8Decoder::finish(std::u16string& out) {
  if (heldSize_ != 0) {
    out.push_back(static_cast<char16_t>(kReplacement));
  }
  heldSize_ = 0;
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
