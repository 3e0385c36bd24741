// Completes one event on its agent's behalf when the agent takes too long.
#pragma once

#include "StageMgr/LogSm.h"
#include "model/AgentStatusLocal.h"
#include "model/EventConfig.h"
#include "runtime/Clock.h"
#include "runtime/Reactor.h"

namespace Stage {

// A StageSm owns one per started event that allows it, under the agent's name; it goes when the
// event is complete by whatever way, its own included.
class ORV_API AutoCompleteSm final : public Orv::Reactor {
  public:
    AutoCompleteSm(Orv::Ptr<EventConfig> eventConfig, Orv::Ptr<LogSm> logSm,
                   Orv::String instanceName, Orv::Ptr<AgentStatusLocal> agentStatusLocal);

    std::tuple<Orv::Ptr<EventConfig>, Orv::Ptr<LogSm>, Orv::String, Orv::Ptr<AgentStatusLocal>>
    arguments() const {
        return {eventConfig_, logSm_, instanceName_, agentStatusLocal_};
    }
    static constexpr std::array<const char*, 4> argumentNames{"eventConfig", "logSm",
                                                              "instanceName", "agentStatusLocal"};
    // The agent's name; empty without an event.
    Orv::String key() const { return eventConfig_ ? eventConfig_->agent() : Orv::String(); }
    bool initialized() const { return initialized_; }
    double timeMin() const { return clock_.timeMin(); }

    void handleInitialized();
    // The delay is over. What it writes makes the stage delete this reactor.
    void handleTimeout();

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvClock final : public Orv::TimerOf<AutoCompleteSm> {
        using TimerOf::TimerOf;
        void onTime() override { sm().handleTimeout(); }
        friend Orv::TimerSlot<OrvClock>;
    };

    void dismantle() override { clock_.del(); }

    Orv::Ptr<EventConfig> eventConfig_;
    Orv::Ptr<LogSm> logSm_;
    Orv::String instanceName_;
    Orv::Ptr<AgentStatusLocal> agentStatusLocal_;
    bool initialized_ = false;
    Orv::TimerSlot<OrvClock> clock_{*this};
};

}  // namespace Stage
