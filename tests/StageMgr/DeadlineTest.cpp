// The time that an instance may take as a whole.
#include <gtest/gtest.h>

#include <cmath>

#include "StageMgr/InstanceStatusSm.h"
#include "tests/support/World.h"

namespace {

using Orv::never;
using Stage::InstanceStatusSm;
using StageTest::Lines;
using StageTest::Messages;
using StageTest::Reboot;
using StageTest::World;
using ResetMode = Stage::FatalError::ResetMode;

// A stage that takes as long as a test wants.
void slowStage(StageTest::StageClass& stageClass) {
    stageClass.agent("fan").event("early", {.timeout = 1e9});
}

TEST(Deadline, RaisesAMessageAndRequestsAReboot) {
    World world({.deadline = 60, .resetMode = ResetMode::powerCycle, .reloadCause = "It hung."});
    slowStage(world);
    world.enable("boot");

    world.advance(60);

    EXPECT_EQ(world.messages(),
              Messages({"Global stage progression did not complete after 60 secs."}));
    EXPECT_EQ(world.reboot(),
              (Reboot{ResetMode::powerCycle, "Global stage progression timed out after 60 secs",
                      "It hung during app."}));
}

TEST(Deadline, IsNotMissedJustBefore) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");

    world.advance(59.999);

    EXPECT_EQ(world.messages(), Messages());
    EXPECT_EQ(world.reboot(), Reboot());
    world.advance(0.001);
    EXPECT_EQ(world.messages().size(), 1u);
}

TEST(Deadline, CountsFromTheInstancesStart) {
    World world({.deadline = 60});
    slowStage(world);
    world.advance(100);
    world.enable("boot");

    world.advance(59.999);
    EXPECT_EQ(world.messages(), Messages());

    world.advance(0.001);
    EXPECT_EQ(world.messages().size(), 1u);
}

TEST(Deadline, IsMetByAnInstanceThatCompletesInTime) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.advance(59.999);

    world.agent("fan").report("early", "boot");
    world.advance(1000);

    EXPECT_EQ(world.messages(), Messages());
    EXPECT_EQ(world.reboot(), Reboot());
    EXPECT_EQ(world.instance("boot")->globalStageClock(), never);
}

TEST(Deadline, IsMissedByAReportThatComesAtItsVeryMoment) {
    // The deadline was armed first, and what the report sets off waits for its turn.
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.reach(60);

    world.agent("fan").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.messages().size(), 1u);
    EXPECT_FALSE(world.instanceComplete("boot")) << "the pass refuses: a reboot is pending";
}

TEST(Deadline, OfZeroIsNone) {
    for (const double zero : {0.0, -0.0}) {
        World world({.deadline = zero});
        slowStage(world);
        world.enable("boot");

        world.advance(1e8);

        EXPECT_EQ(world.messages(), Messages());
        EXPECT_EQ(world.reboot(), Reboot());
        EXPECT_EQ(world.instance("boot")->globalStageClock(), never);
    }
}

TEST(Deadline, ThatIsNegativeIsOverAtOnce) {
    World world({.deadline = -1});
    slowStage(world);

    world.enable("boot");
    EXPECT_EQ(world.messages(), Messages()) << "nothing fires while it is armed";
    world.settle();

    EXPECT_EQ(world.messages(),
              Messages({"Global stage progression did not complete after 0 secs."}));
    EXPECT_EQ(world.reboot().reason, "Global stage progression timed out after 0 secs");
    EXPECT_EQ(world.log("boot"), Lines({"app stages started"})) << "no stage has started";
}

TEST(Deadline, OfAnEmptyClassThatIsNegativeIsMissedAllTheSame) {
    World world({.deadline = -1});
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.messages().size(), 1u);
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST(Deadline, IsReportedInWholeSecondsThatFitThirtyTwoBits) {
    struct Row {
        double deadline;
        const char* reported;
    };
    const Row rows[] = {
        {90.9, "90"},
        {90, "90"},
        {0.5, "0"},
        {0.999999, "0"},
        {1, "1"},
        {-0.5, "0"},
        {-90.9, "0"},
        {-1e300, "0"},
        {-HUGE_VAL, "0"},
        {std::nan(""), "0"},
        {4294967294.5, "4294967294"},
        {4294967295, "4294967295"},
        {4294967295.5, "4294967295"},
        {4294967296, "4294967295"},
        {1e300, "4294967295"},
        {HUGE_VAL, "4294967295"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.deadline);
        World world({.deadline = 10});
        slowStage(world);
        world.enable("boot");
        // Read when the clock fires, whatever it was armed with.
        world.config()->globalStageCompletionTimeoutIs(row.deadline);

        world.advance(10);

        EXPECT_EQ(world.messages(), Messages({"Global stage progression did not complete after " +
                                              std::string(row.reported) + " secs."}));
        EXPECT_EQ(world.reboot().reason, "Global stage progression timed out after " +
                                             std::string(row.reported) + " secs");
    }
}

TEST(Deadline, DoesNotMoveWhenTheConfigurationChanges) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");

    world.config()->globalStageCompletionTimeoutIs(0);
    world.advance(59.999);
    EXPECT_EQ(world.messages(), Messages());
    world.advance(0.001);

    EXPECT_EQ(world.messages(),
              Messages({"Global stage progression did not complete after 0 secs."}));
}

TEST(Deadline, IsNotArmedByAConfigurationThatChangesLater) {
    World world;
    slowStage(world);
    world.enable("boot");

    world.config()->globalStageCompletionTimeoutIs(5);
    world.advance(1000);

    EXPECT_EQ(world.messages(), Messages());
}

TEST(Deadline, FiresOnce) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.advance(60);
    ASSERT_EQ(world.messages().size(), 1u);
    world.rebootIs(ResetMode::none);

    world.advance(1e6);

    EXPECT_EQ(world.messages().size(), 1u);
    EXPECT_EQ(world.instance("boot")->globalStageClock(), never);
}

TEST(Deadline, RaisesTheMessageAndThenWritesReasonCauseAndMode) {
    World world({.deadline = 60, .reloadCause = "It hung."});
    slowStage(world);
    world.enable("boot");
    world.settle();
    world.observe();

    world.advance(60);

    EXPECT_EQ(world.observed(),
              Lines({"message: Global stage progression did not complete after 60 secs.",
                     "/fatalerror/rebootReason = Global stage progression timed out after 60 secs",
                     "/fatalerror/reloadCauseDesc = It hung during app.",
                     "/fatalerror/requestReboot = cold"}));
}

TEST(Deadline, OfSeveralInstancesThatEndAtOnceRequestsOneReboot) {
    World world({.deadline = 60});
    slowStage(world);
    StageTest::StageClass& net = world.stageClass("net", {.deadline = 60});
    slowStage(net);
    world.enable("boot");
    world.enable("spare");
    net.enable("boot");
    world.observe();

    world.advance(60);

    EXPECT_EQ(world.messages().size(), 1u);
    EXPECT_EQ(world.observed("/fatalerror/requestReboot"),
              Lines({"/fatalerror/requestReboot = cold"}));
    EXPECT_EQ(world.reboot().cause, "Stage progression failed during app.");
}

TEST(Deadline, OfTheFirstInstanceIsReported) {
    World world({.application = "App", .deadline = 60});
    slowStage(world);
    StageTest::StageClass& net = world.stageClass("net", {.application = "Net", .deadline = 50});
    slowStage(net);
    world.enable("boot");
    net.enable("boot");

    world.advance(60);

    EXPECT_EQ(world.messages(),
              Messages({"Global stage progression did not complete after 50 secs."}));
    EXPECT_EQ(world.reboot().cause, "Stage progression failed during Net.");
}

TEST(Deadline, IsSilentWhileARebootIsPending) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.rebootIs(ResetMode::warm);

    world.advance(60);

    EXPECT_EQ(world.messages(), Messages());
    EXPECT_EQ(world.reboot(), (Reboot{ResetMode::warm, "", ""}));
}

TEST(Deadline, IsOverWithoutAWordWhenTheInstanceIsComplete) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.settle();
    // Written by somebody else, so that the clock goes on.
    world.completionStatus("boot")->completeIs(true);

    world.advance(60);

    EXPECT_EQ(world.messages(), Messages());
    EXPECT_EQ(world.reboot(), Reboot());
    EXPECT_EQ(world.instance("boot")->globalStageClock(), never);
}

TEST(Deadline, IsStoppedByItsHandlerWhenTheInstanceIsComplete) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.completionStatus("boot")->completeIs(true);
    ASSERT_EQ(world.instance("boot")->globalStageClock(), 60);

    world.instance("boot")->handleGlobalStageClock();

    EXPECT_EQ(world.instance("boot")->globalStageClock(), never);
}

TEST(Deadline, IsNotLookedAtBeforeTheStart) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    InstanceStatusSm* const instance = world.instance("boot");
    instance->initializedIs(false);
    world.trace();

    instance->handleGlobalStageClock();

    EXPECT_EQ(world.messages(), Messages());
    ASSERT_EQ(world.traced().size(), 2u);
    EXPECT_EQ(world.traced()[0].signature,
              "void Stage::InstanceStatusSm::handleGlobalStageClock()");
    EXPECT_TRUE(world.traced()[1].text.starts_with("Not initialized.  Return from "));
}

TEST(Deadline, StopsEveryStageThatHasNotStarted) {
    World world({.deadline = 60});
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    StageTest::StageClass& net = world.stageClass("net");
    world.enable("boot");
    world.advance(60);

    world.agent("fan").report("early", "boot");
    net.agent("fan").event("early");
    net.enable("boot");
    world.advance(1);

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started"}));
    EXPECT_EQ(net.log("boot"), Lines({"net stages started"}));
}

TEST(Deadline, GoesWithItsInstance) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.advance(30);
    world.disable("boot");
    world.enable("boot");

    world.advance(59.999);
    EXPECT_EQ(world.messages(), Messages()) << "the new one counts from its own start";

    world.advance(0.001);
    EXPECT_EQ(world.messages().size(), 1u);
}

TEST(Deadline, GoesOnWhileTheInstanceIsSuspended) {
    World world({.deadline = 60});
    slowStage(world);
    world.suspend("boot");
    world.enable("boot");

    world.advance(60);

    EXPECT_EQ(world.messages().size(), 1u);
}

TEST(Deadline, WhoDisablesTheInstanceAtTheMessageStopsTheRequest) {
    World world({.deadline = 60});
    slowStage(world);
    world.enable("boot");
    world.when("message: Global", [&] { world.disable("boot"); });

    world.advance(60);

    EXPECT_EQ(world.messages().size(), 1u);
    EXPECT_EQ(world.reboot(), Reboot()) << "a disabled instance writes nothing more";
}

}  // namespace
