// Counts and refuses this thread's allocations, for tests of what must not allocate and of what
// must survive an allocation that fails.
#pragma once

#include <cstddef>

namespace RuntimeTest {

// How many allocations the calling thread has made.
std::size_t allocations();

// While it lives, the calling thread's allocation number `which` (from 1, counted from here on) and
// all after it fail with std::bad_alloc.
class FailingAllocation {
  public:
    explicit FailingAllocation(std::size_t which);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
};

}  // namespace RuntimeTest
