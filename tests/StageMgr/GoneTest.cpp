// What goes in the middle of a step does no more of it, down to what it traces; and what joins or
// leaves meanwhile counts from the moment at which it is looked at.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Allocations.h"
#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

using Orv::make;
using Orv::Ptr;
using Stage::ConfigSm;
using Stage::InstanceStatusSm;
using Stage::StageSm;
using Stage::StageStatus;

// The handlers of the lines that were traced.
Lines handlers(const System& system) {
    Lines names;
    for (const TraceLine& line : system.traced()) names.push_back(line.handler);
    return names;
}

Ptr<Stage::EventConfig> eventOf(const char* stage, const char* agent, const Lines& dependsOn = {},
                                bool critical = false) {
    const auto event = make<Stage::EventConfig>(stage, agent);
    for (const std::string& dependency : dependsOn) event->dependencyIs(dependency, true);
    event->criticalIs(critical);
    return event;
}

// --- agents

TEST(GoneConfig, LooksNoAgentUp) {
    World world;
    world.agent("fan").event("early");
    const Ptr<ConfigSm> gone(world.configSm());
    world.stop();
    world.trace(8);

    gone->handleAgent("fan");

    EXPECT_THAT(handlers(world), IsEmpty());
}

TEST(GoneConfig, LeavesTheRegistrationOfARequesterWithoutAStatus) {
    World world;
    world.agent("net").request("early");
    const Ptr<ConfigSm> gone(world.configSm());
    world.stop();
    world.agent("net").fallSilent();

    gone->handleAgentStatus("net");

    EXPECT_NE(world.agent("net").registered("early"), nullptr);
}

TEST(GoneConfig, LeavesADirectoryInARequestersPlace) {
    World world;
    world.agent("net").request("early");
    world.when("/input/app/net/event[early] -", [&] {
        world.inputDir()->entryDel("net");
        world.inputDir()->subdirIs("net");
        world.stop();
    });

    world.agent("net").fallSilent();

    EXPECT_EQ(world.manager(), nullptr);
    EXPECT_NE(world.inputDir()->entityPtr<Orv::Dir>("net"), nullptr);
}

TEST(AgentTakenIn, WhoseStatusIsReplacedWhileItIsPrunedIsWatchedByTheNewOne) {
    World world;
    world.agent("fan").request("early").request("late");
    world.configSm()->agentStatusSmDel("fan");
    world.agent("fan").withdrawRequest("early");
    world.when("/input/app/fan/event[early] -",
               [&] { world.agent("fan").fallSilent().request("power"); });

    world.configSm()->handleAgentStatus("fan");

    const Stage::AgentStatusSm* const reactor = world.configSm()->agentStatusSm().find("fan");
    ASSERT_NE(reactor, nullptr);
    EXPECT_EQ(reactor->agentStatus().get(), world.agent("fan").status().get());
}

TEST(AgentTakenIn, KeepsTheReactorThatItHasWhateverThatWatches) {
    World world;
    world.agent("fan").event("early");
    const auto another = make<Stage::AgentConfig>("fan");
    world.configSm()->agentConfigIs(another);

    world.configSm()->handleAgent("fan");

    EXPECT_EQ(world.configSm()->agentConfig("fan")->entity(), another.get());
}

TEST(AgentTakenIn, LosesItsReactorWhenItsRegistrationIsDroppedWhateverTakesThePlace) {
    World world;
    world.agent("net").request("early");
    world.when("- /input/app/net", [&] { world.inputDir()->entryIs("net", "Stage::AgentConfig"); });

    world.agent("net").fallSilent();

    EXPECT_NE(world.agent("net").config(), nullptr);
    EXPECT_EQ(world.configSm()->agentConfig("net"), nullptr);
}

// On purpose: a reactor hears of nothing before its owner has stored it.
TEST(AgentTakenIn, DoesNotHearOfAnEventThatJoinsMeanwhile) {
    World world;
    const auto config = make<Stage::AgentConfig>("fan");
    config->eventIs("early", "fan");
    world.when("/stage/app/status/stage[early] +", [&] { config->eventIs("missed", "fan"); });

    world.inputDir()->entryIs(config);
    config->eventIs("late", "fan");

    EXPECT_NE(world.event("early", "fan"), nullptr);
    EXPECT_EQ(world.stage("missed"), nullptr);
    EXPECT_NE(world.event("late", "fan"), nullptr);
}

TEST(AgentTakenIn, PutsNoEventIntoAStageThatGoesAtOnce) {
    World world;
    Ptr<StageStatus> stage;
    world.when("/stage/app/status/stage[early] +", [&] {
        stage = world.stage("early");
        world.status()->stageDel("early");
    });

    world.agent("fan").event("early");

    ASSERT_TRUE(stage && stage->left());
    EXPECT_TRUE(stage->event().empty());
}

TEST(AgentTakenIn, PutsNoEventIntoAStageThatItHasWithdrawnFromAlready) {
    World world;
    world.agent("fan").event("other");
    world.when("/stage/app/status/stage[early] +", [&] { world.agent("fan").withdraw("early"); });

    world.agent("fan").event("early");

    ASSERT_NE(world.stage("early"), nullptr);
    EXPECT_TRUE(world.stage("early")->event().empty());
}

TEST(AgentTakenIn, HearsOfNoEventOnceItsReactorIsRetired) {
    World world;
    world.agent("fan").event("early");
    const Ptr<ConfigSm::OrvAgentConfig> held(world.configSm()->agentConfig("fan"));
    world.stop();
    world.trace(8);

    world.agent("fan").event("late");

    EXPECT_THAT(handlers(world), IsEmpty());
}

// --- stages

TEST(StageTakenIn, TakesNothingMoreInOnceTheManagerHasGone) {
    World world;
    world.when("/stage/app/status/stage[early] +", [&] {
        world.stage("early")->eventIs(eventOf("early", "fan", {}, true));
        world.stage("early")->eventIs(eventOf("early", "disk"));
    });
    world.when("/stage/app/status/stage/early/critical", [&] {
        world.stop();
        world.trace(8);
    });

    world.status()->stageIs("early");

    EXPECT_EQ(handlers(world), Lines({"handleCritical"})) << "the last step of its own";
}

TEST(StageTakenIn, IsTheLastOnceTheMakerHasGone) {
    World world(System::Manager::waits);
    for (const char* const name : {"a", "b"})
        world.status()->stageIs(name)->eventIs(eventOf(name, "fan", {}, true));
    Maker maker;
    world.when("/stage/app/status/stage/a/critical", [&] {
        maker.leave();
        world.trace(8);
    });

    const auto lone =
        Stage::configSmFactory(world.config(), world.status(), nullptr, nullptr, nullptr, &maker);

    EXPECT_THAT(world.traced(8, "for stage b"), IsEmpty());
}

// On purpose: a reactor hears of nothing before its owner has stored it.
TEST(StageTakenIn, DoesNotHearOfAnEventThatJoinsMeanwhile) {
    World world;
    world.when("/stage/app/status/stage[early] +",
               [&] { world.stage("early")->eventIs(eventOf("early", "fan", {}, true)); });
    world.when("/stage/app/status/stage/early/critical",
               [&] { world.stage("early")->eventIs(eventOf("early", "disk", {"power"})); });

    world.status()->stageIs("early");

    EXPECT_NE(world.event("early", "disk"), nullptr);
    EXPECT_FALSE(world.stage("early")->dependency("power"));
}

TEST(StageTakenIn, GetsNoDependencyOfAnEventThatWentUnderTheNameItStoodUnder) {
    World world;
    world.when("/stage/app/status/stage[early] +", [&] {
        const auto event = eventOf("early", "fan", {"power", "net"});
        world.stage("early")->eventIs(event);
        event->agentIs("disk");
    });
    world.when("/stage/app/status/stage/early/dependency[power]",
               [&] { world.stage("early")->eventDel("fan"); });

    world.status()->stageIs("early");

    EXPECT_FALSE(world.stage("early")->dependency("net"));
}

TEST(StageTakenIn, GetsAllDependenciesOfAnEventThatNeverStoodThere) {
    World world;
    world.agent("disk").event("early");
    world.when("/stage/app/status/stage/early/dependency[power]",
               [&] { world.stage("early")->eventIs(eventOf("early", "psu", {})); });

    world.configSm()->stageStatus("early")->eventConfigIs(
        eventOf("early", "fan", {"power", "net"}));

    EXPECT_TRUE(world.stage("early")->dependency("net"));
}

TEST(StageLosingAnEvent, ComparesTheLimitsAsTheyWereBefore) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.agent("disk").event("early", {.timeout = 20});
    world.when("/stage/app/status/stage/early/event[fan] -",
               [&] { world.stage("early")->timeoutIs(99); });

    world.agent("fan").withdraw("early");

    EXPECT_EQ(world.stage("early")->timeout(), 20);
}

TEST(StageLosingAnEvent, GoesNoFurtherThanTheManager) {
    for (const char* const step : {"early/event[fan] -", "early/critical"}) {
        SCOPED_TRACE(step);
        World world;
        world.agent("fan").event("early", {.timeout = 30, .critical = true});
        world.when(step, [&] {
            world.stop();
            world.trace(8);
        });

        world.agent("fan").withdraw("early");

        EXPECT_EQ(world.manager(), nullptr);
        EXPECT_THAT(handlers(world), IsEmpty());
    }
}

TEST(EventsReactor, ThatIsRetiredLeavesItsStageAlone) {
    World world;
    world.agent("fan").event("early");
    const Ptr<StageStatus> stage = world.stage("early");
    const auto reactor = make<ConfigSm::OrvEventConfig>(world.event("early", "fan"), "fan",
                                                        world.configSm()->stageStatus("early"));
    reactor->retire();
    stage->criticalIs(true);
    stage->timeoutIs(1);
    stage->dependencyIs("power", true);

    reactor->handleCritical();
    reactor->handleTimeout();
    reactor->handleDependency("power");

    EXPECT_TRUE(stage->critical());
    EXPECT_EQ(stage->timeout(), 1);
    EXPECT_TRUE(stage->dependency("power"));
}

// --- criticality

TEST(CriticalityOnItsWay, DoesNotReachAStageThatIsNoneOfTheClassByANewDependency) {
    World world;
    const auto stranger = make<StageStatus>("power");
    world.configSm()->stageStatusIs(stranger);
    world.agent("fan").event("early", {.critical = true});

    world.stage("early")->dependencyIs("power", true);

    EXPECT_FALSE(stranger->critical());
}

TEST(CriticalityOnItsWay, ReachesNoStageWhoseReactorHasGone) {
    World world;
    world.agent("fan").event("early").event("late");
    const Ptr<StageStatus> early = world.stage("early");
    const Ptr<ConfigSm::OrvStageStatus> gone(world.configSm()->stageStatus("early"));
    world.status()->stageDel("early");

    gone->criticalAncestorIs("late", true);

    EXPECT_TRUE(gone->criticalAncestor().value("late"));
    EXPECT_FALSE(early->critical());
}

TEST(CriticalityOnItsWay, WaitsForAnotherThatStartsMeanwhile) {
    World world;
    world.agent("fan").event("b").event("c").event("y");
    world.agent("disk").event("a", {.dependsOn = {"b", "c"}}).event("z", {.dependsOn = {"y"}});
    bool other = false;
    bool goneOn = true;
    world.when("/stage/app/status/stage/b/critical", [&] {
        world.agent("disk").registered("z")->criticalIs(true);
        other = world.stage("y")->critical();
        goneOn = world.stage("c")->critical();
    });

    world.agent("disk").registered("a")->criticalIs(true);

    EXPECT_TRUE(other);
    EXPECT_FALSE(goneOn);
    EXPECT_TRUE(world.stage("c")->critical());
}

TEST(CriticalityOnItsWay, EndsWithTheStageThatItComesFrom) {
    World world;
    world.agent("fan").event("b").event("c");
    world.agent("disk").event("a", {.dependsOn = {"b", "c"}});
    world.when("/stage/app/status/stage/b/critical", [&] { world.status()->stageDel("a"); });

    world.agent("disk").registered("a")->criticalIs(true);

    EXPECT_TRUE(world.stage("b")->critical());
    EXPECT_FALSE(world.stage("c")->critical());
}

TEST(CriticalityOnItsWay, HoldsNoStageOnceItIsCutShort) {
    bool failed = true;
    for (std::size_t which = 1; failed; ++which) {
        SCOPED_TRACE(which);
        World world;
        world.agent("a").event("one");
        world.agent("b").event("two", {.dependsOn = {"one"}});
        const auto event = world.agent("b").registered("two");
        {
            const RuntimeTest::FailingAllocation failing(which, RuntimeTest::Refused::one);
            event->criticalIs(true);
            failed = failing.failed();
        }
        const Ptr<StageStatus> stage = world.stage("two");

        world.status()->stageDel("two");

        EXPECT_EQ(stage->references(), 1u);
        ASSERT_LT(which, 1000u);
    }
}

// --- instances

TEST(GoneInstance, HasNoTimerArmedAlsoWhileSomebodyHoldsIt) {
    World world({.deadline = 10});
    world.agent("fan").event("early");
    world.enable("boot");
    const Ptr<InstanceStatusSm> held(world.instance("boot"));
    ASSERT_EQ(world.armedTimers(), 2u) << "the pass and the deadline";

    world.disable("boot");

    EXPECT_EQ(world.armedTimers(), 0u);
}

TEST(GoneInstance, LogsNothingMoreAlsoForWhoeverHoldsItsLog) {
    World world;
    world.enable("boot");
    // Held, so that it is retired and not yet deleted.
    const Ptr<InstanceStatusSm> gone(world.instance("boot"));
    const Ptr<Stage::LogSm> log = gone->logSm();
    world.disable("boot");

    log->logIs("late");

    EXPECT_EQ(world.instanceLog("boot"), nullptr);
}

TEST(GoneInstance, IsNotSuspendedAndAsksForNoPass) {
    World world;
    world.enable("boot");
    world.settle();
    const Ptr<InstanceStatusSm> gone(world.instance("boot"));
    world.stop();

    gone->doNextStage();
    EXPECT_FALSE(gone->needRecalculateNextStage());
    world.suspend("boot");
    gone->doNextStage();
    EXPECT_FALSE(world.instanceStatus("boot")->suspended());
}

TEST(GoneInstance, TakesNoActiveStageIn) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    const Ptr<InstanceStatusSm> gone(world.instance("boot"));
    world.stop();
    world.instanceStatus("boot")->activeStageIs(world.stage("early"));
    world.trace(9);

    gone->handleActiveStage("early");

    EXPECT_THAT(world.traced(9), IsEmpty());
}

TEST(GoneInstance, AsksForNoPassOnceItsFirstLineIsWritten) {
    World world;
    world.agent("fan").event("early");
    world.when("<< app stages started", [&] {
        world.disable("boot");
        world.trace(8);
    });

    world.enable("boot");

    EXPECT_EQ(world.instance("boot"), nullptr);
    EXPECT_THAT(handlers(world), Not(Contains("doNextStage")));
}

TEST(GoneInstance, LooksAtNoFurtherStage) {
    struct Row {
        const char* last;
        std::uint64_t visited;
    };
    for (const Row& row : {Row{"early", 1}, Row{"late", 2}}) {
        SCOPED_TRACE(row.last);
        World world;
        world.agent("fan").event("early").event("late");
        world.enable("boot");
        const Ptr<InstanceStatusSm> held(world.instance("boot"));
        world.trace(7);  // who traces is told of every stage
        world.when(std::string("<< stage ") + row.last + " started", [&] {
            world.disable("boot");
            world.forgetTraced();
        });

        world.settle();

        EXPECT_TRUE(held->retired());
        EXPECT_EQ(held->visitedStages(), row.visited);
        EXPECT_THAT(world.traced(7), IsEmpty());
    }
}

TEST(GoneInstance, LooksAtNoFurtherStageAfterOneThatHasBeenTakenAway) {
    World world;
    world.agent("fan").event("a").event("b").event("c").event("d");
    world.enable("boot");
    const Ptr<InstanceStatusSm> held(world.instance("boot"));
    world.when("<< stage a started", [&] { world.status()->stageDel("b"); });
    world.when("<< stage c started", [&] { world.disable("boot"); });

    world.settle();

    EXPECT_TRUE(held->retired());
    EXPECT_EQ(held->visitedStages(), 2u);
}

TEST(GoneInstance, WritesNoLineOfItsCompletion) {
    World world;
    world.agent("fan").event("early").report("early", "boot");
    world.enable("boot");
    world.when("/completionstatus/status/boot/complete", [&] {
        world.disable("boot");
        world.trace(8);
    });

    world.settle();

    EXPECT_EQ(world.instance("boot"), nullptr);
    EXPECT_THAT(world.traced(8, "app stages complete"), IsEmpty());
}

TEST(GoneInstance, RequestsNoRebootForItsDeadline) {
    World world({.deadline = 10});
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.when("message: ", [&] {
        world.disable("boot");
        world.trace(0);
    });

    world.advance(10);

    EXPECT_EQ(world.instance("boot"), nullptr);
    EXPECT_THAT(world.traced(0), IsEmpty());
}

TEST(GoneInstance, GivesNoCauseOfARebootOnceItsReasonIsWritten) {
    World world({.timeoutIsFatal = true});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.when("/fatalerror/rebootReason", [&] { world.stop(); });

    world.advance(30);

    EXPECT_EQ(world.reboot().reason, "early timed out");
    EXPECT_EQ(world.reboot().cause, "");
}

TEST(InstanceTakenIn, LooksAtNoActiveStageBeforeItIsInitialized) {
    World world;
    world.trace(8);

    world.enable("boot");

    EXPECT_EQ(std::ranges::count(handlers(world), "handleActiveStage"), 1);
}

TEST(InstanceTakenIn, ThatIsInitializedAgainWaitsForNoPassThatNobodyNeeds) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    InstanceStatusSm* const instance = world.instance("boot");
    instance->doNextStage();
    ASSERT_NE(instance->recalculateNextStage(), Orv::never);
    instance->needRecalculateNextStageIs(false);

    instance->handleInitialized();

    EXPECT_EQ(instance->recalculateNextStage(), Orv::never);
}

TEST(InstanceTakenIn, LooksAtItsListOnceHoweverOftenItIsGivenIt) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    InstanceStatusSm* const instance = world.instance("boot");
    const auto list = make<Stage::StageGlobalConfig>("list");
    list->doNotStartStageIs({"app", "late"}, false);

    instance->stageGlobalConfigIs(list);
    EXPECT_NE(instance->recalculateNextStage(), Orv::never);
    world.settle();
    instance->stageGlobalConfigIs(list);
    EXPECT_EQ(instance->recalculateNextStage(), Orv::never);
}

TEST(InstanceTakenIn, AStageThatStartsWaitsNoMoreToBeEnabled) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    ASSERT_NE(world.stageEnableSm("boot", "early"), nullptr);
    const Stage::StageEnableSm* waiting = world.stageEnableSm("boot", "early");
    world.when("event early:fan started", [&] { waiting = world.stageEnableSm("boot", "early"); });

    world.settle();

    EXPECT_EQ(waiting, nullptr);
}

TEST(StageEnabling, HearsOfNothingBeforeItIsStored) {
    World world;
    world.enable("boot");
    world.settle();
    InstanceStatusSm* const instance = world.instance("boot");
    const auto stage = make<StageStatus>("early");
    const auto waiting = make<Stage::StageEnableSm>(Ptr<const StageStatus>(stage), instance);

    stage->criticalIs(true);
    EXPECT_EQ(instance->recalculateNextStage(), Orv::never);

    waiting->notificationActiveIs(true);
    stage->criticalIs(false);
    stage->criticalIs(true);
    EXPECT_NE(instance->recalculateNextStage(), Orv::never);
}

// --- stages of an instance

class GoneStage : public ::testing::Test {
  protected:
    GoneStage() {
        world.agent("fan").event("early", {.timeout = 30, .critical = true});
        world.enable("boot");
        world.settle();
        sm = Ptr<StageSm>(world.stageSm("boot", "early"));
    }
    World world;
    Ptr<StageSm> sm;
};

TEST_F(GoneStage, ReportsNoEventThatItIsGiven) {
    world.instance("boot")->stageSmDel("early");
    const auto event = make<Stage::EventConfig>("early", "disk");
    event->completeIs("boot", true);

    sm->eventIs("disk", event);

    EXPECT_FALSE(world.agentStatusLocal()->complete({"disk", "early", "boot"}));
}

TEST_F(GoneStage, WaitsForNoEventWhoseLineTookItAway) {
    world.when("event early:disk started", [&] { world.disable("boot"); });

    sm->eventIs("disk", make<Stage::EventConfig>("early", "disk"));

    EXPECT_TRUE(sm->retired());
    EXPECT_FALSE(sm->pendingEvent().contains("early:disk"));
}

TEST_F(GoneStage, DoesNotCompleteWhenNothingIsPendingAnyMore) {
    world.instance("boot")->stageSmDel("early");
    world.advance(1);

    sm->pendingEventDel("early:fan");

    EXPECT_TRUE(sm->pendingEvent().empty());
    EXPECT_FALSE(sm->complete());
    EXPECT_EQ(sm->completionTime(), 0);
}

TEST_F(GoneStage, HasNoCompletionTimeWhenTheMessageTookItAway) {
    world.advance(30);
    world.when("message: ", [&] { world.disable("boot"); });
    world.advance(1);

    world.agent("fan").report("early", "boot");

    EXPECT_TRUE(sm->retired());
    EXPECT_EQ(sm->completionTime(), 0);
}

TEST_F(GoneStage, ArmsNoTimerWhenItIsInitializedAgain) {
    world.stop();

    sm->handleInitialized();

    EXPECT_EQ(world.armedTimers(), 0u);
}

TEST_F(GoneStage, MakesNoReactorForAnEventThatComesBackAsItGoes) {
    world.when("<< stage early is complete", [&] {
        world.stage("early")->eventIs(eventOf("early", "fan"));
        world.disable("boot");
        world.trace(8);
    });

    world.agent("fan").withdraw("early");

    EXPECT_TRUE(sm->retired());
    EXPECT_THAT(handlers(world), Not(Contains("handleComplete")));
}

TEST_F(GoneStage, KeepsWhatWasPendingWhenTheLineOfItsCompletionTookItAway) {
    world.when("event early:fan completed", [&] { world.disable("boot"); });

    world.agent("fan").report("early", "boot");

    EXPECT_TRUE(sm->retired());
    EXPECT_TRUE(sm->pendingEvent().contains("early:fan"));
}

TEST_F(GoneStage, HasNotTimedOutWhenTheMessageTookItAway) {
    world.when("message: ", [&] { world.disable("boot"); });

    world.advance(30);

    EXPECT_TRUE(sm->retired());
    EXPECT_FALSE(sm->timedOut());
}

TEST_F(GoneStage, HasNoCompletionTimeWhenTheLineOfItsLimitTookItAway) {
    world.stage("early")->criticalIs(false);
    world.when("<< stage early timed out but", [&] { world.disable("boot"); });

    world.advance(30);

    EXPECT_TRUE(sm->retired());
    EXPECT_EQ(sm->completionTime(), 0);
}

TEST_F(GoneStage, MakesNoReactorForAnEventWhoseLineTookItOutOfTheStage) {
    world.when("event early:disk started", [&] { world.agent("disk").withdraw("early"); });

    world.agent("disk").event("early");

    EXPECT_FALSE(sm->retired());
    EXPECT_EQ(sm->event("disk"), nullptr);
}

TEST_F(GoneStage, WaitsForAnEventThatItIsGivenAlsoWhenAnotherJoinsMeanwhile) {
    world.when("event early:disk started", [&] { world.agent("usb").event("early"); });

    sm->eventIs("disk", make<Stage::EventConfig>("early", "disk"));

    EXPECT_TRUE(sm->pendingEvent().contains("early:disk"));
    EXPECT_TRUE(sm->pendingEvent().contains("early:usb"));
}

TEST_F(GoneStage, LooksForWhatItMissedOnlyWhenItIsSwitchedOn) {
    sm->notificationActiveIs(false);
    world.agent("disk").event("early");

    sm->notificationActiveIs(false);
    EXPECT_FALSE(sm->pendingEvent().contains("early:disk"));
    sm->notificationActiveIs(true);
    EXPECT_TRUE(sm->pendingEvent().contains("early:disk"));
}

TEST(StageStarting, LogsAnEventThatJoinsMeanwhileBehindThoseItHas) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early");
    world.enable("boot");
    world.when("event early:fan started", [&] { world.agent("usb").event("early"); });

    world.settle();

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started",
                     "  event early:disk started", "  event early:usb started"}));
}

TEST(StageStarting, LooksAtNoFurtherEventOrReportOnceItHasGone) {
    for (const char* const line : {"event early:fan started", "event early:fan completed"}) {
        SCOPED_TRACE(line);
        World world;
        for (const char* const agent : {"fan", "disk"})
            world.agent(agent).event("early").report("early", "boot");
        world.enable("boot");
        world.when(line, [&] {
            world.disable("boot");
            world.trace(8);
        });

        world.settle();

        EXPECT_EQ(world.instance("boot"), nullptr);
        EXPECT_THAT(handlers(world), Not(Contains("handleComplete")));
        EXPECT_THAT(world.traced(8, "agent: disk"), IsEmpty());
    }
}

TEST(GoneInstances, EnableNoFurtherOne) {
    World world;
    const Ptr<Stage::StatusSm> gone(world.statusSm());
    world.stop();
    world.enable("boot");

    gone->handleEnabled("boot");

    EXPECT_EQ(world.progress("boot"), nullptr);
}

// --- classes

TEST(GoneManager, MakesNoFurtherReactorOfAClass) {
    System system(System::Manager::waits);
    StageClass& app = system.stageClass("app");
    app.agent("fan").event("early");
    app.enable("boot");
    const auto dir = system.stageDir()->entityPtr<Orv::Dir>("app");
    dir->entryDel("log");
    system.start();
    system.when("/stage/app/status/stage[early] +", [&] {
        system.stop();
        system.trace(6);
    });

    dir->entryIs("log", "Stage::Log");

    EXPECT_THAT(handlers(system), IsEmpty());
}

TEST(ManagerStarting, TakesTheClassesInAsTheyStandInTheStageDirectory) {
    System system(System::Manager::waits);
    system.inputDir()->subdirIs("b");
    system.stageClass("a");
    system.stageClass("b");

    system.start();

    Lines classes;
    for (const auto& [name, manager] : system.manager()->stageMgr().map())
        classes.push_back(name.str());
    EXPECT_EQ(classes, Lines({"a", "b"}));
}

TEST(GoneManager, WatchesNoClassAlsoWhileSomebodyHoldsIt) {
    World world(System::Manager::waits);
    world.start();
    const Ptr<Stage::StageMgrStageClassDirSm> held = world.manager();
    const Ptr<Stage::StageSubPathSm> watcher(held->stageSubPathSm().find("app"));
    ASSERT_TRUE(watcher);
    held->retire();
    world.trace(9);

    world.stageDir()->entityPtr<Orv::Dir>("app")->subdirIs("other");

    EXPECT_THAT(handlers(world), IsEmpty());
}

}  // namespace
