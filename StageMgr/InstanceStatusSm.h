// Drives one instance: which stage starts next, until all are complete.
#pragma once

#include "StageMgr/LogSm.h"
#include "StageMgr/ReadyStages.h"
#include "StageMgr/StageEnableSm.h"
#include "StageMgr/StageSm.h"
#include "model/AgentStatusLocal.h"
#include "model/CompletionStatus.h"
#include "model/Config.h"
#include "model/EnabledConfig.h"
#include "model/FatalError.h"
#include "model/Log.h"
#include "model/Progress.h"
#include "model/StageGlobalConfig.h"
#include "model/Status.h"
#include "runtime/Clock.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

// StatusSm owns one per enabled instance, under the instance's name. A stage of the instance has a
// StageEnableSm until it starts and a StageSm from then on.
//
// Requests for a decision come from many places and are collapsed: doNextStage() arms a timer for
// the present time, and handleNextStage() runs once for all of them.
class ORV_API InstanceStatusSm final : public Orv::Reactor {
  public:
    InstanceStatusSm(Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
                     Orv::Ptr<Status> status, Orv::Ptr<CompletionStatus> completionStatus,
                     Orv::Ptr<Progress> progress, Orv::Ptr<Log> log,
                     Orv::Ptr<const StageGlobalConfig> stageGlobalConfig,
                     Orv::Ptr<FatalError> fatalErrorRequest,
                     Orv::Ptr<InstanceStatus> instanceStatus,
                     Orv::Ptr<AgentStatusLocal> agentStatusLocal,
                     const Orv::Owner* owner = nullptr);

    auto arguments() const {
        return std::tuple(config_, enabledConfig_, status_, completionStatus_, progress_, log_,
                          stageGlobalConfig_.ptr(), fatalErrorRequest_, instanceStatus_.ptr(),
                          agentStatusLocal_);
    }
    static constexpr std::array<const char*, 10> argumentNames{"config",
                                                               "enabledConfig",
                                                               "status",
                                                               "completionStatus",
                                                               "progress",
                                                               "log",
                                                               "stageGlobalConfig",
                                                               "fatalErrorRequest",
                                                               "instanceStatus",
                                                               "agentStatusLocal"};

    // The name of its status; empty while it has none.
    Orv::Name instanceName() const {
        return instanceStatus_ ? instanceStatus_->key() : Orv::Name();
    }
    const Orv::Ptr<InstanceStatus>& instanceStatus() const { return instanceStatus_.ptr(); }
    bool initialized() const { return initialized_; }
    bool needRecalculateNextStage() const { return needRecalculateNextStage_; }
    // When the next pass runs, and when the deadline ends; Orv::never when not armed.
    double recalculateNextStage() const { return recalculateNextStage_.timeMin(); }
    double globalStageClock() const { return globalStageClock_.timeMin(); }
    const Orv::Children<Orv::Name, StageEnableSm>& stageEnableSm() const { return stageEnableSm_; }
    const Orv::Children<Orv::Name, StageSm>& stageSm() const { return stageSm_; }
    const Orv::Ptr<LogSm>& logSm() const { return logSm_.ptr(); }

    // A configuration that is missing reads as empty, and as false.
    Orv::String application() const { return config_ ? config_->application() : Orv::String(); }
    bool stageTimeoutIsFatal() const { return config_ && config_->stageTimeoutIsFatal(); }
    bool continueOnTimeout() const { return config_ && config_->continueOnTimeout(); }
    // Somebody has asked for a reboot; a system without a FatalError never goes down.
    bool rebootRequested() const;
    // The stage has a reactor, and that is complete.
    bool stageComplete(const Orv::Name& stage) const;

    // How many stages all passes together have looked at.
    std::uint64_t visitedStages() const { return visitedStages_; }
    ReadyStages& readyStages() { return readyStages_; }

    // Watches other entities instead; what is there is looked at at once.
    void instanceStatusIs(Orv::Ptr<InstanceStatus> instanceStatus);
    void stageGlobalConfigIs(Orv::Ptr<const StageGlobalConfig> stageGlobalConfig);

    void needRecalculateNextStageIs(bool needed) { needRecalculateNextStage_ = needed; }
    void initializedIs(bool initialized) { initialized_ = initialized; }

    Orv::Ptr<LogSm> logSmIs(Orv::Ptr<Log> log, Orv::String instanceName);
    Orv::Ptr<StageEnableSm> stageEnableSmIs(Orv::Ptr<const StageStatus> stage);
    void stageEnableSmDel(Orv::Name stage) { stageEnableSm_.del(stage); }
    Orv::Ptr<StageSm> stageSmIs(Orv::Ptr<const StageStatus> stage, Orv::String instanceName,
                                Orv::Ptr<LogSm> logSm, Orv::Ptr<AgentStatusLocal> agentStatusLocal);
    void stageSmDel(Orv::Name stage) { stageSm_.del(stage); }

    // Asks for a pass, unless the instance is disabled or suspended.
    void doNextStage();
    // The pass: starts every stage that may start.
    void handleNextStage();
    void handleActiveStage();
    void handleActiveStage(Orv::Name stage);
    void handleGlobalStageClock();
    void handleDoNotStartStage();
    void handleDoNotStartStage(StageInfo stage);
    void handleInitialized();

    // The one place that asks for a reboot; whether one is under way is the caller's to ask.
    void requestReboot(Orv::String reason);

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvInstanceStatus final : public Orv::Watch<InstanceStatus, InstanceStatusSm> {
      public:
        using Watch::Watch;
        void onActiveStage(Orv::Name stage) override { sm().handleActiveStage(stage); }
        void onActiveStage(Orv::Immediate) override { sm().handleActiveStage(); }
    };

    class OrvStageGlobalConfig final : public Orv::Watch<StageGlobalConfig, InstanceStatusSm> {
      public:
        using Watch::Watch;
        void onDoNotStartStage(StageInfo stage) override { sm().handleDoNotStartStage(stage); }
        void onDoNotStartStage(Orv::Immediate) override { sm().handleDoNotStartStage(); }
    };

    class OrvRecalculateNextStage final : public Orv::TimerOf<InstanceStatusSm> {
      public:
        using TimerOf::TimerOf;
        void onTime() override { sm().handleNextStage(); }
    };

    class OrvGlobalStageClock final : public Orv::TimerOf<InstanceStatusSm> {
      public:
        using TimerOf::TimerOf;
        void onTime() override { sm().handleGlobalStageClock(); }
    };

    void dismantle() override;
    bool unwanted() const override { return instanceStatus_ && instanceStatus_->left(); }
    // One look at all stages.
    struct Pass {
        bool criticalNotStarted;
        bool inactiveStages = false;
        bool incompleteActiveStages = false;
    };

    void startProgression();
    void walkStages();
    void meetStage(const Orv::Name& name, Pass& pass);
    void startReadyStages();
    bool someCriticalStageHasNotStarted() const;
    bool dependenciesComplete(const StageStatus& stage) const;
    bool heldByOperator(const Orv::Name& stage) const;
    void activate(const Orv::Ptr<StageStatus>& stage);
    void completeInstance();
    void logIs(LogText line);

    Orv::Ptr<const Config> config_;
    Orv::Ptr<const EnabledConfig> enabledConfig_;
    Orv::Ptr<Status> status_;
    Orv::Ptr<CompletionStatus> completionStatus_;
    Orv::Ptr<Progress> progress_;
    Orv::Ptr<Log> log_;
    Orv::Ptr<FatalError> fatalErrorRequest_;
    Orv::Ptr<AgentStatusLocal> agentStatusLocal_;
    Orv::SingleChild<LogSm> logSm_;
    Orv::Children<Orv::Name, StageEnableSm> stageEnableSm_;
    Orv::Children<Orv::Name, StageSm> stageSm_;
    ReadyStages readyStages_{*this};
    std::uint64_t visitedStages_ = 0;
    bool needRecalculateNextStage_ = false;
    bool initialized_ = false;
    Orv::TimerSlot<OrvRecalculateNextStage> recalculateNextStage_{*this};
    Orv::TimerSlot<OrvGlobalStageClock> globalStageClock_{*this};
    Orv::WatchSlot<OrvStageGlobalConfig, const StageGlobalConfig> stageGlobalConfig_;
    Orv::WatchSlot<OrvInstanceStatus, InstanceStatus> instanceStatus_;
};

ORV_API Orv::Ptr<InstanceStatusSm> instanceStatusSmFactory(
    Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
    Orv::Ptr<Status> status, Orv::Ptr<CompletionStatus> completionStatus,
    Orv::Ptr<Progress> progress, Orv::Ptr<Log> log,
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest,
    Orv::Ptr<InstanceStatus> instanceStatus, Orv::Ptr<AgentStatusLocal> agentStatusLocal,
    const Orv::Owner* owner = nullptr);

}  // namespace Stage
