#include "model/Status.h"

#include <new>

namespace Stage {

Status::~Status() {
    for (const auto& [name, stage] : stage_) stage->holderIs(nullptr);
    orphan(stage_);
    orphan(instStatus_);
}

Orv::Ptr<StageStatus> Status::stageIs(Orv::Name stage) {
    return memberIs(
        stage_, "stage", stage, [&] { return Orv::make<StageStatus>(stage); },
        [&](auto& n) { n.onStage(stage); }, [this](StageStatus& s) { stageStored(s); });
}

void Status::stageDel(Orv::Name stage) {
    memberDel(
        stage_, "stage", stage, [&](auto& n) { n.onStage(stage); },
        [this](StageStatus& s) { stageGone(s); });
}

void Status::stageStored(StageStatus& stage) noexcept {
    if (places_ > 2 * stage_.size() + 64) {
        places_ = 0;
        for (const auto& [name, member] : stage_) member->holderIs(this, places_++);
        for (Index* const index : indexes_) index->placesStored();
        return;
    }
    stage.holderIs(this, places_++);
    for (Index* const index : indexes_) index->stageStored(stage, true);
}

void Status::stageGone(StageStatus& stage) noexcept {
    stage.holderIs(nullptr, stage.place());
    for (const auto& [dependency, depends] : stage.dependency())
        dependentIs(stage, dependency, false);
    for (const auto& [agent, event] : stage.event()) agentStored(agent, false);
    for (Index* const index : indexes_) index->stageStored(stage, false);
}

void Status::agentStored(const Orv::String& agent, bool present) noexcept try {
    if (!indexed_) return;
    std::size_t* const held = agentStages_.find(agent);
    if (present && held == nullptr)
        agentStages_.set(agent, 1);
    else if (present)
        ++*held;
    else if (--*held == 0)
        agentStages_.del(agent);
} catch (const std::bad_alloc&) {
    indexed_ = false;
}

void Status::dependencyStored(StageStatus& stage, const Orv::String& dependency,
                              bool present) noexcept {
    ++dependencyChanges_;
    try {
        dependentIs(stage, dependency, present);
    } catch (const std::bad_alloc&) {
        indexed_ = false;
    }
    for (Index* const index : indexes_) index->dependencyStored(stage, dependency, present);
}

void Status::dependentIs(StageStatus& stage, const Orv::String& dependency, bool present) {
    if (!indexed_) return;
    Dependents* held = dependents_.find(dependency);
    if (present) {
        if (held == nullptr) {
            dependents_.set(dependency, {});
            held = dependents_.find(dependency);
        }
        held->add(stage);
        return;
    }
    held->remove(stage);
    if (held->empty()) dependents_.del(dependency);
}

void Status::criticalStored(StageStatus& stage) noexcept {
    for (Index* const index : indexes_) index->criticalStored(stage);
}

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
