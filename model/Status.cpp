#include "model/Status.h"

namespace Stage {

const Orv::TypeInfo& Status::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<Status>("Stage::Status")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<Status>(name);
            })
            .instantiating(
                "stage", [](const Status& s) -> const auto& { return s.stage_; },
                [](Status& s, Orv::Name stage) { s.stageIs(stage); }, &Status::stageDel)
            .instantiating(
                "instStatus", [](const Status& s) -> const auto& { return s.instStatus_; },
                [](Status& s, Orv::Name instance) { s.instStatusIs(instance); },
                &Status::instStatusDel)
            .scalar("sorted", &Status::sorted_, &Status::sortedIs)
            .detail()
            .done();
    return info;
}

}  // namespace Stage
