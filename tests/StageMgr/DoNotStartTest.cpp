// The stages that the operator holds back.
#include <gtest/gtest.h>

#include "StageMgr/InstanceStatusSm.h"
#include "tests/support/World.h"

namespace {

using StageTest::Lines;
using StageTest::StageClass;
using StageTest::World;

constexpr const char* signature =
    "void Stage::InstanceStatusSm::handleDoNotStartStage(Stage::StageInfo)";

class DoNotStart : public testing::Test {
  protected:
    // A stage that is held when the instance starts.
    void heldFromTheStart() {
        world.agent("fan").event("early");
        world.hold("early");
        world.enable("boot");
        world.settle();
        ASSERT_EQ(world.activeStages("boot"), Lines());
    }
    bool passIsAskedFor() const { return world.instance("boot")->needRecalculateNextStage(); }
    // What the handler traced, by level.
    Lines traced(int level) const {
        Lines texts;
        for (const StageTest::TraceLine& line : world.traced())
            if (line.level == level && line.handler == "handleDoNotStartStage")
                texts.push_back(line.text);
        return texts;
    }

    World world;
};

TEST_F(DoNotStart, AHeldStageWaits) {
    heldFromTheStart();
    world.trace();

    world.instance("boot")->doNextStage();
    world.advance(100);

    EXPECT_EQ(world.log("boot"), Lines({"app stages started"}));
    EXPECT_EQ(world.traced(7, "early ready"),
              Lines({"early ready, but not allowed to start, instanceName boot"}));
}

TEST_F(DoNotStart, AStageStartsWhenItsMemberGoes) {
    heldFromTheStart();

    world.holdDel("early");
    EXPECT_TRUE(passIsAskedFor());
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
}

TEST_F(DoNotStart, AStageStartsWhenItsMemberBecomesFalse) {
    heldFromTheStart();

    world.hold("early", false);
    EXPECT_TRUE(passIsAskedFor());
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
}

TEST_F(DoNotStart, AFalseMemberHoldsNothing) {
    world.agent("fan").event("early");
    world.hold("early", false);
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
}

TEST_F(DoNotStart, HoldingAStageAsksForNoPass) {
    world.agent("fan").event("early", {.dependsOn = {"never"}});
    world.enable("boot");
    world.settle();

    world.hold("early");

    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(DoNotStart, AMemberThatComesAsFalseAsksForAPass) {
    world.agent("fan").event("early", {.dependsOn = {"never"}});
    world.enable("boot");
    world.settle();

    world.hold("early", false);

    EXPECT_TRUE(passIsAskedFor());
}

TEST_F(DoNotStart, AMemberOfAStageThatDoesNotExistAsksForAPassWhenItGoes) {
    world.enable("boot");
    world.hold("never");
    world.settle();

    world.holdDel("never");

    EXPECT_TRUE(passIsAskedFor());
}

TEST_F(DoNotStart, HoldingAStageThatRunsChangesNothing) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Lines log = world.log("boot");

    world.hold("early");
    EXPECT_FALSE(passIsAskedFor());
    world.holdDel("early");
    EXPECT_FALSE(passIsAskedFor());
    world.settle();

    EXPECT_EQ(world.log("boot"), log);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
}

TEST_F(DoNotStart, AStageThatIsHeldBeforeThePassRunsWaits) {
    world.agent("fan").event("early");
    world.enable("boot");

    world.hold("early");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines());
}

TEST_F(DoNotStart, OtherStagesGoOn) {
    world.agent("fan").event("early").event("other").event("late", {.dependsOn = {"early"}});
    world.hold("early");
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"other"}));
}

TEST_F(DoNotStart, AStageWaitsForItsDependenciesFirst) {
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.hold("late");
    world.enable("boot");
    world.trace();
    world.settle();
    EXPECT_EQ(world.traced(7, "not allowed to start"), Lines());

    world.agent("fan").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.traced(7, "not allowed to start"),
              Lines({"late ready, but not allowed to start, instanceName boot"}));
}

TEST_F(DoNotStart, EveryInstanceOfTheClassWaits) {
    world.agent("fan").event("early");
    world.hold("early");
    world.enable("boot");
    world.enable("spare");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines());
    EXPECT_EQ(world.activeStages("spare"), Lines());

    world.holdDel("early");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
    EXPECT_EQ(world.activeStages("spare"), Lines({"early"}));
}

TEST_F(DoNotStart, AnotherClassIsNotHeld) {
    StageClass& net = world.stageClass("net");
    net.agent("fan").event("early");
    heldFromTheStart();

    net.enable("boot");
    world.settle();
    EXPECT_EQ(net.activeStages("boot"), Lines({"early"}));

    net.holdDel("early");
    EXPECT_FALSE(passIsAskedFor());
    world.doNotStart("net", "early", false);
    EXPECT_FALSE(passIsAskedFor());
}

TEST_F(DoNotStart, TheClassIsTheOneThatTheConfigurationNames) {
    world.config()->stageClassIs("other");
    world.agent("fan").event("early");
    world.hold("early");
    world.enable("boot");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));

    world.agent("fan").event("late");
    world.doNotStart("other", "late");
    world.instance("boot")->doNextStage();
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
}

TEST_F(DoNotStart, ClassesAreComparedExactly) {
    for (const char* name : {"App", "app ", "", "ap"}) {
        World other;
        other.agent("fan").event("early");
        other.doNotStart(name, "early");
        other.enable("boot");
        other.settle();
        EXPECT_EQ(other.activeStages("boot"), Lines({"early"})) << name;
    }
}

TEST_F(DoNotStart, ASuspendedInstanceStaysSuspended) {
    heldFromTheStart();
    world.suspend("boot");

    world.holdDel("early");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines());
    EXPECT_TRUE(world.instanceStatus("boot")->suspended());
}

// Every change of a member: whether it asks for a pass depends on the class that the member names,
// on whether the stage runs, and on what the member is from then on.
TEST_F(DoNotStart, EveryChangeAsksForAPassOrDoesNot) {
    enum Member { absent, no, yes };
    struct Row {
        Member before;
        Member after;
        // By class and stage: ours and waiting, ours and running, another class's.
        bool waiting;
        bool running;
        bool another;
    };
    const Row rows[] = {
        {absent, no, true, false, false},
        {absent, yes, false, false, false},
        {no, absent, true, false, false},
        {no, yes, false, false, false},
        {yes, absent, true, false, false},
        {yes, no, true, false, false},
        // No change.
        {absent, absent, false, false, false},
        {no, no, false, false, false},
        {yes, yes, false, false, false},
    };
    for (const Row& row : rows) {
        for (const bool initialized : {true, false}) {
            SCOPED_TRACE(std::to_string(row.before) + std::to_string(row.after) +
                         (initialized ? "" : " before the start"));
            World other;
            other.agent("fan").event("running").event("waiting", {.dependsOn = {"never"}});
            other.enable("boot");
            other.settle();
            const auto becomes = [&](const char* stageClass, const char* stage, Member member) {
                if (member == absent)
                    other.doNotStartDel(stageClass, stage);
                else
                    other.doNotStart(stageClass, stage, member == yes);
            };
            const auto asksForAPass = [&](const char* stageClass, const char* stage) {
                becomes(stageClass, stage, row.before);
                other.settle();
                Stage::InstanceStatusSm& instance = *other.instance("boot");
                instance.initializedIs(initialized);
                becomes(stageClass, stage, row.after);
                instance.initializedIs(true);
                return instance.needRecalculateNextStage();
            };
            EXPECT_EQ(asksForAPass("app", "waiting"), row.waiting && initialized);
            other.settle();
            EXPECT_EQ(asksForAPass("app", "running"), row.running && initialized);
            EXPECT_EQ(asksForAPass("net", "waiting"), row.another && initialized);
            EXPECT_EQ(other.activeStages("boot"), Lines({"running"}));
        }
    }
}

TEST_F(DoNotStart, BeforeTheStartAChangeIsNotLookedAt) {
    heldFromTheStart();
    world.instance("boot")->initializedIs(false);
    world.trace();

    world.holdDel("early");

    EXPECT_FALSE(passIsAskedFor());
    EXPECT_EQ(traced(8),
              Lines({" stageClass: app stage: early instanceName boot",
                     "Not initialized.  Return from void "
                     "Stage::InstanceStatusSm::handleDoNotStartStage(Stage::StageInfo) boot"}));
}

TEST_F(DoNotStart, AnEntryIsTraced) {
    heldFromTheStart();
    world.trace();

    world.holdDel("early");

    ASSERT_FALSE(world.traced().empty());
    EXPECT_EQ(world.traced()[0].level, 8);
    EXPECT_EQ(world.traced()[0].signature, signature);
    EXPECT_EQ(traced(8), Lines({" stageClass: app stage: early instanceName boot",
                                " stage: early removed,  instanceName boot"}));
}

TEST_F(DoNotStart, AnotherClassIsTraced) {
    heldFromTheStart();
    world.trace();

    world.doNotStart("net", "early");

    EXPECT_EQ(traced(8),
              Lines({" stageClass: net stage: early instanceName boot",
                     " stageClass: net does not match config stageClass: app instanceName boot"}));
}

TEST_F(DoNotStart, AStageThatRunsIsTraced) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.trace();

    world.hold("early");

    EXPECT_EQ(traced(8), Lines({" stageClass: app stage: early instanceName boot",
                                " stage: early Stage already active, instanceName boot"}));
}

TEST_F(DoNotStart, AHoldIsTraced) {
    world.agent("fan").event("early", {.dependsOn = {"never"}});
    world.enable("boot");
    world.settle();
    world.trace();

    world.hold("early");

    EXPECT_EQ(traced(8), Lines({" stageClass: app stage: early instanceName boot",
                                " stage: early added, instanceName boot"}));
}

TEST_F(DoNotStart, ClearingTheListReleasesEveryStage) {
    world.agent("fan").event("early").event("other");
    world.hold("early");
    world.hold("other");
    world.enable("boot");
    world.settle();

    world.globalConfig()->doNotStartStageDelAll();
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "other"}));
}

TEST_F(DoNotStart, AReleaseAfterARebootStartsNothing) {
    heldFromTheStart();
    world.rebootIs();

    world.holdDel("early");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines());
}

}  // namespace
