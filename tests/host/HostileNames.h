// Names that break what handles names carelessly.
#pragma once

#include <string>
#include <vector>

namespace Host {

struct HostileName {
    std::string what;  // for messages
    std::string name;
    // Plans take it: journals take every name that JSON can hold.
    bool inPlans = true;
};

const std::vector<HostileName>& hostileNames();

}  // namespace Host
