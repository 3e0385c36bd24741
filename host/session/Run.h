// Brings a plan up in real time, with real processes, and takes them down again.
#pragma once

#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "host/Console.h"
#include "host/Observations.h"
#include "host/plan/Plan.h"

namespace Host {

class LiveRun;

struct RunOptions {
    // Takes everything down as soon as the progression is complete, instead of staying as long as
    // all daemons run.
    bool untilComplete = false;
    // Seconds in which the progression has to be complete; infinity: it may take any time.
    double within = std::numeric_limits<double>::infinity();
    // What a shell runs when a reboot is requested, after all else was stopped; empty: nothing.
    std::string onReboot{};
    std::string outputFolder{};  // each participant's output goes to a file there; empty: nowhere
    bool showOutput = false;
    int reports = -1;                // a descriptor with lines for external participants
    std::ostream* record = nullptr;  // takes the journal of the run; null: nobody does
    // Where the view writes: that it cannot any more is said at once. Null: nobody minds.
    const std::ostream* output = nullptr;
    // Draws how the run stands until it is complete; null: nobody does. It is the run's view then.
    LiveRun* live = nullptr;
};

// Runs the plan, which has been read without errors, and returns the exit status: exitDone when it
// was complete, and everything that failed afterwards or was passed over is what the plan allows;
// exitFailed when it can go no further, a reboot was requested, or a daemon failed; exitWaiting
// when it took too long; exitSignal and its number after a signal. What the manager does goes to
// the view, everything else that people want to know to `err`. Afterwards no process is left that
// was started by it.
int runPlan(const Plan& plan, const RunOptions& options, View& view, std::ostream& err);

}  // namespace Host
