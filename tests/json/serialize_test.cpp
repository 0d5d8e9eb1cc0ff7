// foundation::json::serialize: the text is checked by a strict JSON parser of its own (Python's
// json module with NaN and Infinity refused, after a strict UTF-8 decode) and compared value
// for value with what was serialized.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "json/value.hpp"
#include "json/writer.hpp"

namespace {

namespace fj = foundation::json;
using fj::Array;
using fj::Object;
using fj::Value;

// ---- The strict parser ----

// Reads the file named by argv[1] and prints one line per token of the parsed document:
// "{" "K <key hex>" ... "}", "[" ... "]", "S <utf-8 hex>", "B 1", "B 0", "Z" for null, and for
// numbers "I <integer> <double bits> <text>" or "R <double bits> <text>".
constexpr char kCanonicalizer[] = R"(import json, struct, sys

def refuse(name):
    raise ValueError('not JSON: ' + name)

class Number:
    def __init__(self, text, integral):
        self.text, self.integral = text, integral

def bits(text):
    return struct.unpack('<Q', struct.pack('<d', float(text)))[0]

text = open(sys.argv[1], 'rb').read().decode('utf-8')
doc = json.loads(text, parse_constant=refuse,
                 parse_int=lambda t: Number(t, True), parse_float=lambda t: Number(t, False))
lines = []
def walk(v):
    if isinstance(v, dict):
        lines.append('{')
        for key, member in v.items():
            lines.append('K ' + key.encode('utf-8').hex())
            walk(member)
        lines.append('}')
    elif isinstance(v, list):
        lines.append('[')
        for element in v:
            walk(element)
        lines.append(']')
    elif isinstance(v, str):
        lines.append('S ' + v.encode('utf-8').hex())
    elif v is True or v is False:
        lines.append('B 1' if v else 'B 0')
    elif v is None:
        lines.append('Z')
    elif v.integral:
        lines.append('I %d %d %s' % (int(v.text), bits(v.text), v.text))
    else:
        lines.append('R %d %s' % (bits(v.text), v.text))
walk(doc)
sys.stdout.write('\n'.join(lines) + '\n')
)";

struct ParseResult {
  int status;
  std::vector<std::string> lines;
  std::string error;
};

std::string read_file(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(std::string const& path, std::string const& content) {
  std::ofstream out(path, std::ios::binary);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

ParseResult parse_strictly(std::string const& json) {
  // Unique per process and test: ctest runs test programs side by side.
  testing::TestInfo const* const test = testing::UnitTest::GetInstance()->current_test_info();
  std::string name =
      std::string(test->test_suite_name()) + "_" + test->name() + "_" + std::to_string(::getpid());
  for (char& c : name) {
    if (c == '/') {
      c = '_';
    }
  }
  std::string const base = testing::TempDir() + "serialize_" + name;
  std::string const script = base + ".py";
  std::string const input = base + ".json";
  std::string const output = base + ".out";
  std::string const error = base + ".err";
  write_file(script, kCanonicalizer);
  write_file(input, json);
  std::string const command =
      "python3 '" + script + "' '" + input + "' > '" + output + "' 2> '" + error + "'";
  ParseResult result;
  result.status = std::system(command.c_str());
  std::istringstream lines(read_file(output));
  for (std::string line; std::getline(lines, line);) {
    result.lines.push_back(line);
  }
  result.error = read_file(error);
  std::remove(script.c_str());
  std::remove(input.c_str());
  std::remove(output.c_str());
  std::remove(error.c_str());
  return result;
}

std::string hex(std::string const& bytes) {
  static char const kDigits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += kDigits[c >> 4];
    out += kDigits[c & 0xF];
  }
  return out;
}

std::uint64_t bits_of(double d) {
  std::uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  return bits;
}

double double_of(std::uint64_t bits) {
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

std::vector<std::string> split(std::string const& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) {
    words.push_back(word);
  }
  return words;
}

std::size_t significant_digits(std::string const& number) {
  std::string digits;
  for (char c : number) {
    if (c == 'e' || c == 'E') {
      break;
    }
    if (c >= '0' && c <= '9') {
      digits += c;
    }
  }
  std::size_t const first = digits.find_first_not_of('0');
  if (first == std::string::npos) {
    return 1;
  }
  std::size_t const last = digits.find_last_not_of('0');
  return last - first + 1;
}

// Walks `expected` and the parser's lines side by side. Strings in `expected` hold the text
// that must come back; numbers are compared by value (bit for bit, so -0 and the last digit
// count), floats after narrowing the parsed double back to float.
class Matcher {
 public:
  explicit Matcher(std::vector<std::string> lines) : lines_(std::move(lines)) {}

  void match(Value const& expected, std::string const& path) {
    std::string const line = next(path);
    std::vector<std::string> const words = split(line);
    switch (expected.kind()) {
      case fj::Kind::undefined:
      case fj::Kind::null:
        EXPECT_EQ(line, "Z") << path;
        return;
      case fj::Kind::boolean:
        EXPECT_EQ(line, expected.get<bool>() ? "B 1" : "B 0") << path;
        return;
      case fj::Kind::string:
        EXPECT_EQ(line, "S " + hex(expected.get<std::string>())) << path;
        return;
      case fj::Kind::number:
      case fj::Kind::float32: {
        bool const single = expected.kind() == fj::Kind::float32;
        double const d = single ? expected.get<float>() : expected.get<double>();
        if (!std::isfinite(d)) {
          EXPECT_EQ(line, "Z") << path;
          return;
        }
        ASSERT_GE(words.size(), 3u) << path << ": " << line;
        double const parsed = double_of(std::stoull(words[words.size() - 2]));
        double const back = single ? static_cast<float>(parsed) : parsed;
        EXPECT_EQ(bits_of(back), bits_of(d)) << path << ": " << line;
        if (words[0] == "R") {  // integers may print every digit of their exact value
          EXPECT_LE(significant_digits(words.back()), single ? 9u : 17u) << path << ": " << line;
        }
        return;
      }
      case fj::Kind::int64:
      case fj::Kind::uint64:
        ASSERT_EQ(words.size(), 4u) << path << ": " << line;
        EXPECT_EQ(words[0], "I") << path;
        EXPECT_EQ(words[1], expected.is<long>() ? std::to_string(expected.get<long>())
                                                : std::to_string(expected.get<unsigned long>()))
            << path;
        return;
      case fj::Kind::array: {
        EXPECT_EQ(line, "[") << path;
        std::size_t index = 0;
        for (Value const& element : expected.get<Array>()) {
          match(element, path + "[" + std::to_string(index++) + "]");
        }
        EXPECT_EQ(next(path), "]") << path;
        return;
      }
      case fj::Kind::object: {
        EXPECT_EQ(line, "{") << path;
        for (auto const& [key, member] : expected.get<Object>()) {
          EXPECT_EQ(next(path), "K " + hex(key)) << path;
          match(member, path + "." + key);
        }
        EXPECT_EQ(next(path), "}") << path;
        return;
      }
    }
  }

  void expect_consumed() const { EXPECT_EQ(position_, lines_.size()) << "trailing tokens"; }

 private:
  std::string next(std::string const& path) {
    if (position_ == lines_.size()) {
      ADD_FAILURE() << path << ": the parsed document ended early";
      return std::string();
    }
    return lines_[position_++];
  }

  std::vector<std::string> lines_;
  std::size_t position_ = 0;
};

// Serializes `input`, has the strict parser read it, and compares with `expected`.
void expect_round_trip(Value const& input, Value const& expected) {
  std::string const text = fj::serialize(input);
  ParseResult const parsed = parse_strictly(text);
  ASSERT_EQ(parsed.status, 0) << "rejected: " << parsed.error << "\ntext: " << text;
  Matcher matcher(parsed.lines);
  matcher.match(expected, "$");
  matcher.expect_consumed();
}

// ---- The harness itself must refuse what is not strict JSON ----

TEST(SerializeStrictParser, RefusesNonStandardText) {
  for (std::string const text :
       {"NaN", "[Infinity]", "[-Infinity]", "\"a\x01z\"", "\"\xC0\xAF\"", "\"\xED\xA0\x80\"",
        "\"\xF4\x90\x80\x80\"", "\"\xE2\x82\"", "[1,]", "{'a':1}", "\"\\x41\""}) {
    EXPECT_NE(parse_strictly(text).status, 0) << text;
  }
  EXPECT_EQ(parse_strictly("[1,\"\xF0\x9F\x98\x80\"]").status, 0);
}

// ---- Exact text ----

struct ExactCase {
  char const* name;
  Value value;
  std::string text;
};

class SerializeExactText : public testing::TestWithParam<ExactCase> {};

TEST_P(SerializeExactText, Writes) {
  EXPECT_EQ(fj::serialize(GetParam().value), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, SerializeExactText,
    testing::Values(
        ExactCase{"Undefined", Value(), "null"}, ExactCase{"Null", Value(fj::Null()), "null"},
        ExactCase{"True", Value(true), "true"}, ExactCase{"False", Value(false), "false"},
        ExactCase{"EmptyString", Value(""), "\"\""}, ExactCase{"EmptyArray", Value(Array{}), "[]"},
        ExactCase{"EmptyObject", Value(Object{}), "{}"},
        ExactCase{"NamedEscapes", Value("\b\f\n\r\t"), R"("\b\f\n\r\t")"},
        ExactCase{"OtherControls", Value(std::string("\x00\x01\x1F", 3)),
                  R"("\u0000\u0001\u001F")"},
        ExactCase{"QuoteAndBackslash", Value("say \"hi\" \\o/"), R"("say \"hi\" \\o/")"},
        ExactCase{"DeleteAndSlashAsThey", Value("\x7F/"), "\"\x7F/\""},
        ExactCase{"ReplacedBytes",
                  Value("a\xFF"
                        "b"),
                  "\"a\xEF\xBF\xBD"
                  "b\""},
        ExactCase{"MapOrder",
                  Value(Object{{"b", Value(1L)},
                               {"a", Value(Array{Value(2L), Value()})},
                               {"B", Value(fj::Null())}}),
                  R"({"B":null,"a":[2,null],"b":1})"},
        ExactCase{"Nested",
                  Value(Array{Value(Array{Value(Array{})}), Value(Object{{"k", Value(Object{})}})}),
                  R"([[[]],{"k":{}}])"}),
    [](testing::TestParamInfo<ExactCase> const& info) { return info.param.name; });

// ---- Hostile strings ----

// Every control character, quote and backslash, each at every offset of a 16-byte block.
TEST(SerializeHostileStrings, ControlsQuotesAndBackslashesSurvive) {
  std::string hostile;
  for (int c = 0; c < 0x20; ++c) {
    hostile += static_cast<char>(c);
  }
  hostile += "\"\\\x7F";
  Array strings;
  strings.push_back(Value(hostile));
  for (std::size_t offset = 0; offset < 17; ++offset) {
    for (char c : hostile) {
      strings.push_back(Value(std::string(offset, 'x') + c + std::string(20, 'y') + c));
    }
  }
  Value const value(strings);
  std::string const text = fj::serialize(value);
  EXPECT_EQ(text.find_first_of(" \t\n\r"), std::string::npos);
  expect_round_trip(value, value);
}

// ---- Long strings against a plain reference ----

// What a JSON string of `bytes` must be, worked out one character at a time: the short escapes,
// \u00XX for the other controls, well-formed UTF-8 as it is, and one U+FFFD per maximal
// invalid subpart.
std::string reference_string(std::string const& bytes) {
  static char const kHex[] = "0123456789ABCDEF";
  std::string out = "\"";
  std::size_t i = 0;
  auto byte = [&bytes](std::size_t at) {
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0u;
  };
  while (i < bytes.size()) {
    unsigned const c = byte(i);
    if (c < 0x80) {
      char const* const shorts = "btn?fr";  // the letters for 8..13; 11 has none
      if (c == '"' || c == '\\') {
        out += '\\';
        out += static_cast<char>(c);
      } else if (c >= 8 && c <= 13 && c != 11) {
        out += '\\';
        out += shorts[c - 8];
      } else if (c < 0x20) {
        out += "\\u00";
        out += kHex[c >> 4];
        out += kHex[c & 0xF];
      } else {
        out += static_cast<char>(c);
      }
      ++i;
      continue;
    }
    unsigned length = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      low = c == 0xE0 ? 0xA0 : 0x80;
      high = c == 0xED ? 0x9F : 0xBF;
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      low = c == 0xF0 ? 0x90 : 0x80;
      high = c == 0xF4 ? 0x8F : 0xBF;
    }
    std::size_t taken = 1;
    bool whole = length != 0;
    if (whole) {
      for (unsigned k = 1; k < length; ++k) {
        unsigned const next = byte(i + k);
        bool const fits = k == 1 ? next >= low && next <= high : (next & 0xC0) == 0x80;
        if (i + k >= bytes.size() || !fits) {
          whole = false;
          break;
        }
        ++taken;
      }
    }
    out += whole ? bytes.substr(i, taken) : "\xEF\xBF\xBD";
    i += taken;
  }
  return out + "\"";
}

struct TextMix {
  char const* name;
  unsigned seed;
  unsigned stop_percent;  // how often a piece is other than a plain letter
  bool with_bad_bytes;
};

class SerializeLongText : public testing::TestWithParam<TextMix> {};

// Long strings of every density of stops, so that every path of the writer runs: pieces are
// plain letters, escapes, controls with no short escape, characters of two to four bytes and,
// in some mixes, malformed sequences, each at any offset.
TEST_P(SerializeLongText, MatchesTheReference) {
  TextMix const& mix = GetParam();
  static char const* const kPieces[] = {"\n",
                                        "\t",
                                        "\"",
                                        "\\",
                                        "\x01",
                                        "\x1F",
                                        "\r",
                                        "\x08",
                                        "\xC3\xA9",
                                        "\xE2\x82\xAC",
                                        "\xE4\xB8\xAD",
                                        "\xF0\x9F\x98\x80",
                                        "\xF4\x8F\xBF\xBF",
                                        "\xED\x9F\xBF"};
  static char const* const kBad[] = {"\x80",         "\xC0\xAF",         "\xE0\x9F\xBF",
                                     "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5",
                                     "\xE2\x82",     "\xF0\x9F\x98"};
  std::uint32_t state = mix.seed;
  auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  for (int n = 0; n < 6; ++n) {
    std::string text;
    std::size_t const size = 3000 + next() % 20000;
    while (text.size() < size) {
      std::uint32_t const r = next();
      if (r % 100 >= mix.stop_percent) {
        text += static_cast<char>('a' + r % 26);
      } else if (mix.with_bad_bytes && r % 9 == 0) {
        text += kBad[(r >> 4) % 8];
      } else {
        text += kPieces[(r >> 4) % 14];
      }
    }
    std::string const written = fj::serialize(Value(text));
    std::string const expected = reference_string(text);
    auto const differ =
        std::mismatch(written.begin(), written.end(), expected.begin(), expected.end());
    auto const at = static_cast<std::size_t>(differ.first - written.begin());
    ASSERT_EQ(written, expected) << "string " << n << " of " << size << " bytes, first difference"
                                 << " at " << at << ": " << hex(written.substr(at, 24)) << " vs "
                                 << hex(expected.substr(at, 24));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Mixes, SerializeLongText,
    testing::Values(TextMix{"Plain", 1, 0, false}, TextMix{"Sparse", 2, 2, false},
                    TextMix{"Dense", 3, 20, false}, TextMix{"VeryDense", 4, 70, false},
                    TextMix{"SparseWithBadBytes", 5, 2, true},
                    TextMix{"DenseWithBadBytes", 6, 20, true},
                    TextMix{"VeryDenseWithBadBytes", 7, 70, true}),
    [](testing::TestParamInfo<TextMix> const& info) { return info.param.name; });

// ---- Numbers ----

TEST(SerializeNumbers, DoublesReadBackBitForBit) {
  using limits = std::numeric_limits<double>;
  double const ordinary[] = {0.0, -0.0, 1.0, -1.5, 0.1, 1.0 / 3.0, 3.141592653589793, 1e-7};
  double const large[] = {1e21, 1e22, 123456789012345680000.0, 9007199254740993.0, 1e300, -1e300};
  double const extreme[] = {limits::max(),        limits::lowest(),      limits::min(),
                            limits::denorm_min(), -limits::denorm_min(), 2.2250738585072009e-308,
                            limits::epsilon(),    limits::quiet_NaN(),   limits::infinity(),
                            -limits::infinity()};
  std::vector<double> doubles(std::begin(ordinary), std::end(ordinary));
  doubles.insert(doubles.end(), std::begin(large), std::end(large));
  doubles.insert(doubles.end(), std::begin(extreme), std::end(extreme));
  Array values;
  for (double d : doubles) {
    values.push_back(Value(d));
  }
  Value const value(values);
  expect_round_trip(value, value);
}

TEST(SerializeNumbers, FloatsUseTheirOwnShortestForm) {
  using limits = std::numeric_limits<float>;
  float const ordinary[] = {0.1f, -0.0f, 1.0f / 3.0f, 16777216.0f, 16777217.0f, 3.4e38f};
  float const extreme[] = {limits::max(),       limits::min(),      limits::denorm_min(),
                           limits::quiet_NaN(), limits::infinity(), -limits::infinity()};
  std::vector<float> floats(std::begin(ordinary), std::end(ordinary));
  floats.insert(floats.end(), std::begin(extreme), std::end(extreme));
  Array values;
  for (float f : floats) {
    values.push_back(Value(f));
  }
  Value const value(values);
  expect_round_trip(value, value);

  // The float 0.1 is written as 0.1, not as the digits of its double widening.
  ParseResult const parsed = parse_strictly(fj::serialize(Value(0.1f)));
  ASSERT_EQ(parsed.status, 0) << parsed.error;
  ASSERT_EQ(parsed.lines.size(), 1u);
  EXPECT_EQ(split(parsed.lines[0])[1], std::to_string(bits_of(0.1)));
}

TEST(SerializeNumbers, IntegersAreExact) {
  Array values;
  for (long i : {std::numeric_limits<long>::min(), std::numeric_limits<long>::min() + 1, -1L, 0L,
                 1L, 9007199254740993L, std::numeric_limits<long>::max()}) {
    values.push_back(Value(i));
  }
  for (unsigned long u : {0UL, 1UL, 9223372036854775808UL, 18446744073709551615UL}) {
    values.push_back(Value(u));
  }
  Value const value(values);
  expect_round_trip(value, value);
}

// ---- Structure ----

// A value nested far deeper than any reply; writing it must not need the call stack. The
// test builds and dismantles the value level by level, for the same reason.
TEST(SerializeStructure, VeryDeepNestingNeedsNoRecursion) {
  constexpr int kDepth = 100000;
  Value value(7L);
  for (int depth = 0; depth < kDepth; ++depth) {
    if (depth % 2 == 0) {
      Array array;
      array.push_back(std::move(value));
      value = Value(std::move(array));
    } else {
      Object object;
      object.emplace("k", std::move(value));
      value = Value(std::move(object));
    }
  }
  std::string const text = fj::serialize(value);
  std::string expected;
  for (int depth = kDepth - 1; depth >= 0; --depth) {
    expected += depth % 2 == 0 ? "[" : "{\"k\":";
  }
  expected += "7";
  for (int depth = 0; depth < kDepth; ++depth) {
    expected += depth % 2 == 0 ? "]" : "}";
  }
  EXPECT_EQ(text, expected);

  while (value.is<Array>() || value.is<Object>()) {
    Value inner = value.is<Array>() ? std::move(value.get<Array>().front())
                                    : std::move(value.get<Object>().begin()->second);
    value = Value(fj::Null());
    value = std::move(inner);
  }
}

}  // namespace
