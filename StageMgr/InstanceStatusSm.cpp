// The instance's beginning and end, and its per-stage reactors.
#include "StageMgr/InstanceStatusSm.h"

#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"

namespace Stage {

InstanceStatusSm::InstanceStatusSm(
    Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
    Orv::Ptr<Status> status, Orv::Ptr<CompletionStatus> completionStatus,
    Orv::Ptr<Progress> progress, Orv::Ptr<Log> log,
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest,
    Orv::Ptr<InstanceStatus> instanceStatus, Orv::Ptr<AgentStatusLocal> agentStatusLocal,
    const Orv::Owner* owner)
    : Reactor(owner),
      config_(std::move(config)),
      enabledConfig_(std::move(enabledConfig)),
      status_(std::move(status)),
      completionStatus_(std::move(completionStatus)),
      progress_(std::move(progress)),
      log_(std::move(log)),
      fatalErrorRequest_(std::move(fatalErrorRequest)),
      agentStatusLocal_(std::move(agentStatusLocal)) {
    stageGlobalConfig_.is(*this, std::move(stageGlobalConfig));
    instanceStatus_.is(*this, std::move(instanceStatus));
    readyStages_.open(status_, instanceStatus_.ptr());
    handleActiveStage();
    handleInitialized();
}

void InstanceStatusSm::dismantle() {
    readyStages_.close();
    instanceStatus_.disconnect();
    stageGlobalConfig_.disconnect();
    globalStageClock_.del();
    recalculateNextStage_.del();
    stageEnableSm_.delAll();
    stageSm_.delAll();
    if (logSm_) logSm_->retire();  // kept, so that what is on the stack may ask it in vain
}

void InstanceStatusSm::handleInitialized() {
    TRACE(8, " instanceName ", instanceName());
    logSmIs(log_, instanceName());
    recalculateNextStage_.is(Orv::activityManager().clock());
    recalculateNextStage_.timeMinIs(Orv::never);
    globalStageClock_.is(Orv::activityManager().clock());
    globalStageClock_.timeMinIs(Orv::never);
    initialized_ = true;

    const Orv::Ptr<InstanceStatus> own =
        status_ ? status_->instStatus(instanceName()) : Orv::Ptr<InstanceStatus>();
    if (!own || own->activeStage().empty()) {
        if (status_ && stageSm_.empty() && stageEnableSm_.empty()) {
            stageEnableSm_.reserve(status_->stage().size());
            stageSm_.reserve(status_->stage().size());
            for (const Orv::Name stage : status_->stage().walked()) {
                TRACE(9, "Creating Stage Enable Sm for ", stage, " instanceName ", instanceName());
                stageEnableSmIs(status_->stage(stage));
            }
        }
        if (!completionStatus_ || !completionStatus_->complete()) startProgression();
    }
    if (needRecalculateNextStage_) doNextStage();
}

void InstanceStatusSm::startProgression() {
    logIs({"", application(), " stages started"});
    if (retired()) return;
    const double deadline = config_ ? config_->globalStageCompletionTimeout() : 0.0;
    // Only exactly zero means that there is none, on purpose: a negative one is over at once.
    globalStageClock_.timeMinIs(deadline == 0.0 ? Orv::never
                                                : Orv::System::currentTime() + deadline);
    doNextStage();
}

Orv::Ptr<LogSm> InstanceStatusSm::logSmIs(Orv::Ptr<Log> log, Orv::String instanceName) {
    return logSm_.is(*this, std::tuple(log, instanceName),
                     [&] { return logSmFactory(log, instanceName, this); });
}

Orv::Ptr<StageEnableSm> InstanceStatusSm::stageEnableSmIs(Orv::Ptr<const StageStatus> stage) {
    return stageEnableSm_.keepOrMake(*this, stage->key(),
                                     [&] { return Orv::make<StageEnableSm>(stage, this); });
}

Orv::Ptr<StageSm> InstanceStatusSm::stageSmIs(Orv::Ptr<const StageStatus> stage,
                                              Orv::String instanceName, Orv::Ptr<LogSm> logSm,
                                              Orv::Ptr<AgentStatusLocal> agentStatusLocal) {
    return stageSm_.keepOrRefuse(
        *this, stage->key(), std::tuple(stage, instanceName, logSm, agentStatusLocal),
        [&] { return stageSmFactory(stage, instanceName, logSm, agentStatusLocal, this); });
}

void InstanceStatusSm::instanceStatusIs(Orv::Ptr<InstanceStatus> instanceStatus) {
    if (!instanceStatus_.is(*this, std::move(instanceStatus))) return;
    readyStages_.open(status_, instanceStatus_.ptr());
    if (instanceStatus_) instanceStatus_.watch()->onActiveStage(Orv::Immediate());
}

void InstanceStatusSm::stageGlobalConfigIs(Orv::Ptr<const StageGlobalConfig> stageGlobalConfig) {
    if (stageGlobalConfig_.is(*this, std::move(stageGlobalConfig)) && stageGlobalConfig_)
        stageGlobalConfig_.watch()->onDoNotStartStage(Orv::Immediate());
}

bool InstanceStatusSm::stageComplete(const Orv::Name& stage) const {
    const StageSm* const running = stageSm_.find(stage);
    return running != nullptr && running->complete();
}

void InstanceStatusSm::logIs(LogText line) {
    if (logSm_) logSm_->lineIs(std::move(line));
}

Orv::Ptr<InstanceStatusSm> instanceStatusSmFactory(
    Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
    Orv::Ptr<Status> status, Orv::Ptr<CompletionStatus> completionStatus,
    Orv::Ptr<Progress> progress, Orv::Ptr<Log> log,
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest,
    Orv::Ptr<InstanceStatus> instanceStatus, Orv::Ptr<AgentStatusLocal> agentStatusLocal,
    const Orv::Owner* owner) {
    return Orv::validPtr(Orv::make<InstanceStatusSm>(
        std::move(config), std::move(enabledConfig), std::move(status), std::move(completionStatus),
        std::move(progress), std::move(log), std::move(stageGlobalConfig),
        std::move(fatalErrorRequest), std::move(instanceStatus), std::move(agentStatusLocal),
        owner));
}

const Orv::TypeInfo& InstanceStatusSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<InstanceStatusSm>("Stage::InstanceStatusSm")
            .scalar("config", &InstanceStatusSm::config_)
            .detail()
            .scalar("enabledConfig", &InstanceStatusSm::enabledConfig_)
            .detail()
            .scalar("status", &InstanceStatusSm::status_)
            .detail()
            .scalar("completionStatus", &InstanceStatusSm::completionStatus_)
            .detail()
            .scalar("progress", &InstanceStatusSm::progress_)
            .detail()
            .scalar("log", &InstanceStatusSm::log_)
            .detail()
            .scalar("stageGlobalConfig",
                    [](const InstanceStatusSm& i) { return i.stageGlobalConfig_.ptr(); })
            .detail()
            .scalar("fatalErrorRequest", &InstanceStatusSm::fatalErrorRequest_)
            .detail()
            .scalar("instanceStatus", &InstanceStatusSm::instanceStatus)
            .detail()
            .scalar("agentStatusLocal", &InstanceStatusSm::agentStatusLocal_)
            .detail()
            .child("logSm", &InstanceStatusSm::logSm)
            .detail()
            .scalar("initialized", &InstanceStatusSm::initialized_)
            .children(
                "stageEnableSm",
                [](const InstanceStatusSm& i) -> const auto& { return i.stageEnableSm_.map(); })
            .children(
                "stageSm",
                [](const InstanceStatusSm& i) -> const auto& { return i.stageSm_.map(); })
            .scalar("needRecalculateNextStage", &InstanceStatusSm::needRecalculateNextStage_)
            .scalar("recalculateNextStage", &InstanceStatusSm::recalculateNextStage)
            .scalar("globalStageClock", &InstanceStatusSm::globalStageClock)
            .done();
    return info;
}

}  // namespace Stage
