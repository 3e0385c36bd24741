// A stage as its events make it.
#pragma once

#include <memory>

#include "model/EventConfig.h"
#include "runtime/Entity.h"

namespace Stage {

class EventTotals;

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

    // What keeps indexes over the stages of a class: it is told while a change is stored, before
    // anybody else.
    class Holder {
      public:
        // The agent's first event, or its last one, in this stage.
        virtual void agentStored(const Orv::String& agent, bool present) noexcept = 0;
        virtual void dependencyStored(StageStatus& stage, const Orv::String& dependency,
                                      bool present) noexcept = 0;
        virtual void criticalStored(StageStatus& stage) noexcept = 0;

      protected:
        ~Holder() = default;
    };

    explicit StageStatus(Orv::Name stage);
    ~StageStatus() override;

    // Per agent name: that agent's part in the stage.
    const Orv::OrderedMap<Orv::String, Orv::Ptr<EventConfig>>& event() const {
        return event_.map();
    }
    Orv::Ptr<EventConfig> event(const Orv::String& agent) const { return event().value(agent); }
    // Puts it under its agent's name.
    void eventIs(Orv::Ptr<EventConfig> event);
    void eventDel(Orv::String agent);
    // Counts the changes of `event`.
    std::uint32_t eventChanges() const { return eventChanges_; }
    void eventDelAll() {
        event().walk([this](Orv::String agent) { eventDel(agent); });
    }

    // What a look at the events finds, whatever their number costs.
    bool someEventCritical() const;
    bool someEventDependsOn(const Orv::String& stage) const;
    // The events' largest limit, 0 at least, in single precision; a NaN takes over, since nothing
    // is greater than it.
    float largestEventTimeout() const;
    // Under which agent the first event stands of which `holds(event)` is true; empty when there is
    // none.
    template <class Holds>
    Orv::String firstAgent(Holds&& holds) const {
        for (const auto& [agent, event] : event())
            if (holds(*event)) return agent;
        return {};
    }

    // The stages that have to be complete before this one starts: what its events depend on.
    const Orv::OrderedMap<Orv::String, bool>& dependency() const { return dependency_.map(); }
    bool dependency(const Orv::String& stage) const { return dependency().value(stage); }
    void dependencyIs(Orv::String stage, bool depends) {
        const bool added = !dependency().contains(stage);
        if (!dependency_.set(stage, depends)) return;
        ++dependencyChanges_;
        if (added && holder_ != nullptr) holder_->dependencyStored(*this, stage, true);
        changed("dependency", stage, [&](auto& n) { n.onDependency(stage); });
    }
    void dependencyDel(Orv::String stage) {
        if (!dependency_.del(stage)) return;
        ++dependencyChanges_;
        if (holder_ != nullptr) holder_->dependencyStored(*this, stage, false);
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
        if (!Orv::assign(critical_, critical)) return;
        ++criticalChanges_;
        if (holder_ != nullptr) holder_->criticalStored(*this);
        changed("critical", [](auto& n) { n.onCritical(); });
    }

    // They count the changes.
    std::uint32_t dependencyChanges() const { return dependencyChanges_; }
    std::uint32_t criticalChanges() const { return criticalChanges_; }

    // What keeps indexes over it, null when nothing does; and its place in them, which says where
    // it stands among the stages of its class. Not counted.
    std::uint32_t place() const { return place_; }
    void holderIs(Holder* holder, std::uint32_t place = 0) {
        holder_ = holder;
        place_ = place;
    }

    static const Orv::TypeInfo& type();

  private:
    static constexpr std::size_t manyEvents = 3;  // as long as there are no more, they are walked

    Orv::Collection<Orv::String, Orv::Ptr<EventConfig>> event_;
    Orv::Collection<Orv::String, bool> dependency_;
    double timeout_ = 0.0;
    bool critical_ = false;
    std::uint32_t eventChanges_ = 0;
    std::uint32_t dependencyChanges_ = 0;
    std::uint32_t criticalChanges_ = 0;
    std::uint32_t place_ = 0;
    Holder* holder_ = nullptr;
    std::unique_ptr<EventTotals> totals_;
};

}  // namespace Stage
