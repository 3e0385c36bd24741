#include "model/InstanceStatus.h"

#include "runtime/Error.h"

namespace Stage {

const Orv::TypeInfo& InstanceStatus::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<InstanceStatus>("Stage::InstanceStatus")
            .collection(
                "activeStage",
                [](const InstanceStatus& i) -> const auto& { return i.activeStage_.map(); },
                [](InstanceStatus& i, Orv::Name name, Orv::Ptr<StageStatus> stage) {
                    if (!stage || stage->key() != name)
                        throw Orv::ReflectionError(
                            "attribute \"activeStage\": the value must be a stage whose name is "
                            "the "
                            "key");
                    i.activeStageIs(std::move(stage));
                },
                &InstanceStatus::activeStageDel)
            .scalar("progress", &InstanceStatus::progress_, &InstanceStatus::progressIs)
            .scalar("complete", &InstanceStatus::complete_, &InstanceStatus::completeIs)
            .scalar("suspended", &InstanceStatus::suspended_, &InstanceStatus::suspendedIs)
            .done();
    return info;
}

}  // namespace Stage
