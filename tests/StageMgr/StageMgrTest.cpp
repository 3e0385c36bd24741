// The root of one stage class.
#include "StageMgr/StageMgr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;

using Orv::Ptr;

struct StageMgrTest : ::testing::Test {
    World world{System::Manager::waits};
    Ptr<Stage::StageMgr> manager = Stage::stageMgrFactory("app");

    Ptr<Stage::ConfigSm> configSmIs() {
        return manager->configSmIs(world.config(), world.status(), world.inputDir(),
                                   world.agentStatusDir(), manager->agentStatusLocal());
    }
    Ptr<Stage::StatusSm> statusSmIs() {
        return manager->statusSmIs(world.config(), world.enabledConfig(), world.status(),
                                   world.completionStatusDir(), world.progressDir(), world.logs(),
                                   world.globalConfig(), world.fatalError(),
                                   manager->agentStatusLocal());
    }
};

TEST_F(StageMgrTest, AFreshOneHasARecordOfCompletionsAndNeitherSide) {
    EXPECT_NE(manager->agentStatusLocal(), nullptr);
    EXPECT_EQ(manager->configSm(), nullptr);
    EXPECT_EQ(manager->statusSm(), nullptr);
    EXPECT_TRUE(manager->initialized());
    EXPECT_EQ(manager->name(), "app");
}

TEST_F(StageMgrTest, ItsInitializationIsTracedAtLevel8) {
    world.trace(8);

    const auto fresh = Stage::stageMgrFactory("other");

    ASSERT_EQ(world.traced().size(), 1u);
    EXPECT_EQ(world.traced()[0].level, 8);
    EXPECT_EQ(world.traced()[0].unit, "StageMgr");
    EXPECT_EQ(world.traced()[0].handler, "handleInitialized");
    EXPECT_EQ(world.traced()[0].signature, "void Stage::StageMgr::handleInitialized()");
}

TEST_F(StageMgrTest, WiringStoresWhatItMakes) {
    const Ptr<Stage::ConfigSm> configSm = configSmIs();
    EXPECT_EQ(manager->configSm(), configSm);
    EXPECT_EQ(manager->statusSm(), nullptr);

    const Ptr<Stage::StatusSm> statusSm = statusSmIs();
    EXPECT_EQ(manager->configSm(), configSm);
    EXPECT_EQ(manager->statusSm(), statusSm);
}

TEST_F(StageMgrTest, WiringTwiceWithTheSameArgumentsKeepsBothSides) {
    const Ptr<Stage::ConfigSm> configSm = configSmIs();
    const Ptr<Stage::StatusSm> statusSm = statusSmIs();

    EXPECT_EQ(configSmIs(), configSm);
    EXPECT_EQ(statusSmIs(), statusSm);
    EXPECT_EQ(manager->configSm(), configSm);
    EXPECT_EQ(manager->statusSm(), statusSm);
    EXPECT_FALSE(configSm->retired());
    EXPECT_FALSE(statusSm->retired());
}

TEST_F(StageMgrTest, TheDirectoryReactorMakesTheRecordThenTheConfigurationSideThenTheStatusSide) {
    world.trace(8);

    world.start();

    Lines made;
    for (const TraceLine& line : world.traced())
        if (line.handler == "handleInitialized" && line.unit == "StageMgr")
            made.push_back(line.signature);
    EXPECT_THAT(made, ElementsAre("void Stage::StageMgr::handleInitialized()",
                                  "void Stage::ConfigSm::handleInitialized()",
                                  "void Stage::StatusSm::handleInitialized()"));
    EXPECT_EQ(world.configSm()->config(), world.config());
    EXPECT_EQ(world.configSm()->status(), world.status());
    EXPECT_EQ(world.configSm()->agentDir(), world.inputDir());
    EXPECT_EQ(world.configSm()->arguments(),
              std::tuple(Ptr<const Stage::Config>(world.config()), world.status(), world.inputDir(),
                         Ptr<const Orv::Dir>(world.agentStatusDir()), world.agentStatusLocal()));
    EXPECT_EQ(world.statusSm()->arguments(),
              std::tuple(Ptr<const Stage::Config>(world.config()),
                         Ptr<const Stage::EnabledConfig>(world.enabledConfig()), world.status(),
                         world.completionStatusDir(), world.progressDir(), world.logs(),
                         Ptr<const Stage::StageGlobalConfig>(world.globalConfig()),
                         world.fatalError(), world.agentStatusLocal()));
}

TEST_F(StageMgrTest, ASideCanBeDropped) {
    const Ptr<Stage::ConfigSm> configSm = configSmIs();
    const Ptr<Stage::StatusSm> statusSm = statusSmIs();

    manager->configSmDel();
    EXPECT_EQ(manager->configSm(), nullptr);
    EXPECT_TRUE(configSm->retired());
    EXPECT_EQ(manager->statusSm(), statusSm);
    manager->statusSmDel();
    EXPECT_EQ(manager->statusSm(), nullptr);
    EXPECT_TRUE(statusSm->retired());
    manager->configSmDel();
    manager->statusSmDel();
}

TEST_F(StageMgrTest, ItsRecordIsMadeAnewEachTime) {
    const Ptr<Stage::AgentStatusLocal> before = manager->agentStatusLocal();
    before->completeIs({"fan", "early", "boot"}, true);

    manager->agentStatusLocalIs();

    EXPECT_NE(manager->agentStatusLocal(), before);
    EXPECT_TRUE(manager->agentStatusLocal()->complete().empty());
    EXPECT_EQ(manager->agentStatusLocal()->path(), manager->path().str() + "/agentStatusLocal");
    manager->agentStatusLocalDel();
    EXPECT_EQ(manager->agentStatusLocal(), nullptr);
}

TEST_F(StageMgrTest, ABackupGivesItAnotherName) {
    manager->nameIsFromBackup("other");
    EXPECT_EQ(manager->name(), "other");

    manager->nameIsFromBackup(manager->name());
    EXPECT_EQ(manager->name(), "other");
}

TEST_F(StageMgrTest, ItCanBeMadeAsADirectoryEntryByItsTypesName) {
    const Ptr<Orv::Entity> entry = world.root()->entryIs("made", "Stage::StageMgr");

    const Ptr<Stage::StageMgr> made = world.root()->entityPtr<Stage::StageMgr>("made");
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(entry, made.get());
    EXPECT_EQ(made->name(), "made");
    EXPECT_NE(made->agentStatusLocal(), nullptr);
    EXPECT_EQ(made->agentStatusLocal()->path(), "/made/agentStatusLocal");
}

TEST_F(StageMgrTest, WhatItOwnsGoesWithIt) {
    const Ptr<Stage::ConfigSm> configSm = configSmIs();
    const Ptr<Stage::StatusSm> statusSm = statusSmIs();
    const Ptr<Stage::AgentStatusLocal> record = manager->agentStatusLocal();

    manager = nullptr;

    EXPECT_TRUE(configSm->retired());
    EXPECT_TRUE(statusSm->retired());
    EXPECT_EQ(record->parent(), nullptr);
}

}  // namespace
