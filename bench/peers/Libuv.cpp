// libuv, whose timers are the nodes of a binary heap.
#include <uv.h>

#include <algorithm>

#include "bench/Timers.h"

namespace {

class Libuv {
  public:
    explicit Libuv(std::size_t number) : timers_(number) {
        uv_loop_init(&loop_);
        for (uv_timer_t& timer : timers_) uv_timer_init(&loop_, &timer);
    }
    ~Libuv() {
        for (uv_timer_t& timer : timers_) uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
        uv_run(&loop_, UV_RUN_DEFAULT);  // until all are closed
        uv_loop_close(&loop_);
    }
    Libuv(const Libuv&) = delete;
    Libuv& operator=(const Libuv&) = delete;

    void arm(std::size_t i, double seconds) {
        uv_timer_start(
            &timers_[i], [](uv_timer_t*) {}, static_cast<std::uint64_t>(seconds * 1000), 0);
    }
    void disarm(std::size_t i) { uv_timer_stop(&timers_[i]); }
    bool allArmed() const {
        return std::all_of(timers_.begin(), timers_.end(), [](const uv_timer_t& timer) {
            return uv_is_active(reinterpret_cast<const uv_handle_t*>(&timer)) != 0;
        });
    }

  private:
    uv_loop_t loop_;
    std::vector<uv_timer_t> timers_;
};
BENCHMARK(Bench::armAndDisarm<Libuv>)->Name("timer/libuv")->Arg(1)->Arg(100000);

}  // namespace
