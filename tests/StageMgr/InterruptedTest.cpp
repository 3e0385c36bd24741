// Something is taken away right where it matters: in the middle of a step of a reactor, which then
// does the rest of the step no more.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StageMgr/Types.h"
#include "tests/support/Allocations.h"
#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

using Orv::make;
using Orv::Ptr;
using Stage::ConfigSm;
using Stage::FatalError;
using Stage::InstanceStatusSm;
using Stage::StageSm;
using Stage::StatusSm;

// Acts when a stage's reactor tells of itself.
class OnStageSm final : public StageSm::NotifieeConst {
  public:
    explicit OnStageSm(StageSm* stage) { notifierIs(Ptr<const StageSm>(stage)); }
    std::function<void()> complete = [] {};
    std::function<void()> timedOut = [] {};
    std::function<void()> completionTime = [] {};
    void onComplete() override { complete(); }
    void onTimedOut() override { timedOut(); }
    void onCompletionTime() override { completionTime(); }
};

// --- an instance goes

class InstanceGoing : public ::testing::TestWithParam<const char*> {};

TEST_P(InstanceGoing, StopsWhereTheManagerIsDropped) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.observe();
    world.when(GetParam(), [&] { world.stop(); });

    world.enable("boot", false);

    ASSERT_EQ(world.manager(), nullptr);
    EXPECT_EQ(world.observed().back(), GetParam()) << "the last that was written";
    EXPECT_THAT(world.errors(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(AtEveryStep, InstanceGoing,
                         ::testing::Values("/stage/app/completionstatus/status[boot] -",
                                           "/stage/app/status/instStatus[boot] -",
                                           "/stage/app/progress/progress[boot] -",
                                           "/stage/app/log/instanceLog[boot] -"));

TEST(InstanceGoingAndComing, StartsAnewOnceItHasGone) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    InstanceStatusSm* const first = world.instance("boot");
    world.when("/stage/app/progress/progress[boot] -", [&] { world.enable("boot"); });

    world.enable("boot", false);
    world.settle();

    EXPECT_NE(world.instance("boot"), nullptr);
    EXPECT_NE(world.instance("boot"), first);
    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started"}));
}

// --- the class's reactor of instances

class LoneStatus : public ::testing::Test {
  protected:
    Ptr<StatusSm> statusSm(const Ptr<Stage::EnabledConfig>& enabled,
                           const Orv::Owner* owner = nullptr) {
        return make<StatusSm>(nullptr, enabled, world.status(), world.completionStatusDir(),
                              world.progressDir(), world.logs(), nullptr, nullptr, nullptr, owner);
    }

    World world{System::Manager::waits};
};

using LoneStatusDeathTest = LoneStatus;

TEST_F(LoneStatus, WithoutAnEnablingEntityEveryInstanceIsAbsent) {
    world.status()->instStatusIs("boot");

    const auto lone = statusSm(nullptr);

    EXPECT_THAT(world.status()->instStatus(), IsEmpty());
    EXPECT_TRUE(lone->instStatusSm().empty());
}

TEST_F(LoneStatus, WhoseMakerGoesCleansUpNoFurther) {
    for (const char* const name : {"a", "b"}) {
        world.status()->instStatusIs(name);
        world.progressDir()->progressIs(name);
    }
    Maker maker;
    world.when("instStatus[a] -", [&] { maker.leave(); });

    const auto lone = statusSm(world.enabledConfig(), &maker);

    EXPECT_TRUE(lone->retired());
    EXPECT_FALSE(world.status()->instStatus().contains("a"));
    EXPECT_TRUE(world.status()->instStatus().contains("b"));
    EXPECT_THAT(world.progressDir()->progress(), SizeIs(2));
}

TEST_F(LoneStatus, ThatIsRetiredEnablesNoFurtherInstance) {
    const auto lone = statusSm(nullptr);
    for (const char* const name : {"a", "b"}) world.enabledConfig()->enabledIs(name, true);
    world.when("instStatus[a] +", [&] { lone->retire(); });

    lone->enabledConfigIs(world.enabledConfig());

    EXPECT_TRUE(lone->instStatusSm().empty());
    EXPECT_FALSE(world.status()->instStatus().contains("b"));
}

TEST_F(LoneStatus, KeepsAnInstanceWithoutAStatusUnderNoName) {
    const auto lone = statusSm(nullptr);

    const auto nameless = lone->instStatusSmIs(nullptr, nullptr, world.status(), nullptr, nullptr,
                                               world.logs(), nullptr, nullptr, nullptr, nullptr);

    EXPECT_EQ(lone->instStatusSm().find(""), nameless.get());
}

TEST_F(LoneStatusDeathTest, IsMadeFromEveryEntityThatItWrites) {
    const auto made = [&](const Ptr<Stage::Status>& status,
                          const Ptr<Stage::CompletionStatusDir>& completionStatusDir,
                          const Ptr<Stage::ProgressDir>& progressDir, const Ptr<Stage::Log>& log) {
        make<StatusSm>(nullptr, nullptr, status, completionStatusDir, progressDir, log, nullptr,
                       nullptr, nullptr);
    };
    const auto status = world.status();
    const auto completion = world.completionStatusDir();
    const auto progress = world.progressDir();
    const auto log = world.logs();
    const char* const said = "status_ && completionStatusDir_ && progressDir_ && log_";

    EXPECT_DEATH(made(nullptr, completion, progress, log), said);
    EXPECT_DEATH(made(status, nullptr, progress, log), said);
    EXPECT_DEATH(made(status, completion, nullptr, log), said);
    EXPECT_DEATH(made(status, completion, progress, nullptr), said);
}

// --- an instance without this or that

class LoneInstance : public ::testing::Test {
  protected:
    LoneInstance() { world.agent("fan").event("early"); }

    // Without an own status, and so without a name.
    Ptr<InstanceStatusSm> nameless() {
        return Stage::instanceStatusSmFactory(nullptr, world.enabledConfig(), world.status(),
                                              nullptr, nullptr, world.logs(), nullptr, nullptr,
                                              nullptr, nullptr);
    }

    World world;
};

TEST_F(LoneInstance, WithoutAStatusStartsNoStage) {
    world.enabledConfig()->enabledIs("", true);
    const auto instance = nameless();
    instance->needRecalculateNextStageIs(true);

    instance->handleNextStage();
    instance->handleActiveStage();
    instance->handleActiveStage("early");

    EXPECT_TRUE(instance->stageSm().empty());
    EXPECT_FALSE(instance->retired());
}

TEST_F(LoneInstance, WithoutAStatusIsSuspendedAllTheSame) {
    world.enabledConfig()->enabledIs("", true);
    world.enabledConfig()->suspendedIs("", true);
    const auto instance = nameless();

    instance->doNextStage();

    EXPECT_FALSE(instance->needRecalculateNextStage());
}

TEST_F(LoneInstance, WithoutADoNotStartListLooksOnlyAtItsOwnStages) {
    world.enabledConfig()->enabledIs("", true);
    const auto instance = nameless();
    instance->needRecalculateNextStageIs(false);

    instance->handleDoNotStartStage();
    EXPECT_FALSE(instance->needRecalculateNextStage());
    instance->handleDoNotStartStage({"another", "early"});
    EXPECT_FALSE(instance->needRecalculateNextStage());
    instance->handleDoNotStartStage({"", "early"});
    EXPECT_TRUE(instance->needRecalculateNextStage()) << "it can have been removed only";
}

TEST_F(LoneInstance, WithoutAConfigurationItsDeadlineIsNone) {
    const auto request = make<FatalError>("request");
    const auto instance =
        Stage::instanceStatusSmFactory(nullptr, world.enabledConfig(), world.status(), nullptr,
                                       nullptr, world.logs(), nullptr, request, nullptr, nullptr);
    EXPECT_EQ(instance->globalStageClock(), Orv::never);

    instance->handleGlobalStageClock();

    EXPECT_EQ(request->rebootReason(), "Global stage progression timed out after 0 secs");
    EXPECT_EQ(request->requestReboot(), FatalError::ResetMode::none);
}

TEST_F(LoneInstance, IsWantedWhileItIsMadeUntilItsStatusGoes) {
    const Maker maker;
    const auto status = world.status()->instStatusIs("boot");
    const auto instance = Stage::instanceStatusSmFactory(
        nullptr, world.enabledConfig(), world.status(), nullptr, nullptr, world.logs(), nullptr,
        nullptr, status, nullptr, &maker);
    EXPECT_FALSE(instance->retired());

    world.status()->instStatusDel("boot");
    EXPECT_TRUE(instance->retired());
    instance->instanceStatusIs(nullptr);
    EXPECT_FALSE(instance->retired()) << "without a status there is none that could go";
}

TEST_F(LoneInstance, WhoseMakerIsGoneWritesNothing) {
    Maker maker;
    maker.leave();
    world.enabledConfig()->enabledIs("boot", true);
    const auto log = make<Stage::Log>("log");
    const auto instance = Stage::instanceStatusSmFactory(
        nullptr, world.enabledConfig(), world.status(), nullptr, nullptr, log, nullptr, nullptr,
        make<Stage::InstanceStatus>("boot"), nullptr, &maker);

    instance->retire();

    EXPECT_EQ(instance->logSm(), nullptr);
    EXPECT_THAT(log->instanceLog(), IsEmpty());
}

TEST_F(LoneInstance, IsWatchedOnlyAnew) {
    world.enable("boot");
    world.settle();
    InstanceStatusSm* const instance = world.instance("boot");
    const auto list = make<Stage::StageGlobalConfig>("list");

    instance->instanceStatusIs(world.instanceStatus("boot"));
    instance->stageGlobalConfigIs(list);
    instance->stageGlobalConfigIs(list);
    instance->stageGlobalConfigIs(nullptr);
    EXPECT_EQ(instance->recalculateNextStage(), Orv::never);

    list->doNotStartStageIs({"app", "late"}, true);
    EXPECT_EQ(instance->recalculateNextStage(), Orv::never) << "it is not its list any more";
}

TEST_F(LoneInstance, ThatIsRetiredStartsNothingAndAsksForNothing) {
    world.enable("boot");
    const Ptr<InstanceStatusSm> instance(world.instance("boot"));
    const Ptr<Stage::InstanceStatus> status = world.instanceStatus("boot");
    world.disable("boot");
    ASSERT_TRUE(instance->retired());

    instance->needRecalculateNextStageIs(true);
    instance->handleNextStage();
    status->activeStageIs(world.stage("early"));
    instance->handleActiveStage("early");
    instance->requestReboot("for nothing");

    EXPECT_TRUE(instance->stageSm().empty());
    EXPECT_EQ(world.reboot(), Reboot());
}

TEST_F(LoneInstance, WithoutAReactorForAStageHoldsBackWhatDependsOnIt) {
    world.agent("disk").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.instance("boot")->stageSmDel("early");
    world.instance("boot")->doNextStage();

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
    world.instance("boot")->handleNextStage();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"})) << "nothing had asked for a pass";
}

TEST_F(LoneInstance, WithoutAManagerAStageThatWaitsToBeEnabledAsksNobody) {
    const auto waiting = make<Stage::StageEnableSm>(world.stage("early"), nullptr);
    world.stage("early")->criticalIs(true);

    waiting->handleCritical();
    waiting->handleDependencyDel("void");

    EXPECT_FALSE(waiting->retired());
    EXPECT_EQ(world.armedTimers(), 0u);
}

// --- a reboot request

class RebootRequest : public ::testing::TestWithParam<const char*> {};

TEST_P(RebootRequest, StopsWhereTheManagerIsDropped) {
    World world({.timeoutIsFatal = true});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.when(GetParam(), [&] { world.stop(); });

    world.advance(30);

    ASSERT_EQ(world.manager(), nullptr);
    EXPECT_EQ(world.reboot().mode, FatalError::ResetMode::none);
    EXPECT_EQ(world.reboot().reason, "early timed out");
    EXPECT_THAT(world.errors(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(AtEveryStep, RebootRequest,
                         ::testing::Values("/fatalerror/rebootReason",
                                           "/fatalerror/reloadCauseDesc"));

// --- a stage's reactor

class LoneStage : public ::testing::Test {
  protected:
    LoneStage() {
        world.agent("fan").event("early", {.timeout = 30});
        world.enable("boot");
        world.settle();
        sm = Ptr<StageSm>(world.stageSm("boot", "early"));
    }
    void gone() { world.instance("boot")->stageSmDel("early"); }
    Ptr<Stage::EventConfig> event() { return world.event("early", "fan"); }

    World world;
    Ptr<StageSm> sm;
};

TEST_F(LoneStage, WithoutARecordAnEventsOwnCompletionIsLeftAlone) {
    sm->agentStatusLocalIs(nullptr);

    event()->completeIs("boot", true);
    sm->handleCompleteLocal();
    sm->handleCompleteLocal({"fan", "early", "boot"});

    EXPECT_FALSE(sm->complete());
    EXPECT_THAT(sm->pendingEvent(), SizeIs(1));
    EXPECT_TRUE(sm->eventComplete(*event()));
    EXPECT_FALSE(sm->eventComplete(*make<Stage::EventConfig>("early", "disk")));
}

TEST_F(LoneStage, AnotherRecordIsLookedAtAtOnce) {
    const auto record = make<Stage::AgentStatusLocal>();
    record->completeIs({"fan", "early", "boot"}, true);

    sm->agentStatusLocalIs(record);
    EXPECT_TRUE(sm->complete());

    world.settle();
    const Lines log = world.log("boot");
    sm->agentStatusLocalIs(record);
    EXPECT_EQ(world.log("boot"), log) << "the same record is not looked at again";
}

TEST_F(LoneStage, WithoutAnEventHasNone) {
    sm->eventIs("disk", nullptr);
    EXPECT_EQ(sm->event("disk"), nullptr);

    EXPECT_NE(sm->autoCompleteSmIs(nullptr, nullptr, "boot", nullptr), nullptr);
    EXPECT_THAT(sm->pendingEvent(), SizeIs(1));
}

TEST_F(LoneStage, TakesAnEventThatItsStageDoesNotHave) {
    const auto other = make<Stage::EventConfig>("early", "disk");

    sm->eventIs("disk", other);

    EXPECT_EQ(sm->event("disk"), other);
    EXPECT_TRUE(sm->pendingEvent().contains("early:disk"));
    EXPECT_THAT(world.log("boot"), Contains("  event early:disk started"));
}

TEST_F(LoneStage, DropsTheReactorsOfEventsThatItsStageHasLost) {
    sm->handleEvent();
    EXPECT_EQ(sm->event("fan"), event());
    sm->notificationActiveIs(false);
    world.stage("early")->eventDel("fan");
    EXPECT_NE(sm->event("fan"), nullptr);

    sm->handleEvent();

    EXPECT_EQ(sm->event("fan"), nullptr);
    EXPECT_THAT(sm->pendingEvent(), SizeIs(1)) << "only a change of one event reconciles these";
}

TEST_F(LoneStage, ThatIsRetiredDoesNothing) {
    gone();
    ASSERT_TRUE(sm->retired());
    const Lines log = world.log("boot");

    sm->handleEvent("fan");
    sm->handleStageUncompleted();
    sm->eventIs("disk", event());
    handleEventStart(*sm, event());

    EXPECT_EQ(sm->event("fan"), nullptr);
    EXPECT_EQ(sm->event("disk"), nullptr);
    EXPECT_EQ(world.log("boot"), log);
    EXPECT_FALSE(sm->timedOut());
}

TEST_F(LoneStage, ThatGoesWhenItsLastEventIsWithdrawnMakesNoReactorForIt) {
    OnStageSm notifiee(sm.get());
    notifiee.complete = [&] { gone(); };

    world.agent("fan").withdraw("early");

    EXPECT_TRUE(sm->retired());
    EXPECT_THAT(world.log("boot"), Not(Contains("stage early is complete")));
}

TEST_F(LoneStage, ThatGoesWithItsCompletionTimeIsNotComplete) {
    OnStageSm notifiee(sm.get());
    notifiee.completionTime = [&] { gone(); };
    world.advance(1);

    world.agent("fan").report("early", "boot");

    EXPECT_TRUE(sm->retired());
    EXPECT_FALSE(sm->complete());
    EXPECT_THAT(world.log("boot"), Not(Contains("stage early is complete")));
}

TEST_F(LoneStage, ThatGoesAsItTimesOutGoesNoFurther) {
    OnStageSm notifiee(sm.get());
    notifiee.completionTime = [&] { gone(); };

    world.advance(30);

    EXPECT_TRUE(sm->retired());
    EXPECT_FALSE(sm->timedOut());
    EXPECT_FALSE(sm->complete());
}

TEST_F(LoneStage, ThatGoesOnceItHasTimedOutIsNotComplete) {
    OnStageSm notifiee(sm.get());
    notifiee.timedOut = [&] { gone(); };

    world.advance(30);

    EXPECT_TRUE(sm->timedOut());
    EXPECT_FALSE(sm->complete());
}

TEST_F(LoneStage, WithoutAnInstanceCompletesByItsEventsAndNeverTimesOut) {
    const auto lone = Stage::stageSmFactory(world.stage("early"), "boot", nullptr,
                                            world.agentStatusLocal(), nullptr);
    world.advance(30);
    EXPECT_FALSE(lone->timedOut());
    EXPECT_FALSE(lone->rebootRequested());

    world.agent("fan").report("early", "boot");
    EXPECT_TRUE(lone->complete());
}

class CriticalStage : public ::testing::TestWithParam<const char*> {};

TEST_P(CriticalStage, ThatTimesOutStopsWhereItsInstanceIsDisabled) {
    World world({.timeoutIsFatal = std::string(GetParam()).find("message") == 0});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.settle();
    world.when(GetParam(), [&] { world.disable("boot"); });

    world.advance(30);

    EXPECT_EQ(world.instance("boot"), nullptr);
    EXPECT_EQ(world.reboot(), Reboot());
    EXPECT_THAT(world.errors(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(AtEveryStep, CriticalStage, ::testing::Values("message: ", "print: "));

TEST(CriticalStageTest, StopsWhereItsInstanceIsDisabledForHavingTimedOut) {
    World world({.timeoutIsFatal = true});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.settle();
    OnStageSm notifiee(world.stageSm("boot", "early"));
    notifiee.timedOut = [&] { world.disable("boot"); };

    world.advance(30);

    EXPECT_EQ(world.reboot(), Reboot());
}

TEST(CriticalStageTest, TimesOutOnceForWhoeverWatches) {
    World world;
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.settle();
    int told = 0;
    OnStageSm notifiee(world.stageSm("boot", "early"));
    notifiee.timedOut = [&] { ++told; };

    world.advance(30);
    world.stageSm("boot", "early")->handleStageUncompleted();

    EXPECT_EQ(told, 1);
    EXPECT_THAT(world.messages(), SizeIs(2)) << "the message comes each time";
}

TEST(CriticalStageTest, StopsWhereItsInstanceIsDisabledForHavingCompletedLate) {
    World world;
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.advance(30);
    const Ptr<StageSm> sm(world.stageSm("boot", "early"));
    world.when("message: ", [&] { world.disable("boot"); });

    world.agent("fan").report("early", "boot");

    EXPECT_TRUE(sm->retired());
    EXPECT_FALSE(sm->complete());
}

// --- the log

TEST(LogGoing, ALineThatFindsItsNewLogGoneIsDropped) {
    World world;
    world.when("/stage/app/log/instanceLog[boot] +", [&] { world.logs()->instanceLogDel("boot"); });
    const auto writer = Stage::logSmFactory(world.logs(), "boot");

    writer->logIs("lost");
    EXPECT_THAT(world.logs()->instanceLog(), IsEmpty());

    writer->logIs("kept");
    EXPECT_EQ(world.log("boot"), Lines({"kept"}));
}

// --- the classes

TEST(ClassDirectory, WatchesAnotherDirectoryOnlyAnew) {
    World world;
    const auto& manager = world.manager();
    Stage::StageMgr* const made = world.stageMgr();

    manager->stageDirIs(world.stageDir());
    manager->stageInputDirIs(world.System::inputDir());
    manager->stageAgentStatusDirIs(world.System::agentStatusDir());
    manager->stageEnableConfigDirIs(world.enableDir());
    EXPECT_EQ(world.stageMgr(), made);

    manager->stageDirIs(nullptr);
    world.stageClass("net");
    EXPECT_EQ(manager->stageMgr().find("net"), nullptr);
}

TEST(ClassDirectory, ThatIsRetiredMakesNothing) {
    World world(System::Manager::waits);
    System empty;
    const Ptr<Stage::StageMgrStageClassDirSm> manager = empty.manager();
    empty.stageClass("app");
    manager->retire();

    manager->handleStageClass("app");
    manager->handleStageSubPath("app");

    EXPECT_TRUE(manager->stageSubPathSm().empty());
    EXPECT_TRUE(manager->stageMgr().empty());
}

TEST(ClassDirectory, MakesNoManagerWhileAnyEntryOfAClassIsMissing) {
    for (const char* const missing : {"config", "status", "completionstatus", "progress", "log"}) {
        SCOPED_TRACE(missing);
        System system(System::Manager::waits);
        system.stageClass("app");
        const auto dir = system.stageDir()->entityPtr<Orv::Dir>("app");
        dir->entryDel(missing);
        dir->subdirDel(missing);
        system.start();

        system.manager()->handleStageSubPath("app");

        EXPECT_TRUE(system.manager()->stageMgr().empty());
    }
}

TEST(ClassDirectory, ThatIsDroppedWhileAClassIsTakenInGoesNoFurther) {
    System system(System::Manager::waits);
    StageClass& app = system.stageClass("app");
    app.agent("fan").event("early");
    app.enable("boot");
    const auto dir = system.stageDir()->entityPtr<Orv::Dir>("app");
    dir->entryDel("log");
    system.start();
    system.when("/stage/app/status/stage[early] +", [&] { system.stop(); });

    dir->entryIs("log", "Stage::Log");

    EXPECT_EQ(system.manager(), nullptr);
    EXPECT_THAT(app.status()->instStatus(), IsEmpty());
    EXPECT_THAT(system.errors(), IsEmpty());
}

TEST(ClassWatcher, WithoutADirectoryPublishesNothing) {
    const auto published = make<Stage::AvailableStageSubPaths>();
    const auto watcher = Stage::stageSubPathSmFactory("app", nullptr, published);
    watcher->handleStageClassDir();
    watcher->handleStageClassDir("log");
    EXPECT_THAT(published->stageSubPath(), IsEmpty());

    const auto dir = make<Orv::Dir>("app");
    watcher->stageClassDirIs(dir);
    watcher->stageClassDirIs(nullptr);
    EXPECT_EQ(dir->references(), 1u);
}

// --- registration

class LoneConfig : public ::testing::Test {
  protected:
    World world;
    ConfigSm* config() { return world.configSm(); }
};

using LoneConfigDeathTest = LoneConfig;

TEST_F(LoneConfig, ThatIsRetiredTakesNobodyIn) {
    const Ptr<ConfigSm> gone(config());
    world.agent("disk").event("early");
    const Ptr<ConfigSm::OrvAgentConfig> disk(gone->agentConfig("disk"));
    world.stop();
    world.agent("fan").event("early").report("early", "boot");
    world.stage("early")->eventDel("disk");
    disk->handleEvent();

    gone->handleAgent("fan");
    gone->handleAgentStatus("fan");
    gone->handleGlobalStageCompletionTimeout();

    EXPECT_EQ(gone->agentConfig("fan"), nullptr);
    EXPECT_EQ(gone->agentStatusSm().find("fan"), nullptr);
    EXPECT_EQ(world.event("early", "disk"), nullptr);
    EXPECT_THAT(world.watchdog(), IsEmpty());
}

TEST_F(LoneConfig, WithoutAStatusKeepsNoStages) {
    world.agent("fan").event("early");
    const auto stage = make<Stage::StageStatus>("late");

    const auto lone =
        Stage::configSmFactory(world.config(), nullptr, world.inputDir(), nullptr, nullptr);

    EXPECT_NE(lone->agentConfig("fan"), nullptr);
    world.agent("fan").event("late");
    EXPECT_EQ(lone->stageStatus("late"), nullptr);

    lone->stageStatusIs(stage);
    stage->dependencyIs("early", true);
    EXPECT_NE(lone->stageStatus("late"), nullptr);
    EXPECT_FALSE(stage->critical());
}

TEST_F(LoneConfig, WhatAnAgentNoLongerAsksForIsPruned) {
    world.agent("fan").request("early").request("late");
    config()->agentStatusSmDel("fan");  // so that nobody else acts on what follows
    world.agent("fan").withdrawRequest("early");
    ASSERT_NE(world.agent("fan").registered("early"), nullptr);

    config()->handleAgentStatus("fan");

    EXPECT_EQ(world.agent("fan").registered("early"), nullptr);
    EXPECT_NE(world.agent("fan").registered("late"), nullptr);
    EXPECT_NE(config()->agentStatusSm().find("fan"), nullptr);
}

TEST_F(LoneConfig, AnAgentWhoseStatusGoesWhileItIsPrunedIsNotWatched) {
    world.agent("fan").request("early").request("late");
    config()->agentStatusSmDel("fan");
    world.agent("fan").withdrawRequest("early");
    world.when("/input/app/fan/event[early] -", [&] { world.agent("fan").fallSilent(); });

    config()->handleAgentStatus("fan");

    EXPECT_EQ(config()->agentStatusSm().find("fan"), nullptr);
    EXPECT_EQ(world.agent("fan").config(), nullptr);
}

TEST_F(LoneConfig, AManagerThatGoesWhileAnAgentIsPrunedPrunesNoFurther) {
    world.agent("fan").request("early").request("late");
    config()->agentStatusSmDel("fan");
    world.agent("fan").withdrawRequest("early").withdrawRequest("late");
    const Ptr<ConfigSm> held(config());
    world.when("/input/app/fan/event[early] -", [&] { world.stop(); });

    held->handleAgentStatus("fan");

    EXPECT_NE(world.agent("fan").registered("late"), nullptr);
    EXPECT_EQ(held->agentStatusSm().find("fan"), nullptr);
}

TEST_F(LoneConfig, AManagerThatGoesWithADirectoryInAnAgentsPlaceDeletesNothingMore) {
    world.agent("fan").request("early");
    world.when("/input/app/fan/event[early] -", [&] {
        world.inputDir()->entryDel("fan");
        world.inputDir()->subdirIs("fan");
        world.when("- /input/app/fan", [&] {
            world.stop();
            world.inputDir()->entryIs("fan", "Stage::AgentConfig");
        });
    });

    world.agent("fan").fallSilent();

    EXPECT_EQ(world.manager(), nullptr);
    EXPECT_NE(world.agent("fan").config(), nullptr);
}

TEST_F(LoneConfigDeathTest, AnAgentIsWatchedByItsStatus) {
    EXPECT_DEATH(config()->agentStatusSmIs(world.inputDir(), nullptr, nullptr),
                 "Assertion failed: agentStatus\\(\\)");
}

TEST_F(LoneConfig, WhoseMakerGoesTakesInNoFurtherStage) {
    World waiting(System::Manager::waits);
    for (const char* const name : {"a", "b"}) {
        const auto event = make<Stage::EventConfig>(name, "fan");
        event->criticalIs(true);
        waiting.status()->stageIs(name)->eventIs(event);
    }
    Maker maker;
    waiting.when("/stage/app/status/stage/a/critical", [&] { maker.leave(); });

    const auto lone = Stage::configSmFactory(waiting.config(), waiting.status(), nullptr, nullptr,
                                             nullptr, &maker);

    EXPECT_TRUE(waiting.stage("a")->critical());
    EXPECT_FALSE(waiting.stage("b")->critical());
    EXPECT_EQ(lone->stageStatus("b"), nullptr);
}

// A stage whose events are there when it appears, as those of a stage that is restored.
class WholeStage : public LoneConfig {
  protected:
    Ptr<Stage::EventConfig> eventOf(const char* agent, const Lines& dependsOn, bool critical) {
        const auto event = make<Stage::EventConfig>("early", agent);
        for (const std::string& stage : dependsOn) event->dependencyIs(stage, true);
        event->criticalIs(critical);
        return event;
    }
    void appears(const std::vector<Ptr<Stage::EventConfig>>& events) {
        world.when("/stage/app/status/stage[early] +", [=, this] {
            for (const auto& event : events) world.stage("early")->eventIs(event);
        });
        world.status()->stageIs("early");
    }
};

TEST_F(WholeStage, ThatTakesTheManagerAlongIsTakenInNoFurther) {
    const Ptr<ConfigSm> held(config());
    world.when("/stage/app/status/stage/early/critical", [&] { world.stop(); });

    appears({eventOf("fan", {}, true), eventOf("disk", {"power"}, false)});

    EXPECT_EQ(held->stageStatus("early"), nullptr);
    EXPECT_FALSE(world.stage("early")->dependency("power"));
}

TEST_F(WholeStage, ThatGoesWhileItIsTakenInHasNoReactor) {
    world.when("/stage/app/status/stage/early/critical",
               [&] { world.status()->stageDel("early"); });

    appears({eventOf("fan", {}, true)});

    EXPECT_EQ(world.stage("early"), nullptr);
    EXPECT_EQ(config()->stageStatus("early"), nullptr);
}

TEST_F(WholeStage, ThatLosesAnEventWhileItIsTakenInKeepsNoReactorForIt) {
    world.when("/stage/app/status/stage/early/dependency[power]",
               [&] { world.stage("early")->eventDel("fan"); });

    appears({eventOf("fan", {}, false), eventOf("disk", {"power"}, false)});

    const auto& reactor = *config()->stageStatus("early");
    EXPECT_EQ(ConfigSm::OrvStageStatus::type().attribute("eventConfig")->keys(reactor),
              std::vector<Orv::Value>{"disk"});
}

TEST_F(WholeStage, ThatGoesWithOneDependencyGetsNoOther) {
    world.agent("disk").event("early");
    const Ptr<Stage::StageStatus> stage = world.stage("early");
    world.when("/stage/app/status/stage/early/dependency[power]",
               [&] { world.status()->stageDel("early"); });

    world.agent("fan").appears({{"early", {.dependsOn = {"power", "net"}}}});

    EXPECT_TRUE(stage->left());
    EXPECT_FALSE(stage->dependency("net"));
}

TEST_F(WholeStage, ThatIsRetiredIsLeftAlone) {
    world.agent("fan").event("early", {.critical = true, .dependsOn = {"power"}});
    world.agent("disk").event("power");
    const Ptr<ConfigSm::OrvStageStatus> reactor(config()->stageStatus("early"));
    const Ptr<Stage::StageStatus> stage = world.stage("early");
    world.stop();
    stage->criticalIs(false);
    stage->timeoutIs(1);

    reactor->handleEventDel("fan");
    reactor->handleCritical();
    reactor->handleTimeout();
    reactor->handleDependency("power");

    EXPECT_NE(stage->event("fan"), nullptr);
    EXPECT_FALSE(stage->critical());
    EXPECT_EQ(stage->timeout(), 1);
}

TEST_F(WholeStage, TakesAnEventThatItDoesNotHave) {
    world.agent("fan").event("early");

    config()->stageStatus("early")->eventConfigIs(eventOf("disk", {"power"}, true));

    EXPECT_TRUE(world.stage("early")->dependency("power"));
    EXPECT_FALSE(world.stage("early")->critical()) << "only its own events make it critical";
}

TEST_F(WholeStage, WithoutAReactorIsNotToldOfWhoDependsOnIt) {
    world.agent("disk").event("power");
    world.agent("fan").event("early", {.critical = true});
    config()->stageStatusDel("power");

    world.agent("fan").registered("early")->dependencyIs("power", true);

    EXPECT_FALSE(world.stage("power")->critical());
}

// Whatever allocation fails on the way: the next spreading finds nothing of this one.
TEST(Spreading, ThatIsCutShortLeavesNothingBehind) {
    bool failed = true;
    for (std::size_t which = 1; failed; ++which) {
        SCOPED_TRACE(which);
        World world;
        world.agent("a").event("one");
        world.agent("b").event("two", {.dependsOn = {"one"}});
        world.agent("c").event("three", {.dependsOn = {"two"}});
        const auto event = world.agent("c").registered("three");
        {
            const RuntimeTest::FailingAllocation failing(which, RuntimeTest::Refused::one);
            event->criticalIs(true);
            failed = failing.failed();
        }

        event->criticalIs(false);
        event->criticalIs(true);

        EXPECT_TRUE(world.stage("three")->critical());
        EXPECT_TRUE(world.stage("two")->critical());
        EXPECT_TRUE(world.stage("one")->critical());
        ASSERT_LT(which, 1000u);
    }
}

}  // namespace
