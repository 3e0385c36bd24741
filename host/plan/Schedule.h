// When the stages of a class start and end, if each takes a time that is known.
#pragma once

#include <cstddef>
#include <limits>
#include <vector>

#include "host/plan/StageGraph.h"

namespace Host {

// A time that never comes, and what has no end. Seconds.
inline constexpr double forever = std::numeric_limits<double>::infinity();

// The limit that the manager is given for one, in seconds. It keeps the nearest number of single
// precision; where that is less than the plan's, it is given the next one, so that whoever is in
// time by the plan is in time.
double givenLimit(double limit);

// The largest limit of its participants, as the manager keeps it: what bounds the whole stage.
// Seconds; infinity: none.
double stageLimit(const PlanStage& stage);

// How long a participant takes that reports for itself, and is not lost. Seconds; infinity: it does
// not. The typical time is the fixed one or the mean, and `assumedTakes` for one that does not say;
// the least time is 0 for one that does not say, or whose distribution has no smallest value.
double typicalTakes(const PlanParticipant& participant);
double leastTakes(const PlanParticipant& participant);
// Whether it is there for the sake of order alone: simulated, in no time, and never lost.
bool takesNoTime(const PlanParticipant& participant);

// How long each stage takes until the progression goes on, in seconds; infinity: for ever.
// With typical or least times: whoever is auto-completed takes no longer, and a stage that is
// passed over when it times out takes no longer than its limit.
std::vector<double> typicalDurations(const StageGraph& graph);
std::vector<double> leastDurations(const StageGraph& graph);
// As typical times, but nothing for a command or an external one that does not say.
std::vector<double> saidDurations(const StageGraph& graph);
// As long as limits and auto-completion allow. Who takes no time does not count.
std::vector<double> longestDurations(const StageGraph& graph);

struct Schedule {
    // When stages that are not critical may start.
    enum class Gate {
        // In the pass after the one in which the last critical stage started, which some stage's
        // completion calls for. This is what the manager does.
        nextPass,
        // With the last critical stage. Nothing is earlier than that.
        samePass,
        // When it is open whichever critical stages take less than their durations: to be sooner
        // done may open it later, since it takes a completion after the last critical start.
        // Nothing is later than that.
        latest,
    };
    // What a duration of infinity means.
    enum class Endless {
        never,    // the stage does not end
        nothing,  // it is left out of account: it takes no time, and opens no gate
    };

    struct Times {
        double start;     // seconds after the instance started; infinity: it does not start
        double duration;  // infinity: it does not end
        // How much later it could start with everything still done at `end`; infinity: it does not
        // start, or does not end. By the latest gate, it may be later by any time up to that. Where
        // thousands of critical stages come after each other, it may be more than is said.
        double slack;
        // The stage whose completion let it start; none when it starts at once, or not at all.
        std::size_t cause;
        // That it waited for the critical stages, and not for what it comes after.
        bool gated;
    };

    std::vector<Times> stages;
    double end = 0.0;                     // when the last stage ends that does
    std::size_t last = StageGraph::none;  // the stage that ends then
    bool whole = true;                    // every stage starts and ends

    // The stages that each let the next one start, up to that one.
    std::vector<std::size_t> chain(std::size_t to) const;
};

// Stages that can never start do not, and those that are held are held.
Schedule schedule(const StageGraph& graph, const std::vector<double>& durations,
                  Schedule::Gate gate = Schedule::Gate::nextPass,
                  Schedule::Endless endless = Schedule::Endless::never);

}  // namespace Host
