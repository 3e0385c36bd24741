// Short words for stages with one participant of the same name, for tests of what waits for what.
#pragma once

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/Plans.h"

namespace Host {

// Takes that many seconds; infinity: never reports.
inline PlanStage step(const std::string& name, double seconds,
                      const std::vector<std::string>& after = {}) {
    const bool never = seconds == std::numeric_limits<double>::infinity();
    return stage(name, after, {takes(name, never ? -1.0 : seconds)});
}

inline PlanStage critical(PlanStage stage) {
    stage.participants.front().critical = true;
    return stage;
}

// With that limit, in seconds.
inline PlanStage limited(PlanStage stage, double limit) {
    stage.participants.front().limit = limit;
    return stage;
}

inline PlanClass steps(std::vector<PlanStage> stages) {
    return stageClass("boot", std::move(stages));
}

}  // namespace Host
