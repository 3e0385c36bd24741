#include "model/EventTotals.h"

#include <cmath>
#include <limits>
#include <new>

namespace Stage {

float narrowed(double seconds) {
    constexpr double largest = std::numeric_limits<float>::max();
    constexpr double halfStepAbove = 0x1.ffffffp127;  // rounds to even, and so to infinity
    if (std::abs(seconds) >= halfStepAbove)
        return static_cast<float>(std::copysign(HUGE_VALF, seconds));
    if (std::abs(seconds) > largest)
        return std::copysign(std::numeric_limits<float>::max(), seconds > 0 ? 1.0f : -1.0f);
    return static_cast<float>(seconds);
}

void EventTotals::add(EventConfig& event) noexcept try {
    if (!usable_) return;
    usable_ = event.holder() == nullptr;
    if (!usable_) return;
    event.holderIs(this);
    if (event.critical()) ++critical_;
    limitAdd(event.timeout());
    for (const auto& [stage, depends] : event.dependency())
        if (depends) dependentAdd(stage);
} catch (const std::bad_alloc&) {
    usable_ = false;
}

void EventTotals::remove(EventConfig& event) noexcept {
    if (event.holder() != this) return;
    event.holderIs(nullptr);
    if (!usable_) return;
    if (event.critical()) --critical_;
    limitDel(event.timeout());
    for (const auto& [stage, depends] : event.dependency())
        if (depends) dependentDel(stage);
}

void EventTotals::criticalStored(bool critical) noexcept { critical ? ++critical_ : --critical_; }

void EventTotals::timeoutStored(double before, double after) noexcept try {
    if (!usable_) return;
    limitDel(before);
    limitAdd(after);
} catch (const std::bad_alloc&) {
    usable_ = false;
}

void EventTotals::dependencyStored(const Orv::String& stage, bool before, bool after) noexcept try {
    if (!usable_ || before == after) return;
    if (after)
        dependentAdd(stage);
    else
        dependentDel(stage);
} catch (const std::bad_alloc&) {
    usable_ = false;
}

namespace {

bool decidedByPlace(double seconds) {
    return std::isnan(seconds) || (seconds == 0.0 && std::signbit(seconds));
}

}  // namespace

void EventTotals::limitAdd(double seconds) {
    if (decidedByPlace(seconds))
        ++unordered_;
    else if (const float limit = narrowed(seconds); limit > 0.0f)
        ++limits_[limit];
}

void EventTotals::limitDel(double seconds) {
    if (decidedByPlace(seconds)) {
        --unordered_;
    } else if (const float limit = narrowed(seconds); limit > 0.0f) {
        const auto held = limits_.find(limit);
        if (--held->second == 0) limits_.erase(held);
    }
}

void EventTotals::dependentAdd(const Orv::String& stage) {
    if (std::size_t* const events = dependent_.find(stage))
        ++*events;
    else
        dependent_.set(stage, 1);
}

void EventTotals::dependentDel(const Orv::String& stage) {
    if (--*dependent_.find(stage) == 0) dependent_.del(stage);
}

}  // namespace Stage
