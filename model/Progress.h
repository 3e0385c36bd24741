// Which stages have started in an instance.
#pragma once

#include "runtime/Entity.h"

namespace Stage {

// A member of ProgressDir; written by the manager.
class ORV_API Progress final : public Orv::Notifier<Progress> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<Progress> {
      public:
        virtual void onStage(Orv::String /*stage*/) {}
        virtual void onStage() {}
        virtual void onStage(Orv::Immediate) {}
    };

    explicit Progress(Orv::Name instance) : Notifier(std::move(instance)) {}

    // Per stage name: true once the stage has started. Absent reads as false.
    const Orv::OrderedMap<Orv::String, bool>& stage() const { return stage_.map(); }
    bool stage(const Orv::String& stage) const { return this->stage().value(stage); }
    void stageIs(Orv::String stage, bool started) {
        if (stage_.set(stage, started)) changed("stage", stage, [&](auto& n) { n.onStage(stage); });
    }
    void stageDel(Orv::String stage) {
        if (stage_.del(stage)) changed("stage", stage, [&](auto& n) { n.onStage(stage); });
    }
    void stageDelAll() {
        stage().walk([this](Orv::String stage) { stageDel(stage); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<Orv::String, bool> stage_;
};

}  // namespace Stage
