// How far an instance has come.
#pragma once

#include <vector>

#include "model/Progress.h"
#include "model/StageStatus.h"
#include "runtime/Entity.h"

namespace Stage {

// A member of Status; written by the manager.
class ORV_API InstanceStatus final : public Orv::Notifier<InstanceStatus> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<InstanceStatus> {
      public:
        virtual void onActiveStage(Orv::Name /*stage*/) {}
        virtual void onActiveStage() {}
        virtual void onActiveStage(Orv::Immediate) {}
        virtual void onProgress() {}
        virtual void onComplete() {}
        virtual void onSuspended() {}
    };

    // An index over the started stages: it is told while a change is stored, before anybody else.
    class Index {
      public:
        // The stage was added to `activeStage` or removed from it.
        virtual void activeStageStored(const StageStatus& stage, bool present) noexcept = 0;

      protected:
        ~Index() = default;
    };

    explicit InstanceStatus(Orv::Name instance) : Notifier(std::move(instance)) {}

    // Per stage name: the stages that have started. The manager removes none.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<StageStatus>>& activeStage() const {
        return activeStage_.map();
    }
    Orv::Ptr<StageStatus> activeStage(const Orv::Name& stage) const {
        return activeStage().value(stage);
    }
    // Puts it under its own name.
    void activeStageIs(Orv::Ptr<StageStatus> stage) {
        const Orv::Name name = stage->key();
        const std::size_t before = activeStage().size();
        if (!activeStage_.set(name, stage)) return;
        if (activeStage().size() != before)
            for (Index* const index : indexes_) index->activeStageStored(*stage, true);
        changed("activeStage", name, [&](auto& n) { n.onActiveStage(name); });
    }
    void activeStageDel(Orv::Name stage) {
        Orv::Ptr<StageStatus> gone;
        if (!activeStage_.del(stage, &gone)) return;
        for (Index* const index : indexes_) index->activeStageStored(*gone, false);
        gone = nullptr;
        changed("activeStage", stage, [&](auto& n) { n.onActiveStage(stage); });
    }
    // Not counted.
    void indexIs(Index& index) { indexes_.push_back(&index); }
    void indexDel(Index& index) { std::erase(indexes_, &index); }
    void activeStageDelAll() {
        activeStage().walk([this](Orv::Name stage) { activeStageDel(stage); });
    }

    // The instance's progress record; null until the manager has set it.
    const Orv::Ptr<Progress>& progress() const { return progress_; }
    void progressIs(Orv::Ptr<Progress> progress) {
        if (Orv::assign(progress_, std::move(progress)))
            changed("progress", [](auto& n) { n.onProgress(); });
    }

    bool complete() const { return complete_; }
    void completeIs(bool complete) {
        if (Orv::assign(complete_, complete)) changed("complete", [](auto& n) { n.onComplete(); });
    }

    // The manager sets it when it is asked for the next stage of a suspended instance, and never
    // clears it.
    bool suspended() const { return suspended_; }
    void suspendedIs(bool suspended) {
        if (Orv::assign(suspended_, suspended))
            changed("suspended", [](auto& n) { n.onSuspended(); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<Orv::Name, Orv::Ptr<StageStatus>> activeStage_;
    Orv::Ptr<Progress> progress_;
    bool complete_ = false;
    bool suspended_ = false;
    std::vector<Index*> indexes_;
};

}  // namespace Stage
