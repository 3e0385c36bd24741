#include "runtime/ActivityManager.h"

#include <algorithm>
#include <chrono>

#include "runtime/Environment.h"

namespace Orv {

TimeSource::~TimeSource() = default;

bool VirtualTime::waitUntil(double time) {
    if (time == never) return false;
    now_ = std::max(now_, time);
    return true;
}

namespace {

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

RealTime::RealTime()
    : offset_(std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                  .count() -
              monotonicSeconds()) {}

double RealTime::now() { return offset_ + monotonicSeconds(); }

bool RealTime::waitUntil(double time) {
    std::unique_lock lock(mutex_);
    while (!interrupted_ && now() < time) {
        // A day at most per wait: far times overflow the library's time points.
        const double seconds = std::min(time - now(), 86400.0);
        wake_.wait_for(lock, std::chrono::duration<double>(seconds));
    }
    const bool interrupted = std::exchange(interrupted_, false);
    return !interrupted && now() >= time;
}

void RealTime::interrupt() {
    const std::lock_guard lock(mutex_);
    interrupted_ = true;
    wake_.notify_all();
}

ActivityManager::ActivityManager()
    : ownTime_(std::make_unique<VirtualTime>()),
      ownEnvironment_(std::make_unique<Environment>()),
      time_(ownTime_.get()),
      environment_(ownEnvironment_.get()),
      clock_(make<Clock>()),
      now_(time_->now()) {}

ActivityManager::ActivityManager(TimeSource& time, Environment& environment)
    : time_(&time), environment_(&environment), clock_(make<Clock>()), now_(time.now()) {}

ActivityManager::~ActivityManager() = default;

void ActivityManager::timeUpdate() { now_ = std::max(now_, time_->now()); }

std::size_t ActivityManager::settle() {
    std::size_t fired = 0;
    for (; clock_->nextTime() <= now_; ++fired) clock_->fireNext();
    return fired;
}

bool ActivityManager::runUntil(double time) {
    while (clock_->nextTime() < time) {
        if (!time_->waitUntil(clock_->nextTime())) return timeUpdate(), false;
        fireNext();
    }
    const bool reached = time_->waitUntil(time);
    timeUpdate();
    return reached;
}

void ActivityManager::runUntilIdle() {
    while (clock_->nextTime() != never) {
        if (!time_->waitUntil(clock_->nextTime())) return timeUpdate();
        fireNext();
    }
}

void ActivityManager::fireNext() {
    timeUpdate();
    clock_->fireNext();
}

namespace {

thread_local constinit ActivityManager* ofThisThread [[gnu::tls_model("initial-exec")]] = nullptr;

}  // namespace

ActivityManager& activityManager() {
    if (ofThisThread != nullptr) [[likely]]
        return *ofThisThread;
    static thread_local ActivityManager standard;
    return standard;
}

ActivityScope::ActivityScope(ActivityManager& manager) : outer_(ofThisThread) {
    ofThisThread = &manager;
}
ActivityScope::~ActivityScope() { ofThisThread = outer_; }

}  // namespace Orv
