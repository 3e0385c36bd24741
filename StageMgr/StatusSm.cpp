#include "StageMgr/StatusSm.h"

#include "StageMgr/TraceUnit.h"

namespace Stage {

StatusSm::StatusSm(Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
                   Orv::Ptr<Status> status, Orv::Ptr<CompletionStatusDir> completionStatusDir,
                   Orv::Ptr<ProgressDir> progressDir, Orv::Ptr<Log> log,
                   Orv::Ptr<const StageGlobalConfig> stageGlobalConfig,
                   Orv::Ptr<FatalError> fatalErrorRequest,
                   Orv::Ptr<AgentStatusLocal> agentStatusLocal, const Orv::Owner* owner)
    : Reactor(owner),
      config_(std::move(config)),
      status_(std::move(status)),
      completionStatusDir_(std::move(completionStatusDir)),
      progressDir_(std::move(progressDir)),
      log_(std::move(log)),
      stageGlobalConfig_(std::move(stageGlobalConfig)),
      fatalErrorRequest_(std::move(fatalErrorRequest)),
      agentStatusLocal_(std::move(agentStatusLocal)) {
    Orv::assertThat(status_ && completionStatusDir_ && progressDir_ && log_,
                    "status_ && completionStatusDir_ && progressDir_ && log_");
    enabledConfig_.is(*this, std::move(enabledConfig));
    handleInitialized();
}

void StatusSm::dismantle() {
    enabledConfig_.disconnect();
    instStatusSm_.delAll();
}

void StatusSm::handleInitialized() {
    TRACE(4);
    handleEnabledNames();
    // What an earlier run left. The completion records and logs of absent names stay, on purpose.
    status_->instStatus().walk([this](Orv::Name name) {
        if (!isEnabled(name) && !retired()) status_->instStatusDel(name);
    });
    progressDir_->progress().walk([this](Orv::Name name) {
        if (!isEnabled(name) && !retired()) progressDir_->progressDel(name);
    });
    initialized_ = true;
}

void StatusSm::enabledConfigIs(Orv::Ptr<const EnabledConfig> enabledConfig) {
    if (enabledConfig_.is(*this, std::move(enabledConfig)) && enabledConfig_)
        enabledConfig_.watch()->onEnabled(Orv::Immediate());
}

void StatusSm::handleEnabled() {
    TRACE(4);
    handleEnabledNames();
    instStatusSm_.map().walk([this](Orv::Name name) {
        if (!isEnabled(name)) handleEnabled(name);
    });
}

void StatusSm::handleEnabledNames() {
    const Orv::Ptr<const EnabledConfig> enabledConfig = enabledConfig_.ptr();
    if (enabledConfig)
        enabledConfig->enabled().walk([this](Orv::String name) { handleEnabled(name); });
}

void StatusSm::handleEnabled(Orv::String name) {
    TRACE(4, " ", name);
    if (retired() || going_.contains(name)) return;  // it is looked at again when it has gone
    if (isEnabled(name))
        instanceIs(name);
    else
        instanceDel(name);
}

bool StatusSm::isEnabled(const Orv::String& name) const {
    return enabledConfig_ && enabledConfig_->enabled(name);
}

// Whoever watches the records may disable the instance again before it is complete; then nothing
// more is made of it.
void StatusSm::instanceIs(const Orv::String& name) {
    const Orv::Ptr<Progress> progress = progressDir_->progressIs(name);
    const auto gone = [&] { return retired() || progress->left(); };
    if (gone()) return;
    const Orv::Ptr<CompletionStatus> completionStatus = completionStatusDir_->statusIs(name);
    if (gone()) return;
    const Orv::Ptr<InstanceStatus> instanceStatus = status_->instStatusIs(name);
    if (gone()) return;
    instanceStatus->progressIs(progress);
    if (gone()) return;
    instStatusSmIs(config_, enabledConfig_.ptr(), status_, completionStatus, progress, log_,
                   stageGlobalConfig_, fatalErrorRequest_, instanceStatus, agentStatusLocal_);
}

void StatusSm::instanceDel(const Orv::String& name) {
    going_.set(name, true);
    completionStatusDir_->statusDel(name);
    instStatusSmDel(name);
    if (!retired()) status_->instStatusDel(name);
    if (!retired()) {
        TRACE(4, " deleting progress");
        progressDir_->progressDel(name);
    }
    if (!retired()) {
        TRACE(4, " deleting logs");
        log_->instanceLogDel(name);
    }
    going_.del(name);
    // Whoever was told of that may have enabled it again.
    if (isEnabled(name)) handleEnabled(name);
}

Orv::Ptr<InstanceStatusSm> StatusSm::instStatusSmIs(
    Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
    Orv::Ptr<Status> status, Orv::Ptr<CompletionStatus> completionStatus,
    Orv::Ptr<Progress> progress, Orv::Ptr<Log> log,
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest,
    Orv::Ptr<InstanceStatus> instanceStatus, Orv::Ptr<AgentStatusLocal> agentStatusLocal) {
    const Orv::Name instance = instanceStatus ? instanceStatus->key() : Orv::Name();
    return instStatusSm_.keepOrRefuse(
        *this, instance,
        std::tuple(config, enabledConfig, status, completionStatus, progress, log,
                   stageGlobalConfig, fatalErrorRequest, instanceStatus, agentStatusLocal),
        [&] {
            return instanceStatusSmFactory(config, enabledConfig, status, completionStatus,
                                           progress, log, stageGlobalConfig, fatalErrorRequest,
                                           instanceStatus, agentStatusLocal, this);
        });
}

const Orv::TypeInfo& StatusSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StatusSm>("Stage::StatusSm")
            .scalar("config", &StatusSm::config_)
            .detail()
            .scalar("enabledConfig", [](const StatusSm& s) { return s.enabledConfig_.ptr(); })
            .detail()
            .scalar("status", &StatusSm::status_)
            .detail()
            .scalar("completionStatusDir", &StatusSm::completionStatusDir_)
            .detail()
            .scalar("progressDir", &StatusSm::progressDir_)
            .detail()
            .scalar("log", &StatusSm::log_)
            .detail()
            .scalar("stageGlobalConfig", &StatusSm::stageGlobalConfig_)
            .detail()
            .scalar("fatalErrorRequest", &StatusSm::fatalErrorRequest_)
            .detail()
            .scalar("agentStatusLocal", &StatusSm::agentStatusLocal_)
            .detail()
            .scalar("initialized", &StatusSm::initialized_)
            .children(
                "instStatusSm",
                [](const StatusSm& s) -> const auto& { return s.instStatusSm_.map(); })
            .done();
    return info;
}

}  // namespace Stage
