// Runs of plans in real time, with real processes, and what became of them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/Outcome.h"
#include "host/plan/Plan.h"
#include "host/session/Run.h"

namespace Host {

// A participant that is launched; a command of one text is a shell's.
PlanParticipant launched(const std::string& name, const std::string& command);
PlanParticipant launched(const std::string& name, const std::vector<std::string>& command);
// One that does these acts, of tests/host/participant/main.cpp.
PlanParticipant acting(const std::string& name, std::vector<std::string> acts);
PlanParticipant notifying(PlanParticipant participant);

struct RealRun {
    int status = 0;
    std::string observed;  // JSON Lines
    std::string recorded;  // the journal
    std::string err;
    std::vector<InstanceOutcome> outcomes;

    // Of the first instance.
    StageOutcome stage(const std::string& name) const;
};

// A folder of the test's own where its participants run, with what they need to leave nothing
// behind unnoticed.
class RealRuns {
  public:
    RealRuns();
    ~RealRuns();
    RealRuns(const RealRuns&) = delete;
    RealRuns& operator=(const RealRuns&) = delete;

    // The participants' folder.
    const std::string& folder() const { return folder_; }
    bool has(const std::string& file) const;
    std::string content(const std::string& file) const;

    // `said` is called with each line that is said to people, in the midst of the run. Every run is
    // checked: no process and no descriptor is left of it, nothing of ours is left in the temporary
    // folder, and its record replays to what was observed.
    RealRun run(Plan plan, RunOptions options = {},
                std::function<void(const std::string&)> said = {}) const;
    // Of one class, "boot", without limits.
    RealRun run(std::vector<PlanStage> stages, RunOptions options = {},
                std::function<void(const std::string&)> said = {}) const;

  private:
    std::string folder_;
    std::string temporary_;
    std::string temporaryBefore_;
    int subreaperBefore_ = 0;
};

}  // namespace Host
