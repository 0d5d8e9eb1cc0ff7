#include "json/writer.hpp"

#include <algorithm>
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
#include "platform/i18n.hpp"
#include "platform/simd/avx512.h"
#include "platform/string_room.hpp"

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
  __m128i const stop = _mm_or_si128(_mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20)),
                                    _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                                 _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))));
  unsigned const mask = static_cast<unsigned>(_mm_movemask_epi8(stop));
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
  std::uint64_t const stop = ~(printable & not_quote & not_backslash & ~word) & kHigh;
  if (stop == 0) {
    return 8;
  }
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return static_cast<unsigned>(__builtin_clzll(stop)) / 8;
#else
  return static_cast<unsigned>(__builtin_ctzll(stop)) / 8;
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

// Writes straight into the result string, which is kept ahead of the writing: its size is grown
// to all the room it has (without a zero fill, the writers fill it) and cut back to what was
// written at the end.
// Writers work on a cursor, a char pointer kept in a register, where a member would have to be
// reloaded after every store through a char*.
class Output {
 public:
  explicit Output(std::string& text) : text_(text) {}
  Output(Output const&) = delete;
  Output& operator=(Output const&) = delete;

  char* cursor() { return cursor_; }
  char const* limit() const { return limit_; }
  void set_cursor(char* cursor) { cursor_ = cursor; }

  // A cursor with room for `size` bytes, given the current one.
  char* make_room(char* cursor, std::size_t size) {
    if (static_cast<std::size_t>(limit_ - cursor) >= size) {
      return cursor;
    }
    return grow(cursor, size);
  }

  void put(char c) {
    char* const to = make_room(cursor_, 1);
    *to = c;
    cursor_ = to + 1;
  }

  void write(char const* data, std::size_t size) {
    char* const to = make_room(cursor_, size);
    std::memcpy(to, data, size);
    cursor_ = to + size;
  }

  template <std::size_t N>
  void literal(char const (&text)[N]) {
    write(text, N - 1);
  }

  // Makes room in the string for `size` more bytes, so that a long string is written without
  // reallocations (std::string still grows geometrically when this falls short).
  void expect(std::size_t size) {
    std::size_t const used_now = used();
    if (used_now + size > text_.capacity()) {
      text_.reserve(used_now + size);
      limit_ = text_.data() + text_.size();
      cursor_ = text_.data() + used_now;
    }
  }

  void finish() { text_.resize(used()); }

 private:
  // Small enough not to matter, large enough that most replies take one allocation.
  static constexpr std::size_t kMinStep = 256;

  std::size_t used() const { return static_cast<std::size_t>(cursor_ - text_.data()); }

  char* grow(char* cursor, std::size_t size) {
    std::size_t const used = static_cast<std::size_t>(cursor - text_.data());
    // Room already reserved costs nothing to take: the bytes are left as they are, for the
    // writers to overwrite.
    std::size_t const step = std::max(used / 2, kMinStep);
    fl::strings::grow_uninitialized(text_, std::max(used + std::max(size, step), text_.capacity()));
    limit_ = text_.data() + text_.size();
    return text_.data() + used;
  }

  std::string& text_;
  char* cursor_ = text_.data();
  char* limit_ = text_.data();
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

// Where reading and writing stand after a byte that stopped the plain copy. Returned by value, the
// two stay in registers; through references they would go to memory on every such byte.
struct Position {
  unsigned char const* in;
  char* out;
};

// Writes the byte at `p`, which a string cannot take as it is, at `to` (room for eight bytes):
// an escape for ASCII; a well-formed UTF-8 sequence as it is; for a malformed one, U+FFFD.
Position write_stop_slowly(unsigned char const* p, unsigned char const* end, char* to) {
  if (*p < 0x80) {
    EscapeTable::Entry const& escape = kEscapes.entries[*p];
    std::memcpy(to, &escape, sizeof escape);
    return {p + 1, to + escape.size};
  }
  unsigned char const* const start = p;
  fl::i18n::utf8::Status status;
  fl::i18n::utf8::decode(p, end, status);
  if (status == fl::i18n::utf8::Status::ok) {
    for (unsigned char const* q = start; q != p; ++q) {
      *to++ = static_cast<char>(*q);
    }
  } else {
    std::memcpy(to, "\xEF\xBF\xBD", 3);
    to += 3;
  }
  return {p, to};
}

// The same, without branching on what the byte is: in text that mixes escapes and multi-byte
// characters such branches are mispredicted about every other time, which costs more than
// working out both answers and picking one with masks. Only malformed input and the last
// bytes of a string take the path above.
inline Position write_stop(unsigned char const* p, unsigned char const* end, char* to) {
  if (end - p < 8) {
    return write_stop_slowly(p, end, to);
  }
  unsigned const lead = p[0];
  unsigned const length = fl::i18n::utf8::well_formed_length(p);
  if (length == 0) {
    return write_stop_slowly(p, end, to);
  }
  EscapeTable::Entry const& escape = kEscapes.entries[lead & 0x7F];
  std::uint64_t escaped;
  std::uint64_t as_is;
  std::memcpy(&escaped, &escape, sizeof escaped);
  std::memcpy(&as_is, p, sizeof as_is);
  bool const ascii = lead < 0x80;
  std::uint64_t const pick_escape = 0 - static_cast<std::uint64_t>(ascii);
  std::uint64_t const bytes = (escaped & pick_escape) | (as_is & ~pick_escape);
  std::memcpy(to, &bytes, sizeof bytes);
  unsigned const pick = 0 - static_cast<unsigned>(ascii);
  return {p + length, to + ((escape.size & pick) | (length & ~pick))};
}

void write_string(Output& out, std::string const& value) {
  // Room for the common case: plain text, a few escapes.
  out.expect(value.size() + value.size() / 8 + 2);
  Position at{reinterpret_cast<unsigned char const*>(value.data()), out.make_room(out.cursor(), 1)};
  auto const* const end = at.in + value.size();
  *at.out++ = '"';
  // A block, then room for what the byte that stops it may become; the wide blocks want more.
  bool const wide = fl::simd::avx512_usable();
  std::size_t const room = wide ? 128 : kBlock + 8;
  while (static_cast<std::size_t>(end - at.in) >= kBlock) {
    at.out = out.make_room(at.out, room);
    if (wide) {
      unsigned char const* const from = at.in;
      at.in = fl::simd::escape_json_avx512(at.in, end, at.out, out.limit());
      if (at.in != from) {
        continue;  // it ran out of room: more is made above
      }
    }
    // One run of plain bytes and the byte that stops it: all the way without the wide blocks,
    // else past the malformed UTF-8 that they leave to this code.
    unsigned const plain = copy_plain(at.in, at.out);
    at.in += plain;
    at.out += plain;
    if (plain != kBlock) {
      at = write_stop(at.in, end, at.out);
    }
  }
  while (at.in != end) {
    at.out = out.make_room(at.out, 8);
    if (kPlain.plain[*at.in]) {
      *at.out++ = static_cast<char>(*at.in++);
    } else {
      at = write_stop(at.in, end, at.out);
    }
  }
  at.out = out.make_room(at.out, 1);
  *at.out++ = '"';
  out.set_cursor(at.out);
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

// The open containers. Replies nest a few levels: their frames live here, without a heap
// allocation per reply; deeper ones go to the heap.
class FrameStack {
 public:
  bool empty() const { return size_ == 0; }
  Frame& back() { return size_ <= kLocal ? local_[size_ - 1] : heap_.back(); }
  void push_back(Frame const& frame) {
    if (size_ < kLocal) {
      local_[size_] = frame;
    } else {
      heap_.push_back(frame);
    }
    ++size_;
  }
  void pop_back() {
    if (size_ > kLocal) {
      heap_.pop_back();
    }
    --size_;
  }

 private:
  static constexpr std::size_t kLocal = 16;
  Frame local_[kLocal];
  std::vector<Frame> heap_;
  std::size_t size_ = 0;
};

// Writes a scalar, or opens a container and pushes its frame. Containers are walked with an
// explicit stack, so nesting depth costs heap, not call stack.
void begin_value(Output& out, Value const& value, FrameStack& stack) {
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
  FrameStack stack;
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
  out.finish();
  return text;
}

}  // namespace foundation::json
