// Stages that must not be started.
#pragma once

#include "model/StageInfo.h"
#include "runtime/Entity.h"

namespace Stage {

// One for the whole system; written by the operator.
class ORV_API StageGlobalConfig final : public Orv::Notifier<StageGlobalConfig> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<StageGlobalConfig> {
      public:
        virtual void onDoNotStartStage(StageInfo /*stage*/) {}
        virtual void onDoNotStartStage() {}
        virtual void onDoNotStartStage(Orv::Immediate) {}
    };

    explicit StageGlobalConfig(Orv::Name name = {}) : Notifier(std::move(name)) {}

    // Per class and stage: true holds the stage back. It never stops one that has started.
    const Orv::OrderedMap<StageInfo, bool>& doNotStartStage() const {
        return doNotStartStage_.map();
    }
    bool doNotStartStage(const StageInfo& stage) const { return doNotStartStage().value(stage); }
    void doNotStartStageIs(StageInfo stage, bool held) {
        if (doNotStartStage_.set(stage, held))
            changed("doNotStartStage", stage, [&](auto& n) { n.onDoNotStartStage(stage); });
    }
    void doNotStartStageDel(StageInfo stage) {
        if (doNotStartStage_.del(stage))
            changed("doNotStartStage", stage, [&](auto& n) { n.onDoNotStartStage(stage); });
    }
    void doNotStartStageDelAll() {
        doNotStartStage().walk([this](StageInfo stage) { doNotStartStageDel(stage); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<StageInfo, bool> doNotStartStage_;
};

}  // namespace Stage
