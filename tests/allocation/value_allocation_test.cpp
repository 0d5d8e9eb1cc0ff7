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

// Whether `target = source` threw std::bad_alloc with every allocation failing.
bool assignmentFails(Value& target, Value const& source) {
  allocation_test::failAllocations = true;
  bool threw = false;
  try {
    target = source;
  } catch (std::bad_alloc const&) {
    threw = true;
  }
  allocation_test::failAllocations = false;
  return threw;
}

TEST(ValueFailure, FailedBoxAllocationLeavesBool) {
  Value const source(Array{Value("element")});
  Value target(2.5);
  EXPECT_TRUE(assignmentFails(target, source));
  EXPECT_EQ(target.kind(), Kind::boolean);
  EXPECT_EQ(source.get<Array>().size(), 1u);  // the source is untouched
}

TEST(ValueFailure, FailedStringCopyLeavesTargetAsItWas) {
  Value const source(std::string(64, 's'));  // beyond the small-string buffer: needs an allocation
  Value target(Object{{"k", Value(1.0)}});
  EXPECT_TRUE(assignmentFails(target, source));
  ASSERT_EQ(target.kind(), Kind::object);
  EXPECT_EQ(target.get<Object>().size(), 1u);
}

}  // namespace
