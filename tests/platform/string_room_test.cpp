// fl::strings::grow_uninitialized: the size it sets, and the bytes it must keep, across the
// small-string buffer, reallocations and shrinking.
#include "platform/string_room.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace {

struct Resize {
  std::size_t from;
  std::size_t to;
};

class GrowUninitialized : public ::testing::TestWithParam<Resize> {};

TEST_P(GrowUninitialized, SetsTheSizeAndKeepsTheBytesBelowIt) {
  std::string text;
  for (std::size_t i = 0; i < GetParam().from; ++i) {
    text += static_cast<char>('a' + i % 26);
  }
  std::string const before = text;
  fl::strings::grow_uninitialized(text, GetParam().to);
  ASSERT_EQ(text.size(), GetParam().to);
  EXPECT_EQ(text.compare(0, std::min(GetParam().from, GetParam().to), before, 0,
                         std::min(GetParam().from, GetParam().to)),
            0);
  EXPECT_EQ(text.c_str()[text.size()], '\0');
  // The new bytes are the caller's to write, and the string keeps them.
  for (std::size_t i = before.size(); i < text.size(); ++i) {
    text[i] = 'z';
  }
  text += '!';
  EXPECT_EQ(text.size(), GetParam().to + 1);
  EXPECT_EQ(text.back(), '!');
  if (GetParam().to > GetParam().from) {
    EXPECT_EQ(text[GetParam().to - 1], 'z');
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, GrowUninitialized,
                         ::testing::Values(Resize{0, 0}, Resize{0, 5}, Resize{5, 15},
                                           Resize{5, 100}, Resize{100, 100000}, Resize{100000, 3},
                                           Resize{20, 0}));

}  // namespace
