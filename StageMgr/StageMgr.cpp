#include "StageMgr/StageMgr.h"

#include "StageMgr/TraceUnit.h"

namespace Stage {

StageMgr::StageMgr(Orv::Name name) : Notifier(name), name_(std::move(name)) { handleInitialized(); }

void StageMgr::handleInitialized() {
    TRACE(8, " ", name_);
    agentStatusLocalIs();
    initialized_ = true;
}

void StageMgr::nameIsFromBackup(Orv::Name name) {
    Notifier::nameIsFromBackup(name);
    name_ = std::move(name);
}

void StageMgr::retire() {
    if (retired_) return;
    retired_ = true;
    configSm_.del();
    statusSm_.del();
    agentStatusLocalDel();
}

Orv::Ptr<ConfigSm> StageMgr::configSmIs(Orv::Ptr<const Config> config, Orv::Ptr<Status> status,
                                        Orv::Ptr<Orv::Dir> agentDir,
                                        Orv::Ptr<const Orv::Dir> agentStatusDir,
                                        Orv::Ptr<AgentStatusLocal> agentStatusLocal) {
    return configSm_.is(
        *this, std::tuple(config, status, agentDir, agentStatusDir, agentStatusLocal), [&] {
            return configSmFactory(config, status, agentDir, agentStatusDir, agentStatusLocal,
                                   this);
        });
}

Orv::Ptr<StatusSm> StageMgr::statusSmIs(Orv::Ptr<const Config> config,
                                        Orv::Ptr<const EnabledConfig> enabledConfig,
                                        Orv::Ptr<Status> status,
                                        Orv::Ptr<CompletionStatusDir> completionStatusDir,
                                        Orv::Ptr<ProgressDir> progressDir, Orv::Ptr<Log> log,
                                        Orv::Ptr<const StageGlobalConfig> stageGlobalConfig,
                                        Orv::Ptr<FatalError> fatalErrorRequest,
                                        Orv::Ptr<AgentStatusLocal> agentStatusLocal) {
    return statusSm_.is(*this,
                        std::tuple(config, enabledConfig, status, completionStatusDir, progressDir,
                                   log, stageGlobalConfig, fatalErrorRequest, agentStatusLocal),
                        [&] {
                            return Orv::validPtr(Orv::make<StatusSm>(
                                config, enabledConfig, status, completionStatusDir, progressDir,
                                log, stageGlobalConfig, fatalErrorRequest, agentStatusLocal, this));
                        });
}

void StageMgr::agentStatusLocalIs() {
    agentStatusLocalDel();
    agentStatusLocal_ = Orv::make<AgentStatusLocal>();
    agentStatusLocal_->parentIs(this, "agentStatusLocal", true);
}

void StageMgr::agentStatusLocalDel() {
    if (agentStatusLocal_) agentStatusLocal_->parentIs(nullptr);
    agentStatusLocal_ = nullptr;
}

Orv::Ptr<StageMgr> stageMgrFactory(Orv::Name name) {
    return Orv::validPtr(Orv::make<StageMgr>(std::move(name)));
}

const Orv::TypeInfo& StageMgr::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageMgr>("Stage::StageMgr")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return stageMgrFactory(name);
            })
            .scalar("name", &StageMgr::name_)
            .detail()
            .scalar("initialized", &StageMgr::initialized_)
            .child("agentStatusLocal", &StageMgr::agentStatusLocal_)
            .child("configSm", &StageMgr::configSm)
            .child("statusSm", &StageMgr::statusSm)
            .done();
    return info;
}

}  // namespace Stage
