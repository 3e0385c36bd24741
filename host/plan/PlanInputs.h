// The one way from a plan to the manager: a plan is inputs of the journal, and nothing else.
#pragma once

#include <string>
#include <vector>

#include "host/Journal.h"
#include "host/plan/Plan.h"

namespace Host {

// What makes everything that the plan's classes need, registers every participant, and enables the
// instances, each at its start. In the order of time. Stages are registered in the order of the
// plan, which is the order in which they start when several may.
std::vector<Input> planInputs(const Plan& plan);

// The report that an agent is done with a stage in an instance, at that time.
Input reportInput(double at, const std::string& stageClass, const std::string& agent,
                  const std::string& stage, const std::string& instance);

}  // namespace Host
