// Which stage starts next.
#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"

namespace Stage {

void InstanceStatusSm::doNextStage() {
    const Orv::Name instance = instanceName();
    TRACE(8, " instanceName() ", instance);
    if (retired()) return;
    if (!enabledConfig_ || !enabledConfig_->enabled(instance)) {
        TRACE(8, " instance ", instance, " not enabled yet, do nothing.");
        return;
    }
    if (enabledConfig_->suspended(instance)) {
        TRACE(8, " stage progression for instance ", instance,
              " has been suspended. Dont advance to next stage");
        if (instanceStatus_) instanceStatus_->suspendedIs(true);
        return;
    }
    needRecalculateNextStage_ = true;
    if (initialized_)
        recalculateNextStage_.timeMinIs(Orv::System::currentTime());
    else
        TRACE(8, "InstanceStatusSm not yet initialized ");
}

void InstanceStatusSm::handleNextStage() {
    TRACE(8, " instanceName ", instanceName());
    if (!initialized_) {
        TRACE(8, "not yet initialized, instanceName() ", instanceName());
        return;
    }
    if (rebootRequested()) {
        TRACE(8, " reboot already in progress, do nothing.");
        return;
    }
    if (!needRecalculateNextStage_) {
        TRACE(8, "handleNextStage not needed yet, instanceName() ", instanceName());
        return;
    }
    needRecalculateNextStage_ = false;
    if (retired() || !status_ || !instanceStatus_) return;

    // Who traces is told of every stage.
    if (readyStages_.usable() && !traceUnit().handle.enabled(7))
        startReadyStages();
    else
        walkStages();
}

void InstanceStatusSm::walkStages() {
    Pass pass{.criticalNotStarted = someCriticalStageHasNotStarted()};
    for (const Orv::Name name : status_->stage().walked()) {
        if (retired()) return;
        meetStage(name, pass);
    }
    if (retired()) return;

    if (!pass.inactiveStages && !pass.incompleteActiveStages)
        completeInstance();
    else if (pass.inactiveStages != pass.incompleteActiveStages)
        TRACE(7, " Inactive stages? ", pass.inactiveStages, " IncompleteActiveStages? ",
              pass.incompleteActiveStages, " instanceName ", instanceName());
}

void InstanceStatusSm::meetStage(const Orv::Name& name, Pass& pass) {
    ++visitedStages_;
    const Orv::Ptr<StageStatus> stage = status_->stage(name);
    if (instanceStatus_->activeStage().contains(name)) {
        if (pass.criticalNotStarted && !stage->critical())
            TRACE(9, "Stage ", name, " in progress, but now non-critical, ", " instanceName ",
                  instanceName());
        if (stageComplete(name)) return;
        TRACE(9, "Stage ", name, " in progress, but not yet complete, ", " instanceName ",
              instanceName());
        pass.incompleteActiveStages = true;
        return;
    }
    // Stays set when the stage is activated below, on purpose: this pass has met it inactive.
    pass.inactiveStages = true;
    if (pass.criticalNotStarted && !stage->critical()) {
        TRACE(9, name, " is ready, but some critical stage hasn't started  yet, instanceName ",
              instanceName());
        return;
    }
    if (!dependenciesComplete(*stage)) return;
    if (heldByOperator(name)) {
        TRACE(7, name, " ready, but not allowed to start, instanceName ", instanceName());
        return;
    }
    activate(stage);
}

// What walkStages() does, with a visit to the stages alone that it would start or find held.
// Nothing changes before the first of them starts, and that one is inactive when it is met: so the
// instance can only be complete when nothing is inactive from the beginning. What happens while a
// stage is started counts for those that stand behind it.
void InstanceStatusSm::startReadyStages() {
    if (!readyStages_.someInactive()) {
        if (!readyStages_.someActiveIncomplete()) completeInstance();
        return;
    }
    Pass pass{.criticalNotStarted = readyStages_.someCriticalInactive()};
    const std::uint32_t end = status_->places();
    const std::uint32_t renumberings = readyStages_.renumberings();
    Orv::OrderedMap<Orv::Name, Orv::Ptr<StageStatus>>::Walk walk(status_->stage());
    StageStatus* next = readyStages_.next(0, pass.criticalNotStarted);
    while (next != nullptr && next->place() < end) {
        const Orv::Ptr<StageStatus> stage(next);
        const std::uint32_t place = stage->place();
        ++visitedStages_;
        if (!heldByOperator(stage->key())) {
            walk.goTo(status_->stage().place(stage->key()));
            walk.next();
            activate(stage);
            if (retired()) return;
            // Somebody takes stages away meanwhile: the places tell no longer what is left.
            if (walk.disturbed() || readyStages_.renumberings() != renumberings ||
                !readyStages_.usable()) {
                while (const Orv::Name* const name = walk.next())
                    if (!retired()) meetStage(Orv::Name(*name), pass);
                return;
            }
        }
        next = readyStages_.next(place + 1, pass.criticalNotStarted);
    }
}

bool InstanceStatusSm::someCriticalStageHasNotStarted() const {
    for (const auto& [name, stage] : status_->stage())
        if (stage->critical() && !instanceStatus_->activeStage().contains(name)) return true;
    return false;
}

// A member with the value false counts as well, on purpose; a stage that does not exist is never
// complete.
bool InstanceStatusSm::dependenciesComplete(const StageStatus& stage) const {
    const Orv::Name& name = stage.key();
    for (const auto& [dependency, depends] : stage.dependency()) {
        if (!instanceStatus_->activeStage().contains(dependency)) {
            TRACE(9, dependency, " is not yet ready, which means ", name,
                  " is also unready, instanceName ", instanceName());
            return false;
        }
        const StageSm* const running = stageSm_.find(dependency);
        if (running == nullptr) {
            TRACE(9, "Unactivated stage SM for ", dependency, " means ", name,
                  " is unready, instanceName ", instanceName());
            return false;
        }
        if (!running->complete()) {
            TRACE(9, "Incomplete dependency ", dependency, " means ", name,
                  " is unready, instanceName ", instanceName());
            return false;
        }
    }
    return true;
}

bool InstanceStatusSm::heldByOperator(const Orv::Name& stage) const {
    const Orv::Name stageClass = config_ ? Orv::Name(config_->stageClass()) : Orv::Name();
    return stageGlobalConfig_ && stageGlobalConfig_->doNotStartStage({stageClass, stage});
}

void InstanceStatusSm::activate(const Orv::Ptr<StageStatus>& stage) {
    TRACE(7, "Activating stage ", stage->key(), " instanceName ", instanceName());
    logIs({"stage ", stage->key(), " started"});
    if (retired()) return;
    // The stage's reactor is made by the callback of this change.
    instanceStatus_->activeStageIs(stage);
}

void InstanceStatusSm::completeInstance() {
    if (const Orv::Ptr<InstanceStatus> own = status_->instStatus(instanceName()))
        own->completeIs(true);
    if (retired()) return;
    if (completionStatus_) completionStatus_->completeIs(true);
    if (retired()) return;
    globalStageClock_.timeMinIs(Orv::never);
    logIs({"", application(), " stages complete"});
}

void InstanceStatusSm::handleActiveStage() {
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from", __PRETTY_FUNCTION__);
        return;
    }
    TRACE(8, " instanceName ", instanceName());
    const Orv::Ptr<InstanceStatus> own = instanceStatus();
    if (!own) return;
    own->activeStage().walk([this](Orv::Name stage) { handleActiveStage(stage); });
}

void InstanceStatusSm::handleActiveStage(Orv::Name name) {
    if (!initialized_) {
        TRACE(8, "Not initialized.", " instanceName ", instanceName(), " Return from",
              __PRETTY_FUNCTION__);
        return;
    }
    TRACE(8, " for stage ", name);
    if (retired() || !instanceStatus_) return;
    const Orv::Ptr<StageStatus> stage = instanceStatus_->activeStage(name);
    // A stage that is no longer active keeps its reactor, on purpose.
    if (!stage || stageSm_.contains(name)) return;
    TRACE(9, "Replacing Stage Enable Sm with Stage Sm for ", name, " instanceName ",
          instanceName());
    stageEnableSmDel(name);
    stageSmIs(stage, instanceName(), logSm(), agentStatusLocal_);
    if (retired() || !progress_) return;
    progress_->stageIs(name, true);
}

}  // namespace Stage
