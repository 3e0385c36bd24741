#include "model/StageStatus.h"

#include <new>

#include "model/EventTotals.h"
#include "runtime/Error.h"

namespace Stage {

StageStatus::StageStatus(Orv::Name stage) : Notifier(std::move(stage)) {}

StageStatus::~StageStatus() {
    if (!totals_) return;
    for (const auto& [agent, event] : event()) totals_->remove(*event);
}

void StageStatus::eventIs(Orv::Ptr<EventConfig> event) {
    const Orv::String agent = event->agent();
    {
        const Orv::Ptr<EventConfig> before = this->event(agent);
        if (!event_.set(agent, event)) return;
        ++eventChanges_;
        if (before && totals_) totals_->remove(*before);
        if (!before && holder_ != nullptr) holder_->agentStored(agent, true);
    }
    if (totals_) {
        totals_->add(*event);
    } else if (this->event().size() > manyEvents) {
        totals_.reset(new (std::nothrow) EventTotals);
        for (const auto& [name, held] : this->event())
            if (totals_) totals_->add(*held);
    }
    changed("event", agent, [&](auto& n) { n.onEvent(agent); });
}

void StageStatus::eventDel(Orv::String agent) {
    {
        Orv::Ptr<EventConfig> gone;
        if (!event_.del(agent, &gone)) return;
        ++eventChanges_;
        if (totals_) totals_->remove(*gone);
    }
    if (holder_ != nullptr) holder_->agentStored(agent, false);
    changed("event", agent, [&](auto& n) { n.onEvent(agent); });
}

bool StageStatus::someEventCritical() const {
    if (totals_ && totals_->usable()) return totals_->critical() != 0;
    for (const auto& [agent, event] : event())
        if (event->critical()) return true;
    return false;
}

bool StageStatus::someEventDependsOn(const Orv::String& stage) const {
    if (totals_ && totals_->usable()) return totals_->dependent(stage) != 0;
    for (const auto& [agent, event] : event())
        if (event->dependency(stage)) return true;
    return false;
}

float StageStatus::largestEventTimeout() const {
    if (totals_ && totals_->usable() && totals_->limitsOrdered()) return totals_->largestLimit();
    float largest = 0;
    for (const auto& [agent, event] : event())
        if (!(static_cast<double>(largest) > event->timeout()))
            largest = narrowed(event->timeout());
    return largest;
}

const Orv::TypeInfo& StageStatus::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageStatus>("Stage::StageStatus")
            .collection(
                "event", [](const StageStatus& s) -> const auto& { return s.event_.map(); },
                [](StageStatus& s, Orv::String agent, Orv::Ptr<EventConfig> event) {
                    if (!event || event->agent() != agent)
                        throw Orv::ReflectionError(
                            "attribute \"event\": the value must be an event whose agent is the "
                            "key");
                    s.eventIs(std::move(event));
                },
                &StageStatus::eventDel)
            .collection(
                "dependency",
                [](const StageStatus& s) -> const auto& { return s.dependency_.map(); },
                &StageStatus::dependencyIs, &StageStatus::dependencyDel)
            .scalar("timeout", &StageStatus::timeout_, &StageStatus::timeoutIs)
            .scalar("critical", &StageStatus::critical_, &StageStatus::criticalIs)
            .done();
    return info;
}

}  // namespace Stage
