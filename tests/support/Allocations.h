// Counts and refuses this thread's allocations, for tests of what must not allocate and of what
// must survive an allocation that fails.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace RuntimeTest {

// How many allocations the calling thread has made.
std::size_t allocations();
// How many of all threads' are not freed yet.
std::size_t allocationsHeld();

enum class Refused {
    onwards,  // all allocations from there on
    one,      // that one alone
};

// While it lives, the calling thread's allocation number `which` (from 1, counted from here on) and
// those after it, or it alone, fail with std::bad_alloc.
class FailingAllocation {
  public:
    explicit FailingAllocation(std::size_t which, Refused refused = Refused::onwards);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // Whether one has failed.
    bool failed() const;
};

// Does one act after the other while that allocation alone fails, whichever act makes it: the
// others are done. Returns whether it has failed.
bool doneWithout(std::size_t which, const std::vector<std::function<void()>>& acts);

}  // namespace RuntimeTest
