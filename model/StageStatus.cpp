#include "model/StageStatus.h"

#include "runtime/Error.h"

namespace Stage {

const Orv::TypeInfo& StageStatus::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageStatus>("Stage::StageStatus")
            .collection(
                "event", [](const StageStatus& s) -> const auto& { return s.event_.map(); },
                [](StageStatus& s, Orv::String agent, Orv::Ptr<EventConfig> event) {
                    if (!event || event->agent() != agent)
                        throw Orv::ReflectionError(
                            "attribute \"event\": the value must be an event whose agent is the "
                            "key");
                    s.eventIs(std::move(event));
                },
                &StageStatus::eventDel)
            .collection(
                "dependency",
                [](const StageStatus& s) -> const auto& { return s.dependency_.map(); },
                &StageStatus::dependencyIs, &StageStatus::dependencyDel)
            .scalar("timeout", &StageStatus::timeout_, &StageStatus::timeoutIs)
            .scalar("critical", &StageStatus::critical_, &StageStatus::criticalIs)
            .done();
    return info;
}

}  // namespace Stage
