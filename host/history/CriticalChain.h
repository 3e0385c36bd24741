// Which stages a stage had to wait for, and those for which others, as a tree.
#pragma once

#include <optional>
#include <string>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

struct ChainOptions {
    std::string stage{};  // empty: of each instance, the last one
    // Seconds. Beside the dependency that was complete last, those are shown that were complete no
    // more than that earlier.
    double fuzz = 0.0;
    bool colour = false;
};

// For people. A stage that stands in the tree already is not shown again. An instance without the
// wanted stage is left out; absent when none has it.
std::optional<std::string> criticalChain(const RunHistory& run, const ChainOptions& options);
// "stagemgr.critical-chain/1".
std::optional<Json> criticalChainJson(const RunHistory& run, const ChainOptions& options);

}  // namespace Host
