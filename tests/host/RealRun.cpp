#include "tests/host/RealRun.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <streambuf>

#include "host/JsonLines.h"
#include "host/Replay.h"
#include "host/session/Process.h"
#include "tests/host/Plans.h"

namespace Host {

namespace {

// Hands on each line as soon as it is whole.
class Lines final : public std::streambuf {
  public:
    explicit Lines(std::function<void(const std::string&)> line) : line_(std::move(line)) {}
    const std::string& all() const { return all_; }

  private:
    int_type overflow(int_type c) override {
        if (c == traits_type::eof()) return 0;
        const char byte = traits_type::to_char_type(c);
        all_ += byte;
        if (byte != '\n') {
            begun_ += byte;
        } else {
            if (line_) line_(begun_);
            begun_.clear();
        }
        return c;
    }

    std::function<void(const std::string&)> line_;
    std::string all_;
    std::string begun_;
};

class AtEnd final : public View {
  public:
    void onEnd(double, const Tree& tree) override { all = outcomes(tree); }
    std::vector<InstanceOutcome> all;
};

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        if (!entry.path().empty()) ++count;
    return count;
}

}  // namespace

PlanParticipant launched(const std::string& name, const std::vector<std::string>& command) {
    PlanParticipant made;
    made.name = name;
    made.kind = PlanParticipant::Kind::command;
    made.command = command;
    made.limit = std::numeric_limits<double>::infinity();
    return made;
}

PlanParticipant launched(const std::string& name, const std::string& command) {
    return launched(name, std::vector<std::string>{"/bin/sh", "-c", command});
}

PlanParticipant acting(const std::string& name, std::vector<std::string> acts) {
    acts.insert(acts.begin(), STAGEMGR_PARTICIPANT);
    return launched(name, acts);
}

PlanParticipant notifying(PlanParticipant participant) {
    participant.ready = PlanParticipant::Ready::notify;
    return participant;
}

StageOutcome RealRun::stage(const std::string& name) const {
    for (const StageOutcome& stage : outcomes.at(0).stages)
        if (stage.stage.view() == name) return stage;
    ADD_FAILURE() << "no stage " << name;
    return {};
}

RealRuns::RealRuns() {
    std::string pattern = testing::TempDir() + "runs-XXXXXX";
    folder_ = mkdtemp(pattern.data());
    temporary_ = folder_ + "-tmp";
    std::filesystem::create_directory(temporary_);
    const char* const before = std::getenv("TMPDIR");
    temporaryBefore_ = before != nullptr ? before : "";
    setenv("TMPDIR", temporary_.c_str(), 1);
    // Nothing that a run forgets gets out of sight.
    prctl(PR_GET_CHILD_SUBREAPER, &subreaperBefore_);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

RealRuns::~RealRuns() {
    prctl(PR_SET_CHILD_SUBREAPER, subreaperBefore_);
    if (temporaryBefore_.empty())
        unsetenv("TMPDIR");
    else
        setenv("TMPDIR", temporaryBefore_.c_str(), 1);
    std::filesystem::remove_all(folder_);
    std::filesystem::remove_all(temporary_);
}

bool RealRuns::has(const std::string& file) const {
    return std::filesystem::exists(folder_ + "/" + file);
}

std::string RealRuns::content(const std::string& file) const {
    std::ostringstream text;
    text << std::ifstream(folder_ + "/" + file).rdbuf();
    return text.str();
}

RealRun RealRuns::run(std::vector<PlanStage> stages, RunOptions options,
                      std::function<void(const std::string&)> said) const {
    PlanClass boot = stageClass("boot", std::move(stages));
    boot.onTimeout = OnTimeout::proceed;
    return run(planOf({boot}), std::move(options), std::move(said));
}

RealRun RealRuns::run(Plan plan, RunOptions options,
                      std::function<void(const std::string&)> said) const {
    plan.file = folder_ + "/plan.yaml";
    for (PlanClass& stageClass : plan.classes)
        for (PlanStage& stage : stageClass.stages)
            for (PlanParticipant& participant : stage.participants)
                if (participant.kind == PlanParticipant::Kind::command &&
                    participant.directory.empty())
                    participant.directory = ".";

    RealRun run;
    std::ostringstream observed;
    std::ostringstream recorded;
    JsonLines lines(observed);
    AtEnd atEnd;
    Views views({&lines, &atEnd});
    Lines err(std::move(said));
    std::ostream errStream(&err);
    options.record = &recorded;
    const std::size_t descriptors = openDescriptors();

    run.status = runPlan(plan, options, views, errStream);

    run.observed = observed.str();
    run.recorded = recorded.str();
    run.err = err.all();
    run.outcomes = atEnd.all;

    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
    EXPECT_TRUE(descendants(getpid()).empty()) << "a process is left";
    EXPECT_EQ(openDescriptors(), descriptors) << "a descriptor is left";
    EXPECT_TRUE(std::filesystem::is_empty(temporary_)) << "a file is left";
    std::istringstream journal(run.recorded);
    std::ostringstream replayed;
    replay(journal, replayed);
    EXPECT_EQ(replayed.str(), run.observed) << "the record replays to something else";
    return run;
}

}  // namespace Host
