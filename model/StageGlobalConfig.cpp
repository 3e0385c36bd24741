#include "model/StageGlobalConfig.h"

namespace Stage {

const Orv::TypeInfo& StageGlobalConfig::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageGlobalConfig>("Stage::StageGlobalConfig")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<StageGlobalConfig>(name);
            })
            .collection(
                "doNotStartStage",
                [](const StageGlobalConfig& s) -> const auto& { return s.doNotStartStage_.map(); },
                &StageGlobalConfig::doNotStartStageIs, &StageGlobalConfig::doNotStartStageDel)
            .done();
    return info;
}

}  // namespace Stage
