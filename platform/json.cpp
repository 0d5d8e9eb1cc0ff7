#include "platform/json.hpp"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "json/value.hpp"

namespace foundation::json {
namespace {

#if defined(__SSE2__)

// Copies the sixteen bytes at `p` to `out` and returns the offset of the first one that a
// string cannot take as it is (a control, '"', '\\', or anything from 0x80 up, which needs a
// UTF-8 check), or 16. Copying whole blocks while scanning spares a copy per run of plain text.
constexpr std::size_t kBlock = 16;

inline unsigned copy_plain(unsigned char const* p, char* out) {
  __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
  // Signed compare: bytes from 0x80 up are negative, so they count as below 0x20 too.
  __m128i const special = _mm_or_si128(_mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20)),
                                       _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                                    _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))));
  unsigned const mask = static_cast<unsigned>(_mm_movemask_epi8(special));
  return mask == 0 ? 16 : static_cast<unsigned>(__builtin_ctz(mask));
}

#else

// Eight bytes per step, in a word: the same as above, or 8.
constexpr std::size_t kBlock = 8;

inline unsigned copy_plain(unsigned char const* p, char* out) {
  constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
  constexpr std::uint64_t kLow7 = 0x7F7F7F7F7F7F7F7FULL;
  constexpr std::uint64_t kHigh = 0x8080808080808080ULL;
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  std::memcpy(out, &word, sizeof word);
  // High bit of each byte: low seven bits >= 0x20; byte is not '"'; byte is not '\\'. None of
  // the sums carries into the next byte, so every byte's answer is exact.
  std::uint64_t const printable = (word & kLow7) + kOnes * 0x60;
  std::uint64_t const quote = word ^ (kOnes * '"');
  std::uint64_t const not_quote = ((quote & kLow7) + kLow7) | quote;
  std::uint64_t const backslash = word ^ (kOnes * '\\');
  std::uint64_t const not_backslash = ((backslash & kLow7) + kLow7) | backslash;
  std::uint64_t const special = ~(printable & not_quote & not_backslash & ~word) & kHigh;
  if (special == 0) {
    return 8;
  }
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return static_cast<unsigned>(__builtin_clzll(special)) / 8;
#else
  return static_cast<unsigned>(__builtin_ctzll(special)) / 8;
#endif
}

#endif

// Bytes that go into a string unchanged when no UTF-8 check is due.
struct PlainTable {
  bool plain[256];
  constexpr PlainTable() : plain() {
    for (int c = 0x20; c < 0x80; ++c) {
      plain[c] = c != '"' && c != '\\';
    }
  }
};
constexpr PlainTable kPlain;

// Moves `p` past the sequence at `p`, whose lead byte is not ASCII, and tells whether it is
// well-formed UTF-8. The second byte's range depends on the lead byte, which excludes
// overlongs, encoded surrogates and values above U+10FFFF; a sequence that is not well-formed
// is skipped as one maximal invalid subpart (the lead byte and the continuation bytes that
// still fit), to be replaced by a single U+FFFD.
inline bool skip_sequence(unsigned char const*& p, unsigned char const* end) {
  unsigned const lead = *p++;
  unsigned low = 0x80;
  unsigned high = 0xBF;
  int trailing;
  if (lead < 0xC2) {
    return false;  // stray continuation byte, or C0/C1 (always overlong)
  } else if (lead < 0xE0) {
    trailing = 1;
  } else if (lead < 0xF0) {
    trailing = 2;
    if (lead == 0xE0) {
      low = 0xA0;
    } else if (lead == 0xED) {
      high = 0x9F;
    }
  } else if (lead < 0xF5) {
    trailing = 3;
    if (lead == 0xF0) {
      low = 0x90;
    } else if (lead == 0xF4) {
      high = 0x8F;
    }
  } else {
    return false;
  }
  if (p == end || *p < low || *p > high) {
    return false;
  }
  ++p;
  while (--trailing > 0) {
    if (p == end || (*p & 0xC0u) != 0x80u) {
      return false;
    }
    ++p;
  }
  return true;
}

// Appends to a string through a small local buffer, so that the many short pieces of a
// document (punctuation, escapes, numbers, blocks of string text) cost no call into
// std::string each.
class Output {
 public:
  explicit Output(std::string& text) : text_(text) {}
  Output(Output const&) = delete;
  Output& operator=(Output const&) = delete;

  void put(char c) {
    if (used_ == kSize) {
      flush();
    }
    buffer_[used_++] = c;
  }

  // Space for `size` bytes (at most kSize) to be written at the result; commit() keeps them.
  char* room(std::size_t size) {
    if (kSize - used_ < size) {
      flush();
    }
    return buffer_ + used_;
  }

  void commit(std::size_t size) { used_ += size; }

  // A short piece (at most kSize bytes).
  void write(char const* data, std::size_t size) {
    std::memcpy(room(size), data, size);
    commit(size);
  }

  template <std::size_t N>
  void literal(char const (&text)[N]) {
    write(text, N - 1);
  }

  // Makes room in the string for `size` more bytes, so that a long string is written without
  // reallocations (std::string still grows geometrically when this falls short).
  void expect(std::size_t size) {
    std::size_t const needed = text_.size() + used_ + size;
    if (needed > text_.capacity()) {
      text_.reserve(needed);
    }
  }

  void flush() {
    text_.append(buffer_, used_);
    used_ = 0;
  }

 private:
  static constexpr std::size_t kSize = 4096;
  std::string& text_;
  std::size_t used_ = 0;
  char buffer_[kSize];
};

// The escaped form of each ASCII byte that needs one, padded to eight bytes so that writing it
// is one fixed-size copy: the short forms for the usual controls, \u00XX for the others.
struct EscapeTable {
  struct Entry {
    char text[7];
    unsigned char size;
  };
  Entry entries[128] = {};

  constexpr EscapeTable() {
    constexpr char kHex[] = "0123456789ABCDEF";
    for (int c = 0; c < 0x20; ++c) {
      set(c, 'u');
      entries[c].text[2] = '0';
      entries[c].text[3] = '0';
      entries[c].text[4] = kHex[c >> 4];
      entries[c].text[5] = kHex[c & 0xF];
      entries[c].size = 6;
    }
    set(0x08, 'b');
    set(0x0C, 'f');
    set(0x0A, 'n');
    set(0x0D, 'r');
    set(0x09, 't');
    set(0x22, '"');
    set(0x5C, '\\');
  }

  constexpr void set(int c, char letter) {
    entries[c].text[0] = '\\';
    entries[c].text[1] = letter;
    entries[c].size = 2;
  }
};
constexpr EscapeTable kEscapes;

// Writes the byte at `p`, which a string cannot take as it is, and returns what follows: an
// escape for ASCII; a well-formed UTF-8 sequence as it is; for a malformed one, U+FFFD.
inline unsigned char const* write_special(Output& out, unsigned char const* p,
                                          unsigned char const* end) {
  if (*p < 0x80) {
    EscapeTable::Entry const& escape = kEscapes.entries[*p];
    std::memcpy(out.room(sizeof escape), &escape, sizeof escape);
    out.commit(escape.size);
    return p + 1;
  }
  unsigned char const* const start = p;
  bool const valid = skip_sequence(p, end);
  char* const to = out.room(4);
  if (valid) {
    std::size_t const size = static_cast<std::size_t>(p - start);
    for (std::size_t i = 0; i < size; ++i) {
      to[i] = static_cast<char>(start[i]);
    }
    out.commit(size);
  } else {
    std::memcpy(to, "\xEF\xBF\xBD", 3);
    out.commit(3);
  }
  return p;
}

void write_string(Output& out, std::string const& value) {
  // Room for the common case: plain text, a few escapes.
  out.expect(value.size() + value.size() / 8 + 2);
  out.put('"');
  auto const* p = reinterpret_cast<unsigned char const*>(value.data());
  auto const* const end = p + value.size();
  while (static_cast<std::size_t>(end - p) >= kBlock) {
    unsigned const plain = copy_plain(p, out.room(kBlock));
    out.commit(plain);
    p += plain;
    if (plain != kBlock) {
      p = write_special(out, p, end);
    }
  }
  while (p != end) {
    if (kPlain.plain[*p]) {
      out.put(static_cast<char>(*p++));
    } else {
      p = write_special(out, p, end);
    }
  }
  out.put('"');
}

template <class Number>
void write_number(Output& out, Number value) {
  char text[32];
  auto const result = std::to_chars(text, text + sizeof text, value);
  out.write(text, static_cast<std::size_t>(result.ptr - text));
}

template <class Floating>
void write_floating(Output& out, Floating value) {
  if (!std::isfinite(value)) {
    out.literal("null");  // JSON has no NaN or infinity
    return;
  }
  write_number(out, value);  // shortest text that reads back to the same value
}

// One open array or object: where its iteration stands.
struct Frame {
  bool is_object = false;
  bool first = true;
  Array::const_iterator element;
  Array::const_iterator elements_end;
  Object::const_iterator member;
  Object::const_iterator members_end;
};

// Writes a scalar, or opens a container and pushes its frame. Containers are walked with an
// explicit stack, so nesting depth costs heap, not call stack.
void begin_value(Output& out, Value const& value, std::vector<Frame>& stack) {
  switch (value.kind()) {
    case Kind::undefined:
    case Kind::null:
      out.literal("null");
      return;
    case Kind::boolean:
      if (value.get<bool>()) {
        out.literal("true");
      } else {
        out.literal("false");
      }
      return;
    case Kind::number:
      write_floating(out, value.get<double>());
      return;
    case Kind::float32:
      write_floating(out, value.get<float>());
      return;
    case Kind::int64:
      write_number(out, value.get<long>());
      return;
    case Kind::uint64:
      write_number(out, value.get<unsigned long>());
      return;
    case Kind::string:
      write_string(out, value.get<std::string>());
      return;
    case Kind::array: {
      Array const& array = value.get<Array>();
      out.put('[');
      Frame frame;
      frame.element = array.begin();
      frame.elements_end = array.end();
      stack.push_back(frame);
      return;
    }
    case Kind::object: {
      Object const& object = value.get<Object>();
      out.put('{');
      Frame frame;
      frame.is_object = true;
      frame.member = object.begin();
      frame.members_end = object.end();
      stack.push_back(frame);
      return;
    }
  }
}

}  // namespace

std::string serialize(Value const& value) {
  std::string text;
  Output out(text);
  std::vector<Frame> stack;
  begin_value(out, value, stack);
  while (!stack.empty()) {
    Frame& frame = stack.back();
    Value const* next;
    if (frame.is_object) {
      if (frame.member == frame.members_end) {
        out.put('}');
        stack.pop_back();
        continue;
      }
      if (!frame.first) {
        out.put(',');
      }
      write_string(out, frame.member->first);
      out.put(':');
      next = &frame.member->second;
      ++frame.member;
    } else {
      if (frame.element == frame.elements_end) {
        out.put(']');
        stack.pop_back();
        continue;
      }
      if (!frame.first) {
        out.put(',');
      }
      next = &*frame.element;
      ++frame.element;
    }
    frame.first = false;
    begin_value(out, *next, stack);  // may push, which invalidates `frame`
  }
  out.flush();
  return text;
}

}  // namespace foundation::json
