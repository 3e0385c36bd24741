#include "host/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "tests/host/Journals.h"
#include "tests/host/TemporaryFile.h"

namespace Host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

struct Ran {
    int status;
    std::string out;
    std::string err;
};

Ran stagemgr(const std::vector<std::string>& arguments, const std::string& in = {}) {
    std::istringstream input(in);
    std::ostringstream out;
    std::ostringstream err;
    const int status = commandLine(arguments, Console{input, out, err});
    return {status, out.str(), err.str()};
}

const std::string journal = text(bootClass() + agent("disk", "mount", 5) + enable("main"));

TEST(CommandLine, ReplaysAFile) {
    const TemporaryFile file(journal);

    const Ran ran = stagemgr({"replay", file.path()});

    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, replayedText(journal));
    EXPECT_EQ(ran.err, "");
}

TEST(CommandLine, ReplaysStandardInputAtADash) {
    EXPECT_EQ(stagemgr({"replay", "-"}, journal).out, replayedText(journal));
}

TEST(CommandLine, WritesToAFileWhenAsked) {
    const TemporaryFile file("what was there before");

    const Ran ran = stagemgr({"replay", "-", "--out", file.path()}, journal);

    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(file.content(), replayedText(journal));
}

TEST(CommandLine, HandsPrintedLinesOnWhenObservationsGoElsewhere) {
    const TemporaryFile file;
    const std::string critical =
        journal +
        R"({"op":"set","path":"/input/boot/disk/event/mount","attr":"critical","value":true})";

    EXPECT_EQ(stagemgr({"replay", "-", "--out", file.path()}, critical).out,
              " Critical stage mount timed out! Boot suspended for debugging.\n");
}

TEST(CommandLine, ShowsItToPeopleWhenAsked) {
    EXPECT_THAT(stagemgr({"replay", "--human", "-"}, journal).out,
                StartsWith("    TIME  INSTANCE"));
}

TEST(CommandLine, TracesToStandardErrorWhenAsked) {
    testing::internal::CaptureStderr();
    const Ran ran = stagemgr({"replay", "--trace", "7", "-"}, journal);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Activating stage mount"));
    EXPECT_EQ(ran.out, replayedText(journal));

    testing::internal::CaptureStderr();
    stagemgr({"replay", "-"}, journal);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CommandLine, NamesFileAndLineOfAMalformedJournal) {
    const TemporaryFile file("\n{\"op\":\"settle\"}\n{\"op\":\"set\"}\n");

    const Ran ran = stagemgr({"replay", file.path()});

    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.err, file.path() + ":3: \"set\" needs \"path\"\n");
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(stagemgr({"replay", "-"}, "x").err, "-:1: not JSON: syntax error at column 1\n");
}

TEST(CommandLine, SaysWhatItCannotOpen) {
    const Ran missing = stagemgr({"replay", "/nonexistent/journal"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err,
              "stagemgr: cannot read /nonexistent/journal: No such file or directory\n");

    const Ran folder = stagemgr({"replay", testing::TempDir()});
    EXPECT_EQ(folder.status, 2);
    EXPECT_EQ(folder.err, "stagemgr: cannot read " + testing::TempDir() + ": Is a directory\n");

    const Ran unwritable = stagemgr({"replay", "-", "--out", "/nonexistent/out"});
    EXPECT_EQ(unwritable.status, 2);
    EXPECT_EQ(unwritable.err,
              "stagemgr: cannot write /nonexistent/out: No such file or directory\n");
}

TEST(CommandLine, SaysThatTheOutputIsFull) {
    const Ran ran = stagemgr({"replay", "-", "--out", "/dev/full"}, journal);

    EXPECT_EQ(ran.status, 70);
    EXPECT_EQ(ran.err, "stagemgr: the output could not be written\n");
}

TEST(CommandLine, HelpsAndTellsItsVersion) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"-h"}, {"help"}}) {
        const Ran ran = stagemgr(arguments);
        EXPECT_EQ(ran.status, 0);
        EXPECT_THAT(ran.out, HasSubstr("Usage: stagemgr [OPTIONS] VERB\n"));
        EXPECT_THAT(ran.out, HasSubstr("replay"));
        EXPECT_EQ(ran.err, "");
    }
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"help", "replay"}, {"replay", "--help"}}) {
        const Ran ran = stagemgr(arguments);
        EXPECT_EQ(ran.status, 0);
        EXPECT_THAT(ran.out, HasSubstr("Usage: stagemgr replay [OPTIONS] FILE\n"));
        EXPECT_THAT(ran.out, HasSubstr("--human"));
    }
    EXPECT_THAT(stagemgr({"--version"}).out, StartsWith("stagemgr "));
    EXPECT_EQ(stagemgr({"--version"}).status, 0);
}

struct Misuse {
    std::vector<std::string> arguments;
    const char* err;
};

TEST(CommandLine, RefusesWhatItDoesNotKnowWithStatus2) {
    const Misuse table[] = {
        {{"rplay", "x"}, "stagemgr: no verb \"rplay\"; did you mean \"replay\"?\n"},
        {{"frobnicate"},
         "stagemgr: no verb \"frobnicate\"; there are check, simulate, run, explain, time, blame, "
         "critical-chain, plot, graph, diff, replay, completion, help\n"},
        {{""},
         "stagemgr: no verb \"\"; there are check, simulate, run, explain, time, blame, "
         "critical-chain, plot, graph, diff, replay, completion, help\n"},
        {{"help", "rplay"}, "stagemgr: no verb \"rplay\"; did you mean \"replay\"?\n"},
        {{"replay"}, "stagemgr: FILE is required; see stagemgr help replay\n"},
        {{"replay", "a", "b"},
         "stagemgr: The following argument was not expected: b; see stagemgr help replay\n"},
        {{"replay", "-", "--trace", "10"},
         "stagemgr: --trace: Value 10 not in range 0 to 9; see stagemgr help replay\n"},
        {{"replay", "-", "--trace", "x"},
         "stagemgr: --trace: Value x not in range 0 to 9; see stagemgr help replay\n"},
        {{"replay", "-", "--frobnicate"},
         "stagemgr: The following argument was not expected: --frobnicate; see stagemgr help "
         "replay\n"},
        {{"replay", "-", "--out", ""},
         "stagemgr: --out: the value is empty; give one, or leave the option out\n"},
        {{"simulate", "-", "--within", ""},
         "stagemgr: --within: the value is empty; give one, or leave the option out\n"},
        {{"--frobnicate"}, "stagemgr: A subcommand is required; see stagemgr help\n"},
    };
    for (const Misuse& misuse : table) {
        const Ran ran = stagemgr(misuse.arguments);
        EXPECT_EQ(ran.status, 2) << misuse.err;
        EXPECT_EQ(ran.out, "");
        EXPECT_EQ(ran.err, misuse.err);
    }
}

TEST(CommandLine, WhatCannotBeWrittenIsNotDone) {
    const std::vector<std::string> table[] = {
        {"help"}, {"help", "check"}, {"--help"}, {"--version"}, {"completion", "bash"}};
    for (const std::vector<std::string>& arguments : table) {
        std::istringstream in;
        std::ostringstream out;
        std::ostringstream err;
        out.setstate(std::ios::badbit);

        EXPECT_EQ(commandLine(arguments, Console{in, out, err}), 70) << arguments.front();
        EXPECT_EQ(err.str(), "stagemgr: the output could not be written\n");
    }
}

TEST(CommandLine, WithoutAVerbShowsHowItIsUsed) {
    const Ran ran = stagemgr({});

    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr("Usage: stagemgr"));
}

}  // namespace
}  // namespace Host
