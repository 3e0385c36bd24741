// A chain as long as is asked for, on a stack of 8 MB: it registers, turns critical from its end,
// turns uncritical, and runs to completion. What goes from stage to stage must not go by the call
// stack. Prints how long each step took, in seconds of the processor, and the most memory that was
// held.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <memory>

#include "bench/Plan.h"
#include "bench/Workload.h"

namespace {

// A limit holds for a program from its start on: this one starts again where it has another.
void stackIs(rlim_t bytes, char** arguments) {
    rlimit limit{};
    if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == bytes) return;
    limit.rlim_cur = bytes;
    if (setrlimit(RLIMIT_STACK, &limit) == 0) execv("/proc/self/exe", arguments);
    std::cerr << "stagemgr-deep: cannot have a stack of " << bytes / 1024
              << " KB; run it under ulimit -s " << bytes / 1024 << "\n";
    std::exit(1);
}

[[noreturn]] void fail(const char* what) {
    std::cout << std::endl;
    std::cerr << "stagemgr-deep: " << what << "\n";
    std::exit(1);
}

std::size_t criticalStages(const Stage::Status& status) {
    std::size_t number = 0;
    for (const auto& [name, stage] : status.stage()) number += stage->critical() ? 1 : 0;
    return number;
}

template <class Act>
void timed(const char* what, Act&& act) {
    const std::clock_t begin = std::clock();
    act();
    const auto took = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    std::cout << ", " << what << " " << took << " s" << std::flush;
}

}  // namespace

int main(int count, char** arguments) {
    const long given = count == 2 ? std::strtol(arguments[1], nullptr, 10) : 0;
    if (given < 2 || given > 10000000) {
        std::cerr << "usage: stagemgr-deep STAGES\n";
        return 2;
    }
    stackIs(8192 * 1024, arguments);

    const auto stages = static_cast<std::uint32_t>(given);
    const Bench::Workload workload = Bench::chain(stages);
    auto plan = std::make_unique<Bench::Plan>();
    std::cout << std::fixed << std::setprecision(2) << stages << " stages";

    timed("registered", [&] { plan->stagesAre(workload); });
    if (plan->status()->stage().size() != stages) fail("a stage is missing");
    if (criticalStages(*plan->status()) != 0) fail("a stage is critical from the start");

    timed("critical", [&] { plan->criticalIs(stages - 1, true); });
    if (criticalStages(*plan->status()) != stages) fail("a stage did not become critical");

    timed("uncritical", [&] { plan->criticalIs(stages - 1, false); });
    if (criticalStages(*plan->status()) != 0) fail("a stage stayed critical");

    plan->reportsAre(workload);
    timed("run", [&] {
        if (!plan->run()) fail("the stages did not become complete");
    });
    timed("taken down", [&] { plan.reset(); });

    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    std::cout << ", peak " << used.ru_maxrss / 1024 << " MB" << std::endl;
}
