// Registration: which agents take part in which stages.
#include "StageMgr/ConfigSm.h"

#include <vector>

#include "StageMgr/ConfigSmCriticality.h"
#include "StageMgr/TraceUnit.h"

namespace Stage {

ConfigSm::ConfigSm(Orv::Ptr<const Config> config, Orv::Ptr<Status> status,
                   Orv::Ptr<Orv::Dir> agentDir, Orv::Ptr<const Orv::Dir> agentStatusDir,
                   Orv::Ptr<AgentStatusLocal> agentStatusLocal, const Orv::Owner* owner)
    : Reactor(owner), agentStatusLocal_(std::move(agentStatusLocal)) {
    config_.is(*this, std::move(config));
    config_.activeIs(false);
    status_.is(*this, std::move(status));
    strangers_.open(status_.ptr());
    agentDir_.is(*this, std::move(agentDir));
    agentStatusDir_.is(*this, std::move(agentStatusDir));
    if (config_) handleAgent();
    if (status_) handleStatus();
    handleInitialized();
}

ConfigSm::~ConfigSm() = default;

void ConfigSm::dismantle() {
    strangers_.open(nullptr);
    config_.disconnect();
    status_.disconnect();
    agentDir_.disconnect();
    agentStatusDir_.disconnect();
    agentStatusSm_.delAll();
    agentConfig_.delAll();
    stageStatus_.delAll();
}

void ConfigSm::handleInitialized() {
    TRACE(8);
    initialized_ = true;
    handleAgentStatus();
}

void ConfigSm::handleAgent() {
    TRACE(8, "AgentDir: ", Orv::argumentText(agentDir()));
    if (!agentDir_) return;
    const Orv::Ptr<Orv::Dir> dir = agentDir();
    dir->entries().walk([this](Orv::Name name) { handleAgent(name); });
    // Those whose entry has gone.
    agentConfig_.map().walk([this](Orv::Name name) { handleAgent(name); });
}

void ConfigSm::handleAgent(Orv::Name name) {
    if (retired()) return;
    const Orv::Ptr<AgentConfig> config = agentConfigEntry(name);
    TRACE(8, "(", name, ")", "AgentDir: ", Orv::argumentText(agentDir()),
          "ac: ", Orv::argumentText(config),
          "ac->createdOnStageRequest: ", config && config->createdOnStageRequest(),
          "AgentStatusDir: ", Orv::argumentText(agentStatusDir_.ptr()));
    if (config && config->createdOnStageRequest() && agentStatusDir_) {
        const Orv::Ptr<AgentStatus> status = agentStatusEntry(name);
        TRACE(8, "AgentStatus: ", Orv::argumentText(status));
        if (!status) {
            TRACE(8, "handleAgent", " AgentStatus for agent ", name, " got deleted");
            dropAgentEntry(name);
            return;
        }
    }
    if (config && !agentConfig_.contains(name)) agentConfigIs(config);
    if (config) return;
    if (const Orv::Ptr<OrvAgentConfig> gone{agentConfig(name)}) {
        gone->leaveStages();
        agentConfigDel(name);
    }
}

void ConfigSm::handleAgentStatus() {
    TRACE(8);
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from ", "handleAgentStatus");
        return;
    }
    if (!agentStatusDir_) {
        TRACE(0, "handleAgentStatus", " agentStatusDir is NULL");
        return;
    }
    const Orv::Ptr<const Orv::Dir> dir = agentStatusDir_.ptr();
    dir->entries().walk([this](Orv::Name name) { handleAgentStatus(name); });
}

void ConfigSm::handleAgentStatus(Orv::Name name) {
    TRACE(8, "(", name, ")");
    if (retired()) return;
    const Orv::Ptr<AgentStatus> status = agentStatusEntry(name);
    const Orv::Ptr<AgentConfig> config = agentConfigEntry(name);
    if (status) {
        if (config && config->createdOnStageRequest()) pruneStageRequests(config, *status);
        // Whoever was told of that may have taken the status away.
        if (retired() || agentStatusEntry(name) != status) return;
        agentStatusSmIs(agentDir(), status, agentStatusLocal_);
        return;
    }
    agentStatusSmDel(name);
    if (config && config->createdOnStageRequest()) {
        TRACE(8, "handleAgentStatus", " AgentConfig for agent: ", name,
              " was created on dynamic StageRequest. Deleting it.");
        config->eventDelAll();
        if (!retired()) dropAgentEntry(name);
    }
}

// An agent that registered by requests takes part in what it still asks for.
void ConfigSm::pruneStageRequests(const Orv::Ptr<AgentConfig>& config, const AgentStatus& status) {
    for (const Orv::Name stage : config->event().walked()) {
        if (retired()) return;
        if (!!status.stageRequest(stage)) continue;
        TRACE(8, "handleAgentStatus", " StageRequest for stage ", stage, " got deleted");
        config->eventDel(stage);
    }
}

void ConfigSm::dropAgentEntry(const Orv::Name& agent) {
    const Orv::Ptr<Orv::Dir> dir = agentDir();
    dir->subdirDel(agent);
    if (retired()) return;
    dir->entryDel(agent);
    agentConfigDel(agent);
}

Orv::Ptr<AgentConfig> ConfigSm::agentConfigEntry(const Orv::Name& agent) const {
    return agentDir_ ? agentDir_->entityPtr<AgentConfig>(agent) : nullptr;
}

Orv::Ptr<AgentStatus> ConfigSm::agentStatusEntry(const Orv::Name& agent) const {
    return agentStatusDir_ ? agentStatusDir_->entityPtr<AgentStatus>(agent) : nullptr;
}

void ConfigSm::agentConfigIs(Orv::Ptr<AgentConfig> agentConfig) {
    if (!agentConfig) throw Orv::NullParameterError("_agentConfig", "Stage::ConfigSm::agentConfig");
    agentConfig_.keepOrReplace(*this, agentConfig->key(), agentConfig.get(), [&] {
        Orv::Ptr<OrvAgentConfig> reactor = Orv::make<OrvAgentConfig>(agentConfig, this);
        // The registration may have gone meanwhile; it is retired only now, since until then it
        // withdraws what it has registered.
        if (agentConfig->left()) reactor->retire();
        return reactor;
    });
}

void ConfigSm::stageStatusIs(Orv::Ptr<StageStatus> stageStatus) {
    if (!stageStatus) throw Orv::NullParameterError("_stageStatus", "Stage::ConfigSm::stageStatus");
    stageStatus_.keepOrReplace(*this, stageStatus->key(), stageStatus.get(),
                               [&] { return Orv::make<OrvStageStatus>(stageStatus, this); });
}

Orv::Ptr<AgentStatusSm> ConfigSm::agentStatusSmIs(Orv::Ptr<Orv::Dir> agentDir,
                                                  Orv::Ptr<const AgentStatus> agentStatus,
                                                  Orv::Ptr<AgentStatusLocal> agentStatusLocal) {
    const Orv::Name agent = agentStatus ? agentStatus->key() : Orv::Name();
    return agentStatusSm_.keepOrRefuse(
        *this, agent, std::tuple(agentDir, agentStatus, agentStatusLocal),
        [&] { return agentStatusSmFactory(agentDir, agentStatus, agentStatusLocal, this); });
}

void ConfigSm::handleStatus(Orv::Name stage) {
    if (Orv::Ptr<StageStatus> added = status_->stage(stage))
        stageStatusIs(std::move(added));
    else
        stageStatusDel(stage);
    if (!retired()) handleStage(stage);
}

void ConfigSm::handleStatus() {
    const Orv::Ptr<Status> status = this->status();
    status->stage().walk([&](Orv::Name stage) {
        if (!retired()) stageStatusIs(status->stage(stage));
    });
}

void ConfigSm::handleStage(Orv::Name stage) {
    TRACE(8, " stage=", stage);
    const auto visit = [&](Orv::Name other) {
        const Orv::Ptr<OrvStageStatus> reactor{stageStatus(other)};
        reactor->handleStage(stage);
    };
    const auto& reactors = stageStatus_.map();
    if (!dependentsKnown() || traceUnit().handle.enabled(8)) return reactors.walk(visit);
    // A stage that does not depend on this one would do nothing.
    const Orv::Ptr<Status> status = this->status();
    std::vector<std::size_t> places;
    status->eachDependent(stage, [&](const StageStatus& dependent) {
        const std::size_t place = reactors.place(dependent.key());
        if (place != reactors.nowhere) places.push_back(place);
    });
    const std::uint64_t changes = status->dependencyChanges();
    reactors.walkAt(
        std::move(places),
        [&] { return dependentsKnown() && status->dependencyChanges() == changes; }, visit);
}

// Whether the index over the class's stages knows the stages of all reactors.
bool ConfigSm::dependentsKnown() const {
    return strangers_.open() && status_->indexed() && strangers_.number == 0;
}

ConfigSm::OrvAgentConfig::OrvAgentConfig(Orv::Ptr<AgentConfig> agentConfig, ConfigSm* configSm)
    : Reactor(configSm), configSm_(configSm) {
    agentConfig_.is(*this, std::move(agentConfig));
    agentConfig_.activeIs(false);
    handleEvent();
}

void ConfigSm::OrvAgentConfig::handleEvent() {
    TRACE(8, agent());
    agentConfig_->event().walk([this](Orv::Name stage) { handleEvent(stage); });
    if (configSm_ == nullptr || !configSm_->status()) return;
    // Takes the agent out of the stages that it no longer lists.
    const Orv::Ptr<Status> status = configSm_->status();
    if (status->indexed() && status->stagesOf(agent()) == listedStages()) return;
    status->stage().walk([&](Orv::Name stage) {
        if (status->stage(stage)->event().contains(agent())) handleEvent(stage);
    });
}

// In how many stages it has an event that it still lists.
std::size_t ConfigSm::OrvAgentConfig::listedStages() const {
    std::size_t stages = 0;
    for (const auto& [name, event] : agentConfig_->event()) {
        const Orv::Ptr<StageStatus> stage = configSm_->status()->stage(name);
        if (stage && stage->event().contains(agent())) ++stages;
    }
    return stages;
}

// It has left them already, unless it goes while it is being told of that.
void ConfigSm::OrvAgentConfig::leaveStages() {
    joined_.walk([this](Orv::Name stage) { handleEvent(stage); });
}

void ConfigSm::OrvAgentConfig::handleEvent(Orv::Name stage) {
    const Orv::Name name = agent();
    TRACE(8, name, "(event:", stage, ")");
    if (retired() || !configSm_->status()) return;
    const Orv::Ptr<Status> status = configSm_->status();
    Orv::Ptr<StageStatus> ss = status->stage(stage);
    const Orv::Ptr<AgentConfig> ac = configSm_->agentConfigEntry(name);
    const Orv::Ptr<EventConfig> ec = ac ? ac->event(stage) : nullptr;
    if (ec)
        joined_.set(stage, true);
    else
        joined_.del(stage);
    if (ss && ss->event().contains(name)) {
        if (ec) return;
        TRACE(7, "Deleting ", name, " from ", stage);
        if (const Orv::Ptr<OrvStageStatus> reactor{configSm_->stageStatus(stage)})
            reactor->handleEventDel(name);
        return;
    }
    if (!ec) return;

    if (!ss) TRACE(7, "Adding stage ", stage, " to status.");
    ss = status->stageIs(stage);
    // Whoever is told of a change here may take the stage or the event away again.
    if (retired() || ss->left() || ec->left()) return;
    TRACE(7, "Adding event ", name, " to stage ", stage);
    ss->eventIs(ec);
    if (retired() || ss->event(ec->agent()) != ec) return;
    // In full precision, on purpose: only a recomputation narrows the limit.
    if (ss->timeout() <= ec->timeout()) ss->timeoutIs(ec->timeout());
}

Orv::Ptr<ConfigSm> configSmFactory(Orv::Ptr<const Config> config, Orv::Ptr<Status> status,
                                   Orv::Ptr<Orv::Dir> agentDir,
                                   Orv::Ptr<const Orv::Dir> agentStatusDir,
                                   Orv::Ptr<AgentStatusLocal> agentStatusLocal,
                                   const Orv::Owner* owner) {
    return Orv::validPtr(Orv::make<ConfigSm>(std::move(config), std::move(status),
                                             std::move(agentDir), std::move(agentStatusDir),
                                             std::move(agentStatusLocal), owner));
}

const Orv::TypeInfo& ConfigSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<ConfigSm>("Stage::ConfigSm")
            .scalar("config", &ConfigSm::config)
            .detail()
            .scalar("status", &ConfigSm::status)
            .detail()
            .scalar("agentDir", &ConfigSm::agentDir)
            .detail()
            .scalar("agentStatusDir", [](const ConfigSm& c) { return c.agentStatusDir_.ptr(); })
            .detail()
            .scalar("agentStatusLocal", &ConfigSm::agentStatusLocal_)
            .detail()
            .scalar("initialized", &ConfigSm::initialized_)
            .children(
                "agentStatusSm",
                [](const ConfigSm& c) -> const auto& { return c.agentStatusSm_.map(); })
            .children(
                "agentConfig",
                [](const ConfigSm& c) -> const auto& { return c.agentConfig_.map(); })
            .children(
                "stageStatus",
                [](const ConfigSm& c) -> const auto& { return c.stageStatus_.map(); })
            .done();
    return info;
}

}  // namespace Stage
