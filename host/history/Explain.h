// Why a stage has not started, why it started so late, and what of a run is not as it should be.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

// One reason. Those behind it follow it, one deeper.
struct Cause {
    enum class Kind {
        pendingReport,  // `agent` has not reported for `stage`
        waits,          // `stage` is not complete, or has not started; what is behind follows
        missingStage,   // no stage has the name `stage`
        cycle,          // `stage` depends on itself, by way of those above
        doNotStart,     // `stage` is on the do-not-start list
        criticalFirst,  // critical stages start first; they follow
        suspended,      // the operator suspended the instance
        reboot,         // a reboot was requested
        unmanaged,      // the instance has no manager
        notEnabled,     // it was taken away
        explained,      // `stage` stands above
        passedOver,     // `stage` timed out, and progression went on without it
        late,           // `stage` timed out, and was waited for
        assumed,        // the manager assumed the report of `agent` for `stage`
        nextPass,       // nothing holds it: it starts in the manager's next pass
        took,           // `stage` was complete at last, since `agent` took so long
        began,          // it depends on nothing, and started with its instance
        held,           // `stage` was held until it started
    };

    std::size_t depth = 0;
    Kind kind = Kind::waits;
    std::string stage{};
    std::string agent{};
    // The clock's time at which it began, and at which it ends or ended: that of a pending report
    // is the end of its limit. Seconds; absent: unknown, or never.
    std::optional<double> since{};
    std::optional<double> until{};
    std::string text{};  // for people, printable, without a full stop
    std::string
        release{};  // what would end it: "the report of ..."; empty: nothing, or it has ended
};

struct Explanation {
    std::string stageClass;
    std::string instance;
    std::string stage;  // empty: of the instance as a whole
    std::string text;   // how it stands, for people: "web has not started"
    bool good = false;  // there is nothing to explain
    std::vector<Cause> causes{};
    // Of an instance as a whole: which stages have not started for the cause of the same position.
    std::vector<std::vector<std::string>> holdsBack{};
};

// What would release it, each once, in the order of the causes.
std::vector<std::string> releases(const Explanation& explanation);

// Of that stage of that instance, at the history's end.
Explanation explainStage(const RunHistory& run, const InstanceHistory& instance,
                         const StageHistory& stage);

// Of all that is not as it should be in an instance. Each cause is a root: what it holds back is
// not listed as well.
Explanation explainInstance(const RunHistory& run, const InstanceHistory& instance);

// As it is written in JSON: "pending-report".
std::string_view causeWord(Cause::Kind kind);

}  // namespace Host
