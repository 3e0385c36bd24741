// The root of everything that is done for one stage class.
#pragma once

#include "StageMgr/ConfigSm.h"
#include "StageMgr/StatusSm.h"
#include "model/AgentStatusLocal.h"
#include "runtime/Entity.h"
#include "runtime/Reactor.h"

namespace Stage {

// An entity that is named after its class. It owns the class's configuration side and status side,
// and the record of completions that both share; that exists before either.
class ORV_API StageMgr final : public Orv::Notifier<StageMgr>, public Orv::Owner {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<StageMgr> {};

    explicit StageMgr(Orv::Name name);

    Orv::Name name() const override { return name_; }
    void nameIsFromBackup(Orv::Name name) override;
    bool initialized() const { return initialized_; }

    // Null until wired.
    const Orv::Ptr<ConfigSm>& configSm() const { return configSm_.ptr(); }
    const Orv::Ptr<StatusSm>& statusSm() const { return statusSm_.ptr(); }
    const Orv::Ptr<AgentStatusLocal>& agentStatusLocal() const { return agentStatusLocal_; }

    // Each keeps the reactor that has these arguments already, and replaces one that differs.
    Orv::Ptr<ConfigSm> configSmIs(Orv::Ptr<const Config> config, Orv::Ptr<Status> status,
                                  Orv::Ptr<Orv::Dir> agentDir,
                                  Orv::Ptr<const Orv::Dir> agentStatusDir,
                                  Orv::Ptr<AgentStatusLocal> agentStatusLocal);
    void configSmDel() { configSm_.del(); }
    Orv::Ptr<StatusSm> statusSmIs(Orv::Ptr<const Config> config,
                                  Orv::Ptr<const EnabledConfig> enabledConfig,
                                  Orv::Ptr<Status> status,
                                  Orv::Ptr<CompletionStatusDir> completionStatusDir,
                                  Orv::Ptr<ProgressDir> progressDir, Orv::Ptr<Log> log,
                                  Orv::Ptr<const StageGlobalConfig> stageGlobalConfig,
                                  Orv::Ptr<FatalError> fatalErrorRequest,
                                  Orv::Ptr<AgentStatusLocal> agentStatusLocal);
    void statusSmDel() { statusSm_.del(); }
    // Makes a new, empty one.
    void agentStatusLocalIs();
    void agentStatusLocalDel();

    void handleInitialized();

    // As a reactor's: see Orv::Reactor.
    void retire();
    void keptBy(const Orv::Owner& /*owner*/) {}
    void notificationActiveIs(bool /*active*/) {}

    static const Orv::TypeInfo& type();

  private:
    void lastReferenceGone() override { retire(); }

    Orv::Name name_;
    Orv::SingleChild<ConfigSm> configSm_;
    Orv::SingleChild<StatusSm> statusSm_;
    Orv::Ptr<AgentStatusLocal> agentStatusLocal_;
    bool initialized_ = false;
};

ORV_API Orv::Ptr<StageMgr> stageMgrFactory(Orv::Name name);

}  // namespace Stage
