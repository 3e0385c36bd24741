// Watches one stage of one instance until it starts.
#pragma once

#include "model/StageStatus.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

class InstanceStatusSm;

// An InstanceStatusSm owns one per stage that has not started; a StageSm takes its place. It asks
// for a pass when a change of the stage may let it, or another, start.
class ORV_API StageEnableSm final : public Orv::Reactor {
  public:
    StageEnableSm(Orv::Ptr<const StageStatus> stage, InstanceStatusSm* mainSm);

    const Orv::Ptr<const StageStatus>& stage() const { return stage_.ptr(); }
    // Watches another stage instead.
    void stageIs(Orv::Ptr<const StageStatus> stage);
    InstanceStatusSm* mainSm() const { return mainSm_; }

    void handleCritical();
    // Entered for every change of the stage's dependencies.
    void handleDependencyDel(Orv::String name);

    void notificationActiveIs(bool active) override { stage_.activeIs(active); }

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvStage final : public Orv::Watch<StageStatus, StageEnableSm> {
      public:
        using Watch::Watch;
        void onCritical() override { sm().handleCritical(); }
        void onDependency(Orv::String name) override { sm().handleDependencyDel(name); }
    };

    void dismantle() override {
        stage_.disconnect();
        mainSm_ = nullptr;
    }

    InstanceStatusSm* mainSm_;
    Orv::WatchSlot<OrvStage, const StageStatus> stage_;
};

}  // namespace Stage
