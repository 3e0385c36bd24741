#include "runtime/Halbe.h"

namespace Halbe {

HalbeInfo::~HalbeInfo() = default;

void HalbeInfo::watchdogTimeoutIs(Orv::String seconds) { watchdogTimeout_ = std::move(seconds); }

}  // namespace Halbe
