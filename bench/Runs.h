// The benchmarks that all who run workloads have in common.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>

#include "bench/Workload.h"

namespace Bench {

// A benchmark whose items, such as stages or reports, are counted.
void add(const std::string& name, std::uint64_t items, std::function<void(benchmark::State&)> body);

using Body = void (*)(benchmark::State&, const Workload&);

// Who runs workloads: run/NAME/SHAPE/STAGES for chain, fan and layered with 1,000 stages and more,
// and run/NAME/events/STAGESxAGENTS for those that know of agents.
struct Contender {
    std::string name;
    Body body;
    std::uint32_t largestChain = 10000;
    bool knowsAgents = false;
};
void addRuns(const Contender& contender);

// Times the runs of something that begins anew by itself.
template <class Runner>
void runAgain(benchmark::State& state, const Workload& workload) {
    Runner runner(workload);
    for (auto _ : state)
        if (!runner.run()) return state.SkipWithError("it did not complete");
}

}  // namespace Bench
