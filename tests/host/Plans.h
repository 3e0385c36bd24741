// Plans made by hand, for tests of what is done with them.
#pragma once

#include <string>
#include <vector>

#include "host/plan/Plan.h"

namespace Host {

// A participant that takes that long; never: below 0.
PlanParticipant takes(const std::string& name, double seconds);

PlanStage stage(const std::string& name, const std::vector<std::string>& after,
                std::vector<PlanParticipant> participants);

// With one instance, "main", no deadline, and its own name as the application's.
PlanClass stageClass(const std::string& name, std::vector<PlanStage> stages);

Plan planOf(std::vector<PlanClass> classes);

}  // namespace Host
