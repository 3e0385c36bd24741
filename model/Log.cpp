#include "model/Log.h"

namespace Stage {

const Orv::TypeInfo& Log::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<Log>("Stage::Log")
            .entry(
                [](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> { return Orv::make<Log>(name); })
            .instantiating(
                "instanceLog", [](const Log& d) -> const auto& { return d.instanceLog_; },
                [](Log& d, Orv::Name instance) { d.instanceLogIs(instance); }, &Log::instanceLogDel)
            .done();
    return info;
}

}  // namespace Stage
