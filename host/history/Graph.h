// Which stages wait for which.
#pragma once

#include <string>
#include <vector>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

// One class's stages, as the first instance of it that has some knows them, and the names that they
// depend on and no stage has.
struct StageGraphOf {
    struct Node {
        std::string name;
        bool critical = false;
        bool held = false;     // by the do-not-start list
        bool missing = false;  // no stage has that name
    };
    std::string stageClass;
    std::vector<Node> nodes;
    // From what is depended on to what depends on it, by number.
    std::vector<std::pair<std::size_t, std::size_t>> edges;
};
std::vector<StageGraphOf> graphsOf(const RunHistory& run);

std::string graphSvg(const std::vector<StageGraphOf>& graphs, const std::string& title);
std::string graphDot(const std::vector<StageGraphOf>& graphs);
std::string graphMermaid(const std::vector<StageGraphOf>& graphs);
// "stagemgr.graph/1".
Json graphJson(const std::vector<StageGraphOf>& graphs);

}  // namespace Host
