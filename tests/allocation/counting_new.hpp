// The test program's own operator new: it counts allocations and can be told to fail them.
#pragma once

#include <cstddef>

namespace allocation_test {

// While set, operator new throws std::bad_alloc.
extern bool failAllocations;

// Allocations made by operator new so far.
std::size_t allocations();

}  // namespace allocation_test
