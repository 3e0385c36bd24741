// The library without its indexes.
#pragma once

#include "runtime/Trace.h"

namespace conformance {

// While it lives (and is on) the library walks over everything, as it does when somebody traces,
// instead of asking its indexes: what the two do has to be the same.
class Walks {
  public:
    explicit Walks(bool on) { handle().recordLevelIs(on ? 9 : Orv::TraceHandle::off); }
    ~Walks() { handle().recordLevelIs(Orv::TraceHandle::off); }
    Walks(const Walks&) = delete;
    Walks& operator=(const Walks&) = delete;

  private:
    static Orv::TraceHandle& handle() { return Orv::TraceHandle::named("StageMgr"); }
};

}  // namespace conformance
