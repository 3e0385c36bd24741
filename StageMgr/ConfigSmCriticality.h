// How far a change of criticality has spread; for the sources of ConfigSm alone.
#pragma once

#include "StageMgr/ConfigSm.h"

namespace Stage {

struct ConfigSm::CriticalityStep {
    explicit CriticalityStep(const Orv::Ptr<OrvStageStatus>& from)
        : stage(from),
          status(from->stageStatus()),
          criticalChanges(status->criticalChanges()),
          dependencyChanges(status->dependencyChanges()),
          remaining(status->dependency()) {
        stage->tellAnew_ = false;
    }
    // It has told all of them.
    void end() {
        stage->allTold_ = !stage->tellAnew_;
        stage->toldCritical_ = criticalChanges;
        stage->toldDependency_ = dependencyChanges;
    }

    const Orv::Ptr<OrvStageStatus> stage;
    const Orv::Ptr<StageStatus> status;  // outlives the walk over its dependencies
    const std::uint32_t criticalChanges;
    const std::uint32_t dependencyChanges;
    Orv::OrderedMap<Orv::String, bool>::Walk remaining;
};

// Leaves nothing behind of a way that an exception cut short.
struct ConfigSm::SpreadingEnd {
    ConfigSm& configSm;
    const std::size_t base;
    ~SpreadingEnd() {
        configSm.tellingStage_ = false;
        while (configSm.criticality_.size() > base) configSm.criticality_.pop_back();
    }
};

}  // namespace Stage
