// Time limits: of the stages, and the class's deadline for the watchdog.
#include <charconv>

#include "StageMgr/ConfigSm.h"
#include "StageMgr/ConfigSmCriticality.h"
#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "runtime/Halbe.h"

namespace Stage {

namespace {

// As a stream writes a double: six significant digits, no trailing zeros.
Orv::String decimalText(double seconds) {
    char text[32];
    const auto end =
        std::to_chars(text, text + sizeof text, seconds, std::chars_format::general, 6);
    return std::string_view(text, static_cast<std::size_t>(end.ptr - text));
}

}  // namespace

void ConfigSm::OrvEventConfig::handleTimeout() {
    TRACE(8, " ", agent_, " timeout=", eventConfig_->timeout());
    if (retired()) return;
    const Orv::Ptr<OrvStageStatus> reactor(stageStatus_);
    reactor->handleTimeout();
}

void ConfigSm::OrvStageStatus::handleTimeout() {
    TRACE(8, " ", stage(), " timeout=", stageStatus_->timeout());
    if (retired()) return;
    // In single precision, on purpose: limits computed here have always been so, and systems in the
    // field compare them.
    const double limit = stageStatus_->largestEventTimeout();
    if (limit != stageStatus_->timeout()) TRACE(9, "  new timeout = ", limit);
    stageStatus_->timeoutIs(limit);
}

void ConfigSm::notifierIs(Orv::Ptr<const Config> config) {
    if (config_.is(*this, std::move(config)) && config_) handleGlobalStageCompletionTimeout();
}

void ConfigSm::handleGlobalStageCompletionTimeout() {
    if (retired() || !config_ || config_->stageClass() != "switchover") return;
    const double deadline = config_->globalStageCompletionTimeout();
    TRACE(8, "config halbe watchdog to ", deadline);
    const Orv::Ptr<Halbe::HalbeInfo> watchdog =
        Orv::validPtr(Orv::activityManager().environment().halbeInfo("StageMgrConfigSm", 1, false));
    watchdog->watchdogTimeoutIs(decimalText(deadline));
}

}  // namespace Stage
