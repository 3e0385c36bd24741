// How much memory stages hold after a run, their log and all that was written into them included:
// with one event in one instance, and how much more with another event, and with another instance.
// Prints a line per figure: bytes, and what they are for.
#include <malloc.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "bench/Plan.h"
#include "bench/Workload.h"

namespace {

std::size_t held() {
    const struct mallinfo2 all = mallinfo2();
    return all.uordblks + all.hblkhd;
}

// Per stage, after a chain has run in so many instances one after the other. What agents have
// written counts; the list of what they were to report does not.
double bytesPerStage(std::uint32_t stages, std::uint32_t agents, int instances) {
    const Bench::Workload workload = Bench::events(stages, agents);
    const std::size_t before = held();
    Bench::Plan plan(workload);
    for (int i = 0; i < instances; ++i) {
        const std::string instance = "main" + std::to_string(i);
        plan.reportsAre(workload, instance);
        if (!plan.run(instance)) {
            std::cerr << "stagemgr-memory: the stages did not become complete\n";
            std::exit(1);
        }
        plan.forgetReports();
    }
    return static_cast<double>(held() - before) / stages;
}

}  // namespace

int main() {
    constexpr std::uint32_t stages = 10000;
    bytesPerStage(10, 1, 1);  // what is made once and for all
    const double one = bytesPerStage(stages, 1, 1);
    if (one <= 0) {
        std::cerr << "stagemgr-memory: the allocator does not tell what is held\n";
        return 1;
    }
    const double event = bytesPerStage(stages, 2, 1);
    const double instance = bytesPerStage(stages, 1, 2);
    const double both = bytesPerStage(stages, 2, 2);
    const auto print = [](double bytes, const char* what) {
        std::cout << static_cast<long>(bytes + 0.5) << "\t" << what << "\n";
    };
    print(one, "per stage with one event");
    print(event - one, "per further event");
    print(instance - one, "per further instance of a stage with one event");
    print(both - instance - event + one, "per further event in a further instance");
}
