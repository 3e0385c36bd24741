// How long a stage may take: as long as the slowest of its events.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "StageMgr/ConfigSm.h"
#include "tests/support/World.h"

namespace {

using Orv::Ptr;
using StageTest::Lines;
using StageTest::World;

const double nan = std::nan("");
const double inf = HUGE_VAL;

class TimeLimit : public testing::Test {
  protected:
    // Takes part with a limit that is there when the event appears.
    void appears(const char* agent, double limit) {
        world.agent(agent).appears({{"early", {.timeout = limit}}});
    }
    // Takes part with a limit of 0, which then becomes another.
    void becomes(const char* agent, double limit) {
        if (!world.agent(agent).registered("early")) appears(agent, 0);
        world.agent(agent).registered("early")->timeoutIs(limit);
    }
    double limit() const { return world.stage("early")->timeout(); }

    World world;
};

TEST_F(TimeLimit, IsThatOfTheSlowestEvent) {
    becomes("fan", 30);
    becomes("disk", 120);
    EXPECT_EQ(limit(), 120);

    becomes("disk", 60);
    EXPECT_EQ(limit(), 60);

    becomes("disk", 10);
    EXPECT_EQ(limit(), 30);

    becomes("fan", 0);
    EXPECT_EQ(limit(), 10);
}

TEST_F(TimeLimit, OfASingleEventIsTheEvents) {
    appears("fan", 30);
    EXPECT_EQ(limit(), 30);
}

TEST_F(TimeLimit, IsRaisedByAnEventThatJoins) {
    appears("fan", 30);
    appears("disk", 120);
    EXPECT_EQ(limit(), 120);
}

TEST_F(TimeLimit, IsNotLoweredByAnEventThatJoins) {
    appears("disk", 120);
    appears("fan", 30);
    EXPECT_EQ(limit(), 120);
}

TEST_F(TimeLimit, IsRecomputedWhenTheEventThatSetItGoes) {
    appears("fan", 30);
    appears("disk", 120);

    world.agent("disk").withdraw("early");

    EXPECT_EQ(limit(), 30);
}

TEST_F(TimeLimit, StaysWhenAnotherEventGoes) {
    appears("fan", 30);
    appears("disk", 120);
    world.observe();

    world.agent("fan").withdraw("early");

    EXPECT_EQ(limit(), 120);
    EXPECT_EQ(world.observed("early/timeout"), Lines());
}

TEST_F(TimeLimit, IsZeroWhenTheLastEventGoes) {
    appears("fan", 30);

    world.agent("fan").withdraw("early");

    EXPECT_EQ(limit(), 0);
}

TEST_F(TimeLimit, GoesWithTheAgentsRegistration) {
    appears("fan", 30);
    appears("disk", 120);

    world.agent("disk").leave();

    EXPECT_EQ(limit(), 30);
}

TEST_F(TimeLimit, OfEqualEventsStaysWhenOneGoes) {
    appears("fan", 30);
    appears("disk", 30);

    world.agent("disk").withdraw("early");

    EXPECT_EQ(limit(), 30);
}

// --- single precision ---------------------------------------------------------------------------

TEST_F(TimeLimit, IsNarrowedWhenItIsRecomputed) {
    becomes("fan", 0.1);
    EXPECT_EQ(limit(), 0.10000000149011612);

    becomes("fan", 0.7);
    EXPECT_EQ(limit(), 0.699999988079071);

    becomes("fan", 16777217);
    EXPECT_EQ(limit(), 16777216);

    becomes("fan", 0.5);
    EXPECT_EQ(limit(), 0.5);
}

TEST_F(TimeLimit, IsRaisedInFullPrecisionAfterItWasNarrowedBelow) {
    appears("fan", 0.7);
    EXPECT_EQ(limit(), 0.7);
}

TEST_F(TimeLimit, StaysNarrowedWhenThatIsMore) {
    appears("fan", 0.1);
    EXPECT_EQ(limit(), 0.10000000149011612);
}

TEST_F(TimeLimit, ThatWasNarrowedIsNotTheEventsWhenThatGoes) {
    becomes("fan", 0.1);

    world.agent("fan").withdraw("early");

    EXPECT_EQ(limit(), 0.10000000149011612) << "it does not compare equal, and stays";
}

TEST_F(TimeLimit, ThatWasRaisedInFullPrecisionIsTheEventsWhenThatGoes) {
    appears("fan", 0.7);

    world.agent("fan").withdraw("early");

    EXPECT_EQ(limit(), 0);
}

TEST_F(TimeLimit, ComparesTheNarrowedMaximumWithTheEvents) {
    // 0.1 narrowed is above both; the one that comes later in the walk does not replace it.
    becomes("a", 0.1);
    becomes("b", 0.100000001);
    EXPECT_EQ(limit(), 0.10000000149011612);

    // 0.7 narrowed is below: a later 0.69999999 takes over, and narrows to the same.
    becomes("a", 0.7);
    becomes("b", 0.69999999);
    EXPECT_EQ(limit(), 0.699999988079071);
}

TEST_F(TimeLimit, TakesTheNearestFloat) {
    struct Row {
        double given;
        double taken;
    };
    const double most = std::numeric_limits<float>::max();
    const double ulp = 0x1p104;  // between the largest floats
    const Row rows[] = {
        {1 + 0x1p-24, 1},                   // half way: to even
        {1 + 0x1.8p-23, 1 + 0x1p-22},       // half way: to even
        {1 + 0x1.000001p-24, 1 + 0x1p-23},  // above half way
        {1e-50, 0},                         // too small
        {0x1p-149, 0x1p-149},               // the smallest
        {0x1p-150, 0},                      // half of it: to even
        {0x1.8p-150, 0x1p-149},
        {most, most},
        {most + ulp / 4, most},
        {most + ulp / 2, inf},  // half way: to even, and so to infinity
        {std::nextafter(most + ulp / 2, 0), most},
        {1e39, inf},
        {1e300, inf},
        {inf, inf},
    };
    for (const Row& row : rows) {
        becomes("fan", row.given);
        EXPECT_EQ(limit(), row.taken) << row.given;
    }
}

// Only after one that is no number does a negative limit count at all.
TEST_F(TimeLimit, TakesTheNearestFloatBelowZeroToo) {
    const double least = std::numeric_limits<float>::lowest();
    const double ulp = 0x1p104;
    becomes("fan", std::numeric_limits<double>::quiet_NaN());

    becomes("disk", least - ulp / 4);
    EXPECT_EQ(limit(), least);
    becomes("disk", least - ulp / 2);
    EXPECT_EQ(limit(), -inf);
}

// --- numbers that are no durations --------------------------------------------------------------

TEST_F(TimeLimit, OfNegativeEventsIsZero) {
    becomes("fan", -30);
    becomes("disk", -1e300);
    EXPECT_EQ(limit(), 0);

    becomes("disk", -inf);
    EXPECT_EQ(limit(), 0);
}

TEST_F(TimeLimit, OfANegativeEventThatJoinsIsZero) {
    appears("fan", -30);
    EXPECT_EQ(limit(), 0);
}

TEST_F(TimeLimit, TakesANan) {
    becomes("fan", 30);
    becomes("disk", nan);
    EXPECT_TRUE(std::isnan(limit()));
}

TEST_F(TimeLimit, TakesWhateverComesAfterANan) {
    becomes("a", 30);
    becomes("b", nan);
    becomes("c", 5);
    EXPECT_EQ(limit(), 5);

    becomes("c", -5);
    EXPECT_EQ(limit(), -5) << "no floor stands between a NaN and what follows it";
}

TEST_F(TimeLimit, TakesANanWhoseEventJoins) {
    appears("fan", nan);
    EXPECT_TRUE(std::isnan(limit()));
}

TEST_F(TimeLimit, OfANanIsLeftByItsEvent) {
    appears("fan", 30);
    appears("disk", nan);

    world.agent("disk").withdraw("early");

    EXPECT_TRUE(std::isnan(limit())) << "a NaN equals nothing, so nothing is recomputed";
}

TEST_F(TimeLimit, OfANanIsRecomputedByTheNextChange) {
    becomes("fan", 30);
    becomes("disk", nan);

    becomes("disk", 5);

    EXPECT_EQ(limit(), 30);
}

// --- writing ------------------------------------------------------------------------------------

TEST_F(TimeLimit, IsToldOfOnlyWhenItChanges) {
    appears("fan", 30);
    appears("disk", 120);
    world.observe();

    becomes("fan", 40);
    EXPECT_EQ(world.observed("/stage/app/status/stage/early/timeout"), Lines());

    becomes("fan", 200);
    EXPECT_EQ(world.observed("/stage/app/status/stage/early/timeout"),
              Lines({"/stage/app/status/stage/early/timeout = 200"}));
}

TEST_F(TimeLimit, IsWrittenInEveryCase) {
    // Seen where equal is not the same: a NaN.
    becomes("fan", nan);
    becomes("disk", nan);
    world.observe();

    becomes("fan", nan);

    EXPECT_EQ(world.observed("/stage/app/status/stage/early/timeout").size(), 1u);
}

TEST_F(TimeLimit, OfAnEventThatSwitchesTheStageFollowsInBoth) {
    world.agent("fan").event("early", {.timeout = 30}).event("late", {.timeout = 60});
    EXPECT_EQ(world.stage("early")->timeout(), 30);
    EXPECT_EQ(world.stage("late")->timeout(), 60);

    world.agent("fan").withdraw("early");
    EXPECT_EQ(world.stage("early")->timeout(), 0);
    EXPECT_EQ(world.stage("late")->timeout(), 60);
}

TEST_F(TimeLimit, IsLeftAloneByAnEventThatIsTakenOutWhileItIsTakenIn) {
    // In full precision; looking at all events again would narrow it.
    world.agent("fan").appears({{"early", {.timeout = 0.7}}});
    ASSERT_EQ(world.stage("early")->timeout(), 0.7);
    world.when("stage/early/dependency", [&] { world.stage("early")->eventDel("disk"); });

    world.agent("disk").appears({{"early", {.timeout = 0.1, .dependsOn = {"other"}}}});

    EXPECT_EQ(world.event("early", "disk"), nullptr);
    EXPECT_EQ(world.stage("early")->timeout(), 0.7);
}

TEST_F(TimeLimit, IsTraced) {
    becomes("fan", 30);
    world.trace();

    becomes("fan", 60);

    Lines entries;
    for (const StageTest::TraceLine& line : world.traced())
        if (line.handler == "handleTimeout" && line.level == 8)
            entries.push_back(line.signature + line.text);
    EXPECT_EQ(entries,
              Lines({"void Stage::ConfigSm::OrvEventConfig::handleTimeout() fan timeout=60",
                     "void Stage::ConfigSm::OrvStageStatus::handleTimeout() early timeout=30"}));
    EXPECT_EQ(world.traced(9, "  new timeout = "), Lines({"  new timeout = 60"}));
}

TEST_F(TimeLimit, ThatStaysIsNotTracedAsNew) {
    becomes("fan", 30);
    becomes("disk", 60);
    world.trace();

    becomes("fan", 40);

    EXPECT_EQ(world.traced(9, "  new timeout = "), Lines());
}

}  // namespace
