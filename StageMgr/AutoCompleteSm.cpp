#include "StageMgr/AutoCompleteSm.h"

#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"

namespace Stage {

AutoCompleteSm::AutoCompleteSm(Orv::Ptr<EventConfig> eventConfig, Orv::Ptr<LogSm> logSm,
                               Orv::String instanceName,
                               Orv::Ptr<AgentStatusLocal> agentStatusLocal)
    : eventConfig_(std::move(eventConfig)),
      logSm_(std::move(logSm)),
      instanceName_(std::move(instanceName)),
      agentStatusLocal_(std::move(agentStatusLocal)) {
    handleInitialized();
}

void AutoCompleteSm::handleInitialized() {
    TRACE(8, " event ", key(), " instanceName ", instanceName_);
    clock_.is(Orv::activityManager().clock());
    clock_.timeMinIs(Orv::never);
    initialized_ = true;
    if (!eventConfig_) return;
    // Armed once, on purpose: a delay that changes later does not move it.
    clock_.timeMinIs(Orv::System::currentTime() + eventConfig_->autoCompleteTimeout());
}

void AutoCompleteSm::handleTimeout() {
    TRACE(8, " event ", key(), " instanceName ", instanceName_);
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from ", "handleTimeout");
        return;
    }
    if (!eventConfig_) return;
    if (logSm_) logSm_->lineIs({"  event ", eventConfig_->name(), " autocompleted"});
    if (retired() || !agentStatusLocal_) return;
    agentStatusLocal_->completeIs({eventConfig_->agent(), eventConfig_->stage(), instanceName_},
                                  true);
}

const Orv::TypeInfo& AutoCompleteSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AutoCompleteSm>("Stage::AutoCompleteSm")
            .scalar("clock", [](const AutoCompleteSm& a) { return a.timeMin(); })
            .scalar("eventConfig", &AutoCompleteSm::eventConfig_)
            .detail()
            .scalar("logSm", &AutoCompleteSm::logSm_)
            .detail()
            .scalar("instanceName", &AutoCompleteSm::instanceName_)
            .detail()
            .scalar("agentStatusLocal", &AutoCompleteSm::agentStatusLocal_)
            .detail()
            .scalar("initialized", &AutoCompleteSm::initialized_)
            .detail()
            .done();
    return info;
}

}  // namespace Stage
