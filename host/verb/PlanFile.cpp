#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "host/Suggest.h"
#include "host/Words.h"
#include "host/plan/PlanReader.h"
#include "host/verb/Verbs.h"

namespace Host {

Plan planFile(const std::string& name, const Console& console) {
    return wantedPlan(inputName(name), wholeFile(name, console), console.colour);
}

Plan withInstances(Plan plan, const std::vector<std::string>& instances) {
    if (instances.empty()) return plan;
    const auto called = [](const PlanClass& stageClass, const PlanInstance& instance,
                           const std::string& name) {
        return name == instance.name || name == stageClass.name + "/" + instance.name;
    };
    std::vector<std::string> known;
    for (const PlanClass& stageClass : plan.classes)
        for (const PlanInstance& instance : stageClass.instances)
            known.push_back((plan.classes.size() > 1 ? stageClass.name + "/" : "") + instance.name);
    for (const std::string& wanted : instances) {
        const bool found =
            std::any_of(plan.classes.begin(), plan.classes.end(), [&](const PlanClass& stageClass) {
                return std::any_of(
                    stageClass.instances.begin(), stageClass.instances.end(),
                    [&](const PlanInstance& one) { return called(stageClass, one, wanted); });
            });
        if (found) continue;
        const std::string nearest = suggestion(wanted, {known.begin(), known.end()});
        throw UsageError(fmt::format(
            "stagemgr: no instance {} in {}{}", inQuotes(wanted), printable(plan.file),
            !nearest.empty() ? nearest
                             : fmt::format("; there {} {}", known.size() == 1 ? "is" : "are",
                                           firstOf(known, 5, inQuotes))));
    }
    for (PlanClass& stageClass : plan.classes)
        std::erase_if(stageClass.instances, [&](const PlanInstance& instance) {
            return std::none_of(instances.begin(), instances.end(), [&](const std::string& name) {
                return called(stageClass, instance, name);
            });
        });
    return plan;
}

}  // namespace Host
