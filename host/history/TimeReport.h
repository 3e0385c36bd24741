// Where the time of each instance went.
#pragma once

#include <string>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

// For people.
std::string timeReport(const RunHistory& run);
// "stagemgr.time/1".
Json timeJson(const RunHistory& run);

}  // namespace Host
