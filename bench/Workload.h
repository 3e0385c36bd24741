// What is to be run, as plain numbers: the same for the library, the floors and the peers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

// Stages are numbered in an order in which they can run: each depends on lower numbers only.
struct Workload {
    std::vector<std::vector<std::uint32_t>> dependsOn;  // by stage
    std::uint32_t agents = 1;                           // each takes part in one stage

    std::uint32_t stages() const { return static_cast<std::uint32_t>(dependsOn.size()); }
    std::uint64_t reports() const { return std::uint64_t{stages()} * agents; }
};

// Each stage depends on the one before.
Workload chain(std::uint32_t stages);
// One stage, then all others but the last at once, then the last.
Workload fan(std::uint32_t stages);
// Layers of ten; each stage depends on three of the layer before. The same on every machine.
Workload layered(std::uint32_t stages);
// A chain with so many agents in each stage.
Workload events(std::uint32_t stages, std::uint32_t agents);

// Names that fit into a std::string without memory of their own, to the floors' advantage.
std::string stageName(std::uint32_t stage);
std::string agentName(std::uint32_t stage, std::uint32_t agent);

}  // namespace Bench
