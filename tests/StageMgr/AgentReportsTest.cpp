// How agents' reports and requests reach the stages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

bool recorded(const StageClass& world, const Stage::AgentStatusKey& key) {
    return world.agentStatusLocal()->complete().contains(key);
}

TEST(AgentReports, AReportIsRecordedWhenTheAgentIsRegisteredForTheStage) {
    World world;
    world.agent("fan").event("early");

    world.agent("fan").report("early", "boot");

    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
}

TEST(AgentReports, AReportForAStageWithoutRegistrationIsDropped) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("late");

    world.agent("fan").report("late", "boot");
    world.agent("stranger").report("early", "boot");

    EXPECT_FALSE(recorded(world, {"fan", "late", "boot"}));
    EXPECT_FALSE(recorded(world, {"stranger", "early", "boot"}));
}

TEST(AgentReports, TheAgentsOwnRegistrationCountsWhateverAgentTheKeyNames) {
    World world;
    world.agent("fan").event("early");

    world.agent("fan").report("early", "boot");
    world.agent("fan").status()->completeIs({"disk", "early", "boot"}, true);

    EXPECT_TRUE(world.agentStatusLocal()->complete({"disk", "early", "boot"}));
}

TEST(AgentReports, AFalseReportIsRecordedAsFalse) {
    World world;
    world.agent("fan").event("early");

    world.agent("fan").report("early", "boot", false);

    EXPECT_TRUE(recorded(world, {"fan", "early", "boot"}));
    EXPECT_FALSE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
}

TEST(AgentReports, AWithdrawnReportIsTakenFromTheRecord) {
    World world;
    world.agent("fan").event("early").report("early", "boot");

    world.agent("fan").withdrawReport("early", "boot");

    EXPECT_FALSE(recorded(world, {"fan", "early", "boot"}));
}

TEST(AgentReports, WhatIsCompleteIsNeverUncompleted) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");
    world.settle();
    world.trace(0);

    world.agent("fan").report("early", "boot", false);
    world.agent("fan").withdrawReport("early", "boot");

    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.traced(0), Lines({"Can't un-complete a Stage event. Ignoring...",
                                      "Can't un-complete a Stage event. Ignoring..."}));
}

TEST(AgentReports, AReportForAnotherInstanceWaitsForIt) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.trace(8);

    world.agent("fan").report("early", "other");
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_THAT(world.traced(8, "are different"),
                Contains(" StageSm stage: early Event stage: early are different. Returning..."));
    world.enable("other");
    world.settle();

    EXPECT_EQ(world.log("other"), Lines({"app stages started", "stage early started",
                                         "  event early:fan started", "  event early:fan completed",
                                         "stage early is complete", "app stages complete"}));
}

TEST(AgentReports, AReportBeforeTheRegistrationIsNotRecorded) {
    World world;
    world.agent("fan").report("early", "boot");
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
}

TEST(AgentReports, AReportThatWasRecordedDoesNotCompleteAnEventThatJoinsLater) {
    World world;
    world.agent("disk").event("early");
    world.agent("fan").event("early").report("early", "boot");
    world.agent("fan").withdraw("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").event("early");

    EXPECT_EQ(world.log("boot").back(), "  event early:fan started");
    EXPECT_THAT(world.pendingEvents("boot", "early"), Contains("early:fan"));
}

TEST(StageRequest, RegistersTheAgentAndJoinsTheRunningStage) {
    World world;
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").request("early", 500);

    ASSERT_NE(world.agent("fan").config(), nullptr);
    EXPECT_TRUE(world.agent("fan").config()->createdOnStageRequest());
    EXPECT_EQ(world.agent("fan").registered("early")->timeout(), 500);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk", "early:fan"}));
}

TEST(StageRequest, RepeatedWithANewLimitChangesTheLimitOnly) {
    World world;
    world.agent("fan").request("early", 500);
    const auto event = world.agent("fan").registered("early");

    world.agent("fan").request("early", 600);

    EXPECT_EQ(world.agent("fan").registered("early"), event);
    EXPECT_EQ(event->timeout(), 600);
}

TEST(StageRequest, WithdrawnTakesTheEventAndLeavesTheRegistration) {
    World world;
    world.agent("fan").request("early");

    world.agent("fan").withdrawRequest("early");

    ASSERT_NE(world.agent("fan").config(), nullptr);
    EXPECT_EQ(world.agent("fan").registered("early"), nullptr);
    EXPECT_THAT(world.stage("early")->event(), IsEmpty());
}

TEST(StageRequest, AnEmptyOneCountsAsWithdrawn) {
    World world;
    world.agent("fan").request("early");

    world.agent("fan").status()->stageRequestIs("early", {});

    EXPECT_EQ(world.agent("fan").registered("early"), nullptr);
}

TEST(StageRequest, GoesWithTheAgentsStatus) {
    World world;
    world.agent("fan").request("early");

    world.agent("fan").fallSilent();

    EXPECT_EQ(world.agent("fan").config(), nullptr);
    EXPECT_THAT(world.stage("early")->event(), IsEmpty());
}

TEST(StageRequest, LeavesARegistrationThatItDidNotMake) {
    World world;
    world.agent("fan").event("late");
    world.agent("fan").request("early");

    world.agent("fan").fallSilent();

    ASSERT_NE(world.agent("fan").config(), nullptr);
    EXPECT_FALSE(world.agent("fan").config()->createdOnStageRequest());
    EXPECT_NE(world.agent("fan").registered("late"), nullptr);
}

TEST(StageRequestDeath, OneForAnotherAgentIsOurOwnMistake) {
    World world;
    world.agent("fan").event("early").report("early", "boot");

    EXPECT_DEATH(world.agent("fan").status()->stageRequestIs("early", {"disk", "early", 1}),
                 "agentName\\(\\) == agent");
}

}  // namespace
