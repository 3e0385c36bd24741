// The key of the do-not-start list.
#pragma once

#include "runtime/Export.h"
#include "runtime/String.h"
#include "runtime/Value.h"

namespace Stage {

struct ORV_API StageInfo {
    Orv::Name stageClass;
    Orv::Name stage;

    std::uint32_t hash() const { return Orv::mixHash(stageClass.hash(), stage.hash()); }
    friend bool operator==(const StageInfo&, const StageInfo&) = default;

    static constexpr auto fields = std::tuple{Orv::Field{"stageClass", &StageInfo::stageClass},
                                              Orv::Field{"stage", &StageInfo::stage}};
};

}  // namespace Stage
