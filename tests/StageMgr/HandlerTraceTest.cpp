// The trace blocks with which handlers begin.
#include <gtest/gtest.h>

#include <algorithm>

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/StageSm.h"
#include "tests/support/World.h"

namespace {

using StageTest::Lines;
using StageTest::System;
using StageTest::TraceLine;
using StageTest::World;

struct Row {
    int level;
    const char* unit;
    const char* signature;  // up to its arguments' types
};

constexpr const char* stageMgr = "StageMgr";
constexpr const char* classDir = "StageMgrStageClassDirSm";

// What enables and disables instances is on level 4, what finds classes on 6, everything else on 8.
const Row rows[] = {
    {4, stageMgr, "Stage::StatusSm::handleInitialized()"},
    {4, stageMgr, "Stage::StatusSm::handleEnabled(Orv::String)"},

    {6, classDir, "Stage::StageMgrStageClassDirSm::handleInitialized()"},
    {6, classDir, "Stage::StageMgrStageClassDirSm::handleStage()"},
    {6, classDir, "Stage::StageMgrStageClassDirSm::handleStageInput()"},
    {6, classDir, "Stage::StageMgrStageClassDirSm::handleStageAgentStatus()"},
    {6, classDir, "Stage::StageMgrStageClassDirSm::handleStageEnableConfig()"},
    {6, classDir, "Stage::StageMgrStageClassDirSm::handleStageClass(Orv::Name)"},
    {6, classDir, "Stage::StageMgrStageClassDirSm::handleStageSubPath(Orv::Name)"},
    {6, classDir, "Stage::StageSubPathSm::handleInitialized()"},
    {6, classDir, "Stage::StageSubPathSm::handleStageClassDir()"},
    {6, classDir, "Stage::StageSubPathSm::handleStageClassDir(Orv::Name)"},

    {8, stageMgr, "Stage::StageMgr::handleInitialized()"},
    {8, stageMgr, "Stage::ConfigSm::handleInitialized()"},
    {8, stageMgr, "Stage::ConfigSm::handleAgent()"},
    {8, stageMgr, "Stage::ConfigSm::handleAgent(Orv::Name)"},
    {8, stageMgr, "Stage::ConfigSm::handleAgentStatus()"},
    {8, stageMgr, "Stage::ConfigSm::handleAgentStatus(Orv::Name)"},
    {8, stageMgr, "Stage::ConfigSm::handleStage(Orv::Name)"},
    {8, stageMgr, "Stage::ConfigSm::handleGlobalStageCompletionTimeout()"},
    {8, stageMgr, "Stage::ConfigSm::OrvAgentConfig::handleEvent()"},
    {8, stageMgr, "Stage::ConfigSm::OrvAgentConfig::handleEvent(Orv::Name)"},
    {8, stageMgr, "Stage::ConfigSm::OrvStageStatus::handleEventDel(Orv::String)"},
    {8, stageMgr, "Stage::ConfigSm::OrvStageStatus::handleDependency(Orv::String)"},
    {8, stageMgr, "Stage::ConfigSm::OrvStageStatus::handleDependencyDel(Orv::String)"},
    {8, stageMgr, "Stage::ConfigSm::OrvStageStatus::handleCritical()"},
    {8, stageMgr, "Stage::ConfigSm::OrvStageStatus::handleCritical(Orv::String)"},
    {8, stageMgr, "Stage::ConfigSm::OrvStageStatus::handleTimeout()"},
    {8, stageMgr, "Stage::ConfigSm::OrvStageStatus::handleStage(Orv::Name)"},
    {8, stageMgr, "Stage::ConfigSm::OrvEventConfig::handleDependency()"},
    {8, stageMgr, "Stage::ConfigSm::OrvEventConfig::handleDependency(Orv::String)"},
    {8, stageMgr, "Stage::ConfigSm::OrvEventConfig::handleTimeout()"},
    {8, stageMgr, "Stage::ConfigSm::OrvEventConfig::handleCritical()"},
    {8, stageMgr, "Stage::AgentStatusSm::handleInitialized()"},
    {8, stageMgr, "Stage::AgentStatusSm::handleStageRequest()"},
    {8, stageMgr, "Stage::AgentStatusSm::handleStageRequest(Orv::String)"},
    {8, stageMgr, "Stage::AgentStatusSm::handleComplete()"},
    {8, stageMgr, "Stage::AgentStatusSm::handleComplete(Stage::AgentStatusKey)"},
    {8, stageMgr, "Stage::InstanceStatusSm::handleInitialized()"},
    {8, stageMgr, "Stage::InstanceStatusSm::doNextStage()"},
    {8, stageMgr, "Stage::InstanceStatusSm::handleNextStage()"},
    {8, stageMgr, "Stage::InstanceStatusSm::handleActiveStage()"},
    {8, stageMgr, "Stage::InstanceStatusSm::handleActiveStage(Orv::Name)"},
    {8, stageMgr, "Stage::InstanceStatusSm::handleGlobalStageClock()"},
    {8, stageMgr, "Stage::InstanceStatusSm::handleDoNotStartStage(Stage::StageInfo)"},
    {8, stageMgr, "Stage::StageEnableSm::handleCritical()"},
    {8, stageMgr, "Stage::StageEnableSm::handleDependencyDel(Orv::String)"},
    {8, stageMgr, "Stage::StageSm::handleInitialized()"},
    {8, stageMgr, "Stage::StageSm::OrvEvent::handleComplete()"},
    {8, stageMgr, "Stage::StageSm::OrvEvent::handleComplete(Orv::String)"},
    {8, stageMgr, "Stage::StageSm::handleEventDel(Orv::String)"},
    {8, stageMgr, "Stage::StageSm::handlePendingEvent()"},
    {8, stageMgr, "Stage::StageSm::handlePendingEvent(Orv::String)"},
    {8, stageMgr, "Stage::StageSm::handleCompleteLocal()"},
    {8, stageMgr, "Stage::StageSm::handleCompleteLocal(Stage::AgentStatusKey)"},
    {8, stageMgr, "Stage::StageSm::handleStageUncompleted()"},
    {8, stageMgr, "Stage::handleEventStart(Stage::StageSm&, Orv::Ptr<Stage::EventConfig>)"},
    {8, stageMgr, "Stage::handleEventComplete(Stage::StageSm&, Orv::Ptr<Stage::EventConfig>)"},
    {8, stageMgr, "Stage::AutoCompleteSm::handleInitialized()"},
    {8, stageMgr, "Stage::AutoCompleteSm::handleTimeout()"},
};

// Compilers write the types of arguments with blanks here and there, and leave out namespaces.
std::string bare(std::string signature) {
    std::erase(signature, ' ');
    for (const std::string space : {"Stage::", "Orv::"})
        for (std::size_t at; (at = signature.find(space)) != std::string::npos;)
            signature.erase(at, space.size());
    return signature;
}

// A story in which every handler is entered.
void tell(World& world) {
    world.agent("fan").event("early", {.timeout = 30, .critical = true, .autoComplete = 60});
    world.agent("disk").event("late", {.timeout = 30, .dependsOn = {"early", "never"}});
    world.agent("fan").request("early", 30).report("early", "other");
    world.enable("boot");
    world.start();
    world.config()->globalStageCompletionTimeoutIs(600);
    world.advance(30);
    world.hold("other");
    world.agent("disk").registered("late")->dependencyDel("never");
    world.agent("disk").registered("late")->criticalIs(true);
    world.agent("fan").report("early", "boot");
    world.settle();
    world.agent("fan").withdraw("early");
    world.disable("boot");
}

TEST(HandlerTrace, EveryHandlerBeginsWithItsLevelItsUnitAndItsSignature) {
    World world("switchover", {}, System::Manager::waits);
    world.trace(9);

    tell(world);

    for (const Row& row : rows) {
        SCOPED_TRACE(row.signature);
        const TraceLine* entry = nullptr;
        for (const TraceLine& line : world.traced())
            if (bare(line.signature) == "void" + bare(row.signature)) {
                entry = &line;
                break;
            }
        ASSERT_NE(entry, nullptr) << "it was never entered";
        EXPECT_EQ(entry->level, row.level);
        EXPECT_EQ(entry->unit, row.unit);
    }
}

TEST(HandlerTrace, NoHandlerIsMissingAbove) {
    World world("switchover", {}, System::Manager::waits);
    world.trace(9);

    tell(world);

    for (const TraceLine& line : world.traced()) {
        if (!line.handler.starts_with("handle") && line.handler != "doNextStage") continue;
        const bool listed = std::any_of(std::begin(rows), std::end(rows), [&](const Row& row) {
            return bare(line.signature) == "void" + bare(row.signature);
        });
        // The stage's own notifiee callbacks have no fixed names.
        const bool callback = line.signature.find("StageSm::handleEvent(") != std::string::npos;
        EXPECT_TRUE(listed || callback) << line.signature;
    }
}

// What is decided is on level 7, what is looked at on the way on level 9.
TEST(HandlerTrace, DecisionsAreOnLevelSevenAndDetailOnLevelNine) {
    World world("app", {}, System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("disk").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.trace(9);

    world.start();
    world.settle();
    world.agent("fan").withdraw("early");

    EXPECT_EQ(world.traced(7),
              Lines({"Adding stage early to status.", "Adding event fan to stage early",
                     "Adding stage late to status.", "Adding event disk to stage late",
                     "Activating stage early instanceName boot",
                     " Inactive stages? 1 IncompleteActiveStages? 0 instanceName boot",
                     "Deleting fan from early", "stage early is complete"}));
    EXPECT_EQ(world.traced(9, "early means late"),
              Lines({"Incomplete dependency early means late is unready, instanceName boot"}));
}

}  // namespace
