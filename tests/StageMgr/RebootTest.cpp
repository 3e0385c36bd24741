// The request for a reboot, and what it stops.
#include <gtest/gtest.h>

#include "StageMgr/InstanceStatusSm.h"
#include "tests/support/World.h"

namespace {

using StageTest::ClassOptions;
using StageTest::Lines;
using StageTest::Messages;
using StageTest::Reboot;
using StageTest::World;
using ResetMode = Stage::FatalError::ResetMode;

Reboot requested(const ClassOptions& options, const char* reason = "it hung") {
    World world(options);
    world.enable("boot");
    world.instance("boot")->requestReboot(reason);
    return world.reboot();
}

TEST(RebootRequest, CarriesReasonCauseAndMode) {
    EXPECT_EQ(requested({.application = "Boot",
                         .resetMode = ResetMode::warm,
                         .reloadCause = "Stage progression failed."}),
              (Reboot{ResetMode::warm, "it hung", "Stage progression failed during Boot."}));
}

TEST(RebootRequest, CopiesEveryMode) {
    for (const ResetMode mode : {ResetMode::cold, ResetMode::warm, ResetMode::powerCycle})
        EXPECT_EQ(requested({.resetMode = mode}).mode, mode);
}

TEST(RebootRequest, DropsTheLastCharacterOfTheCauseWhateverItIs) {
    EXPECT_EQ(requested({.reloadCause = "It hung."}).cause, "It hung during app.");
    EXPECT_EQ(requested({.reloadCause = "It hung"}).cause, "It hun during app.");
    EXPECT_EQ(requested({.reloadCause = "It hung.."}).cause, "It hung. during app.");
    EXPECT_EQ(requested({.reloadCause = "It hung. "}).cause, "It hung. during app.");
    EXPECT_EQ(requested({.reloadCause = "."}).cause, " during app.");
    EXPECT_EQ(requested({.reloadCause = "x"}).cause, " during app.");
}

TEST(RebootRequest, WithoutACauseBeginsWithDuring) {
    EXPECT_EQ(requested({.reloadCause = ""}).cause, " during app.");
}

TEST(RebootRequest, WithoutAnApplicationEndsAfterDuring) {
    EXPECT_EQ(requested({.application = "", .reloadCause = "It hung."}).cause, "It hung during .");
}

TEST(RebootRequest, TakesTextsThatLookLikeFormatsAsTheyAre) {
    EXPECT_EQ(requested({.application = "%d%%", .reloadCause = "100%s."}, "%s").cause,
              "100%s during %d%%.");
    EXPECT_EQ(requested({}, "%s").reason, "%s");
}

TEST(RebootRequest, WritesReasonThenCauseThenMode) {
    World world;
    world.enable("boot");
    world.observe();

    world.instance("boot")->requestReboot("it hung");

    EXPECT_EQ(world.observed(),
              Lines({"/fatalerror/rebootReason = it hung",
                     "/fatalerror/reloadCauseDesc = Stage progression failed during app.",
                     "/fatalerror/requestReboot = cold"}));
}

TEST(RebootRequest, DoesNotAskWhetherOneIsPending) {
    World world({.resetMode = ResetMode::warm});
    world.enable("boot");
    world.rebootIs(ResetMode::cold);

    world.instance("boot")->requestReboot("it hung");

    EXPECT_EQ(world.reboot(),
              (Reboot{ResetMode::warm, "it hung", "Stage progression failed during app."}));
}

TEST(RebootRequest, ReadsTheConfigurationWhenItIsMade) {
    World world;
    world.enable("boot");
    world.config()->applicationIs("Other");
    world.config()->reloadCauseDescIs("Changed.");
    world.config()->resetModeIs(ResetMode::powerCycle);

    world.instance("boot")->requestReboot("it hung");

    EXPECT_EQ(world.reboot(), (Reboot{ResetMode::powerCycle, "it hung", "Changed during Other."}));
}

TEST(RebootRequest, IsTraced) {
    World world;
    world.enable("boot");
    world.trace();

    world.instance("boot")->requestReboot("it hung");

    EXPECT_EQ(world.traced(0), Lines({"requestReboot=cold, rebootReason=it hung, "
                                      "reloadCauseDesc=Stage progression failed during app."}));
}

TEST(RebootRequest, IsTracedOnceItIsWritten) {
    World world;
    world.enable("boot");
    world.trace();
    Lines before{"not asked"};
    world.when("/fatalerror/requestReboot", [&] { before = world.traced(0); });

    world.instance("boot")->requestReboot("it hung");

    EXPECT_EQ(before, Lines());
}

// With the default mode, nothing is requested: the mode is copied and not interpreted.
TEST(RebootRequest, OfTheDefaultModeStopsNothing) {
    World world({.timeoutIsFatal = true, .resetMode = ResetMode::none});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.agent("disk").event("late", {.critical = true, .dependsOn = {"early"}});
    world.enable("boot");
    world.advance(30);
    EXPECT_EQ(world.reboot(),
              (Reboot{ResetMode::none, "early timed out", "Stage progression failed during app."}));

    world.agent("fan").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST(RebootRequest, OfTheDefaultModeIsMadeAgainByTheNextOne) {
    World world({.deadline = 60, .timeoutIsFatal = true, .resetMode = ResetMode::none});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.advance(30);

    world.advance(30);

    EXPECT_EQ(world.reboot().reason, "Global stage progression timed out after 60 secs");
    EXPECT_EQ(world.messages().size(), 2u);
}

// --- what a pending reboot stops ----------------------------------------------------------------

class PendingReboot : public testing::Test {
  protected:
    PendingReboot() {
        world.agent("fan").event("early", {.timeout = 30, .autoComplete = 20});
        world.agent("disk").event("early", {.timeout = 30});
        world.agent("disk").event("late", {.dependsOn = {"early"}});
        world.enable("boot");
        world.settle();
        before = world.log("boot");
        world.rebootIs();
    }
    Lines since() const {
        const Lines all = world.log("boot");
        return Lines(all.begin() + static_cast<std::ptrdiff_t>(before.size()), all.end());
    }

    World world;
    Lines before;
};

TEST_F(PendingReboot, StopsReports) {
    world.agent("fan").report("early", "boot");
    world.agent("disk").report("early", "boot");
    world.settle();

    EXPECT_EQ(since(), Lines());
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan", "early:disk"}));
}

TEST_F(PendingReboot, StopsTheStagesTimeLimit) {
    world.agent("fan").registered("early")->enableAutoCompleteIs(false);

    world.advance(30);

    EXPECT_FALSE(world.stageSm("boot", "early")->timedOut());
    EXPECT_FALSE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.messages(), Messages());
}

TEST_F(PendingReboot, StopsEventsThatJoin) {
    world.agent("late comer").event("early");

    EXPECT_EQ(since(), Lines());
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan", "early:disk"}));
}

TEST_F(PendingReboot, StopsNewInstances) {
    world.enable("spare");
    world.settle();

    EXPECT_EQ(world.log("spare"), Lines({"app stages started"}));
    EXPECT_EQ(world.activeStages("spare"), Lines());
}

TEST_F(PendingReboot, DoesNotStopTheStageThatNothingIsLeftToWaitFor) {
    world.agent("fan").leave();
    world.agent("disk").withdraw("early");
    world.settle();

    EXPECT_EQ(since(), Lines({"stage early is complete"}));
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"})) << "no stage starts any more";
}

TEST_F(PendingReboot, StopsNothingOnceItIsWithdrawn) {
    world.rebootIs(ResetMode::none);

    world.agent("fan").report("early", "boot");
    world.agent("disk").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(PendingReboot, IsTraced) {
    world.trace();

    world.agent("disk").report("early", "boot");
    world.instance("boot")->doNextStage();
    world.agent("fan").registered("early")->enableAutoCompleteIs(false);
    world.advance(30);

    Lines handlers;
    for (const StageTest::TraceLine& line : world.traced())
        if (line.text == " reboot already in progress, do nothing.") {
            EXPECT_EQ(line.level, 8);
            handlers.push_back(line.handler);
        }
    EXPECT_EQ(handlers, Lines({"handleEventComplete", "handleNextStage",
                               "handleEventComplete",  // an auto-completion that was armed before
                               "handleStageUncompleted"}));
}

}  // namespace
