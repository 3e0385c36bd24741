#include "model/CompletionStatusDir.h"

namespace Stage {

const Orv::TypeInfo& CompletionStatusDir::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<CompletionStatusDir>("Stage::CompletionStatusDir")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<CompletionStatusDir>(name);
            })
            .instantiating(
                "status", [](const CompletionStatusDir& d) -> const auto& { return d.status_; },
                [](CompletionStatusDir& d, Orv::Name instance) { d.statusIs(instance); },
                &CompletionStatusDir::statusDel)
            .done();
    return info;
}

}  // namespace Stage
