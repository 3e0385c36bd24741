// Where the history of a run comes from: a plan, which is then simulated once, or a journal, which
// is replayed.
#pragma once

#include <istream>
#include <limits>
#include <string>
#include <string_view>

#include "host/history/Timeline.h"
#include "host/plan/Plan.h"

namespace Host {

// How the plan goes when every participant takes its typical time, and none is lost: until nothing
// is left to happen, or a reboot is requested.
RunHistory planRun(const Plan& plan);

// What the journal makes until that time, in seconds; infinity: to its end. Raises JournalError.
RunHistory journalRun(std::istream& journal,
                      double until = std::numeric_limits<double>::infinity());

// What a text looks like: a journal by its first line that is neither blank nor a comment, a plan
// by the words that every plan has.
enum class RunText { plan, journal, neither };
RunText runText(std::string_view text);
// That the file is neither, and what it had to be.
std::string neitherText(const std::string& file);

// The history of what the text is. `file` is its name, for messages. Raises PlanRefused, with
// colours if `colour`; and runtime_error, with a whole text, for a journal that cannot be applied
// and for what is neither.
RunHistory runOf(const std::string& file, std::string text, bool colour);

}  // namespace Host
