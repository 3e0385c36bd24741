// The key of completion reports.
#pragma once

#include <iosfwd>

#include "runtime/Export.h"
#include "runtime/String.h"
#include "runtime/Value.h"

namespace Stage {

// Which agent finished its part of which stage in which instance. Equality is field-wise.
struct ORV_API AgentStatusKey {
    Orv::String agent;
    Orv::String stage;
    Orv::String instance;

    std::uint32_t hash() const {
        return Orv::mixHash(Orv::mixHash(agent.hash(), stage.hash()), instance.hash());
    }
    friend bool operator==(const AgentStatusKey&, const AgentStatusKey&) = default;

    static constexpr auto fields = std::tuple{Orv::Field{"agent", &AgentStatusKey::agent},
                                              Orv::Field{"stage", &AgentStatusKey::stage},
                                              Orv::Field{"instance", &AgentStatusKey::instance}};
};

ORV_API std::ostream& operator<<(std::ostream& out, const AgentStatusKey& key);

}  // namespace Stage
