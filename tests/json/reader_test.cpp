#include "json/reader.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "json/reader_detail.hpp"

namespace {

using foundation::json::Array;
using foundation::json::Null;
using foundation::json::Object;
using foundation::json::Value;
namespace rc = foundation::json::read_result;

constexpr long int64_max = std::numeric_limits<long>::max();
constexpr long int64_min = std::numeric_limits<long>::min();
constexpr unsigned long uint64_max = std::numeric_limits<unsigned long>::max();

Value num(double d) {
  return Value(d);
}
Value i64(long v) {
  return Value(v);
}
Value u64(unsigned long v) {
  return Value(v);
}
Value arr(std::vector<Value> elements) {
  return Value(Array(std::move(elements)));
}
Value obj(Object members) {
  return Value(std::move(members));
}

// The text copied into a buffer of exactly its size, with no NUL after it, so that the
// sanitizer build reports any read past the end.
struct Text {
  explicit Text(std::string const& s) : bytes(s.begin(), s.end()) {}
  char const* begin() const { return bytes.data(); }
  char const* end() const { return bytes.data() + bytes.size(); }
  std::vector<char> bytes;
};

struct ObjectCase {
  char const* name;
  std::string text;
  int code;
  std::optional<Object> expected = {};  // for code 0
};

std::ostream& operator<<(std::ostream& os, ObjectCase const& c) {
  return os << c.name;
}

class ReadObject : public ::testing::TestWithParam<ObjectCase> {};

TEST_P(ReadObject, GivesCodeAndMap) {
  ObjectCase const& c = GetParam();
  Text const text(c.text);
  char const* pos = text.begin();
  Object out{{"untouched", Value(true)}};
  Object const before = out;
  int const code = foundation::json::parse_object(pos, text.end(), false, out);
  EXPECT_EQ(code, c.code) << c.text;
  if (c.code == rc::ok) {
    ASSERT_TRUE(c.expected.has_value());
    EXPECT_TRUE(out == *c.expected) << c.text;
  } else {
    EXPECT_TRUE(out == before) << "output changed on failure: " << c.text;
  }
  EXPECT_GE(pos, text.begin());
  EXPECT_LE(pos, text.end());
}

// A one-member object {"n": value}.
ObjectCase member(char const* name, std::string value, int code, std::optional<Value> v = {}) {
  std::optional<Object> expected;
  if (v) {
    expected = Object{{"n", *v}};
  }
  return {name, "{\"n\":" + std::move(value) + "}", code, std::move(expected)};
}

std::string const qvtype_int8 = R"("qvtype":"int8")";

INSTANTIATE_TEST_SUITE_P(
    Structure, ReadObject,
    ::testing::Values(
        ObjectCase{"empty_text", "", rc::unexpected_end},
        ObjectCase{"space_before_brace", " {}", rc::expected_object},
        ObjectCase{"top_level_array", "[1]", rc::expected_object},
        ObjectCase{"empty_object", "{}", rc::ok, Object{}},
        ObjectCase{"rest_not_read", "{}\"garbage", rc::ok, Object{}},
        ObjectCase{"spaces_between", "{ \"a\" :\t1 ,\r\n\"b\" : 2 \v\f}", rc::ok,
                   Object{{"a", num(1)}, {"b", num(2)}}},
        ObjectCase{"first_of_equal_keys_wins", R"({"a":1,"a":2})", rc::ok, Object{{"a", num(1)}}},
        ObjectCase{"equal_keys_second_unreadable", R"({"a":1,"a":-})", rc::expected_digit},
        // Keys come in every order against the first and the last one, equal keys among them.
        ObjectCase{"equal_keys_in_every_order",
                   R"({"u":1,"r":2,"f":3,"a":4,"z":5,"f":6,"":7,"a":8,"":9,"z":10,"ab":11})",
                   rc::ok,
                   Object{{"", num(7)},
                          {"a", num(4)},
                          {"ab", num(11)},
                          {"f", num(3)},
                          {"r", num(2)},
                          {"u", num(1)},
                          {"z", num(5)}}},
        ObjectCase{"equal_keys_containers_dropped",
                   R"({"a":[1],"a":{"b":[2]},"a":[3,[4]],"c":{},"c":[5]})", rc::ok,
                   Object{{"a", arr({num(1)})}, {"c", obj({})}}},
        ObjectCase{"equal_keys_dropped_array_unreadable", R"({"a":1,"a":[1,]})",
                   rc::expected_string},
        ObjectCase{"equal_keys_dropped_object_unreadable", R"({"a":1,"a":{"b":}})",
                   rc::expected_string},
        ObjectCase{"comma_before_brace", R"({"a":1,})", rc::expected_string},
        ObjectCase{"no_colon", R"({"a" 1})", rc::expected_colon},
        ObjectCase{"no_comma", R"({"a":1 "b":2})", rc::expected_comma_or_brace},
        ObjectCase{"ends_after_value", R"({"a":1)", rc::unexpected_end},
        ObjectCase{"ends_after_value_space", "{\"a\":1 ", rc::unexpected_end},
        ObjectCase{"ends_after_colon", R"({"a":)", rc::unexpected_end},
        ObjectCase{"ends_after_key", R"({"a")", rc::unexpected_end},
        ObjectCase{"ends_after_brace", "{ ", rc::unexpected_end},
        ObjectCase{"apostrophe_key", "{'a':1}", rc::expected_string},
        ObjectCase{"apostrophe_value", "{\"a\":'x'}", rc::expected_string},
        ObjectCase{"comment_key", "{/*c*/\"a\":1}", rc::expected_string},
        ObjectCase{"comment_value", "{\"a\":/x/}", rc::expected_string},
        ObjectCase{"number_key", "{1:1}", rc::expected_string},
        ObjectCase{"nested", R"({"o":{"p":[true,{"q":null}]},"e":[],"f":{}})", rc::ok,
                   Object{{"e", arr({})},
                          {"f", obj({})},
                          {"o", obj({{"p", arr({Value(true), obj({{"q", Value(Null{})}})})}})}}},
        ObjectCase{"nested_failure_code_wins", R"({"o":{"p":[1,]}})", rc::expected_string},
        ObjectCase{"raw_bytes_kept", "{\"a\":\"\x01\xff\t\"}", rc::ok,
                   Object{{"a", Value(std::string("\x01\xff\t"))}}}),
    [](auto const& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Values, ReadObject,
    ::testing::Values(
        member("exponent_with_sign", "-12.5e+1", rc::ok, num(-125)),
        member("leading_zeros", "007", rc::ok, num(7)),
        member("leading_zeros_then_point", "00.5", rc::expected_comma_or_brace),
        member("point_then_brace", "1.", rc::expected_fraction_digit),
        ObjectCase{"point_then_end", R"({"n":1.)", rc::unexpected_end},
        member("minus_letter", "-x", rc::expected_digit),
        member("minus_brace", "-", rc::expected_digit),
        ObjectCase{"minus_then_end", R"({"n":-)", rc::unexpected_end},
        member("plus", "+1", rc::expected_string), member("bare_point", ".5", rc::expected_string),
        member("hex", "0x10", rc::expected_comma_or_brace),
        member("exponent_without_digit", "1e", rc::expected_exponent_digit),
        member("exponent_sign_without_digit", "1E-", rc::expected_exponent_digit),
        ObjectCase{"exponent_then_end", R"({"n":1e)", rc::unexpected_end},
        ObjectCase{"exponent_sign_then_end", R"({"n":1e+)", rc::unexpected_end},
        member("zero_fraction_exponent", "0.25E2", rc::ok, num(25)),
        member("negative_zero", "-0", rc::ok, num(-0.0)),
        member("integers_are_doubles", "9007199254740993", rc::ok, num(9007199254740992.0)),
        member("huge", "1e999", rc::ok, num(std::numeric_limits<double>::infinity())),
        member("true", "true", rc::ok, Value(true)), member("false", "false", rc::ok, Value(false)),
        member("null", "null", rc::ok, Value(Null{})),
        member("cut_true", "tru", rc::expected_string),
        member("cut_false", "fals", rc::expected_string),
        member("cut_null", "nul", rc::expected_string),
        ObjectCase{"literal_cut_by_end", R"({"n":tr)", rc::expected_string},
        ObjectCase{"literal_then_end", R"({"n":true)", rc::unexpected_end},
        member("null_then_letter", "nullx", rc::expected_comma_or_brace),
        member("true_then_letter", "truex", rc::expected_comma_or_brace),
        member("capital_literal", "True", rc::expected_string),
        member("array_spaces", "[1 ,2 ]", rc::ok, arr({num(1), num(2)})),
        member("array_letter", "[1 x]", rc::expected_comma_or_bracket),
        member("array_number_letter", "[1x]", rc::expected_comma_or_bracket),
        member("array_trailing_comma", "[1,]", rc::expected_string),
        member("array_leading_comma", "[,1]", rc::expected_string),
        ObjectCase{"array_then_end", R"({"n":[1,)", rc::unexpected_end},
        ObjectCase{"array_open_then_end", R"({"n":[)", rc::unexpected_end}),
    [](auto const& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Strings, ReadObject,
    ::testing::Values(
        member("simple_escapes", R"("\"\\\/\b\f\n\r\t")", rc::ok, Value("\"\\/\b\f\n\r\t")),
        member("two_byte", R"("\u00e9")", rc::ok, Value("\xc3\xa9")),
        member("upper_and_mixed_hex", R"("\u00C9\u00eA")", rc::ok, Value("\xc3\x89\xc3\xaa")),
        member("one_byte", R"("x\u0041y")", rc::ok, Value("xAy")),
        member("nul", R"("\u0000")", rc::ok, Value(std::string(1, '\0'))),
        member("three_byte", R"("\u20ac")", rc::ok, Value("\xe2\x82\xac")),
        member("last_bmp", R"("\uFFFF")", rc::ok, Value("\xef\xbf\xbf")),
        member("pair", R"("\ud83d\ude00")", rc::ok, Value("\xf0\x9f\x98\x80")),
        member("last_pair", R"("\udbff\udfff")", rc::ok, Value("\xf4\x8f\xbf\xbf")),
        member("lone_low", R"("\udc00")", rc::ok, Value("\xef\xbf\xbd")),
        member("high_then_other", R"("\ud83d\u0041")", rc::ok,
               Value("\xef\xbf\xbd"
                     "A")),
        member("high_then_high", R"("\ud800\udbff")", rc::ok, Value("\xef\xbf\xbd\xef\xbf\xbd")),
        member("high_then_text", R"("\ud83dabcdef")", rc::bad_unicode_escape),
        member("high_then_other_escape", R"("\ud83d\n1234")", rc::bad_unicode_escape),
        member("high_then_short", R"("\ud83d")", rc::unexpected_end),
        member("high_second_not_hex", R"("\ud83d\u12x4")", rc::bad_unicode_escape),
        member("not_hex", R"("\u12g4")", rc::bad_unicode_escape),
        member("short_hex", R"("\u12")", rc::bad_unicode_escape),
        ObjectCase{"hex_cut_by_end", R"({"n":"\u12)", rc::unexpected_end},
        member("unknown_escape", R"("\q")", rc::bad_escape),
        member("escaped_u_upper", R"("\U0041")", rc::bad_escape),
        ObjectCase{"backslash_then_end", R"({"n":"\)", rc::unexpected_end},
        ObjectCase{"escape_then_end", R"({"n":"\n)", rc::unexpected_end},
        ObjectCase{"unterminated", R"({"n":"abc)", rc::unexpected_end},
        ObjectCase{"long_unterminated", "{\"n\":\"" + std::string(100, 'a'), rc::unexpected_end},
        member("long_with_escapes",
               "\"" + std::string(40, 'a') + "\\n" + std::string(40, 'b') + "\\\"\"", rc::ok,
               Value(std::string(40, 'a') + "\n" + std::string(40, 'b') + "\"")),
        ObjectCase{"escaped_key", R"({"k\u0065y":1})", rc::ok, Object{{"key", num(1)}}}),
    [](auto const& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    TypedArrays, ReadObject,
    ::testing::Values(
        ObjectCase{"type_first", R"({"qvtype":"int8","qvdata":[1,-2,300]})", rc::ok,
                   Object{{"qvtype", Value("int8")}, {"qvdata", arr({i64(1), i64(-2), i64(300)})}}},
        ObjectCase{"data_first", R"({"qvdata":[1,-2,300],"qvtype":"int8"})", rc::ok,
                   Object{{"qvtype", Value("int8")}, {"qvdata", arr({i64(1), i64(-2), i64(300)})}}},
        ObjectCase{"unsigned_saturates",
                   R"({"qvtype":"uint16","qvdata":[-5,18446744073709551616]})", rc::ok,
                   Object{{"qvtype", Value("uint16")}, {"qvdata", arr({u64(0), u64(uint64_max)})}}},
        ObjectCase{"unsigned_data_first", R"({"qvdata":[ 7 , 0 ],"qvtype":"uint64"})", rc::ok,
                   Object{{"qvtype", Value("uint64")}, {"qvdata", arr({u64(7), u64(0)})}}},
        ObjectCase{"fraction", R"({"qvtype":"int32","qvdata":[1.5]})", rc::bad_typed_element},
        ObjectCase{"fraction_data_first", R"({"qvdata":[1.5],"qvtype":"int32"})",
                   rc::bad_typed_element},
        ObjectCase{"not_an_array", R"({"qvtype":"int32","qvdata":7})", rc::expected_array},
        ObjectCase{"not_an_array_data_first", R"({"qvdata":7,"qvtype":"int32"})",
                   rc::expected_array},
        ObjectCase{"empty", R"({"qvtype":"int32","qvdata":[]})", rc::ok,
                   Object{{"qvtype", Value("int32")}, {"qvdata", arr({})}}},
        ObjectCase{"not_a_type_name", R"({"qvtype":"double","qvdata":[1.5,"x"]})", rc::ok,
                   Object{{"qvtype", Value("double")}, {"qvdata", arr({num(1.5), Value("x")})}}},
        ObjectCase{"type_name_is_case_sensitive", R"({"qvdata":[1],"qvtype":"INT8"})", rc::ok,
                   Object{{"qvtype", Value("INT8")}, {"qvdata", arr({num(1)})}}},
        ObjectCase{"type_not_a_string", R"({"qvtype":5,"qvdata":[1]})", rc::ok,
                   Object{{"qvtype", num(5)}, {"qvdata", arr({num(1)})}}},
        ObjectCase{"type_not_a_string_data_first", R"({"qvdata":[1],"qvtype":[5]})", rc::ok,
                   Object{{"qvtype", arr({num(5)})}, {"qvdata", arr({num(1)})}}},
        ObjectCase{"data_without_type", R"({"qvdata":[1,{"a":2}]})", rc::ok,
                   Object{{"qvdata", arr({num(1), obj({{"a", num(2)}})})}}},
        ObjectCase{"type_without_data", R"({"qvtype":"int8"})", rc::ok,
                   Object{{"qvtype", Value("int8")}}},
        ObjectCase{"nested_object", R"({"a":{"b":[{"qvdata":[-1],"qvtype":"int16"}]}})", rc::ok,
                   Object{{"a", obj({{"b", arr({obj({{"qvdata", arr({i64(-1)})},
                                                     {"qvtype", Value("int16")}})})}})}}},
        ObjectCase{"type_stays_in_its_object", R"({"qvtype":"int8","o":{"qvdata":[1]}})", rc::ok,
                   Object{{"qvtype", Value("int8")}, {"o", obj({{"qvdata", arr({num(1)})}})}}},
        ObjectCase{"inner_type_does_not_reach_outer", R"({"qvdata":[1],"o":{"qvtype":"int8"}})",
                   rc::ok,
                   Object{{"qvdata", arr({num(1)})}, {"o", obj({{"qvtype", Value("int8")}})}}},
        // The second qvtype is dropped from the map but still names the type.
        ObjectCase{"second_type_names_the_type",
                   R"({"qvtype":"int8","qvtype":"uint8","qvdata":[-1]})", rc::ok,
                   Object{{"qvtype", Value("int8")}, {"qvdata", arr({u64(0)})}}},
        // The rereading starts at the most recent qvdata and lands in the kept entry.
        ObjectCase{"reread_takes_latest_data", R"({"qvdata":[1],"qvdata":[2],"qvtype":"int8"})",
                   rc::ok, Object{{"qvtype", Value("int8")}, {"qvdata", arr({i64(2)})}}},
        ObjectCase{"elements_with_spaces", "{\"qvtype\":\"int8\",\"qvdata\":[ 1\t,\n-2 ]}", rc::ok,
                   Object{{"qvtype", Value("int8")}, {"qvdata", arr({i64(1), i64(-2)})}}}),
    [](auto const& info) { return std::string(info.param.name); });

// A typed array element as the only element of an int8 (signed) or uint8 (unsigned) array.
ObjectCase typed(char const* name, char const* type, std::string element, int code,
                 std::optional<Value> v = {}) {
  std::optional<Object> expected;
  if (v) {
    expected = Object{{"qvtype", Value(type)}, {"qvdata", arr({*v})}};
  }
  return {name,
          std::string("{\"qvtype\":\"") + type + "\",\"qvdata\":[" + std::move(element) + "]}",
          code, std::move(expected)};
}

INSTANTIATE_TEST_SUITE_P(
    TypedElements, ReadObject,
    ::testing::Values(
        typed("max", "int64", "9223372036854775807", rc::ok, i64(int64_max)),
        typed("above_max", "int64", "9223372036854775808", rc::ok, i64(int64_max)),
        typed("min", "int64", "-9223372036854775808", rc::ok, i64(int64_min)),
        typed("just_above_min", "int64", "-9223372036854775807", rc::ok, i64(int64_min + 1)),
        typed("just_below_max", "int16", "9223372036854775806", rc::ok, i64(int64_max - 1)),
        typed("just_below_umax", "uint16", "18446744073709551614", rc::ok, u64(uint64_max - 1)),
        typed("below_min", "int64", "-9223372036854775809", rc::ok, i64(int64_min)),
        typed("eighteen_digits", "int8", "-999999999999999999", rc::ok, i64(-999999999999999999)),
        typed("nineteen_digits", "int8", "1000000000000000000", rc::ok, i64(1000000000000000000)),
        typed("umax", "uint64", "18446744073709551615", rc::ok, u64(uint64_max)),
        typed("above_umax", "uint64", "18446744073709551616", rc::ok, u64(uint64_max)),
        typed("nineteen_digits_unsigned", "uint8", "9999999999999999999", rc::ok,
              u64(9999999999999999999UL)),
        typed("twenty_digits_unsigned", "uint8", "10000000000000000000", rc::ok,
              u64(10000000000000000000UL)),
        typed("negative_unsigned", "uint32", "-18446744073709551615", rc::ok, u64(0)),
        typed("leading_zero", "int8", "01", rc::expected_comma_or_bracket),
        typed("exponent", "int8", "1e5", rc::bad_typed_element),
        typed("upper_exponent", "int8", "1E5", rc::bad_typed_element),
        typed("quote_after", "int8", "1\"", rc::bad_typed_element),
        typed("brace_after", "uint8", "1{", rc::bad_typed_element),
        typed("point_after_space", "int8", "1 .5", rc::bad_typed_element),
        typed("plus", "int8", "+1", rc::bad_typed_element),
        typed("lone_minus", "int8", "-", rc::bad_typed_element),
        typed("string", "int8", "\"1\"", rc::bad_typed_element),
        typed("string_unsigned", "uint64", "\"1\"", rc::bad_typed_element),
        typed("nested_array", "int8", "[1]", rc::bad_typed_element),
        typed("trailing_comma", "int8", "1,", rc::bad_typed_element),
        typed("no_comma", "int8", "1 2", rc::expected_comma_or_bracket),
        typed("letter", "uint8", "1x", rc::expected_comma_or_bracket),
        ObjectCase{"minus_then_end", R"({"qvtype":"int8","qvdata":[-)", rc::unexpected_end},
        ObjectCase{"comma_then_end", R"({"qvtype":"int8","qvdata":[1, )", rc::unexpected_end},
        ObjectCase{"element_then_end", R"({"qvtype":"int8","qvdata":[12)", rc::unexpected_end}),
    [](auto const& info) { return std::string(info.param.name); });

// --- nesting ------------------------------------------------------------------------------

std::string nested(int depth, char open, char close) {
  std::string text;
  for (int i = 0; i < depth; ++i) {
    text += open;
    if (open == '{') {
      text += "\"a\":";
    }
  }
  text += open == '{' ? "{}" : "[]";
  text.append(static_cast<std::size_t>(depth), close);
  return text;
}

struct DepthCase {
  char const* name;
  int depth;  // containers around the innermost empty one, the outer object included
  char open;
  char close;
  int code;
};

class Nesting : public ::testing::TestWithParam<DepthCase> {};

TEST_P(Nesting, IsBounded) {
  DepthCase const& c = GetParam();
  // An outer object holds the nested containers: "{" + ... + "}".
  std::string body = nested(c.depth - 2, c.open, c.close);
  std::string const source = "{\"x\":" + body + "}";
  Text const text(source);
  char const* pos = text.begin();
  Object out;
  EXPECT_EQ(foundation::json::parse_object(pos, text.end(), false, out), c.code);
  EXPECT_EQ(out.empty(), c.code != rc::ok);
}

INSTANTIATE_TEST_SUITE_P(
    Depth, Nesting,
    ::testing::Values(
        DepthCase{"arrays_at_limit", foundation::json::max_nesting_depth, '[', ']', rc::ok},
        DepthCase{"objects_at_limit", foundation::json::max_nesting_depth, '{', '}', rc::ok},
        DepthCase{"arrays_over_limit", foundation::json::max_nesting_depth + 1, '[', ']',
                  rc::too_deep},
        DepthCase{"objects_over_limit", foundation::json::max_nesting_depth + 1, '{', '}',
                  rc::too_deep},
        DepthCase{"arrays_100000", 100000, '[', ']', rc::too_deep},
        DepthCase{"objects_100000", 100000, '{', '}', rc::too_deep}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(NestingUnclosed, HundredThousandOpenersGiveTooDeep) {
  for (char const open : {'[', '{'}) {
    std::string source = "{\"x\":";
    for (int i = 0; i < 100000; ++i) {
      source += open;
      if (open == '{') {
        source += "\"a\":";
      }
    }
    Text const text(source);
    char const* pos = text.begin();
    Object out;
    EXPECT_EQ(foundation::json::parse_object(pos, text.end(), false, out), rc::too_deep) << open;

    Text const bare(std::string(100000, '['));
    pos = bare.begin();
    Array array;
    EXPECT_EQ(foundation::json::parse_array(pos, bare.end(), false, array), rc::too_deep);
  }
}

// --- parse_value: the six alternatives and the furthest position ---------------------------

struct ValueCase {
  char const* text;
  int code;
  std::ptrdiff_t stop;  // where the position is left
};

class ReadValue : public ::testing::TestWithParam<ValueCase> {};

TEST_P(ReadValue, FurthestAlternativeWins) {
  ValueCase const& c = GetParam();
  Text const text(c.text);
  char const* pos = text.begin();
  Value out("before");
  int const code = foundation::json::parse_value(pos, text.end(), false, out);
  EXPECT_EQ(code, c.code);
  EXPECT_EQ(pos - text.begin(), c.stop);
  if (code != rc::ok) {
    EXPECT_TRUE(out == Value("before"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Alternatives, ReadValue,
    ::testing::Values(
        ValueCase{"", rc::unexpected_end, 0}, ValueCase{"x", rc::expected_string, 0},
        ValueCase{"t", rc::expected_string, 0}, ValueCase{"tx", rc::expected_string, 0},
        ValueCase{"nul", rc::expected_string, 0}, ValueCase{"-", rc::unexpected_end, 1},
        ValueCase{"-x", rc::expected_digit, 1}, ValueCase{"1.x", rc::expected_fraction_digit, 2},
        ValueCase{"\"ab", rc::unexpected_end, 3}, ValueCase{"\"a\\x\"", rc::bad_escape, 3},
        ValueCase{"\"\\u12z4\"", rc::bad_unicode_escape, 5},
        ValueCase{"\"\\ud83d\\ude00", rc::unexpected_end, 13},
        ValueCase{"[1,x]", rc::expected_string, 3}, ValueCase{"{\"a\" 1}", rc::expected_colon, 5},
        ValueCase{"\"s\"rest", rc::ok, 3}, ValueCase{"12 ", rc::ok, 2},
        ValueCase{"truex", rc::ok, 4}, ValueCase{"false", rc::ok, 5}, ValueCase{"null", rc::ok, 4},
        ValueCase{"[ ]", rc::ok, 3}, ValueCase{"{ } ", rc::ok, 3}));

TEST(ReadValue, KindsOfEachAlternative) {
  struct {
    char const* text;
    Value expected;
  } const cases[] = {
      {"\"s\"", Value("s")},
      {"2.5", num(2.5)},
      {"{\"k\":[]}", obj({{"k", arr({})}})},
      {"[\"a\",[1]]", arr({Value("a"), arr({num(1)})})},
      {"true", Value(true)},
      {"false", Value(false)},
      {"null", Value(Null{})},
  };
  // Reading over a Value of every kind replaces it whole.
  Value const starts[] = {Value(), Value("old"), arr({num(9)}), obj({{"z", num(9)}}), num(3)};
  for (auto const& c : cases) {
    for (Value const& start : starts) {
      Text const text(c.text);
      char const* pos = text.begin();
      Value out = start;
      ASSERT_EQ(foundation::json::parse_value(pos, text.end(), false, out), rc::ok) << c.text;
      EXPECT_TRUE(out == c.expected) << c.text;
      EXPECT_EQ(pos, text.end());
    }
  }
}

// --- the small readers ----------------------------------------------------------------------

TEST(ScanNumber, StopsWhereTheNumberEnds) {
  struct {
    char const* text;
    int code;
    std::ptrdiff_t stop;
  } const cases[] = {
      {"", rc::unexpected_end, 0},
      {"-", rc::unexpected_end, 1},
      {"0", rc::ok, 1},
      {"0x", rc::ok, 1},
      {"007,", rc::ok, 3},
      {"00.5", rc::ok, 2},
      {"0.5", rc::ok, 3},
      {"-0.5e-3]", rc::ok, 7},
      {"12", rc::ok, 2},
      {"12.", rc::unexpected_end, 3},
      {"12.a", rc::expected_fraction_digit, 3},
      {"1e", rc::unexpected_end, 2},
      {"1e+", rc::unexpected_end, 3},
      {"1ex", rc::expected_exponent_digit, 2},
      {"a", rc::expected_digit, 0},
      {"-a", rc::expected_digit, 1},
      {"1E9", rc::ok, 3},
      {"1.5.5", rc::ok, 3},
  };
  for (auto const& c : cases) {
    Text const text(c.text);
    char const* pos = text.begin();
    EXPECT_EQ(foundation::json::scan_number(pos, text.end()), c.code) << c.text;
    EXPECT_EQ(pos - text.begin(), c.stop) << c.text;
  }
}

TEST(MatchLiteral, MovesOnlyOnSuccess) {
  struct {
    char const* text;
    int code;
    std::ptrdiff_t stop;
  } const cases[] = {
      {"null", rc::ok, 4},
      {"nullx", rc::ok, 4},
      {"nulL", 7, 0},
      {"", rc::unexpected_end, 0},
      {"nu", rc::unexpected_end, 0},
      {"nx", 7, 0},
      {"x", 7, 0},
  };
  for (auto const& c : cases) {
    Text const text(c.text);
    char const* pos = text.begin();
    EXPECT_EQ(foundation::json::match_literal(pos, text.end(), "null", 7), c.code) << c.text;
    EXPECT_EQ(pos - text.begin(), c.stop) << c.text;
  }
}

TEST(ParseHex4, ReadsOneCodeUnit) {
  struct {
    char const* text;
    int code;
    char16_t unit;
    std::ptrdiff_t stop;
  } const cases[] = {
      {"0041", rc::ok, u'A', 4},
      {"fFfF", rc::ok, 0xFFFF, 4},
      {"D83Dx", rc::ok, 0xD83D, 4},
      {"12g4", rc::bad_unicode_escape, 0x7777, 2},
      {"123", rc::unexpected_end, 0x7777, 0},
      {" 123", rc::bad_unicode_escape, 0x7777, 0},
  };
  for (auto const& c : cases) {
    Text const text(c.text);
    char const* pos = text.begin();
    char16_t unit = 0x7777;  // kept on failure
    EXPECT_EQ(foundation::json::parse_hex4(pos, text.end(), unit), c.code) << c.text;
    EXPECT_EQ(unit, c.unit) << c.text;
    EXPECT_EQ(pos - text.begin(), c.stop) << c.text;
  }
}

TEST(ParseString, KeepsOutputOnFailureAndReplacesOnSuccess) {
  struct {
    char const* text;
    int code;
    char const* result;
  } const cases[] = {
      {"\"new\"", rc::ok, "new"},
      {"\"a\\tb\"", rc::ok, "a\tb"},
      {"\"\"", rc::ok, ""},
      {"new", rc::expected_string, "old"},
      {"", rc::unexpected_end, "old"},
      {"\"", rc::unexpected_end, "old"},
      {"\"a\\", rc::unexpected_end, "old"},
  };
  for (auto const& c : cases) {
    Text const text(c.text);
    char const* pos = text.begin();
    std::string out = "old";
    EXPECT_EQ(foundation::json::parse_string(pos, text.end(), out), c.code) << c.text;
    EXPECT_EQ(out, c.result) << c.text;
  }
}

TEST(SkipSpace, CommentsOnlyWhenAsked) {
  struct {
    char const* text;
    bool comments;
    std::ptrdiff_t stop;
  } const cases[] = {
      {" \t\r\n\v\fx", false, 6},
      {"/* c */x", false, 0},
      {"/* c */ x", true, 8},
      {"// c\n x", true, 6},
      {"/x", true, 0},
      {"/", true, 0},
      {" /* open", true, 8},
      {"// open", true, 7},
      {"/**/", true, 4},
      {"/*/ x", true, 5},
      {"/* a */ /* b */x", true, 15},
      {"/* a*b/c */x", true, 11},
  };
  for (auto const& c : cases) {
    Text const text(c.text);
    char const* pos = text.begin();
    foundation::json::skip_space(pos, text.end(), c.comments);
    EXPECT_EQ(pos - text.begin(), c.stop) << c.text;
  }
}

TEST(SkipSpace, CommentOptionReachesEveryLevel) {
  Text const text("{/*a*/\"k\"/*b*/:/*c*/[/*d*/1/*e*/,//f\n2]/*g*/}");
  char const* pos = text.begin();
  Object out;
  ASSERT_EQ(foundation::json::parse_object(pos, text.end(), true, out), rc::ok);
  EXPECT_TRUE(out == (Object{{"k", arr({num(1), num(2)})}}));
  pos = text.begin();
  EXPECT_EQ(foundation::json::parse_object(pos, text.end(), false, out), rc::expected_string);
}

TEST(TypedData, TypeNameChoosesTheReader) {
  struct {
    char const* type;
    char const* text;
    int code;
    Value expected;
  } const cases[] = {
      {"", "[1,-1]", rc::ok, arr({num(1), num(-1)})},
      {"float", "[1]", rc::ok, arr({num(1)})},
      {"", "\"s\"", rc::ok, Value("s")},
      {"int16", "[1,-1]", rc::ok, arr({i64(1), i64(-1)})},
      {"int64", "[]", rc::ok, arr({})},
      {"uint32", "[1,-1]", rc::ok, arr({u64(1), u64(0)})},
      {"uint8", "\"s\"", rc::expected_array, Value()},
      {"int8", "[1;2]", rc::expected_comma_or_bracket, Value()},
  };
  for (auto const& c : cases) {
    Text const text(c.text);
    char const* pos = text.begin();
    Value out;
    EXPECT_EQ(foundation::json::parse_typed_data(pos, text.end(), false, c.type, out), c.code)
        << c.type << ' ' << c.text;
    EXPECT_TRUE(out == c.expected) << c.type << ' ' << c.text;
  }
}

TEST(TypedData, ArrayReadersKeepOutputOnFailure) {
  Array const before{Value("keep")};
  for (char const* text_chars : {"[1,2", "[1.0]", "x", "[1,]"}) {
    Text const text(text_chars);
    char const* pos = text.begin();
    Array out = before;
    EXPECT_NE(foundation::json::parse_int64_array(pos, text.end(), false, out), rc::ok);
    EXPECT_TRUE(out == before);
    pos = text.begin();
    EXPECT_NE(foundation::json::parse_uint64_array(pos, text.end(), false, out), rc::ok);
    EXPECT_TRUE(out == before);
  }
}

TEST(TypedData, ElementsOfEveryLengthMatchTheCLibrary) {
  // strtoll and strtoull saturate the same way; a negative unsigned element is 0 instead.
  std::mt19937_64 engine(7);
  std::vector<std::string> elements;
  for (int length = 1; length <= 24; ++length) {
    for (int sample = 0; sample < 20; ++sample) {
      std::string digits(1, static_cast<char>('1' + engine() % 9));
      while (static_cast<int>(digits.size()) < length) {
        digits += static_cast<char>('0' + engine() % 10);
      }
      elements.push_back(sample % 2 == 0 ? digits : "-" + digits);
    }
  }
  elements.push_back("0");
  elements.push_back("-0");
  // Each element once at the end of the text, where fewer than eight bytes follow it.
  for (std::size_t last = 0; last < elements.size(); ++last) {
    std::string joined;
    for (std::size_t i = 0; i <= last; i += (i + 7 < last ? 7 : 1)) {
      joined += (joined.empty() ? "" : ",") + elements[i];
    }
    std::string const source = "[" + joined + "]";
    Array expected_signed;
    Array expected_unsigned;
    for (std::size_t i = 0; i <= last; i += (i + 7 < last ? 7 : 1)) {
      char const* const text = elements[i].c_str();
      expected_signed.emplace_back(static_cast<long>(std::strtoll(text, nullptr, 10)));
      expected_unsigned.emplace_back(
          text[0] == '-' ? 0UL : static_cast<unsigned long>(std::strtoull(text, nullptr, 10)));
    }
    Text const text(source);
    char const* pos = text.begin();
    Array out;
    ASSERT_EQ(foundation::json::parse_int64_array(pos, text.end(), false, out), rc::ok) << source;
    EXPECT_TRUE(out == expected_signed) << source;
    pos = text.begin();
    ASSERT_EQ(foundation::json::parse_uint64_array(pos, text.end(), false, out), rc::ok) << source;
    EXPECT_TRUE(out == expected_unsigned) << source;
  }
}

TEST(TypedData, CommentsBetweenElements) {
  Text const text("[1/*a*/,/*b*/-2 // c\n]");
  char const* pos = text.begin();
  Array out;
  ASSERT_EQ(foundation::json::parse_int64_array(pos, text.end(), true, out), rc::ok);
  EXPECT_TRUE(out == (Array{i64(1), i64(-2)}));
  pos = text.begin();
  EXPECT_EQ(foundation::json::parse_int64_array(pos, text.end(), false, out),
            rc::expected_comma_or_bracket);
}

TEST(IsTypeName, EightNamesExactly) {
  for (char const* name :
       {"int64", "uint64", "int32", "uint32", "int16", "uint16", "int8", "uint8"}) {
    EXPECT_TRUE(foundation::json::is_type_name(name)) << name;
  }
  for (char const* name : {"", "int", "int128", "Int8", "uint8 ", "double", "float", "bool"}) {
    EXPECT_FALSE(foundation::json::is_type_name(name)) << name;
  }
}

TEST(ReadLarge, LongStringsAndArraysComeThroughWhole) {
  // Long runs cross every block boundary of the string scanner; escapes land at all offsets.
  std::string expected;
  std::string source = "{\"s\":\"";
  for (int i = 0; i < 3000; ++i) {
    char const c = static_cast<char>('a' + i % 26);
    expected += c;
    source += c;
    if (i % (7 + i % 23) == 0) {
      expected += '"';
      source += "\\\"";
    }
  }
  source += "\",\"a\":[";
  Array elements;
  for (int i = 0; i < 1000; ++i) {
    source += (i != 0 ? ",\"" : "\"") + std::to_string(i) + std::string(i % 40, 'p') + "\"";
    elements.emplace_back(std::to_string(i) + std::string(i % 40, 'p'));
  }
  source += "],\"qvtype\":\"int64\",\"qvdata\":[";
  Array numbers;
  for (long i = 0; i < 1000; ++i) {
    source += (i != 0 ? "," : "") + std::to_string(i * 7919 - 3000000);
    numbers.emplace_back(i * 7919 - 3000000);
  }
  source += "]}";
  Text const text(source);
  char const* pos = text.begin();
  Object out;
  ASSERT_EQ(foundation::json::parse_object(pos, text.end(), false, out), rc::ok);
  EXPECT_EQ(out["s"].get<std::string>(), expected);
  EXPECT_TRUE(out["a"] == Value(elements));
  EXPECT_TRUE(out["qvdata"] == Value(numbers));
  EXPECT_EQ(pos, text.end());
}

TEST(ReadStrings, EveryLengthEndsAtItsQuote) {
  // Keys and values of every length up to past two scanner blocks, plain or ending in an escape,
  // followed by a member whose value has a backslash soon after the first value's quote; the
  // text ends right after them, so the last blocks run into its end.
  for (std::size_t keyLength = 0; keyLength <= 34; ++keyLength) {
    for (std::size_t valueLength = 0; valueLength <= 34; ++valueLength) {
      for (bool escaped : {false, true}) {
        std::string const key(keyLength, 'k');
        std::string value;
        for (std::size_t i = 0; i < valueLength; ++i) {
          value += static_cast<char>('a' + i % 26);
        }
        std::string const source = "{\"" + key + "\":\"" + value + (escaped ? "\\n" : "") +
                                   "\",\"e\":\"\\t" + value + "\"}";
        Text const text(source);
        char const* pos = text.begin();
        Object out;
        ASSERT_EQ(foundation::json::parse_object(pos, text.end(), false, out), rc::ok) << source;
        Object const expected{{key, Value(value + (escaped ? "\n" : ""))},
                              {"e", Value("\t" + value)}};
        EXPECT_TRUE(out == expected) << source;
        EXPECT_EQ(pos, text.end()) << source;
      }
    }
  }
}

TEST(ReadArray, ReplacesElementsOnlyOnSuccess) {
  struct {
    char const* text;
    int code;
    Array expected;  // for code 0
  } const cases[] = {
      {R"(["a",["b"],{"c":1}])", rc::ok,
       Array{Value("a"), arr({Value("b")}), obj({{"c", num(1)}})}},
      {"[]", rc::ok, Array{}},
      {R"(["a",)", rc::unexpected_end, {}},
      {R"(["a" "b"])", rc::expected_comma_or_bracket, {}},
  };
  for (auto const& c : cases) {
    for (Array const& start : {Array{}, Array{Value("old"), num(1)}}) {
      Text const text(c.text);
      char const* pos = text.begin();
      Array out = start;
      EXPECT_EQ(foundation::json::parse_array(pos, text.end(), false, out), c.code) << c.text;
      EXPECT_TRUE(out == (c.code == rc::ok ? c.expected : start)) << c.text;
    }
  }
}

// --- the conversions the reader relies on ---------------------------------------------------

TEST(StringToDouble, NearestDoubleWithSaturation) {
  double const inf = std::numeric_limits<double>::infinity();
  struct {
    char const* text;
    double expected;
  } const cases[] = {
      {"0", 0.0},
      {"1.5", 1.5},
      {".5", 0.5},
      {"-12.5e+1", -125.0},
      {"0.1", 0.1},
      {"007", 7.0},
      {"123abc", 123.0},
      {"1.5.5", 1.5},
      {"2e", 2.0},
      {"abc", 0.0},
      {"-", 0.0},
      {"1.7976931348623157e308", std::numeric_limits<double>::max()},
      {"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
      {"1e400", inf},
      {"-1e400", -inf},
      {"1.8e308", inf},
      {"1e99999999999999999999", inf},
      {"0.0000000000000000000000000000000000000000001e-300", 0.0},
      {"1e-99999999999999999999", 0.0},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(foundation::json::detail::string_to_double(c.text), c.expected) << c.text;
  }
  EXPECT_TRUE(std::signbit(foundation::json::detail::string_to_double("-0")));
  EXPECT_TRUE(std::signbit(foundation::json::detail::string_to_double("-1e-400")));
  EXPECT_FALSE(std::signbit(foundation::json::detail::string_to_double("1e-400")));
  std::string const long_integer = "1" + std::string(400, '0');
  EXPECT_EQ(foundation::json::detail::string_to_double(long_integer.c_str()), inf);
}

TEST(U16ToU8, SurrogatesAndRanges) {
  struct {
    std::u16string units;
    char const* expected;
  } const cases[] = {
      {u"A", "A"},
      {{0x7F}, "\x7f"},
      {{0x80}, "\xc2\x80"},
      {{0x7FF}, "\xdf\xbf"},
      {{0x800}, "\xe0\xa0\x80"},
      {{0xFFFD}, "\xef\xbf\xbd"},
      {{0xD800, 0xDC00}, "\xf0\x90\x80\x80"},
      {{0xD83D, 0xDE00}, "\xf0\x9f\x98\x80"},
      {{0xD800}, "\xef\xbf\xbd"},
      {{0xDFFF}, "\xef\xbf\xbd"},
      {{0xD800, 0x0041},
       "\xef\xbf\xbd"
       "A"},
      {{0xDC00, 0xD800}, "\xef\xbf\xbd\xef\xbf\xbd"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(foundation::json::detail::u16_to_u8(c.units.data(), static_cast<int>(c.units.size())),
              c.expected);
  }
  std::string const nul = foundation::json::detail::u16_to_u8(u"\0", 1);
  EXPECT_EQ(nul, std::string(1, '\0'));
}

}  // namespace
