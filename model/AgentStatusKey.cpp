#include "model/AgentStatusKey.h"

#include <ostream>

namespace Stage {

std::ostream& operator<<(std::ostream& out, const AgentStatusKey& key) {
    return out << "(agent: " << key.agent << ", stage: " << key.stage
               << ", instance: " << key.instance << ")";
}

}  // namespace Stage
