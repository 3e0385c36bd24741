// The activity manager: the thread's clock, its time, and the loop that fires timers.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "runtime/Clock.h"
#include "runtime/Export.h"

namespace Orv {

class Environment;

// Where time comes from. Seconds; the same time base for everything that one manager runs.
class ORV_API TimeSource {
  public:
    TimeSource() = default;
    virtual ~TimeSource();
    TimeSource(const TimeSource&) = delete;
    TimeSource& operator=(const TimeSource&) = delete;

    virtual double now() = 0;
    // Returns at `time` or earlier; true if now() has reached it. `never` waits for an
    // interruption.
    virtual bool waitUntil(double time) = 0;
};

// Stands still, and jumps to whatever is waited for. Waiting for `never` returns at once.
class ORV_API VirtualTime final : public TimeSource {
  public:
    double now() override { return now_; }
    bool waitUntil(double time) override;

  private:
    double now_ = 0;
};

// Seconds since the epoch, by a clock that never steps back: it is set by the wall clock once and
// runs on the monotonic one.
class ORV_API RealTime final : public TimeSource {
  public:
    RealTime();
    double now() override;
    bool waitUntil(double time) override;
    // Ends a wait under way, or the next one. From any thread.
    void interrupt();

  private:
    double offset_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool interrupted_ = false;
};

// One per thread that runs reactors: everything on that thread uses activityManager().
class ORV_API ActivityManager {
  public:
    // Virtual time from 0, and the default environment.
    ActivityManager();
    // Neither is owned; both must outlive the manager.
    ActivityManager(TimeSource& time, Environment& environment);
    ~ActivityManager();
    ActivityManager(const ActivityManager&) = delete;
    ActivityManager& operator=(const ActivityManager&) = delete;

    // What reactors set their timers on.
    const Ptr<Clock>& clock() const { return clock_; }
    Environment& environment() const { return *environment_; }
    TimeSource& timeSource() const { return *time_; }

    // The time of the present turn: it stands still while handlers run, and never goes back.
    double currentTime() const { return now_; }
    // Takes the time from the source: the start of a turn, before inputs are applied.
    void timeUpdate();

    // Fires what is due now, with what falls due meanwhile, without waiting. Returns how many
    // timers fired.
    std::size_t settle();
    // Waits for each timer that is due before `time`, and fires it at its own time; then it is
    // `time`, and what is due then has not fired yet. An interruption of the source ends it early:
    // returns whether `time` was reached.
    bool runUntil(double time);
    // Goes on until no timer is armed, or the source is interrupted.
    void runUntilIdle();

  private:
    void fireNext();

    std::unique_ptr<TimeSource> ownTime_;
    std::unique_ptr<Environment> ownEnvironment_;
    TimeSource* time_;
    Environment* environment_;
    Ptr<Clock> clock_;
    double now_;
};

// The calling thread's manager. There is one by default; ActivityScope puts another in its place.
ORV_API ActivityManager& activityManager();

// Makes `manager` the thread's while it lives. Scopes nest.
class ORV_API ActivityScope {
  public:
    explicit ActivityScope(ActivityManager& manager);
    ~ActivityScope();
    ActivityScope(const ActivityScope&) = delete;
    ActivityScope& operator=(const ActivityScope&) = delete;

  private:
    ActivityManager* outer_;
};

// The system's time.
struct System {
    // Wall time in seconds; stands still while handlers run.
    static double currentTime() { return activityManager().currentTime(); }
};

}  // namespace Orv
