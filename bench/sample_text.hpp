// The 16 MB text that the text workloads share: words of ASCII letters and spaces, about one
// character in a hundred needing a JSON escape and one in a hundred a two- to four-byte UTF-8
// one. Deterministic, so that every run and every contender sees the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// A small deterministic generator (xorshift32) for the benchmarks' texts.
class TextRandom {
 public:
  explicit TextRandom(std::uint32_t seed) : state_(seed) {}
  std::uint32_t operator()() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }

 private:
  std::uint32_t state_;
};

inline std::string sample_text(std::size_t bytes) {
  static char const* const kOthers[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xE4\xB8\xAD",
                                        "\xF0\x9F\x98\x80"};
  static char const kEscaped[] = {'\n', '"', '\\', '\t', '\x01', '\r'};
  TextRandom next(0x2545F491u);
  std::string text;
  text.reserve(bytes + 8);
  while (text.size() < bytes) {
    std::uint32_t const r = next();
    if (r % 100 == 0) {
      text += kEscaped[(r >> 8) % sizeof kEscaped];
    } else if (r % 100 == 1) {
      text += kOthers[(r >> 8) % 4];
    } else if (r % 7 == 2) {
      text += ' ';
    } else {
      text += static_cast<char>('a' + (r >> 8) % 26);
    }
  }
  return text;
}
