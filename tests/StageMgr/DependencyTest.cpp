// What a stage depends on: the union of what its events depend on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Orv::Ptr;

// The stages that `stage` depends on; a member with the value false is marked.
Lines dependencies(const StageClass& world, const std::string& stage) {
    Lines names;
    for (const auto& [name, depends] : world.stage(stage)->dependency())
        names.push_back(name.str() + (depends ? "" : "=false"));
    return names;
}

Stage::ConfigSm::OrvStageStatus& reactor(const StageClass& world, const std::string& stage) {
    return *world.configSm()->stageStatus(stage);
}

TEST(Dependency, AStageDependsOnWhateverAnyOfItsEventsDependsOn) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a", "b"}});
    world.agent("disk").event("late", {.dependsOn = {"b", "c"}});

    EXPECT_EQ(dependencies(world, "late"), Lines({"a", "b", "c"}));
}

TEST(Dependency, ADependencyThatIsAddedLaterIsAdded) {
    World world;
    world.agent("fan").event("late");

    world.agent("fan").registered("late")->dependencyIs("a", true);

    EXPECT_EQ(dependencies(world, "late"), Lines({"a"}));
}

TEST(Dependency, FalseReadsAsNone) {
    World world;
    world.agent("fan").event("late");

    world.agent("fan").registered("late")->dependencyIs("a", false);

    EXPECT_EQ(dependencies(world, "late"), Lines());
}

TEST(Dependency, ADependencyThatTurnsFalseIsDropped) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    world.trace(9);

    world.agent("fan").registered("late")->dependencyIs("a", false);

    EXPECT_EQ(dependencies(world, "late"), Lines());
    EXPECT_THAT(world.traced(9, "dependency"),
                ElementsAre("Deleting dependency a from stage late"));
}

TEST(Dependency, ADependencyThatGoesIsDropped) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a", "b"}});

    world.agent("fan").registered("late")->dependencyDel("a");

    EXPECT_EQ(dependencies(world, "late"), Lines({"b"}));
}

TEST(Dependency, IsKeptWhileAnotherEventHasIt) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    world.agent("disk").event("late", {.dependsOn = {"a"}});
    world.trace(9);

    world.agent("fan").registered("late")->dependencyDel("a");
    EXPECT_EQ(dependencies(world, "late"), Lines({"a"}));
    EXPECT_THAT(world.traced(9), ElementsAre("Dependency found in event disk"));
    EXPECT_THAT(world.traced(8),
                ElementsAre("(dependency:a)", " for some event in stage late (dependency: a)"));

    world.agent("disk").registered("late")->dependencyDel("a");
    EXPECT_EQ(dependencies(world, "late"), Lines());
}

TEST(Dependency, ASecondEventThatHasItFindsItThere) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    world.agent("disk").event("late");
    world.observe();
    world.trace(9);

    world.agent("disk").registered("late")->dependencyIs("a", true);

    EXPECT_THAT(world.observed("/stage/app"), IsEmpty());
    EXPECT_THAT(world.traced(9), ElementsAre("Dependency found in event fan"));
}

TEST(Dependency, AnEventsFalseMemberDoesNotKeepIt) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    world.agent("disk").event("late");
    world.agent("disk").registered("late")->dependencyIs("a", false);
    EXPECT_EQ(dependencies(world, "late"), Lines({"a"}));

    world.agent("fan").registered("late")->dependencyDel("a");

    EXPECT_EQ(dependencies(world, "late"), Lines());
}

TEST(Dependency, AFalseMemberOfTheStageIsOverwritten) {
    World world;
    world.agent("fan").event("late");
    world.stage("late")->dependencyIs("a", false);

    world.agent("fan").registered("late")->dependencyIs("a", true);

    EXPECT_EQ(dependencies(world, "late"), Lines({"a"}));
}

TEST(Dependency, AFalseMemberOfTheStageIsLeftAloneByAnEventThatDropsIt) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    world.stage("late")->dependencyIs("a", false);

    world.agent("fan").registered("late")->dependencyDel("a");

    EXPECT_EQ(dependencies(world, "late"), Lines({"a=false"}));
}

TEST(Dependency, AllOfAnEventsDependenciesAreTakenInWhenItJoins) {
    World world;
    world.agent("fan").appears({{"late", {.dependsOn = {"a", "b"}}}});

    EXPECT_EQ(dependencies(world, "late"), Lines({"a", "b"}));
}

TEST(Dependency, AnEventThatLeavesTakesItsDependenciesWithIt) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a", "b"}});
    world.agent("disk").event("late", {.dependsOn = {"b"}});
    world.trace(9);

    world.agent("fan").withdraw("late");

    EXPECT_EQ(dependencies(world, "late"), Lines({"b"}));
    EXPECT_THAT(world.traced(9, "Handling"),
                ElementsAre("Handling dependency deletion of a from event fan",
                            "Handling dependency deletion of b from event fan"));
    EXPECT_THAT(world.traced(9, "Dependency found"), ElementsAre("Dependency found in event disk"));
    EXPECT_THAT(world.traced(8, "(event:"), ElementsAre("fan(event:late)", "(event:fan)"));
}

TEST(Dependency, AnEventThatLeavesIsOutOfTheStageBeforeAnythingElse) {
    World world;
    world.agent("fan").event("late", {.timeout = 30, .critical = true, .dependsOn = {"a"}});
    world.observe();

    world.agent("fan").withdraw("late");

    EXPECT_THAT(world.observed("/stage/late/"),
                ElementsAre("/stage/app/status/stage/late/event[fan] -",
                            "/stage/app/status/stage/late/dependency[a] -",
                            "/stage/app/status/stage/late/critical = false",
                            "/stage/app/status/stage/late/timeout = 0"));
}

TEST(Dependency, AnEventThatSetTheStagesLimitTakesItWithIt) {
    World world;
    world.agent("fan").event("late", {.timeout = 120});
    world.agent("disk").event("late", {.timeout = 30});

    world.agent("fan").withdraw("late");

    EXPECT_EQ(world.stage("late")->timeout(), 30);
}

TEST(Dependency, AnEventThatDidNotSetTheStagesLimitLeavesIt) {
    World world;
    world.agent("fan").event("late", {.timeout = 120});
    world.agent("disk").event("late", {.timeout = 30});
    world.trace(8);

    world.agent("disk").withdraw("late");

    EXPECT_EQ(world.stage("late")->timeout(), 120);
    EXPECT_THAT(world.traced(8, "timeout="), IsEmpty());
}

TEST(Dependency, TheLastEventThatSetTheLimitLeavesZero) {
    World world;
    world.agent("fan").event("late", {.timeout = 120});

    world.agent("fan").withdraw("late");

    EXPECT_EQ(world.stage("late")->timeout(), 0);
}

TEST(Dependency, RemovingAnAgentThatIsNotInTheStageDoesNothing) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    world.observe();

    reactor(world, "late").handleEventDel("disk");

    EXPECT_THAT(world.observed(), IsEmpty());
}

TEST(Dependency, AnEventTakenOutByOthersKeepsItsDependenciesInTheStage) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});

    world.stage("late")->eventDel("fan");

    EXPECT_EQ(dependencies(world, "late"), Lines({"a"}));
}

TEST(Dependency, AnEventThatIsOutOfTheStageChangesItNoMore) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    const Ptr<Stage::EventConfig> event = world.agent("fan").registered("late");
    world.agent("fan").withdraw("late");

    event->dependencyIs("b", true);
    event->criticalIs(true);
    event->timeoutIs(500);

    EXPECT_EQ(dependencies(world, "late"), Lines());
    EXPECT_FALSE(world.stage("late")->critical());
    EXPECT_EQ(world.stage("late")->timeout(), 0);
}

// Changes the event's dependencies while it leaves its stage, which nobody may do.
class Meddler final : public Stage::StageStatus::NotifieeConst {
  public:
    explicit Meddler(Ptr<Stage::EventConfig> event) : event_(std::move(event)) {}
    void onEvent(Orv::String) override { event_->dependencyIs("b", true); }

  private:
    Ptr<Stage::EventConfig> event_;
};

TEST(DependencyDeathTest, WhatAnEventDependsOnDoesNotChangeWhileItLeaves) {
    World world;
    world.agent("fan").event("late", {.dependsOn = {"a"}});
    Meddler meddler(world.agent("fan").registered("late"));
    meddler.notifierIs(world.stage("late"));

    EXPECT_DEATH(world.agent("fan").withdraw("late"), "ec->dependencys\\(\\) == before");
}

}  // namespace
