// Where the trace blocks of the source unit `StageMgr` go.
#pragma once

#include "runtime/Trace.h"

namespace Stage {

static inline const Orv::TraceUnit& traceUnit() {
    static const Orv::TraceUnit unit{"StageMgr", Orv::TraceHandle::named("StageMgr")};
    return unit;
}

}  // namespace Stage
