#include "StageMgr/AgentStatusSm.h"

#include "StageMgr/TraceUnit.h"

namespace Stage {

AgentStatusSm::AgentStatusSm(Orv::Ptr<Orv::Dir> agentConfigDir,
                             Orv::Ptr<const AgentStatus> agentStatus,
                             Orv::Ptr<AgentStatusLocal> agentStatusLocal, const Orv::Owner* owner)
    : Reactor(owner),
      agentConfigDir_(std::move(agentConfigDir)),
      agentStatusLocal_(std::move(agentStatusLocal)) {
    agentStatus_.is(*this, std::move(agentStatus));
    handleInitialized();
}

void AgentStatusSm::handleInitialized() {
    TRACE(8, " agent ", agentName());
    initialized_ = true;
    handleStageRequest();
    if (!retired()) handleComplete();
}

void AgentStatusSm::agentStatusIs(Orv::Ptr<const AgentStatus> agentStatus) {
    if (!agentStatus_.is(*this, std::move(agentStatus)) || !agentStatus_) return;
    agentStatus_.watch()->onStageRequest(Orv::Immediate());
    if (agentStatus_.watch() != nullptr) agentStatus_.watch()->onComplete(Orv::Immediate());
}

void AgentStatusSm::handleStageRequest() {
    TRACE(8, " agent ", agentName());
    if (!initialized_) return;
    Orv::assertThat(static_cast<bool>(agentStatus()), "agentStatus()");
    const Orv::Ptr<const AgentStatus> status = agentStatus();
    status->stageRequest().walk([this](Orv::String name) { handleStageRequest(name); });
}

void AgentStatusSm::handleStageRequest(Orv::String name) {
    TRACE(8, " agent ", agentName(), " (stageRequest:", name, ")");
    if (retired()) return;
    const StageRequest request = agentStatus_ ? agentStatus_->stageRequest(name) : StageRequest();
    if (!request)
        withdrawStageRequest(name);
    else
        registerForStage(request);
}

// By the key, on purpose, where a registration goes by what the request holds: a request stands
// under its stage's name.
void AgentStatusSm::withdrawStageRequest(const Orv::String& stage) {
    TRACE(9, " AgentStatus StageRequest deleted for agent ", agentName(), " stage ", stage);
    const Orv::Ptr<AgentConfig> config = agentConfig();
    if (!config) {
        TRACE(9, " Could not find AgentConfig for ", agentName());
        return;
    }
    config->eventDel(stage);
}

void AgentStatusSm::registerForStage(const StageRequest& request) {
    TRACE(9, " AgentStatus StageRequest added for agent: ", request.agent,
          " stage: ", request.stage, " timeout: ", request.timeout);
    const Orv::String agent = request.agent;
    Orv::assertThat(agentName() == agent, "agentName() == agent");

    Orv::Ptr<AgentConfig> ac = agentConfig();
    if (!ac) {
        TRACE(9, " Could not find AgentConfig for ", agent);
        if (agentConfigDir_)
            ac = Orv::Ptr<AgentConfig>(dynamic_cast<AgentConfig*>(
                agentConfigDir_->entryIs(agent, AgentConfig::type().name()).get()));
        Orv::assertThat(static_cast<bool>(ac), "ac");
        // Whoever is told of a change here may take the registration away again.
        if (retired() || ac->left()) return;
        ac->createdOnStageRequestIs(true);
        if (retired() || ac->left()) return;
    } else {
        TRACE(9, " AgentConfig exists for agent ", agent);
    }

    Orv::Ptr<EventConfig> eventCfg = ac->event(request.stage);
    if (!eventCfg) {
        TRACE(9, " Could not find EventConfig for ", request.stage);
        eventCfg = ac->eventIs(request.stage, request.agent);
        Orv::assertThat(static_cast<bool>(eventCfg), "eventCfg");
        if (retired() || eventCfg->left()) return;
    }
    eventCfg->timeoutIs(request.timeout);
}

void AgentStatusSm::handleComplete() {
    TRACE(8, " agent ", agentName());
    if (!initialized_) return;
    Orv::assertThat(static_cast<bool>(agentStatus()), "agentStatus()");
    const Orv::Ptr<const AgentStatus> status = agentStatus();
    status->complete().walk([this](AgentStatusKey key) { handleComplete(key); });
}

void AgentStatusSm::handleComplete(AgentStatusKey key) {
    const bool value = agentStatus_ && agentStatus_->complete(key);
    TRACE(8, " AgentStatus agent: ", agentName(), " AgentStatusKey agent: ", key.agent,
          ", stage: ", key.stage, ", instance: ", key.instance, " is ", value);
    if (retired() || !agentStatusLocal_) return;
    if (value) {
        // Dropped when it has not registered, on purpose: an agent completes only what is its own.
        if (!isRegistered(key.stage)) return;
        TRACE(9, " event exists.", " AgentStatus complete for agent: ", agentName());
        agentStatusLocal_->completeIs(std::move(key), true);
    } else if (agentStatus_ && agentStatus_->complete().contains(key)) {
        TRACE(9, " AgentStatus complete set to False.");
        agentStatusLocal_->completeIs(key, false);
    } else {
        TRACE(9, " AgentStatus complete deleted for agent: ", agentName());
        agentStatusLocal_->completeDel(key);
    }
}

Orv::Ptr<AgentConfig> AgentStatusSm::agentConfig() const {
    return agentConfigDir_ ? agentConfigDir_->entityPtr<AgentConfig>(agentName()) : nullptr;
}

bool AgentStatusSm::isRegistered(const Orv::String& stage) const {
    const Orv::Ptr<AgentConfig> config = agentConfig();
    if (!config) TRACE(9, " Could not find AgentConfig for ", agentName());
    return config && config->event().contains(stage);
}

Orv::Ptr<AgentStatusSm> agentStatusSmFactory(Orv::Ptr<Orv::Dir> agentConfigDir,
                                             Orv::Ptr<const AgentStatus> agentStatus,
                                             Orv::Ptr<AgentStatusLocal> agentStatusLocal,
                                             const Orv::Owner* owner) {
    return Orv::validPtr(Orv::make<AgentStatusSm>(std::move(agentConfigDir), std::move(agentStatus),
                                                  std::move(agentStatusLocal), owner));
}

const Orv::TypeInfo& AgentStatusSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AgentStatusSm>("Stage::AgentStatusSm")
            .scalar("agentConfigDir", &AgentStatusSm::agentConfigDir_)
            .detail()
            .scalar("agentStatus", &AgentStatusSm::agentStatus)
            .detail()
            .scalar("agentStatusLocal", &AgentStatusSm::agentStatusLocal_)
            .detail()
            .scalar("initialized", &AgentStatusSm::initialized_)
            .done();
    return info;
}

}  // namespace Stage
