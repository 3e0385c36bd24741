// What differs between two runs, and whose fault it is.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

struct EventDiff {
    std::string agent;
    // Seconds from the stage's start; absent: it is not in that run, or its stage did not start.
    std::optional<double> before;
    std::optional<double> after;
};

struct StageDiff {
    enum class Kind {
        itself,   // its own time changed
        waited,   // it only starts at another time, for what it waits for
        same,     // neither; its outcome did
        added,    // it is only in the second run
        removed,  // it is only in the first run
    };
    std::string name;
    Kind kind = Kind::same;
    // Seconds, of what is under way up to where its history ends; absent: it did not start.
    std::optional<double> before;
    std::optional<double> after;
    // How much later than before it starts, counted from the enabling; absent: not both times.
    std::optional<double> startChange;
    // By how much the second run would be shorter (below 0: longer) if it took as long as in the
    // first one. 0 unless both instances are complete.
    double explains = 0.0;
    // waited: the stage whose completion let it start; empty: the operator did, or its instance's
    // beginning.
    std::string waitedFor;
    // What its outcome was and is, with its marks; empty: "complete", without marks.
    std::string outcomeBefore;
    std::string outcomeAfter;
    // Who took another time than before, the largest change first.
    std::vector<EventDiff> participants;
};

struct InstanceDiff {
    std::string label;
    // Null: it is not in that run.
    const InstanceHistory* before = nullptr;
    const InstanceHistory* after = nullptr;
    double beforeTotal = 0.0;
    double afterTotal = 0.0;
    // What explains most stands first.
    std::vector<StageDiff> stages;
};

// The runs outlive the differences. What is not more than a millisecond does not count.
std::vector<InstanceDiff> diff(const RunHistory& before, const RunHistory& after);

// For people.
std::string diffText(const std::vector<InstanceDiff>& instances, bool colour);
// "stagemgr.diff/1".
Json diffJson(const std::vector<InstanceDiff>& instances);

}  // namespace Host
