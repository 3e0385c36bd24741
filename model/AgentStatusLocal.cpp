#include "model/AgentStatusLocal.h"

namespace Stage {

const Orv::TypeInfo& AgentStatusLocal::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AgentStatusLocal>("Stage::AgentStatusLocal")
            .collection(
                "complete",
                [](const AgentStatusLocal& a) -> const auto& { return a.complete_.map(); },
                &AgentStatusLocal::completeIs, &AgentStatusLocal::completeDel)
            .done();
    return info;
}

}  // namespace Stage
