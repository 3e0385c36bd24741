// The clock's timers.
#include "bench/Timers.h"

#include <memory>

#include "runtime/Clock.h"

namespace {

struct Timer final : Orv::Clock::NotifieeConst {};

class Ours {
  public:
    explicit Ours(std::size_t number) : number_(number), timers_(new Timer[number]) {
        for (std::size_t i = 0; i < number; ++i) timers_[i].notifierIs(clock_);
    }
    void arm(std::size_t i, double seconds) { timers_[i].timeMinIs(seconds); }
    void disarm(std::size_t i) { timers_[i].timeMinIs(Orv::never); }
    bool allArmed() const { return clock_->armedTimers() == number_; }

  private:
    const Orv::Ptr<Orv::Clock> clock_ = Orv::make<Orv::Clock>();
    const std::size_t number_;
    const std::unique_ptr<Timer[]> timers_;
};
BENCHMARK(Bench::armAndDisarm<Ours>)->Name("timer/ours")->Arg(1)->Arg(100000);

// Most timers of a stage wait for nothing most of the time.
void setNeverAgain(benchmark::State& state) {
    const auto clock = Orv::make<Orv::Clock>();
    Timer timer;
    timer.notifierIs(clock);
    for (auto _ : state) {
        timer.timeMinIs(Orv::never);
        benchmark::ClobberMemory();
    }
    if (clock->armedTimers() != 0) state.SkipWithError("it was armed");
}
BENCHMARK(setNeverAgain)->Name("timer/never");

}  // namespace
