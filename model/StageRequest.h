// An agent's wish to take part in a stage.
#pragma once

#include "runtime/Export.h"
#include "runtime/String.h"
#include "runtime/Value.h"

namespace Stage {

struct ORV_API StageRequest {
    Orv::String agent;
    Orv::String stage;
    double timeout = 0.0;  // seconds; becomes the event's limit

    friend bool operator==(const StageRequest&, const StageRequest&) = default;
    // True exactly when it carries nothing. A missing request reads so, and one that is stored so
    // counts as missing.
    bool operator!() const { return *this == StageRequest(); }

    static constexpr auto fields = std::tuple{Orv::Field{"agent", &StageRequest::agent},
                                              Orv::Field{"stage", &StageRequest::stage},
                                              Orv::Field{"timeout", &StageRequest::timeout}};
};

}  // namespace Stage
