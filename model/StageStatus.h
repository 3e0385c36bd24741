// A stage as its events make it.
#pragma once

#include "model/EventConfig.h"
#include "runtime/Entity.h"

namespace Stage {

// A member of Status; written by the configuration side, read by the instances.
class ORV_API StageStatus final : public Orv::Notifier<StageStatus> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<StageStatus> {
      public:
        virtual void onEvent(Orv::String /*agent*/) {}
        virtual void onEvent() {}
        virtual void onEvent(Orv::Immediate) {}
        virtual void onDependency(Orv::String /*stage*/) {}
        virtual void onDependency() {}
        virtual void onDependency(Orv::Immediate) {}
        virtual void onTimeout() {}
        virtual void onCritical() {}
    };

    explicit StageStatus(Orv::Name stage) : Notifier(std::move(stage)) {}

    // Per agent name: that agent's part in the stage.
    const Orv::OrderedMap<Orv::String, Orv::Ptr<EventConfig>>& event() const {
        return event_.map();
    }
    Orv::Ptr<EventConfig> event(const Orv::String& agent) const { return event().value(agent); }
    // Puts it under its agent's name.
    void eventIs(Orv::Ptr<EventConfig> event) {
        const Orv::String agent = event->agent();
        if (event_.set(agent, std::move(event)))
            changed("event", agent, [&](auto& n) { n.onEvent(agent); });
    }
    void eventDel(Orv::String agent) {
        if (event_.del(agent)) changed("event", agent, [&](auto& n) { n.onEvent(agent); });
    }
    void eventDelAll() {
        event().walk([this](Orv::String agent) { eventDel(agent); });
    }

    // The stages that have to be complete before this one starts: what its events depend on.
    const Orv::OrderedMap<Orv::String, bool>& dependency() const { return dependency_.map(); }
    bool dependency(const Orv::String& stage) const { return dependency().value(stage); }
    void dependencyIs(Orv::String stage, bool depends) {
        if (dependency_.set(stage, depends))
            changed("dependency", stage, [&](auto& n) { n.onDependency(stage); });
    }
    void dependencyDel(Orv::String stage) {
        if (dependency_.del(stage))
            changed("dependency", stage, [&](auto& n) { n.onDependency(stage); });
    }
    void dependencyDelAll() {
        dependency().walk([this](Orv::String stage) { dependencyDel(stage); });
    }

    // Seconds from the stage's start until it times out: the largest limit of its events.
    double timeout() const { return timeout_; }
    void timeoutIs(double seconds) {
        if (Orv::assign(timeout_, seconds)) changed("timeout", [](auto& n) { n.onTimeout(); });
    }

    // One of its events is critical, or a critical stage depends on it.
    bool critical() const { return critical_; }
    void criticalIs(bool critical) {
        if (Orv::assign(critical_, critical)) changed("critical", [](auto& n) { n.onCritical(); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<Orv::String, Orv::Ptr<EventConfig>> event_;
    Orv::Collection<Orv::String, bool> dependency_;
    double timeout_ = 0.0;
    bool critical_ = false;
};

}  // namespace Stage
