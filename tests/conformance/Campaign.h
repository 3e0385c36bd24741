// Many seeds, judged by a few processes, so that a seed that crashes, or never ends, costs no other
// seed its verdict.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace conformance {

// What is counted over all seeds.
struct Count {
    std::uint64_t journals = 0;
    std::uint64_t lines = 0;
    std::uint64_t observations = 0;
    std::uint64_t aborted = 0;
    std::uint64_t differences = 0;
};

struct Verdict {
    bool agrees = true;
    std::uint64_t lines = 0;
    std::uint64_t observations = 0;
    bool aborted = false;
};

struct Campaign {
    std::uint64_t first = 1;
    std::uint64_t seeds = 0;
    unsigned jobs = 1;
    // Asked in one of the processes, for each seed once. Whatever ends the process counts as a
    // difference of the seed.
    std::function<Verdict(std::uint64_t seed)> judge;
    // Seconds of processor time that one seed may take: a machine that is busy says nothing of it.
    unsigned patience = 60;
    // Whether the first difference ends it; then not every seed is judged.
    bool stop = false;
    // Told now and then.
    std::function<void(const Count&)> progress;
};

struct Result {
    Count count;
    // The first thousand seeds that differ, in ascending order.
    std::vector<std::uint64_t> differing;
    // Processes that failed with no seed under way, as one does that finds a leak when it ends.
    std::uint64_t failedProcesses = 0;
};

Result run(const Campaign& campaign);

// Ends this process once it has used that much processor time from now on, in seconds; 0: never.
void endAfter(unsigned seconds);

}  // namespace conformance
