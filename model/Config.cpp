#include "model/Config.h"

namespace Stage {

const Orv::TypeInfo& Config::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<Config>("Stage::Config")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<Config>(name);
            })
            .scalar("stageClass", &Config::stageClass_, &Config::stageClassIs)
            .scalar("application", &Config::application_, &Config::applicationIs)
            .scalar("agentDir", &Config::agentDir_, &Config::agentDirIs)
            .scalar("stageTimeoutIsFatal", &Config::stageTimeoutIsFatal_,
                    &Config::stageTimeoutIsFatalIs)
            .scalar("continueOnTimeout", &Config::continueOnTimeout_, &Config::continueOnTimeoutIs)
            .scalar("globalStageCompletionTimeout", &Config::globalStageCompletionTimeout_,
                    &Config::globalStageCompletionTimeoutIs)
            .scalar("resetMode", &Config::resetMode_, &Config::resetModeIs)
            .scalar("reloadCauseDesc", &Config::reloadCauseDesc_, &Config::reloadCauseDescIs)
            .done();
    return info;
}

}  // namespace Stage
