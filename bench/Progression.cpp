// What whole progressions cost, from the start of an instance to its completion. Registration
// before it, and whatever is taken down behind it, are not counted, or are counted by themselves.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/Floors.h"
#include "bench/Plan.h"
#include "bench/Runs.h"
#include "bench/Workload.h"

namespace {

using Bench::Workload;

// Runs one prepared thing per iteration; only the run is counted.
template <class Prepare, class Run>
void timeRuns(benchmark::State& state, Prepare&& prepare, Run&& run) {
    for (auto _ : state) {
        state.PauseTiming();
        auto prepared = prepare();
        state.ResumeTiming();
        const bool complete = run(*prepared);
        state.PauseTiming();
        prepared.reset();
        state.ResumeTiming();
        if (!complete) return state.SkipWithError("it did not complete");
    }
}

void ours(benchmark::State& state, const Workload& workload) {
    timeRuns(
        state,
        [&] {
            auto plan = std::make_unique<Bench::Plan>(workload);
            plan->reportsAre(workload);
            return plan;
        },
        [](Bench::Plan& plan) { return plan.run(); });
}

void keyed(benchmark::State& state, const Workload& workload) {
    timeRuns(
        state, [&] { return std::make_unique<Bench::Keyed>(workload); },
        [](Bench::Keyed& floor) { return floor.run(); });
}

// From an empty tree to "stages complete", and all of it taken down again.
void whole(benchmark::State& state, const Workload& workload) {
    for (auto _ : state) {
        Bench::Plan plan(workload);
        plan.reportsAre(workload);
        if (!plan.run()) return state.SkipWithError("it did not complete");
    }
}

// Joins `agents` agents to stages, and takes them out again in the same order. Names are made in
// the time that is counted, as a registration brings them along.
template <class Stage>
void registerOurs(benchmark::State& state, std::uint32_t agents, Stage&& stage) {
    for (auto _ : state) {
        state.PauseTiming();
        auto plan = std::make_unique<Bench::Plan>();
        state.ResumeTiming();
        for (std::uint32_t i = 0; i < agents; ++i) plan->agentIs(Bench::agentName(i, 0), stage(i));
        for (std::uint32_t i = 0; i < agents; ++i) plan->agentDel(Bench::agentName(i, 0));
        state.PauseTiming();
        // A stage stays when its last event is gone.
        const bool registered = !plan->status()->stage().empty();
        std::size_t events = 0;
        for (const auto& [name, entity] : plan->status()->stage()) events += entity->event().size();
        plan.reset();
        state.ResumeTiming();
        if (!registered || events != 0)
            return state.SkipWithError("registrations did not come and go");
    }
}

// The same knowledge in two tables: what an agent takes part in, and who takes part in a stage.
template <class Stage>
void registerMaps(benchmark::State& state, std::uint32_t agents, Stage&& stage) {
    for (auto _ : state) {
        std::unordered_map<std::string, std::string> stageOf;
        std::unordered_map<std::string, std::string> agentOf;
        for (std::uint32_t i = 0; i < agents; ++i) {
            const std::string agent = Bench::agentName(i, 0);
            const std::string joined = stage(i);
            stageOf.emplace(agent, joined);
            agentOf.emplace(joined + ":" + agent, agent);
        }
        for (std::uint32_t i = 0; i < agents; ++i) {
            const std::string agent = Bench::agentName(i, 0);
            const auto at = stageOf.find(agent);
            agentOf.erase(at->second + ":" + agent);
            stageOf.erase(at);
        }
        if (!agentOf.empty()) return state.SkipWithError("an agent is left");
    }
}

// `number` critical stages that depend on one, which depends on as many: all of it registered, and
// then the stages made uncritical one after the other.
void join(benchmark::State& state, std::uint32_t number) {
    Workload workload;
    workload.dependsOn.resize(2 * number + 1);
    for (std::uint32_t i = 0; i < number; ++i) {
        workload.dependsOn[number].push_back(i);
        workload.dependsOn[number + 1 + i] = {number};
    }
    const auto allCritical = [&](Bench::Plan& plan, bool critical) {
        for (std::uint32_t i = 0; i < number; ++i) plan.criticalIs(number + 1 + i, critical);
    };
    for (auto _ : state) {
        state.PauseTiming();
        auto plan = std::make_unique<Bench::Plan>();
        state.ResumeTiming();
        plan->stagesAre(workload);
        allCritical(*plan, true);
        const bool reached = plan->status()->stage(Bench::stageName(0))->critical();
        allCritical(*plan, false);
        state.PauseTiming();
        const bool left = !plan->status()->stage(Bench::stageName(0))->critical();
        plan.reset();
        state.ResumeTiming();
        if (!reached || !left) return state.SkipWithError("criticality did not come and go");
    }
}

[[maybe_unused]] const bool added = [] {
    const Bench::Contender library{"ours", ours, 100000, true};
    const Bench::Contender floor{"keyed", keyed, 100000, true};
    for (const auto& contender : {library, floor}) {
        Bench::addRuns(contender);
        for (const std::uint32_t agents : {1000u, 100000u})
            Bench::add("fanin/" + contender.name + "/" + std::to_string(agents), agents,
                       [=, body = contender.body](benchmark::State& state) {
                           body(state, Bench::events(1, agents));
                       });
    }
    Bench::addRuns({"kahn", Bench::runAgain<Bench::Kahn>, 10000, true});

    Bench::add("whole/ours/50x4", 1,
               [](benchmark::State& state) { whole(state, Bench::events(50, 4)); });

    const auto oneStage = [](std::uint32_t) { return Bench::stageName(0); };
    for (const std::uint32_t number : {1000u, 10000u}) {
        const std::string size = std::to_string(number);
        Bench::add("join/" + size, 2 * number + 1,
                   [=](benchmark::State& state) { join(state, number); });
        Bench::add("register/ours/spread/" + size, number,
                   [=](benchmark::State& state) { registerOurs(state, number, Bench::stageName); });
        Bench::add("register/maps/spread/" + size, number,
                   [=](benchmark::State& state) { registerMaps(state, number, Bench::stageName); });
        Bench::add("register/ours/onestage/" + size, number,
                   [=](benchmark::State& state) { registerOurs(state, number, oneStage); });
        Bench::add("register/maps/onestage/" + size, number,
                   [=](benchmark::State& state) { registerMaps(state, number, oneStage); });
    }
    return true;
}();

}  // namespace
