#include "json/reader.hpp"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <tuple>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__linux__)
#include <sys/mman.h>
#endif

#include "platform/i18n.hpp"
#include "platform/json.hpp"
#include "platform/string_room.hpp"

namespace foundation::json {

namespace {

namespace rc = read_result;

enum class TypeGroup { none, signed_integer, unsigned_integer };

constexpr std::string_view qvdata_key = "qvdata";
constexpr std::string_view qvtype_key = "qvtype";

inline bool is_space(char c) {
  return fl::i18n::lcctype::isspace_ascii(static_cast<unsigned char>(c));
}

inline bool is_digit(char c) {
  return fl::i18n::lcctype::isdigit_ascii(static_cast<unsigned char>(c));
}

TypeGroup type_group(std::string_view name) {
  if (name == "int64" || name == "int32" || name == "int16" || name == "int8") {
    return TypeGroup::signed_integer;
  }
  if (name == "uint64" || name == "uint32" || name == "uint16" || name == "uint8") {
    return TypeGroup::unsigned_integer;
  }
  return TypeGroup::none;
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

// std::vector would copy Values when it grows (their move may allocate, so it is not
// noexcept); strings and scalars move for free, so grow by hand.
void grow(Array& values) {
  Array bigger;
  bigger.reserve(2 * values.size());
  for (Value& v : values) {
    bigger.emplace_back(std::move(v));
  }
  values.swap(bigger);
}

inline void make_room(Array& values) {
  if (values.size() == values.capacity()) {
    if (values.capacity() == 0) {
      values.reserve(4);  // most arrays in requests are short: one allocation
    } else {
      grow(values);
    }
  }
}

// Rarely taken paths are kept out of line so that the frames of the functions that recurse
// (value, object, array) stay small; sanitizer builds make every local expensive.
#if defined(__GNUC__)
#define FOUNDATION_JSON_NOINLINE __attribute__((noinline))
#else
#define FOUNDATION_JSON_NOINLINE
#endif

// Building a string member or element is on most paths; it is inlined except under
// AddressSanitizer, where its temporaries would multiply the frame of every nesting level.
#if defined(__SANITIZE_ADDRESS__)
#define FOUNDATION_JSON_SLOT FOUNDATION_JSON_NOINLINE
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FOUNDATION_JSON_SLOT FOUNDATION_JSON_NOINLINE
#endif
#endif
#if !defined(FOUNDATION_JSON_SLOT)
#define FOUNDATION_JSON_SLOT inline
#endif

// Empties a container that was being filled in place, unless the reading succeeded (target
// reset to null).
template <class Container>
struct ClearOnFailure {
  Container* target;
  ~ClearOnFailure() {
    if (target != nullptr) {
      target->clear();
    }
  }
};

// What parse_object keeps about "qvtype" and "qvdata" for the one object it reads.
struct TypedArrayState {
  TypeGroup pending = TypeGroup::none;
  bool data_seen = false;
  char const* data_start = nullptr;
};

int read_escaped_string(char const*& pos, char const* first, char const* run_end, char const* end,
                        std::string& decoded, std::string_view& text);

// Reads a quoted string. Without escapes its bytes stay in the text and text views them; with
// escapes they are decoded into decoded and text views that. Nothing is written on failure.
// The common case, a short string without escapes, is inline; the rest is not.
inline int read_string(char const*& pos, char const* end, std::string& decoded,
                       std::string_view& text) {
  if (pos == end) {
    return rc::unexpected_end;
  }
  if (*pos != '"') {
    return rc::expected_string;
  }
  char const* const first = pos + 1;
  if (char const* const close = find_plain_string_end(first, end); close != nullptr) {
    text = std::string_view(first, static_cast<std::size_t>(close - first));
    pos = close + 1;
    return rc::ok;
  }
  return read_escaped_string(pos, first, find_quote_or_backslash(first, end), end, decoded, text);
}

// The bytes of a string without escapes, as they stand in the text. Converted to the key of a
// map node or to the Value of a member or element, it is built right in that place (the
// conversion's result initializes it directly), so each byte is copied once and a short string
// with no call at all: a std::string built aside and moved in is two calls to memcpy.
struct KeyText {
  std::string_view text;
  operator std::string() const {
    std::string key;
    fl::strings::assign_short(key, text.data(), text.size());
    return key;
  }
};

struct StringText {
  char const* first;
  std::size_t size;
  operator Value() const {
    Value value{std::string()};
    fl::strings::assign_short(boost::get<std::string>(value), first, size);
    return value;
  }
};

// The seeds of an empty array or object, built in their place like StringText.
struct EmptyArray {
  operator Value() const { return Value(Array()); }
};

struct EmptyObject {
  operator Value() const { return Value(Object()); }
};

// Where a value goes once read. Strings and scalars are read first and then built once, in
// their place; an array or object cannot be moved without a new box, so its place is made
// first, empty, and it is read into it.
//
// Each place's put builds the Value from a seed (a scalar, a StringText, a std::string, or an
// empty container) and gives where it went, or nullptr when the value is to be dropped.
//
// A member of an object: its map node. When the key is already there the node made for it is
// dropped (the first member of a key stays).
struct MemberPlace {
  Object& members;
  // By reference: a copy of the view is one 16-byte load of the two 8-byte stores that the
  // key's reading has just made, which the store buffer cannot forward; each member waited.
  std::string_view const& key;

  template <class Seed>
  Value* put(Seed&& seed) {
    // One map operation: the node, key built from the text and value from the seed, is made
    // before the tree is searched. Members written in key order, as serializers of maps write
    // them, are placed after one comparison with the last key; others cost one comparison more
    // than a search from the root.
    std::size_t const before = members.size();
    auto const node =
        members.emplace_hint(hint(), std::piecewise_construct, std::forward_as_tuple(KeyText{key}),
                             std::forward_as_tuple(std::forward<Seed>(seed)));
    return members.size() != before ? &node->second : nullptr;
  }
  template <class Seed>
  Value* container(Seed&& seed) {
    return put(std::forward<Seed>(seed));
  }

  // Where the new key most likely goes: before the first key when its first byte sorts lower
  // (then it is surely first, and the map checks that with one comparison instead of searching
  // from the root after a failed comparison with the last key), else at the end. Requests
  // often come as "requestid", "uid", then a member that sorts before both. Any hint is
  // correct; a wrong one only costs comparisons.
  Object::iterator hint() const {
    auto const first = members.begin();
    if (first != members.end() && !key.empty() && !first->first.empty() &&
        static_cast<unsigned char>(key.front()) <
            static_cast<unsigned char>(first->first.front())) {
      return first;
    }
    return members.end();
  }
};

// An element of an array: a new Value at the back.
struct ElementPlace {
  Array& elements;

  template <class Seed>
  Value* put(Seed&& seed) {
    make_room(elements);
    return &elements.emplace_back(std::forward<Seed>(seed));
  }
  template <class Seed>
  Value* container(Seed&& seed) {
    return put(std::forward<Seed>(seed));
  }
};

// A Value given by the caller, written only on success: a container is read into it in place
// when it already holds that kind, else aside and moved in.
struct OutPlace {
  Value& out;

  template <class Seed>
  Value* put(Seed&& seed) {
    out = Value(std::forward<Seed>(seed));
    return &out;
  }
  template <class Seed>
  Value* container(Seed&&) {
    return &out;
  }
};

class Reader {
 public:
  Reader(char const* end, bool comments) : end_(end), comments_(comments) {}

  void skip(char const*& pos) const {
    // Requests are mostly written without white space: one test sees a byte above the space
    // and no comment to skip.
    if (pos != end_ && static_cast<unsigned char>(*pos) > ' ' && (*pos != '/' || !comments_)) {
      return;
    }
    if (!comments_) {
      while (pos != end_ && is_space(*pos)) {
        ++pos;
      }
    } else {
      skip_space(pos, end_, true);
    }
  }

  int value(char const*& pos, Value& out, int depth) const;
  // Reads the opening bracket of an object or an array, and the closing one when the container
  // is empty (`empty` is then set). Counts the level against the nesting limit.
  int open_container(char const*& pos, char opening, char closing, int missing, int& depth,
                     bool& empty) const;
  int object(char const*& pos, Object& out, int depth) const;
  int array(char const*& pos, Array& out, int depth) const;
  int typed_data(char const*& pos, TypeGroup group, Value& out, int depth) const;
  template <bool Signed>
  int typed_array(char const*& pos, Array& out) const;

 private:
  template <class Place>
  int read_value(char const*& pos, Place& place, int depth) const;
  template <class Place>
  int put_string(char const*& pos, Place& place) const;
  template <class Place>
  int put_escaped_string(char const*& pos, Place& place) const;
  template <class Place>
  int put_number(char const*& pos, Place& place) const;
  template <class Place, class Scalar>
  int put_literal(char const*& pos, std::string_view literal, Scalar scalar, Place& place) const;
  template <class Place>
  int put_object(char const*& pos, Place& place, int depth) const;
  template <class Place>
  int put_array(char const*& pos, Place& place, int depth) const;
  int fresh_value(char const*& pos, Value* out, int depth) const;
  int fresh_object(char const*& pos, Value& out, int depth) const;
  int fresh_array(char const*& pos, Value& out, int depth) const;
  int special_member(char const*& pos, std::string_view key, TypedArrayState& state,
                     Object& members, int depth) const;
  int data_member(char const*& pos, TypedArrayState& state, Value& out, int depth) const;
  void type_member(Value const& type_value, TypedArrayState& state, Object& members,
                   int& code) const;

  char const* const end_;
  bool const comments_;
};

// A value is tried as string, number, object, array, boolean and null, and when all fail the
// one that got furthest reports. The first byte decides: it starts at most one alternative,
// every other one fails at that byte without moving, and a literal never moves when it fails.
// So the alternative the byte starts is the only one read; when it is a literal that does not
// match, or the byte starts none, all stand still and the string alternative, first in the
// order, reports expected_string.
template <class Place>
inline int Reader::read_value(char const*& pos, Place& place, int depth) const {
  if (pos == end_) {
    return rc::unexpected_end;
  }
  // Strings first, outside the switch: most values of requests are strings, and a compare
  // and a branch are cheaper than the switch's jump through a table.
  if (*pos == '"') {
    return put_string(pos, place);
  }
  switch (*pos) {
    case '{':
      return put_object(pos, place, depth);
    case '[':
      return put_array(pos, place, depth);
    case 't':
      return put_literal(pos, "true", true, place);
    case 'f':
      return put_literal(pos, "false", false, place);
    case 'n':
      return put_literal(pos, "null", Null{}, place);
    case '-':
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9':
      return put_number(pos, place);
    default:
      return rc::expected_string;
  }
}

template <class Place>
FOUNDATION_JSON_SLOT int Reader::put_string(char const*& pos, Place& place) const {
  char const* const first = pos + 1;
  if (char const* const close = find_plain_string_end(first, end_); close != nullptr) {
    // Built once, straight from the text, in its place.
    place.put(StringText{first, static_cast<std::size_t>(close - first)});
    pos = close + 1;
    return rc::ok;
  }
  return put_escaped_string(pos, place);
}

template <class Place>
FOUNDATION_JSON_NOINLINE int Reader::put_escaped_string(char const*& pos, Place& place) const {
  std::string decoded;
  std::string_view text;
  int const code = read_string(pos, end_, decoded, text);
  if (code == rc::ok) {
    if (text.data() != decoded.data()) {
      decoded.assign(text.data(), text.size());
    }
    place.put(std::move(decoded));
  }
  return code;
}

// The number's text is copied out (it need not end in a NUL, and the conversion reads up to
// the first byte that cannot continue a number, which may be beyond what the scanner took);
// short numbers, all real ones, are copied to the stack rather than into a string.
FOUNDATION_JSON_NOINLINE double number_value(char const* first, char const* last) {
  auto const length = static_cast<std::size_t>(last - first);
  char buffer[64];
  if (length < sizeof buffer) {
    std::memcpy(buffer, first, length);
    buffer[length] = '\0';
    return detail::string_to_double(buffer);
  }
  std::string const text = detail::get_utf8_string(first, last);
  return detail::string_to_double(text.c_str());
}

template <class Place>
FOUNDATION_JSON_NOINLINE int Reader::put_number(char const*& pos, Place& place) const {
  char const* const start = pos;
  int const code = scan_number(pos, end_);
  if (code == rc::ok) {
    place.put(number_value(start, pos));
  }
  return code;
}

template <class Place, class Scalar>
inline int Reader::put_literal(char const*& pos, std::string_view literal, Scalar scalar,
                               Place& place) const {
  if (static_cast<std::size_t>(end_ - pos) >= literal.size() &&
      std::memcmp(pos, literal.data(), literal.size()) == 0) {
    place.put(scalar);
    pos += literal.size();
    return rc::ok;
  }
  return rc::expected_string;
}

template <class Place>
inline int Reader::put_object(char const*& pos, Place& place, int depth) const {
  Value* const slot = place.container(EmptyObject{});
  if (slot != nullptr && slot->is<Object>()) {
    return object(pos, boost::get<Object>(*slot), depth);
  }
  return fresh_value(pos, slot, depth);
}

template <class Place>
inline int Reader::put_array(char const*& pos, Place& place, int depth) const {
  Value* const slot = place.container(EmptyArray{});
  if (slot != nullptr && slot->is<Array>()) {
    return array(pos, boost::get<Array>(*slot), depth);
  }
  return fresh_value(pos, slot, depth);
}

// An array or object read aside, then moved into out (a Value of another kind), or dropped
// when out is nullptr (the member of a key already there).
FOUNDATION_JSON_NOINLINE int Reader::fresh_value(char const*& pos, Value* out, int depth) const {
  Value dropped;
  Value& target = out != nullptr ? *out : dropped;
  return *pos == '{' ? fresh_object(pos, target, depth) : fresh_array(pos, target, depth);
}

// Reading into a Value of another kind: read aside, then move in.
FOUNDATION_JSON_NOINLINE int Reader::fresh_object(char const*& pos, Value& out, int depth) const {
  Object members;
  int const code = object(pos, members, depth);
  if (code == rc::ok) {
    out = Value(std::move(members));
  }
  return code;
}

FOUNDATION_JSON_NOINLINE int Reader::fresh_array(char const*& pos, Value& out, int depth) const {
  Array elements;
  int const code = array(pos, elements, depth);
  if (code == rc::ok) {
    out = Value(std::move(elements));
  }
  return code;
}

int Reader::value(char const*& pos, Value& out, int depth) const {
  OutPlace place{out};
  return read_value(pos, place, depth);
}

// A "qvdata" or "qvtype" member, whose value may change how the other is read.
FOUNDATION_JSON_NOINLINE int Reader::special_member(char const*& pos, std::string_view key,
                                                    TypedArrayState& state, Object& members,
                                                    int depth) const {
  Value scratch;  // the value of a key already there, read and dropped
  // The node is made first, empty, and the value read into it: for "qvdata" that is where a
  // later "qvtype" finds it.
  auto const make = [&](auto&& seed) -> Value& {
    auto const inserted =
        members.emplace(std::piecewise_construct, std::forward_as_tuple(key),
                        std::forward_as_tuple(std::forward<decltype(seed)>(seed)));
    return inserted.second ? inserted.first->second : scratch;
  };
  // A container is read in place when its slot already has that kind.
  Value& target = *pos == '[' ? make(Array{}) : *pos == '{' ? make(Object{}) : make(Undefined{});
  if (key == qvdata_key) {
    return data_member(pos, state, target, depth);
  }
  int code = value(pos, target, depth);
  if (code == rc::ok) {
    type_member(target, state, members, code);
  }
  return code;
}

// The value of a "qvdata" member, read under the pending type name. Whatever is thrown while
// reading it makes the text unreadable rather than escaping.
FOUNDATION_JSON_NOINLINE int Reader::data_member(char const*& pos, TypedArrayState& state,
                                                 Value& out, int depth) const {
  state.data_start = pos;
  int code;
  try {
    code = typed_data(pos, state.pending, out, depth);
  } catch (...) {
    code = rc::unexpected_end;
  }
  state.data_seen = true;
  return code;
}

// After a "qvtype" member has been read: take up its type name and, when "qvdata" came first,
// read that again as a typed array. Anything thrown here is dropped and the member stays as
// read; a failure of the second reading ends the object with its code.
FOUNDATION_JSON_NOINLINE void Reader::type_member(Value const& type_value, TypedArrayState& state,
                                                  Object& members, int& code) const {
  try {
    // A qvtype that is not a string changes nothing.
    if (!type_value.is<std::string>()) {
      return;
    }
    TypeGroup const group = type_group(type_value.get<std::string>());
    if (group != TypeGroup::none) {
      state.pending = group;
    }
    if (!state.data_seen || state.pending == TypeGroup::none) {
      return;
    }
    // The entry is Undefined while the second reading runs, so an exception leaves it so.
    Value& data = members[std::string(qvdata_key)];
    data = Value();
    char const* p = state.data_start;  // the main position does not move back
    Value typed;
    int const reread = typed_data(p, state.pending, typed, 0);
    if (reread != rc::ok) {
      code = reread;
      return;
    }
    data = std::move(typed);
    state.data_seen = false;
  } catch (...) {
  }
}

int Reader::open_container(char const*& pos, char opening, char closing, int missing, int& depth,
                           bool& empty) const {
  empty = false;
  if (pos == end_) {
    return rc::unexpected_end;
  }
  if (*pos != opening) {
    return missing;
  }
  ++pos;
  if (++depth > max_nesting_depth) {
    return rc::too_deep;
  }
  skip(pos);
  if (pos == end_) {
    return rc::unexpected_end;
  }
  if (*pos == closing) {
    ++pos;
    empty = true;
  }
  return rc::ok;
}

// Reading into a container that already holds something: read aside, then move in on success.
template <class Container, class Read>
FOUNDATION_JSON_NOINLINE int read_aside(Container& out, Read&& read) {
  Container aside;
  int const code = read(aside);
  if (code == rc::ok) {
    out = std::move(aside);
  }
  return code;
}

int Reader::object(char const*& pos, Object& out, int depth) const {
  if (!out.empty()) {
    return read_aside(out, [&](Object& aside) { return object(pos, aside, depth); });
  }
  bool empty = false;
  if (int const opened = open_container(pos, '{', '}', rc::expected_object, depth, empty);
      opened != rc::ok || empty) {
    if (empty) {
      out.clear();
    }
    return opened;
  }

  // The members go straight into out, which is empty (as it always is for a nested object,
  // whose node was just made). A failure, or an exception, leaves it empty again, which is as
  // it was.
  Object& members = out;
  ClearOnFailure<Object> guard{&out};
  // The key as it stands in the text, or decoded into decoded_key when it has escapes.
  std::string_view key;
  std::string decoded_key;
  TypedArrayState state;
  for (;;) {
    int code = read_string(pos, end_, decoded_key, key);
    if (code != rc::ok) {
      return code;
    }
    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }
    if (*pos != ':') {
      return rc::expected_colon;
    }
    ++pos;
    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }

    // Each member is one map insertion: a string or scalar once read, an array or object before
    // it is read into its node. Nothing looks at the map while a value is read, so inserting
    // first is the same as inserting after, and on failure the whole map is dropped anyway.
    if (key.size() == qvdata_key.size() && (key == qvdata_key || key == qvtype_key)) {
      code = special_member(pos, key, state, members, depth);
    } else {
      MemberPlace place{members, key};
      code = read_value(pos, place, depth);
    }
    if (code != rc::ok) {
      return code;
    }

    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }
    if (*pos == ',') {
      ++pos;
      skip(pos);
      continue;
    }
    if (*pos == '}') {
      ++pos;
      guard.target = nullptr;
      return rc::ok;
    }
    return rc::expected_comma_or_brace;
  }
}

int Reader::array(char const*& pos, Array& out, int depth) const {
  if (!out.empty()) {
    return read_aside(out, [&](Array& aside) { return array(pos, aside, depth); });
  }
  bool empty = false;
  if (int const opened = open_container(pos, '[', ']', rc::expected_array, depth, empty);
      opened != rc::ok || empty) {
    if (empty) {
      out.clear();
    }
    return opened;
  }

  // As in object: each element is read in place at the back of out; a failure drops them all.
  Array& elements = out;
  ClearOnFailure<Array> guard{&out};
  for (;;) {
    if (pos == end_) {
      return rc::unexpected_end;  // what the element's own reading would give
    }
    ElementPlace place{elements};
    int const code = read_value(pos, place, depth);
    if (code != rc::ok) {
      return code;
    }
    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }
    if (*pos == ',') {
      ++pos;
      skip(pos);
      continue;
    }
    if (*pos == ']') {
      ++pos;
      guard.target = nullptr;
      return rc::ok;
    }
    return rc::expected_comma_or_bracket;
  }
}

int Reader::typed_data(char const*& pos, TypeGroup group, Value& out, int depth) const {
  if (group == TypeGroup::none) {
    return value(pos, out, depth);
  }
  auto const read = [&](Array& elements) {
    return group == TypeGroup::signed_integer ? typed_array<true>(pos, elements)
                                              : typed_array<false>(pos, elements);
  };
  if (out.is<Array>()) {
    return read(out.get<Array>());
  }
  Array elements;
  int const code = read(elements);
  if (code == rc::ok) {
    out = Value(std::move(elements));
  }
  return code;
}

// Bytes that may not follow an element of a typed array: they would make it a float, a
// string or an object.
inline bool ends_typed_element_badly(char c) {
  return c == '.' || c == '"' || c == 'E' || c == 'e' || c == '{';
}

template <bool Signed>
int Reader::typed_array(char const*& pos, Array& out) const {
  if (pos == end_) {
    return rc::unexpected_end;
  }
  if (*pos != '[') {
    return rc::expected_array;
  }
  ++pos;
  skip(pos);
  if (pos == end_) {
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
    std::size_t const bound = static_cast<std::size_t>(end_ - pos) / 2 + 1;
    std::size_t const estimate = count_commas_before_bracket(pos, end_) + 1;
    elements.reserve(estimate < bound ? estimate : bound);
    advise_huge_pages(elements);
  }
  for (;;) {
    bool const negative = *pos == '-';
    pos += negative;
    if (pos == end_) {
      return rc::unexpected_end;  // only after a minus: an element never starts at the end
    }
    if (!is_digit(*pos)) {
      return rc::bad_typed_element;
    }
    // Decimal, saturating at the limits of the element type.
    std::uint64_t const magnitude = read_magnitude(pos, end_);
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

    if (pos == end_) {
      return rc::unexpected_end;
    }
    if (*pos == ',' && pos + 1 != end_ && !is_space(pos[1]) && !comments_) {
      ++pos;  // the common "1,2": nothing to check or skip
      continue;
    }
    if (ends_typed_element_badly(*pos)) {
      return rc::bad_typed_element;
    }
    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }
    char const c = *pos;
    if (c == ',') {
      ++pos;
      skip(pos);
      if (pos == end_) {
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

}  // namespace

int parse_object(char const*& pos, char const* end, bool comments, Object& out) {
  return Reader(end, comments).object(pos, out, 0);
}

int parse_value(char const*& pos, char const* end, bool comments, Value& out) {
  return Reader(end, comments).value(pos, out, 0);
}

int parse_array(char const*& pos, char const* end, bool comments, Array& out) {
  return Reader(end, comments).array(pos, out, 0);
}

int parse_string(char const*& pos, char const* end, std::string& out) {
  std::string_view text;
  int const code = read_string(pos, end, out, text);
  if (code == rc::ok && text.data() != out.data()) {
    out.assign(text.data(), text.size());
  }
  return code;
}

namespace {

// The rest of read_string, from the first backslash (run_end), or from the end when the text
// ends inside the string.
int read_escaped_string(char const*& pos, char const* first, char const* run_end, char const* end,
                        std::string& decoded, std::string_view& text) {
  char const* p = first;
  if (run_end == end) {
    pos = end;
    return rc::unexpected_end;
  }

  // Escapes only shrink the text, so the distance to the closing quote bounds the result and
  // the buffer is allocated once.
  char const* close = run_end;
  while (close != end && *close == '\\') {
    close = end - close > 2 ? find_quote_or_backslash(close + 2, end) : end;
  }
  std::string collected;
  collected.reserve(static_cast<std::size_t>(close - p));

  for (;;) {
    collected.append(p, run_end);
    p = run_end;
    if (p == end) {
      pos = end;
      return rc::unexpected_end;
    }
    if (*p == '"') {
      pos = p + 1;
      decoded = std::move(collected);
      text = decoded;
      return rc::ok;
    }
    ++p;  // past the backslash
    if (p == end) {
      pos = end;
      return rc::unexpected_end;
    }
    switch (*p++) {
      case '"':
        collected += '"';
        break;
      case '\\':
        collected += '\\';
        break;
      case '/':
        collected += '/';
        break;
      case 'b':
        collected += '\b';
        break;
      case 'f':
        collected += '\f';
        break;
      case 'n':
        collected += '\n';
        break;
      case 'r':
        collected += '\r';
        break;
      case 't':
        collected += '\t';
        break;
      case 'u': {
        char16_t units[2];
        int count = 1;
        int code = parse_hex4(p, end, units[0]);
        if (code == rc::ok && units[0] >= 0xD800 && units[0] <= 0xDBFF) {
          if (end - p < 6) {
            code = rc::unexpected_end;
          } else if (p[0] != '\\' || p[1] != 'u') {
            code = rc::bad_unicode_escape;
          } else {
            p += 2;
            code = parse_hex4(p, end, units[1]);
            count = 2;
          }
        }
        if (code != rc::ok) {
          pos = p;
          return code;
        }
        collected += detail::u16_to_u8(units, count);
        break;
      }
      default:
        pos = p - 1;
        return rc::bad_escape;
    }
    run_end = find_quote_or_backslash(p, end);
  }
}

}  // namespace

int scan_number(char const*& pos, char const* end) {
  if (pos == end) {
    return rc::unexpected_end;
  }
  if (*pos == '-') {
    ++pos;
    if (pos == end) {
      return rc::unexpected_end;
    }
  }
  auto const skip_digits = [&] {
    while (pos != end && is_digit(*pos)) {
      ++pos;
    }
  };
  bool fraction = false;
  if (*pos == '0') {
    ++pos;
    if (pos == end) {
      return rc::ok;
    }
    if (*pos == '.') {
      fraction = true;
    } else {
      // "007" is one number; no fraction may follow such a run.
      skip_digits();
      if (pos == end) {
        return rc::ok;
      }
    }
  } else {
    if (!is_digit(*pos)) {
      return rc::expected_digit;
    }
    skip_digits();
    if (pos == end) {
      return rc::ok;
    }
    fraction = *pos == '.';
  }
  if (fraction) {
    ++pos;
    if (pos == end) {
      return rc::unexpected_end;
    }
    if (!is_digit(*pos)) {
      return rc::expected_fraction_digit;
    }
    skip_digits();
    if (pos == end) {
      return rc::ok;
    }
  }
  if (*pos == 'e' || *pos == 'E') {
    ++pos;
    if (pos == end) {
      return rc::unexpected_end;
    }
    if (*pos == '+' || *pos == '-') {
      ++pos;
      if (pos == end) {
        return rc::unexpected_end;
      }
    }
    if (!is_digit(*pos)) {
      return rc::expected_exponent_digit;
    }
    skip_digits();
  }
  return rc::ok;
}

int match_literal(char const*& pos, char const* end, std::string_view literal, int mismatch) {
  auto const remaining = static_cast<std::size_t>(end - pos);
  if (remaining >= literal.size()) {
    if (std::memcmp(pos, literal.data(), literal.size()) != 0) {
      return mismatch;
    }
    pos += literal.size();
    return rc::ok;
  }
  if (remaining == 0) {
    return rc::unexpected_end;
  }
  return std::memcmp(pos, literal.data(), remaining) == 0 ? rc::unexpected_end : mismatch;
}

int parse_hex4(char const*& pos, char const* end, char16_t& out) {
  if (end - pos < 4) {
    return rc::unexpected_end;
  }
  unsigned unit = 0;
  for (int i = 0; i < 4; ++i) {
    int const c = static_cast<unsigned char>(*pos);
    if (!std::isxdigit(c)) {
      return rc::bad_unicode_escape;
    }
    ++pos;
    int const digit = std::isdigit(c) ? c - '0' : std::isupper(c) ? c - 'A' + 10 : c - 'a' + 10;
    unit = (unit << 4) | static_cast<unsigned>(digit);
  }
  out = static_cast<char16_t>(unit);
  return rc::ok;
}

void skip_space(char const*& pos, char const* end, bool comments) {
  for (;;) {
    while (pos != end && is_space(*pos)) {
      ++pos;
    }
    if (!comments || end - pos < 2 || pos[0] != '/') {
      return;
    }
    if (pos[1] == '*') {
      char const* p = pos + 2;
      while (end - p >= 2 && !(p[0] == '*' && p[1] == '/')) {
        ++p;
      }
      pos = end - p >= 2 ? p + 2 : end;
    } else if (pos[1] == '/') {
      auto const* newline = static_cast<char const*>(
          std::memchr(pos + 2, '\n', static_cast<std::size_t>(end - pos - 2)));
      pos = newline != nullptr ? newline + 1 : end;
    } else {
      return;
    }
  }
}

int parse_typed_data(char const*& pos, char const* end, bool comments, std::string const& type_name,
                     Value& out) {
  return Reader(end, comments).typed_data(pos, type_group(type_name), out, 0);
}

int parse_int64_array(char const*& pos, char const* end, bool comments, Array& out) {
  return Reader(end, comments).typed_array<true>(pos, out);
}

int parse_uint64_array(char const*& pos, char const* end, bool comments, Array& out) {
  return Reader(end, comments).typed_array<false>(pos, out);
}

bool is_type_name(std::string_view name) {
  return type_group(name) != TypeGroup::none;
}

}  // namespace foundation::json
