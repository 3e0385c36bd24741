// What arming and disarming a timer costs while many are armed, the same for every library.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

namespace Bench {

// Timers is made with so many timers, none of them armed; arm(i, seconds from now) and disarm(i)
// are for the i-th.

// All are armed. One of them, in an order that no prefetching foresees, is disarmed and armed for
// another time.
template <class Timers>
void armAndDisarm(benchmark::State& state) {
    const auto number = static_cast<std::size_t>(state.range(0));
    std::mt19937 random(1);
    const auto anyTimer = [&] { return random() % number; };
    // Up to a day, to the millisecond, which is as fine as they all tell times apart.
    const auto anyTime = [&] { return static_cast<double>(random() % 86400000 + 1000) / 1000; };
    struct Step {
        std::size_t timer;
        double time;
    };
    std::vector<Step> steps(65536);
    for (Step& step : steps) step = {anyTimer(), anyTime()};

    Timers timers(number);
    for (std::size_t i = 0; i < number; ++i) timers.arm(i, anyTime());
    std::size_t next = 0;
    for (auto _ : state) {
        const Step& step = steps[next++ % steps.size()];
        timers.disarm(step.timer);
        timers.arm(step.timer, step.time);
    }
    if (!timers.allArmed()) state.SkipWithError("not all are armed");
}

}  // namespace Bench
