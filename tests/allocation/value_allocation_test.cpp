// Allocation failures inside Value assignments.
#include <gtest/gtest.h>

#include <new>

#include "counting_new.hpp"
#include "json/value.hpp"

namespace {

using foundation::json::Array;
using foundation::json::Kind;
using foundation::json::Object;
using foundation::json::Value;

using allocation_test::failAllocations;

TEST(ValueFailure, FailedBoxAllocationLeavesBool) {
  Value source(Array{Value("element")});
  Value target(2.5);
  failAllocations = true;
  bool threw = false;
  try {
    target = source;
  } catch (std::bad_alloc const&) {
    threw = true;
  }
  failAllocations = false;
  EXPECT_TRUE(threw);
  EXPECT_EQ(target.kind(), Kind::boolean);
  EXPECT_EQ(source.get<Array>().size(), 1u);  // the source is untouched
}

TEST(ValueFailure, FailedStringCopyLeavesTargetAsItWas) {
  Value source(std::string(64, 's'));  // beyond the small-string buffer: needs an allocation
  Value target(Object{{"k", Value(1.0)}});
  failAllocations = true;
  bool threw = false;
  try {
    target = source;
  } catch (std::bad_alloc const&) {
    threw = true;
  }
  failAllocations = false;
  EXPECT_TRUE(threw);
  ASSERT_EQ(target.kind(), Kind::object);
  EXPECT_EQ(target.get<Object>().size(), 1u);
}

}  // namespace
