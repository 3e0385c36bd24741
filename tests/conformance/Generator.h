// Journals at random, the same from the same seed with every compiler, and every line of them
// applicable where it stands.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/conformance/Model.h"

namespace conformance {

// xoshiro256**, seeded by splitmix64.
class Random {
  public:
    explicit Random(std::uint64_t seed);

    std::uint64_t next();
    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(next() % bound); }
    bool oneIn(std::size_t n) { return below(n) == 0; }
    bool percent(std::size_t n) { return below(100) < n; }

    template <class Container>
    const auto& of(const Container& container) {
        return container[below(container.size())];
    }

  private:
    std::array<std::uint64_t, 4> state_;
};

struct GeneratorOptions {
    // Lines after the set-up.
    std::size_t fewest = 5;
    std::size_t most = 80;
    // Writes into what the manager itself writes: stages, instances, records, the reboot request.
    bool meddle = true;
    // Sets the name, the stage and the agent that an event's registration bears.
    bool rename = false;
    // The last line may fail an assertion.
    bool abort = false;
};

std::vector<Line> generate(std::uint64_t seed, const GeneratorOptions& options = {});

}  // namespace conformance
