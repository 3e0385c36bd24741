#include "StageMgr/ReadyStages.h"

#include <algorithm>
#include <new>

#include "StageMgr/InstanceStatusSm.h"

namespace Stage {

void ReadyStages::open(Orv::Ptr<const Status> status, Orv::Ptr<InstanceStatus> instanceStatus) {
    close();
    if (!status || !instanceStatus) return;
    status_ = std::move(status);
    instanceStatus_ = std::move(instanceStatus);
    try {
        instanceStatus_->indexIs(*this);
        status_->indexIs(*this);
    } catch (const std::bad_alloc&) {
        failed_ = true;
    }
    fill();
}

void ReadyStages::close() {
    if (!status_) return;
    status_->indexDel(*this);
    instanceStatus_->indexDel(*this);
    status_ = nullptr;
    instanceStatus_ = nullptr;
}

void ReadyStages::fill() noexcept try {
    inactive_ = criticalInactive_ = activeIncomplete_ = completeInactive_ = 0;
    stages_.clear();
    readyCritical_.clear();
    readyOther_.clear();
    for (const auto& [name, reactor] : instance_.stageSm().map())
        if (reactor->complete() && !instanceStatus_->activeStage().contains(name))
            ++completeInactive_;
    for (const auto& [name, stage] : status_->stage()) add(*stage);
} catch (const std::bad_alloc&) {
    failed_ = true;
}

void ReadyStages::add(StageStatus& stage) {
    const std::size_t end = std::size_t{stage.place()} + 1;
    Orv::assertThat(stages_.size() < end, "a stage joins behind all others");
    stages_.resize(end);
    readyCritical_.roomFor(end);
    readyOther_.roomFor(end);
    Part part;
    part.stage = &stage;
    part.critical = stage.critical();
    part.active = instanceStatus_->activeStage().contains(stage.key());
    part.complete = instance_.stageComplete(stage.key());
    for (const auto& [dependency, depends] : stage.dependency())
        if (!instance_.stageComplete(dependency)) ++part.waiting;
    change(stage, [&](Part& held) { held = part; });
}

void ReadyStages::stageStored(StageStatus& stage, bool present) noexcept try {
    if (failed_) return;
    if (present)
        add(stage);
    else
        change(stage, [](Part& part) { part = Part(); });
} catch (const std::bad_alloc&) {
    failed_ = true;
}

void ReadyStages::placesStored() noexcept {
    ++renumberings_;
    if (!failed_) fill();
}

void ReadyStages::dependencyStored(StageStatus& stage, const Orv::String& dependency,
                                   bool present) noexcept {
    if (failed_ || instance_.stageComplete(dependency)) return;
    change(stage, [&](Part& part) { present ? ++part.waiting : --part.waiting; });
}

void ReadyStages::criticalStored(StageStatus& stage) noexcept {
    if (!failed_) change(stage, [&](Part& part) { part.critical = stage.critical(); });
}

void ReadyStages::activeStageStored(const StageStatus& stage, bool present) noexcept {
    if (instance_.stageComplete(stage.key())) present ? --completeInactive_ : ++completeInactive_;
    if (failed_) return;
    if (const StageStatus* const held = member(stage))
        change(*held, [&](Part& part) { part.active = present; });
}

void ReadyStages::completeIs(const StageStatus& stage, bool complete) noexcept {
    if (!status_) return;
    const Orv::Name& name = stage.key();
    const StageStatus* const held = failed_ ? nullptr : member(stage);
    const bool active = held != nullptr ? stages_[held->place()].active
                                        : instanceStatus_->activeStage().contains(name);
    if (!active) complete ? ++completeInactive_ : --completeInactive_;
    if (failed_) return;
    // One reactor may have taken the place of another.
    if (held != nullptr)
        change(*held,
               [&](Part& part) { part.complete = complete || instance_.stageComplete(name); });
    status_->eachDependent(name, [&](const StageStatus& dependent) {
        change(dependent, [&](Part& part) { complete ? --part.waiting : ++part.waiting; });
    });
}

const StageStatus* ReadyStages::member(const StageStatus& stage) const {
    return contains(stage) ? &stage : status_->stage(stage.key()).get();
}

template <class Alter>
void ReadyStages::change(const StageStatus& stage, Alter&& alter) noexcept {
    Part& part = stages_[stage.place()];
    count(part, std::size_t(-1));
    alter(part);
    count(part, 1);
    const bool ready = part.ready();
    readyCritical_.is(stage.place(), ready && part.critical);
    readyOther_.is(stage.place(), ready && !part.critical);
}

void ReadyStages::count(const Part& part, std::size_t step) noexcept {
    if (part.stage == nullptr) return;
    if (!part.active) {
        inactive_ += step;
        if (part.critical) criticalInactive_ += step;
    } else if (!part.complete) {
        activeIncomplete_ += step;
    }
}

StageStatus* ReadyStages::next(std::uint32_t from, bool criticalOnly) const {
    std::uint32_t place = readyCritical_.next(from);
    if (!criticalOnly) place = std::min(place, readyOther_.next(from));
    return place == PlaceSet::none ? nullptr : stages_[place].stage;
}

}  // namespace Stage
