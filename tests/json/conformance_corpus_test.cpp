// The reader over a corpus of accept and reject cases kept as files: every accept_* file reads
// with code 0; every reject_<code>_* file fails with that code and leaves the output untouched.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "json/reader.hpp"

namespace {

namespace fs = std::filesystem;
using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;

fs::path corpusDir() {
  return fs::path(EDITOR_CLIPBOARD_TEST_DATA_DIR) / "json_conformance";
}

struct Read {
  int code;
  Object out;
};

Read readFile(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  // Exactly the file's bytes, no NUL after them: a read past the end is caught by ASan.
  std::vector<char> const text((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
  Read read{0, Object{{"untouched", Value(true)}}};
  char const* position = text.data();
  read.code = foundation::json::parse_object(position, text.data() + text.size(), false, read.out);
  return read;
}

TEST(JsonConformanceCorpus, EveryCaseIsAcceptedOrRejectedAsNamed) {
  std::size_t accepted = 0;
  std::size_t rejected = 0;
  for (auto const& entry : fs::directory_iterator(corpusDir())) {
    std::string const name = entry.path().stem().string();
    Read const read = readFile(entry.path());
    if (name.rfind("accept_", 0) == 0) {
      EXPECT_EQ(read.code, 0) << name;
      EXPECT_EQ(read.out.count("untouched"), 0u) << name;
      ++accepted;
    } else {
      ASSERT_EQ(name.rfind("reject_", 0), 0u) << "unexpected corpus file " << name;
      int const expected = std::stoi(name.substr(7));
      EXPECT_EQ(read.code, expected) << name;
      EXPECT_EQ(read.out, (Object{{"untouched", Value(true)}})) << name;
      ++rejected;
    }
  }
  EXPECT_GE(accepted, 15u);
  EXPECT_GE(rejected, 25u);
}

Object accepted(char const* name) {
  Read read = readFile(corpusDir() / (std::string(name) + ".json"));
  EXPECT_EQ(read.code, 0) << name;
  return read.out;
}

TEST(JsonConformanceCorpus, AcceptedValuesFollowTheDialect) {
  EXPECT_EQ(accepted("accept_duplicate_key_first_wins").at("a"), Value(1.0));
  EXPECT_EQ(accepted("accept_every_escape").at("s"),
            Value("\" \\ / \b \f \n \r \t A \xc3\xa9 \xe2\x82\xac"));
  EXPECT_EQ(accepted("accept_surrogate_pair").at("s"), Value("\xf0\x9f\x98\x80"));

  Object const numbers = accepted("accept_numbers_at_boundaries");
  EXPECT_EQ(numbers.at("c"), Value(7.0));
  EXPECT_TRUE(std::signbit(numbers.at("b").get<double>()));
  EXPECT_EQ(numbers.at("d"), Value(1e308));
  EXPECT_EQ(numbers.at("e").get<double>(), HUGE_VAL);
  EXPECT_EQ(numbers.at("f").get<double>(), -HUGE_VAL);
  EXPECT_EQ(numbers.at("g"), Value(4.9e-324));
  EXPECT_EQ(numbers.at("h"), Value(0.0));
  EXPECT_EQ(numbers.at("i"), Value(9007199254740992.0));  // nearest double

  EXPECT_EQ(accepted("accept_typed_int_limits").at("qvdata"),
            Value(Array{Value(9223372036854775807L), Value(-9223372036854775807L - 1),
                        Value(9223372036854775807L), Value(-9223372036854775807L - 1),
                        Value(9223372036854775807L)}));
  EXPECT_EQ(accepted("accept_typed_uint_limits").at("qvdata"),
            Value(Array{Value(0UL), Value(18446744073709551615UL), Value(18446744073709551615UL),
                        Value(0UL), Value(0UL)}));
  Object const reversed = accepted("accept_typed_data_before_type");
  EXPECT_EQ(reversed.at("qvdata"), Value(Array{Value(1L), Value(2L), Value(3L)}));
  EXPECT_EQ(reversed.at("qvtype"), Value("int32"));
  EXPECT_EQ(accepted("accept_typed_nested_object")
                .at("outer")
                .get<Object>()
                .at("inner")
                .get<Object>()
                .at("qvdata"),
            Value(Array{Value(1UL), Value(2UL)}));
  EXPECT_EQ(accepted("accept_qvtype_a_number").at("qvdata"), Value(Array{Value(1.0)}));
}

}  // namespace
