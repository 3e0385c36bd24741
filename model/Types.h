// Makes the model's types known to the registry.
#pragma once

#include "runtime/Export.h"

namespace Stage {

// In one fixed order; calling it again changes nothing.
ORV_API void registerModelTypes();

}  // namespace Stage
