// Runs one started stage of one instance to its end.
#pragma once

#include "StageMgr/AutoCompleteSm.h"
#include "StageMgr/LogSm.h"
#include "model/AgentStatusLocal.h"
#include "model/StageStatus.h"
#include "runtime/Clock.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

class InstanceStatusSm;

// An InstanceStatusSm owns one per stage that has started, and keeps it. It knows which of the
// stage's events are outstanding in its instance, and is complete when none is left or its time is
// up.
//
// Three keys are in use for one event: the agent's name (the stage's events, `event`,
// `autoCompleteSm`), and the event's own name, "stage:agent" (`pendingEvent`, log lines).
class ORV_API StageSm final : public Orv::Reactor {
  public:
    // Tells of the reactor's own attributes.
    class ORV_API NotifieeConst : public Orv::NotifieeOf<StageSm> {
      public:
        virtual void onComplete() {}
        virtual void onTimedOut() {}
        virtual void onCompletionTime() {}
        virtual void onInitialized() {}
    };

    StageSm(Orv::Ptr<const StageStatus> stage, Orv::String instanceName, Orv::Ptr<LogSm> logSm,
            Orv::Ptr<AgentStatusLocal> agentStatusLocal, InstanceStatusSm* mainSm);

    std::tuple<Orv::Ptr<const StageStatus>, Orv::String, Orv::Ptr<LogSm>,
               Orv::Ptr<AgentStatusLocal>>
    arguments() const {
        return {stage_.ptr(), instanceName_, logSm_, agentStatusLocal_.ptr()};
    }
    static constexpr std::array<const char*, 4> argumentNames{"stage", "instanceName", "logSm",
                                                              "agentStatusLocal"};

    const Orv::Ptr<const StageStatus>& stage() const { return stage_.ptr(); }
    const Orv::Name& stageName() const { return stage_->key(); }
    const Orv::String& instanceName() const { return instanceName_; }
    const Orv::Ptr<LogSm>& logSm() const { return logSm_; }
    const Orv::Ptr<AgentStatusLocal>& agentStatusLocal() const { return agentStatusLocal_.ptr(); }
    // Watches another record; null leaves the events' own completion alone.
    void agentStatusLocalIs(Orv::Ptr<AgentStatusLocal> agentStatusLocal);
    // Null once the instance is gone.
    InstanceStatusSm* mainSm() const { return mainSm_; }

    // The stage has finished in this instance, by its events or by its time limit.
    bool complete() const { return complete_; }
    // Its timer has fired.
    bool timedOut() const { return timedOut_; }
    // Seconds of Orv::System; 0.0 until complete.
    double completionTime() const { return completionTime_; }
    bool initialized() const { return initialized_; }
    // While false, the handlers that need what the constructor sets up return at once.
    void initializedIs(bool initialized);
    // When the stage's time is up; Orv::never when nothing is waited for.
    double timeMin() const { return stageUncompleted_.timeMin(); }

    // The outstanding events, by their own names.
    const Orv::OrderedMap<Orv::String, Orv::Ptr<const EventConfig>>& pendingEvent() const {
        return pendingEvent_;
    }
    // Does nothing when that very event is pending already. Null raises NullParameterError.
    void pendingEventIs(Orv::Ptr<const EventConfig> event);
    void pendingEventDel(Orv::String name);

    // The event that stands under the agent's name; null when there is none.
    Orv::Ptr<EventConfig> event(const Orv::String& agent) const;
    void eventIs(Orv::String agent, Orv::Ptr<EventConfig> event);
    void eventDel(Orv::String agent) { event_.del(agent); }

    Orv::Ptr<AutoCompleteSm> autoCompleteSmIs(Orv::Ptr<EventConfig> event, Orv::Ptr<LogSm> logSm,
                                              Orv::String instanceName,
                                              Orv::Ptr<AgentStatusLocal> agentStatusLocal);
    void autoCompleteSmDel(Orv::String agent) { autoCompleteSm_.del(agent); }

    // Whether it counts as complete in this instance, by itself or by the record.
    bool eventComplete(const EventConfig& event) const;
    void maybeAddAutoCompleteSm(Orv::Ptr<EventConfig> event);
    // No stage moves on while the system goes down.
    bool rebootRequested() const;

    void handleInitialized();
    void handleEvent(Orv::String agent);
    void handleEvent();
    void handleEventDel(Orv::String agent);
    void handlePendingEvent();
    void handlePendingEvent(Orv::String name);
    void handleCompleteLocal();
    void handleCompleteLocal(AgentStatusKey key);
    void handleStageUncompleted();

    void notificationActiveIs(bool active) override;

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvStage final : public Orv::Watch<StageStatus, StageSm> {
      public:
        using Watch::Watch;
        void onEvent(Orv::String agent) override { sm().handleEvent(agent); }
    };

    class OrvAgentStatusLocal final : public AgentStatusLocal::SubscriberConst {
      public:
        OrvAgentStatusLocal(StageSm& sm, Orv::Ptr<const AgentStatusLocal> record)
            : SubscriberConst(std::move(record), sm.stageName(), sm.instanceName()), sm_(sm) {}
        void onComplete(AgentStatusKey key) override { sm_.handleCompleteLocal(std::move(key)); }
        void onComplete(Orv::Immediate) override { sm_.handleCompleteLocal(); }

      private:
        StageSm& sm_;
    };

    class OrvStageUncompleted final : public Orv::TimerOf<StageSm> {
      public:
        using TimerOf::TimerOf;
        void onTime() override { sm().handleStageUncompleted(); }
    };

    // One event of the stage, as this instance sees it.
    class OrvEvent final : public Orv::Reactor {
      public:
        OrvEvent(Orv::Ptr<EventConfig> eventConfig, Orv::String key, StageSm* stageSm);

        const EventConfig* entity() const { return eventConfig_.get(); }
        const Orv::Ptr<EventConfig>& eventConfig() const { return eventConfig_.ptr(); }

        void handleComplete();
        void handleComplete(Orv::String instance);

        void notificationActiveIs(bool active) override { eventConfig_.activeIs(active); }

      private:
        class OrvEventConfig final : public Orv::Watch<EventConfig, OrvEvent> {
          public:
            using Watch::Watch;
            void onComplete(Orv::String instance) override { sm().handleComplete(instance); }
        };

        void dismantle() override {
            eventConfig_.disconnect();
            stageSm_ = nullptr;
        }
        bool unwanted() const override {
            return stood_ && stoodChanges_ != stageSm_->stage()->eventChanges() && !stands();
        }
        bool stands() const;

        Orv::String key_;
        StageSm* stageSm_;
        bool stood_ = false;  // in the stage, when this was made
        std::uint32_t stoodChanges_ = 0;
        Orv::WatchSlot<OrvEventConfig, EventConfig> eventConfig_;
    };

    friend void handleEventStart(StageSm& stageSm, Orv::Ptr<EventConfig> event);
    friend void handleEventComplete(StageSm& stageSm, Orv::Ptr<EventConfig> event);

    void dismantle() override;
    void logIs(LogText line);
    // Lets the stages that depend on this one know, as soon as it is complete and has been stored.
    void countedUpdate();
    void completeIs(bool complete);
    void timedOutIs(bool timedOut);
    void completionTimeIs(double seconds);

    Orv::String instanceName_;
    Orv::Ptr<LogSm> logSm_;
    InstanceStatusSm* mainSm_;
    bool complete_ = false;
    bool counted_ = false;  // as complete, with the stages that depend on it
    bool timedOut_ = false;
    bool initialized_ = false;
    double completionTime_ = 0.0;
    Orv::Children<Orv::String, AutoCompleteSm> autoCompleteSm_;
    Orv::OrderedMap<Orv::String, Orv::Ptr<const EventConfig>> pendingEvent_;
    Orv::Children<Orv::String, OrvEvent> event_;
    std::size_t eventsJoined_ = 0;
    std::uint32_t eventsSeen_ = 0;  // of the stage's changes of its events
    Orv::TimerSlot<OrvStageUncompleted> stageUncompleted_{*this};
    Orv::WatchSlot<OrvAgentStatusLocal, AgentStatusLocal> agentStatusLocal_;
    Orv::WatchSlot<OrvStage, const StageStatus> stage_;
};

// The event began, or began again, in the stage's instance.
void handleEventStart(StageSm& stageSm, Orv::Ptr<EventConfig> event);
// The event was completed, by whatever way: it is retired from the stage.
void handleEventComplete(StageSm& stageSm, Orv::Ptr<EventConfig> event);

ORV_API Orv::Ptr<StageSm> stageSmFactory(Orv::Ptr<const StageStatus> stage,
                                         Orv::String instanceName, Orv::Ptr<LogSm> logSm,
                                         Orv::Ptr<AgentStatusLocal> agentStatusLocal,
                                         InstanceStatusSm* mainSm);

}  // namespace Stage
