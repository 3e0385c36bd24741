// What happens when the stage's time is up.
#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/Messages.h"
#include "StageMgr/StageSm.h"
#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"

namespace Stage {

void StageSm::handleStageUncompleted() {
    TRACE(8, " stage ", stageName(), " with ", pendingEvent_.size(),
          " pendingEvents remaining, instanceName ", instanceName_);
    if (!initialized_) {
        TRACE(9, " not yet initialized; ignore initial handler for timeout, ", instanceName_);
        return;
    }
    if (retired() || mainSm_ == nullptr) return;
    if (rebootRequested()) {
        TRACE(8, " reboot already in progress, do nothing.");
        return;
    }
    TRACE(9, " Incomplete events:");
    for (const auto& [name, event] : pendingEvent_) TRACE(9, "  ", name);

    // For every stage whose time is up, on purpose, critical ones that are not complete included.
    logIs({"stage ", stageName(), " is complete (timeout)"});
    if (retired()) return;

    if (!stage_->critical() || mainSm_->continueOnTimeout()) {
        logIs({"stage ", stageName(), " timed out but will continue on"});
        if (retired()) return;
        completionTimeIs(Orv::System::currentTime());
        if (!retired()) timedOutIs(true);
        if (!retired()) completeIs(true);
        // What is pending stays so; completing it later changes nothing but the log.
        if (mainSm_ != nullptr) mainSm_->doNextStage();
        return;
    }

    stageSlow.log(mainSm_->application(), stageName());
    if (retired()) return;
    timedOutIs(true);
    if (retired()) return;
    if (mainSm_->stageTimeoutIsFatal()) {
        if (!rebootRequested())
            mainSm_->requestReboot(Orv::LogHandle::formatted("%s timed out", {stageName()}));
        return;
    }
    Orv::activityManager().environment().print(
        Orv::LogHandle::formatted(" Critical stage %s timed out! %s suspended for debugging.",
                                  {stageName(), mainSm_->application()}));
    TRACE(0, " Critical stage ", stageName(), "timed out! ",
          mainSm_ != nullptr ? mainSm_->application() : Orv::String(),
          " suspended for debugging, instanceName ", instanceName_);
}

}  // namespace Stage
