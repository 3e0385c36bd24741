// Reactors that are made from less than they need, or that are asked before they are ready: what
// is absent is a branch, and what must not be absent ends the process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StageMgr/AvailablePaths.h"
#include "StageMgr/Types.h"
#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::IsEmpty;

using Orv::make;
using Orv::Ptr;
using Stage::AgentStatusSm;
using Stage::InstanceStatusSm;
using Stage::StageSm;
using Stage::StatusSm;

// --- not initialized

TEST(NotInitialized, AnAgentsStatusIsNotLookedAt) {
    World world;
    world.agent("fan").report("early", "boot").request("late");
    world.agent("fan").event("early").withdraw("late");
    AgentStatusSm* const agent = world.configSm()->agentStatusSm().find("fan");
    ASSERT_NE(agent, nullptr);

    agent->initializedIs(false);
    agent->handleComplete();
    agent->handleStageRequest();

    EXPECT_FALSE(agent->initialized());
    EXPECT_FALSE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_EQ(world.agent("fan").registered("late"), nullptr);

    agent->initializedIs(true);
    agent->handleComplete();
    agent->handleStageRequest();

    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_NE(world.agent("fan").registered("late"), nullptr);
}

TEST(NotInitialized, AgentsStatusesAreNotTakenIn) {
    World world;
    world.agent("fan").event("early").report("early", "boot");
    Stage::ConfigSm* const config = world.configSm();
    config->agentStatusSmDel("fan");

    config->initializedIs(false);
    config->handleAgentStatus();
    EXPECT_EQ(config->agentStatusSm().find("fan"), nullptr);

    config->initializedIs(true);
    config->handleAgentStatus();
    EXPECT_NE(config->agentStatusSm().find("fan"), nullptr);
}

TEST(NotInitialized, AClassIsNeitherWatchedNorManaged) {
    System system;
    const Ptr<Stage::StageMgrStageClassDirSm>& manager = system.manager();
    manager->initializedIs(false);

    StageClass& net = system.stageClass("net");
    manager->handleStage();
    manager->availableStageSubPath()->stageSubPathIs("net", true);
    EXPECT_EQ(manager->stageSubPathSm().find("net"), nullptr);
    EXPECT_EQ(net.stageMgr(), nullptr);

    manager->initializedIs(true);
    manager->handleStageSubPath("net");
    EXPECT_NE(net.stageMgr(), nullptr);
}

TEST(NotInitialized, AClasssOwnEntriesAreNotPublished) {
    World world(System::Manager::waits);
    const auto published = make<Stage::AvailableStageSubPaths>();
    const Ptr<Orv::Dir> dir = world.stageDir()->entityPtr<Orv::Dir>("app");
    const auto watcher = Stage::stageSubPathSmFactory("app", make<Orv::Dir>("empty"), published);

    watcher->initializedIs(false);
    watcher->stageClassDirIs(dir);
    watcher->handleStageClassDir("log");
    EXPECT_THAT(published->stageSubPath(), IsEmpty());

    watcher->initializedIs(true);
    watcher->handleStageClassDir();
    EXPECT_TRUE(published->stageSubPath().contains("app"));
}

TEST(NotInitialized, AStageNeitherCompletesNorTakesReports) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    StageSm* const stage = world.stageSm("boot", "early");
    ASSERT_NE(stage, nullptr);
    ASSERT_TRUE(stage->initialized());

    stage->initializedIs(false);
    world.agentStatusLocal()->completeIs({"fan", "early", "boot"}, true);
    stage->handleCompleteLocal();
    EXPECT_EQ(stage->pendingEvent().size(), 1u);
    stage->pendingEventDel("early:fan");
    stage->handlePendingEvent();
    EXPECT_FALSE(stage->complete());

    stage->initializedIs(true);
    stage->handlePendingEvent();
    EXPECT_TRUE(stage->complete());
}

TEST(NotInitialized, AnInstanceStartsNothing) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    InstanceStatusSm* const instance = world.instance("boot");
    ASSERT_NE(instance, nullptr);

    instance->initializedIs(false);
    world.settle();
    instance->doNextStage();
    world.hold("early");
    world.instanceStatus("boot")->activeStageIs(world.stage("early"));
    EXPECT_EQ(world.stageSm("boot", "early"), nullptr);
    EXPECT_TRUE(instance->needRecalculateNextStage());

    instance->initializedIs(true);
    instance->handleActiveStage();
    EXPECT_NE(world.stageSm("boot", "early"), nullptr);
}

// --- an agent without this or that

class LoneAgent : public ::testing::Test {
  protected:
    Orv::VirtualTime time;
    Orv::Environment environment;
    Orv::ActivityManager manager{time, environment};
    Orv::ActivityScope scope{manager};
    Ptr<Orv::Dir> dir = make<Orv::Dir>("app");
    Ptr<Stage::AgentStatus> status = make<Stage::AgentStatus>("fan");
    Ptr<Stage::AgentStatusLocal> record = make<Stage::AgentStatusLocal>();
    const Stage::AgentStatusKey key{"fan", "early", "boot"};

    void registered() {
        dir->entryIs("fan", "Stage::AgentConfig");
        dir->entityPtr<Stage::AgentConfig>("fan")->eventIs("early", "fan");
    }
};

using LoneAgentDeathTest = LoneAgent;

TEST_F(LoneAgent, WithoutARecordItsReportsAreDropped) {
    registered();
    const auto agent = Stage::agentStatusSmFactory(dir, status, nullptr);

    status->completeIs(key, true);
    status->completeDel(key);

    EXPECT_FALSE(agent->retired());
}

TEST_F(LoneAgent, WithoutAStatusItHasNoNameAndItsReportsCountAsWithdrawn) {
    registered();
    status->completeIs(key, true);
    const auto agent = Stage::agentStatusSmFactory(dir, status, record);
    ASSERT_TRUE(record->complete(key));
    EXPECT_EQ(agent->agentName(), "fan");

    agent->agentStatusIs(nullptr);
    EXPECT_EQ(agent->agentName(), "");
    EXPECT_TRUE(record->complete(key)) << "by itself, it looks at nothing";

    agent->handleComplete(key);
    EXPECT_FALSE(record->complete().contains(key));
    agent->handleStageRequest("early");
    EXPECT_NE(dir->entityPtr<Stage::AgentConfig>("fan")->event("early"), nullptr);
}

TEST_F(LoneAgent, AnotherStatusIsLookedAtAtOnce) {
    registered();
    const auto agent = Stage::agentStatusSmFactory(dir, status, record);
    const auto other = make<Stage::AgentStatus>("fan");
    other->completeIs(key, true);
    other->stageRequestIs("late", {"fan", "late", 30});

    agent->agentStatusIs(other);

    EXPECT_EQ(agent->agentStatus(), other);
    EXPECT_TRUE(record->complete(key));
    EXPECT_NE(dir->entityPtr<Stage::AgentConfig>("fan")->event("late"), nullptr);

    record->completeDel(key);
    agent->agentStatusIs(other);
    EXPECT_FALSE(record->complete(key)) << "the same status is not looked at again";
}

TEST_F(LoneAgent, WhoRetiresItWhileItRegistersHasItsReportsLeftAlone) {
    class Retiring final : public Orv::Dir::NotifieeConst {
      public:
        explicit Retiring(const Ptr<Orv::Dir>& dir) { notifierIs(dir); }
        Ptr<AgentStatusSm> agent;
        void onEntityPtr(Orv::Name) override { agent->retire(); }
    };
    const auto agent = Stage::agentStatusSmFactory(dir, status, record);
    Retiring retiring(dir);
    retiring.agent = agent;
    const auto other = make<Stage::AgentStatus>("fan");
    other->completeIs(key, true);
    other->stageRequestIs("early", {"fan", "early", 30});

    agent->agentStatusIs(other);

    EXPECT_TRUE(agent->retired());
    EXPECT_FALSE(record->complete(key));
    EXPECT_EQ(dir->entityPtr<Stage::AgentConfig>("fan")->event("early"), nullptr);
    agent->handleStageRequest("early");
    agent->handleComplete(key);
    EXPECT_FALSE(record->complete(key));
}

TEST(AgentWithoutRegistration, HasNothingToWithdraw) {
    World world;
    world.agent("fan").request("early").leave();
    ASSERT_EQ(world.agent("fan").config(), nullptr);

    world.agent("fan").withdrawRequest("early");

    EXPECT_THAT(world.inputDir()->entries(), IsEmpty());
    EXPECT_NE(world.configSm()->agentStatusSm().find("fan"), nullptr);
}

TEST_F(LoneAgent, WhileItIsMadeItIsWantedUntilItsStatusGoes) {
    const Maker maker;
    const auto agent = Stage::agentStatusSmFactory(dir, status, record, &maker);
    EXPECT_FALSE(agent->retired());

    dir->entryIs(status);
    dir->entryDel("fan");
    EXPECT_TRUE(agent->retired());

    agent->agentStatusIs(nullptr);
    EXPECT_FALSE(agent->retired()) << "without a status there is none that could go";
}

TEST_F(LoneAgentDeathTest, ItIsMadeFromAStatus) {
    EXPECT_DEATH(Stage::agentStatusSmFactory(dir, nullptr, record),
                 "Assertion failed: agentStatus\\(\\)");
}

TEST_F(LoneAgentDeathTest, WithoutADirectoryARequestCannotBeMet) {
    status->stageRequestIs("early", {"fan", "early", 30});

    EXPECT_DEATH(Stage::agentStatusSmFactory(nullptr, status, record), "Assertion failed: ac");
}

// --- callbacks that nobody took over

template <class E>
struct Idle final : E::NotifieeConst {
    using E::NotifieeConst::NotifieeConst;
};

TEST(CallbacksNotTakenOver, OfTheClassDirectoryDoNothing) {
    const auto classes = make<Stage::AvailableStageSubPaths>();
    Idle<Stage::AvailableStageSubPaths> idle;
    idle.notifierIs(classes);

    classes->stageSubPathIs("app", true);
    idle.onStageSubPath();
    idle.onStageSubPath(Orv::Immediate());
    EXPECT_TRUE(classes->stageSubPath().contains("app"));

    classes->stageSubPathDel("net");
    EXPECT_EQ(classes->stageSubPath().size(), 1u);
    classes->stageSubPathDel("app");
    EXPECT_THAT(classes->stageSubPath(), IsEmpty());
    EXPECT_TRUE(idle.isRegisteredNotifiee());
}

TEST(CallbacksNotTakenOver, OfPathsDoNothing) {
    Stage::registerTypes();
    const auto dir = make<Orv::Dir>();
    dir->entryIs("paths", "Stage::AvailablePaths");
    const auto paths = dir->entityPtr<Stage::AvailablePaths>("paths");
    ASSERT_NE(paths, nullptr);
    Idle<Stage::AvailablePaths> idle;
    idle.notifierIs(paths);

    paths->pathIs("stage", true);
    idle.onPath();
    idle.onPath(Orv::Immediate());

    EXPECT_TRUE(paths->paths().contains("stage"));
    EXPECT_TRUE(idle.isRegisteredNotifiee());
}

TEST(CallbacksNotTakenOver, OfAStageDoNothing) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.settle();
    Idle<StageSm> idle;
    idle.notifierIs(Ptr<StageSm>(world.stageSm("boot", "early")));

    world.stageSm("boot", "early")->initializedIs(false);
    world.stageSm("boot", "early")->initializedIs(false);
    world.stageSm("boot", "early")->initializedIs(true);
    world.advance(30);

    EXPECT_TRUE(world.stageSm("boot", "early")->timedOut());
    EXPECT_THAT(world.errors(), IsEmpty());
    EXPECT_TRUE(idle.isRegisteredNotifiee());
}

}  // namespace
