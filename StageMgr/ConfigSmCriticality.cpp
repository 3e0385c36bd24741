// Events, dependencies and criticality of the stages.
#include "StageMgr/ConfigSmCriticality.h"

#include "StageMgr/ConfigSm.h"
#include "StageMgr/TraceUnit.h"

namespace Stage {

using OrvStageStatus = ConfigSm::OrvStageStatus;
using OrvEventConfig = ConfigSm::OrvEventConfig;

OrvStageStatus::OrvStageStatus(Orv::Ptr<StageStatus> stageStatus, ConfigSm* configSm)
    : Reactor(configSm), configSm_(configSm) {
    stageStatus_.is(*this, std::move(stageStatus));
    stageStatus_.activeIs(false);
    handleEvent();
    handleCritical();
}

void OrvStageStatus::dismantle() {
    if (stranger_) --configSm_->strangers_.number;
    stageStatus_.disconnect();
    eventConfig_.delAll();
    configSm_ = nullptr;
}

void OrvStageStatus::eventConfigIs(Orv::Ptr<EventConfig> eventConfig) {
    if (!eventConfig)
        throw Orv::NullParameterError("_eventConfig",
                                      "Stage::ConfigSm::OrvStageStatus::eventConfig");
    eventConfigIs(eventConfig->agent(), eventConfig);
}

void OrvStageStatus::eventConfigIs(Orv::Name agent, Orv::Ptr<EventConfig> eventConfig) {
    eventConfig_.keepOrReplace(*this, agent, eventConfig.get(),
                               [&] { return Orv::make<OrvEventConfig>(eventConfig, agent, this); });
}

void OrvStageStatus::handleEvent(Orv::String agent) {
    if (Orv::Ptr<EventConfig> event = stageStatus_->event(agent))
        eventConfigIs(agent, std::move(event));
    else
        eventConfigDel(agent);
}

void OrvStageStatus::handleEvent() {
    stageStatus_->event().walk([this](Orv::String agent) {
        if (!retired()) handleEvent(agent);
    });
    eventConfig_.map().walk([this](Orv::Name agent) {
        if (!stageStatus_->event().contains(agent)) eventConfigDel(agent);
    });
}

void OrvStageStatus::handleEventDel(Orv::String agent) {
    TRACE(8, "(event:", agent, ")");
    const Orv::Ptr<EventConfig> ec = stageStatus_->event(agent);
    if (retired() || !ec) return;
    const double stageTimeout = stageStatus_->timeout();
    const double eventTimeout = ec->timeout();
    const std::size_t before = ec->dependency().size();
    stageStatus_->eventDel(agent);
    Orv::assertThat(ec->dependency().size() == before, "ec->dependencys() == before");
    for (const Orv::String dependency : ec->dependency().walked()) {
        if (retired()) return;
        TRACE(9, "Handling dependency deletion of ", dependency, " from event ", agent);
        handleDependencyDel(dependency);
    }
    if (retired()) return;
    handleCritical();
    // Only the event that set the limit, exactly, lets it be recomputed; a limit that was narrowed
    // does not compare equal and stays, on purpose.
    if (!retired() && stageTimeout == eventTimeout) handleTimeout();
}

void OrvStageStatus::handleDependency(Orv::String dependency) {
    TRACE(8, " for stage ", stage(), " (dependency:", dependency, ")");
    if (!retired()) tellCritical(dependency);
}

// A change of a dependency need not be told to the others: they know already if they did before.
void OrvStageStatus::dependencyChanged(const Orv::String& dependency) {
    const auto othersTold = [this] {
        return allTold_ && toldCritical_ == stageStatus_->criticalChanges() &&
               toldDependency_ + 1 == stageStatus_->dependencyChanges();
    };
    const bool before = othersTold();
    handleDependency(dependency);
    if (retired()) return;
    if (before && othersTold() && known(dependency))
        ++toldDependency_;
    else if (!allTold())
        tellAnew();
}

void OrvStageStatus::tellCritical(const Orv::String& dependency) {
    if (!configSm_->status() || !configSm_->status()->stage().contains(dependency)) return;
    const Orv::Ptr<OrvStageStatus> other{configSm_->stageStatus(dependency)};
    if (!other) return;
    TRACE(9, "  Adjusting criticalAncestor for ", dependency);
    const bool wanted = stageStatus_->dependency(dependency) && stageStatus_->critical();
    TRACE(9, "  criticalAncestor was ", other->criticalAncestor().value(stage()),
          " now dep && critic = ", wanted);
    TRACE(9, " criticalAncestors ", other->criticalAncestor().size());
    if (wanted)
        other->ancestorIs(stage(), true);
    else
        other->ancestorDel(stage());
    TRACE(9, " criticalAncestors after ", other->criticalAncestor().size());
}

void OrvStageStatus::handleDependencyDel(Orv::String dependency) {
    TRACE(8, " for some event in stage ", stage(), " (dependency: ", dependency, ")");
    if (stageStatus_->someEventDependsOn(dependency)) {
        TRACE(9, "Dependency found in event ",
              stageStatus_->firstAgent([&](const auto& e) { return e.dependency(dependency); }));
        return;
    }
    TRACE(9, "Deleting dependency ", dependency, " from stage ", stage());
    stageStatus_->dependencyDel(dependency);
}

void OrvStageStatus::handleStage(Orv::Name other) {
    TRACE(8, " for stage ", stage(), " detected stage ", other);
    if (stageStatus_->dependency(other)) handleDependency(other);
}

void OrvStageStatus::notificationActiveIs(bool active) {
    stageStatus_.activeIs(active);
    if (active) configSm_->stored(*this);
}

// Whether the stage that is depended on has been told what this one is, as far as it is there.
bool OrvStageStatus::known(const Orv::String& dependency) const {
    const OrvStageStatus* const other = configSm_->stageStatus(dependency);
    if (other == nullptr || !stageStatus_->dependency().contains(dependency)) return true;
    return stageStatus_->critical() == other->criticalAncestor_.contains(stage());
}

bool OrvStageStatus::allTold() const {
    if (!allTold_ || toldCritical_ != stageStatus_->criticalChanges() ||
        toldDependency_ != stageStatus_->dependencyChanges())
        return false;
#ifndef NDEBUG
    for (const auto& [dependency, depends] : stageStatus_->dependency())
        Orv::assertThat(known(dependency), "known(dependency)");
#endif
    return true;
}

void OrvStageStatus::handleCritical(Orv::String key) {
    TRACE(8, " key ", key);
    handleCritical();
}

void OrvStageStatus::handleCritical() {
    TRACE(8, " for stage ", stage(), " critical=", stageStatus_->critical());
    if (retired()) return;
    configSm_->spreadCriticality(Orv::Ptr<OrvStageStatus>(this));
}

// What the stage itself is from now on. A critical ancestor decides without a look at the events,
// on purpose: two critical stages that depend on each other keep each other critical.
void OrvStageStatus::criticalUpdate() {
    bool critical = !criticalAncestor_.empty();
    if (critical) {
        TRACE(9, " Critical because exists a critical ancestor");
    } else {
        critical = stageStatus_->someEventCritical();
        if (critical)
            TRACE(9, " Critical because ",
                  stageStatus_->firstAgent([](const auto& e) { return e.critical(); }),
                  " is critical");
    }
    if (critical == stageStatus_->critical())
        TRACE(9, stage(), ": No change to critical (", critical, ").");
    else
        TRACE(9, " Setting critical for stage ", stage(), " to ", critical);
    stageStatus_->criticalIs(critical);
    TRACE(9, "   Force dependents of ", stage(), " to recompute based on our critical");
}

void OrvStageStatus::criticalAncestorIs(Orv::String ancestor, bool value) {
    tellAnew(ancestor);
    ancestorIs(ancestor, value);
}

void OrvStageStatus::criticalAncestorDel(Orv::String ancestor) {
    tellAnew(ancestor);
    ancestorDel(ancestor);
}

// What that stage has told this one no longer holds.
void OrvStageStatus::tellAnew(const Orv::String& ancestor) {
    OrvStageStatus* const reactor = retired() ? nullptr : configSm_->stageStatus(ancestor);
    if (reactor != nullptr) reactor->tellAnew();
}

void OrvStageStatus::tellAnew() {
    allTold_ = false;
    tellAnew_ = true;
}

void OrvStageStatus::ancestorIs(const Orv::String& ancestor, bool value) {
    const bool* const held = criticalAncestor_.find(ancestor);
    if (held != nullptr && *held == value) return;  // this ends the spreading, also around a cycle
    criticalAncestor_.set(ancestor, value);
    handleCritical(ancestor);
}

void OrvStageStatus::ancestorDel(const Orv::String& ancestor) {
    if (criticalAncestor_.del(ancestor))
        handleCritical(ancestor);  // the other end of the spreading
}

// What is stored from now on is told by the stages that depend on it.
void ConfigSm::stored(OrvStageStatus& reactor) {
    reactor.tellAnew();
    if (!status_ || status_->stage(reactor.stage()) != reactor.entity()) strangers_.is(reactor);
    if (dependentsKnown())
        status_->eachDependent(reactor.stage(), [this](const StageStatus& dependent) {
            if (OrvStageStatus* const other = stageStatus(dependent.key())) other->tellAnew();
        });
    else
        for (const auto& [name, other] : stageStatus_.map()) other->tellAnew();
}

void ConfigSm::Strangers::is(OrvStageStatus& reactor) noexcept {
    if (!std::exchange(reactor.stranger_, true)) ++number;
}

void ConfigSm::Strangers::stageStored(StageStatus& stage, bool present) noexcept {
    OrvStageStatus* const reactor = present ? nullptr : configSm_.stageStatus(stage.key());
    if (reactor != nullptr && reactor->entity() == &stage) is(*reactor);
}

// Depth first: a stage settles its own criticality, then tells each stage that it depends on, and
// what that sets off comes before the next. The way is kept here rather than on the call stack,
// since it may be as long as the longest chain of dependencies. A step tells all, also when its own
// criticality has not changed; a stage that is told what it knows already ends the way. So a step
// is left out when all of them know already.
void ConfigSm::spreadCriticality(const Orv::Ptr<OrvStageStatus>& from) {
    // Whether the loop below got here by telling a stage: then it goes on with this one.
    const bool told = std::exchange(tellingStage_, false);
    // What others do in answer to a change may start another way in here, which ends before the one
    // under way goes on.
    const std::size_t base = criticality_.size();
    from->criticalUpdate();
    if (from->retired() || (from->allTold() && !traceUnit().handle.enabled(9))) return;
    criticality_.emplace_back(from);
    if (told) return;
    const SpreadingEnd end{*this, base};
    while (criticality_.size() > base) {
        CriticalityStep& step = criticality_.back();
        const Orv::String* const dependency =
            step.stage->retired() ? nullptr : step.remaining.next();
        if (dependency == nullptr) {
            step.end();
            criticality_.pop_back();
            continue;
        }
        const Orv::Ptr<OrvStageStatus> other{stageStatus(*dependency)};
        if (!other) continue;  // it is told when it is added
        const Orv::Name stage = step.stage->stage();
        TRACE(9, "  Adjusting criticalAncestor for ", *dependency, " (was ",
              other->criticalAncestor().value(stage), ")");
        tellingStage_ = true;
        if (step.status->critical())
            other->ancestorIs(stage, true);
        else
            other->ancestorDel(stage);
        tellingStage_ = false;
    }
}

OrvEventConfig::OrvEventConfig(Orv::Ptr<EventConfig> eventConfig, Orv::Name agent,
                               OrvStageStatus* stageStatus)
    : Reactor(stageStatus), agent_(std::move(agent)), stageStatus_(stageStatus) {
    eventConfig_.is(*this, std::move(eventConfig));
    eventConfig_.activeIs(false);
    stood_ = stands();
    stoodChanges_ = stageStatus->stageStatus()->eventChanges();
    handleDependency();
    handleTimeout();
    handleCritical();
}

void OrvEventConfig::handleDependency() {
    TRACE(8, " ", eventConfig_->name());
    eventConfig_->dependency().walk([this](Orv::String stage) { handleDependency(stage); });
}

void OrvEventConfig::handleDependency(Orv::String stage) {
    TRACE(8, "(dependency:", stage, ")");
    if (retired()) return;
    const Orv::Ptr<OrvStageStatus> reactor(stageStatus_);
    const bool held = reactor->stageStatus()->dependency(stage);
    if (eventConfig_->dependency(stage) && !held)
        reactor->stageStatus()->dependencyIs(stage, true);
    else if (held)
        reactor->handleDependencyDel(stage);
}

void OrvEventConfig::handleCritical() {
    TRACE(8, " critical=", eventConfig_->critical());
    if (retired()) return;
    const Orv::Ptr<OrvStageStatus> reactor(stageStatus_);
    reactor->handleCritical();
}

bool OrvEventConfig::stands() const {
    return stageStatus_->stageStatus()->event(agent_) == eventConfig_.get();
}

const Orv::TypeInfo& OrvStageStatus::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<OrvStageStatus>("Stage::ConfigSm::OrvStageStatus")
            .scalar("stageStatus", &OrvStageStatus::stageStatus)
            .detail()
            .collection(
                "criticalAncestor",
                [](const OrvStageStatus& s) -> const auto& { return s.criticalAncestor_; })
            .children(
                "eventConfig",
                [](const OrvStageStatus& s) -> const auto& { return s.eventConfig_.map(); })
            .done();
    return info;
}

}  // namespace Stage
