#include "json/typed_array.hpp"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__linux__)
#include <sys/mman.h>
#endif

#include "json/reader.hpp"
#include "json/text_scan.hpp"

namespace foundation::json {

namespace rc = read_result;

namespace reading {

TypeGroup type_group(std::string_view name) {
  if (name == "int64" || name == "int32" || name == "int16" || name == "int8") {
    return TypeGroup::signed_integer;
  }
  if (name == "uint64" || name == "uint32" || name == "uint16" || name == "uint8") {
    return TypeGroup::unsigned_integer;
  }
  return TypeGroup::none;
}

void grow(Array& values) {
  Array bigger;
  bigger.reserve(2 * values.size());
  for (Value& v : values) {
    bigger.emplace_back(std::move(v));
  }
  values.swap(bigger);
}

namespace {

// The number of ',' before the first ']' in [p, end): an upper bound on the elements of a
// typed array, so that its vector is allocated once.
std::size_t count_commas_before_bracket(char const* p, char const* end) {
  std::size_t commas = 0;
#if defined(__SSE2__)
  __m128i const comma = _mm_set1_epi8(',');
  __m128i const bracket = _mm_set1_epi8(']');
  bool bracket_seen = false;
  while (!bracket_seen && end - p >= 16) {
    // Each byte lane counts up to 255 commas before the lanes are summed.
    __m128i lanes = _mm_setzero_si128();
    for (int blocks = 0; blocks < 255 && end - p >= 16; ++blocks, p += 16) {
      __m128i const block = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
      if (_mm_movemask_epi8(_mm_cmpeq_epi8(block, bracket)) != 0) {
        bracket_seen = true;  // this block is finished byte by byte below
        break;
      }
      lanes = _mm_sub_epi8(lanes, _mm_cmpeq_epi8(block, comma));
    }
    __m128i const sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
    commas += static_cast<std::size_t>(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
  }
#endif
  for (; p != end && *p != ']'; ++p) {
    commas += *p == ',';
  }
  return commas;
}

// The magnitude of a typed array element: "0", or a digit and all digits after it. Saturates
// at the largest 64-bit unsigned value.
#if defined(FOUNDATION_JSON_SWAR)
// How many of the eight bytes of word, from the first, are decimal digits.
inline int leading_digits(std::uint64_t word) {
  constexpr std::uint64_t zeros = 0x3030303030303030ULL;
  constexpr std::uint64_t high_nibbles = 0xF0F0F0F0F0F0F0F0ULL;
  // A byte is a digit when its high nibble is 3 and adding 6 keeps it so. A carry out of a
  // byte can only start at a non-digit and only reaches later bytes, which do not count.
  std::uint64_t const not_digit =
      ((word & high_nibbles) ^ zeros) | (((word + 0x0606060606060606ULL) & high_nibbles) ^ zeros);
  return not_digit != 0 ? __builtin_ctzll(not_digit) >> 3 : 8;
}

// The value of the first count (1 to 8) bytes of word, all digits.
inline std::uint64_t digits_value(std::uint64_t word, int count) {
  // Move the digits to the top, so that the bytes below read as leading zeros, then combine
  // neighbouring digits, pairs and quadruples with three multiplications.
  std::uint64_t v = (word - 0x3030303030303030ULL) << (8 * (8 - count));
  v = v * 10 + (v >> 8);
  return (((v & 0x000000FF000000FFULL) * (100 + (1000000ULL << 32))) +
          (((v >> 16) & 0x000000FF000000FFULL) * (1 + (10000ULL << 32)))) >>
         32;
}
#endif

// The magnitude of a typed array element: "0", or a digit and all digits after it. Saturates
// at the largest 64-bit unsigned value.
inline std::uint64_t read_magnitude(char const*& pos, char const* end) {
  if (*pos == '0') {
    ++pos;
    return 0;
  }
  std::uint64_t magnitude = 0;
  int count = 0;
#if defined(FOUNDATION_JSON_SWAR)
  // Sixteen digits at most in two words; nothing this long can overflow.
  constexpr std::uint64_t powers_of_ten[] = {1,      10,      100,      1000,     10000,
                                             100000, 1000000, 10000000, 100000000};
  while (count < 16 && end - pos >= 8) {
    std::uint64_t word;
    std::memcpy(&word, pos, sizeof word);
    int const digits = leading_digits(word);
    if (digits == 0) {
      return magnitude;
    }
    magnitude = magnitude * powers_of_ten[digits] + digits_value(word, digits);
    pos += digits;
    count += digits;
    if (digits < 8) {
      return magnitude;
    }
  }
#endif
  constexpr std::uint64_t max = std::numeric_limits<std::uint64_t>::max();
  for (; pos != end && is_digit(*pos); ++pos, ++count) {
    auto const digit = static_cast<std::uint64_t>(*pos - '0');
    if (count < 19) {
      magnitude = magnitude * 10 + digit;  // 19 digits cannot overflow
    } else if (magnitude > (max - digit) / 10) {
      magnitude = max;
    } else {
      magnitude = magnitude * 10 + digit;
    }
  }
  return magnitude;
}

// A typed array of a million elements is 40 MB of Values: more than glibc keeps in its heap,
// so every such allocation is mapped afresh and faulted in page by page, which takes longer
// than reading the text. Ask for huge pages for the part that can have them, before the first
// write.
void advise_huge_pages(Array& values) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  constexpr std::uintptr_t huge_page = std::uintptr_t{1} << 21;
  std::size_t const bytes = values.capacity() * sizeof(Value);
  if (bytes < 16 * huge_page) {
    return;
  }
  auto const first = reinterpret_cast<std::uintptr_t>(values.data());
  std::uintptr_t const begin = (first + huge_page - 1) & ~(huge_page - 1);
  std::uintptr_t const end = (first + bytes) & ~(huge_page - 1);
  if (begin < end) {
    // Only advice: whatever the kernel answers, the memory is there.
    (void)::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  }
#else
  (void)values;
#endif
}

// Bytes that may not follow an element of a typed array: they would make it a float, a
// string or an object.
inline bool ends_typed_element_badly(char c) {
  return c == '.' || c == '"' || c == 'E' || c == 'e' || c == '{';
}

}  // namespace

template <bool Signed>
int read_typed_array(char const*& pos, char const* end, bool comments, Array& out) {
  auto const skip = [end, comments](char const*& p) { skip_blank(p, end, comments); };
  if (pos == end) {
    return rc::unexpected_end;
  }
  if (*pos != '[') {
    return rc::expected_array;
  }
  ++pos;
  skip(pos);
  if (pos == end) {
    return rc::unexpected_end;
  }
  if (*pos == ']') {
    ++pos;
    out.clear();
    return rc::ok;
  }

  Array elements;
  {
    // Every element takes at least a digit and a separator, which bounds what a text of
    // commas alone can make us reserve.
    std::size_t const bound = static_cast<std::size_t>(end - pos) / 2 + 1;
    std::size_t const estimate = count_commas_before_bracket(pos, end) + 1;
    elements.reserve(estimate < bound ? estimate : bound);
    advise_huge_pages(elements);
  }
  for (;;) {
    bool const negative = *pos == '-';
    pos += negative;
    if (pos == end) {
      return rc::unexpected_end;  // only after a minus: an element never starts at the end
    }
    if (!is_digit(*pos)) {
      return rc::bad_typed_element;
    }
    // Decimal, saturating at the limits of the element type.
    std::uint64_t const magnitude = read_magnitude(pos, end);
    make_room(elements);
    if constexpr (Signed) {
      constexpr auto max = static_cast<std::uint64_t>(std::numeric_limits<long>::max());
      long v;
      if (!negative) {
        v = magnitude > max ? std::numeric_limits<long>::max() : static_cast<long>(magnitude);
      } else {
        v = magnitude > max ? std::numeric_limits<long>::min() : -static_cast<long>(magnitude);
      }
      elements.emplace_back(v);
    } else {
      elements.emplace_back(negative ? 0UL : static_cast<unsigned long>(magnitude));
    }

    if (pos == end) {
      return rc::unexpected_end;
    }
    if (*pos == ',' && pos + 1 != end && !is_space(pos[1]) && !comments) {
      ++pos;  // the common "1,2": nothing to check or skip
      continue;
    }
    if (ends_typed_element_badly(*pos)) {
      return rc::bad_typed_element;
    }
    skip(pos);
    if (pos == end) {
      return rc::unexpected_end;
    }
    char const c = *pos;
    if (c == ',') {
      ++pos;
      skip(pos);
      if (pos == end) {
        return rc::unexpected_end;
      }
      continue;
    }
    if (c == ']') {
      ++pos;
      out = std::move(elements);
      return rc::ok;
    }
    return ends_typed_element_badly(c) ? rc::bad_typed_element : rc::expected_comma_or_bracket;
  }
}

template int read_typed_array<true>(char const*&, char const*, bool, Array&);
template int read_typed_array<false>(char const*&, char const*, bool, Array&);

}  // namespace reading

int parse_int64_array(char const*& pos, char const* end, bool comments, Array& out) {
  return reading::read_typed_array<true>(pos, end, comments, out);
}

int parse_uint64_array(char const*& pos, char const* end, bool comments, Array& out) {
  return reading::read_typed_array<false>(pos, end, comments, out);
}

bool is_type_name(std::string_view name) {
  return reading::type_group(name) != reading::TypeGroup::none;
}

}  // namespace foundation::json
