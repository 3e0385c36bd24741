// Which stages took how long themselves, the longest first.
#pragma once

#include <string>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

struct BlameOptions {
    bool participants = false;  // single events instead of stages
    bool colour = false;
};

// For people.
std::string blame(const RunHistory& run, const BlameOptions& options);
// "stagemgr.blame/1".
Json blameJson(const RunHistory& run, bool participants);

}  // namespace Host
