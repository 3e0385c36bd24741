#include "StageMgr/StageEnableSm.h"

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/TraceUnit.h"

namespace Stage {

StageEnableSm::StageEnableSm(Orv::Ptr<const StageStatus> stage, InstanceStatusSm* mainSm)
    : Reactor(mainSm), mainSm_(mainSm) {
    stage_.is(*this, std::move(stage));
    stage_.activeIs(false);
}

void StageEnableSm::stageIs(Orv::Ptr<const StageStatus> stage) {
    stage_.is(*this, std::move(stage));
}

void StageEnableSm::handleCritical() {
    TRACE(8, " stage ", stage_->key());
    // Only this direction, on purpose: a stage that becomes critical can hold others back, and one
    // that ceases to be is noticed by the pass that some other change asks for.
    if (stage_->critical() && mainSm_ != nullptr) mainSm_->doNextStage();
}

void StageEnableSm::handleDependencyDel(Orv::String name) {
    TRACE(8, " stage ", stage_->key(), " dependency ", name);
    const auto& dependency = stage_->dependency();
    // An addition or a change cannot make the stage more ready.
    if (mainSm_ == nullptr || dependency.contains(name)) return;
    const ReadyStages& ready = mainSm_->readyStages();
    if (ready.usable() && ready.contains(*stage_.get())) {
        if (!ready.dependenciesComplete(*stage_.get())) return;
    } else {
        for (const auto& [remaining, depends] : dependency)
            if (!mainSm_->stageComplete(remaining)) return;
    }
    mainSm_->doNextStage();
}

const Orv::TypeInfo& StageEnableSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageEnableSm>("Stage::StageEnableSm")
            .scalar("stage", &StageEnableSm::stage)
            .detail()
            .scalar("mainSm",
                    [](const StageEnableSm& s) { return Orv::Ptr<InstanceStatusSm>(s.mainSm_); })
            .detail()
            .done();
    return info;
}

}  // namespace Stage
