// The configuration side of a stage class: turns agents' registrations into stages.
#pragma once

#include <deque>

#include "StageMgr/AgentStatusSm.h"
#include "model/AgentConfig.h"
#include "model/Config.h"
#include "model/Status.h"
#include "runtime/Dir.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

// A StageMgr owns one. An agent writes an AgentConfig into the agent directory, with an event for
// each stage that it takes part in; Status then has a StageStatus for each such stage, whose
// events, dependencies, criticality and time limit follow the agents' events.
class ORV_API ConfigSm final : public Orv::Reactor {
  public:
    class OrvAgentConfig;
    class OrvStageStatus;
    class OrvEventConfig;

    // agentDir holds AgentConfig entries, agentStatusDir AgentStatus entries, each under its
    // agent's name.
    ConfigSm(Orv::Ptr<const Config> config, Orv::Ptr<Status> status, Orv::Ptr<Orv::Dir> agentDir,
             Orv::Ptr<const Orv::Dir> agentStatusDir, Orv::Ptr<AgentStatusLocal> agentStatusLocal,
             const Orv::Owner* owner = nullptr);
    ~ConfigSm() override;

    auto arguments() const {
        return std::tuple(config_.ptr(), status_.ptr(), agentDir_.ptr(), agentStatusDir_.ptr(),
                          agentStatusLocal_);
    }
    static constexpr std::array<const char*, 5> argumentNames{"config", "status", "agentDir",
                                                              "agentStatusDir", "agentStatusLocal"};

    const Orv::Ptr<const Config>& config() const { return config_.ptr(); }
    // Watches another configuration instead, and hands its deadline to the watchdog.
    void notifierIs(Orv::Ptr<const Config> config);
    const Orv::Ptr<Status>& status() const { return status_.ptr(); }
    const Orv::Ptr<Orv::Dir>& agentDir() const { return agentDir_.ptr(); }
    bool initialized() const { return initialized_; }
    // While false, the handlers that need what the constructor sets up return at once.
    void initializedIs(bool initialized) { initialized_ = initialized; }
    const Orv::Children<Orv::Name, AgentStatusSm>& agentStatusSm() const { return agentStatusSm_; }
    // Borrowed; null when there is none.
    OrvAgentConfig* agentConfig(const Orv::Name& agent) const { return agentConfig_.find(agent); }
    OrvStageStatus* stageStatus(const Orv::Name& stage) const { return stageStatus_.find(stage); }

    // Each makes the nested reactor under its entity's name, keeps one on the same entity, and
    // replaces one on another. Null raises NullParameterError.
    void agentConfigIs(Orv::Ptr<AgentConfig> agentConfig);
    void agentConfigDel(Orv::Name agent) { agentConfig_.del(agent); }
    void stageStatusIs(Orv::Ptr<StageStatus> stageStatus);
    void stageStatusDel(Orv::Name stage) { stageStatus_.del(stage); }
    // Refused with NameInUseError when one exists with other arguments.
    Orv::Ptr<AgentStatusSm> agentStatusSmIs(Orv::Ptr<Orv::Dir> agentDir,
                                            Orv::Ptr<const AgentStatus> agentStatus,
                                            Orv::Ptr<AgentStatusLocal> agentStatusLocal);
    void agentStatusSmDel(Orv::Name agent) { agentStatusSm_.del(agent); }

    void handleInitialized();
    void handleAgent();
    void handleAgent(Orv::Name name);
    void handleAgentStatus();
    void handleAgentStatus(Orv::Name name);
    // A stage was added to Status or removed from it.
    void handleStage(Orv::Name stage);
    void handleStatus(Orv::Name stage);
    void handleStatus();
    void handleGlobalStageCompletionTimeout();

    void notificationActiveIs(bool active) override { config_.activeIs(active); }

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvConfig final : public Orv::Watch<Config, ConfigSm> {
      public:
        using Watch::Watch;
        void onGlobalStageCompletionTimeout() override {
            sm().handleGlobalStageCompletionTimeout();
        }
    };

    class OrvStatus final : public Orv::Watch<Status, ConfigSm> {
      public:
        using Watch::Watch;
        void onStage(Orv::Name stage) override { sm().handleStatus(stage); }
    };

    class OrvAgentDir final : public Orv::Watch<Orv::Dir, ConfigSm> {
      public:
        using Watch::Watch;
        void onEntityPtr(Orv::Name name) override { sm().handleAgent(name); }
    };

    class OrvAgentStatusDir final : public Orv::Watch<Orv::Dir, ConfigSm> {
      public:
        using Watch::Watch;
        void onEntityPtr(Orv::Name name) override { sm().handleAgentStatus(name); }
    };

    // One stage on the way of a change of criticality: the stages that it depends on are told one
    // after the other, each with all that follows from it before the next.
    struct CriticalityStep;
    struct SpreadingEnd;

    // Counts the stage reactors on stages that are none of the class: those that a host brought in,
    // and those whose stage has left but just now. The class's index does not know them.
    class Strangers final : private Status::Index {
      public:
        explicit Strangers(ConfigSm& configSm) : configSm_(configSm) {}
        ~Strangers() { open(nullptr); }
        Strangers(const Strangers&) = delete;
        Strangers& operator=(const Strangers&) = delete;

        bool open() const { return static_cast<bool>(status_); }
        // Follows the stages of that class; null for none.
        void open(Orv::Ptr<const Status> status) {
            if (status_) status_->indexDel(*this);
            if (status) status->indexIs(*this);
            status_ = std::move(status);
        }
        void is(OrvStageStatus& reactor) noexcept;
        std::size_t number = 0;

      private:
        void stageStored(StageStatus& stage, bool present) noexcept override;
        void placesStored() noexcept override {}
        void dependencyStored(StageStatus&, const Orv::String&, bool) noexcept override {}
        void criticalStored(StageStatus&) noexcept override {}

        ConfigSm& configSm_;
        Orv::Ptr<const Status> status_;
    };

    void dismantle() override;
    void stored(OrvStageStatus& reactor);
    bool dependentsKnown() const;
    Orv::Ptr<AgentConfig> agentConfigEntry(const Orv::Name& agent) const;
    Orv::Ptr<AgentStatus> agentStatusEntry(const Orv::Name& agent) const;
    void dropAgentEntry(const Orv::Name& agent);
    void pruneStageRequests(const Orv::Ptr<AgentConfig>& config, const AgentStatus& status);

    void spreadCriticality(const Orv::Ptr<OrvStageStatus>& from);

    Orv::Ptr<AgentStatusLocal> agentStatusLocal_;
    Orv::Children<Orv::Name, AgentStatusSm> agentStatusSm_;
    Orv::Children<Orv::Name, OrvAgentConfig> agentConfig_;
    Orv::Children<Orv::Name, OrvStageStatus> stageStatus_;
    Strangers strangers_{*this};
    std::deque<CriticalityStep> criticality_;
    bool tellingStage_ = false;
    bool initialized_ = false;
    Orv::WatchSlot<OrvAgentStatusDir, const Orv::Dir> agentStatusDir_;
    Orv::WatchSlot<OrvAgentDir, Orv::Dir> agentDir_;
    Orv::WatchSlot<OrvStatus, Status> status_;
    Orv::WatchSlot<OrvConfig, const Config> config_;
};

// One agent's registration: keeps the stages' events as the agent lists them.
class ORV_API ConfigSm::OrvAgentConfig final : public Orv::Reactor {
  public:
    OrvAgentConfig(Orv::Ptr<AgentConfig> agentConfig, ConfigSm* configSm);

    const AgentConfig* entity() const { return agentConfig_.get(); }
    Orv::Name agent() const { return agentConfig_->key(); }

    void handleEvent();
    void handleEvent(Orv::Name stage);
    // Takes the agent out of the stages that it has joined.
    void leaveStages();

    void notificationActiveIs(bool active) override { agentConfig_.activeIs(active); }

  private:
    class OrvEvents final : public Orv::Watch<AgentConfig, OrvAgentConfig> {
      public:
        using Watch::Watch;
        void onEvent(Orv::Name stage) override { sm().handleEvent(stage); }
    };

    void dismantle() override {
        agentConfig_.disconnect();
        configSm_ = nullptr;
    }
    std::size_t listedStages() const;

    ConfigSm* configSm_;
    Orv::OrderedMap<Orv::Name, bool> joined_;  // the stages that it was seen to list
    Orv::WatchSlot<OrvEvents, AgentConfig> agentConfig_;
};

// One stage: what its events make of it, and the criticality that it passes on.
//
// Criticality flows against the dependencies: from a critical stage to every stage that has to be
// complete before it.
class ORV_API ConfigSm::OrvStageStatus final : public Orv::Reactor {
  public:
    OrvStageStatus(Orv::Ptr<StageStatus> stageStatus, ConfigSm* configSm);

    const StageStatus* entity() const { return stageStatus_.get(); }
    const Orv::Ptr<StageStatus>& stageStatus() const { return stageStatus_.ptr(); }
    const Orv::Name& stage() const { return stageStatus_->key(); }

    // Per stage name: that stage is critical and depends on this one. Members are only ever true.
    const Orv::OrderedMap<Orv::String, bool>& criticalAncestor() const { return criticalAncestor_; }
    void criticalAncestorIs(Orv::String stage, bool value);
    void criticalAncestorDel(Orv::String stage);

    // Null raises NullParameterError.
    void eventConfigIs(Orv::Ptr<EventConfig> eventConfig);
    // Under the name under which it stands in the stage: its agent may have got another since.
    void eventConfigIs(Orv::Name agent, Orv::Ptr<EventConfig> eventConfig);
    void eventConfigDel(Orv::Name agent) { eventConfig_.del(agent); }

    void handleEvent();
    void handleEvent(Orv::String agent);
    // Takes the agent's event out of the stage.
    void handleEventDel(Orv::String agent);
    void handleDependency(Orv::String stage);
    // Drops the dependency unless some event still has it.
    void handleDependencyDel(Orv::String stage);
    void handleCritical();
    void handleCritical(Orv::String key);
    void handleTimeout();
    void handleStage(Orv::Name stage);

    void notificationActiveIs(bool active) override;

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    friend class ConfigSm;

    class OrvStage final : public Orv::Watch<StageStatus, OrvStageStatus> {
      public:
        using Watch::Watch;
        void onEvent(Orv::String agent) override { sm().handleEvent(agent); }
        void onDependency(Orv::String stage) override { sm().dependencyChanged(stage); }
    };

    void dismantle() override;
    bool unwanted() const override { return stageStatus_->left(); }
    void criticalUpdate();
    void tellCritical(const Orv::String& dependency);
    void ancestorIs(const Orv::String& ancestor, bool value);
    void ancestorDel(const Orv::String& ancestor);
    bool known(const Orv::String& dependency) const;
    void dependencyChanged(const Orv::String& dependency);
    bool allTold() const;
    void tellAnew();
    void tellAnew(const Orv::String& ancestor);

    // Every stage that this one depends on has been told what it is, as of that many changes of
    // `critical` and `dependency`.
    bool allTold_ = false;
    bool tellAnew_ = false;  // since a way began here
    bool stranger_ = false;
    std::uint32_t toldCritical_ = 0;
    std::uint32_t toldDependency_ = 0;
    ConfigSm* configSm_;
    Orv::OrderedMap<Orv::String, bool> criticalAncestor_;
    Orv::Children<Orv::Name, OrvEventConfig> eventConfig_;
    Orv::WatchSlot<OrvStage, StageStatus> stageStatus_;
};

// One agent's event within one stage.
class ORV_API ConfigSm::OrvEventConfig final : public Orv::Reactor {
  public:
    // agent: the name under which the event stands in the stage.
    OrvEventConfig(Orv::Ptr<EventConfig> eventConfig, Orv::Name agent, OrvStageStatus* stageStatus);

    const EventConfig* entity() const { return eventConfig_.get(); }

    void handleDependency();
    void handleDependency(Orv::String stage);
    void handleTimeout();
    void handleCritical();

    void notificationActiveIs(bool active) override { eventConfig_.activeIs(active); }

  private:
    class OrvEvent final : public Orv::Watch<EventConfig, OrvEventConfig> {
      public:
        using Watch::Watch;
        void onDependency(Orv::String stage) override { sm().handleDependency(stage); }
        void onTimeout() override { sm().handleTimeout(); }
        void onCritical() override { sm().handleCritical(); }
    };

    void dismantle() override {
        eventConfig_.disconnect();
        stageStatus_ = nullptr;
    }
    bool unwanted() const override {
        return stood_ && stoodChanges_ != stageStatus_->stageStatus()->eventChanges() && !stands();
    }
    bool stands() const;

    Orv::Name agent_;
    OrvStageStatus* stageStatus_;
    bool stood_ = false;  // in the stage, when this was made
    std::uint32_t stoodChanges_ = 0;
    Orv::WatchSlot<OrvEvent, EventConfig> eventConfig_;
};

ORV_API Orv::Ptr<ConfigSm> configSmFactory(Orv::Ptr<const Config> config, Orv::Ptr<Status> status,
                                           Orv::Ptr<Orv::Dir> agentDir,
                                           Orv::Ptr<const Orv::Dir> agentStatusDir,
                                           Orv::Ptr<AgentStatusLocal> agentStatusLocal,
                                           const Orv::Owner* owner = nullptr);

}  // namespace Stage
