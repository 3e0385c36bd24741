// What a started stage makes of its events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The time at which the stage became complete, or -1 while it is not.
double completionTime(const StageClass& world, const std::string& stage) {
    const Stage::StageSm* const running = world.stageSm("boot", stage);
    return running != nullptr && running->complete() ? running->completionTime() : -1;
}

TEST(StageEvents, AStageIsCompleteWhenItsLastPendingEventIs) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan", "early:disk"}));

    world.advance(1);
    world.agent("fan").report("early", "boot");
    EXPECT_EQ(completionTime(world, "early"), -1);
    world.advance(2);
    world.agent("disk").report("early", "boot");

    EXPECT_EQ(completionTime(world, "early"), 3);
    EXPECT_THAT(world.pendingEvents("boot", "early"), IsEmpty());
    world.settle();
    EXPECT_EQ(
        world.log("boot"),
        Lines({"app stages started", "stage early started", "  event early:fan started",
               "  event early:disk started", "  event early:fan completed",
               "  event early:disk completed", "stage early is complete", "app stages complete"}));
}

TEST(StageEvents, AStageWithoutEventsIsCompleteInsideItsOwnConstruction) {
    World world;
    world.agent("fan").event("early").withdraw("early");
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.log("boot"), Lines({"app stages started", "stage early started",
                                        "stage early is complete", "app stages complete"}));
    EXPECT_EQ(completionTime(world, "early"), 0);
    EXPECT_EQ(world.stageSm("boot", "early")->timeMin(), Orv::never);
}

TEST(StageEvents, AnEventThatIsCompleteBeforehandLogsExactlyOneCompletedLine) {
    World world;
    world.agent("fan").event("early", {.completeIn = {"boot"}});
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan completed",
                     "stage early is complete", "app stages complete"}));
    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
}

TEST(StageEvents, AnEventThatIsCompleteWhenItJoinsIsRecordedAndLogsNothing) {
    World world;
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").appears({{"early", {.completeIn = {"boot"}}}});

    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
    EXPECT_EQ(world.log("boot").back(), "  event early:disk started");
}

TEST(StageEvents, CompletionInAnotherInstanceIsIgnored) {
    World world;
    world.agent("fan").event("early", {.completeIn = {"other"}});
    world.enable("boot");
    world.settle();

    world.agent("fan").registered("early")->completeIs("third", true);

    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_EQ(completionTime(world, "early"), -1);
}

TEST(StageEvents, AnEventThatJoinsARunningStageIsStartedAndWaitedFor) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    world.agent("disk").event("early");
    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
    EXPECT_EQ(completionTime(world, "early"), -1);
    EXPECT_EQ(world.log("boot").at(3), "  event early:disk started");
}

TEST(StageEvents, AnEventThatLeavesIsNoLongerWaitedFor) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early", {.autoComplete = 5});
    world.enable("boot");
    world.settle();
    ASSERT_NE(world.autoCompleteSm("boot", "early", "disk"), nullptr);
    world.agent("fan").report("early", "boot");

    world.agent("disk").withdraw("early");

    EXPECT_EQ(completionTime(world, "early"), 0);
    EXPECT_EQ(world.autoCompleteSm("boot", "early", "disk"), nullptr);
    EXPECT_EQ(world.log("boot").back(), "stage early is complete");
}

TEST(StageEvents, AnAgentThatLeavesTakesItsEventsAlong) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").leave();

    EXPECT_EQ(completionTime(world, "early"), 0);
    EXPECT_EQ(world.stageSm("boot", "early")->event("fan"), nullptr);
}

TEST(StageEvents, AWithdrawnCompletionStartsTheEventAgainAndReopensNothing) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    const auto event = world.agent("fan").registered("early");
    event->completeIs("boot", true);
    world.settle();
    ASSERT_TRUE(world.stageSm("boot", "early")->complete());

    event->completeIs("boot", false);
    world.settle();

    EXPECT_EQ(world.log("boot").back(), "  event early:fan started");
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
    EXPECT_FALSE(world.instance("boot")->needRecalculateNextStage());
}

TEST(StageEvents, AnEventThatJoinsWhileARebootIsPendingIsNotStarted) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Lines before = world.log("boot");
    world.rebootIs();

    world.agent("disk").event("early", {.autoComplete = 1});

    EXPECT_EQ(world.log("boot"), before);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_EQ(world.autoCompleteSm("boot", "early", "disk"), nullptr);
}

TEST(StageEvents, AReportWhileARebootIsPendingLeavesTheStageAsItIs) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Lines before = world.log("boot");
    world.rebootIs();

    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.log("boot"), before);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
}

TEST(StageEvents, ARepeatedTrueLogsAgainAndChangesNothingElse) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");

    world.agent("fan").report("early", "boot", false).report("early", "boot", true);

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started",
                     "  event early:disk started", "  event early:fan completed",
                     "  event early:fan completed"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
}

TEST(StageEvents, NullIsNoPendingEvent) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    try {
        world.stageSm("boot", "early")->pendingEventIs(nullptr);
        FAIL() << "nothing was raised";
    } catch (const Orv::NullParameterError& e) {
        EXPECT_STREQ(e.what(),
                     "null _pendingEvent parameter to mutator for "
                     "Stage::StageSm::pendingEvent not allowed\"");
    }
}

}  // namespace
