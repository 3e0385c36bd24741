// Copies one agent's completion reports into the class's AgentStatusLocal, and turns its stage
// requests into registrations.
#pragma once

#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "model/AgentStatusLocal.h"
#include "runtime/Dir.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

// ConfigSm owns one per agent that has an AgentStatus, under the agent's name.
class ORV_API AgentStatusSm final : public Orv::Reactor {
  public:
    AgentStatusSm(Orv::Ptr<Orv::Dir> agentConfigDir, Orv::Ptr<const AgentStatus> agentStatus,
                  Orv::Ptr<AgentStatusLocal> agentStatusLocal, const Orv::Owner* owner = nullptr);

    std::tuple<Orv::Ptr<Orv::Dir>, Orv::Ptr<const AgentStatus>, Orv::Ptr<AgentStatusLocal>>
    arguments() const {
        return {agentConfigDir_, agentStatus_.ptr(), agentStatusLocal_};
    }
    static constexpr std::array<const char*, 3> argumentNames{"agentConfigDir", "agentStatus",
                                                              "agentStatusLocal"};

    // Empty without an AgentStatus.
    Orv::Name agentName() const { return agentStatus_ ? agentStatus_->key() : Orv::Name(); }
    const Orv::Ptr<const AgentStatus>& agentStatus() const { return agentStatus_.ptr(); }
    // Watches another entity instead; what is there is looked at at once.
    void agentStatusIs(Orv::Ptr<const AgentStatus> agentStatus);
    bool initialized() const { return initialized_; }
    // While false, the handlers that need what the constructor sets up return at once.
    void initializedIs(bool initialized) { initialized_ = initialized; }

    void handleInitialized();
    void handleStageRequest();
    void handleStageRequest(Orv::String name);
    void handleComplete();
    void handleComplete(AgentStatusKey key);

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvAgentStatus final : public Orv::Watch<AgentStatus, AgentStatusSm> {
      public:
        using Watch::Watch;
        void onComplete(AgentStatusKey key) override { sm().handleComplete(std::move(key)); }
        void onComplete(Orv::Immediate) override { sm().handleComplete(); }
        void onStageRequest(Orv::String stage) override { sm().handleStageRequest(stage); }
        void onStageRequest(Orv::Immediate) override { sm().handleStageRequest(); }
    };

    void dismantle() override { agentStatus_.disconnect(); }
    bool unwanted() const override { return agentStatus_ && agentStatus_->left(); }
    // The agent's own registration, whatever agent a report names; null when there is none.
    Orv::Ptr<AgentConfig> agentConfig() const;
    bool isRegistered(const Orv::String& stage) const;
    void withdrawStageRequest(const Orv::String& stage);
    void registerForStage(const StageRequest& request);

    Orv::Ptr<Orv::Dir> agentConfigDir_;
    Orv::Ptr<AgentStatusLocal> agentStatusLocal_;
    bool initialized_ = false;
    Orv::WatchSlot<OrvAgentStatus, const AgentStatus> agentStatus_;
};

ORV_API Orv::Ptr<AgentStatusSm> agentStatusSmFactory(Orv::Ptr<Orv::Dir> agentConfigDir,
                                                     Orv::Ptr<const AgentStatus> agentStatus,
                                                     Orv::Ptr<AgentStatusLocal> agentStatusLocal,
                                                     const Orv::Owner* owner = nullptr);

}  // namespace Stage
