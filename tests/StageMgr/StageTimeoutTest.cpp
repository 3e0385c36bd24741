// What happens when a stage's time is up.
#include <gtest/gtest.h>

#include <cmath>

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/StageSm.h"
#include "tests/support/World.h"

namespace {

using Orv::never;
using Orv::Ptr;
using StageTest::ClassOptions;
using StageTest::Lines;
using StageTest::Messages;
using StageTest::Reboot;
using StageTest::World;
using ResetMode = Stage::FatalError::ResetMode;

// --- the decision -------------------------------------------------------------------------------

enum class Outcome {
    ignored,    // the clock's own report, before the stage has started
    nothing,    // a reboot is pending
    goesOn,     // the stage is passed over
    reboots,    // a reboot is requested
    suspended,  // the stage is held, for somebody to look at
};
using enum Outcome;

struct Case {
    bool critical;
    bool continues;
    bool fatal;
    bool rebootPending;
    bool initialized;
    Outcome outcome;
};

constexpr bool x = true;
constexpr bool o = false;

const Case cases[] = {
    // critical, continueOnTimeout, stageTimeoutIsFatal, reboot pending, initialized
    {o, o, o, o, o, ignored}, {o, o, o, o, x, goesOn},  {o, o, o, x, o, ignored},
    {o, o, o, x, x, nothing}, {o, o, x, o, o, ignored}, {o, o, x, o, x, goesOn},
    {o, o, x, x, o, ignored}, {o, o, x, x, x, nothing}, {o, x, o, o, o, ignored},
    {o, x, o, o, x, goesOn},  {o, x, o, x, o, ignored}, {o, x, o, x, x, nothing},
    {o, x, x, o, o, ignored}, {o, x, x, o, x, goesOn},  {o, x, x, x, o, ignored},
    {o, x, x, x, x, nothing}, {x, o, o, o, o, ignored}, {x, o, o, o, x, suspended},
    {x, o, o, x, o, ignored}, {x, o, o, x, x, nothing}, {x, o, x, o, o, ignored},
    {x, o, x, o, x, reboots}, {x, o, x, x, o, ignored}, {x, o, x, x, x, nothing},
    {x, x, o, o, o, ignored}, {x, x, o, o, x, goesOn},  {x, x, o, x, o, ignored},
    {x, x, o, x, x, nothing}, {x, x, x, o, o, ignored}, {x, x, x, o, x, goesOn},
    {x, x, x, x, o, ignored}, {x, x, x, x, x, nothing},
};

void expectOutcome(const Case& c) {
    World world({.timeoutIsFatal = c.fatal, .continueOnTimeout = c.continues});
    world.agent("fan").event("early", {.timeout = 30, .critical = c.critical});
    world.agent("disk").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.trace();
    if (c.rebootPending && !c.initialized)
        world.when("<<   event early:fan started", [&] { world.rebootIs(); });

    world.settle();
    const Lines initial = world.traced(9, " not yet initialized; ignore initial handler");
    if (c.initialized) {
        if (c.rebootPending) world.rebootIs();
        world.advance(30);
    }

    Lines log{"app stages started", "stage early started", "  event early:fan started"};
    if (c.outcome != ignored && c.outcome != nothing)
        log.push_back("stage early is complete (timeout)");
    if (c.outcome == goesOn) {
        log.push_back("stage early timed out but will continue on");
        log.push_back("stage late started");
        log.push_back("  event late:disk started");
    }
    EXPECT_EQ(world.log("boot"), log);
    EXPECT_EQ(world.messages(), c.outcome == reboots || c.outcome == suspended
                                    ? Messages({"app stage early timed out"})
                                    : Messages());
    EXPECT_EQ(world.printed(),
              c.outcome == suspended
                  ? Lines({" Critical stage early timed out! app suspended for debugging."})
                  : Lines());
    EXPECT_EQ(world.reboot(), c.outcome == reboots
                                  ? (Reboot{ResetMode::cold, "early timed out",
                                            "Stage progression failed during app."})
                              : c.rebootPending ? (Reboot{ResetMode::warm, "", ""})
                                                : Reboot());
    const Stage::StageSm* const stage = world.stageSm("boot", "early");
    ASSERT_NE(stage, nullptr);
    EXPECT_EQ(stage->timedOut(),
              c.outcome == goesOn || c.outcome == reboots || c.outcome == suspended);
    EXPECT_EQ(stage->complete(), c.outcome == goesOn);
    EXPECT_EQ(stage->completionTime(), c.outcome == goesOn ? 30 : 0);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_EQ(initial, Lines({" not yet initialized; ignore initial handler for timeout, boot"}));
}

TEST(StageTimeout, EveryCaseHasItsOutcome) {
    EXPECT_EQ(std::size(cases), 32u);
    for (const Case& c : cases) {
        std::ostringstream row;
        row << c.critical << c.continues << c.fatal << c.rebootPending << c.initialized;
        SCOPED_TRACE(row.str());
        expectOutcome(c);
    }
}

// --- when ---------------------------------------------------------------------------------------

TEST(StageTimeout, CriticalStageIsHeldUntilItsEventsComplete) {
    World world;
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");

    world.advance(30);

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started",
                     "stage early is complete (timeout)"}));
    EXPECT_EQ(world.messages(), Messages({"app stage early timed out"}));
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST(StageTimeout, ComesAtTheLimitAndNotBefore) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");

    world.advance(29.999);
    EXPECT_FALSE(world.stageSm("boot", "early")->timedOut());

    world.advance(0.001);
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
}

TEST(StageTimeout, CountsFromTheStartOfTheStage) {
    World world;
    world.agent("fan").event("early").event("late", {.timeout = 30, .dependsOn = {"early"}});
    world.enable("boot");
    world.advance(100);
    world.agent("fan").report("early", "boot");

    world.advance(29.999);
    EXPECT_FALSE(world.stageSm("boot", "late")->timedOut());

    world.advance(0.001);
    EXPECT_TRUE(world.stageSm("boot", "late")->timedOut());
}

TEST(StageTimeout, IsAvertedByAReportAtItsVeryMoment) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.reach(30);

    world.agent("fan").report("early", "boot");
    world.advance(100);

    EXPECT_EQ(world.timedLog("boot"),
              Lines({"0 app stages started", "0 stage early started", "0   event early:fan started",
                     "30   event early:fan completed", "30 stage early is complete",
                     "30 app stages complete"}));
}

TEST(StageTimeout, OfZeroComesAtTheFirstOpportunity) {
    World world;
    world.agent("fan").event("early", {.timeout = 0});
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.timedLog("boot"),
              Lines({"0 app stages started", "0 stage early started", "0   event early:fan started",
                     "0 stage early is complete (timeout)",
                     "0 stage early timed out but will continue on", "0 app stages complete"}));
}

TEST(StageTimeout, IsArmedForTheStagesLimit) {
    struct Row {
        double limit;
        double due;
    };
    const Row rows[] = {{0, 7},
                        {30, 37},
                        {0.5, 7.5},
                        {-5, 7 /* a stage's limit is never negative */},
                        {HUGE_VAL, never},
                        {std::nan(""), never}};
    for (const Row& row : rows) {
        World world;
        world.agent("fan").event("early", {.timeout = row.limit});
        world.advance(7);
        world.enable("boot");
        // Seen before it fires.
        double due = -1;
        world.when("/progress/boot/stage[early]",
                   [&] { due = world.stageSm("boot", "early")->timeMin(); });
        world.settle();
        EXPECT_EQ(due, row.due) << row.limit;
    }
}

TEST(StageTimeout, OfAStageWhoseLimitSomebodyMadeNegativeComesAtOnce) {
    World world;
    world.agent("fan").event("early");
    world.stage("early")->timeoutIs(-5);
    world.enable("boot");

    world.settle();

    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
}

TEST(StageTimeout, DoesNotMoveWhenTheLimitChanges) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.settle();

    world.agent("fan").registered("early")->timeoutIs(5);
    ASSERT_EQ(world.stage("early")->timeout(), 5);
    world.advance(29.999);
    EXPECT_FALSE(world.stageSm("boot", "early")->timedOut());

    world.advance(0.001);
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
}

TEST(StageTimeout, AStageWithoutEventsHasNone) {
    World world;
    world.agent("nobody").event("early", {.timeout = 30});
    world.agent("nobody").withdraw("early");
    world.enable("boot");
    world.settle();

    EXPECT_EQ(world.stageSm("boot", "early")->timeMin(), never);
    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
}

TEST(StageTimeout, AStageThatIsCompleteHasNoneAnyMore) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.settle();
    ASSERT_EQ(world.stageSm("boot", "early")->timeMin(), 30);

    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.stageSm("boot", "early")->timeMin(), never);
}

TEST(StageTimeout, AStageWhoseReportsCameBeforeItStartedHasNone) {
    World world;
    world.agent("fan").event("early", {.timeout = 30}).report("early", "boot");
    world.enable("boot");

    world.advance(100);

    EXPECT_EQ(world.stageSm("boot", "early")->timeMin(), never);
    EXPECT_FALSE(world.stageSm("boot", "early")->timedOut());
    EXPECT_EQ(world.armedTimers(), 0u);
}

TEST(StageTimeout, OfAStageThatIsCompletedWhileItsLineIsToldGoesOnAllTheSame) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.settle();
    world.when("early is complete (timeout)", [&] { world.agent("fan").report("early", "boot"); });

    world.advance(30);

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started",
                     "stage early is complete (timeout)", "  event early:fan completed",
                     "stage early is complete", "stage early timed out but will continue on",
                     "app stages complete"}));
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
}

TEST(StageTimeout, EachInstanceHasItsOwn) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.advance(10);
    world.enable("spare");

    world.advance(20);
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
    EXPECT_FALSE(world.stageSm("spare", "early")->timedOut());

    world.advance(10);
    EXPECT_TRUE(world.stageSm("spare", "early")->timedOut());
}

TEST(StageTimeout, IsReportedOnce) {
    World world;
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.advance(30);

    world.advance(1e6);

    EXPECT_EQ(world.messages().size(), 1u);
    EXPECT_EQ(world.printed().size(), 1u);
}

// --- a stage that is passed over ----------------------------------------------------------------

class PassedOver : public testing::TestWithParam<bool> {
  protected:
    // A stage that is not critical, or a critical one of a class that goes on.
    PassedOver() : world(ClassOptions{.continueOnTimeout = GetParam()}) {
        world.agent("fan").event("early", {.timeout = 30, .critical = GetParam()});
        world.agent("disk").event("early", {.timeout = 30});
        world.agent("disk").event("late", {.dependsOn = {"early"}});
        world.enable("boot");
        world.settle();
    }
    World world;
};
INSTANTIATE_TEST_SUITE_P(Critical, PassedOver, testing::Bool());

TEST_P(PassedOver, LogsBothLinesAndStartsTheNextStage) {
    world.advance(30);

    EXPECT_EQ(world.timedLog("boot"),
              Lines({"0 app stages started", "0 stage early started", "0   event early:fan started",
                     "0   event early:disk started", "30 stage early is complete (timeout)",
                     "30 stage early timed out but will continue on", "30 stage late started",
                     "30   event late:disk started"}));
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.stageSm("boot", "early")->completionTime(), 30);
    EXPECT_EQ(world.messages(), Messages());
    EXPECT_EQ(world.printed(), Lines());
    EXPECT_EQ(world.reboot(), Reboot());
}

TEST_P(PassedOver, LaterReportsOnlyLeaveTheirLine) {
    world.advance(30);
    const std::size_t before = world.log("boot").size();

    world.agent("fan").report("early", "boot");
    world.agent("disk").report("early", "boot");
    world.advance(1);

    const Lines all = world.log("boot");
    EXPECT_EQ(Lines(all.begin() + static_cast<std::ptrdiff_t>(before), all.end()),
              Lines({"  event early:fan completed", "  event early:disk completed"}));
    EXPECT_EQ(world.stageSm("boot", "early")->completionTime(), 30);
    EXPECT_EQ(world.messages(), Messages());
}

TEST_P(PassedOver, WhatIsPendingStaysSo) {
    world.advance(30);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan", "early:disk"}));

    world.agent("fan").report("early", "boot");
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
}

TEST_P(PassedOver, TheInstanceCompletesWithoutIt) {
    world.advance(30);
    world.agent("disk").report("late", "boot");
    world.settle();

    EXPECT_TRUE(world.instanceComplete("boot"));
}

TEST_P(PassedOver, ItsAttributesAreWrittenTimeFirstThenTimedOutThenComplete) {
    class Listener final : public Stage::StageSm::NotifieeConst {
      public:
        Lines told;
        void onCompletionTime() override { told.push_back("completionTime"); }
        void onTimedOut() override { told.push_back("timedOut"); }
        void onComplete() override { told.push_back("complete"); }
    } listener;
    listener.notifierIs(Ptr<const Stage::StageSm>(world.stageSm("boot", "early")));

    world.advance(30);

    EXPECT_EQ(listener.told, Lines({"completionTime", "timedOut", "complete"}));
}

// --- a critical stage that is suspended ---------------------------------------------------------

class SuspendedStage : public testing::Test {
  protected:
    SuspendedStage() {
        world.agent("fan").event("early", {.timeout = 30, .critical = true});
        world.agent("disk").event("early", {.timeout = 30});
        world.agent("disk").event("late", {.dependsOn = {"early"}});
        world.enable("boot");
        world.settle();
    }
    World world;
};

TEST_F(SuspendedStage, LogsThenRaisesThenPrints) {
    world.observe();

    world.advance(30);

    EXPECT_EQ(world.observed(),
              Lines({"/stage/app/log/instanceLog/boot/log << stage early is complete (timeout)",
                     "message: app stage early timed out",
                     "print:  Critical stage early timed out! app suspended for debugging."}));
}

TEST_F(SuspendedStage, IsNotMarkedTimedOutBeforeTheMessage) {
    bool atTheMessage = true;
    bool atTheLine = false;
    world.when("message: app", [&] { atTheMessage = world.stageSm("boot", "early")->timedOut(); });
    world.when("print:", [&] { atTheLine = world.stageSm("boot", "early")->timedOut(); });

    world.advance(30);

    EXPECT_FALSE(atTheMessage);
    EXPECT_TRUE(atTheLine);
}

TEST_F(SuspendedStage, WaitsForAllItsEvents) {
    world.advance(40);
    world.agent("fan").report("early", "boot");
    world.advance(10);
    EXPECT_FALSE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));

    world.agent("disk").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.timedLog("boot"),
              Lines({"0 app stages started", "0 stage early started", "0   event early:fan started",
                     "0   event early:disk started", "30 stage early is complete (timeout)",
                     "40   event early:fan completed", "50   event early:disk completed",
                     "50 stage early is complete", "50 stage late started",
                     "50   event late:disk started"}));
    EXPECT_EQ(world.messages(),
              Messages({"app stage early timed out",
                        "app resumed after stage early completed after timeout."}));
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
    EXPECT_EQ(world.stageSm("boot", "early")->completionTime(), 50);
}

TEST_F(SuspendedStage, RaisesItsMessageBeforeItsLineWhenItResumes) {
    world.advance(30);
    world.agent("fan").report("early", "boot");
    world.observe();

    world.agent("disk").report("early", "boot");
    world.settle();

    EXPECT_EQ(
        world.observed(),
        Lines({"+ /agentstatus/app/disk", "/agentstatus/app/disk/complete[disk:early:boot] = true",
               "/sm/stageMgr/app/agentStatusLocal/complete[disk:early:boot] = true",
               "/stage/app/log/instanceLog/boot/log <<   event early:disk completed",
               "message: app resumed after stage early completed after timeout.",
               "/stage/app/log/instanceLog/boot/log << stage early is complete",
               "/stage/app/log/instanceLog/boot/log << stage late started",
               "/stage/app/status/instStatus/boot/activeStage[late] = "
               "/stage/app/status/stage/late",
               "/stage/app/log/instanceLog/boot/log <<   event late:disk started",
               "/stage/app/progress/progress/boot/stage[late] = true"}));
}

TEST_F(SuspendedStage, ThatIsNoLongerCriticalResumesWithoutAMessage) {
    world.advance(30);
    world.agent("fan").registered("early")->criticalIs(false);

    world.agent("fan").report("early", "boot");
    world.agent("disk").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.messages(), Messages({"app stage early timed out"}));
    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(SuspendedStage, ResumesWhenWhatItWaitsForIsWithdrawn) {
    world.advance(30);

    world.agent("fan").withdraw("early");
    world.agent("disk").withdraw("early");
    world.settle();

    // The last event took the criticality along.
    EXPECT_EQ(world.messages(), Messages({"app stage early timed out"}));
    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(SuspendedStage, TracesWhatItWaitsFor) {
    world.trace();

    world.advance(30);

    Lines entry;
    for (const StageTest::TraceLine& line : world.traced())
        if (line.level == 8 && line.handler == "handleStageUncompleted")
            entry.push_back(line.signature + line.text);
    ASSERT_EQ(entry.size(), 1u);
    EXPECT_TRUE(entry[0].starts_with("void Stage::StageSm::handleStageUncompleted()"));
    EXPECT_TRUE(entry[0].ends_with(" with 2 pendingEvents remaining, instanceName boot"));
    EXPECT_EQ(world.traced(9), Lines({" Incomplete events:", "  early:fan", "  early:disk"}));
    ASSERT_EQ(world.traced(0).size(), 1u);
    EXPECT_TRUE(
        world.traced(0)[0].starts_with(" Critical stage earlytimed out! app suspended for "
                                       "debugging,"));
}

TEST_F(SuspendedStage, TracesThatItCompletesLate) {
    world.advance(30);
    world.agent("fan").report("early", "boot");
    world.trace();

    world.agent("disk").report("early", "boot");

    EXPECT_EQ(world.traced(0, " completed, but had previously timed out, instanceName ").size(),
              1u);
    EXPECT_EQ(world.traced(7, "stage early is complete"), Lines({"stage early is complete"}));
}

TEST(StageTimeout, ALateStageThatIsNotCriticalRaisesNothingWhenItIsComplete) {
    // It timed out while critical, and completes when it is not.
    World world;
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.advance(30);
    world.agent("fan").registered("early")->criticalIs(false);
    world.trace();

    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.identifiers(), Lines({"STAGEMGR_STAGE_SLOW"}));
    EXPECT_EQ(world.traced(0, "had previously timed out").size(), 1u);
}

TEST(StageTimeout, CriticalityIsLookedAtWhenTheTimeIsUp) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.settle();

    world.agent("fan").registered("early")->criticalIs(true);
    world.advance(30);

    EXPECT_EQ(world.identifiers(), Lines({"STAGEMGR_STAGE_SLOW"}));
}

TEST(StageTimeout, TheConfigurationIsLookedAtWhenTheTimeIsUp) {
    World world;
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.settle();

    world.config()->continueOnTimeoutIs(true);
    world.advance(30);

    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.messages(), Messages());
}

TEST(StageTimeout, AStageThatACriticalOneDependsOnIsCriticalToo) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.agent("disk").event("late", {.critical = true, .dependsOn = {"early"}});
    world.enable("boot");

    world.advance(30);

    EXPECT_EQ(world.messages(), Messages({"app stage early timed out"}));
}

// --- a time-out that is fatal -------------------------------------------------------------------

class FatalTimeout : public testing::Test {
  protected:
    FatalTimeout() : world(ClassOptions{.timeoutIsFatal = true}) {}
    World world;
};

TEST_F(FatalTimeout, RaisesItsMessageAndThenRequestsTheReboot) {
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.settle();
    world.observe();

    world.advance(30);

    EXPECT_EQ(
        world.observed(),
        Lines({"/stage/app/log/instanceLog/boot/log << stage early is complete (timeout)",
               "message: app stage early timed out", "/fatalerror/rebootReason = early timed out",
               "/fatalerror/reloadCauseDesc = Stage progression failed during app.",
               "/fatalerror/requestReboot = cold"}));
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
    EXPECT_FALSE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.printed(), Lines());
}

TEST_F(FatalTimeout, OfASecondStageIsSilent) {
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.agent("disk").event("other", {.timeout = 30, .critical = true});
    world.agent("net").event("third", {.timeout = 40, .critical = true});
    world.enable("boot");
    world.settle();
    world.observe();

    world.advance(100);

    EXPECT_EQ(world.messages(), Messages({"app stage early timed out"}));
    EXPECT_EQ(world.reboot().reason, "early timed out");
    EXPECT_EQ(world.observed("/fatalerror/requestReboot").size(), 1u);
    EXPECT_EQ(world.observed("(timeout)").size(), 1u);
    EXPECT_FALSE(world.stageSm("boot", "other")->timedOut());
}

TEST_F(FatalTimeout, CalledASecondTimeIsSilent) {
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.advance(30);
    world.observe();

    world.stageSm("boot", "early")->handleStageUncompleted();

    EXPECT_EQ(world.observed(), Lines());
}

TEST_F(FatalTimeout, RequestsNoSecondRebootWhenOneComesMeanwhile) {
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.when("message: app", [&] { world.rebootIs(ResetMode::powerCycle); });

    world.advance(30);

    EXPECT_EQ(world.messages(), Messages({"app stage early timed out"}));
    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
    EXPECT_EQ(world.reboot(), (Reboot{ResetMode::powerCycle, "", ""}));
    EXPECT_EQ(world.printed(), Lines());
}

TEST_F(FatalTimeout, AStageThatIsNotCriticalIsPassedOver) {
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");

    world.advance(30);

    EXPECT_TRUE(world.instanceComplete("boot"));
    EXPECT_EQ(world.reboot(), Reboot());
}

TEST_F(FatalTimeout, WhoDisablesTheInstanceAtTheMessageStopsTheRequest) {
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.when("message: app", [&] { world.disable("boot"); });

    world.advance(30);

    EXPECT_EQ(world.reboot(), Reboot());
    EXPECT_EQ(world.errors(), Lines());
}

}  // namespace
