// What the framework's building blocks cost, each beside the plainest thing that does as much.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/AgentStatusLocal.h"
#include "model/StageStatus.h"
#include "runtime/ActivityManager.h"
#include "runtime/Clock.h"
#include "runtime/Trace.h"

namespace {

struct Observer {
    virtual ~Observer() = default;
    virtual void onTimeout() { benchmark::DoNotOptimize(++told); }
    int told = 0;
};

void observerVector(benchmark::State& state) {
    std::vector<std::unique_ptr<Observer>> observers;
    for (int i = 0; i < state.range(0); ++i) observers.push_back(std::make_unique<Observer>());
    double value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value += 1);
        for (const auto& observer : observers) observer->onTimeout();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(observerVector)->Arg(1)->Arg(100);

struct Notifiee : Stage::StageStatus::NotifieeConst {
    void onTimeout() override { benchmark::DoNotOptimize(++told); }
    int told = 0;
};

void notification(benchmark::State& state) {
    const auto stage = Orv::make<Stage::StageStatus>("stage");
    std::vector<std::unique_ptr<Notifiee>> notifiees;
    for (int i = 0; i < state.range(0); ++i) {
        notifiees.push_back(std::make_unique<Notifiee>());
        notifiees.back()->notifierIs(stage);
    }
    double value = 0;
    for (auto _ : state) stage->timeoutIs(value += 1);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(notification)->Arg(1)->Arg(100);

void connectAndDisconnect(benchmark::State& state) {
    const auto stage = Orv::make<Stage::StageStatus>("stage");
    std::vector<std::unique_ptr<Notifiee>> notifiees;
    for (int i = 0; i < state.range(0); ++i) {
        notifiees.push_back(std::make_unique<Notifiee>());
        notifiees.back()->notifierIs(stage);
    }
    Notifiee& middle = *notifiees[notifiees.size() / 2];
    for (auto _ : state) {
        middle.isRegisteredNotifieeIs(false);
        middle.isRegisteredNotifieeIs(true);
    }
}
BENCHMARK(connectAndDisconnect)->Arg(1)->Arg(10000);

std::vector<Stage::AgentStatusKey> keys(std::int64_t count) {
    std::vector<Stage::AgentStatusKey> keys;
    for (std::int64_t i = 0; i < count; ++i)
        keys.push_back({"agent" + std::to_string(i), "stage" + std::to_string(i % 97), "instance"});
    return keys;
}

void keyedChange(benchmark::State& state) {
    const auto local = Orv::make<Stage::AgentStatusLocal>();
    struct : Stage::AgentStatusLocal::NotifieeConst {
        void onComplete(Stage::AgentStatusKey) override { benchmark::DoNotOptimize(++told); }
        int told = 0;
    } notifiee;
    notifiee.notifierIs(local);
    const auto all = keys(state.range(0));
    bool value = false;
    std::size_t next = 0;
    for (auto _ : state) {
        if (next == 0) value = !value;
        local->completeIs(all[next], value);
        next = (next + 1) % all.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(keyedChange)->Arg(1000)->Arg(100000);

void unorderedMapChange(benchmark::State& state) {
    std::unordered_map<std::string, bool> map;
    std::vector<std::string> all;
    for (const auto& key : keys(state.range(0)))
        all.push_back(key.agent.str() + "/" + key.stage.str() + "/" + key.instance.str());
    Observer observer;
    bool value = false;
    std::size_t next = 0;
    for (auto _ : state) {
        if (next == 0) value = !value;
        bool& held = map[all[next]];
        if (held != value) {
            held = value;
            observer.onTimeout();
        }
        next = (next + 1) % all.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(unorderedMapChange)->Arg(1000)->Arg(100000);

struct Timer : Orv::Clock::NotifieeConst {};

void armAndDisarm(benchmark::State& state) {
    const auto clock = Orv::make<Orv::Clock>();
    std::vector<std::unique_ptr<Timer>> timers;
    std::uint32_t random = 1;
    for (int i = 0; i < state.range(0); ++i) {
        timers.push_back(std::make_unique<Timer>());
        timers.back()->notifierIs(clock);
        timers.back()->timeMinIs(random = random * 1664525 + 1013904223);
    }
    Timer timer;
    timer.notifierIs(clock);
    for (auto _ : state) {
        timer.timeMinIs(random = random * 1664525 + 1013904223);
        timer.timeMinIs(Orv::never);
    }
}
BENCHMARK(armAndDisarm)->Arg(1)->Arg(100000);

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
