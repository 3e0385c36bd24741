// The stage's events, and its completion.
#include "StageMgr/StageSm.h"

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/Messages.h"
#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"

namespace Stage {

StageSm::StageSm(Orv::Ptr<const StageStatus> stage, Orv::String instanceName, Orv::Ptr<LogSm> logSm,
                 Orv::Ptr<AgentStatusLocal> agentStatusLocal, InstanceStatusSm* mainSm)
    : Reactor(mainSm),
      instanceName_(std::move(instanceName)),
      logSm_(std::move(logSm)),
      mainSm_(mainSm) {
    stage_.is(*this, std::move(stage));
    stage_.activeIs(false);
    agentStatusLocal_.is(*this, std::move(agentStatusLocal));
    event_.reserve(stage_->event().size());
    pendingEvent_.reserve(stage_->event().size());
    handleEvent();
    handleInitialized();
}

void StageSm::dismantle() {
    stage_.disconnect();
    agentStatusLocal_.disconnect();
    stageUncompleted_.del();
    event_.delAll();
    autoCompleteSm_.delAll();
    countedUpdate();
    mainSm_ = nullptr;
}

void StageSm::handleInitialized() {
    TRACE(8, " stage ", stageName(), " instanceName ", instanceName_);
    if (!pendingEvent_.empty()) {
        // Held at never, so that it cannot fire while the rest is looked at.
        stageUncompleted_.is(Orv::activityManager().clock());
        stageUncompleted_.timeMinIs(Orv::never);
    }
    completeIs(false);
    initializedIs(true);
    handleCompleteLocal();
    handlePendingEvent();
    if (retired()) return;
    if (!pendingEvent_.empty())
        stageUncompleted_.timeMinIs(Orv::System::currentTime() + stage_->timeout());
    else
        stageUncompleted_.del();
}

void StageSm::handleEvent(Orv::String agent) {
    TRACE(8, " stage ", stageName(), " event ", agent, " instanceName ", instanceName_);
    if (retired()) return;
    handleEventDel(agent);
    if (retired()) return;
    if (Orv::Ptr<EventConfig> event = stage_->event(agent))
        eventIs(agent, std::move(event));
    else
        eventDel(agent);
}

// Leaves the pending events and the auto-completion alone, on purpose: only a change of one event
// reconciles them with the stage.
void StageSm::handleEvent() {
    TRACE(8, " stage ", stageName(), " instanceName ", instanceName_);
    eventsSeen_ = stage_->eventChanges();
    stage_->event().walk([this](Orv::String agent) {
        if (!retired()) eventIs(agent, stage_->event(agent));
    });
    // While this is made, what has gone meanwhile is left for when it is switched on.
    if (!initialized_) return;
    event_.map().walk([this](Orv::String agent) {
        if (!stage_->event().contains(agent)) eventDel(agent);
    });
}

// Whoever was told of a line while this was made may have changed the stage's events.
void StageSm::notificationActiveIs(bool active) {
    countedUpdate();
    stage_.activeIs(active);
    if (!active || eventsSeen_ == stage_->eventChanges()) return;
    stage_->event().walk([this](Orv::String agent) {
        if (event(agent) != stage_->event(agent)) handleEvent(agent);
    });
    event_.map().walk([this](Orv::String agent) {
        if (!stage_->event().contains(agent)) handleEvent(agent);
    });
}

Orv::Ptr<EventConfig> StageSm::event(const Orv::String& agent) const {
    const OrvEvent* const held = event_.find(agent);
    return held != nullptr ? held->eventConfig() : nullptr;
}

void StageSm::eventIs(Orv::String agent, Orv::Ptr<EventConfig> event) {
    event_.keepOrReplace(*this, agent, event.get(), [&] {
        ++eventsJoined_;
        return Orv::make<OrvEvent>(event, agent, this);
    });
}

StageSm::OrvEvent::OrvEvent(Orv::Ptr<EventConfig> eventConfig, Orv::String key, StageSm* stageSm)
    : Reactor(stageSm), key_(std::move(key)), stageSm_(stageSm) {
    if (!eventConfig) return;
    eventConfig_.is(*this, std::move(eventConfig));
    eventConfig_.activeIs(false);
    stood_ = stands();
    stoodChanges_ = stageSm->stage()->eventChanges();
    handleComplete();
}

void StageSm::OrvEvent::handleComplete() {
    TRACE(8, "  event ", eventConfig_->name(),
          eventConfig_->complete(stageSm_->instanceName()) ? " completed" : " started");
    handleComplete(stageSm_->instanceName());
}

void StageSm::OrvEvent::handleComplete(Orv::String instance) {
    TRACE(8, " event ", eventConfig_->name(), " instanceName ", instance);
    if (retired() || instance != stageSm_->instanceName()) return;
    const Orv::Ptr<EventConfig> event = eventConfig();
    if (!event->complete(instance)) {
        handleEventStart(*stageSm_, event);
    } else if (stageSm_->agentStatusLocal()) {
        // By way of the class's record, as every completion: the stage retires the event from
        // there.
        stageSm_->agentStatusLocal()->completeIs({event->agent(), event->stage(), instance}, true);
    }
}

bool StageSm::OrvEvent::stands() const {
    return stageSm_->stage()->event(key_) == eventConfig_.get();
}

void handleEventStart(StageSm& stageSm, Orv::Ptr<EventConfig> event) {
    TRACE(8, " event ", event->name());
    if (stageSm.rebootRequested()) {
        TRACE(8, " reboot already in progress, do nothing.");
        return;
    }
    const StageStatus& stage = *stageSm.stage();
    const auto stands = [&] { return stage.event(event->agent()) == event; };
    const bool stood = stands();
    const std::uint32_t changes = stage.eventChanges();
    stageSm.logIs({"  event ", event->name(), " started"});
    if (stageSm.retired()) return;
    // Whoever was told of the line may have taken the event out of the stage.
    if (stage.eventChanges() != changes && stood && !stands()) return;
    stageSm.pendingEventIs(event);
    stageSm.maybeAddAutoCompleteSm(event);
}

void StageSm::handleEventDel(Orv::String agent) {
    TRACE(8, " stage ", stageName(), " event ", agent, " instanceName ", instanceName_);
    const Orv::Ptr<EventConfig> event = stage_->event(agent);
    const Orv::String name = Orv::concat({stageName(), ":", agent});
    if (!event) {
        pendingEventDel(name);
        autoCompleteSmDel(agent);
        return;
    }
    if (eventComplete(*event) || pendingEvent_.contains(name)) return;
    if (rebootRequested()) {
        TRACE(8, " reboot already in progress, do nothing.");
        return;
    }
    TRACE(9, "Incomplete event being added to pending events ", name);
    pendingEventIs(event);
    maybeAddAutoCompleteSm(event);
}

bool StageSm::eventComplete(const EventConfig& event) const {
    const bool fromEvent = event.complete(instanceName_);
    const bool fromAgent = agentStatusLocal_ && agentStatusLocal_->complete(
                                                    {event.agent(), event.stage(), instanceName_});
    TRACE(9, "eventComplete", " resultFromEventConfig: ", fromEvent,
          " resultFromAgentStatusLocal: ", fromAgent);
    return fromEvent || fromAgent;
}

void StageSm::maybeAddAutoCompleteSm(Orv::Ptr<EventConfig> event) {
    TRACE(8, " event ", event->name(), " enabled ", event->enableAutoComplete());
    if (event->enableAutoComplete())
        autoCompleteSmIs(event, logSm_, instanceName_, agentStatusLocal());
}

Orv::Ptr<AutoCompleteSm> StageSm::autoCompleteSmIs(Orv::Ptr<EventConfig> event,
                                                   Orv::Ptr<LogSm> logSm, Orv::String instanceName,
                                                   Orv::Ptr<AgentStatusLocal> agentStatusLocal) {
    const Orv::String agent = event ? event->agent() : Orv::String();
    return autoCompleteSm_.keepOrRefuse(
        *this, agent, std::tuple(event, logSm, instanceName, agentStatusLocal),
        [&] { return Orv::make<AutoCompleteSm>(event, logSm, instanceName, agentStatusLocal); });
}

void StageSm::pendingEventIs(Orv::Ptr<const EventConfig> event) {
    if (!event) throw Orv::NullParameterError("_pendingEvent", "Stage::StageSm::pendingEvent");
    const Orv::String name = event->name();
    Orv::Ptr<const EventConfig>& held = pendingEvent_.member(name);
    if (held == event) return;
    held = std::move(event);
    handlePendingEvent(name);
}

void StageSm::pendingEventDel(Orv::String name) {
    if (pendingEvent_.del(name)) handlePendingEvent(name);
}

void StageSm::handlePendingEvent(Orv::String name) {
    if (!initialized_) {
        TRACE(8, "Return from ", "handlePendingEvent for event ", name);
        return;
    }
    TRACE(8, " for event ", name, " by agent ", stage_->event().contains(name), " for stage ",
          stageName());
    handlePendingEvent();
}

void StageSm::handlePendingEvent() {
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from ", "handlePendingEvent");
        return;
    }
    TRACE(8, " with ", pendingEvent_.size(), " pendingEvents, instanceName ", instanceName_);
    if (retired() || !pendingEvent_.empty() || complete_) return;
    const LogText line("stage ", stageName(), " is complete");
    TRACE(7, line);
    if (timedOut_) {
        TRACE(0, "stage ", stageName(), " completed, but had previously timed out, instanceName ",
              instanceName_);
        if (stage_->critical()) stageCompleteAfterTimeout.log(mainSm_->application(), stageName());
        if (retired()) return;
    }
    stageUncompleted_.timeMinIs(Orv::never);
    completionTimeIs(Orv::System::currentTime());
    if (!retired()) completeIs(true);
    logIs(line);
    if (mainSm_ != nullptr) mainSm_->doNextStage();
}

bool StageSm::rebootRequested() const { return mainSm_ != nullptr && mainSm_->rebootRequested(); }

void StageSm::logIs(LogText line) {
    if (logSm_ && !retired()) logSm_->lineIs(std::move(line));
}

void StageSm::completeIs(bool complete) {
    if (!Orv::assign(complete_, complete)) return;
    countedUpdate();
    deliver([](auto& n) { static_cast<NotifieeConst&>(n).onComplete(); });
}

void StageSm::countedUpdate() {
    if (mainSm_ == nullptr) return;
    const bool counted = complete_ && mainSm_->stageSm().find(stageName()) == this;
    if (Orv::assign(counted_, counted)) mainSm_->readyStages().completeIs(*stage_.get(), counted);
}

void StageSm::timedOutIs(bool timedOut) {
    if (Orv::assign(timedOut_, timedOut))
        deliver([](auto& n) { static_cast<NotifieeConst&>(n).onTimedOut(); });
}

void StageSm::completionTimeIs(double seconds) {
    if (Orv::assign(completionTime_, seconds))
        deliver([](auto& n) { static_cast<NotifieeConst&>(n).onCompletionTime(); });
}

void StageSm::initializedIs(bool initialized) {
    if (Orv::assign(initialized_, initialized))
        deliver([](auto& n) { static_cast<NotifieeConst&>(n).onInitialized(); });
}

Orv::Ptr<StageSm> stageSmFactory(Orv::Ptr<const StageStatus> stage, Orv::String instanceName,
                                 Orv::Ptr<LogSm> logSm, Orv::Ptr<AgentStatusLocal> agentStatusLocal,
                                 InstanceStatusSm* mainSm) {
    return Orv::validPtr(Orv::make<StageSm>(std::move(stage), std::move(instanceName),
                                            std::move(logSm), std::move(agentStatusLocal), mainSm));
}

const Orv::TypeInfo& StageSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageSm>("Stage::StageSm")
            .scalar("stage", &StageSm::stage)
            .detail()
            .scalar("instanceName", &StageSm::instanceName_)
            .detail()
            .scalar("logSm", &StageSm::logSm_)
            .detail()
            .scalar("agentStatusLocal", &StageSm::agentStatusLocal)
            .detail()
            .scalar("initialized", &StageSm::initialized_)
            .scalar("complete", &StageSm::complete_)
            .scalar("timedOut", &StageSm::timedOut_)
            .scalar("completionTime", &StageSm::completionTime_)
            .collection(
                "pendingEvent", [](const StageSm& s) -> const auto& { return s.pendingEvent_; })
            .children(
                "event", [](const StageSm& s) -> const auto& { return s.event_.map(); })
            .children(
                "autoCompleteSm",
                [](const StageSm& s) -> const auto& { return s.autoCompleteSm_.map(); })
            .scalar("stageUncompleted", [](const StageSm& s) { return s.timeMin(); })
            .detail()
            .scalar("mainSm",
                    [](const StageSm& s) { return Orv::Ptr<InstanceStatusSm>(s.mainSm_); })
            .detail()
            .done();
    return info;
}

}  // namespace Stage
