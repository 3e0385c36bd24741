// What an instance knows of its stages without a look at all of them stays true whatever is done to
// them, also while stages are being started: what starts is what a walk over all would start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::SizeIs;

using Orv::make;
using Orv::Ptr;

// The stages in the order in which the instance has started them.
Lines started(const World& world) {
    Lines stages;
    for (const std::string& line : world.log("boot"))
        if (line.starts_with("stage ") && line.ends_with(" started"))
            stages.push_back(line.substr(6, line.size() - 6 - 8));
    return stages;
}

// A stage that comes and goes takes a place each time.
void comeAndGo(World& world, int times) {
    for (int i = 0; i < times; ++i) {
        world.status()->stageIs("passing");
        world.status()->stageDel("passing");
    }
}

TEST(ReadyStages, ThatGetNewPlacesWaitForWhatTheyWaitedFor) {
    World world;
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.agent("fan").event("last", {.dependsOn = {"early", "late"}});
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");
    world.settle();
    ASSERT_THAT(started(world), ElementsAre("early", "late"));

    comeAndGo(world, 200);
    world.hold("last", false);  // asks for a pass
    world.settle();
    EXPECT_THAT(started(world), ElementsAre("early", "late"));

    world.agent("fan").report("late", "boot");
    world.settle();
    EXPECT_THAT(started(world), ElementsAre("early", "late", "last"));
    world.agent("fan").report("last", "boot");
    world.settle();
    EXPECT_TRUE(world.instanceComplete("boot"));
}

TEST(ReadyStages, ThatGetNewPlacesWhileOneStartsStartBehindIt) {
    World world;
    comeAndGo(world, 60);
    world.agent("fan").event("a").event("b").event("c");
    // The next stage to come makes every stage change its place.
    while (world.status()->places() <= 2 * 4 + 64) comeAndGo(world, 1);
    world.enable("boot");
    world.when("<< stage a started", [&] { world.status()->stageIs("new"); });

    world.settle();

    ASSERT_LT(world.stage("c")->place(), 4u);
    EXPECT_THAT(started(world), ElementsAre("a", "b", "c"));
}

TEST(ReadyStages, AStageThatIsRemovedAndAddedWhileAnotherStartsIsMetAtItsOldPlace) {
    World world;
    world.agent("fan").event("a").event("b").event("c");
    world.enable("boot");
    world.when("<< stage a started", [&] {
        world.status()->stageDel("b");
        world.status()->stageIs("b");
    });

    world.settle();

    EXPECT_THAT(started(world), ElementsAre("a", "b", "c"));
}

TEST(ReadyStages, WhatStandsBeforeTheOneThatStartsWaitsForTheNextPassAlsoWhenAStageGoes) {
    World world;
    world.agent("fan").event("first", {.dependsOn = {"early"}});
    world.agent("fan").event("second", {.dependsOn = {"early"}});
    world.agent("fan").event("early", {.completeIn = {"boot"}}).event("gone").event("after");
    world.enable("boot");
    world.when("<< stage early started", [&] { world.status()->stageDel("gone"); });

    world.settle();

    EXPECT_THAT(started(world), ElementsAre("early", "after", "first", "second"));
}

TEST(ReadyStages, AStageWaitsForACompleteOneThatSomebodyTakesOutOfTheActiveOnesMeanwhile) {
    World world;
    world.agent("fan").event("a").event("b", {.dependsOn = {"a"}}).event("c", {.dependsOn = {"a"}});
    world.enable("boot");
    world.settle();
    world.when("<< stage b started", [&] { world.instanceStatus("boot")->activeStageDel("a"); });

    world.agent("fan").report("a", "boot");
    world.settle();

    EXPECT_THAT(started(world), ElementsAre("a", "b"));
}

// With the places that the stages had, and with new ones.
TEST(ReadyStages, AStageWaitsForACompleteOneThatSomebodyHasTakenOutOfTheActiveOnes) {
    for (const int coming : {0, 200}) {
        SCOPED_TRACE(coming);
        World world;
        world.agent("fan").event("b", {.dependsOn = {"a"}}).event("a");
        world.hold("b");
        world.enable("boot");
        world.settle();
        world.agent("fan").report("a", "boot");
        world.settle();
        world.instanceStatus("boot")->activeStageDel("a");
        comeAndGo(world, coming);

        world.holdDel("b");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a", "a")) << "b stands before it";

        world.hold("b", false);  // asks for a pass
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a", "a", "b"));
    }
}

TEST(ReadyStages, AStageWaitsForOneThatIsNotActiveAndHasNoReactorAnyMore) {
    World world;
    world.agent("fan").event("b", {.dependsOn = {"a"}}).event("a");
    world.hold("b");
    world.enable("boot");
    world.settle();
    world.agent("fan").report("a", "boot");
    world.settle();
    world.instanceStatus("boot")->activeStageDel("a");
    world.instance("boot")->stageSmDel("a");
    EXPECT_TRUE(world.instance("boot")->readyStages().usable());

    world.holdDel("b");
    world.settle();

    EXPECT_THAT(started(world), ElementsAre("a", "a", "b")) << "b when a is complete anew";
}

// Who traces is told of every stage, and starts the same ones.
TEST(ReadyStages, AStageWaitsForOneWhoseReactorHasGoneUntilItIsCompleteAnew) {
    for (const int traced : {0, 7}) {
        SCOPED_TRACE(traced);
        World world;
        world.agent("fan").event("a").event("b", {.dependsOn = {"a"}});
        world.hold("b");
        world.enable("boot");
        world.settle();
        world.agent("fan").report("a", "boot");
        world.settle();
        world.instance("boot")->stageSmDel("a");
        world.trace(traced);

        world.holdDel("b");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a"));

        world.instance("boot")->handleActiveStage("a");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a", "b"));
    }
}

TEST(ReadyStages, AStageIsCompleteWhoseReactorTookThePlaceOfAnother) {
    World world;
    world.agent("fan").event("early", {.completeIn = {"boot"}});
    world.agent("fan").event("late", {.dependsOn = {"early"}, .completeIn = {"boot"}});
    world.enable("boot");
    const Stage::StageSm* another = nullptr;
    world.when("<< stage early is complete", [&] {
        world.instance("boot")->handleActiveStage("early");
        another = world.stageSm("boot", "early");
    });

    world.settle();

    ASSERT_NE(another, nullptr);
    EXPECT_NE(world.stageSm("boot", "early"), another);
    EXPECT_THAT(started(world), ElementsAre("early", "late"));
    EXPECT_TRUE(world.instanceComplete("boot"));
}

TEST(ReadyStages, AnInstanceThatWatchesAnotherStatusGoesByThat) {
    World world;
    world.agent("fan").event("a").event("b", {.dependsOn = {"a"}}).event("c");
    world.enable("boot");
    world.instance("boot")->instanceStatusIs(make<Stage::InstanceStatus>("boot"));
    world.agent("fan").registered("b")->dependencyIs("c", true);

    world.settle();
    world.hold("b", false);  // asks for a pass
    world.settle();
    EXPECT_THAT(started(world), ElementsAre("a", "c"));

    world.agent("fan").report("a", "boot").report("c", "boot");
    world.settle();
    EXPECT_THAT(started(world), ElementsAre("a", "c", "b"));
}

TEST(ReadyStages, AStageThatHasLeftTheClassIsLookedAtByItself) {
    World world;
    world.agent("fan").event("a").event("gone", {.dependsOn = {"a", "b"}});
    world.enable("boot");
    world.settle();
    const Ptr<Stage::StageStatus> gone = world.stage("gone");
    world.status()->stageDel("gone");
    world.settle();
    ASSERT_NE(world.stageEnableSm("boot", "gone"), nullptr);

    gone->dependencyDel("b");

    EXPECT_FALSE(world.instance("boot")->needRecalculateNextStage()) << "a is not complete";
}

TEST(ReadyStages, AStageThatHasLeftTheClassIsLookedAtByItselfAlsoBehindAllThePlaces) {
    World world;
    world.agent("fan").event("a");
    comeAndGo(world, 50);
    world.agent("fan").event("gone", {.dependsOn = {"a", "b"}});
    world.enable("boot");
    world.settle();
    const Ptr<Stage::StageStatus> gone = world.stage("gone");
    world.status()->stageDel("gone");
    while (world.status()->places() > gone->place()) comeAndGo(world, 1);
    world.settle();
    const Stage::InstanceStatusSm& instance = *world.instance("boot");

    gone->dependencyDel("b");
    EXPECT_FALSE(instance.needRecalculateNextStage()) << "a is not complete";

    world.agent("fan").report("a", "boot");
    world.settle();
    gone->dependencyIs("b", true);
    gone->dependencyDel("b");
    EXPECT_TRUE(instance.needRecalculateNextStage());
}

TEST(ReadyStages, AnInstanceWithoutAStatusLooksAtAStagesDependenciesItself) {
    World world;
    world.agent("fan").event("a").event("b", {.dependsOn = {"a", "x"}});
    world.enable("boot");
    world.settle();
    world.instance("boot")->instanceStatusIs(nullptr);
    // It has no name any more, and so none that is enabled.
    const auto passesWanted = [&] { return world.traced(8, "not enabled yet").size(); };
    world.trace(8);

    world.stage("b")->dependencyDel("x");
    EXPECT_EQ(passesWanted(), 0u) << "a is not complete";

    world.agent("fan").report("a", "boot");
    world.stage("b")->dependencyIs("x", true);
    world.forgetTraced();
    world.stage("b")->dependencyDel("x");
    EXPECT_EQ(passesWanted(), 1u);
}

// --- the configuration side

// The critical stages that have told this one that they depend on it.
Lines ancestors(const World& world, const char* stage) {
    Lines names;
    for (const auto& [name, critical] : world.configSm()->stageStatus(stage)->criticalAncestor())
        names.push_back(name.str());
    return names;
}

TEST(KnownDependents, AStageThatAHostBroughtInTellsTheOneThatItWaitsFor) {
    World world;
    const Ptr<Stage::StageStatus> foreign = make<Stage::StageStatus>("foreign");
    const Ptr<Stage::EventConfig> event = make<Stage::EventConfig>("foreign", "disk");
    event->criticalIs(true);
    event->dependencyIs("late", true);
    foreign->eventIs(event);
    world.configSm()->stageStatusIs(foreign);
    ASSERT_TRUE(foreign->critical());

    world.agent("fan").event("late");

    EXPECT_TRUE(world.stage("late")->critical());
}

TEST(KnownDependents, AreToldOfAStageInTheOrderInWhichTheyWereAdded) {
    World world;
    world.agent("fan").event("b", {.critical = true});
    world.agent("fan").event("a", {.critical = true, .dependsOn = {"late"}});
    world.agent("fan").registered("b")->dependencyIs("late", true);

    world.agent("fan").event("late");

    EXPECT_THAT(ancestors(world, "late"), ElementsAre("b", "a"));
}

TEST(KnownDependents, OneWithoutAReactorIsPassedOver) {
    World world;
    world.agent("fan").event("a", {.critical = true, .dependsOn = {"late"}});
    world.agent("fan").event("b", {.critical = true, .dependsOn = {"late"}});
    world.configSm()->stageStatusDel("a");

    world.agent("fan").event("late");

    EXPECT_THAT(ancestors(world, "late"), ElementsAre("b"));
}

// On purpose: whether a stage is told does not hang on what makes the telling cheap.
TEST(KnownDependents, OneThatJoinsUnheardWhileTheyAreToldIsToldToo) {
    World world;
    world.agent("fan").event("a", {.critical = true, .dependsOn = {"late"}});
    world.agent("fan").event("b", {.critical = true});
    world.configSm()->stageStatus("b")->notificationActiveIs(false);
    world.when("/stage/app/status/stage/late/critical",
               [&] { world.stage("b")->dependencyIs("late", true); });

    world.agent("fan").event("late");

    EXPECT_THAT(ancestors(world, "late"), ElementsAre("a", "b"));
}

TEST(KnownDependents, OneThatAHostBringsInWhileTheyAreToldIsToldToo) {
    World world;
    world.agent("fan").event("a", {.critical = true, .dependsOn = {"late"}}).event("b");
    const Ptr<Stage::StageStatus> foreign = make<Stage::StageStatus>("b");
    world.when("/stage/app/status/stage/late/critical", [&] {
        world.configSm()->stageStatusIs(foreign);
        world.configSm()->stageStatus("b")->notificationActiveIs(false);
        foreign->criticalIs(true);
        foreign->dependencyIs("late", true);
    });

    world.agent("fan").event("late");

    EXPECT_THAT(ancestors(world, "late"), ElementsAre("a", "b"));
}

TEST(KnownDependents, AStageThatAHostBroughtInGoesWithTheOneInWhosePlaceItIs) {
    World world;
    world.agent("fan").event("a", {.critical = true, .dependsOn = {"late"}}).event("b");
    world.configSm()->stageStatusIs(make<Stage::StageStatus>("b"));
    world.configSm()->stageStatus("b")->notificationActiveIs(true);

    world.status()->stageDel("b");
    EXPECT_EQ(world.configSm()->stageStatus("b"), nullptr);

    world.agent("fan").event("late");
    EXPECT_THAT(ancestors(world, "late"), ElementsAre("a"));
}

TEST(KnownDependents, AStageThatIsJustLeavingTellsTheOneThatItWaitsFor) {
    World world;
    world.agent("fan").event("a", {.critical = true, .dependsOn = {"late"}});
    world.when("/stage/app/status/stage[a] -", [&] { world.agent("lamp").event("late"); });

    world.status()->stageDel("a");

    EXPECT_TRUE(world.stage("late")->critical());
}

// A critical stage whose own change tells nothing new; what the other one knew is lost.
class WhatWasTold : public ::testing::Test {
  protected:
    WhatWasTold() {
        world.agent("fan").event("late").event("a", {.critical = true, .dependsOn = {"late"}});
    }
    Stage::ConfigSm::OrvStageStatus& reactor(const char* stage) {
        return *world.configSm()->stageStatus(stage);
    }
    // A stage that is none of the class.
    Ptr<Stage::StageStatus> foreign(const char* name) {
        const Ptr<Stage::StageStatus> stage = make<Stage::StageStatus>(name);
        world.configSm()->stageStatusIs(stage);
        return stage;
    }

    World world;
};

TEST_F(WhatWasTold, IsToldAnewToAReactorThatIsMadeAnew) {
    world.configSm()->stageStatusDel("late");
    world.configSm()->stageStatusIs(world.stage("late"));
    ASSERT_FALSE(world.stage("late")->critical());

    reactor("a").handleCritical();

    EXPECT_TRUE(world.stage("late")->critical());
}

TEST_F(WhatWasTold, IsToldAnewToAReactorThatIsMadeAnewWhileAStageIsNoneOfTheClass) {
    foreign("other");
    world.configSm()->stageStatusDel("late");
    world.configSm()->stageStatusIs(world.stage("late"));
    ASSERT_FALSE(world.stage("late")->critical());

    reactor("a").handleCritical();

    EXPECT_TRUE(world.stage("late")->critical());
}

TEST_F(WhatWasTold, IsToldAnewWhenSomebodyTakesItBack) {
    reactor("late").criticalAncestorDel("a");
    ASSERT_FALSE(world.stage("late")->critical());

    reactor("a").handleCritical();

    EXPECT_TRUE(world.stage("late")->critical());
}

TEST_F(WhatWasTold, IsToldAnewWhenSomebodyElseSaysIt) {
    world.agent("fan").registered("a")->criticalIs(false);
    reactor("late").criticalAncestorIs("a", true);
    ASSERT_TRUE(world.stage("late")->critical());

    reactor("a").handleCritical();

    EXPECT_FALSE(world.stage("late")->critical());
}

TEST_F(WhatWasTold, IsToldLaterToAStageThatIsNoneOfTheClass) {
    const Ptr<Stage::StageStatus> other = foreign("other");
    world.agent("fan").registered("a")->dependencyIs("other", true);
    ASSERT_FALSE(other->critical());

    reactor("a").handleCritical();

    EXPECT_TRUE(other->critical());
}

// --- reports that were there before the stage

TEST(EarlyReports, OfOtherStagesAreTracedWhenAStageStarts) {
    World world;
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");
    world.trace();
    world.forgetTraced();

    world.settle();

    ASSERT_THAT(started(world), Contains("late"));
    EXPECT_THAT(world.traced(8, "Event stage: early are different"), SizeIs(1));
}

TEST(EarlyReports, OfAnEventThatJoinsWhileTheyAreLookedAtCount) {
    World world;
    const Ptr<Stage::AgentStatusLocal> other = make<Stage::AgentStatusLocal>();
    world.agent("fan").event("early");
    world.agent("lamp").event("early");
    world.enable("boot");
    world.settle();
    other->completeIs({"fan", "early", "boot"}, true);
    other->completeIs({"disk", "early", "boot"}, true);
    world.when("<<   event early:fan completed", [&] { world.agent("disk").event("early"); });

    world.stageSm("boot", "early")->agentStatusLocalIs(other);

    EXPECT_THAT(world.log("boot"), Contains("  event early:disk completed"));
}

// Whatever allocation is refused while stages join, those that have joined start.
TEST(ReadyStages, ForWhichThereIsNoMemoryStartAllTheSame) {
    bool refused = true;
    int withoutIndex = 0;
    for (std::size_t which = 1; refused; ++which) {
        SCOPED_TRACE(which);
        World world;
        world.agent("fan").event("early");
        world.enable("boot");
        world.settle();
        const Ptr<Stage::Status> status = world.status();
        refused = RuntimeTest::doneWithout(
            which, {[&] { status->stageIs("s1"); }, [&] { status->stageIs("s2"); },
                    [&] { status->stageIs("s3"); }});
        if (!world.instance("boot")->readyStages().usable()) ++withoutIndex;
        for (const char* stage : {"s1", "s2", "s3"})
            if (status->stage().contains(stage)) status->stage(stage)->criticalIs(true);
        world.instance("boot")->doNextStage();
        world.settle();

        for (const auto& [stage, entity] : status->stage())
            EXPECT_THAT(started(world), Contains(stage.str()));
    }
    EXPECT_GT(withoutIndex, 0);
}

// Whatever allocation is refused while stages join, those that were there wait, and are held, as
// they would be.
TEST(ReadyStages, ForWhichThereIsNoMemoryWaitForTheSame) {
    bool refused = true;
    int withoutIndex = 0;
    for (std::size_t which = 1; refused; ++which) {
        SCOPED_TRACE(which);
        World world;
        world.agent("fan").event("a").event("b", {.dependsOn = {"a", "x"}});
        world.agent("fan").event("c", {.dependsOn = {"x"}}).event("held");
        world.hold("held");
        world.enable("boot");
        world.settle();
        const Ptr<Stage::Status> status = world.status();
        refused = RuntimeTest::doneWithout(
            which, {[&] { status->stageIs("s1"); }, [&] { status->stageIs("s2"); }});
        if (!world.instance("boot")->readyStages().usable()) ++withoutIndex;
        for (const char* stage : {"s1", "s2"}) status->stageDel(stage);
        comeAndGo(world, 100);

        world.stage("c")->dependencyIs("a", true);
        world.stage("c")->dependencyDel("x");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a"));

        world.agent("fan").report("a", "boot");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a", "c"));

        world.stage("b")->dependencyDel("x");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a", "c", "b"));

        world.holdDel("held");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("a", "c", "b", "held"));
    }
    EXPECT_GT(withoutIndex, 0);
}

TEST(ReadyStages, OfAnInstanceThatIsMadeWithoutMemoryForThemStartAllTheSame) {
    bool refused = true;
    int withoutIndex = 0;
    for (std::size_t which = 1; refused; ++which) {
        SCOPED_TRACE(which);
        World world;
        world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
        refused = RuntimeTest::doneWithout(which, {[&] { world.enable("boot"); }});
        const auto* const instance = world.instance("boot");
        if (instance == nullptr) continue;
        if (!world.instance("boot")->readyStages().usable()) ++withoutIndex;
        world.instance("boot")->doNextStage();
        world.settle();
        if (instance->stageSm().empty()) continue;  // it has been cut short before it could start
        EXPECT_THAT(started(world), Contains("early"));
    }
    EXPECT_GT(withoutIndex, 0);
}

// Whatever allocation is refused while a stage gets a dependency, the class goes on as ever.
TEST(KnownDependents, OfAClassWithoutMemoryForThemAreToldAllTheSame) {
    bool refused = true;
    int withoutIndex = 0;
    for (std::size_t which = 1; refused; ++which) {
        SCOPED_TRACE(which);
        World world;
        world.agent("fan").event("a", {.critical = true, .dependsOn = {"late"}}).event("spare");
        const Ptr<Stage::StageStatus> spare = world.stage("spare");
        world.enable("boot");
        world.settle();
        refused = RuntimeTest::doneWithout(which, {[&] { spare->dependencyIs("other", true); }});
        if (!world.status()->indexed()) ++withoutIndex;
        spare->dependencyIs("other", true);
        spare->eventIs(make<Stage::EventConfig>("spare", "lamp"));
        world.agent("fan").event("b", {.critical = true, .dependsOn = {"late"}});

        world.agent("lamp").event("late");
        EXPECT_EQ(world.event("spare", "lamp"), nullptr) << "it does not list that stage";
        EXPECT_THAT(ancestors(world, "late"), ElementsAre("a", "b"));
        world.hold("late", false);  // asks for a pass
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("late"));

        world.agent("lamp").report("late", "boot");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("late", "a", "b"));

        spare->dependencyDel("other");
        world.settle();
        EXPECT_THAT(started(world), ElementsAre("late", "a", "b", "spare"));
    }
    EXPECT_GT(withoutIndex, 0);
}

}  // namespace
