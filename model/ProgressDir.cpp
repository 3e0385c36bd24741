#include "model/ProgressDir.h"

namespace Stage {

const Orv::TypeInfo& ProgressDir::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<ProgressDir>("Stage::ProgressDir")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<ProgressDir>(name);
            })
            .instantiating(
                "progress", [](const ProgressDir& d) -> const auto& { return d.progress_; },
                [](ProgressDir& d, Orv::Name instance) { d.progressIs(instance); },
                &ProgressDir::progressDel)
            .done();
    return info;
}

}  // namespace Stage
