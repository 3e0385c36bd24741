// One run of one workload, for counting its instructions: under callgrind they are counted from the
// start of the instance to its completion, and nowhere else. Prints over how many of what they are
// to be divided: "100 stages" or "10000 reports".
#include <valgrind/callgrind.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "bench/Plan.h"
#include "bench/Workload.h"

int main(int count, char** arguments) {
    const std::string shape = count > 1 ? arguments[1] : "";
    const auto number = [&](int at) {
        const long given = count > at ? std::strtol(arguments[at], nullptr, 10) : 0;
        return static_cast<std::uint32_t>(given > 0 && given <= 10000000 ? given : 0);
    };
    const std::uint32_t stages = number(2);
    const std::uint32_t agents = number(3);
    Bench::Workload workload;
    if (shape == "chain" && stages > 1 && count == 3)
        workload = Bench::chain(stages);
    else if (shape == "fan" && stages > 1 && count == 3)
        workload = Bench::fan(stages);
    else if (shape == "layered" && stages > 1 && count == 3)
        workload = Bench::layered(stages);
    else if (shape == "events" && stages > 0 && agents > 0 && count == 4)
        workload = Bench::events(stages, agents);
    else {
        std::cerr << "usage: stagemgr-instructions chain|fan|layered STAGES\n"
                     "       stagemgr-instructions events STAGES AGENTS\n";
        return 2;
    }

    Bench::Plan plan(workload);
    plan.reportsAre(workload);
    CALLGRIND_START_INSTRUMENTATION;
    const bool complete = plan.run();
    CALLGRIND_STOP_INSTRUMENTATION;
    if (!complete) {
        std::cerr << "stagemgr-instructions: the stages did not become complete\n";
        return 1;
    }
    if (shape == "events")
        std::cout << workload.reports() << " reports\n";
    else
        std::cout << workload.stages() << " stages\n";
}
