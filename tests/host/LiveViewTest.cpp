#include "host/session/LiveView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include "host/Terminal.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

using State = StageOutcome::State;

StageHistory stage(const std::string& name, State state) {
    StageHistory made;
    made.name = name;
    made.limit = 90;
    made.outcome.stage = Orv::Name(name);
    made.outcome.state = state;
    return made;
}

StageHistory running(const std::string& name, double start, double limit,
                     std::vector<Orv::String> pending) {
    StageHistory made = stage(name, State::running);
    made.start = start;
    made.limit = limit;
    made.outcome.pendingAgents = std::move(pending);
    return made;
}

StageHistory complete(const std::string& name, double start, double end) {
    StageHistory made = stage(name, State::complete);
    made.start = start;
    made.end = end;
    return made;
}

StageHistory after(const std::string& name, const std::string& other) {
    StageHistory made = stage(name, State::notStarted);
    made.outcome.incompleteDependencies = {other};
    return made;
}

RunHistory runOf(std::vector<StageHistory> stages) {
    InstanceHistory instance;
    instance.stageClass = "boot";
    instance.instance = "main";
    instance.state = InstanceOutcome::State::running;
    instance.deadline = 45;
    instance.stages = std::move(stages);
    RunHistory run;
    run.instances.push_back(std::move(instance));
    return run;
}

TEST(LiveView, ShowsWhatRunsWhatIsHeldAndWhatWasCompleteLast) {
    StageHistory maintenance = stage("maintenance", State::notStarted);
    maintenance.outcome.heldByOperator = true;
    const RunHistory run =
        runOf({complete("power", 0, 2), running("disks", 2, 20, {"shelf", "cache"}), maintenance,
               after("web", "disks")});

    EXPECT_THAT(liveLines(run, 12.34, {80, 24}),
                ElementsAre("boot/main  running for 12.3s  deadline in 32.6s  1 of 4 stages "
                            "complete",
                            "  > disks        [######......]  10.3s of 20s    shelf, cache",
                            "  - maintenance  on the do-not-start list",
                            "  + power        complete after 2s, 10.3s ago",
                            "    web          after disks"));
}

TEST(LiveView, ABarIsFullWhenTheLimitIsUsed) {
    const auto bar = [](double now, double limit) {
        return liveLines(runOf({running("disks", 0, limit, {"shelf"})}), now, {80, 24})[1];
    };
    EXPECT_THAT(bar(0, 20), HasSubstr("[............]  0s of 20s"));
    EXPECT_THAT(bar(19.9, 20), HasSubstr("[###########.]"));
    EXPECT_THAT(bar(20, 20), HasSubstr("[############]"));
    EXPECT_THAT(bar(30, 20), HasSubstr("[############]"));
    EXPECT_THAT(bar(30, std::numeric_limits<double>::infinity()),
                AllOf(HasSubstr("  no limit  "), HasSubstr("30s"), Not(HasSubstr(" of "))));
}

TEST(LiveView, WhatTimedOutComesFirst) {
    StageHistory late = running("late", 0, 5, {"agent"});
    late.outcome.state = State::overdue;
    late.timedOut = 5;

    EXPECT_THAT(liveLines(runOf({running("disks", 0, 90, {"shelf"}), late}), 7, {80, 24})[1],
                StartsWith("  ! late   timed out 2s ago, waits for agent"));
}

TEST(LiveView, WhatWasAssumedOrPassedOverIsNotShownAsComplete) {
    StageHistory assumed = complete("assumed", 0, 3);
    assumed.outcome.assumedAgents = {"agent"};
    StageHistory passed = complete("passed", 0, 5);
    passed.outcome.state = State::passedOver;

    const auto lines = liveLines(runOf({assumed, passed}), 7, {80, 24});

    EXPECT_EQ(lines[1], "  + passed   timed out, passed over after 5s, 2s ago");
    EXPECT_EQ(lines[2], "  + assumed  complete, assumed for agent after 3s, 4s ago");
}

TEST(LiveView, ShowsTheLastCompletionsOnly) {
    const auto lines = liveLines(
        runOf({complete("a", 0, 1), complete("b", 0, 4), complete("c", 0, 2), complete("d", 0, 3)}),
        5, {80, 24});

    EXPECT_THAT(lines, ElementsAre(HasSubstr("4 of 4"), StartsWith("  + b"), StartsWith("  + d"),
                                   StartsWith("  + c")));
}

TEST(LiveView, SaysWhyAStageIsHeld) {
    StageHistory critical = stage("addresses", State::notStarted);
    critical.outcome.heldByCritical = true;
    RunHistory run = runOf({critical, after("web", "nobody")});
    EXPECT_THAT(liveLines(run, 1, {80, 24}),
                ElementsAre(testing::_, "  - addresses  critical stages start first",
                            "  - web        there is no stage nobody"));

    run.instances[0].state = InstanceOutcome::State::suspended;
    run.instances[0].stages[0].outcome.heldByCritical = false;
    EXPECT_THAT(liveLines(run, 1, {80, 24})[1], EndsWith("suspended by the operator"));
}

RunHistory bigRun() {
    const std::string wide = "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e";  // three wide characters
    std::vector<StageHistory> stages;
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        stages.push_back(running("stage " + number + std::string(100, 'x'), 0, 90,
                                 {Orv::String(wide + wide + number), "b", "c"}));
        stages.push_back(running(wide + wide + wide + wide + wide + wide + number, 0, 90,
                                 {Orv::String(std::string(300, 'y'))}));
        stages.push_back(after("\x1b[2J\n\r\xe2\x80\xae" + number, "\xff\x1b]0;title\x07"));
        stages.push_back(complete("done " + number, 0, 1));
    }
    RunHistory run = runOf(std::move(stages));
    run.instances.push_back(run.instances[0]);
    run.instances.push_back(run.instances[0]);
    run.instances[2].instance = "\x1b[31m" + wide;
    run.reboot = {3, "cold", std::string(500, 'z') + "\x1b[0m", {}};
    return run;
}

TEST(LiveView, FitsIntoTheTerminal) {
    const RunHistory run = bigRun();
    for (const std::size_t columns : {1U, 8U, 20U, 40U, 59U, 80U, 120U, 200U})
        for (const std::size_t rows : {0U, 1U, 2U, 3U, 4U, 5U, 10U, 24U, 60U, 1000U}) {
            const auto lines = liveLines(run, 12, {columns, rows});

            EXPECT_GE(lines.size(), 1U);
            EXPECT_LT(lines.size(), std::max<std::size_t>(rows, 2)) << columns << "x" << rows;
            for (const std::string& line : lines) EXPECT_LE(terminalColumns(line), columns) << line;
        }
    EXPECT_THAT(liveLines(run, 12, {80, 24}), SizeIs(23));
    EXPECT_THAT(liveLines(run, 12, {80, 24}).back(), HasSubstr("and 1"));
}

TEST(LiveView, NamesCannotMoveTheCursor) {
    for (const std::string& line : liveLines(bigRun(), 12, {200, 1000}))
        EXPECT_THAT(line, Each(testing::Truly([](char c) {
                        const auto byte = static_cast<unsigned char>(c);
                        return byte >= 0x20 && byte != 0x7f;
                    })));
}

TEST(LiveView, ColoursWholeLinesWhenAsked) {
    const RunHistory run = runOf({running("disks", 0, 20, {"shelf"})});

    EXPECT_THAT(liveLines(run, 1, {80, 24, true})[1],
                AllOf(StartsWith("\033[36m"), EndsWith("\033[0m")));
    EXPECT_THAT(liveLines(run, 19, {80, 24, true})[1], StartsWith("\033[33m")) << "nearly used up";
    EXPECT_THAT(liveLines(run, 1, {80, 24}), Each(Not(HasSubstr("\033"))));
}

TEST(LiveView, InstancesThatWereTakenAwayAreNotShown) {
    RunHistory run = runOf({complete("power", 0, 2)});
    run.instances[0].disabled = 3;

    EXPECT_THAT(liveLines(run, 4, {80, 24}), ElementsAre("no instance has begun"));
}

TEST(LiveView, RedrawsInPlace) {
    std::ostringstream terminal;
    {
        LiveView view(terminal);
        view.draw(0.0, {"one", "two"}, 80);
        EXPECT_EQ(terminal.str(), "one\ntwo\n");

        terminal.str({});
        view.draw(0.1, {"three"}, 80);
        EXPECT_EQ(terminal.str(), "\r\033[2A\033[Jthree\n");

        terminal.str({});
        view.above("a message\n");
        EXPECT_EQ(terminal.str(), "\r\033[1A\033[Ja message\nthree\n");
        terminal.str({});
    }
    EXPECT_EQ(terminal.str(), "\r\033[1A\033[J") << "nothing of it is left at the end";
}

TEST(LiveView, TakesAwayWhatANarrowerTerminalHasBroken) {
    std::ostringstream terminal;
    LiveView view(terminal);
    view.draw(0.0, {"\033[32mforty-one columns of text in green, or so\033[0m", "short", ""}, 80);
    terminal.str({});

    view.draw(0.1, {}, 40);

    EXPECT_EQ(terminal.str(), "\r\033[4A\033[J");
}

TEST(LiveView, IsDueTenTimesASecond) {
    std::ostringstream terminal;
    LiveView view(terminal);
    EXPECT_TRUE(view.due(0.0));

    view.draw(5.0, {"one"}, 80);

    EXPECT_FALSE(view.due(5.05));
    EXPECT_TRUE(view.due(5.125));
}

TEST(Terminal, CountsColumns) {
    EXPECT_EQ(terminalColumns("abc"), 3U);
    EXPECT_EQ(terminalColumns("\xe6\x97\xa5\xe6\x9c\xac"), 4U);
    EXPECT_EQ(terminalColumns("e\xcc\x81"), 1U) << "an accent stands on its letter";
}

TEST(Terminal, CutsAtWholeCharacters) {
    EXPECT_EQ(cutToColumns("abc", 3), "abc");
    EXPECT_EQ(cutToColumns("abcd", 3), "ab…");
    EXPECT_EQ(cutToColumns("abcd", 1), "…");
    EXPECT_EQ(cutToColumns("abcd", 0), "");
    EXPECT_EQ(cutToColumns("\xe6\x97\xa5\xe6\x9c\xac", 3), "\xe6\x97\xa5…");
    EXPECT_EQ(cutToColumns("\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e", 4, true), "\xe6\x97\xa5… ");
    EXPECT_EQ(cutToColumns("ab", 4, true), "ab  ");
}

}  // namespace
}  // namespace Host
