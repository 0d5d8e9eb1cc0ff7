// The reader allocates only what the Values it builds own: a map node per member, a box per
// array or object, an element buffer per non-empty array, a buffer per string too long for the
// string itself. A deep copy of the result allocates exactly that, so the two counts must agree.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "counting_new.hpp"
#include "json/reader.hpp"

namespace {

using foundation::json::Object;

struct ReadCase {
  char const* name;
  std::string text;
};

std::ostream& operator<<(std::ostream& os, ReadCase const& c) {
  return os << c.name;
}

class ReaderAllocations : public ::testing::TestWithParam<ReadCase> {};

TEST_P(ReaderAllocations, NoneBeyondTheValuesOwn) {
  // Exactly the text's bytes, no NUL after them, as a request arrives.
  std::vector<char> const text(GetParam().text.begin(), GetParam().text.end());
  Object request;
  char const* pos = text.data();
  std::size_t const beforeReading = allocation_test::allocations();
  ASSERT_EQ(foundation::json::parse_object(pos, text.data() + text.size(), false, request), 0);
  std::size_t const reading = allocation_test::allocations() - beforeReading;

  std::size_t const beforeCopy = allocation_test::allocations();
  Object const copy = request;
  std::size_t const owned = allocation_test::allocations() - beforeCopy;

  EXPECT_GT(owned, 0u);
  EXPECT_EQ(reading, owned);
}

// Arrays stay within the four elements the reader allocates for at first; strings and numbers
// come short and long, plain and escaped.
INSTANTIATE_TEST_SUITE_P(
    Requests, ReaderAllocations,
    ::testing::Values(
        ReadCase{"small_get",
                 R"({"requestid":"r-42","uid":"u1","flavors":["text/plain","image/png"]})"},
        ReadCase{
            "spaced_get",
            "{ \"requestid\" : \"r-42\" ,\n \"uid\" : \"u1\" , \"flavors\" : [ \"text/plain\" ] }"},
        ReadCase{
            "set_with_items",
            R"({"requestid":"r-7","uid":"u1","clipboardItems":[{"mimeType":"text/plain","data":"a text longer than a short string"},{"mimeType":"text/uri-list","action":"cut","data":["/home/user/a.txt","/home/user/b.txt"]}]})"},
        ReadCase{
            "escaped_strings",
            R"({"short":"a\"b","long":"line one\nline two\ttabbed \u00e9\ud83d\ude00 and more"})"},
        ReadCase{"numbers",
                 R"({"small":1,"fraction":-12.5e+1,"long":12345678901234567890.123456789e-3})"},
        ReadCase{"literals_and_empties", R"({"t":true,"f":false,"n":null,"o":{},"a":[],"s":""})"},
        ReadCase{"nested", R"({"a":{"b":{"c":[[1,2],[3],{"d":"e"}]}}})"},
        ReadCase{"typed_array", R"({"qvtype":"int32","qvdata":[1,-2,300,4]})"},
        ReadCase{"long_key", R"({"a key longer than fifteen bytes":"v"})"}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
