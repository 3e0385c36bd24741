#include "model/EventConfig.h"

namespace Stage {

const Orv::TypeInfo& EventConfig::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<EventConfig>("Stage::EventConfig")
            .scalar("name", &EventConfig::name_, &EventConfig::nameIs)
            .scalar("stage", &EventConfig::stage_, &EventConfig::stageIs)
            .scalar("agent", &EventConfig::agent_, &EventConfig::agentIs)
            .collection(
                "complete", [](const EventConfig& e) -> const auto& { return e.complete_.map(); },
                &EventConfig::completeIs, &EventConfig::completeDel)
            .collection(
                "error", [](const EventConfig& e) -> const auto& { return e.error_.map(); },
                &EventConfig::errorIs, &EventConfig::errorDel)
            .collection(
                "dependency",
                [](const EventConfig& e) -> const auto& { return e.dependency_.map(); },
                &EventConfig::dependencyIs, &EventConfig::dependencyDel)
            .scalar("timeout", &EventConfig::timeout_, &EventConfig::timeoutIs)
            .scalar("critical", &EventConfig::critical_, &EventConfig::criticalIs)
            .scalar("autoCompleteTimeout", &EventConfig::autoCompleteTimeout_,
                    &EventConfig::autoCompleteTimeoutIs)
            .scalar("enableAutoComplete", &EventConfig::enableAutoComplete_,
                    &EventConfig::enableAutoCompleteIs)
            .scalar("completeNotRunnable", &EventConfig::completeNotRunnable_,
                    &EventConfig::completeNotRunnableIs)
            .done();
    return info;
}

}  // namespace Stage
