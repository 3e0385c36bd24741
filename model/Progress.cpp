#include "model/Progress.h"

namespace Stage {

const Orv::TypeInfo& Progress::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<Progress>("Stage::Progress")
            .collection(
                "stage", [](const Progress& p) -> const auto& { return p.stage_.map(); },
                &Progress::stageIs, &Progress::stageDel)
            .done();
    return info;
}

}  // namespace Stage
