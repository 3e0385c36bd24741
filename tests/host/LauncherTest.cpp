#include "host/session/Launcher.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>

#include "host/session/OutputLog.h"
#include "host/session/Reports.h"
#include "host/verb/Verbs.h"
#include "tests/host/Plans.h"
#include "tests/host/RealRun.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using State = StageOutcome::State;

constexpr double never = std::numeric_limits<double>::infinity();

// A shell's daemon that is ready, and writes its name to "stopped" when it is told to stop.
PlanParticipant daemon(const std::string& name) {
    return notifying(launched(name, "trap 'echo " + name + " >> stopped; exit 0' TERM; " +
                                        STAGEMGR_PARTICIPANT + " ready pause & wait"));
}

PlanParticipant external(const std::string& name) {
    PlanParticipant made;
    made.name = name;
    made.kind = PlanParticipant::Kind::external;
    made.limit = never;
    return made;
}

RunOptions untilComplete() {
    RunOptions options;
    options.untilComplete = true;
    return options;
}

// What is said when all is complete, and daemons run.
bool staysUp(const std::string& line) { return line.find("complete; running until") != line.npos; }

TEST(Launcher, StartsCommandsWithTheirStages) {
    const RealRuns runs;

    const RealRun run = runs.run({stage("one", {}, {launched("a", "echo one >> order")}),
                                  stage("two", {"one"}, {launched("a", "echo two >> order")}),
                                  stage("three", {"two"}, {launched("a", "echo three >> order")})});

    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(runs.content("order"), "one\ntwo\nthree\n");
    EXPECT_EQ(run.err, "");
}

TEST(Launcher, TellsCommandsWhoTheyAre) {
    const RealRuns runs;
    PlanParticipant it =
        launched("it", "env | grep -E '^(STAGEMGR|PLAN)_' | sort > names; pwd > here");
    it.environment = {{"PLAN_WORD", "a b"}, {"STAGEMGR_STAGE", "no"}};

    runs.run({stage("work", {}, {it})});

    EXPECT_EQ(runs.content("names"),
              "PLAN_WORD=a b\nSTAGEMGR_AGENT=it\nSTAGEMGR_CLASS=boot\nSTAGEMGR_INSTANCE=main\n"
              "STAGEMGR_STAGE=work\n");
    EXPECT_EQ(runs.content("here"), runs.folder() + "\n");
}

TEST(Launcher, GivesCommandsASessionOfTheirOwnAndDefaultSignals) {
    const RealRuns runs;
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    void (*const usr2)(int) = signal(SIGUSR2, SIG_IGN);

    runs.run({stage("work", {},
                    {launched("it",
                              "cut -d ' ' -f 6 /proc/$$/stat > session;"
                              "echo $$ > process;"
                              "grep -E 'Sig(Blk|Ign)' /proc/self/status > signals")})});

    signal(SIGUSR2, usr2);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(runs.content("session"), runs.content("process"));
    EXPECT_THAT(runs.content("signals"), AllOf(HasSubstr("SigBlk:"), HasSubstr("SigIgn:")));
    std::istringstream signals(runs.content("signals"));
    for (std::string line; std::getline(signals, line);) {
        // Beyond these 31 are the C library's own.
        const unsigned long set = std::stoul(line.substr(line.find('\t')), nullptr, 16);
        EXPECT_EQ(set & 0x7fffffff, 0u) << line;
    }
}

TEST(Launcher, GivesCommandsTheLimitOfDescriptorsThatWeHad) {
    const RealRuns runs;
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit small = before;
    small.rlim_cur = 200;
    setrlimit(RLIMIT_NOFILE, &small);

    runs.run({stage("work", {}, {launched("it", "ulimit -S -n > limit")})});

    rlimit after{};
    getrlimit(RLIMIT_NOFILE, &after);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(runs.content("limit"), "200\n");
    EXPECT_EQ(after.rlim_cur, 200u);
}

TEST(Launcher, StaysWhileDaemonsRunAndStopsThemInTheReverseOrder) {
    const RealRuns runs;

    const RealRun run =
        runs.run({stage("one", {}, {daemon("one")}), stage("two", {"one"}, {daemon("two")}),
                  stage("three", {"two"}, {daemon("three")})},
                 {}, [](const std::string& line) {
                     if (staysUp(line)) raise(SIGINT);
                 });

    EXPECT_EQ(run.status, exitSignal + SIGINT);
    EXPECT_EQ(runs.content("stopped"), "three\ntwo\none\n");
    EXPECT_THAT(run.err, AllOf(HasSubstr("one of them ends: one, two, three\n"),
                               HasSubstr("stopping after SIGINT\n")));
}

TEST(Launcher, GivesTheRestOfASessionTimeToStop) {
    const RealRuns runs;
    std::ofstream(runs.folder() + "/inner")
        << "trap 'sleep 0.2; echo saved > result; exit 0' TERM; " STAGEMGR_PARTICIPANT
           " ready pause & wait\n";

    const RealRun run = runs.run(
        {stage("work", {}, {notifying(launched("it", "sh inner & wait"))})}, untilComplete());

    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(runs.content("result"), "saved\n");
    EXPECT_EQ(run.err, "");
}

TEST(Launcher, StopsAtASignalInTheMidstOfTheProgression) {
    const RealRuns runs;
    RunOptions options;
    options.showOutput = true;

    const RealRun run = runs.run({stage("one", {}, {acting("it", {"out", "up\n", "pause"})}),
                                  stage("two", {"one"}, {launched("it", "echo two > two")})},
                                 options, [](const std::string& line) {
                                     if (line == "stagemgr: one:it | up") raise(SIGTERM);
                                 });

    EXPECT_EQ(run.status, exitSignal + SIGTERM);
    EXPECT_EQ(run.stage("one").state, State::running);
    EXPECT_FALSE(runs.has("two"));
}

TEST(Launcher, KillsAtASecondSignal) {
    const RealRuns runs;
    PlanParticipant deaf = notifying(acting("it", {"ignore", "15", "ready", "pause"}));
    deaf.stopLimit = never;

    const RealRun run = runs.run({stage("work", {}, {deaf})}, {}, [](const std::string& line) {
        if (staysUp(line) || line == "stagemgr: stopping after SIGINT") raise(SIGINT);
    });

    EXPECT_EQ(run.status, exitSignal + SIGINT);
    EXPECT_THAT(run.err, HasSubstr("killing what still runs\n"));
}

TEST(Launcher, LeavesAloneWhatWasThereBefore) {
    const pid_t other = fork();
    if (other == 0) {
        signal(SIGTERM, SIG_DFL);
        for (;;) pause();
    }
    std::ostringstream err;
    View view;

    const int status = runPlan(
        planOf({stageClass("boot", {stage("work", {}, {launched("it", "true")})})}), {}, view, err);

    EXPECT_EQ(status, exitDone);
    EXPECT_EQ(waitpid(other, nullptr, WNOHANG), 0);
    kill(other, SIGKILL);
    EXPECT_EQ(waitpid(other, nullptr, 0), other);
}

TEST(Launcher, GivesUpWhenItTakesTooLong) {
    const RealRuns runs;
    RunOptions options;
    options.within = 0.2;

    const RealRun run = runs.run({stage("work", {}, {acting("it", {"pause"})})}, options);

    EXPECT_EQ(run.status, exitWaiting);
    EXPECT_THAT(run.err, HasSubstr("stopping: not complete within 200ms\n"));
}

TEST(Launcher, IgnoresTheTimeForBeingCompleteOnceItIs) {
    const RealRuns runs;
    RunOptions options;
    options.within = 60.0;

    const RealRun run =
        runs.run({stage("work", {}, {notifying(acting("it", {"ready", "exit", "0"}))})}, options);

    EXPECT_EQ(run.status, exitDone);
}

PlanClass rebooting() {
    PlanParticipant critical = launched("disk", "exit 1");
    critical.critical = true;
    critical.limit = 0.2;
    PlanClass boot = stageClass(
        "boot", {stage("base", {}, {daemon("base")}), stage("disks", {"base"}, {critical})});
    boot.onTimeout = OnTimeout::reboot;
    return boot;
}

TEST(Launcher, StopsWhenARebootIsRequested) {
    const RealRuns runs;

    const RealRun run = runs.run(planOf({rebooting()}));

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_EQ(run.outcomes.at(0).state, InstanceOutcome::State::rebooting);
    EXPECT_EQ(runs.content("stopped"), "base\n");
    EXPECT_THAT(run.err, HasSubstr("stopping, since a reboot was requested\n"));
}

TEST(Launcher, RunsWhatIsWantedAtARebootWhenAllElseHasStopped) {
    const RealRuns runs;
    RunOptions options;
    options.onReboot = "cd " + runs.folder() +
                       "; cp stopped before; env | grep ^STAGEMGR_REBOOT | sort > why; sleep 600 & "
                       "exit 3";

    const RealRun run = runs.run(planOf({rebooting()}), options);

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_EQ(runs.content("before"), "base\n");
    EXPECT_EQ(runs.content("why"),
              "STAGEMGR_REBOOT_DESCRIPTION=Stage progression timeout during boot.\n"
              "STAGEMGR_REBOOT_MODE=cold\nSTAGEMGR_REBOOT_REASON=disks timed out\n");
    EXPECT_THAT(run.err, HasSubstr("what was asked for at a reboot failed: exit status 3\n"));
}

TEST(Launcher, FailsWithTheReasonsWhenNothingCanGoOn) {
    const RealRuns runs;
    PlanClass boot = stageClass("boot", {stage("one", {}, {launched("it", "true")}),
                                         stage("two", {"one"}, {launched("it", "true")}),
                                         stage("three", {"nowhere"}, {launched("it", "true")})});
    boot.doNotStart = {{"two", {}}};

    const RealRun run = runs.run(planOf({boot}));

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_EQ(run.err,
              "stagemgr: the progression can go no further:\n"
              "    stage \"two\" is held by the do-not-start list\n"
              "    stage \"three\" needs \"nowhere\"\n");
}

TEST(Launcher, DoesNotWaitForWhatWasPassedOver) {
    const RealRuns runs;
    PlanParticipant slow = launched("slow", "sleep 600");
    slow.limit = 0.1;

    const RealRun run = runs.run({stage("one", {}, {slow})});

    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(run.stage("one").state, State::passedOver);
    EXPECT_THAT(run.err, EndsWith("complete; stopping what was not ready in time, and still runs: "
                                  "one:slow\n"));
}

TEST(Launcher, StaysWhenADaemonWasNeededNoLonger) {
    const RealRuns runs;
    const PlanParticipant brief = notifying(acting("brief", {"ready", "exit", "0"}));
    const PlanParticipant daemon =
        notifying(acting("daemon", {"ready", "until", "end", "exit", "0"}));
    const auto said = [&](const std::string& line) {
        if (staysUp(line)) std::ofstream(runs.folder() + "/end") << "now";
    };

    const RealRun run = runs.run(
        {stage("one", {}, {brief, daemon}), stage("two", {"one"}, {launched("late", "sleep 0.2")})},
        {}, said);

    EXPECT_EQ(run.status, exitDone);
    EXPECT_THAT(run.err, AllOf(HasSubstr("brief ended after it was ready: exit status 0\n"),
                               HasSubstr("complete; running until a signal comes or one of them "
                                         "ends: one:daemon\n")));
}

TEST(Launcher, FailsWhenASuspendedInstanceCanGoNoFurther) {
    const RealRuns runs;
    PlanClass boot = stageClass("boot", {stage("one", {}, {launched("it", "true")})});
    boot.instances[0].suspended = true;

    const RealRun run = runs.run(planOf({boot}));

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_THAT(run.err, EndsWith("the progression can go no further:\n"
                                  "    it is suspended, so no further stage starts\n"));
}

TEST(Launcher, CountsAReportThatComesAfterItsStageTimedOut) {
    const RealRuns runs;
    PlanParticipant late =
        notifying(acting("it", {"until", "over", "ready", "touch", "came", "exit", "0"}));
    late.limit = 0.2;

    const RealRun run = runs.run(
        {stage("slow", {}, {late}),
         stage("next", {"slow"}, {acting("it", {"touch", "over", "until", "came", "exit", "0"})})});

    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(run.stage("slow").state, State::passedOver);
    EXPECT_THAT(run.stage("slow").pendingAgents, IsEmpty());
    EXPECT_THAT(run.err, HasSubstr("slow:it is not ready within its stage's limit of 200ms\n"));
}

TEST(Launcher, BelievesNobodyWhoHasGone) {
    const RealRuns runs;
    const auto touch = [&](const char* name) { std::ofstream(runs.folder() + "/" + name); };
    RunOptions options;
    options.showOutput = true;

    // While the manager is busy, somebody has a message sent by a process that has ended when the
    // manager reads it.
    const RealRun run = runs.run(
        {stage("work", {},
               {notifying(acting("it", {"tell-socket", "socket", "until", "said", "exit", "0"})),
                acting("other", {"until", "socket", "to", "socket", "out", "go\n", "until", "busy",
                                 "fork", "ready", "end", "wait", "touch", "gone"})})},
        options, [&](const std::string& line) {
            if (line == "stagemgr: work:other | go") {
                touch("busy");
                while (!runs.has("gone")) usleep(1000);
            }
            if (line.find("it has ended already") != line.npos) touch("said");
        });

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_THAT(run.err, HasSubstr("exit status 0 before it said READY=1"));
}

TEST(Launcher, LetsSimulatedParticipantsTakeTheirTime) {
    const RealRuns runs;
    PlanParticipant lost = takes("lost", -1);
    lost.limit = 0.1;

    const RealRun run = runs.run(
        {stage("one", {}, {takes("a", 0.1), takes("b", 0)}), stage("two", {"one"}, {lost})});

    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(run.stage("one").state, State::complete);
    EXPECT_GE(run.stage("one").completionTime, 0.1);
    EXPECT_EQ(run.stage("two").state, State::passedOver);
    EXPECT_THAT(run.err, HasSubstr("the run is complete, but"));
}

TEST(Launcher, SaysThatNobodyReportsForExternalParticipants) {
    const RealRuns runs;

    const RealRun run = runs.run({stage("work", {}, {external("it")})});

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_THAT(run.err, HasSubstr("work:it is external, and nobody can report for it"));
}

// Both ends of a pipe.
struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        read = Descriptor(ends[0]);
        write = Descriptor(ends[1]);
    }
    void say(const std::string& text) const {
        EXPECT_EQ(::write(write.get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }
    Descriptor read;
    Descriptor write;
};

TEST(Launcher, TakesReportsForExternalParticipants) {
    const RealRuns runs;
    const Pipe pipe;
    pipe.say("it o");
    pipe.say("ne\nnobody one\n\n[\"it\", \"two\", \"main\"]\nit two elsewhere\nlaunched two\n");
    RunOptions options;
    options.reports = pipe.read.get();

    const RealRun run =
        runs.run({stage("one", {}, {external("it")}),
                  stage("two", {"one"}, {external("it"), launched("launched", "true")})},
                 options);

    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(
        run.err,
        "stagemgr: the report \"nobody one\" is ignored: no agent \"nobody\" takes part in a "
        "stage \"one\"\n"
        "stagemgr: the report \"it two elsewhere\" is ignored: no external participant \"it\" "
        "of stage \"two\" has an instance \"elsewhere\"\n"
        "stagemgr: the report \"launched two\" is ignored: \"launched\" of stage \"two\" is not "
        "external: it reports by itself\n");
}

TEST(Launcher, FailsWhenNoMoreReportsCanCome) {
    const RealRuns runs;
    Pipe pipe;
    pipe.say("it tw");
    pipe.write.close();
    RunOptions options;
    options.reports = pipe.read.get();

    const RealRun run = runs.run({stage("one", {}, {external("it")})}, options);

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_THAT(run.err, AllOf(HasSubstr("the report \"it tw\" is ignored"),
                               HasSubstr("stage \"one\" waits for \"it\"")));
}

// It can always be read, and never ends: the run goes on meanwhile.
TEST(Launcher, ReadsADeviceALittleAtATime) {
    const RealRuns runs;
    const Descriptor zeros(open("/dev/zero", O_RDONLY | O_CLOEXEC));
    RunOptions options;
    options.reports = zeros.get();
    options.within = 0.2;

    const RealRun run = runs.run({stage("one", {}, {external("it")})}, options);

    EXPECT_EQ(run.status, exitWaiting);
    EXPECT_THAT(run.err, HasSubstr("a report of more than 16384 bytes is ignored"));
}

TEST(Launcher, SaysWhenReportsCannotBeRead) {
    const RealRuns runs;
    const Descriptor folder(open(runs.folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    RunOptions options;
    options.reports = folder.get();

    const RealRun run = runs.run({stage("one", {}, {external("it")})}, options);

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_THAT(run.err, HasSubstr("no reports can be read: Is a directory\n"));
}

TEST(Launcher, RefusesReportsThatAreTooLong) {
    const RealRuns runs;
    std::ofstream(runs.folder() + "/reports") << std::string(20000, 'x') << " y\n"
                                              << "it one\nit\n[1, 2]\n[\n";
    const Descriptor file(open((runs.folder() + "/reports").c_str(), O_RDONLY | O_CLOEXEC));
    RunOptions options;
    options.reports = file.get();

    const RealRun run = runs.run({stage("one", {}, {external("it")})}, options);

    EXPECT_EQ(run.status, exitDone);
    EXPECT_THAT(run.err, AllOf(HasSubstr("a report of more than 16384 bytes is ignored\n"),
                               HasSubstr("\"it\" is ignored: a report is AGENT STAGE"),
                               HasSubstr("\"[1, 2]\" is ignored: the array holds"),
                               HasSubstr("\"[\" is ignored: ")));
}

TEST(Launcher, TellsItsOwnManagerHowItFares) {
    const RealRuns runs;
    NotifySocket socket(runs.folder() + "/manager");
    setenv("NOTIFY_SOCKET", socket.path().c_str(), 1);

    const RealRun run =
        runs.run({stage("work", {}, {launched("it", "echo ${NOTIFY_SOCKET-none} > told")})});

    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(runs.content("told"), "none\n");
    std::vector<std::string> said;
    while (const auto message = socket.next()) said.push_back(message->text);
    EXPECT_THAT(said, ElementsAre(StartsWith("STATUS="), StartsWith("READY=1\n"), "STOPPING=1"));
}

TEST(Launcher, WritesEachOnesOutputToAFileOfItsOwn) {
    const RealRuns runs;
    RunOptions options;
    options.outputFolder = runs.folder();
    const std::string text = "one\n\x1b[31mtwo";

    runs.run({stage("a/b", {}, {acting("../it", {"out", text}), acting("x", {"exit", "0"})})},
             options);

    EXPECT_EQ(runs.content("boot.main.a%2Fb.%2E%2E%2Fit.log"), text);
    EXPECT_TRUE(runs.has("boot.main.a%2Fb.x.log"));
}

TEST(Launcher, SaysWhenTheOutputCannotBeWritten) {
    const RealRuns runs;
    RunOptions options;
    options.outputFolder = runs.folder() + "/no-such-folder";

    const RealRun run = runs.run({stage("work", {}, {launched("it", "echo > done")})}, options);

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_FALSE(runs.has("done"));
    EXPECT_THAT(run.err, HasSubstr("work:it cannot be started: "));
}

TEST(Launcher, TellsInstancesApart) {
    const RealRuns runs;
    PlanClass boot = stageClass(
        "boot", {stage("work", {}, {launched("it", "echo $STAGEMGR_INSTANCE; exit 1")})});
    boot.instances = {{"left", {}, 0.0, false}, {"right", {}, 0.1, false}};
    RunOptions options;

    EXPECT_THAT(runs.run(planOf({boot}), options).err,
                AllOf(HasSubstr("work:it (boot/left) failed"), HasSubstr("| left\n"),
                      HasSubstr("work:it (boot/right) failed"), HasSubstr("| right\n"),
                      HasSubstr("boot/left: stage \"work\" waits")));
    EXPECT_THAT(runs.run(withInstances(planOf({boot}), {"right"}), options).err,
                AllOf(HasSubstr("work:it failed"), HasSubstr("| right\n"), Not(HasSubstr("left"))));
}

// How many are started at once: STAGEMGR_TEST_CHILDREN says, where there is time for more.
int many() {
    const char* const wanted = std::getenv("STAGEMGR_TEST_CHILDREN");
    return wanted != nullptr ? std::atoi(wanted) : 200;
}

TEST(Launcher, LosesNoneOfManyChildren) {
    const RealRuns runs;
    std::vector<PlanParticipant> participants;
    for (int i = 0; i < many(); ++i) {
        const std::string name = "p" + std::to_string(i);
        participants.push_back(i % 2 == 0
                                   ? acting(name, {"out", "up\n", "exit", "0"})
                                   : notifying(acting(name, {"out", "up\n", "ready", "pause"})));
    }

    const RealRun run = runs.run({stage("work", {}, participants)}, untilComplete());

    EXPECT_EQ(run.status, exitDone);
    EXPECT_EQ(run.stage("work").state, State::complete);
    EXPECT_THAT(run.stage("work").assumedAgents, IsEmpty());
    EXPECT_EQ(run.err, "");
}

TEST(Launcher, SaysOfEachOfManyHowItFailed) {
    const RealRuns runs;
    std::vector<PlanParticipant> participants;
    for (int i = 0; i < many(); ++i)
        participants.push_back(
            acting("p" + std::to_string(i), {"exit", std::to_string(1 + i % 90)}));

    const RealRun run = runs.run({stage("work", {}, participants)});

    EXPECT_EQ(run.status, exitFailed);
    EXPECT_THAT(run.stage("work").pendingAgents, SizeIs(participants.size()));
    for (int i = 0; i < many(); ++i) {
        const std::size_t said = run.err.find("work:p" + std::to_string(i) + " failed after ");
        ASSERT_NE(said, std::string::npos) << i;
        EXPECT_THAT(run.err.substr(said, 80),
                    HasSubstr("exit status " + std::to_string(1 + i % 90) + "\n"));
    }
}

TEST(OutputLog, KeepsTheLastLines) {
    OutputLog log;
    std::size_t written = 5;
    for (int i = 0; i < 100000; ++i) {
        const std::string line = "line " + std::to_string(i) + "\n";
        log.add(line);
        written += line.size();
    }
    log.add("begun");

    EXPECT_THAT(log.lastLines(3), ElementsAre("line 99998", "line 99999", "begun"));
    EXPECT_EQ(log.bytes(), written);
}

TEST(OutputLog, PassesLinesOnAsSoonAsTheyAreWhole) {
    OutputLog log;
    std::vector<std::string> lines;
    log.passOn([&](const std::string& line) { lines.push_back(line); });

    log.add("on");
    EXPECT_THAT(lines, IsEmpty());
    log.add("e\n\ntwo");
    EXPECT_THAT(lines, ElementsAre("one", ""));
    log.end();
    EXPECT_THAT(lines, ElementsAre("one", "", "two"));
    log.add(std::string(5000, 'x') + "\n");
    EXPECT_THAT(lines.at(3), SizeIs(OutputLog::longestLine));
    EXPECT_THAT(lines.at(4), SizeIs(5000 - OutputLog::longestLine));
}

TEST(OutputLog, CutsLongLinesBetweenCharacters) {
    OutputLog log;
    log.add(std::string(199, 'x') + "\xc3\xa9" + "yyy\r\n");
    EXPECT_THAT(log.lastLines(1), ElementsAre(std::string(199, 'x') + "..."));
}

TEST(OutputLog, NamesFilesOnlyByHarmlessBytes) {
    EXPECT_EQ(outputFileName({"boot", "..", "a/b\n", ""}, 1), "boot.%2E%2E.a%2Fb%0A..log");
    EXPECT_EQ(outputFileName({std::string(4096, 'x')}, 7), std::string(200, 'x') + "~7.log");
}

TEST(Notifications, AreReadLineByLine) {
    const Notification all = notification(
        "STATUS=a=b\nREADY=1\nSTOPPING=1\nERRNO=13\nWATCHDOG=1\nEXTEND_TIMEOUT_USEC=1");
    EXPECT_TRUE(all.ready);
    EXPECT_TRUE(all.stopping);
    EXPECT_EQ(all.status, "a=b");
    EXPECT_EQ(all.error, 13);
    const Notification none = notification("READY=0\nREADY=11\nSTOPPING=0\nERRNO=x");
    EXPECT_FALSE(none.ready);
    EXPECT_FALSE(none.stopping);
    EXPECT_FALSE(none.status);
    EXPECT_FALSE(none.error);
}

}  // namespace
}  // namespace Host
