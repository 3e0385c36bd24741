// What command lines say about single participants of a plan.
#pragma once

#include <string>
#include <vector>

#include "host/plan/Plan.h"
#include "host/session/Simulated.h"

namespace Host {

inline constexpr const char* settingHelp =
    "The participant takes that long, or never reports: AGENT:STAGE=30s, CLASS/AGENT:STAGE=never, "
    "AGENT:STAGE@INSTANCE=1min; may be given several times";

// Applies settings "AGENT:STAGE=DURATION" and "AGENT:STAGE=never", with "CLASS/" in front where
// several classes have such a participant, and "@INSTANCE" behind for one instance. Names stand as
// they are in the plan. Raises UsageError, with a suggestion.
void applySettings(const std::vector<std::string>& settings, const Plan& plan,
                   Durations& durations);

// "AGENT:STAGE", or "CLASS/AGENT:STAGE" when the plan has several classes; not made printable.
std::string participantName(const Plan& plan, const PlanClass& stageClass, const PlanStage& stage,
                            const PlanParticipant& participant);

}  // namespace Host
