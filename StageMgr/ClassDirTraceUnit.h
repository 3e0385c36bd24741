// Where the trace blocks of the source unit `StageMgrStageClassDirSm` go.
#pragma once

#include "runtime/Trace.h"

namespace Stage {

static inline const Orv::TraceUnit& traceUnit() {
    // The same handle as the rest of the library, on purpose: one switch for all of it.
    static const Orv::TraceUnit unit{"StageMgrStageClassDirSm",
                                     Orv::TraceHandle::named("StageMgr")};
    return unit;
}

}  // namespace Stage
