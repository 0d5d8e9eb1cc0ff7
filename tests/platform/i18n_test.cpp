// fl::i18n: UTF-8 <-> UTF-16 over all of Unicode, and what malformed input turns into through
// every entry point of the UTF-8 core, the JSON writer's included.
#include "platform/i18n.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "json/value.hpp"
#include "json/writer.hpp"

namespace {

using fl::i18n::to_ustring;
using fl::i18n::ustring_to_utf8;
using fl::i18n::Utf8Decoder;

// Textbook encodings of one scalar value, to build expectations independently of the
// converters' block-wise code.
std::string utf8_of(char32_t cp) {
  std::string out;
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
  return out;
}

std::u16string utf16_of(char32_t cp) {
  if (cp < 0x10000) {
    return std::u16string(1, static_cast<char16_t>(cp));
  }
  cp -= 0x10000;
  return {static_cast<char16_t>(0xD800 + (cp >> 10)), static_cast<char16_t>(0xDC00 + (cp & 0x3FF))};
}

std::string utf8_of(std::u32string const& text) {
  std::string out;
  for (char32_t cp : text) {
    out += utf8_of(cp);
  }
  return out;
}

std::u16string utf16_of(std::u32string const& text) {
  std::u16string out;
  for (char32_t cp : text) {
    out += utf16_of(cp);
  }
  return out;
}

// ---- Well-formed text, encoded by the compiler ----

struct KnownText {
  char const* name;
  std::string utf8;
  std::u16string utf16;
};

class Utf8Utf16KnownText : public testing::TestWithParam<KnownText> {};

TEST_P(Utf8Utf16KnownText, ConvertsBothWays) {
  KnownText const& text = GetParam();
  EXPECT_EQ(to_ustring(text.utf8), text.utf16);
  EXPECT_EQ(ustring_to_utf8(text.utf16), text.utf8);
  // The pointer form ends at the first NUL, like any C string.
  EXPECT_EQ(ustring_to_utf8(text.utf16.c_str()), std::string(text.utf8.c_str()));
}

INSTANTIATE_TEST_SUITE_P(
    Samples, Utf8Utf16KnownText,
    testing::Values(
        KnownText{"Empty", u8"", u""},
        KnownText{"Ascii", u8"plain text/with punctuation!", u"plain text/with punctuation!"},
        KnownText{"MixedLong", u8"The quick brown fox jumps over the lazy dog — Ωμέγα 𝄞 末尾",
                  u"The quick brown fox jumps over the lazy dog — Ωμέγα 𝄞 末尾"},
        KnownText{"EmbeddedNul", std::string("a\0b", 3), std::u16string(u"a\0b", 3)}),
    [](testing::TestParamInfo<KnownText> const& info) { return info.param.name; });

// ---- Every scalar value, plane by plane ----

class Utf8Utf16Plane : public testing::TestWithParam<int> {};

// All scalar values of the plane in one text, with ASCII runs of changing length between them
// so that characters fall at every offset of the converters' blocks.
TEST_P(Utf8Utf16Plane, EveryScalarValueRoundTrips) {
  char32_t const first = static_cast<char32_t>(GetParam()) << 16;
  std::string utf8;
  std::u16string utf16;
  for (char32_t cp = first; cp <= first + 0xFFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) {
      continue;
    }
    utf8 += utf8_of(cp);
    utf16 += utf16_of(cp);
    if (cp % 61 == 0) {
      std::size_t const run = cp % 37;
      utf8.append(run, 'r');
      utf16.append(run, u'r');
    }
  }
  EXPECT_EQ(to_ustring(utf8), utf16);
  EXPECT_EQ(ustring_to_utf8(utf16), utf8);
  // Plane 0 starts with U+0000, where the pointer form stops; start it after that.
  std::size_t const skip = first == 0 ? 1 : 0;
  EXPECT_EQ(ustring_to_utf8(utf16.c_str() + skip), utf8.substr(skip));
}

INSTANTIATE_TEST_SUITE_P(AllPlanes, Utf8Utf16Plane, testing::Range(0, 17));

// ---- One table for every entry point of the UTF-8 core ----

// UTF-8 bytes and the characters they stand for: well-formed text at the edges of each length
// and of the surrogate range, and malformed text with one U+FFFD per maximal invalid subpart.
struct Utf8Case {
  char const* name;
  std::string input;
  std::u32string text;
};

constexpr char32_t kRep = 0xFFFD;
// Long enough that the JSON writer's widest blocks run over the input too.
constexpr char kTail[] = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

class Utf8Core : public testing::TestWithParam<Utf8Case> {};

// At every offset of a block, with and without text after it.
TEST_P(Utf8Core, WholeStringDecode) {
  Utf8Case const& c = GetParam();
  for (std::size_t prefix = 0; prefix <= 33; ++prefix) {
    SCOPED_TRACE("ASCII prefix " + std::to_string(prefix));
    std::u16string const head(prefix, u'p');
    EXPECT_EQ(to_ustring(std::string(prefix, 'p') + c.input), head + utf16_of(c.text));
    EXPECT_EQ(to_ustring(std::string(prefix, 'p') + c.input + kTail),
              head + utf16_of(c.text) + std::u16string(std::begin(kTail), std::end(kTail) - 1));
  }
}

// Fed in three pieces, cut at every two places, with and without text after it.
TEST_P(Utf8Core, StreamingDecodeAtEverySplit) {
  Utf8Case const& c = GetParam();
  for (std::string const tail : {"", "gh"}) {
    std::string const bytes = "0123456789abcdef" + c.input + tail;
    std::u16string const expected =
        u"0123456789abcdef" + utf16_of(c.text) + std::u16string(tail.begin(), tail.end());
    for (std::size_t a = 0; a <= bytes.size(); ++a) {
      for (std::size_t b = a; b <= bytes.size(); ++b) {
        Utf8Decoder decoder;
        std::u16string out;
        decoder.feed(std::string_view(bytes).substr(0, a), out);
        decoder.feed(std::string_view(bytes).substr(a, b - a), out);
        decoder.feed(std::string_view(bytes).substr(b), out);
        decoder.finish(out);
        ASSERT_EQ(out, expected) << "split at " << a << " and " << b << " of " << bytes.size();
      }
    }
  }
}

// Well-formed exactly when the characters give back the same bytes.
TEST_P(Utf8Core, ValidationAndTheWayBack) {
  Utf8Case const& c = GetParam();
  bool const valid = utf8_of(c.text) == c.input;
  for (std::size_t prefix = 0; prefix <= 17; ++prefix) {
    std::string const head(prefix, 'p');
    EXPECT_EQ(fl::i18n::is_valid_utf8(head + c.input), valid) << "ASCII prefix " << prefix;
    EXPECT_EQ(fl::i18n::is_valid_utf8(head + c.input + kTail), valid) << "ASCII prefix " << prefix;
  }
}

// The JSON writer's string check, in keys and values, at every offset of its blocks.
TEST_P(Utf8Core, SerializedString) {
  namespace fj = foundation::json;
  Utf8Case const& c = GetParam();
  for (std::size_t prefix = 0; prefix <= 33; ++prefix) {
    SCOPED_TRACE("ASCII prefix " + std::to_string(prefix));
    for (std::string const tail : {"", kTail}) {
      std::string const input = std::string(prefix, 'p') + c.input + tail;
      std::string const text = std::string(prefix, 'p') + utf8_of(c.text) + tail;
      EXPECT_EQ(fj::serialize(fj::Value(fj::Object{{input, fj::Value(input)}})),
                "{\"" + text + "\":\"" + text + "\"}");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, Utf8Core,
    testing::Values(
        Utf8Case{"Last1", "\x7F", {0x7F}}, Utf8Case{"First2", "\xC2\x80", {0x80}},
        Utf8Case{"Last2", "\xDF\xBF", {0x7FF}}, Utf8Case{"First3", "\xE0\xA0\x80", {0x800}},
        Utf8Case{"BelowSurrogates", "\xED\x9F\xBF", {0xD7FF}},
        Utf8Case{"AboveSurrogates", "\xEE\x80\x80", {0xE000}},
        Utf8Case{"Replacement", "\xEF\xBF\xBD", {0xFFFD}},
        Utf8Case{"Last3", "\xEF\xBF\xBF", {0xFFFF}},
        Utf8Case{"First4", "\xF0\x90\x80\x80", {0x10000}},
        Utf8Case{"FirstLowSurrogateTop", "\xF0\x90\x8F\xBF", {0x103FF}},
        Utf8Case{"SecondHighSurrogate", "\xF0\x90\x90\x80", {0x10400}},
        Utf8Case{"LastHighSurrogate", "\xF4\x8F\xB0\x80", {0x10FC00}},
        Utf8Case{"Last4", "\xF4\x8F\xBF\xBF", {0x10FFFF}},
        Utf8Case{"LoneContinuation", "\x80", {kRep}},
        Utf8Case{"LoneContinuationBF", "\xBF", {kRep}},
        Utf8Case{"TwoContinuations", "\x80\xBF", {kRep, kRep}},
        Utf8Case{"OverlongC0", "\xC0\xAF", {kRep, kRep}},
        Utf8Case{"OverlongC1", "\xC1\xBF", {kRep, kRep}},
        Utf8Case{"OverlongThreeByte", "\xE0\x80\xAF", {kRep, kRep, kRep}},
        Utf8Case{"OverlongThreeByteTop", "\xE0\x9F\xBF", {kRep, kRep, kRep}},
        Utf8Case{"OverlongFourByte", "\xF0\x80\x80\xAF", {kRep, kRep, kRep, kRep}},
        Utf8Case{"OverlongFourByteTop", "\xF0\x8F\xBF\xBF", {kRep, kRep, kRep, kRep}},
        Utf8Case{"SurrogateD800", "\xED\xA0\x80", {kRep, kRep, kRep}},
        Utf8Case{"SurrogateDFFF", "\xED\xBF\xBF", {kRep, kRep, kRep}},
        Utf8Case{"EncodedPair", "\xED\xA0\xBD\xED\xB8\x80", {kRep, kRep, kRep, kRep, kRep, kRep}},
        Utf8Case{"Above10FFFF", "\xF4\x90\x80\x80", {kRep, kRep, kRep, kRep}},
        Utf8Case{"LeadF5", "\xF5\x80\x80\x80", {kRep, kRep, kRep, kRep}},
        Utf8Case{"LeadFE", "\xFE", {kRep}}, Utf8Case{"LeadFF", "\xFF", {kRep}},
        Utf8Case{"TruncatedTwo", "\xC3", {kRep}}, Utf8Case{"TruncatedThree", "\xE2\x82", {kRep}},
        Utf8Case{"TruncatedFour", "\xF0\x9F\x98", {kRep}},
        Utf8Case{"TruncatedThenAscii",
                 "\xF0\x9F"
                 "a",
                 {kRep, U'a'}},
        Utf8Case{"LeadThenLead", "\xC3\xC3\xA9", {kRep, 0x00E9}},
        Utf8Case{"TruncatedThenChar", "\xE1\x80\xE2\x82\xAC", {kRep, 0x20AC}},
        Utf8Case{"StandardExample",
                 "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                 {U'a', kRep, kRep, kRep, U'b', kRep, U'c', kRep, kRep, U'd'}},
        Utf8Case{"ValidAmongInvalid",
                 "\xC3\xA9\x80\xF0\x9F\x98\x80\xE0\x80",
                 {0x00E9, kRep, 0x1F600, kRep, kRep}}),
    [](testing::TestParamInfo<Utf8Case> const& info) { return info.param.name; });

// ---- Malformed UTF-16: every unpaired surrogate becomes U+FFFD ----

struct BadUtf16 {
  char const* name;
  std::u16string input;
  std::string expected;
};

class Utf16ToUtf8Malformed : public testing::TestWithParam<BadUtf16> {};

constexpr char16_t kTail16[] = u"0123456789abcdefghijklmnopqrstuvwxyz\u00e9\u20ac0123";
constexpr char kTail8[] =
    "0123456789abcdefghijklmnopqrstuvwxyz\xC3\xA9\xE2\x82\xAC"
    "0123";

TEST_P(Utf16ToUtf8Malformed, ReplacesUnpairedSurrogates) {
  BadUtf16 const& bad = GetParam();
  for (std::size_t prefix = 0; prefix <= 33; ++prefix) {
    SCOPED_TRACE("ASCII prefix " + std::to_string(prefix));
    std::u16string const input = std::u16string(prefix, u'p') + bad.input;
    std::string const expected = std::string(prefix, 'p') + bad.expected;
    EXPECT_EQ(ustring_to_utf8(input), expected);
    // A long tail puts the surrogates in the block-wise path too, at every offset of a block.
    EXPECT_EQ(ustring_to_utf8(input + kTail16), expected + kTail8);
    EXPECT_EQ(ustring_to_utf8((input + u"xy").c_str()), expected + "xy");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Surrogates, Utf16ToUtf8Malformed,
    testing::Values(BadUtf16{"LoneHigh", {0xD800}, "\xEF\xBF\xBD"},
                    BadUtf16{"LoneHighTop", {0xDBFF}, "\xEF\xBF\xBD"},
                    BadUtf16{"LoneLow", {0xDC00}, "\xEF\xBF\xBD"},
                    BadUtf16{"LoneLowTop", {0xDFFF}, "\xEF\xBF\xBD"},
                    BadUtf16{"HighThenAscii",
                             {0xD800, u'a'},
                             "\xEF\xBF\xBD"
                             "a"},
                    BadUtf16{"HighThenBmp", {0xD800, 0xE000}, "\xEF\xBF\xBD\xEE\x80\x80"},
                    BadUtf16{"LowThenHigh", {0xDC00, 0xD800}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
                    BadUtf16{
                        "HighHighLow", {0xD800, 0xD800, 0xDC00}, "\xEF\xBF\xBD\xF0\x90\x80\x80"},
                    BadUtf16{"PairLow", {0xD83D, 0xDE00, 0xDE00}, "\xF0\x9F\x98\x80\xEF\xBF\xBD"},
                    BadUtf16{"HighBetweenPairs",
                             {0xD83D, 0xDE00, 0xDBFF, 0xD83D, 0xDE00},
                             "\xF0\x9F\x98\x80\xEF\xBF\xBD\xF0\x9F\x98\x80"}),
    [](testing::TestParamInfo<BadUtf16> const& info) { return info.param.name; });

// The pointer form's other ends (the first NUL, long text) are in the tables above.
TEST(Utf16PointerOverload, NullGivesEmptyText) {
  EXPECT_EQ(ustring_to_utf8(static_cast<char16_t const*>(nullptr)), "");
}

// Runs long enough for the wide blocks and their stores around the cache, at each alignment of
// the output, broken by characters of each length and a cut sequence; whole and in two pieces.
TEST(Utf8ToUtf16LongRuns, MatchAtEveryAlignment) {
  for (std::size_t head = 0; head < 34; ++head) {
    std::string const bytes = std::string(head, 'x') + "\xC3\xA9" + std::string(300000, 'a') +
                              "\xF0\x9F\x98\x80" + std::string(300001, 'b') + "\xE2\x98\x83" +
                              std::string(262144, 'c') + "\xC3" + std::string(70, 'd');
    std::u16string const expected =
        std::u16string(head, u'x') + u"\u00e9" + std::u16string(300000, u'a') + u"\U0001F600" +
        std::u16string(300001, u'b') + u"\u2603" + std::u16string(262144, u'c') + u"\uFFFD" +
        std::u16string(70, u'd');
    ASSERT_EQ(to_ustring(bytes), expected) << "after " << head << " leading bytes";
    Utf8Decoder decoder;
    std::u16string out;
    decoder.feed(std::string_view(bytes).substr(0, 400000 + head), out);
    decoder.feed(std::string_view(bytes).substr(400000 + head), out);
    decoder.finish(out);
    ASSERT_EQ(out, expected) << "streamed, after " << head << " leading bytes";
  }
}

// Long UTF-16 text of every density of non-ASCII units, with pairs and unpaired surrogates at
// any offset, against a plain unit-by-unit encoding built on the encodings above.
class Utf16ToUtf8LongText : public testing::TestWithParam<unsigned> {};

TEST_P(Utf16ToUtf8LongText, MatchesUnitByUnitEncoding) {
  unsigned const other_percent = GetParam();
  std::uint32_t state = 777 + other_percent;
  auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  char32_t const samples[] = {0xE9, 0x7FF, 0x800, 0x20AC, 0xFFFF, 0x1F600, 0x10000, 0x10FFFF};
  for (int n = 0; n < 6; ++n) {
    std::u16string utf16;
    std::size_t const size = 2000 + next() % 20000;
    while (utf16.size() < size) {
      std::uint32_t const r = next();
      if (r % 100 >= other_percent) {
        utf16 += static_cast<char16_t>('a' + r % 26);
      } else if (r % 11 == 0) {  // a surrogate on its own, high or low
        utf16 += static_cast<char16_t>(((r >> 4) % 2 == 0 ? 0xD800 : 0xDC00) + r % 0x400);
      } else {
        utf16 += utf16_of(samples[(r >> 4) % 8]);
      }
    }
    std::string expected;
    for (std::size_t i = 0; i < utf16.size(); ++i) {
      char32_t const u = utf16[i];
      bool const pair = u >= 0xD800 && u < 0xDC00 && i + 1 < utf16.size() &&
                        utf16[i + 1] >= 0xDC00 && utf16[i + 1] < 0xE000;
      if (pair) {
        expected += utf8_of(0x10000 + ((u - 0xD800) << 10) + (utf16[i + 1] - 0xDC00));
        ++i;
      } else {
        expected += u >= 0xD800 && u < 0xE000 ? std::string("\xEF\xBF\xBD") : utf8_of(u);
      }
    }
    ASSERT_EQ(ustring_to_utf8(utf16), expected) << "text " << n << " of " << size << " units";
  }
}

INSTANTIATE_TEST_SUITE_P(Densities, Utf16ToUtf8LongText, testing::Values(0u, 1u, 5u, 30u, 90u));

}  // namespace
