// How reports reach the stage: by the class's record of completions.
#include <vector>

#include "StageMgr/StageSm.h"
#include "StageMgr/TraceUnit.h"

namespace Stage {

void StageSm::agentStatusLocalIs(Orv::Ptr<AgentStatusLocal> agentStatusLocal) {
    if (agentStatusLocal_.is(*this, std::move(agentStatusLocal)) && agentStatusLocal_)
        agentStatusLocal_.watch()->onComplete(Orv::Immediate());
}

void StageSm::handleCompleteLocal() {
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from ", "handleCompleteLocal");
        return;
    }
    if (!agentStatusLocal_) {
        TRACE(8, " agentStatusLocal is NULL");
        return;
    }
    TRACE(8, " stage ", stageName(), " instanceName ", instanceName_);
    const Orv::Ptr<AgentStatusLocal> record = agentStatusLocal();
    const auto visit = [this](AgentStatusKey key) {
        if (!retired()) handleCompleteLocal(key);
    };
    if (Orv::TraceHandle::someEnabled()) {
        // Reports of all stages and instances; the handler of one report picks its own.
        record->complete().walk(visit);
        return;
    }
    if (record->reports(stageName(), instanceName_) == 0) return;
    // Those of the stage's events in this instance, in the order of the record; as long as no event
    // joins, no other matters.
    std::vector<std::size_t> places;
    for (const auto& [agent, event] : event_.map()) {
        const std::size_t place = record->complete().place({agent, stageName(), instanceName_});
        if (place != record->complete().nowhere) places.push_back(place);
    }
    const std::size_t joined = eventsJoined_;
    record->complete().walkAt(
        std::move(places), [&] { return eventsJoined_ == joined; }, visit);
}

void StageSm::handleCompleteLocal(AgentStatusKey key) {
    if (!initialized_) {
        TRACE(8, "Not initialized.  Return from ", "handleCompleteLocal", key);
        return;
    }
    const bool value = agentStatusLocal_ && agentStatusLocal_->complete(key);
    TRACE(8, " AgentStatusLocal for agent: ", key.agent, ", stage: ", key.stage,
          ", instance: ", key.instance, " is ", value);
    if (!value) {
        // What is complete stays complete, on purpose, also when the report is withdrawn.
        TRACE(0, "Can't un-complete a Stage event. Ignoring...");
        return;
    }
    if (key.stage != stageName() || key.instance != instanceName_) {
        TRACE(8, " StageSm stage: ", stageName(), " Event stage: ", key.stage,
              " are different. Returning...");
        return;
    }
    const Orv::Ptr<EventConfig> reported = event(key.agent);
    if (!reported) {
        TRACE(0, " Could not find EventConfig for ", key.agent, " in stage ", stageName());
        return;
    }
    TRACE(8, " event exists.", " Calling handleEventComplete");
    handleEventComplete(*this, reported);
}

void handleEventComplete(StageSm& stageSm, Orv::Ptr<EventConfig> event) {
    TRACE(8, " event ", event->name());
    if (stageSm.rebootRequested()) {
        TRACE(8, " reboot already in progress, do nothing.");
        return;
    }
    // Also for an event that is not pending, on purpose: every accepted report leaves its line.
    stageSm.logIs({"  event ", event->name(), " completed"});
    if (stageSm.retired()) return;
    stageSm.pendingEventDel(event->name());
    if (stageSm.retired()) return;
    stageSm.autoCompleteSmDel(event->agent());
}

}  // namespace Stage
