#include "model/EnabledConfig.h"

namespace Stage {

const Orv::TypeInfo& EnabledConfig::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<EnabledConfig>("Stage::EnabledConfig")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<EnabledConfig>(name);
            })
            .collection(
                "enabled", [](const EnabledConfig& e) -> const auto& { return e.enabled_.map(); },
                &EnabledConfig::enabledIs, &EnabledConfig::enabledDel)
            .collection(
                "suspended",
                [](const EnabledConfig& e) -> const auto& { return e.suspended_.map(); },
                &EnabledConfig::suspendedIs, &EnabledConfig::suspendedDel)
            .done();
    return info;
}

}  // namespace Stage
