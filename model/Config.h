// What holds for a whole stage class.
#pragma once

#include "model/FatalError.h"
#include "runtime/Dir.h"
#include "runtime/Entity.h"

namespace Stage {

// One per stage class; written by the operator, read by the manager.
class ORV_API Config final : public Orv::Notifier<Config> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<Config> {
      public:
        virtual void onStageClass() {}
        virtual void onApplication() {}
        virtual void onAgentDir() {}
        virtual void onStageTimeoutIsFatal() {}
        virtual void onContinueOnTimeout() {}
        virtual void onGlobalStageCompletionTimeout() {}
        virtual void onResetMode() {}
        virtual void onReloadCauseDesc() {}
    };

    explicit Config(Orv::Name name = {}) : Notifier(std::move(name)) {}

    // The class that this configuration describes. Entries of the do-not-start list that name
    // another class are not for it; the class "switchover" has a watchdog.
    const Orv::String& stageClass() const { return stageClass_; }
    void stageClassIs(Orv::String stageClass) {
        if (Orv::assign(stageClass_, std::move(stageClass)))
            changed("stageClass", [](auto& n) { n.onStageClass(); });
    }

    // What operators call it: the first word of "stages started" and of the operator messages.
    const Orv::String& application() const { return application_; }
    void applicationIs(Orv::String application) {
        if (Orv::assign(application_, std::move(application)))
            changed("application", [](auto& n) { n.onApplication(); });
    }

    // The directory of the class's AgentConfig entries; may be null, for the manager is given it
    // directly.
    const Orv::Ptr<Orv::Dir>& agentDir() const { return agentDir_; }
    void agentDirIs(Orv::Ptr<Orv::Dir> agentDir) {
        if (Orv::assign(agentDir_, std::move(agentDir)))
            changed("agentDir", [](auto& n) { n.onAgentDir(); });
    }

    // Whether a critical stage that times out asks for a reboot.
    bool stageTimeoutIsFatal() const { return stageTimeoutIsFatal_; }
    void stageTimeoutIsFatalIs(bool fatal) {
        if (Orv::assign(stageTimeoutIsFatal_, fatal))
            changed("stageTimeoutIsFatal", [](auto& n) { n.onStageTimeoutIsFatal(); });
    }

    // Whether a critical stage that times out is passed over, as any other is.
    bool continueOnTimeout() const { return continueOnTimeout_; }
    void continueOnTimeoutIs(bool goesOn) {
        if (Orv::assign(continueOnTimeout_, goesOn))
            changed("continueOnTimeout", [](auto& n) { n.onContinueOnTimeout(); });
    }

    // Seconds from an instance's start to its end. Exactly 0.0 means no deadline.
    double globalStageCompletionTimeout() const { return globalStageCompletionTimeout_; }
    void globalStageCompletionTimeoutIs(double seconds) {
        if (Orv::assign(globalStageCompletionTimeout_, seconds))
            changed("globalStageCompletionTimeout",
                    [](auto& n) { n.onGlobalStageCompletionTimeout(); });
    }

    // The mode to request when the manager asks for a reboot.
    FatalError::ResetMode resetMode() const { return resetMode_; }
    void resetModeIs(FatalError::ResetMode mode) {
        if (Orv::assign(resetMode_, mode)) changed("resetMode", [](auto& n) { n.onResetMode(); });
    }

    // A sentence that ends with a full stop, for the reboot request.
    const Orv::String& reloadCauseDesc() const { return reloadCauseDesc_; }
    void reloadCauseDescIs(Orv::String description) {
        if (Orv::assign(reloadCauseDesc_, std::move(description)))
            changed("reloadCauseDesc", [](auto& n) { n.onReloadCauseDesc(); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::String stageClass_;
    Orv::String application_;
    Orv::Ptr<Orv::Dir> agentDir_;
    bool stageTimeoutIsFatal_ = false;
    bool continueOnTimeout_ = false;
    double globalStageCompletionTimeout_ = 0.0;
    FatalError::ResetMode resetMode_ = FatalError::ResetMode::none;
    Orv::String reloadCauseDesc_;
};

}  // namespace Stage
