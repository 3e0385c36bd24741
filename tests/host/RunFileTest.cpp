// The verbs that show runs, as they are called.
#include <gtest/gtest.h>

#include <sstream>

#include "host/CommandLine.h"
#include "host/Json.h"
#include "host/Utf8.h"
#include "tests/host/HostileNames.h"
#include "tests/host/Journals.h"

namespace Host {
namespace {

struct Ran {
    int status;
    std::string out;
    std::string err;
};

Ran stagemgr(const std::vector<std::string>& arguments, const std::string& in) {
    std::istringstream input(in);
    std::ostringstream out;
    std::ostringstream err;
    const int status = commandLine(arguments, Console{input, out, err});
    return {status, out.str(), err.str()};
}

const std::string journal = text(bootClass() + agent("disk", "mount", 5) + enable("main") +
                                 report(2, "disk", "mount", "main"));

const std::vector<std::string> verbs{"time", "blame", "critical-chain", "plot", "graph"};

TEST(RunFile, EveryVerbTakesAJournal) {
    for (const std::string& verb : verbs) {
        const Ran ran = stagemgr({verb, "-"}, journal);

        EXPECT_EQ(ran.status, exitDone) << verb << ran.err;
        EXPECT_NE(ran.out.find("mount"), std::string::npos) << verb;
        EXPECT_EQ(ran.err, "") << verb;
    }
}

TEST(RunFile, EveryVerbWritesJson) {
    for (const std::string& verb : verbs) {
        const Ran ran = stagemgr({verb, "-", "--json"}, journal);

        EXPECT_EQ(ran.status, exitDone) << verb << ran.err;
        EXPECT_EQ(*parseJson(ran.out).member("schema"), Json("stagemgr." + verb + "/1"));
    }
}

TEST(RunFile, SaysWhatIsNeitherAPlanNorAJournal) {
    for (const char* const verb : {"time", "explain"}) {
        const Ran ran = stagemgr({verb, "-"}, "hello\n");

        EXPECT_EQ(ran.status, exitUsage);
        EXPECT_EQ(ran.out, "");
        EXPECT_EQ(
            ran.err,
            "<stdin>: neither a plan nor a journal: a plan is YAML or JSON with \"version\" and "
            "\"stages\", a journal has one JSON object with \"op\" per line\n");
    }
}

TEST(RunFile, APlanInJsonMayCallSomethingOp) {
    const Ran ran = stagemgr({"time", "-"},
                             "{\"version\": 1, \"stages\": {\"op\": {\"takes\": \"1s\"},\n"
                             " \"b\": null}}\n");

    EXPECT_EQ(ran.err, "");
    EXPECT_EQ(ran.status, exitDone);
}

// A plan and its own record are the same run.
TEST(RunFile, APlanGoesAsFarAsASimulation) {
    const std::string plan =
        "version: 1\nclass: k\ninstances: {x: , y: {start: 1min}}\n"
        "stages: {a: {critical: true, takes: never, limit: 10s}}\n";

    EXPECT_THAT(stagemgr({"time", "-"}, plan).out, testing::Not(testing::HasSubstr("k/y")));
    EXPECT_EQ(stagemgr({"time", "-", "--instance", "y"}, plan).err,
              "stagemgr: no instance \"y\" has begun in <stdin>; there is k/x\n");
}

TEST(RunFile, SaysWhereAJournalIsWrong) {
    const Ran ran = stagemgr({"blame", "-"}, "# one\n{\"op\": \"nothing\"}\n");

    EXPECT_EQ(ran.status, exitUsage);
    EXPECT_EQ(ran.err.substr(0, 10), "<stdin>:2:");
}

TEST(RunFile, ShowsOneInstanceAlone) {
    const Ran one = stagemgr({"time", "-", "--instance", "boot/main"}, journal);
    const Ran none = stagemgr({"time", "-", "--instance", "left"}, journal);

    EXPECT_EQ(one.status, exitDone);
    EXPECT_EQ(none.status, exitUsage);
    EXPECT_EQ(none.err,
              "stagemgr: no instance \"left\" has begun in <stdin>; there is boot/main\n");
}

TEST(RunFile, SuggestsStagesAndFormats) {
    EXPECT_EQ(stagemgr({"critical-chain", "-", "mont"}, journal).err,
              "stagemgr: no stage \"mont\" in <stdin>; did you mean \"mount\"?\n");
    EXPECT_EQ(stagemgr({"graph", "-", "--format", "dt"}, journal).err,
              "stagemgr: no format \"dt\"; did you mean \"dot\"?\n");
    EXPECT_EQ(stagemgr({"critical-chain", "-", "--fuzz", "x"}, journal).status, exitUsage);
}

TEST(RunFile, OnlyOneOfTwoRunsIsStandardInput) {
    const Ran ran = stagemgr({"diff", "-", "-"}, journal);

    EXPECT_EQ(ran.status, exitUsage);
    EXPECT_EQ(ran.err, "stagemgr: only one of the two runs can be standard input\n");
}

// Names come in by a journal, and go out without moving a cursor or ending a line.
TEST(RunFile, NoNameBreaksATextOrADocument) {
    for (const HostileName& hostile : hostileNames()) {
        std::string name;
        appendText(name, hostile.name);
        const std::string input =
            text(bootClass() + create("/input/boot/a", "Stage::AgentConfig")) +
            R"({"op":"set","path":"/input/boot/a","attr":"event","key":)" + name + "}\n" +
            R"({"op":"set","path":"/enable/boot","attr":"enabled","key":)" + name +
            R"(,"value":true})" + "\n";
        for (const std::string& verb : verbs) {
            const Ran ran = stagemgr({verb, "-"}, input);
            EXPECT_EQ(ran.status, exitDone) << verb << hostile.what << ran.err;
            std::string lines = ran.out;
            std::erase(lines, '\n');
            EXPECT_EQ(printable(lines), lines) << verb << ": " << hostile.what;
            EXPECT_NO_THROW(parseJson(stagemgr({verb, "-", "--json"}, input).out))
                << verb << ": " << hostile.what;
        }
    }
}

}  // namespace
}  // namespace Host
