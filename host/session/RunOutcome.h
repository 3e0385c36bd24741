// In one word, how a run ended.
#pragma once

#include <string_view>
#include <vector>

#include "host/Outcome.h"

namespace Host {

// From the best to the worst.
enum class RunOutcome {
    complete,        // every stage, by the reports of its own participants, in time
    late,            // complete; a critical stage had timed out, and was waited for
    autoCompleted,   // complete; the manager assumed a report that nobody made
    continued,       // complete; some stage timed out, and progression went on without it
    waiting,         // for reports, without a limit
    held,            // by the do-not-start list
    neverStartable,  // a stage depends on one that does not exist, or on itself
    suspended,       // by the operator
    overdue,         // a critical stage timed out, and nothing goes on until it is complete
    rebooting,       // a reboot was requested
    unmanaged,       // the class lacks something that it needs, or nothing was enabled
};

inline constexpr RunOutcome worstCompletion = RunOutcome::continued;
inline bool isCompletion(RunOutcome outcome) { return outcome <= worstCompletion; }

// Every outcome, from the best to the worst.
const std::vector<RunOutcome>& allRunOutcomes();

// As it is written on command lines and in JSON: "auto-completed".
std::string_view outcomeWord(RunOutcome outcome);
// For people, after "the run": "is complete, but some stages timed out and were passed over".
std::string_view outcomeText(RunOutcome outcome);

RunOutcome instanceOutcome(const InstanceOutcome& instance);
// The worst of its instances.
RunOutcome runOutcome(const std::vector<InstanceOutcome>& instances);

// The stages that cannot start, whatever is reported: with a dependency that no stage has the name
// of, or on themselves by way of others, or on such a stage. As positions in `instance.stages`.
std::vector<std::size_t> neverStartable(const InstanceOutcome& instance);

}  // namespace Host
