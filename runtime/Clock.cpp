#include "runtime/Clock.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "runtime/Notifiee.h"

namespace Orv {

Clock::~Clock() = default;

Clock::NotifieeConst::~NotifieeConst() { notifierIs(nullptr); }

void Clock::NotifieeConst::notifierIs(Ptr<const Clock> clock) {
    timeMinIs(never);
    // Released last, since whatever goes with it may destroy this timer.
    const Ptr<const Clock> old = std::exchange(clock_, std::move(clock));
}

void Clock::NotifieeConst::timeMinIs(double seconds) {
    if (std::isnan(seconds)) seconds = never;
    if (seconds == timeMin_ || !clock_) return;
    // Being waited for does not change a clock, so readers may arm timers on it.
    Clock& clock = const_cast<Clock&>(*clock_);
    if (place_ != 0) clock.disarm(*this);
    timeMin_ = seconds;
    if (seconds != never) {
        try {
            clock.arm(*this);
        } catch (...) {
            timeMin_ = never;
            throw;
        }
    }
}

void Clock::NotifieeConst::report() {
    const DeliveryScope scope;
    try {
        onTime();
    } catch (...) {
        DeliveryScope::reportException();
    }
}

void Clock::fireNext() {
    assertThat(!queue_.empty(), "!queue_.empty()");
    NotifieeConst& timer = *queue_.front().timer;
    disarm(timer);
    timer.timeMin_ = never;
    timer.report();
}

void Clock::put(std::size_t at, const Place& place) {
    queue_[at] = place;
    place.timer->place_ = at + 1;
}

void Clock::arm(NotifieeConst& timer) {
    queue_.push_back({timer.timeMin_, ++armings_, &timer});
    timer.place_ = queue_.size();
    siftUp(queue_.size() - 1);
}

void Clock::disarm(NotifieeConst& timer) {
    const std::size_t at = timer.place_ - 1;
    timer.place_ = 0;
    const Place last = queue_.back();
    queue_.pop_back();
    if (at == queue_.size()) return;
    put(at, last);
    siftUp(at);
    siftDown(last.timer->place_ - 1);
}

void Clock::siftUp(std::size_t at) {
    const Place place = queue_[at];
    while (at > 0) {
        const std::size_t parent = (at - 1) / 4;
        if (!place.before(queue_[parent])) break;
        put(at, queue_[parent]);
        at = parent;
    }
    put(at, place);
}

void Clock::siftDown(std::size_t at) {
    const Place place = queue_[at];
    for (;;) {
        const std::size_t first = at * 4 + 1;
        if (first >= queue_.size()) break;
        std::size_t least = first;
        for (std::size_t i = first + 1; i < std::min(first + 4, queue_.size()); ++i)
            if (queue_[i].before(queue_[least])) least = i;
        if (!queue_[least].before(place)) break;
        put(at, queue_[least]);
        at = least;
    }
    put(at, place);
}

}  // namespace Orv
