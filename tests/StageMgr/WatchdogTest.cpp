// The watchdog of the class "switchover", which is given the deadline.
#include <gtest/gtest.h>

#include <cmath>
#include <locale>

#include "StageMgr/ConfigSm.h"
#include "tests/support/World.h"

namespace {

using Orv::make;
using Orv::Ptr;
using StageTest::Lines;
using StageTest::World;

class Watchdog : public testing::Test {
  protected:
    void deadlineIs(double seconds) { world.config()->globalStageCompletionTimeoutIs(seconds); }

    World world{"switchover"};
};

TEST_F(Watchdog, IsGivenTheDeadlineWhenThatChanges) {
    deadlineIs(600);
    EXPECT_EQ(world.watchdog(), Lines({"600"}));

    deadlineIs(900);
    EXPECT_EQ(world.watchdog(), Lines({"600", "900"}));
}

TEST_F(Watchdog, IsLeftAloneWhenTheDeadlineStays) {
    deadlineIs(600);
    deadlineIs(600);

    EXPECT_EQ(world.watchdog(), Lines({"600"}));
}

TEST(WatchdogStart, IsLeftAloneAtTheStart) {
    World world("switchover", {.deadline = 600});

    EXPECT_EQ(world.watchdogRecords(), Lines());
}

TEST(WatchdogStart, IsNotGivenADeadlineThatChangesWhileTheClassIsTakenIn) {
    World world("switchover", {}, World::Manager::waits);
    world.agent("fan").event("early");
    world.when("status/stage[early]", [&] { world.config()->globalStageCompletionTimeoutIs(600); });

    world.start();
    EXPECT_EQ(world.config()->globalStageCompletionTimeout(), 600);
    EXPECT_EQ(world.watchdog(), Lines());

    world.config()->globalStageCompletionTimeoutIs(900);
    EXPECT_EQ(world.watchdog(), Lines({"900"}));
}

TEST_F(Watchdog, IsNotGivenTheDeadlineByAReactorThatIsRetired) {
    const Ptr<Stage::ConfigSm> held(world.configSm());
    deadlineIs(600);
    world.stop();

    held->handleGlobalStageCompletionTimeout();

    EXPECT_EQ(world.watchdog(), Lines({"600"}));
}

TEST_F(Watchdog, IsGivenDecimalTextOfSixDigits) {
    struct Row {
        double deadline;
        const char* text;
    };
    const Row rows[] = {
        {600, "600"},
        {90.5, "90.5"},
        {1800, "1800"},
        {0.5, "0.5"},
        {0, "0"},
        {-1, "-1"},
        {999999, "999999"},
        {999999.5, "1e+06"},
        {1000000, "1e+06"},
        {1234567, "1.23457e+06"},
        {100000.5, "100000"},
        {86400.25, "86400.2"},
        {1e-5, "1e-05"},
        {0.0001, "0.0001"},
        {1e300, "1e+300"},
        {HUGE_VAL, "inf"},
        {-HUGE_VAL, "-inf"},
        {std::nan(""), "nan"},
    };
    for (const Row& row : rows) {
        deadlineIs(12345);  // so that the next one is a change
        deadlineIs(row.deadline);
        EXPECT_EQ(world.watchdog().back(), row.text) << row.deadline;
    }
}

// Writes 1234.5 as "1.234,5".
class Grouping final : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(Watchdog, IsGivenTheSameTextInAnyLocale) {
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));

    deadlineIs(1800);
    deadlineIs(90.5);
    std::locale::global(before);

    EXPECT_EQ(world.watchdog(), Lines({"1800", "90.5"}));
}

TEST_F(Watchdog, IsConfiguredThroughARecordThatIsMadeForIt) {
    deadlineIs(600);

    EXPECT_EQ(world.watchdogRecords(), Lines({"StageMgrConfigSm 1 false"}));
    EXPECT_EQ(world.watchdogRecordsHeld(), 0) << "it is released at once";
}

TEST_F(Watchdog, ThatIsNotToBeHadIsAnError) {
    world.watchdogIsThere(false);

    deadlineIs(600);

    EXPECT_EQ(world.errors(), Lines({"null ValidPtr"}));
    EXPECT_EQ(world.watchdog(), Lines());
    EXPECT_EQ(world.config()->globalStageCompletionTimeout(), 600);
}

TEST_F(Watchdog, ThatIsNotToBeHadIsAnErrorOfWhoeverAsksForIt) {
    world.watchdogIsThere(false);

    EXPECT_THROW(world.configSm()->handleGlobalStageCompletionTimeout(), Orv::RangeError);
}

TEST(WatchdogOfOtherClasses, IsNeverTouched) {
    for (const char* name : {"app", "Switchover", "SWITCHOVER", "switchover ", "switchove", ""}) {
        SCOPED_TRACE(name);
        World world;
        world.config()->stageClassIs(name);
        world.trace();

        world.config()->globalStageCompletionTimeoutIs(600);

        EXPECT_EQ(world.watchdogRecords(), Lines());
        EXPECT_TRUE(world.traced().empty()) << "not even a trace";
    }
}

TEST(WatchdogOfOtherClasses, GoesByTheConfiguredClassAndNotByTheDirectory) {
    World world;
    world.config()->stageClassIs("switchover");

    world.config()->globalStageCompletionTimeoutIs(600);

    EXPECT_EQ(world.watchdog(), Lines({"600"}));
}

TEST_F(Watchdog, IsNotGivenTheDeadlineWhenTheClassChanges) {
    world.config()->stageClassIs("app");
    deadlineIs(600);
    world.config()->stageClassIs("switchover");

    EXPECT_EQ(world.watchdog(), Lines());
}

TEST_F(Watchdog, IsGivenTheDeadlineOfAnotherConfigurationAtOnce) {
    const Ptr<Stage::Config> other = make<Stage::Config>("config");
    other->stageClassIs("switchover");
    other->globalStageCompletionTimeoutIs(900);

    world.configSm()->notifierIs(other);
    EXPECT_EQ(world.watchdog(), Lines({"900"}));

    other->globalStageCompletionTimeoutIs(1000);
    deadlineIs(5);
    EXPECT_EQ(world.watchdog(), Lines({"900", "1000"})) << "the old one is not watched any more";
}

TEST_F(Watchdog, IsLeftAloneByTheSameConfiguration) {
    deadlineIs(600);

    world.configSm()->notifierIs(world.config());

    EXPECT_EQ(world.watchdog(), Lines({"600"}));
}

TEST_F(Watchdog, IsLeftAloneWhenTheConfigurationGoes) {
    deadlineIs(600);

    world.configSm()->notifierIs(nullptr);
    deadlineIs(900);

    EXPECT_EQ(world.watchdog(), Lines({"600"}));
}

TEST_F(Watchdog, IsTraced) {
    world.trace();

    deadlineIs(600);

    ASSERT_EQ(world.traced().size(), 1u);
    EXPECT_EQ(world.traced()[0].level, 8);
    EXPECT_EQ(world.traced()[0].signature,
              "void Stage::ConfigSm::handleGlobalStageCompletionTimeout()");
    EXPECT_EQ(world.traced()[0].text, "config halbe watchdog to 600");
}

TEST_F(Watchdog, IsOneForAllThatItIsSetTo) {
    StageTest::StageClass& app = world.stageClass("app");

    app.config()->globalStageCompletionTimeoutIs(5);
    deadlineIs(600);

    EXPECT_EQ(world.watchdog(), Lines({"600"}));
}

}  // namespace
