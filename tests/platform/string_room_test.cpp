// fl::strings::grow_uninitialized, for byte and UTF-16 strings: the size it sets, and the units
// it must keep, across the small-string buffer, reallocations and shrinking; and
// fl::strings::assign_short.
#include "platform/string_room.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace {

struct Resize {
  std::size_t from;
  std::size_t to;
};

class GrowUninitialized : public ::testing::TestWithParam<Resize> {};

template <class String>
void growAndCheck(Resize const& r) {
  using Unit = typename String::value_type;
  String text;
  for (std::size_t i = 0; i < r.from; ++i) {
    text += static_cast<Unit>('a' + i % 26);
  }
  String const before = text;
  fl::strings::grow_uninitialized(text, r.to);
  ASSERT_EQ(text.size(), r.to);
  EXPECT_EQ(text.compare(0, std::min(r.from, r.to), before, 0, std::min(r.from, r.to)), 0);
  EXPECT_EQ(text.c_str()[text.size()], Unit{0});
  // The new units are the caller's to write, and the string keeps them.
  for (std::size_t i = before.size(); i < text.size(); ++i) {
    text[i] = Unit{'z'};
  }
  text += Unit{'!'};
  EXPECT_EQ(text.size(), r.to + 1);
  EXPECT_EQ(text.back(), Unit{'!'});
  if (r.to > r.from) {
    EXPECT_EQ(text[r.to - 1], Unit{'z'});
  }
}

TEST_P(GrowUninitialized, SetsTheSizeAndKeepsTheBytesBelowIt) {
  growAndCheck<std::string>(GetParam());
}

TEST_P(GrowUninitialized, SetsTheSizeAndKeepsTheUnitsBelowItInUtf16Text) {
  growAndCheck<std::u16string>(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Sizes, GrowUninitialized,
                         ::testing::Values(Resize{0, 0}, Resize{0, 5}, Resize{5, 15},
                                           Resize{5, 100}, Resize{100, 100000}, Resize{100000, 3},
                                           Resize{20, 0}));

TEST(AssignShort, HoldsExactlyTheBytesAtEveryLength) {
  // Every length the short copies cover and beyond the string's own buffer; the bytes come from
  // a buffer of exactly their size, so that the sanitizer build reports a read past them.
  for (std::size_t size = 0; size <= 40; ++size) {
    std::vector<char> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
      bytes[i] = static_cast<char>('A' + i);
    }
    std::string text;
    fl::strings::assign_short(text, bytes.data(), size);
    EXPECT_EQ(text, std::string(bytes.begin(), bytes.end())) << size;
    EXPECT_EQ(text.c_str()[size], '\0') << size;
    text += '!';
    EXPECT_EQ(text.size(), size + 1);
    EXPECT_EQ(text.back(), '!');
  }
}

}  // namespace
