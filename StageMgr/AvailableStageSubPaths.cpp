#include "StageMgr/AvailableStageSubPaths.h"

namespace Stage {

const Orv::TypeInfo& AvailableStageSubPaths::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AvailableStageSubPaths>("Stage::AvailableStageSubPaths")
            .collection(
                "stageSubPath", [](const AvailableStageSubPaths& a) -> const auto& {
                    return a.stageSubPath_.map();
                },
                &AvailableStageSubPaths::stageSubPathIs, &AvailableStageSubPaths::stageSubPathDel)
            .done();
    return info;
}

}  // namespace Stage
