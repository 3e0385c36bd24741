#include "bench/Workload.h"

#include <algorithm>
#include <random>

namespace Bench {

Workload chain(std::uint32_t stages) { return events(stages, 1); }

Workload fan(std::uint32_t stages) {
    Workload made;
    made.dependsOn.assign(stages, {0});
    made.dependsOn.front().clear();
    auto& last = made.dependsOn.back();
    last.clear();
    for (std::uint32_t stage = 1; stage + 1 < stages; ++stage) last.push_back(stage);
    return made;
}

Workload layered(std::uint32_t stages) {
    constexpr std::uint32_t width = 10;
    constexpr std::size_t dependencies = 3;
    std::mt19937 random(1);
    Workload made;
    made.dependsOn.resize(stages);
    for (std::uint32_t stage = width; stage < stages; ++stage) {
        auto& depends = made.dependsOn[stage];
        const std::uint32_t before = (stage / width - 1) * width;
        while (depends.size() < dependencies) {
            // The generator's own numbers: what a distribution makes of them differs by library.
            const auto next = before + static_cast<std::uint32_t>(random() % width);
            if (std::find(depends.begin(), depends.end(), next) == depends.end())
                depends.push_back(next);
        }
    }
    return made;
}

Workload events(std::uint32_t stages, std::uint32_t agents) {
    Workload made;
    made.agents = agents;
    made.dependsOn.resize(stages);
    for (std::uint32_t stage = 1; stage < stages; ++stage) made.dependsOn[stage] = {stage - 1};
    return made;
}

std::string stageName(std::uint32_t stage) { return "stage" + std::to_string(stage); }

std::string agentName(std::uint32_t stage, std::uint32_t agent) {
    return "agent" + std::to_string(stage) + "." + std::to_string(agent);
}

}  // namespace Bench
