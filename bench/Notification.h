// What telling observers and connecting them cost, the same for every way to do so.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace Bench {

// What is done once an observer is told. It is not to be optimized away.
class Told {
  public:
    void tell() { benchmark::DoNotOptimize(++times_); }
    std::int64_t times() const { return times_; }

  private:
    std::int64_t times_ = 0;
};

// A plain observer. Its callback stands elsewhere, and so does who else may be one: the compiler
// cannot guess who is called.
class Observer {
  public:
    virtual ~Observer() = default;
    virtual void onValue() {}
};

// A Subject is made with so many observers. It tells each that its value has changed, and counts
// that in told(). One more observer can join() and leave().

template <class Subject>
void notification(benchmark::State& state) {
    Subject subject(state.range(0));
    double value = 0;
    for (auto _ : state) subject.valueIs(value += 1);
    if (subject.told() != state.iterations() * state.range(0))
        state.SkipWithError("not everyone was told");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Subject>
void connection(benchmark::State& state) {
    Subject subject(state.range(0));
    for (auto _ : state) {
        subject.join();
        subject.leave();
    }
}

// notification/NAME/1 and 100, connection/NAME/1 and 10000.
template <class Subject>
bool registered(const char* name) {
    const auto full = [&](const char* subject) { return std::string(subject) + "/" + name; };
    benchmark::RegisterBenchmark(full("notification").c_str(), notification<Subject>)
        ->Arg(1)
        ->Arg(100);
    benchmark::RegisterBenchmark(full("connection").c_str(), connection<Subject>)
        ->Arg(1)
        ->Arg(10000);
    return true;
}

}  // namespace Bench
