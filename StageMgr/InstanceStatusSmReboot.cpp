// The deadline, the do-not-start list, and the request for a reboot.
#include <cstdint>
#include <limits>

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/Messages.h"
#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"

namespace Stage {

namespace {

// Truncated, and kept within what 32 bits hold; NaN gives 0.
std::uint32_t wholeSeconds(double seconds) {
    constexpr double most = std::numeric_limits<std::uint32_t>::max();
    if (!(seconds > 0.0)) return 0;
    return seconds >= most ? std::numeric_limits<std::uint32_t>::max()
                           : static_cast<std::uint32_t>(seconds);
}

}  // namespace

bool InstanceStatusSm::rebootRequested() const {
    return fatalErrorRequest_ && fatalErrorRequest_->requestReboot() != FatalError::ResetMode::none;
}

void InstanceStatusSm::handleGlobalStageClock() {
    TRACE(8);
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from ", __PRETTY_FUNCTION__);
        return;
    }
    if (completionStatus_ && completionStatus_->complete()) {
        globalStageClock_.timeMinIs(Orv::never);
        return;
    }
    if (rebootRequested()) return;
    const std::uint32_t limit =
        wholeSeconds(config_ ? config_->globalStageCompletionTimeout() : 0.0);
    globalStageCompletionTimeout.log(limit);
    if (retired()) return;
    requestReboot(
        Orv::concat({"Global stage progression timed out after ", std::to_string(limit), " secs"}));
}

void InstanceStatusSm::handleDoNotStartStage() {
    if (!stageGlobalConfig_) return;
    const Orv::Ptr<const StageGlobalConfig> list = stageGlobalConfig_.ptr();
    list->doNotStartStage().walk([this](StageInfo stage) { handleDoNotStartStage(stage); });
}

// Stage::StageInfo in full: some compilers trace a signature as it is written, others in full.
void InstanceStatusSm::handleDoNotStartStage(Stage::StageInfo stage) {
    TRACE(8, " stageClass: ", stage.stageClass, " stage: ", stage.stage, " instanceName ",
          instanceName());
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from ", __PRETTY_FUNCTION__, " ", instanceName());
        return;
    }
    // The list is the system's: every instance of every class sees every change of it.
    const Orv::String stageClass = config_ ? config_->stageClass() : Orv::String();
    if (stage.stageClass != stageClass) {
        TRACE(8, " stageClass: ", stage.stageClass,
              " does not match config stageClass: ", stageClass, " instanceName ", instanceName());
        return;
    }
    if (instanceStatus_ && instanceStatus_->activeStage().contains(stage.stage)) {
        TRACE(8, " stage: ", stage.stage, " Stage already active, instanceName ", instanceName());
        return;
    }
    if (stageGlobalConfig_ && stageGlobalConfig_->doNotStartStage(stage)) {
        // The next pass holds it.
        TRACE(8, " stage: ", stage.stage, " added, instanceName ", instanceName());
        return;
    }
    TRACE(8, " stage: ", stage.stage, " removed, ", " instanceName ", instanceName());
    doNextStage();
}

void InstanceStatusSm::requestReboot(Orv::String reason) {
    if (!fatalErrorRequest_ || retired()) {
        TRACE(0, "requestReboot: nowhere to write it, rebootReason=", reason);
        return;
    }
    Orv::String cause = config_ ? config_->reloadCauseDesc() : Orv::String();
    // The last character goes whatever it is, on purpose: a cause ends with a full stop.
    if (!cause.empty()) cause = cause.substr(0, cause.size() - 1);
    const Orv::String description =
        Orv::LogHandle::formatted("%s during %s.", {cause, application()});
    const FatalError::ResetMode mode = config_ ? config_->resetMode() : FatalError::ResetMode::none;
    const Orv::Ptr<FatalError> request = fatalErrorRequest_;
    request->rebootReasonIs(reason);
    if (retired()) return;
    request->reloadCauseDescIs(description);
    if (retired()) return;
    request->requestRebootIs(mode);
    TRACE(0, "requestReboot=", mode, ", rebootReason=", reason, ", reloadCauseDesc=", description);
}

}  // namespace Stage
