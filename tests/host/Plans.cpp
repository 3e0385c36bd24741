#include "tests/host/Plans.h"

#include <limits>
#include <utility>

namespace Host {

PlanParticipant takes(const std::string& name, double seconds) {
    PlanParticipant made;
    made.name = name;
    made.takes = seconds < 0.0 ? Takes{Takes::Kind::never} : Takes{Takes::Kind::fixed, seconds};
    return made;
}

PlanStage stage(const std::string& name, const std::vector<std::string>& after,
                std::vector<PlanParticipant> participants) {
    PlanStage made;
    made.name = name;
    for (const std::string& other : after) made.after.push_back({other, {}});
    made.participants = std::move(participants);
    return made;
}

PlanClass stageClass(const std::string& name, std::vector<PlanStage> stages) {
    PlanClass made;
    made.name = name;
    made.application = name;
    made.deadline = std::numeric_limits<double>::infinity();
    made.reloadCause = "Stage progression timeout.";
    made.instances = {{"main", {}, 0.0, false}};
    made.stages = std::move(stages);
    return made;
}

Plan planOf(std::vector<PlanClass> classes) {
    Plan made;
    made.file = "plan.yaml";
    made.classes = std::move(classes);
    return made;
}

}  // namespace Host
