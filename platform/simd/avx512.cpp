#include "platform/simd/avx512.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define EDITOR_CLIPBOARD_HAVE_AVX512_KERNELS 1
#if !defined(__clang__)
// GCC 12's AVX-512 headers start some intrinsics from a deliberately undefined register, which
// -Wmaybe-uninitialized reports wherever they are inlined.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#endif

namespace fl::simd {

#if defined(EDITOR_CLIPBOARD_HAVE_AVX512_KERNELS)

#define AVX512_KERNEL \
  __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")))

namespace {

bool detect() {
  char const* const choice = std::getenv("EDITOR_CLIPBOARD_SIMD");
  if (choice != nullptr && std::strcmp(choice, "baseline") == 0) {
    return false;
  }
  // __builtin_cpu_supports also checks that the OS saves the AVX-512 registers.
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
         __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2");
}

AVX512_KERNEL inline __m256i splat(int value) {
  return _mm256_set1_epi8(static_cast<char>(value));
}

// Bit i set where byte i of `x` equals `value`.
AVX512_KERNEL inline std::uint32_t bytes_equal(__m256i x, int value) {
  return _mm256_cmpeq_epi8_mask(x, splat(value));
}

// Writes the first `count` bytes of `bytes` (escaped ones already turned into their letters)
// at `out`, a backslash in front of each byte marked in `escaped`. Each escaped byte takes two
// output slots, every other byte one: spreading the mask over slot pairs and packing the slots
// in use gives the output mask, 1 where an input byte lands and 0 where a backslash goes.
AVX512_KERNEL inline void write_escaped(__m256i bytes, std::uint32_t escaped, unsigned count,
                                        char*& out) {
  std::uint64_t const slots_in_block =
      count == 32 ? ~std::uint64_t{0} : (std::uint64_t{1} << (2 * count)) - 1;
  std::uint64_t const slots =
      (_pdep_u64(escaped, 0x5555555555555555ULL) | 0xAAAAAAAAAAAAAAAAULL) & slots_in_block;
  std::uint64_t const lands = _pext_u64(0xAAAAAAAAAAAAAAAAULL, slots);
  auto const length = static_cast<unsigned>(_mm_popcnt_u64(slots));
  std::uint64_t const written = length == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << length) - 1;
  __m512i const spread = _mm512_maskz_expand_epi8(lands, _mm512_zextsi256_si512(bytes));
  _mm512_storeu_si512(out, _mm512_mask_mov_epi8(spread, written & ~lands, _mm512_set1_epi8('\\')));
  out += length;
}

// The bytes of `x` shifted towards the end by `N`, the last `N` bytes of `previous` in front.
template <int N>
AVX512_KERNEL inline __m256i shifted_in(__m256i x, __m256i previous) {
  return _mm256_alignr_epi8(x, _mm256_permute2x128_si256(previous, x, 0x21), 16 - N);
}

AVX512_KERNEL inline __m256i nibble_table(char c0, char c1, char c2, char c3, char c4, char c5,
                                          char c6, char c7, char c8, char c9, char c10, char c11,
                                          char c12, char c13, char c14, char c15) {
  return _mm256_setr_epi8(c0, c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13, c14, c15, c0,
                          c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13, c14, c15);
}

// Non-zero bytes where `x`, following `previous`, is not well-formed UTF-8 (a sequence still
// open at the end of `x` is not an error here). Each pair of adjacent bytes is classified by
// three table lookups, on the high and low nibble of the first byte and the high nibble of the
// second, whose common bits name the error; the third and fourth bytes of longer sequences are
// checked by a saturating subtraction on the bytes two and three back (after Keiser and
// Lemire, "Validating UTF-8 in less than one instruction per byte", 2021).
AVX512_KERNEL inline __m256i utf8_errors(__m256i x, __m256i previous) {
  constexpr char kTooShort = 1 << 0;      // lead byte or ASCII, then a lead byte or ASCII
  constexpr char kTooLong = 1 << 1;       // ASCII, then a continuation byte
  constexpr char kOverlong3 = 1 << 2;     // E0 80..9F
  constexpr char kTooLarge = 1 << 3;      // F4 90..BF, F5..FF
  constexpr char kSurrogate = 1 << 4;     // ED A0..BF
  constexpr char kOverlong2 = 1 << 5;     // C0, C1
  constexpr char kTooLarge1000 = 1 << 6;  // F5..FF 80..8F
  constexpr char kOverlong4 = 1 << 6;     // F0 80..8F
  constexpr char kTwoContinuations = static_cast<char>(1 << 7);
  constexpr char kCarry = kTooShort | kTooLong | kTwoContinuations;
  __m256i const low_nibble = splat(0x0F);
  __m256i const prev1 = shifted_in<1>(x, previous);
  __m256i const first_high = _mm256_shuffle_epi8(
      nibble_table(kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong,
                   kTwoContinuations, kTwoContinuations, kTwoContinuations, kTwoContinuations,
                   kTooShort | kOverlong2, kTooShort, kTooShort | kOverlong3 | kSurrogate,
                   kTooShort | kTooLarge | kTooLarge1000 | kOverlong4),
      _mm256_and_si256(_mm256_srli_epi16(prev1, 4), low_nibble));
  constexpr char kLarge = kCarry | kTooLarge | kTooLarge1000;
  __m256i const first_low = _mm256_shuffle_epi8(
      nibble_table(kCarry | kOverlong3 | kOverlong2 | kOverlong4, kCarry | kOverlong2, kCarry,
                   kCarry, kCarry | kTooLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge,
                   kLarge, kLarge, kLarge | kSurrogate, kLarge, kLarge),
      _mm256_and_si256(prev1, low_nibble));
  constexpr char kContinuation = kTooLong | kOverlong2 | kTwoContinuations;
  __m256i const second_high = _mm256_shuffle_epi8(
      nibble_table(kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
                   kTooShort, kContinuation | kOverlong3 | kTooLarge1000 | kOverlong4,
                   kContinuation | kOverlong3 | kTooLarge, kContinuation | kSurrogate | kTooLarge,
                   kContinuation | kSurrogate | kTooLarge, kTooShort, kTooShort, kTooShort,
                   kTooShort),
      _mm256_and_si256(_mm256_srli_epi16(x, 4), low_nibble));
  __m256i const special = _mm256_and_si256(_mm256_and_si256(first_high, first_low), second_high);
  // Third bytes (two after an E0..FF lead) and fourth bytes (three after F0..FF) must be
  // continuation bytes; the lookups above see them as two continuations in a row.
  __m256i const third = _mm256_subs_epu8(shifted_in<2>(x, previous), splat(0xE0 - 0x80));
  __m256i const fourth = _mm256_subs_epu8(shifted_in<3>(x, previous), splat(0xF0 - 0x80));
  __m256i const wanted = _mm256_and_si256(_mm256_or_si256(third, fourth), splat(0x80));
  return _mm256_xor_si256(wanted, special);
}

}  // namespace

bool avx512_usable() {
  static bool const usable = detect();
  return usable;
}

// The UTF-8 form of the character at `p`, a unit that is not ASCII, in the low bytes of the
// result; `length` is set to its byte count and `units` to the units it takes (2 for a pair).
AVX512_KERNEL inline std::uint32_t utf8_sequence(char16_t const* p, unsigned& length,
                                                 unsigned& units) {
  std::uint32_t const u = p[0];
  units = 1;
  if (__builtin_expect((u & 0xF800) != 0xD800, 1)) {
    // Both forms are built and one is picked: which one varies too much to branch on.
    std::uint32_t const two = (0xC0 | (u >> 6)) | ((0x80 | (u & 0x3F)) << 8);
    std::uint32_t const three =
        (0xE0 | (u >> 12)) | ((0x80 | ((u >> 6) & 0x3F)) << 8) | ((0x80 | (u & 0x3F)) << 16);
    length = u < 0x800 ? 2 : 3;
    return u < 0x800 ? two : three;
  }
  std::uint32_t const low = p[1];
  if (u < 0xDC00 && (low & 0xFC00) == 0xDC00) {
    std::uint32_t const plane = u - 0xD7C0;  // the code point's bits from the tenth up
    length = 4;
    units = 2;
    return (0xF0 | (plane >> 8)) | ((0x80 | ((plane >> 2) & 0x3F)) << 8) |
           ((0x80 | ((plane & 3) << 4) | ((low >> 6) & 0xF)) << 16) | ((0x80 | (low & 0x3F)) << 24);
  }
  length = 3;
  return 0xBDBFEF;  // U+FFFD for a surrogate on its own
}

AVX512_KERNEL char16_t const* utf16_to_utf8_avx512(char16_t const* p, char16_t const* end,
                                                   char*& out, char const* limit) {
  char* o = out;
  while (end - p >= 96 && (limit == nullptr || limit - o >= 128)) {
    __m512i const units = _mm512_loadu_si512(p);
    auto others = static_cast<std::uint32_t>(
        _mm512_test_epi16_mask(units, _mm512_set1_epi16(static_cast<short>(0xFF80))));
    // Every block is first written as if it were ASCII; most are, and p moves on by a fixed
    // step whatever the content, so the next load never waits for this block's work.
    __m256i const narrow = _mm512_cvtepi16_epi8(units);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o), narrow);
    if (others == 0) {
      o += 32;
      p += 32;
      continue;
    }
    // A high surrogate in the last lane pairs with the next block's first unit: it waits.
    unsigned taken = 32;
    if ((others >> 31) != 0 && (p[31] & 0xFC00) == 0xD800) {
      taken = 31;
      others &= 0x7FFFFFFFu;
    }
    // Each other character: its sequence is written in place of its narrowed unit, and the
    // rest of the block again, moved on by the bytes it added.
    unsigned moved = 0;
    while (others != 0) {
      auto const at = static_cast<unsigned>(__builtin_ctz(others));
      unsigned length;
      unsigned width;
      std::uint32_t const sequence = utf8_sequence(p + at, length, width);
      std::memcpy(o + moved + at, &sequence, 4);
      moved += length - width;
      unsigned const next = at + width;
      others &= static_cast<std::uint32_t>(~std::uint64_t{0} << next);
      _mm256_mask_storeu_epi8(o + moved, static_cast<__mmask32>(~std::uint64_t{0} << next), narrow);
    }
    o += taken + moved;
    p += taken;
  }
  out = o;
  return p;
}

AVX512_KERNEL unsigned char const* escape_json_avx512(unsigned char const* in,
                                                      unsigned char const* end, char*& out,
                                                      char const* limit) {
  // The letter of each short escape, by control character; 0 where \u00XX is needed.
  __m256i const letters = _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 'b', 't', 'n', 0, 'f', 'r', 0, 0,
                                           0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
  char* o = out;
  __m256i previous = _mm256_setzero_si256();  // the last block, for sequences that straddle
  while (end - in >= 64 && limit - o >= 128) {
    __m256i const x = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(in));
    if (!_mm256_testz_si256(utf8_errors(x, previous), utf8_errors(x, previous))) {
      break;  // malformed UTF-8, here or in a sequence the last block began
    }
    __mmask32 const control = _mm256_cmplt_epu8_mask(x, splat(0x20));
    std::uint32_t const escaped = control | bytes_equal(x, '"') | bytes_equal(x, '\\');
    __m256i const letter = _mm256_permutexvar_epi8(x, letters);
    __m256i const bytes = _mm256_mask_mov_epi8(x, control, letter);
    std::uint32_t const long_escapes = control & ~_mm256_test_epi8_mask(letter, letter);
    if (__builtin_expect(long_escapes != 0, 0)) {
      // A control without a short escape ends the block; its \u00XX is written after it. The
      // control is ASCII, so no sequence runs across it and the next block starts afresh.
      auto const cut = static_cast<unsigned>(__builtin_ctz(long_escapes));
      write_escaped(bytes, escaped, cut, o);
      in += cut;
      static char const kHex[] = "0123456789ABCDEF";
      std::memcpy(o, "\\u00", 4);
      o[4] = kHex[*in >> 4];
      o[5] = kHex[*in & 0xF];
      o += 6;
      in += 1;
      previous = _mm256_setzero_si256();
      continue;
    }
    write_escaped(bytes, escaped, 32, o);  // every block the same work: no branch to mispredict
    in += 32;
    previous = x;
  }
  // A sequence left open by the last block written is handed back whole: its bytes went out
  // unchanged, so the output steps back by as many.
  alignas(32) unsigned char last[32];
  _mm256_store_si256(reinterpret_cast<__m256i*>(last), previous);
  unsigned const pending = last[31] >= 0xC0 ? 1 : last[30] >= 0xE0 ? 2 : last[29] >= 0xF0 ? 3 : 0;
  out = o - pending;
  return in - pending;
}

AVX512_KERNEL unsigned char const* ascii_to_utf16_avx512(unsigned char const* p,
                                                         unsigned char const* end, char16_t*& out) {
  char16_t* o = out;
  // Long runs are stored around the cache, in aligned lines: a text this long outgrows it, and
  // a streaming store need not read the line it fills first.
  constexpr std::ptrdiff_t kStreamFrom = std::ptrdiff_t{256} << 10;
  if (end - p >= kStreamFrom) {
    auto const misaligned = reinterpret_cast<std::uintptr_t>(o) & 63;
    unsigned const head = static_cast<unsigned>((64 - misaligned) & 63) / 2;
    __m256i const x = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(p));
    std::uint32_t const headMask = head == 0 ? 0 : (std::uint32_t{1} << head) - 1;
    if ((misaligned & 1) == 0 && (_mm256_movemask_epi8(x) & headMask) == 0) {
      _mm512_mask_storeu_epi16(o, headMask, _mm512_cvtepu8_epi16(x));
      o += head;
      p += head;
      while (end - p >= 32) {
        __m256i const y = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(p));
        if (_mm256_movemask_epi8(y) != 0)
          break;
        _mm512_stream_si512(reinterpret_cast<__m512i*>(o), _mm512_cvtepu8_epi16(y));
        o += 32;
        p += 32;
      }
      _mm_sfence();
    }
  }
  while (end - p >= 32) {
    __m256i const x = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(p));
    if (_mm256_movemask_epi8(x) != 0)
      break;
    _mm512_storeu_si512(o, _mm512_cvtepu8_epi16(x));
    o += 32;
    p += 32;
  }
  out = o;
  return p;
}

#else

bool avx512_usable() {
  return false;
}

char16_t const* utf16_to_utf8_avx512(char16_t const* p, char16_t const*, char*&, char const*) {
  return p;
}

unsigned char const* escape_json_avx512(unsigned char const* in, unsigned char const*, char*&,
                                        char const*) {
  return in;
}

unsigned char const* ascii_to_utf16_avx512(unsigned char const* p, unsigned char const*,
                                           char16_t*&) {
  return p;
}

#endif

}  // namespace fl::simd
