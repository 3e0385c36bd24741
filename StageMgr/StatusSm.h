// The status side of a stage class: which instances exist.
#pragma once

#include "StageMgr/InstanceStatusSm.h"
#include "model/CompletionStatusDir.h"
#include "model/ProgressDir.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

// A StageMgr owns one. An instance exists exactly while its name is enabled: enabling makes its
// records and its InstanceStatusSm, disabling deletes all of them, its log included.
class ORV_API StatusSm final : public Orv::Reactor {
  public:
    StatusSm(Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
             Orv::Ptr<Status> status, Orv::Ptr<CompletionStatusDir> completionStatusDir,
             Orv::Ptr<ProgressDir> progressDir, Orv::Ptr<Log> log,
             Orv::Ptr<const StageGlobalConfig> stageGlobalConfig,
             Orv::Ptr<FatalError> fatalErrorRequest, Orv::Ptr<AgentStatusLocal> agentStatusLocal,
             const Orv::Owner* owner = nullptr);

    auto arguments() const {
        return std::tuple(config_, enabledConfig_.ptr(), status_, completionStatusDir_,
                          progressDir_, log_, stageGlobalConfig_, fatalErrorRequest_,
                          agentStatusLocal_);
    }
    static constexpr std::array<const char*, 9> argumentNames{"config",
                                                              "enabledConfig",
                                                              "status",
                                                              "completionStatusDir",
                                                              "progressDir",
                                                              "log",
                                                              "stageGlobalConfig",
                                                              "fatalErrorRequest",
                                                              "agentStatusLocal"};

    bool initialized() const { return initialized_; }
    const Orv::Children<Orv::Name, InstanceStatusSm>& instStatusSm() const { return instStatusSm_; }

    // Watches another entity instead; what is there is looked at at once.
    void enabledConfigIs(Orv::Ptr<const EnabledConfig> enabledConfig);

    // Under the instance's name. Refused with NameInUseError when one exists with other arguments.
    Orv::Ptr<InstanceStatusSm> instStatusSmIs(
        Orv::Ptr<const Config> config, Orv::Ptr<const EnabledConfig> enabledConfig,
        Orv::Ptr<Status> status, Orv::Ptr<CompletionStatus> completionStatus,
        Orv::Ptr<Progress> progress, Orv::Ptr<Log> log,
        Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest,
        Orv::Ptr<InstanceStatus> instanceStatus, Orv::Ptr<AgentStatusLocal> agentStatusLocal);
    void instStatusSmDel(Orv::Name instance) { instStatusSm_.del(instance); }

    void handleInitialized();
    void handleEnabled(Orv::String name);
    void handleEnabled();

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvEnabledConfig final : public Orv::Watch<EnabledConfig, StatusSm> {
      public:
        using Watch::Watch;
        void onEnabled(Orv::String name) override { sm().handleEnabled(name); }
        void onEnabled(Orv::Immediate) override { sm().handleEnabled(); }
    };

    void dismantle() override;
    bool isEnabled(const Orv::String& name) const;
    void handleEnabledNames();
    void instanceIs(const Orv::String& name);
    void instanceDel(const Orv::String& name);

    Orv::Ptr<const Config> config_;
    Orv::Ptr<Status> status_;
    Orv::Ptr<CompletionStatusDir> completionStatusDir_;
    Orv::Ptr<ProgressDir> progressDir_;
    Orv::Ptr<Log> log_;
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig_;
    Orv::Ptr<FatalError> fatalErrorRequest_;
    Orv::Ptr<AgentStatusLocal> agentStatusLocal_;
    Orv::Children<Orv::Name, InstanceStatusSm> instStatusSm_;
    Orv::OrderedMap<Orv::Name, bool> going_;  // instances that are being deleted
    bool initialized_ = false;
    Orv::WatchSlot<OrvEnabledConfig, const EnabledConfig> enabledConfig_;
};

}  // namespace Stage
