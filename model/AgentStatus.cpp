#include "model/AgentStatus.h"

namespace Stage {

const Orv::TypeInfo& AgentStatus::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AgentStatus>("Stage::AgentStatus")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<AgentStatus>(name);
            })
            .collection(
                "complete", [](const AgentStatus& a) -> const auto& { return a.complete_.map(); },
                &AgentStatus::completeIs, &AgentStatus::completeDel)
            .collection(
                "stageRequest",
                [](const AgentStatus& a) -> const auto& { return a.stageRequest_.map(); },
                &AgentStatus::stageRequestIs, &AgentStatus::stageRequestDel)
            .done();
    return info;
}

}  // namespace Stage
