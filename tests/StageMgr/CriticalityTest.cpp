// Criticality: of a stage with a critical event, and of every stage that a critical stage depends
// on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Orv::Ptr;

Stage::ConfigSm::OrvStageStatus& reactor(const StageClass& world, const std::string& stage) {
    return *world.configSm()->stageStatus(stage);
}

// The critical stages that are known to depend on `stage`.
Lines ancestors(const StageClass& world, const std::string& stage) {
    Lines names;
    for (const auto& [name, value] : reactor(world, stage).criticalAncestor())
        names.push_back(name.str() + (value ? "" : "=false"));
    return names;
}

Lines critical(const StageClass& world) {
    Lines names;
    for (const auto& [name, stage] : world.status()->stage())
        if (stage->critical()) names.push_back(name.str());
    return names;
}

void criticalIs(const StageClass& world, const std::string& stage, const std::string& agent,
                bool value) {
    const_cast<StageClass&>(world).agent(agent).registered(stage)->criticalIs(value);
}

// A depends on B, B on C.
void chain(World& world, bool isCritical = true) {
    world.agent("c").event("C");
    world.agent("b").event("B", {.dependsOn = {"C"}});
    world.agent("a").event("A", {.critical = isCritical, .dependsOn = {"B"}});
}

// --- one stage
// ------------------------------------------------------------------------------------

TEST(Criticality, AStageIsCriticalWhileAnyOfItsEventsIs) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early");
    EXPECT_FALSE(world.stage("early")->critical());

    criticalIs(world, "early", "disk", true);
    EXPECT_TRUE(world.stage("early")->critical());
    criticalIs(world, "early", "fan", true);
    criticalIs(world, "early", "disk", false);
    EXPECT_TRUE(world.stage("early")->critical());
    criticalIs(world, "early", "fan", false);
    EXPECT_FALSE(world.stage("early")->critical());
}

TEST(Criticality, ACriticalEventThatLeavesTakesItsStagesCriticalityWithIt) {
    World world;
    chain(world);
    ASSERT_EQ(critical(world), Lines({"C", "B", "A"}));

    world.agent("a").withdraw("A");

    EXPECT_EQ(critical(world), Lines());
    EXPECT_EQ(ancestors(world, "B"), Lines());
    EXPECT_EQ(ancestors(world, "C"), Lines());
}

TEST(Criticality, ACriticalEventTakenOutByOthersLeavesTheStageCritical) {
    World world;
    world.agent("fan").event("early", {.critical = true});

    world.stage("early")->eventDel("fan");

    // Only a change that the stage's reactor looks for has it look again.
    EXPECT_TRUE(world.stage("early")->critical());
    reactor(world, "early").handleCritical();
    EXPECT_FALSE(world.stage("early")->critical());
}

TEST(Criticality, TheFirstCriticalEventIsNamed) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early", {.critical = true});
    world.trace(9);

    criticalIs(world, "early", "fan", true);

    EXPECT_THAT(world.traced(8), ElementsAre(" critical=1", " for stage early critical=1"));
    EXPECT_THAT(
        world.traced(9),
        ElementsAre(" Critical because fan is critical", "early: No change to critical (1).",
                    "   Force dependents of early to recompute based on our critical"));
}

TEST(Criticality, AChangeIsTraced) {
    World world;
    world.agent("fan").event("early");
    world.trace(9);

    criticalIs(world, "early", "fan", true);
    EXPECT_THAT(
        world.traced(9),
        ElementsAre(" Critical because fan is critical", " Setting critical for stage early to 1",
                    "   Force dependents of early to recompute based on our critical"));
    world.forgetTraced();
    criticalIs(world, "early", "fan", false);
    EXPECT_THAT(world.traced(9),
                ElementsAre(" Setting critical for stage early to 0",
                            "   Force dependents of early to recompute based on our critical"));
}

TEST(Criticality, IsCorrectedWheneverItIsLookedAt) {
    World world;
    world.agent("fan").event("early", {.critical = true});
    world.stage("early")->criticalIs(false);

    reactor(world, "early").handleCritical();

    EXPECT_TRUE(world.stage("early")->critical());
}

// --- along dependencies
// ---------------------------------------------------------------------------

TEST(Criticality, FlowsFromACriticalStageToWhatItDependsOn) {
    World world;
    chain(world);

    EXPECT_EQ(critical(world), Lines({"C", "B", "A"}));
    EXPECT_EQ(ancestors(world, "A"), Lines());
    EXPECT_EQ(ancestors(world, "B"), Lines({"A"}));
    EXPECT_EQ(ancestors(world, "C"), Lines({"B"}));
}

TEST(Criticality, EbbsTheSameWayOneStageAfterTheOther) {
    World world;
    chain(world);
    world.observe();

    criticalIs(world, "A", "a", false);

    EXPECT_THAT(world.observed("/critical"),
                ElementsAre("/input/app/a/event/A/critical = false",
                            "/stage/app/status/stage/A/critical = false",
                            "/stage/app/status/stage/B/critical = false",
                            "/stage/app/status/stage/C/critical = false"));
    EXPECT_EQ(ancestors(world, "B"), Lines());
    EXPECT_EQ(ancestors(world, "C"), Lines());
}

TEST(Criticality, DoesNotFlowToTheStagesThatDependOnACriticalOne) {
    World world;
    chain(world, false);

    world.agent("c").registered("C")->criticalIs(true);

    EXPECT_EQ(critical(world), Lines({"C"}));
}

TEST(Criticality, SettlesDepthFirstInTheOrderOfDependencies) {
    World world;
    world.agent("d").event("D");
    world.agent("c").event("C");
    world.agent("b").event("B", {.dependsOn = {"D"}});
    world.agent("a").event("A", {.dependsOn = {"B", "C"}});
    world.observe();

    criticalIs(world, "A", "a", true);

    EXPECT_THAT(world.observed("/status/"),
                ElementsAre("/stage/app/status/stage/A/critical = true",
                            "/stage/app/status/stage/B/critical = true",
                            "/stage/app/status/stage/D/critical = true",
                            "/stage/app/status/stage/C/critical = true"));
}

TEST(Criticality, AStageWithTwoCriticalAncestorsStaysCriticalUntilBothAreNot) {
    World world;
    world.agent("base").event("base");
    world.agent("a").event("A", {.critical = true, .dependsOn = {"base"}});
    world.agent("b").event("B", {.critical = true, .dependsOn = {"base"}});
    EXPECT_EQ(ancestors(world, "base"), Lines({"A", "B"}));

    criticalIs(world, "A", "a", false);
    EXPECT_TRUE(world.stage("base")->critical());
    EXPECT_EQ(ancestors(world, "base"), Lines({"B"}));
    criticalIs(world, "B", "b", false);
    EXPECT_FALSE(world.stage("base")->critical());
}

TEST(Criticality, AnAncestorDecidesWithoutALookAtTheEvents) {
    World world;
    chain(world);
    world.trace(9);

    world.agent("b").registered("B")->criticalIs(true);

    EXPECT_THAT(
        world.traced(9),
        ElementsAre(" Critical because exists a critical ancestor", "B: No change to critical (1).",
                    "   Force dependents of B to recompute based on our critical",
                    "  Adjusting criticalAncestor for C (was 1)"));
}

TEST(Criticality, IsPushedAgainWithoutAChangeAndAbsorbed) {
    World world;
    chain(world);
    world.observe();
    world.trace(9);

    reactor(world, "A").handleCritical();

    EXPECT_THAT(world.observed(), IsEmpty());
    EXPECT_THAT(world.traced(9),
                ElementsAre(" Critical because a is critical", "A: No change to critical (1).",
                            "   Force dependents of A to recompute based on our critical",
                            "  Adjusting criticalAncestor for B (was 1)"));
    EXPECT_THAT(world.traced(8, " key "), IsEmpty());
}

TEST(Criticality, APushWithoutAChangeRestoresWhatWasLost) {
    World world;
    chain(world);
    reactor(world, "B").criticalAncestorDel("A");
    ASSERT_EQ(critical(world), Lines({"A"}));

    reactor(world, "A").handleCritical();

    EXPECT_EQ(critical(world), Lines({"C", "B", "A"}));
}

TEST(Criticality, WhatChangesAnAncestorIsTracedWithItsKey) {
    World world;
    chain(world, false);
    world.trace(9);

    criticalIs(world, "A", "a", true);

    EXPECT_THAT(world.traced(8, " key "), ElementsAre(" key A", " key B"));
    EXPECT_THAT(world.traced(9, "Adjusting"),
                ElementsAre("  Adjusting criticalAncestor for B (was 0)",
                            "  Adjusting criticalAncestor for C (was 0)"));
}

TEST(CriticalAncestor, TheSameValueChangesNothing) {
    World world;
    world.status()->stageIs("early");
    reactor(world, "early").criticalAncestorIs("late", true);
    world.trace(9);

    reactor(world, "early").criticalAncestorIs("late", true);
    reactor(world, "early").criticalAncestorDel("other");

    EXPECT_THAT(world.traced(), IsEmpty());
    EXPECT_TRUE(world.stage("early")->critical());
}

TEST(CriticalAncestor, AnyMemberMakesTheStageCritical) {
    World world;
    world.status()->stageIs("early");

    reactor(world, "early").criticalAncestorIs("late", false);
    EXPECT_TRUE(world.stage("early")->critical());
    reactor(world, "early").criticalAncestorIs("late", true);
    EXPECT_EQ(ancestors(world, "early"), Lines({"late"}));
    reactor(world, "early").criticalAncestorDel("late");
    EXPECT_FALSE(world.stage("early")->critical());
}

// --- dependencies that come and go
// ----------------------------------------------------------------

TEST(Criticality, ADependencyThatIsAddedReceivesIt) {
    World world;
    world.agent("base").event("base");
    world.agent("a").event("A", {.critical = true});
    world.trace(9);

    world.agent("a").registered("A")->dependencyIs("base", true);

    EXPECT_TRUE(world.stage("base")->critical());
    EXPECT_THAT(world.traced(8, " for stage A"), ElementsAre(" for stage A (dependency:base)"));
    EXPECT_THAT(world.traced(9, "riticalAncestor"),
                ElementsAre("  Adjusting criticalAncestor for base",
                            "  criticalAncestor was 0 now dep && critic = 1",
                            " criticalAncestors 0", " criticalAncestors after 1"));
}

TEST(Criticality, ADependencyThatGoesLosesIt) {
    World world;
    chain(world);
    world.trace(9);

    world.agent("a").registered("A")->dependencyDel("B");

    EXPECT_EQ(critical(world), Lines({"A"}));
    EXPECT_EQ(ancestors(world, "B"), Lines());
    EXPECT_THAT(world.traced(9, "criticalAncestor was"),
                ElementsAre("  criticalAncestor was 1 now dep && critic = 0"));
}

TEST(Criticality, ADependencyOfAStageThatIsNotCriticalReceivesNothing) {
    World world;
    world.agent("base").event("base");
    world.agent("a").event("A", {.dependsOn = {"base"}});

    EXPECT_FALSE(world.stage("base")->critical());
    EXPECT_EQ(ancestors(world, "base"), Lines());
}

TEST(Criticality, ADependencyThatDoesNotExistReceivesItWhenItIsAdded) {
    World world;
    world.agent("a").event("A", {.critical = true, .dependsOn = {"base"}});
    ASSERT_EQ(world.stage("base"), nullptr);

    world.agent("base").event("base");

    EXPECT_TRUE(world.stage("base")->critical());
    EXPECT_EQ(ancestors(world, "base"), Lines({"A"}));
}

TEST(Criticality, NothingIsPushedToADependencyThatDoesNotExist) {
    World world;
    world.agent("a").event("A", {.critical = true});
    world.trace(9);

    world.agent("a").registered("A")->dependencyIs("base", true);

    EXPECT_THAT(world.traced(8, " for stage A"), ElementsAre(" for stage A (dependency:base)"));
    EXPECT_THAT(world.traced(9), IsEmpty());
}

TEST(Criticality, AStageThatComesAgainStartsEmptyAndIsFilledAgain) {
    World world;
    chain(world);

    world.status()->stageDel("B");
    EXPECT_EQ(world.configSm()->stageStatus("B"), nullptr);
    // Nobody takes back what the stage that went had passed on.
    EXPECT_EQ(ancestors(world, "C"), Lines({"B"}));
    world.status()->stageIs("B");

    EXPECT_EQ(ancestors(world, "B"), Lines({"A"}));
    EXPECT_TRUE(world.stage("B")->critical());
}

TEST(Criticality, OnlyStagesThatDependOnANewStageTakeNoticeOfIt) {
    World world;
    world.agent("a").event("A", {.critical = true, .dependsOn = {"base"}});
    world.agent("b").event("B", {.critical = true});
    world.trace(8);

    world.status()->stageIs("base");

    EXPECT_THAT(world.traced(8, "(dependency:"), ElementsAre(" for stage A (dependency:base)"));
}

TEST(Criticality, AFalseMemberOfAStagesDependenciesIsNoneWhenItChanges) {
    World world;
    world.agent("base").event("base");
    world.agent("a").event("A", {.critical = true});

    world.stage("A")->dependencyIs("base", false);

    EXPECT_FALSE(world.stage("base")->critical());
}

TEST(Criticality, AFalseMemberOfAStagesDependenciesIsNotAskedForItsValueByAPush) {
    World world;
    world.agent("base").event("base");
    world.agent("a").event("A", {.critical = true});
    world.stage("A")->dependencyIs("base", false);

    reactor(world, "A").handleCritical();

    EXPECT_TRUE(world.stage("base")->critical());
}

TEST(Criticality, AFalseMemberIsPassedOverWhenAStageIsAdded) {
    World world;
    world.agent("a").event("A", {.critical = true});
    world.stage("A")->dependencyIs("base", false);

    world.status()->stageIs("base");

    EXPECT_FALSE(world.stage("base")->critical());
}

TEST(Criticality, IsTheSameWhateverOrderThePartsComeIn) {
    Lines order{"a", "b", "c"};
    do {
        World world;
        for (const std::string& agent : order) {
            if (agent == "a") world.agent("a").event("A", {.critical = true, .dependsOn = {"B"}});
            if (agent == "b") world.agent("b").event("B", {.dependsOn = {"C"}});
            if (agent == "c") world.agent("c").event("C");
        }
        EXPECT_EQ(critical(world).size(), 3u);
        EXPECT_EQ(ancestors(world, "B"), Lines({"A"}));
        EXPECT_EQ(ancestors(world, "C"), Lines({"B"}));

        criticalIs(world, "A", "a", false);
        EXPECT_EQ(critical(world), Lines());
    } while (std::next_permutation(order.begin(), order.end()));
}

// --- cycles
// ---------------------------------------------------------------------------------------

TEST(Criticality, StagesThatDependOnEachOtherKeepEachOtherCritical) {
    World world;
    world.agent("a").event("A", {.dependsOn = {"B"}});
    world.agent("b").event("B", {.dependsOn = {"A"}});

    criticalIs(world, "A", "a", true);
    EXPECT_EQ(critical(world), Lines({"A", "B"}));
    EXPECT_EQ(ancestors(world, "A"), Lines({"B"}));
    EXPECT_EQ(ancestors(world, "B"), Lines({"A"}));

    criticalIs(world, "A", "a", false);
    EXPECT_EQ(critical(world), Lines({"A", "B"}));
}

TEST(Criticality, ACycleIsTracedUntilItKnowsItself) {
    World world;
    world.agent("a").event("A", {.dependsOn = {"B"}});
    world.agent("b").event("B", {.dependsOn = {"A"}});
    world.trace(9);

    criticalIs(world, "A", "a", true);

    EXPECT_THAT(
        world.traced(9),
        ElementsAre(" Critical because a is critical", " Setting critical for stage A to 1",
                    "   Force dependents of A to recompute based on our critical",
                    "  Adjusting criticalAncestor for B (was 0)",
                    " Critical because exists a critical ancestor",
                    " Setting critical for stage B to 1",
                    "   Force dependents of B to recompute based on our critical",
                    "  Adjusting criticalAncestor for A (was 0)",
                    " Critical because exists a critical ancestor", "A: No change to critical (1).",
                    "   Force dependents of A to recompute based on our critical",
                    "  Adjusting criticalAncestor for B (was 1)"));
}

TEST(Criticality, AStageThatDependsOnItselfStaysCritical) {
    World world;
    world.agent("a").event("A", {.critical = true, .dependsOn = {"A"}});
    EXPECT_EQ(ancestors(world, "A"), Lines({"A"}));

    criticalIs(world, "A", "a", false);

    EXPECT_TRUE(world.stage("A")->critical());
}

TEST(Criticality, ACycleEndsWhenADependencyOfItGoes) {
    World world;
    world.agent("a").event("A", {.critical = true, .dependsOn = {"B"}});
    world.agent("b").event("B", {.dependsOn = {"C"}});
    world.agent("c").event("C", {.dependsOn = {"A"}});
    criticalIs(world, "A", "a", false);
    ASSERT_EQ(critical(world).size(), 3u);

    world.agent("c").registered("C")->dependencyDel("A");

    EXPECT_EQ(critical(world), Lines());
}

// --- what others do meanwhile
// ---------------------------------------------------------------------

class OnCritical final : public Stage::StageStatus::NotifieeConst {
  public:
    OnCritical(const Ptr<Stage::StageStatus>& stage, std::function<void()> act)
        : act_(std::move(act)) {
        notifierIs(stage);
    }
    void onCritical() override { act_(); }

  private:
    std::function<void()> act_;
};

TEST(Criticality, ThatIsTakenBackWhileItFlowsIsGoneAtTheEnd) {
    World world;
    chain(world, false);
    const OnCritical onB(world.stage("B"), [&] {
        if (world.stage("B")->critical()) criticalIs(world, "A", "a", false);
    });

    criticalIs(world, "A", "a", true);

    EXPECT_EQ(critical(world), Lines());
    EXPECT_EQ(ancestors(world, "B"), Lines());
    EXPECT_EQ(ancestors(world, "C"), Lines());
}

TEST(Criticality, AStageThatIsRemovedWhileItFlowsIsPassedOver) {
    World world;
    chain(world, false);
    const OnCritical onB(world.stage("B"), [&] { world.status()->stageDel("C"); });

    criticalIs(world, "A", "a", true);

    EXPECT_EQ(critical(world), Lines({"B", "A"}));
    EXPECT_EQ(world.stage("C"), nullptr);
}

TEST(Criticality, AnotherFlowThatStartsMeanwhileEndsFirst) {
    World world;
    chain(world, false);
    world.agent("y").event("Y");
    world.agent("x").event("X", {.dependsOn = {"Y"}});
    const OnCritical onB(world.stage("B"), [&] { criticalIs(world, "X", "x", true); });
    world.observe();

    criticalIs(world, "A", "a", true);

    EXPECT_THAT(world.observed("/status/"),
                ElementsAre("/stage/app/status/stage/A/critical = true",
                            "/stage/app/status/stage/B/critical = true",
                            "/stage/app/status/stage/X/critical = true",
                            "/stage/app/status/stage/Y/critical = true",
                            "/stage/app/status/stage/C/critical = true"));
}

TEST(Criticality, FlowsAlongAHundredThousandStagesOnAnOrdinaryStack) {
    constexpr int stages = 100000;
    World world(System::Manager::waits);
    const auto name = [](int i) { return "s" + std::to_string(i); };
    const auto agent = Orv::make<Stage::AgentConfig>("a");
    const Ptr<Stage::Status> status = world.status();
    // Each depends on the next. They are there before the manager, which would otherwise show each
    // of them to each.
    for (int i = 0; i < stages; ++i) {
        const Ptr<Stage::EventConfig> event = agent->eventIs(name(i), "a");
        if (i + 1 < stages) event->dependencyIs(name(i + 1), true);
        status->stageIs(name(i))->eventIs(event);
    }
    world.inputDir()->entryIs(agent);
    world.start();
    const auto criticalStages = [&] {
        int count = 0;
        for (const auto& [stage, entity] : status->stage()) count += entity->critical();
        return count;
    };
    ASSERT_EQ(criticalStages(), 0);

    agent->event(name(0))->criticalIs(true);
    EXPECT_EQ(criticalStages(), stages);
    EXPECT_EQ(ancestors(world, name(stages - 1)), Lines({name(stages - 2)}));

    agent->event(name(0))->criticalIs(false);
    EXPECT_EQ(criticalStages(), 0);
}

}  // namespace
