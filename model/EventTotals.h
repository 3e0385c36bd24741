// What the events of one large stage come to, kept up to date rather than counted anew.
#pragma once

#include <map>

#include "model/EventConfig.h"
#include "runtime/OrderedMap.h"

namespace Stage {

// A StageStatus with many events has one. It is told of each change of an event's attributes while
// the change is stored, before any observer is, so that everybody who is told reads what a walk
// over the events would find.
//
// An event reports to one holder. When one of the stage's events reports to another, or there is
// no memory, the totals are of no use from then on.
class EventTotals final : public EventConfig::Holder {
  public:
    bool usable() const { return usable_; }
    std::size_t critical() const { return critical_; }
    // How many events depend on the stage; a dependency that is false does not count.
    std::size_t dependent(const Orv::String& stage) const {
        return static_cast<std::size_t>(dependent_.value(stage));
    }
    // Whether the events' limits have a largest one that the events' order does not decide: a NaN
    // and a negative zero take part by their places.
    bool limitsOrdered() const { return unordered_ == 0; }
    // The largest limit in single precision, 0 at least.
    float largestLimit() const { return limits_.empty() ? 0.0f : limits_.rbegin()->first; }

    // The event came to the stage, or has left it.
    void add(EventConfig& event) noexcept;
    void remove(EventConfig& event) noexcept;

  private:
    void criticalStored(bool critical) noexcept override;
    void timeoutStored(double before, double after) noexcept override;
    void dependencyStored(const Orv::String& stage, bool before, bool after) noexcept override;
    void limitAdd(double seconds);
    void limitDel(double seconds);
    void dependentAdd(const Orv::String& stage);
    void dependentDel(const Orv::String& stage);

    bool usable_ = true;
    std::size_t critical_ = 0;
    std::size_t unordered_ = 0;
    std::map<float, std::size_t> limits_;  // those above 0, and how many events have each
    Orv::OrderedMap<Orv::String, std::size_t> dependent_;
};

// The nearest 32-bit float. What lies beyond its range is infinite, which C++ leaves open.
float narrowed(double seconds);

}  // namespace Stage
