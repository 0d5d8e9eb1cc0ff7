// UTF-8 <-> UTF-16 conversion: fl::i18n against utfcpp, iconv and std::codecvt, with memcpy of
// the same bytes as the ceiling. Every benchmark counts the UTF-8 size of the text, whichever
// way it converts, so the rates of both directions compare directly; each conversion returns a
// new string, as fl::i18n does.
//
// Texts of 16 MB: mostly_ascii (about one character in a hundred takes two to four bytes),
// ascii, and cjk (mostly three-byte ideographs).
#include <benchmark/benchmark.h>

#include <iconv.h>
#include <utf8.h>
#include "heap_mode_main.hpp"
#include "sample_text.hpp"

#include <codecvt>
#include <cstdint>
#include <cstring>
#include <locale>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "platform/i18n.hpp"

namespace {

constexpr std::size_t kTextBytes = 16u << 20;

enum class Corpus { mostly_ascii, ascii, cjk };

// Deterministic text: words of ASCII letters with line breaks; in mostly_ascii about one
// character in a hundred is a two-, three- or four-byte one, in cjk most characters are
// three-byte ideographs.
std::string make_text(Corpus corpus) {
  static char const* const kOthers[] = {"\xC3\xA9",         "\xE2\x82\xAC", "\xE4\xB8\xAD",
                                        "\xF0\x9F\x98\x80", "\xC3\xBC",     "\xE3\x81\x82"};
  TextRandom next(0x9E3779B9u);
  std::string text;
  text.reserve(kTextBytes + 8);
  while (text.size() < kTextBytes) {
    std::uint32_t const r = next();
    bool const other = corpus == Corpus::cjk            ? r % 8 != 0
                       : corpus == Corpus::mostly_ascii ? r % 100 == 0
                                                        : false;
    if (other) {
      text += corpus == Corpus::cjk ? kOthers[2 + (r >> 8) % 2 * 3] : kOthers[(r >> 8) % 6];
    } else if (r % 7 == 1) {
      text += (r >> 8) % 13 == 0 ? '\n' : ' ';
    } else {
      text += static_cast<char>('a' + (r >> 8) % 26);
    }
  }
  return text;
}

std::string const& text(Corpus corpus) {
  static std::string const texts[] = {make_text(Corpus::mostly_ascii), make_text(Corpus::ascii),
                                      make_text(Corpus::cjk)};
  return texts[static_cast<int>(corpus)];
}

std::u16string const& text16(Corpus corpus) {
  static std::u16string const texts[] = {fl::i18n::to_ustring(text(Corpus::mostly_ascii)),
                                         fl::i18n::to_ustring(text(Corpus::ascii)),
                                         fl::i18n::to_ustring(text(Corpus::cjk))};
  return texts[static_cast<int>(corpus)];
}

void finish(benchmark::State& state, Corpus corpus) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(text(corpus).size()));
}

// ---- UTF-8 to UTF-16 ----

void to16_ours(benchmark::State& state, Corpus corpus) {
  std::string const& in = text(corpus);
  for (auto _ : state) {
    std::u16string out = fl::i18n::to_ustring(in);
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}

void to16_utfcpp(benchmark::State& state, Corpus corpus) {
  std::string const& in = text(corpus);
  for (auto _ : state) {
    std::u16string out;
    out.reserve(in.size());
    utf8::utf8to16(in.begin(), in.end(), std::back_inserter(out));
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}

class Iconv {
 public:
  Iconv(char const* to, char const* from) : cd_(iconv_open(to, from)) {
    if (cd_ == reinterpret_cast<iconv_t>(-1)) {
      throw std::runtime_error("iconv_open failed");
    }
  }
  Iconv(Iconv const&) = delete;
  Iconv& operator=(Iconv const&) = delete;
  ~Iconv() { iconv_close(cd_); }

  // Converts [in, in + size) into `out`, which must be large enough; returns the bytes written.
  std::size_t convert(char const* in, std::size_t size, char* out, std::size_t room) {
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    char* src = const_cast<char*>(in);
    char* dst = out;
    std::size_t left = room;
    if (iconv(cd_, &src, &size, &dst, &left) == static_cast<std::size_t>(-1)) {
      throw std::runtime_error("iconv failed");
    }
    return room - left;
  }

 private:
  iconv_t cd_;
};

// iconv converts into a scratch buffer sized for the worst case once, outside the loop; each
// iteration then makes its result string from what was written.
void to16_iconv(benchmark::State& state, Corpus corpus) {
  std::string const& in = text(corpus);
  Iconv cd("UTF-16LE", "UTF-8");
  std::vector<char16_t> scratch(in.size());
  for (auto _ : state) {
    std::size_t const bytes = cd.convert(
        in.data(), in.size(), reinterpret_cast<char*>(scratch.data()), scratch.size() * 2);
    std::u16string out(scratch.data(), bytes / 2);
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}

// std::wstring_convert and codecvt_utf8_utf16 are deprecated but still the standard library's
// only converter.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
using Codecvt = std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t>;

void to16_codecvt(benchmark::State& state, Corpus corpus) {
  std::string const& in = text(corpus);
  Codecvt converter;
  for (auto _ : state) {
    std::u16string out = converter.from_bytes(in);
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}

void to8_codecvt(benchmark::State& state, Corpus corpus) {
  std::u16string const& in = text16(corpus);
  Codecvt converter;
  for (auto _ : state) {
    std::string out = converter.to_bytes(in);
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}
#pragma GCC diagnostic pop

// ---- UTF-16 to UTF-8 ----

void to8_ours(benchmark::State& state, Corpus corpus) {
  std::u16string const& in = text16(corpus);
  for (auto _ : state) {
    std::string out = fl::i18n::ustring_to_utf8(in);
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}

void to8_utfcpp(benchmark::State& state, Corpus corpus) {
  std::u16string const& in = text16(corpus);
  for (auto _ : state) {
    std::string out;
    out.reserve(in.size());
    utf8::utf16to8(in.begin(), in.end(), std::back_inserter(out));
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}

void to8_iconv(benchmark::State& state, Corpus corpus) {
  std::u16string const& in = text16(corpus);
  Iconv cd("UTF-8", "UTF-16LE");
  std::vector<char> scratch(in.size() * 3);
  for (auto _ : state) {
    std::size_t const bytes = cd.convert(reinterpret_cast<char const*>(in.data()), in.size() * 2,
                                         scratch.data(), scratch.size());
    std::string out(scratch.data(), bytes);
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, corpus);
}

// ---- The ceiling: copying the UTF-8 bytes into a buffer that already exists ----

void copy_memcpy(benchmark::State& state, Corpus corpus) {
  std::string const& in = text(corpus);
  std::vector<char> out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size());
    benchmark::ClobberMemory();
  }
  finish(state, corpus);
}

#define TEXT_BENCHMARKS(corpus)                            \
  BENCHMARK_CAPTURE(to16_ours, corpus, Corpus::corpus);    \
  BENCHMARK_CAPTURE(to16_utfcpp, corpus, Corpus::corpus);  \
  BENCHMARK_CAPTURE(to16_iconv, corpus, Corpus::corpus);   \
  BENCHMARK_CAPTURE(to16_codecvt, corpus, Corpus::corpus); \
  BENCHMARK_CAPTURE(to8_ours, corpus, Corpus::corpus);     \
  BENCHMARK_CAPTURE(to8_utfcpp, corpus, Corpus::corpus);   \
  BENCHMARK_CAPTURE(to8_iconv, corpus, Corpus::corpus);    \
  BENCHMARK_CAPTURE(to8_codecvt, corpus, Corpus::corpus);  \
  BENCHMARK_CAPTURE(copy_memcpy, corpus, Corpus::corpus)

TEXT_BENCHMARKS(mostly_ascii);
TEXT_BENCHMARKS(ascii);
TEXT_BENCHMARKS(cjk);

}  // namespace

int main(int argc, char** argv) {
  return run_benchmarks_keeping_heap(argc, argv);
}
