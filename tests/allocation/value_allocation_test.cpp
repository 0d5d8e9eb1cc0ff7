// Allocation failures inside Value assignments. This program replaces the global operator new,
// so it stands apart from the other tests (and is not run under valgrind, which replaces it too).
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "json/value.hpp"

namespace {

using foundation::json::Array;
using foundation::json::Kind;
using foundation::json::Object;
using foundation::json::Value;

// Allocation failure while a kind-changing assignment builds the new box.
bool g_failAllocations = false;

}  // namespace

// The replacement pair below is malloc/free on both sides; GCC cannot see that they match.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  if (g_failAllocations) {
    throw std::bad_alloc();
  }
  if (void* p = std::malloc(size == 0 ? 1 : size)) {
    return p;
  }
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

TEST(ValueFailure, FailedBoxAllocationLeavesBool) {
  Value source(Array{Value("element")});
  Value target(2.5);
  g_failAllocations = true;
  bool threw = false;
  try {
    target = source;
  } catch (std::bad_alloc const&) {
    threw = true;
  }
  g_failAllocations = false;
  EXPECT_TRUE(threw);
  EXPECT_EQ(target.kind(), Kind::boolean);
  EXPECT_EQ(source.get<Array>().size(), 1u);  // the source is untouched
}

TEST(ValueFailure, FailedStringCopyLeavesTargetAsItWas) {
  Value source(std::string(64, 's'));  // beyond the small-string buffer: needs an allocation
  Value target(Object{{"k", Value(1.0)}});
  g_failAllocations = true;
  bool threw = false;
  try {
    target = source;
  } catch (std::bad_alloc const&) {
    threw = true;
  }
  g_failAllocations = false;
  EXPECT_TRUE(threw);
  ASSERT_EQ(target.kind(), Kind::object);
  EXPECT_EQ(target.get<Object>().size(), 1u);
}

}  // namespace
