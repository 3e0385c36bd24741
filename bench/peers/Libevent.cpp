// libevent, whose timers stand in a binary heap of pointers.
#include <event2/event.h>
#include <event2/event_struct.h>

#include <algorithm>
#include <cmath>

#include "bench/Timers.h"

namespace {

class Libevent {
  public:
    explicit Libevent(std::size_t number) : timers_(number) {
        for (event& timer : timers_)
            evtimer_assign(
                &timer, base_, [](evutil_socket_t, short, void*) {}, nullptr);
    }
    ~Libevent() {
        for (std::size_t i = 0; i < timers_.size(); ++i) disarm(i);
        event_base_free(base_);
    }
    Libevent(const Libevent&) = delete;
    Libevent& operator=(const Libevent&) = delete;

    void arm(std::size_t i, double seconds) {
        const double whole = std::floor(seconds);
        const timeval after{static_cast<time_t>(whole),
                            static_cast<suseconds_t>((seconds - whole) * 1e6)};
        evtimer_add(&timers_[i], &after);
    }
    void disarm(std::size_t i) { evtimer_del(&timers_[i]); }
    bool allArmed() const {
        return std::all_of(timers_.begin(), timers_.end(), [](const event& timer) {
            return evtimer_pending(&timer, nullptr) != 0;
        });
    }

  private:
    event_base* const base_ = event_base_new();
    std::vector<event> timers_;
};
BENCHMARK(Bench::armAndDisarm<Libevent>)->Name("timer/libevent")->Arg(1)->Arg(100000);

}  // namespace
