// How far a change of criticality has spread; for the sources of ConfigSm alone.
#pragma once

#include "StageMgr/ConfigSm.h"

namespace Stage {

struct ConfigSm::CriticalityStep {
    explicit CriticalityStep(const Orv::Ptr<OrvStageStatus>& from)
        : stage(from), status(from->stageStatus()), remaining(status->dependency()) {}

    const Orv::Ptr<OrvStageStatus> stage;
    const Orv::Ptr<StageStatus> status;  // outlives the walk over its dependencies
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
