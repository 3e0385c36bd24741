// Clocks: timers that belong to their notifiees.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "runtime/Export.h"
#include "runtime/Ptr.h"
#include "runtime/String.h"

namespace Orv {

// The wake-up time of a timer that is not armed.
inline constexpr double never = std::numeric_limits<double>::infinity();

// A timer source. Times are absolute seconds of the activity manager's time base. Timers fire in
// the order of their due time, then of arming; what is not armed costs nothing.
class ORV_API Clock final : public PtrInterface {
  public:
    // One timer, independent of every other on the same clock.
    class ORV_API NotifieeConst {
      public:
        NotifieeConst(const NotifieeConst&) = delete;
        NotifieeConst& operator=(const NotifieeConst&) = delete;

        // `never` when it is not armed.
        double timeMin() const { return timeMin_; }
        // Wakes up at `seconds`. NaN and +infinity mean never; a time that has passed, -infinity
        // included, means the next turn. Setting the time that is set keeps the timer's place.
        // Nothing fires inside this call.
        void timeMinIs(double seconds);

        // Whether it is connected to its clock.
        bool isRegisteredNotifiee() const { return static_cast<bool>(clock_); }
        const Ptr<const Clock>& notifier() const { return clock_; }
        // Moves to another clock, disarmed. Null disconnects.
        void notifierIs(Ptr<const Clock> clock);

        // The wake-up time has come; it has been consumed, and may be set anew.
        virtual void onTime() {}

      protected:
        NotifieeConst() = default;
        virtual ~NotifieeConst();

      private:
        friend class Clock;
        template <class W>
        friend class TimerSlot;

        // Calls onTime as a notification.
        void report();

        Ptr<const Clock> clock_;
        double timeMin_ = never;
        std::size_t place_ = 0;  // in the clock's queue, from 1; 0 while not armed
    };

    Clock() = default;
    ~Clock() override;

    // The earliest due time; `never` when nothing is armed.
    double nextTime() const { return queue_.empty() ? never : queue_.front().time; }
    std::size_t armedTimers() const { return queue_.size(); }

    // Takes the first timer out of the queue and calls its onTime. Something must be armed.
    void fireNext();

  private:
    // A 4-ary heap: half as deep as a binary one, and a node's children share a cache line.
    struct Place {
        double time;
        std::uint64_t armed;
        NotifieeConst* timer;
        bool before(const Place& other) const {
            return time < other.time || (time == other.time && armed < other.armed);
        }
    };
    void arm(NotifieeConst& timer);
    void disarm(NotifieeConst& timer);
    void siftUp(std::size_t at);
    void siftDown(std::size_t at);
    void put(std::size_t at, const Place& place);

    std::vector<Place> queue_;
    std::uint64_t armings_ = 0;
};

// A nested clock notifiee: it forwards onTime to a handler of its reactor, as the last thing it
// does.
template <class Sm>
class TimerOf : public Clock::NotifieeConst {
  public:
    explicit TimerOf(Sm& sm) : sm_(sm) {}

  protected:
    Sm& sm() const { return sm_; }

  private:
    Sm& sm_;
};

// The slot of a nested clock notifiee: see WatchSlot. A clock reports once, synchronously, when it
// is set, so timer handlers are guarded by `initialized`.
template <class W>
class TimerSlot {
  public:
    explicit operator bool() const { return engaged_; }
    // `never` when there is no clock.
    double timeMin() const { return engaged_ ? watch_.timeMin() : never; }
    void timeMinIs(double seconds) { watch_.timeMinIs(seconds); }

    template <class Sm>
    explicit TimerSlot(Sm& sm) : watch_(sm) {}

    void is(Ptr<const Clock> clock) {
        if (watch_.notifier() == clock) return;
        engaged_ = static_cast<bool>(clock);
        watch_.notifierIs(std::move(clock));
        if (engaged_) static_cast<Clock::NotifieeConst&>(watch_).report();
    }
    void del() {
        engaged_ = false;
        watch_.notifierIs(nullptr);
    }

  private:
    W watch_;
    bool engaged_ = false;
};

}  // namespace Orv
