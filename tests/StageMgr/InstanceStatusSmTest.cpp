#include "StageMgr/InstanceStatusSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "runtime/Error.h"
#include "tests/support/World.h"

namespace {

using Orv::make;
using Orv::Name;
using Orv::never;
using Orv::Ptr;
using Stage::InstanceStatusSm;
using StageTest::Lines;
using StageTest::System;
using StageTest::World;
using ResetMode = Stage::FatalError::ResetMode;

Lines names(const Orv::Children<Name, Stage::StageEnableSm>& reactors) {
    Lines keys;
    for (const auto& [name, reactor] : reactors.map()) keys.push_back(name.str());
    return keys;
}

Lines names(const Orv::Children<Name, Stage::StageSm>& reactors) {
    Lines keys;
    for (const auto& [name, reactor] : reactors.map()) keys.push_back(name.str());
    return keys;
}

// --- the beginning ------------------------------------------------------------------------------

TEST(InstanceStart, PreparesEveryStageAndAsksForAPass) {
    World world({.deadline = 60});
    world.agent("fan").event("early").event("late");
    world.advance(5);

    world.enable("boot");

    const InstanceStatusSm* const instance = world.instance("boot");
    EXPECT_TRUE(instance->initialized());
    EXPECT_EQ(names(instance->stageEnableSm()), Lines({"early", "late"}));
    EXPECT_EQ(names(instance->stageSm()), Lines());
    EXPECT_EQ(world.timedLog("boot"), Lines({"5 app stages started"}));
    EXPECT_EQ(instance->globalStageClock(), 65);
    EXPECT_TRUE(instance->needRecalculateNextStage());
    EXPECT_EQ(instance->recalculateNextStage(), 5);
    EXPECT_EQ(world.activeStages("boot"), Lines()) << "the pass waits for its turn";
}

TEST(InstanceStart, WritesTheApplicationsName) {
    World world({.application = "Cold start"});
    world.enable("boot");

    EXPECT_EQ(world.log("boot"), Lines({"Cold start stages started"}));
}

TEST(InstanceStart, WithoutAnApplicationTheLineBeginsWithABlank) {
    World world({.application = ""});
    world.enable("boot");
    world.settle();

    EXPECT_EQ(world.log("boot"), Lines({" stages started", " stages complete"}));
}

TEST(InstanceStart, TheLineComesBeforeThePassIsAskedFor) {
    World world;
    world.agent("fan").event("early");
    const auto requests = [&] {
        int count = 0;
        for (const StageTest::TraceLine& line : world.traced())
            count += line.handler == "doNextStage";
        return count;
    };
    int before = -1;
    world.when("<< app stages started", [&] { before = requests(); });
    world.trace();

    world.enable("boot");

    EXPECT_EQ(before, 0);
    EXPECT_EQ(requests(), 2) << "by the start, and since a pass is wanted by then";
}

TEST(InstanceStart, AStageThatComesLaterIsNotPrepared) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");

    world.agent("fan").event("late");

    EXPECT_EQ(names(world.instance("boot")->stageEnableSm()), Lines({"early"}));
}

TEST(InstanceStart, AStageThatComesLaterStartsWithTheNextPassAllTheSame) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.agent("disk").event("late");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"})) << "nobody asked for a pass";

    world.agent("fan").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

// --- resumed, and complete before ---------------------------------------------------------------

// The manager goes and comes back while a stage runs.
class Resumed : public testing::Test {
  protected:
    Resumed() {
        world.agent("fan").event("early", {.timeout = 30});
        world.agent("disk").event("late", {.dependsOn = {"early"}});
        world.enable("boot");
        world.advance(5);
        world.stop();
        before = world.log("boot");
        world.start();
    }

    World world{StageTest::ClassOptions{.deadline = 60}};
    Lines before;
};

TEST_F(Resumed, AnInstanceGetsItsLogWriterAndNothingElse) {
    const InstanceStatusSm* const instance = world.instance("boot");
    ASSERT_NE(instance, nullptr);

    EXPECT_TRUE(instance->initialized());
    EXPECT_NE(instance->logSm(), nullptr);
    EXPECT_EQ(names(instance->stageEnableSm()), Lines());
    EXPECT_EQ(names(instance->stageSm()), Lines());
    EXPECT_EQ(instance->globalStageClock(), never);
    EXPECT_EQ(instance->recalculateNextStage(), never);
    EXPECT_FALSE(instance->needRecalculateNextStage());
    EXPECT_EQ(world.log("boot"), before);
}

TEST_F(Resumed, AnInstanceRunsNoMoreByItself) {
    world.agent("fan").report("early", "boot");
    world.advance(100);

    EXPECT_EQ(world.log("boot"), before);
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
    EXPECT_EQ(world.messages(), Lines());
}

TEST_F(Resumed, TheActiveStagesCanBeTakenUpFromOutside) {
    world.instance("boot")->handleActiveStage();

    EXPECT_EQ(names(world.instance("boot")->stageSm()), Lines({"early"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));

    world.agent("fan").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST(CompleteBefore, AnInstanceLogsNothingAndDoesNotStart) {
    World world({.deadline = 60});
    world.agent("fan").event("early");
    world.completionStatusDir()->statusIs("boot")->completeIs(true);

    world.enable("boot");
    world.advance(100);

    const InstanceStatusSm* const instance = world.instance("boot");
    EXPECT_TRUE(instance->initialized());
    EXPECT_EQ(world.instanceLog("boot"), nullptr);
    EXPECT_EQ(instance->globalStageClock(), never);
    EXPECT_FALSE(instance->needRecalculateNextStage());
    EXPECT_EQ(world.activeStages("boot"), Lines());
    EXPECT_EQ(world.messages(), Lines());
}

TEST(CompleteBefore, TheStagesArePreparedAllTheSame) {
    World world;
    world.agent("fan").event("early");
    world.completionStatusDir()->statusIs("boot")->completeIs(true);

    world.enable("boot");

    EXPECT_EQ(names(world.instance("boot")->stageEnableSm()), Lines({"early"}));
}

TEST(CompleteBefore, APassThatSomebodyAsksForStartsTheStages) {
    World world;
    world.agent("fan").event("early");
    world.completionStatusDir()->statusIs("boot")->completeIs(true);
    world.enable("boot");

    world.hold("other", false);
    world.settle();

    EXPECT_EQ(world.log("boot"), Lines({"stage early started", "  event early:fan started"}));
}

TEST(InstanceInitialization, AStageThatRunsIsNotPreparedAgain) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.instanceStatus("boot")->activeStageDelAll();

    world.instance("boot")->handleInitialized();

    EXPECT_EQ(names(world.instance("boot")->stageEnableSm()), Lines());
    EXPECT_EQ(names(world.instance("boot")->stageSm()), Lines({"early"}));
}

TEST(InstanceInitialization, WhatIsPreparedIsNotPreparedAgain) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    const Ptr<Stage::StageEnableSm> held(world.stageEnableSm("boot", "early"));
    world.agent("disk").event("late");

    world.instance("boot")->handleInitialized();

    EXPECT_EQ(names(world.instance("boot")->stageEnableSm()), Lines({"early"}));
    EXPECT_EQ(world.stageEnableSm("boot", "early"), held.get());
}

TEST(InstanceInitialization, APassThatIsWaitedForIsAskedForAgain) {
    World world;
    world.completionStatusDir()->statusIs("boot")->completeIs(true);
    world.enable("boot");
    InstanceStatusSm* const instance = world.instance("boot");
    EXPECT_EQ(instance->recalculateNextStage(), never);

    instance->needRecalculateNextStageIs(true);
    instance->handleInitialized();

    EXPECT_EQ(instance->recalculateNextStage(), 0);
}

TEST(InstanceInitialization, WithoutAPassThatIsWaitedForNoneIsAskedFor) {
    World world;
    world.completionStatusDir()->statusIs("boot")->completeIs(true);
    world.enable("boot");

    world.instance("boot")->handleInitialized();

    EXPECT_EQ(world.instance("boot")->recalculateNextStage(), never);
}

// --- the deadline is armed ----------------------------------------------------------------------

TEST(InstanceStart, ArmsTheDeadlineUnlessItIsExactlyZero) {
    struct Row {
        double deadline;
        double due;
    };
    const double inf = HUGE_VAL;
    const Row rows[] = {
        {0.0, never}, {-0.0, never},   {60, 67},     {0.5, 7.5},   {5e-324, 7},
        {-1, 6},      {-1e9, 7 - 1e9}, {inf, never}, {-inf, -inf}, {std::nan(""), never},
    };
    for (const Row& row : rows) {
        World world({.deadline = row.deadline});
        world.agent("fan").event("early");
        world.advance(7);

        world.enable("boot");

        EXPECT_EQ(world.instance("boot")->globalStageClock(), row.due) << row.deadline;
    }
}

// --- small questions ----------------------------------------------------------------------------

TEST(InstanceQuestions, AreAnsweredFromTheConfiguration) {
    World world({.application = "Boot", .timeoutIsFatal = true, .continueOnTimeout = true});
    world.enable("boot");
    const InstanceStatusSm* const instance = world.instance("boot");

    EXPECT_EQ(instance->application(), "Boot");
    EXPECT_TRUE(instance->stageTimeoutIsFatal());
    EXPECT_TRUE(instance->continueOnTimeout());

    world.config()->applicationIs("Other");
    world.config()->stageTimeoutIsFatalIs(false);
    world.config()->continueOnTimeoutIs(false);

    EXPECT_EQ(instance->application(), "Other");
    EXPECT_FALSE(instance->stageTimeoutIsFatal());
    EXPECT_FALSE(instance->continueOnTimeout());
}

TEST(InstanceQuestions, TheInstanceIsNamedAfterItsStatus) {
    World world;
    world.enable("boot");

    EXPECT_EQ(world.instance("boot")->instanceName(), "boot");
    EXPECT_EQ(world.instance("boot")->instanceStatus(), world.instanceStatus("boot"));
}

TEST(InstanceQuestions, ARebootIsRequestedUnlessTheModeIsTheDefault) {
    World world;
    world.enable("boot");
    const InstanceStatusSm* const instance = world.instance("boot");
    EXPECT_FALSE(instance->rebootRequested());

    for (const ResetMode mode : {ResetMode::cold, ResetMode::warm, ResetMode::powerCycle}) {
        world.rebootIs(mode);
        EXPECT_TRUE(instance->rebootRequested());
    }
    world.rebootIs(ResetMode::none);
    EXPECT_FALSE(instance->rebootRequested());
}

// --- what is missing ----------------------------------------------------------------------------

// An instance by itself, from whatever entities a test gives it.
struct Parts {
    Ptr<Stage::Config> config = make<Stage::Config>("config");
    Ptr<Stage::EnabledConfig> enabledConfig = make<Stage::EnabledConfig>("app");
    Ptr<Stage::Status> status = make<Stage::Status>("status");
    Ptr<Stage::CompletionStatus> completionStatus = make<Stage::CompletionStatus>("boot");
    Ptr<Stage::Progress> progress = make<Stage::Progress>("boot");
    Ptr<Stage::Log> log = make<Stage::Log>("log");
    Ptr<Stage::StageGlobalConfig> stageGlobalConfig = make<Stage::StageGlobalConfig>("global");
    Ptr<Stage::FatalError> fatalErrorRequest = make<Stage::FatalError>("fatalerror");
    Ptr<Stage::InstanceStatus> instanceStatus = status->instStatusIs("boot");
    Ptr<Stage::AgentStatusLocal> agentStatusLocal = make<Stage::AgentStatusLocal>();

    Ptr<InstanceStatusSm> instance() const {
        return Stage::instanceStatusSmFactory(config, enabledConfig, status, completionStatus,
                                              progress, log, stageGlobalConfig, fatalErrorRequest,
                                              instanceStatus, agentStatusLocal);
    }
    Lines lines(const char* name = "boot") const {
        Lines lines;
        if (const Ptr<Stage::InstanceLog> written = log->instanceLog(name))
            for (const Stage::LogEntry& entry : written->log())
                lines.push_back(entry.message.str());
        return lines;
    }
};

class MissingEntities : public testing::Test {
  protected:
    MissingEntities() {
        parts.config->applicationIs("app");
        parts.enabledConfig->enabledIs("boot", true);
    }

    System system;  // for its clock
    Parts parts;
};

TEST_F(MissingEntities, NothingIsMissingAtFirst) {
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_EQ(parts.lines(), Lines({"app stages started", "app stages complete"}));
    EXPECT_TRUE(parts.completionStatus->complete());
}

TEST_F(MissingEntities, WithoutAConfigEverythingIsEmptyAndFalse) {
    parts.config = nullptr;
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_EQ(instance->application(), "");
    EXPECT_FALSE(instance->stageTimeoutIsFatal());
    EXPECT_FALSE(instance->continueOnTimeout());
    EXPECT_EQ(instance->globalStageClock(), never);
    EXPECT_EQ(parts.lines(), Lines({" stages started", " stages complete"}));
}

TEST_F(MissingEntities, WithoutAConfigARebootIsDescribedAsFarAsItGoes) {
    parts.config = nullptr;
    const Ptr<InstanceStatusSm> instance = parts.instance();

    instance->requestReboot("it hung");

    EXPECT_EQ(parts.fatalErrorRequest->rebootReason(), "it hung");
    EXPECT_EQ(parts.fatalErrorRequest->reloadCauseDesc(), " during .");
    EXPECT_EQ(parts.fatalErrorRequest->requestReboot(), ResetMode::none);
}

TEST_F(MissingEntities, WithoutAConfigTheHeldStagesOfTheNamelessClassAreHeld) {
    parts.config = nullptr;
    parts.status->stageIs("early");
    parts.stageGlobalConfig->doNotStartStageIs({"", "early"}, true);
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_TRUE(parts.instanceStatus->activeStage().empty());
}

TEST_F(MissingEntities, WithoutAnEnabledConfigNoPassIsAskedFor) {
    parts.enabledConfig = nullptr;
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_FALSE(instance->needRecalculateNextStage());
    EXPECT_EQ(parts.lines(), Lines({"app stages started"}));
}

TEST_F(MissingEntities, WithoutACompletionStatusTheInstanceStartsAndCompletes) {
    parts.completionStatus = nullptr;
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_EQ(parts.lines(), Lines({"app stages started", "app stages complete"}));
    EXPECT_TRUE(parts.instanceStatus->complete());
}

TEST_F(MissingEntities, WithoutACompletionStatusTheDeadlineHolds) {
    parts.completionStatus = nullptr;
    parts.config->globalStageCompletionTimeoutIs(5);
    parts.status->stageIs("early")->dependencyIs("never", true);
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.advance(5);

    EXPECT_EQ(parts.fatalErrorRequest->rebootReason(),
              "Global stage progression timed out after 5 secs");
}

TEST_F(MissingEntities, WithoutAFatalErrorNoRebootIsPending) {
    parts.fatalErrorRequest = nullptr;
    parts.status->stageIs("early");
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_FALSE(instance->rebootRequested());
    EXPECT_EQ(parts.lines(), Lines({"app stages started", "stage early started",
                                    "stage early is complete", "app stages complete"}));
}

TEST_F(MissingEntities, WithoutAFatalErrorARequestIsATraceOnly) {
    parts.fatalErrorRequest = nullptr;
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.trace();

    instance->requestReboot("it hung");

    EXPECT_EQ(system.traced(0, "rebootReason=it hung").size(), 1u);
}

TEST_F(MissingEntities, WithoutAGlobalConfigNothingIsHeld) {
    parts.stageGlobalConfig = nullptr;
    parts.status->stageIs("early");
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_TRUE(parts.instanceStatus->activeStage().contains("early"));
    instance->handleDoNotStartStage();
    EXPECT_FALSE(instance->needRecalculateNextStage());
}

TEST_F(MissingEntities, WithoutAProgressTheStagesStartAllTheSame) {
    parts.progress = nullptr;
    parts.status->stageIs("early");
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_TRUE(instance->stageComplete("early"));
}

TEST_F(MissingEntities, WithoutALogNothingIsWritten) {
    parts.log = nullptr;
    parts.status->stageIs("early");
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_TRUE(parts.completionStatus->complete());
}

TEST_F(MissingEntities, WithoutAnInstanceStatusTheNameIsEmpty) {
    parts.instanceStatus = nullptr;
    parts.enabledConfig->enabledIs("", true);
    parts.status->stageIs("early");
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_EQ(instance->instanceName(), "");
    EXPECT_EQ(parts.lines(""), Lines({"app stages started"})) << "there is nothing to start in";
}

TEST_F(MissingEntities, WithoutAStatusThereIsNothingToStart) {
    parts.status = nullptr;
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    EXPECT_EQ(parts.lines(), Lines({"app stages started"}));
}

TEST_F(MissingEntities, WithoutTheInstanceInTheStatusOnlyTheCompletionStatusIsWritten) {
    const Ptr<InstanceStatusSm> instance = parts.instance();
    parts.status->instStatusDel("boot");
    system.settle();

    EXPECT_FALSE(parts.instanceStatus->complete());
    EXPECT_TRUE(parts.completionStatus->complete());
    EXPECT_EQ(parts.lines(), Lines({"app stages started", "app stages complete"}));
}

// --- what it watches ----------------------------------------------------------------------------

TEST_F(MissingEntities, AnotherInstanceStatusIsTakenInAtOnce) {
    parts.status->stageIs("early")->dependencyIs("never", true);
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();
    const Ptr<Stage::InstanceStatus> other = make<Stage::InstanceStatus>("boot");
    other->activeStageIs(parts.status->stage("early"));

    instance->instanceStatusIs(other);

    EXPECT_NE(instance->stageSm().find("early"), nullptr);
    EXPECT_EQ(instance->stageEnableSm().find("early"), nullptr);
    EXPECT_TRUE(parts.progress->stage("early"));
}

TEST_F(MissingEntities, TheSameInstanceStatusIsNotTakenInAgain) {
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.trace();

    instance->instanceStatusIs(parts.instanceStatus);

    EXPECT_TRUE(system.traced().empty());
}

TEST_F(MissingEntities, AnotherGlobalConfigIsTakenInAtOnce) {
    parts.status->stageIs("early");
    parts.stageGlobalConfig->doNotStartStageIs({"", "early"}, true);
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();
    ASSERT_TRUE(parts.instanceStatus->activeStage().empty());
    const Ptr<Stage::StageGlobalConfig> other = make<Stage::StageGlobalConfig>("global");
    other->doNotStartStageIs({"", "early"}, false);

    instance->stageGlobalConfigIs(other);
    EXPECT_TRUE(instance->needRecalculateNextStage());
    system.settle();

    EXPECT_TRUE(parts.instanceStatus->activeStage().contains("early"));
}

TEST_F(MissingEntities, AnEmptyGlobalConfigAsksForNoPass) {
    parts.status->stageIs("early");
    parts.stageGlobalConfig->doNotStartStageIs({"", "early"}, true);
    const Ptr<InstanceStatusSm> instance = parts.instance();
    system.settle();

    instance->stageGlobalConfigIs(make<Stage::StageGlobalConfig>("global"));

    EXPECT_FALSE(instance->needRecalculateNextStage());
}

// --- its children -------------------------------------------------------------------------------

class PerStageReactors : public testing::Test {
  protected:
    PerStageReactors() {
        world.agent("fan").event("early");
        world.agent("fan").event("late", {.dependsOn = {"early"}});
        world.enable("boot");
        world.settle();
        instance = Ptr<InstanceStatusSm>(world.instance("boot"));
    }

    std::string refusal(const Ptr<const Stage::StageStatus>& stage, const Orv::String& name,
                        const Ptr<Stage::LogSm>& logSm,
                        const Ptr<Stage::AgentStatusLocal>& record) {
        try {
            instance->stageSmIs(stage, name, logSm, record);
            return "";
        } catch (const Orv::NameInUseError& error) {
            const std::string text = error.what();
            const std::size_t from = text.find(" attribute ") + 11;
            return text.substr(from, text.find(" has ") - from);
        }
    }

    World world;
    Ptr<InstanceStatusSm> instance;
};

TEST_F(PerStageReactors, APreparedStageKeepsItsReactor) {
    const Ptr<Stage::StageEnableSm> held(world.stageEnableSm("boot", "late"));
    ASSERT_NE(held, nullptr);

    EXPECT_EQ(instance->stageEnableSmIs(world.stage("late")), held);
    EXPECT_EQ(instance->stageEnableSmIs(make<Stage::StageStatus>("late")), held)
        << "it is made from its stage's name alone";
}

TEST_F(PerStageReactors, APreparedStageKnowsItsInstance) {
    EXPECT_EQ(world.stageEnableSm("boot", "late")->mainSm(), instance.get());
    EXPECT_EQ(world.stageEnableSm("boot", "late")->stage(), world.stage("late"));
}

TEST_F(PerStageReactors, ADeletedOneForgetsItsInstance) {
    const Ptr<Stage::StageEnableSm> enable(world.stageEnableSm("boot", "late"));
    const Ptr<Stage::StageSm> running(world.stageSm("boot", "early"));

    instance->stageEnableSmDel("late");
    instance->stageSmDel("early");

    EXPECT_EQ(enable->mainSm(), nullptr);
    EXPECT_EQ(running->mainSm(), nullptr);
    EXPECT_EQ(world.stageEnableSm("boot", "late"), nullptr);
    EXPECT_EQ(world.stageSm("boot", "early"), nullptr);
}

TEST_F(PerStageReactors, ARunningStageWithTheSameArgumentsIsReturned) {
    const Ptr<Stage::StageSm> held(world.stageSm("boot", "early"));

    EXPECT_EQ(instance->stageSmIs(world.stage("early"), "boot", instance->logSm(),
                                  world.agentStatusLocal()),
              held);
}

TEST_F(PerStageReactors, ARunningStageWithAnyOtherArgumentIsRefused) {
    const Ptr<Stage::StageSm> held(world.stageSm("boot", "early"));
    const auto stage = world.stage("early");
    const auto log = instance->logSm();
    const auto record = world.agentStatusLocal();

    EXPECT_EQ(refusal(make<Stage::StageStatus>("early"), "boot", log, record), "_stage");
    EXPECT_EQ(refusal(stage, "spare", log, record), "_instanceName");
    EXPECT_EQ(refusal(stage, "boot", nullptr, record), "_logSm");
    EXPECT_EQ(refusal(stage, "boot", log, nullptr), "_agentStatusLocal");
    EXPECT_EQ(refusal(stage, "spare", nullptr, nullptr), "_instanceName");
    EXPECT_EQ(world.stageSm("boot", "early"), held.get());
}

TEST_F(PerStageReactors, AllGoWithTheInstance) {
    const Ptr<Stage::StageEnableSm> enable(world.stageEnableSm("boot", "late"));
    const Ptr<Stage::StageSm> running(world.stageSm("boot", "early"));
    const Ptr<Stage::LogSm> log = instance->logSm();

    world.disable("boot");

    EXPECT_TRUE(instance->retired());
    EXPECT_TRUE(enable->retired());
    EXPECT_TRUE(running->retired());
    EXPECT_TRUE(log->retired());
    EXPECT_EQ(enable->mainSm(), nullptr);
    EXPECT_EQ(running->mainSm(), nullptr);
    EXPECT_TRUE(instance->stageEnableSm().empty());
    EXPECT_TRUE(instance->stageSm().empty());
}

// --- traces -------------------------------------------------------------------------------------

TEST(InstanceStatusSmTrace, TheStartNamesTheInstanceAndItsStages) {
    World world;
    world.agent("fan").event("early").event("late");
    world.trace();

    world.enable("boot");

    const auto& lines = world.traced();
    const auto entry = std::find_if(lines.begin(), lines.end(), [](const auto& line) {
        return line.signature == "void Stage::InstanceStatusSm::handleInitialized()";
    });
    ASSERT_NE(entry, lines.end());
    EXPECT_EQ(entry->level, 8);
    EXPECT_EQ(entry->text, " instanceName boot");
    EXPECT_EQ(world.traced(9, "Creating Stage Enable Sm for "),
              Lines({"Creating Stage Enable Sm for early instanceName boot",
                     "Creating Stage Enable Sm for late instanceName boot"}));
}

TEST(InstanceStatusSmTrace, WhatRunsBeforeTheStartSaysSo) {
    World world;
    world.trace();

    world.enable("boot");

    Lines handlers;
    for (const StageTest::TraceLine& line : world.traced())
        if (line.level == 8 && line.text.starts_with("Not initialized.  Return from"))
            handlers.push_back(line.handler);
    EXPECT_EQ(handlers, Lines({"handleActiveStage", "handleGlobalStageClock"}))
        << "the constructor's call, and the clock's report";
    EXPECT_EQ(world.traced(8, "not yet initialized, instanceName() boot").size(), 1u);
}

}  // namespace
