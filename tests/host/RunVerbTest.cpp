#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "host/CommandLine.h"
#include "host/session/Descriptor.h"
#include "tests/host/RealRun.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

// The verb, on plans in a folder of its own.
class RunVerb : public testing::Test {
  protected:
    struct Ran {
        int status;
        std::string out;
        std::string err;
    };

    std::string path(const std::string& name) const { return runs_.folder() + "/" + name; }

    std::string file(const std::string& name, const std::string& content) const {
        std::ofstream(path(name)) << content;
        return path(name);
    }

    Ran stagemgr(const std::vector<std::string>& arguments) const {
        std::istringstream in;
        std::ostringstream out;
        std::ostringstream err;
        const int status = commandLine(arguments, Console{in, out, err});
        return {status, out.str(), err.str()};
    }

    const RealRuns runs_;
    const std::string plan_ = file("plan.yaml",
                                   "version: 1\n"
                                   "class: boot\n"
                                   "instances: [left, right]\n"
                                   "stages:\n"
                                   "  one: echo one\n"
                                   "  two: {after: one, command: echo $STAGEMGR_INSTANCE}\n");
};

TEST_F(RunVerb, ShowsWhatHappensAndHowItEnded) {
    const Ran ran = stagemgr({"run", plan_});

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_THAT(ran.out, AllOf(HasSubstr("boot/left             stage two is complete"),
                               HasSubstr("boot/right            boot stages complete"),
                               HasSubstr(", 2 stages\n")));
    EXPECT_EQ(ran.err, "");
}

TEST_F(RunVerb, RunsChosenInstancesOnly) {
    const Ran ran = stagemgr({"run", plan_, "--instance", "right", "--show-output"});

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_EQ(ran.err, "stagemgr: one | one\nstagemgr: two | right\n");
}

TEST_F(RunVerb, RecordsWhatReplaysToTheSame) {
    const Ran ran = stagemgr({"run", plan_, "--json", "--record", path("record")});

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_THAT(ran.out, HasSubstr("\"event\": \"state\""));
    EXPECT_EQ(stagemgr({"replay", path("record")}).out, ran.out);
}

TEST_F(RunVerb, WritesOutputsIntoAFolderThatItMakes) {
    stagemgr({"run", plan_, "--output", path("a/b")});

    EXPECT_EQ(runs_.content("a/b/boot.left.two.two.log"), "left\n");
    EXPECT_EQ(runs_.content("a/b/boot.right.two.two.log"), "right\n");
}

TEST_F(RunVerb, TakesReportsFromStandardInput) {
    const std::string plan = file("external.yaml",
                                  "version: 1\n"
                                  "stages: {one: {external: true, limit: infinity}}\n");
    const Descriptor before(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10));
    const Descriptor reports(open(file("reports", "one one\n").c_str(), O_RDONLY | O_CLOEXEC));
    dup2(reports.get(), STDIN_FILENO);

    const Ran ran = stagemgr({"run", plan, "--reports"});

    dup2(before.get(), STDIN_FILENO);
    EXPECT_EQ(ran.status, exitDone) << ran.err;
}

TEST_F(RunVerb, SaysWhyItFailed) {
    const std::string plan =
        file("failing.yaml",
             "version: 1\n"
             "stages: {disk: {command: echo no disk; exit 3, limit: infinity}}\n");

    const Ran ran = stagemgr({"run", plan});

    EXPECT_EQ(ran.status, exitFailed);
    EXPECT_THAT(ran.err,
                AllOf(HasSubstr("disk failed after "), HasSubstr(": exit status 3\n"),
                      HasSubstr("    | no disk\n"),
                      EndsWith("    stage \"disk\" waits for \"disk\", which cannot report "
                               "any more\n")));
}

TEST_F(RunVerb, RunsACommandAtAReboot) {
    const std::string plan =
        file("critical.yaml",
             "version: 1\n"
             "stages: {disk: {command: exit 3, limit: 100ms, critical: true}}\n");

    const Ran ran = stagemgr({"run", plan, "--on-reboot", "echo > " + path("rebooted")});

    EXPECT_EQ(ran.status, exitFailed);
    EXPECT_TRUE(runs_.has("rebooted"));
    std::remove(path("rebooted").c_str());
    EXPECT_EQ(stagemgr({"run", plan, "--on-reboot", "exit"}).status, exitFailed);
    EXPECT_FALSE(runs_.has("rebooted"));
}

TEST_F(RunVerb, EndsTheWaiting) {
    const std::string plan = file("slow.yaml",
                                  "version: 1\n"
                                  "stages: {slow: sleep 600}\n");

    EXPECT_EQ(stagemgr({"run", plan, "--within", "100ms"}).status, exitWaiting);
}

TEST_F(RunVerb, RefusesWhatItCannotTake) {
    const auto refused = [&](const std::vector<std::string>& options) {
        std::vector<std::string> arguments{"run", plan_};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Ran ran = stagemgr(arguments);
        EXPECT_EQ(ran.status, exitUsage);
        EXPECT_THAT(ran.out, IsEmpty());
        return ran.err;
    };
    EXPECT_THAT(refused({"--instance", "lefd"}),
                AllOf(HasSubstr("no instance \"lefd\" in "), EndsWith("did you mean \"left\"?\n")));
    EXPECT_THAT(refused({"--instance", "elsewhere"}), HasSubstr("there are \"left\", \"right\""));
    EXPECT_THAT(refused({"--within", "soon"}), HasSubstr("--within: "));
    EXPECT_THAT(refused({"--until", "later"}), HasSubstr("--until"));
    EXPECT_THAT(refused({"--record", "-"}), HasSubstr("--record needs the name of a file"));
    EXPECT_THAT(refused({"--record", path("no/such/file")}), HasSubstr("cannot write"));
    EXPECT_THAT(refused({"--record", plan_}), HasSubstr("--record would overwrite "));
    EXPECT_THAT(refused({"--output", plan_}), HasSubstr("--output: nothing can be written to"));
    EXPECT_EQ(stagemgr({"run", "-", "--reports"}).status, exitUsage);
    EXPECT_EQ(stagemgr({"run", path("no-plan")}).status, exitUsage);
    EXPECT_EQ(stagemgr({"run", file("bad.yaml", "version: 1\nstage: {}\n")}).status, exitRefused);
}

TEST_F(RunVerb, SaysAtOnceWhenStandardOutputCannotBeWritten) {
    const std::string plan =
        file("two.yaml", "version: 1\nstages: {a: 'true', b: {after: a, command: 'true'}}\n");
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);

    const int status = commandLine({"run", plan}, Console{in, out, err});

    EXPECT_EQ(status, exitInternal);
    EXPECT_EQ(err.str(),
              "stagemgr: standard output cannot be written; the run goes on without\n"
              "stagemgr: the output could not be written\n");
}

TEST_F(RunVerb, SaysWhenTheRecordCannotBeWritten) {
    const Ran ran = stagemgr({"run", plan_, "--record", "/dev/full"});

    EXPECT_EQ(ran.status, exitInternal);
    EXPECT_THAT(ran.err, HasSubstr("the record could not be written, and is not whole\n"));
}

}  // namespace
}  // namespace Host
