// What lies outside of the library, behind one seam that a host, a test or the simulator fills.
#pragma once

#include <string>

#include "runtime/Export.h"
#include "runtime/Ptr.h"
#include "runtime/String.h"

namespace Halbe {
class HalbeInfo;
}

namespace Orv {

class LogHandle;

// The default environment writes messages and errors to standard error and printed lines to
// standard output. Whoever overrides something must not throw, except where it is said.
class ORV_API Environment {
  public:
    Environment() = default;
    virtual ~Environment();
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    // Whether this operator message may be raised now (rate limiting). Default: always.
    virtual bool okToLog(const LogHandle& message);
    // An operator message was raised; `text` is formatted.
    virtual void operatorMessage(const LogHandle& message, const String& text);

    // An exception left a notifiee's callback or a timer's handler; `what` is its text.
    virtual void notificationException(const char* what) noexcept;

    // A new watchdog record, or null when there is none to be had. Default: a plain record.
    virtual Ptr<Halbe::HalbeInfo> halbeInfo(const String& name, unsigned slot, bool flag);

    // One line for the process's standard output, without the line's end.
    virtual void print(const String& line);

    // An assertion failed; the process aborts when this returns. For writing out what is held back.
    virtual void assertionFailed(const char* expression) noexcept;
};

}  // namespace Orv
