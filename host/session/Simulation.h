// Whole runs of a plan in virtual time.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "host/Outcome.h"
#include "host/session/RunOutcome.h"
#include "host/session/Simulated.h"

namespace Host {

// How one run ended.
struct Simulation {
    RunOutcome outcome = RunOutcome::unmanaged;
    // When, in seconds from the run's begin: a completion is that of the last stage; otherwise the
    // time of the reboot request, or after which nothing happened any more.
    double time = 0.0;
    std::string rebootReason;
    std::vector<InstanceOutcome> instances;
};

// Does everything that happens until that time, or until a reboot is requested; Session::never:
// until nothing is left to happen.
void advanceUnlessReboot(Session& session, double until);

// Runs the plan until nothing is left to happen, or a reboot is requested. `view` sees the feed and
// its end; `record` takes the journal, or is null.
Simulation simulate(const Plan& plan, const Durations& durations, View& view,
                    std::ostream* record = nullptr);

// What becomes of a run when one participant never reports, in no instance.
struct Missing {
    const PlanClass* stageClass;
    const PlanStage* stage;
    const PlanParticipant* participant;
    RunOutcome outcome = RunOutcome::unmanaged;
    double time = 0.0;  // as that of Simulation
};
// One for each participant, in the order of the plan, in so many processes, as simulateRunsIn has
// them. Nobody works for a milestone, so nobody can be missing there.
std::vector<Missing> eachMissing(unsigned processes, const Plan& plan, const Durations& durations);
// Those of them, of which the outcome and the time are yet to be filled in.
void simulateMissing(const Plan& plan, const Durations& durations, std::span<Missing> some);

// What many runs came to.
struct Runs {
    // One for each outcome, by its number: how many runs ended so.
    std::vector<std::uint64_t> outcomes;
    // When the runs that completed did, in the order of the runs.
    std::vector<double> completions;
    // One for each stage of each class, in the order of the plan: in how many runs it timed out, in
    // whatever instance.
    std::vector<std::uint64_t> timeouts;
    // How many runs ended as expected; all, when nothing was.
    std::uint64_t met = 0;
};

struct Expectation {
    std::vector<RunOutcome> outcomes;
    double within;  // seconds; infinity: no matter when

    bool met(RunOutcome outcome, double time) const;
};

// The runs `first` to `last`, that one excluded, of those of that seed.
Runs simulateRuns(const Plan& plan, Durations durations, std::uint64_t seed, std::uint64_t first,
                  std::uint64_t last, const std::optional<Expectation>& expected);

// The runs 0 to `runs`, that one excluded, in so many processes; the result is the same for any
// number of them. Raises runtime_error when a process cannot be made or fails.
Runs simulateRunsIn(unsigned processes, const Plan& plan, const Durations& durations,
                    std::uint64_t seed, std::uint64_t runs,
                    const std::optional<Expectation>& expected);

// The least of the values that at least so many in a hundred do not exceed. Of at least one value,
// in ascending order.
double percentile(const std::vector<double>& ascending, unsigned percent);

}  // namespace Host
