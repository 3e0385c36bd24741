// How participants misbehave, and what becomes of a run then. Each line of the table is one way:
// what the participant does (tests/host/participant/main.cpp says what the words mean), and the
// outcome.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <limits>
#include <ostream>

#include "tests/host/Plans.h"
#include "tests/host/RealRun.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Lt;
using testing::Matcher;
using testing::Not;
using testing::SizeIs;
using State = StageOutcome::State;
using Acts = std::vector<std::string>;

constexpr auto byExit = PlanParticipant::Ready::exit;
constexpr auto byNotify = PlanParticipant::Ready::notify;

struct Row {
    const char* name;
    PlanParticipant::Ready ready;
    Acts acts;
    int status;                        // of the run
    State state;                       // of the stage, at the end of the progression
    Matcher<const std::string&> said;  // to people
    Acts other{};
    bool isProgram = false;
    double itsLimit = std::numeric_limits<double>::infinity();
    double itsStopLimit = 60.0;
    const char* itsDirectory = ".";
    std::size_t variableSize = 0;

    // Somebody else takes part in the stage.
    Row with(Acts acts_) && { return other = std::move(acts_), std::move(*this); }
    // The acts are a program and its arguments.
    Row program() && { return isProgram = true, std::move(*this); }
    Row limit(double seconds) && { return itsLimit = seconds, std::move(*this); }
    Row stopLimit(double seconds) && { return itsStopLimit = seconds, std::move(*this); }
    Row directory(const char* folder) && { return itsDirectory = folder, std::move(*this); }
    // Its environment has a variable that is so long.
    Row variable(std::size_t bytes) && { return variableSize = bytes, std::move(*this); }
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

using Said = Matcher<const std::string&>;

// It will never be ready, and the run fails.
Row fails(const char* name, PlanParticipant::Ready ready, Acts acts, Said said) {
    return {name, ready, std::move(acts), 1, State::running, std::move(said)};
}
// It is ready, and the run fails.
Row failsLater(const char* name, PlanParticipant::Ready ready, Acts acts, Said said) {
    return {name, ready, std::move(acts), 1, State::complete, std::move(said)};
}
// It is ready, and the run is done.
Row completes(const char* name, PlanParticipant::Ready ready, Acts acts, Said said) {
    return {name, ready, std::move(acts), 0, State::complete, std::move(said)};
}
// It is not ready in time, and the run is done without it.
Row isPassedOver(const char* name, PlanParticipant::Ready ready, Acts acts, Said said) {
    return {name, ready, std::move(acts), 0, State::passedOver, std::move(said)};
}

const Row table[] = {
    // It ends, in one way or the other, before it was ready. Nothing else can happen then: the run
    // ends with what is known.
    fails("ExitsWithoutReady", byNotify, {"exit", "0"},
          HasSubstr("exit status 0 before it said READY=1")),
    fails("ExitsWith1WithoutReady", byNotify, {"out", "no disk\n", "exit", "1"},
          AllOf(HasSubstr("exit status 1 before it said READY=1"), HasSubstr("    | no disk\n"))),
    fails("ExitsWith1", byExit, {"exit", "1"}, HasSubstr(": exit status 1\n")),
    fails("ExitsWith255", byExit, {"exit", "255"}, HasSubstr(": exit status 255\n")),
    fails("IsKilled", byExit, {"raise", "9"}, HasSubstr("killed by SIGKILL")),
    fails("IsKilledBeforeReady", byNotify, {"raise", "9"},
          HasSubstr("killed by SIGKILL before it said READY=1")),
    fails("IsHungUp", byExit, {"raise", "1"}, HasSubstr("killed by SIGHUP")),
    fails("IsTerminated", byExit, {"raise", "15"}, HasSubstr("killed by SIGTERM")),
    fails("WritesToNobody", byExit, {"raise", "13"}, HasSubstr("killed by SIGPIPE")),
    fails("EndsByARealTimeSignal", byExit, {"raise", "64"}, HasSubstr("killed by signal 64")),
    fails("CallsAnUnknownFunction", byExit, {"frobnicate"},
          AllOf(HasSubstr("exit status 99"), HasSubstr("    | frobnicate: Invalid argument\n"))),

    // It is ready, and then something else.
    completes("SaysReadyTwice", byNotify, {"ready", "ready", "exit", "0"},
              HasSubstr("ended after it was ready: exit status 0")),
    failsLater(
        "IsReadyThenFails", byNotify, {"ready", "out", "lost it\n", "exit", "3"},
        AllOf(HasSubstr("ended after it was ready: exit status 3"), HasSubstr("    | lost it\n"))),
    failsLater("IsReadyThenIsKilled", byNotify, {"ready", "raise", "9"},
               HasSubstr("ended after it was ready: killed by SIGKILL")),
    completes("IsReadyThenStops", byNotify, {"ready", "say", "STOPPING=1", "exit", "0"},
              HasSubstr("ended after it was ready: exit status 0")),
    fails("SaysReadyWithoutBeingAsked", byExit, {"variable", "NOTIFY_SOCKET", "exit", "1"},
          HasSubstr("    | NOTIFY_SOCKET=(none)\n")),

    // It says other things, or says it in another way.
    fails("SaysReadyIs0", byNotify, {"say", "READY=0", "exit", "0"},
          HasSubstr("before it said READY=1")),
    fails("SaysAlmostReady", byNotify,
          {"say", "READY=1x", "say", "XREADY=1", "say", "ready=1", "say", " READY=1", "exit", "0"},
          HasSubstr("before it said READY=1")),
    completes("SaysReadyAmongOthers", byNotify,
              {"say", "STATUS=up\nREADY=1\nMAINPID=1\nFOO=bar\n", "exit", "0"},
              HasSubstr("ended after it was ready")),
    completes("SaysReadyWithAZeroByte", byNotify, {"say-zero", "exit", "0"},
              HasSubstr("ended after it was ready")),
    fails("SaysNothing", byNotify, {"say-nothing", "say-nothing", "exit", "0"},
          HasSubstr("before it said READY=1")),
    completes("SaysNothingThenReady", byNotify, {"say-nothing", "ready", "exit", "0"},
              HasSubstr("ended after it was ready")),
    fails("Says200Kilobytes", byNotify, {"say-bytes", "200000", "exit", "0"},
          AllOf(HasSubstr("a message of more than 4096 bytes to its NOTIFY_SOCKET is ignored"),
                HasSubstr("before it said READY=1"))),
    completes("Says200KilobytesThenReady", byNotify, {"say-bytes", "200000", "ready", "exit", "0"},
              HasSubstr("ended after it was ready")),
    fails("SaysReadyWithTooMuch", byNotify, {"say-long-ready", "exit", "0"},
          HasSubstr("a message of more than 4096 bytes")),
    fails("SaysBytes", byNotify, {"say", "\x01\xff\xfe=\n\n=\n\x80", "exit", "0"},
          HasSubstr("before it said READY=1")),
    completes("SaysMuch", byNotify, {"say-times", "1000", "STATUS=busy", "ready", "exit", "0"},
              HasSubstr("ended after it was ready")),
    completes("SaysReadyOverAConnection", byNotify, {"ready-connected", "exit", "0"},
              HasSubstr("ended after it was ready")),
    completes("PassesDescriptors", byNotify, {"ready-with-descriptors", "exit", "0"},
              HasSubstr("ended after it was ready")),
    fails(
        "UnlinksItsSocket", byNotify, {"unlink-socket", "ready"},
        AllOf(HasSubstr("exit status 99"), HasSubstr("    | sendto: No such file or directory\n"))),
    completes("UnlinksItsSocketWhenReady", byNotify, {"ready", "unlink-socket", "exit", "0"},
              HasSubstr("ended after it was ready")),
    fails("SaysWhatIsWrong", byNotify,
          {"say", "STATUS=waiting for \x1b[31mdisk\nERRNO=2", "exit", "1"},
          AllOf(HasSubstr("its status: \"waiting for \\u001b[31mdisk\""),
                HasSubstr("its error: No such file or directory"))),
    fails("SaysAnErrorThatIsNone", byNotify, {"say", "ERRNO=many\nERRNO=-1\nERRNO=", "exit", "1"},
          Not(HasSubstr("its error"))),
    isPassedOver("WantsMoreTime", byNotify, {"say", "EXTEND_TIMEOUT_USEC=60000000", "pause"},
                 HasSubstr("is not ready within its stage's limit of 300ms"))
        .limit(0.3),

    // Others say it.
    fails("AStrangerSaysReady", byNotify, {"tell-socket", "socket", "until", "said", "exit", "0"},
          AllOf(HasSubstr(", which does not belong to it, is ignored"),
                HasSubstr("before it said READY=1")))
        .with({"until", "socket", "to", "socket", "ready", "fork", "end", "wait", "until", "seen",
               "exit", "0"}),
    completes("AChildSaysReady", byNotify, {"fork", "ready", "pause", "end", "pause"}, IsEmpty()),
    completes("AChildOfAChildSaysReady", byNotify,
              {"fork", "fork", "ready", "pause", "end", "pause", "end", "pause"}, IsEmpty()),
    completes("AChildInASessionOfItsOwnSaysReady", byNotify,
              {"fork", "setsid", "ready", "pause", "end", "pause"},
              HasSubstr("1 process that participants left behind was killed")),
    completes("OneThatForkedAwaySaysReady", byNotify,
              {"fork-away", "ready", "pause", "end", "pause"},
              HasSubstr("1 process that participants left behind was killed")),

    // It leaves others behind.
    completes("ForksAway", byExit, {"fork-away", "pause", "end", "exit", "0"},
              HasSubstr("1 process that participants left behind was killed")),
    fails("ForksAwayBeforeReady", byNotify, {"fork-away", "pause", "end", "exit", "0"},
          HasSubstr("exit status 0 before it said READY=1")),
    completes("ForksAwayDeaf", byExit, {"ignore", "15", "ignore", "1", "fork-away", "pause", "end"},
              HasSubstr("1 process that participants left behind was killed")),
    completes("LeavesBackgroundProcesses", byExit, {"fork", "pause", "end", "exit", "0"},
              IsEmpty()),
    completes("LeavesADeafBackgroundProcess", byExit, {"ignore", "15", "fork", "pause", "end"},
              IsEmpty())
        .stopLimit(0.1),
    completes("LeavesAFlood", byExit, {"fork", "flood", "1000000000", "end", "exit", "0"},
              IsEmpty()),
    completes("ForksMany", byExit, {"forks", "30", "exit", "0"},
              HasSubstr("30 processes that participants left behind were killed")),
    completes("HasAZombie", byNotify, {"fork", "end", "until-zombie", "ready", "pause"}, IsEmpty()),
    completes("ChangesItsProcessGroup", byNotify,
              {"fork", "setpgid", "ignore", "15", "ready", "pause", "end", "pause"}, IsEmpty())
        .stopLimit(0.1),

    // It does not stop.
    completes("IgnoresTermination", byNotify, {"ignore", "15", "ready", "pause"},
              HasSubstr("did not stop within 100ms, and was killed"))
        .stopLimit(0.1),
    completes("IgnoresHangup", byNotify, {"ignore", "1", "ready", "pause"}, IsEmpty()),
    isPassedOver(
        "StopsItself", byNotify, {"raise", "19", "ready", "pause"},
        HasSubstr("is not ready within its stage's limit of 1s; it has been stopped by a signal"))
        .limit(1.0),
    completes("StopsItselfWhenReady", byNotify, {"ready", "raise", "19"}, IsEmpty()),
    isPassedOver(
        "NeverEnds", byExit, {"out", "busy\n", "pause"},
        AllOf(HasSubstr("is not ready within its stage's limit of 1s"), HasSubstr("    | busy\n")))
        .limit(1.0),

    // It writes what nobody wants to see.
    completes("FloodsItsOutput", byExit, {"flood", "65536", "exit", "0"}, IsEmpty()),
    fails("FloodsItsOutputAndFails", byExit, {"flood", "16384", "exit", "1"},
          AllOf(HasSubstr("    | all work and no play\n"), SizeIs(Lt(2000)))),
    fails("WritesOneLongLine", byExit, {"out", std::string(100000, 'x'), "out", "y", "exit", "1"},
          AllOf(HasSubstr("xxx..."), SizeIs(Lt(2000)))),
    fails("WritesBytes", byExit, {"bytes", "exit", "1"},
          AllOf(Not(HasSubstr(std::string(1, '\0'))), Not(HasSubstr("\x1b")),
                Not(HasSubstr("\x80")))),
    fails("WritesEscapes", byExit, {"out", "\x1b[2J\x1b]0;title\x07 \xe2\x80\xae", "exit", "1"},
          AllOf(HasSubstr("    | \\u001b[2J"), Not(HasSubstr("\x1b")))),
    fails("WritesHalfALine", byExit, {"out", "one\ntwo", "exit", "1"},
          HasSubstr("    | one\nstagemgr:     | two\n")),
    fails("WritesToStandardError", byExit, {"err", "no\n", "exit", "1"}, HasSubstr("    | no\n")),
    completes("ClosesItsOutput", byNotify, {"close", "1", "close", "2", "ready", "exit", "0"},
              HasSubstr("ended after it was ready")),
    completes("ClosesEverything", byExit, {"close-all", "exit", "0"}, IsEmpty()),
    completes("ClosesEverythingThenIsReady", byNotify, {"close-all", "ready", "exit", "0"},
              HasSubstr("ended after it was ready")),

    // It looks for what it should not have.
    completes("ReadsItsInput", byExit, {"read-input"}, IsEmpty()),
    completes("WantsOurDescriptors", byNotify, {"want-descriptors", "ready", "exit", "0"},
              HasSubstr("ended after it was ready")),

    // It cannot be started.
    fails("DoesNotExist", byExit, {"no-such-program"},
          HasSubstr("cannot be started: there is no program \"no-such-program\" in PATH"))
        .program(),
    fails("DoesNotExistThere", byNotify, {"/no/such/program"},
          HasSubstr("\"/no/such/program\" cannot be executed: No such file or directory"))
        .program(),
    fails("IsNotExecutable", byExit, {"./plain"},
          HasSubstr("\"./plain\" cannot be executed: Permission denied"))
        .program(),
    fails("IsAFolder", byExit, {"/tmp"},
          HasSubstr("\"/tmp\" cannot be executed: Permission denied"))
        .program(),
    fails("IsNoProgram", byExit, {"./text"},
          HasSubstr("\"./text\" is no program that can be executed"))
        .program(),
    fails("HasAnInterpreterThatDoesNotExist", byExit, {"./script"},
          HasSubstr("\"./script\" cannot be executed: No such file or directory"))
        .program(),
    fails("IsEmpty", byExit, {""}, HasSubstr("its command is empty")).program(),
    fails("HasAZeroByte", byExit, {"/bin/echo", std::string("a\0b", 3)},
          HasSubstr("has a zero byte in it"))
        .program(),
    fails("HasAHugeArgument", byExit, {"/bin/true", std::string(1 << 20, 'x')},
          HasSubstr("larger than the system takes"))
        .program(),
    fails("HasAHugeEnvironment", byExit, {"exit", "0"}, HasSubstr("larger than the system takes"))
        .variable(1 << 20),
    fails("HasNoFolder", byExit, {"exit", "0"},
          AllOf(HasSubstr("its directory \""), HasSubstr("no-such-folder\" does not exist")))
        .directory("no-such-folder"),
    fails("HasAFileForAFolder", byExit, {"exit", "0"}, HasSubstr("plain\" is no directory"))
        .directory("plain")};

class Misbehaviours : public testing::TestWithParam<Row> {};

TEST_P(Misbehaviours, AreHandled) {
    const Row& row = GetParam();
    const RealRuns runs;
    std::ofstream(runs.folder() + "/plain") << "text\n";
    for (const char* const name : {"/text", "/script"}) {
        std::ofstream(runs.folder() + name)
            << (std::string(name) == "/text" ? "text\n" : "#!/no/such/interpreter\n");
        chmod((runs.folder() + name).c_str(), 0755);
    }
    PlanParticipant it = row.isProgram ? launched("it", row.acts) : acting("it", row.acts);
    it.ready = row.ready;
    it.limit = row.itsLimit;
    it.stopLimit = row.itsStopLimit;
    it.directory = row.itsDirectory;
    if (row.variableSize != 0) it.environment = {{"LONG", std::string(row.variableSize, 'x')}};
    std::vector<PlanParticipant> participants{it};
    if (!row.other.empty()) participants.push_back(acting("other", row.other));
    RunOptions options;
    // Whoever does not end by itself is taken down as soon as everything is complete.
    options.untilComplete = row.status == 0 && row.acts.back() != "0";

    const RealRun run =
        runs.run({stage("work", {}, participants)}, options, [&](const std::string& line) {
            if (line.find("does not belong to it") == std::string::npos) return;
            std::ofstream(runs.folder() + "/seen");
            std::ofstream(runs.folder() + "/said");
        });

    EXPECT_EQ(run.status, row.status);
    EXPECT_EQ(run.stage("work").state, row.state);
    EXPECT_THAT(run.err, row.said);
}

INSTANTIATE_TEST_SUITE_P(, Misbehaviours, testing::ValuesIn(table),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(MisbehaviourTable, HasAtLeast40Ways) { EXPECT_GE(std::size(table), 40u); }

}  // namespace
}  // namespace Host
