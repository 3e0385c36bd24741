// The operator messages.
#pragma once

#include "runtime/Export.h"
#include "runtime/LogHandle.h"

namespace Stage {

// (application, stage): a critical stage's timer fired, and the instance does not go on without it.
ORV_API extern const Orv::LogHandle stageSlow;
// (application, stage): that stage has completed after all.
ORV_API extern const Orv::LogHandle stageCompleteAfterTimeout;
// (whole seconds): an instance missed its deadline; a reboot request follows.
ORV_API extern const Orv::LogHandle globalStageCompletionTimeout;

}  // namespace Stage
