// An agent's registration.
#pragma once

#include "model/EventConfig.h"
#include "runtime/Entity.h"

namespace Stage {

// One per agent, an entry of the class's input directory under the agent's name.
class ORV_API AgentConfig final : public Orv::Notifier<AgentConfig> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<AgentConfig> {
      public:
        virtual void onEvent(Orv::Name /*stage*/) {}
        virtual void onEvent() {}
        virtual void onEvent(Orv::Immediate) {}
        virtual void onCreatedOnStageRequest() {}
    };

    explicit AgentConfig(Orv::Name agent) : Notifier(std::move(agent)) {}
    ~AgentConfig() override { orphan(event_); }

    // Per stage name: how the agent takes part in that stage.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<EventConfig>>& event() const { return event_; }
    Orv::Ptr<EventConfig> event(const Orv::Name& stage) const { return event_.value(stage); }
    // Returns the event that is there, or makes one.
    Orv::Ptr<EventConfig> eventIs(Orv::Name stage, Orv::String agent) {
        return memberIs(
            event_, "event", stage, [&] { return Orv::make<EventConfig>(stage, agent); },
            [&](auto& n) { n.onEvent(stage); });
    }
    void eventDel(Orv::Name stage) {
        memberDel(event_, "event", stage, [&](auto& n) { n.onEvent(stage); });
    }
    void eventDelAll() {
        event_.walk([this](Orv::Name stage) { eventDel(stage); });
    }

    // The manager made this registration for an agent that asked for it by a stage request; it goes
    // when the agent's status goes.
    bool createdOnStageRequest() const { return createdOnStageRequest_; }
    void createdOnStageRequestIs(bool created) {
        if (Orv::assign(createdOnStageRequest_, created))
            changed("createdOnStageRequest", [](auto& n) { n.onCreatedOnStageRequest(); });
    }

    static const Orv::TypeInfo& type();

  private:
    void membersDel() override { eventDelAll(); }

    Orv::OrderedMap<Orv::Name, Orv::Ptr<EventConfig>> event_;
    bool createdOnStageRequest_ = false;
};

}  // namespace Stage
