#include <fmt/format.h>

#include <algorithm>
#include <string_view>

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
    std::vector<std::string_view> known;
    for (const PlanClass& stageClass : plan.classes)
        for (const PlanInstance& instance : stageClass.instances) known.push_back(instance.name);
    for (const std::string& wanted : instances) {
        if (std::find(known.begin(), known.end(), wanted) != known.end()) continue;
        const std::string nearest = suggestion(wanted, known);
        throw UsageError(fmt::format(
            "stagemgr: {}: no instance is called {}{}", printable(plan.file), inQuotes(wanted),
            nearest.empty() ? "; there is " + firstOf(known, 5, inQuotes) : nearest));
    }
    for (PlanClass& stageClass : plan.classes)
        std::erase_if(stageClass.instances, [&](const PlanInstance& instance) {
            return std::find(instances.begin(), instances.end(), instance.name) == instances.end();
        });
    return plan;
}

}  // namespace Host
