// Makes the library's types known to the registry.
#pragma once

#include "runtime/Export.h"

namespace Stage {

// The model's types, then the reactors', in one fixed order whatever the link order; calling it
// again changes nothing. It runs when the library is loaded, and again from the entry point, for
// programs that link the library statically.
ORV_API void registerTypes();

}  // namespace Stage
