#include "StageMgr/AvailablePaths.h"

namespace Stage {

const Orv::TypeInfo& AvailablePaths::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AvailablePaths>("Stage::AvailablePaths")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<AvailablePaths>(name);
            })
            .collection(
                "path", [](const AvailablePaths& a) -> const auto& { return a.path_.map(); },
                &AvailablePaths::pathIs, &AvailablePaths::pathDel)
            .done();
    return info;
}

}  // namespace Stage
