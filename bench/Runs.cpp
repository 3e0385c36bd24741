#include "bench/Runs.h"

#include <algorithm>

namespace Bench {

void add(const std::string& name, std::uint64_t items,
         std::function<void(benchmark::State&)> body) {
    benchmark::RegisterBenchmark(name.c_str(), [items,
                                                body = std::move(body)](benchmark::State& state) {
        body(state);
        state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(items));
    })->Unit(benchmark::kMicrosecond);
}

void addRuns(const Contender& contender) {
    struct Shape {
        const char* name;
        Workload (*made)(std::uint32_t);
        std::uint32_t largest;
    };
    const Body body = contender.body;
    for (const Shape shape : {Shape{"chain", chain, contender.largestChain},
                              {"fan", fan, std::min(contender.largestChain, 10000u)},
                              {"layered", layered, std::min(contender.largestChain, 10000u)}})
        for (std::uint32_t stages = 1000; stages <= shape.largest; stages *= 10)
            add("run/" + contender.name + "/" + shape.name + "/" + std::to_string(stages), stages,
                // Made when it is run, since most are left out most of the time.
                [=](benchmark::State& state) { body(state, shape.made(stages)); });

    constexpr std::uint32_t agents = 100;
    if (contender.knowsAgents)
        for (const std::uint32_t stages : {100u, 1000u})
            add("run/" + contender.name + "/events/" + std::to_string(stages) + "x" +
                    std::to_string(agents),
                stages * agents,
                [=](benchmark::State& state) { body(state, events(stages, agents)); });
}

}  // namespace Bench
