// libev, whose timers stand in a 4-ary heap with their times beside them.
#include <ev.h>

#include <algorithm>

#include "bench/Timers.h"

namespace {

class Libev {
  public:
    explicit Libev(std::size_t number) : timers_(number) {
        for (ev_timer& timer : timers_) ev_init(&timer, [](struct ev_loop*, ev_timer*, int) {});
    }
    ~Libev() {
        for (std::size_t i = 0; i < timers_.size(); ++i) disarm(i);
        ev_loop_destroy(loop_);
    }
    Libev(const Libev&) = delete;
    Libev& operator=(const Libev&) = delete;

    void arm(std::size_t i, double seconds) {
        ev_timer_set(&timers_[i], seconds, 0.);
        ev_timer_start(loop_, &timers_[i]);
    }
    void disarm(std::size_t i) { ev_timer_stop(loop_, &timers_[i]); }
    bool allArmed() const {
        return std::all_of(timers_.begin(), timers_.end(),
                           [](const ev_timer& timer) { return ev_is_active(&timer); });
    }

  private:
    struct ev_loop* const loop_ = ev_loop_new(EVFLAG_AUTO);
    std::vector<ev_timer> timers_;
};
BENCHMARK(Bench::armAndDisarm<Libev>)->Name("timer/libev")->Arg(1)->Arg(100000);

}  // namespace
