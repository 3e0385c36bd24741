// One agent's part in one stage.
#pragma once

#include "runtime/Entity.h"

namespace Stage {

// What an agent has to finish in a stage, and by when. Made by AgentConfig; written by the agent.
class ORV_API EventConfig final : public Orv::Notifier<EventConfig> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<EventConfig> {
      public:
        virtual void onName() {}
        virtual void onStage() {}
        virtual void onAgent() {}
        virtual void onComplete(Orv::String /*instance*/) {}
        virtual void onComplete() {}
        virtual void onComplete(Orv::Immediate) {}
        virtual void onError(Orv::String /*instance*/) {}
        virtual void onError() {}
        virtual void onError(Orv::Immediate) {}
        virtual void onDependency(Orv::String /*stage*/) {}
        virtual void onDependency() {}
        virtual void onDependency(Orv::Immediate) {}
        virtual void onTimeout() {}
        virtual void onCritical() {}
        virtual void onAutoCompleteTimeout() {}
        virtual void onEnableAutoComplete() {}
        virtual void onCompleteNotRunnable() {}
    };

    // What sums up the events of a stage: it is told while a change is stored, before anybody else.
    class Holder {
      public:
        virtual void criticalStored(bool critical) noexcept = 0;
        virtual void timeoutStored(double before, double after) noexcept = 0;
        // Absent counts as false.
        virtual void dependencyStored(const Orv::String& stage, bool before,
                                      bool after) noexcept = 0;

      protected:
        ~Holder() = default;
    };

    // It stands under its stage's name; its own name is "stage:agent".
    EventConfig(Orv::Name stage, Orv::String agent)
        : Notifier(stage),
          name_(Orv::concat({stage, ":", agent})),
          stage_(std::move(stage)),
          agent_(std::move(agent)) {}

    // What stage reactors and log lines call it.
    Orv::Name name() const override { return name_; }
    void nameIs(Orv::String name) {
        if (Orv::assign(name_, std::move(name))) changed("name", [](auto& n) { n.onName(); });
    }

    const Orv::Name& stage() const { return stage_; }
    void stageIs(Orv::Name stage) {
        if (Orv::assign(stage_, std::move(stage))) changed("stage", [](auto& n) { n.onStage(); });
    }

    const Orv::String& agent() const { return agent_; }
    void agentIs(Orv::String agent) {
        if (Orv::assign(agent_, std::move(agent))) changed("agent", [](auto& n) { n.onAgent(); });
    }

    // Per instance name: true once the event is complete there. Absent reads as false.
    const Orv::OrderedMap<Orv::String, bool>& complete() const { return complete_.map(); }
    bool complete(const Orv::String& instance) const { return complete().value(instance); }
    void completeIs(Orv::String instance, bool complete) {
        if (complete_.set(instance, complete))
            changed("complete", instance, [&](auto& n) { n.onComplete(instance); });
    }
    void completeDel(Orv::String instance) {
        if (complete_.del(instance))
            changed("complete", instance, [&](auto& n) { n.onComplete(instance); });
    }
    void completeDelAll() {
        complete().walk([this](Orv::String instance) { completeDel(instance); });
    }

    // Per instance name. The manager does not act on it.
    const Orv::OrderedMap<Orv::String, bool>& error() const { return error_.map(); }
    bool error(const Orv::String& instance) const { return error().value(instance); }
    void errorIs(Orv::String instance, bool error) {
        if (error_.set(instance, error))
            changed("error", instance, [&](auto& n) { n.onError(instance); });
    }
    void errorDel(Orv::String instance) {
        if (error_.del(instance)) changed("error", instance, [&](auto& n) { n.onError(instance); });
    }
    void errorDelAll() {
        error().walk([this](Orv::String instance) { errorDel(instance); });
    }

    // Names of the stages that have to be complete before the event's stage starts. False reads as
    // no dependency.
    const Orv::OrderedMap<Orv::String, bool>& dependency() const { return dependency_.map(); }
    bool dependency(const Orv::String& stage) const { return dependency().value(stage); }
    void dependencyIs(Orv::String stage, bool depends) {
        const bool before = holder_ != nullptr && dependency(stage);
        if (!dependency_.set(stage, depends)) return;
        if (holder_ != nullptr) holder_->dependencyStored(stage, before, depends);
        changed("dependency", stage, [&](auto& n) { n.onDependency(stage); });
    }
    void dependencyDel(Orv::String stage) {
        bool before = false;
        if (!dependency_.del(stage, &before)) return;
        if (holder_ != nullptr) holder_->dependencyStored(stage, before, false);
        changed("dependency", stage, [&](auto& n) { n.onDependency(stage); });
    }
    void dependencyDelAll() {
        dependency().walk([this](Orv::String stage) { dependencyDel(stage); });
    }

    // Seconds. The largest over a stage's events bounds the stage.
    double timeout() const { return timeout_; }
    void timeoutIs(double seconds) {
        const double before = timeout_;
        if (!Orv::assign(timeout_, seconds)) return;
        if (holder_ != nullptr) holder_->timeoutStored(before, seconds);
        changed("timeout", [](auto& n) { n.onTimeout(); });
    }

    // Makes its stage critical, and with it every stage that this one depends on.
    bool critical() const { return critical_; }
    void criticalIs(bool critical) {
        if (!Orv::assign(critical_, critical)) return;
        if (holder_ != nullptr) holder_->criticalStored(critical);
        changed("critical", [](auto& n) { n.onCritical(); });
    }

    // Seconds from the event's start until the manager completes it on the agent's behalf; read
    // when the event starts, and only if that is enabled.
    double autoCompleteTimeout() const { return autoCompleteTimeout_; }
    void autoCompleteTimeoutIs(double seconds) {
        if (Orv::assign(autoCompleteTimeout_, seconds))
            changed("autoCompleteTimeout", [](auto& n) { n.onAutoCompleteTimeout(); });
    }

    bool enableAutoComplete() const { return enableAutoComplete_; }
    void enableAutoCompleteIs(bool enabled) {
        if (Orv::assign(enableAutoComplete_, enabled))
            changed("enableAutoComplete", [](auto& n) { n.onEnableAutoComplete(); });
    }

    // The manager does not act on it.
    bool completeNotRunnable() const { return completeNotRunnable_; }
    void completeNotRunnableIs(bool complete) {
        if (Orv::assign(completeNotRunnable_, complete))
            changed("completeNotRunnable", [](auto& n) { n.onCompleteNotRunnable(); });
    }

    // What sums it up; null when nothing does. Not counted.
    Holder* holder() const { return holder_; }
    void holderIs(Holder* holder) { holder_ = holder; }

    static const Orv::TypeInfo& type();

  private:
    Orv::String name_;
    Orv::Name stage_;
    Orv::String agent_;
    Orv::Collection<Orv::String, bool> complete_;
    Orv::Collection<Orv::String, bool> error_;
    Orv::Collection<Orv::String, bool> dependency_;
    double timeout_ = 0.0;
    bool critical_ = false;
    double autoCompleteTimeout_ = 0.0;
    bool enableAutoComplete_ = false;
    bool completeNotRunnable_ = false;
    Holder* holder_ = nullptr;
};

}  // namespace Stage
