// The replacement operator new of the allocation tests. This program replaces the global
// operator new, so it stands apart from the other tests (and is not run under valgrind, which
// replaces it too).
#include "counting_new.hpp"

#include <cstdlib>
#include <new>

namespace allocation_test {

bool failAllocations = false;

namespace {
std::size_t allocationCount = 0;
}  // namespace

std::size_t allocations() {
  return allocationCount;
}

}  // namespace allocation_test

// The replacement pair below is malloc/free on both sides; GCC cannot see that they match.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  if (allocation_test::failAllocations) {
    throw std::bad_alloc();
  }
  if (void* p = std::malloc(size == 0 ? 1 : size)) {
    ++allocation_test::allocationCount;
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
