#include "StageMgr/StageEnableSm.h"

#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using Orv::make;
using Orv::Ptr;
using StageTest::Lines;
using StageTest::World;

// An instance in which "early" runs, and "late" waits for the stages that a test names. Nobody asks
// for a pass until something changes.
class WaitingStage : public testing::Test {
  protected:
    void waits(const Lines& dependencies) {
        world.agent("disk").event("late", {.dependsOn = dependencies});
        world.agent("fan").event("early");
        world.enable("boot");
        world.settle();
        ASSERT_EQ(world.activeStages("boot"), Lines({"early"}));
        ASSERT_FALSE(passIsAskedFor());
    }
    void drops(const char* dependency) {
        world.agent("disk").registered("late")->dependencyDel(dependency);
    }
    // Until the next turn.
    bool passIsAskedFor() const { return world.instance("boot")->needRecalculateNextStage(); }

    World world;
};

TEST_F(WaitingStage, AsksForAPassWhenItBecomesCritical) {
    waits({"never"});

    world.agent("disk").registered("late")->criticalIs(true);

    EXPECT_TRUE(passIsAskedFor());
}

TEST_F(WaitingStage, AsksForNoneWhenItCeasesToBeCritical) {
    waits({"never"});
    world.agent("disk").registered("late")->criticalIs(true);
    world.settle();

    world.agent("disk").registered("late")->criticalIs(false);

    EXPECT_FALSE(world.stage("late")->critical());
    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(WaitingStage, AsksForAPassWhenItsLastDependencyGoes) {
    waits({"never"});

    drops("never");

    EXPECT_TRUE(passIsAskedFor());
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(WaitingStage, AsksForNoneWhileAnotherStageThatItWaitsForHasNotStarted) {
    waits({"never", "neither"});

    drops("never");

    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(WaitingStage, AsksForNoneWhileAnotherStageThatItWaitsForRuns) {
    waits({"never", "early"});

    drops("never");

    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(WaitingStage, AsksForAPassWhenAllStagesThatItStillWaitsForAreComplete) {
    waits({"never", "early"});
    world.agent("fan").report("early", "boot");
    world.settle();
    ASSERT_EQ(world.activeStages("boot"), Lines({"early"}));

    drops("never");

    EXPECT_TRUE(passIsAskedFor());
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(WaitingStage, AsksForNoneWhenOneOfSeveralIsIncomplete) {
    waits({"never", "early", "neither"});
    world.agent("fan").report("early", "boot");
    world.settle();

    drops("never");

    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(WaitingStage, AsksForNoneWhenItGainsADependency) {
    waits({"never"});

    world.agent("disk").registered("late")->dependencyIs("neither", true);

    EXPECT_TRUE(world.stage("late")->dependency("neither"));
    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(WaitingStage, AValueThatChangesAsksForNoPass) {
    waits({"never"});

    world.stage("late")->dependencyIs("never", false);
    world.stage("late")->dependencyIs("never", true);

    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(WaitingStage, WatchesNoMoreOnceItHasStarted) {
    waits({"never"});
    drops("never");
    world.settle();
    ASSERT_EQ(world.stageEnableSm("boot", "late"), nullptr);

    world.agent("disk").registered("late")->criticalIs(true);

    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(WaitingStage, EachInstanceWatchesForItself) {
    world.agent("disk").event("late", {.dependsOn = {"never"}});
    world.enable("boot");
    world.enable("spare");
    world.settle();

    drops("never");

    EXPECT_TRUE(world.instance("boot")->needRecalculateNextStage());
    EXPECT_TRUE(world.instance("spare")->needRecalculateNextStage());
}

TEST_F(WaitingStage, CanBeBoundToAnotherStage) {
    waits({"never"});
    const Ptr<Stage::StageStatus> other = make<Stage::StageStatus>("late");
    other->dependencyIs("never", true);

    world.stageEnableSm("boot", "late")->stageIs(other);
    drops("never");
    EXPECT_FALSE(passIsAskedFor()) << "it looks at the other one now";
    EXPECT_EQ(world.stageEnableSm("boot", "late")->stage(), other);

    other->dependencyDel("never");
    EXPECT_TRUE(passIsAskedFor());
}

TEST_F(WaitingStage, ThatIsBoundToACriticalStageAsksForNothingByItself) {
    waits({"never"});
    const Ptr<Stage::StageStatus> other = make<Stage::StageStatus>("late");
    other->criticalIs(true);

    world.stageEnableSm("boot", "late")->stageIs(other);

    EXPECT_FALSE(passIsAskedFor());
    other->criticalIs(false);
    EXPECT_FALSE(passIsAskedFor());
    other->criticalIs(true);
    EXPECT_TRUE(passIsAskedFor());
}

TEST_F(WaitingStage, TracesItsHandlersOnEntry) {
    waits({"never"});
    world.trace();

    world.stage("late")->criticalIs(true);
    world.stage("late")->dependencyDel("never");

    Lines entries;
    for (const StageTest::TraceLine& line : world.traced())
        if (line.level == 8 && line.signature.find("StageEnableSm") != std::string::npos)
            entries.push_back(line.signature);
    EXPECT_EQ(entries, Lines({"void Stage::StageEnableSm::handleCritical()",
                              "void Stage::StageEnableSm::handleDependencyDel(Orv::String)"}));
}

}  // namespace
