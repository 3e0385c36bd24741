// What the framework's smallest building blocks cost.
#include <benchmark/benchmark.h>

#include "model/StageStatus.h"
#include "runtime/Ptr.h"
#include "runtime/Trace.h"

namespace {

const Orv::TraceUnit& traceUnit() {
    static const Orv::TraceUnit unit{"bench", Orv::TraceHandle::named("bench")};
    return unit;
}

void disabledTrace(benchmark::State& state) {
    int built = 0;
    for (auto _ : state) {
        TRACE(8, " built ", ++built);
        benchmark::DoNotOptimize(built);
    }
}
BENCHMARK(disabledTrace);

void countedCopy(benchmark::State& state) {
    Orv::threadSafePtrsIs(state.range(0) != 0);
    const auto stage = Orv::make<Stage::StageStatus>("stage");
    for (auto _ : state) {
        const Orv::Ptr<Stage::StageStatus> copy = stage;
        benchmark::DoNotOptimize(copy.get());
    }
    Orv::threadSafePtrsIs(false);
}
BENCHMARK(countedCopy)->ArgName("threadSafe")->Arg(0)->Arg(1);

}  // namespace
