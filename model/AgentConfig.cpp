#include "model/AgentConfig.h"

namespace Stage {

const Orv::TypeInfo& AgentConfig::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AgentConfig>("Stage::AgentConfig")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<AgentConfig>(name);
            })
            .instantiating(
                "event", [](const AgentConfig& a) -> const auto& { return a.event_; },
                [](AgentConfig& a, Orv::Name stage) { a.eventIs(stage, a.key()); },
                &AgentConfig::eventDel)
            .scalar("createdOnStageRequest", &AgentConfig::createdOnStageRequest_,
                    &AgentConfig::createdOnStageRequestIs)
            .done();
    return info;
}

}  // namespace Stage
