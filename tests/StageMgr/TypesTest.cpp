// What the registry knows about the manager's types.
#include "StageMgr/Types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "StageMgr/AvailablePaths.h"
#include "runtime/Type.h"
#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

using Orv::Attribute;
using Orv::Value;

Lines registered() {
    Lines names;
    for (const Orv::TypeInfo* const type : Orv::TypeRegistry::instance().types())
        names.push_back(type->name());
    return names;
}

Lines attributes(const char* type) {
    Lines names;
    for (const auto& attribute : Orv::TypeRegistry::instance().type(type)->attributes())
        names.push_back(attribute->name());
    return names;
}

TEST(Types, ReactorsAreRegisteredInOrderTheClassDirectorysUnitLast) {
    // Before the library's entry point is called: the loader has done it.
    Lines names = registered();

    const auto first = std::find(names.begin(), names.end(), "Stage::StageSm");
    ASSERT_GE(names.end() - first, 13);
    EXPECT_THAT(Lines(first, first + 13),
                ElementsAre("Stage::StageSm", "Stage::LogSm", "Stage::AutoCompleteSm",
                            "Stage::InstanceStatusSm", "Stage::StageEnableSm", "Stage::StatusSm",
                            "Stage::StageMgr", "Stage::AgentStatusSm", "Stage::ConfigSm",
                            "Stage::AvailableStageSubPaths", "Stage::StageMgrStageClassDirSm",
                            "Stage::StageSubPathSm", "Stage::AvailablePaths"));
}

TEST(Types, RegisteringAgainChangesNothing) {
    const Lines before = registered();

    Stage::registerTypes();

    EXPECT_EQ(registered(), before);
}

TEST(Types, EveryReactorShowsItsAttributes) {
    EXPECT_THAT(
        attributes("Stage::StageMgrStageClassDirSm"),
        UnorderedElementsAre("stageDir", "stageInputDir", "stageAgentStatusDir",
                             "stageEnableConfigDir", "stageGlobalConfig", "fatalErrorRequest",
                             "availableStageSubPath", "stageSubPathSm", "stageMgr", "initialized"));
    EXPECT_THAT(
        attributes("Stage::StageSubPathSm"),
        UnorderedElementsAre("name", "stageClassDir", "availableStageSubPath", "initialized"));
    EXPECT_THAT(attributes("Stage::AvailableStageSubPaths"), ElementsAre("stageSubPath"));
    EXPECT_THAT(attributes("Stage::AvailablePaths"), ElementsAre("path"));
    EXPECT_THAT(
        attributes("Stage::StageMgr"),
        UnorderedElementsAre("name", "configSm", "statusSm", "agentStatusLocal", "initialized"));
    EXPECT_THAT(
        attributes("Stage::ConfigSm"),
        UnorderedElementsAre("config", "status", "agentDir", "agentStatusDir", "agentStatusSm",
                             "agentStatusLocal", "agentConfig", "stageStatus", "initialized"));
    EXPECT_THAT(
        attributes("Stage::AgentStatusSm"),
        UnorderedElementsAre("agentConfigDir", "agentStatus", "agentStatusLocal", "initialized"));
    EXPECT_THAT(attributes("Stage::StatusSm"),
                UnorderedElementsAre("config", "enabledConfig", "status", "completionStatusDir",
                                     "progressDir", "log", "stageGlobalConfig", "fatalErrorRequest",
                                     "agentStatusLocal", "instStatusSm", "initialized"));
    EXPECT_THAT(attributes("Stage::InstanceStatusSm"),
                UnorderedElementsAre("config", "enabledConfig", "status", "completionStatus",
                                     "progress", "log", "stageGlobalConfig", "fatalErrorRequest",
                                     "instanceStatus", "agentStatusLocal", "logSm", "stageEnableSm",
                                     "stageSm", "needRecalculateNextStage", "recalculateNextStage",
                                     "globalStageClock", "initialized"));
    EXPECT_THAT(attributes("Stage::StageEnableSm"), UnorderedElementsAre("stage", "mainSm"));
    EXPECT_THAT(
        attributes("Stage::StageSm"),
        UnorderedElementsAre("stage", "instanceName", "logSm", "agentStatusLocal", "complete",
                             "timedOut", "completionTime", "autoCompleteSm", "pendingEvent",
                             "event", "stageUncompleted", "initialized", "mainSm"));
    EXPECT_THAT(attributes("Stage::AutoCompleteSm"),
                UnorderedElementsAre("clock", "eventConfig", "logSm", "instanceName",
                                     "agentStatusLocal", "initialized"));
    EXPECT_THAT(attributes("Stage::LogSm"), UnorderedElementsAre("log", "instanceName"));
}

TEST(Types, OnlyWhatIsAnEntityCanBeADirectoryEntry) {
    const auto canBeMade = [](const char* type) {
        return Orv::TypeRegistry::instance().type(type)->maker() != nullptr;
    };
    EXPECT_TRUE(canBeMade("Stage::StageMgr"));
    EXPECT_TRUE(canBeMade("Stage::AvailablePaths"));
    for (const char* const reactor :
         {"Stage::StageSm", "Stage::LogSm", "Stage::AutoCompleteSm", "Stage::InstanceStatusSm",
          "Stage::StageEnableSm", "Stage::StatusSm", "Stage::AgentStatusSm", "Stage::ConfigSm",
          "Stage::StageMgrStageClassDirSm", "Stage::StageSubPathSm"})
        EXPECT_FALSE(canBeMade(reactor)) << reactor;
}

// Reads every attribute of the object and of what it owns; refuses to write any of a reactor's.
void readAll(const Orv::PtrInterface& object, std::map<std::string, int>& seen) {
    ASSERT_NE(object.typeInfo(), nullptr);
    ++seen[object.typeInfo()->name()];
    auto& writable = const_cast<Orv::PtrInterface&>(object);
    const bool reactor = dynamic_cast<const Orv::Reactor*>(&object) != nullptr;
    for (const auto& attribute : object.typeInfo()->attributes()) {
        if (attribute->shape() == Attribute::Shape::queue) {
            attribute->keys(object);
            continue;
        }
        if (!attribute->keyed()) {
            const Value value = attribute->value(object);
            if (reactor) {
                EXPECT_THROW(attribute->valueIs(writable, value), Orv::ReflectionError)
                    << attribute->name();
            }
            if (attribute->shape() == Attribute::Shape::child && *value.reference())
                readAll(**value.reference(), seen);
            continue;
        }
        for (const Value& key : attribute->keys(object)) {
            const Value member = attribute->member(object, key);
            EXPECT_FALSE(member.absent());
            if (reactor) {
                EXPECT_THROW(attribute->memberIs(writable, key, member), Orv::ReflectionError);
                EXPECT_THROW(attribute->memberDel(writable, key), Orv::ReflectionError);
            }
            if (attribute->shape() == Attribute::Shape::children) {
                const auto* const child = member.reference();
                if ((*child)->typeInfo() != nullptr) readAll(**child, seen);
            }
        }
    }
}

TEST(Types, ARunningManagerIsReadByNameFromItsTopToItsLeaves) {
    World world;
    world.agent("fan").event("early", {.autoComplete = 30});
    world.agent("disk").event("late", {.critical = true, .dependsOn = {"early"}});
    world.agent("fan").report("other", "boot");
    world.enable("boot");
    world.settle();

    std::map<std::string, int> seen;
    readAll(*world.manager(), seen);

    EXPECT_EQ(seen["Stage::StageMgrStageClassDirSm"], 1);
    EXPECT_EQ(seen["Stage::AvailableStageSubPaths"], 1);
    EXPECT_EQ(seen["Stage::StageMgr"], 1);
    EXPECT_EQ(seen["Stage::AgentStatusLocal"], 1);
    EXPECT_EQ(seen["Stage::ConfigSm"], 1);
    EXPECT_EQ(seen["Stage::AgentStatusSm"], 1);
    EXPECT_EQ(seen["Stage::ConfigSm::OrvStageStatus"], 2);
    EXPECT_EQ(seen["Stage::StatusSm"], 1);
    EXPECT_EQ(seen["Stage::InstanceStatusSm"], 1);
    EXPECT_EQ(seen["Stage::LogSm"], 1);
    EXPECT_EQ(seen["Stage::StageSm"], 1);
    EXPECT_EQ(seen["Stage::AutoCompleteSm"], 1);
    EXPECT_EQ(seen["Stage::StageEnableSm"], 1);
}

TEST(Types, AWatcherIsReadByName) {
    System machine;
    machine.inputDir()->subdirIs("boot");
    machine.agentStatusDir()->subdirIs("boot");
    machine.enableDir()->entryIs("boot", "Stage::EnabledConfig");
    machine.stageDir()->subdirIs("boot");

    std::map<std::string, int> seen;
    readAll(*machine.manager(), seen);

    EXPECT_EQ(seen["Stage::StageSubPathSm"], 1);
    EXPECT_EQ(Stage::StageSubPathSm::type().attribute("name")->value(
                  *machine.manager()->stageSubPathSm().find("boot")),
              Value("boot"));
}

TEST(Types, ACollectionOfPathsIsWrittenByName) {
    const auto paths = Orv::make<Stage::AvailablePaths>("paths");
    const Attribute& path = *Stage::AvailablePaths::type().attribute("path");

    path.memberIs(*paths, "/stage/boot", true);
    EXPECT_TRUE(paths->paths().value("/stage/boot"));
    path.memberDel(*paths, "/stage/boot");
    EXPECT_TRUE(paths->paths().empty());
    paths->pathIs("/a", true);
    paths->pathIs("/b", false);
    paths->pathDelAll();
    EXPECT_TRUE(paths->paths().empty());
}

// Counts what an entity of this library tells.
class OnPaths final : public Stage::AvailablePaths::NotifieeConst {
  public:
    Lines told;
    void onPath(Orv::String path) override { told.push_back(path.str()); }
};

TEST(Types, ACollectionOfPathsTellsOfEachChangeOnce) {
    const auto paths = Orv::make<Stage::AvailablePaths>("paths");
    OnPaths on;
    on.notifierIs(paths);

    paths->pathIs("/a", true);
    paths->pathIs("/a", true);
    paths->pathIs("/a", false);
    paths->pathDel("/a");
    paths->pathDel("/a");

    EXPECT_THAT(on.told, ElementsAre("/a", "/a", "/a"));
}

}  // namespace
