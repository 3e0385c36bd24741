// The system controller's watchdog record.
#pragma once

#include "runtime/Export.h"
#include "runtime/Ptr.h"
#include "runtime/String.h"

namespace Halbe {

// Setting `watchdogTimeout` configures the watchdog; the record itself is dropped afterwards. A
// host overrides watchdogTimeoutIs and provides its record through Orv::Environment::halbeInfo.
class ORV_API HalbeInfo : public Orv::PtrInterface {
  public:
    HalbeInfo(Orv::String name, unsigned slot, bool flag)
        : name_(std::move(name)), slot_(slot), flag_(flag) {}
    ~HalbeInfo() override;

    const Orv::String& name() const { return name_; }
    unsigned slot() const { return slot_; }
    bool flag() const { return flag_; }

    // Seconds, as decimal text. Empty until set.
    const Orv::String& watchdogTimeout() const { return watchdogTimeout_; }
    virtual void watchdogTimeoutIs(Orv::String seconds);

  private:
    Orv::String name_;
    unsigned slot_;
    bool flag_;
    Orv::String watchdogTimeout_;
};

}  // namespace Halbe
