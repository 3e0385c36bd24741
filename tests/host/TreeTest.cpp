#include "host/Tree.h"

#include <gtest/gtest.h>

#include "host/Inputs.h"
#include "host/JsonLines.h"
#include "host/Replay.h"
#include "runtime/ActivityManager.h"
#include "tests/host/Journals.h"

namespace Host {
namespace {

// A tree after some inputs, with nothing watching.
class TreeTest : public testing::Test {
  protected:
    void apply(const Lines& lines) {
        for (const std::string& line : lines) run.apply(parseInput(line, run.time()));
    }
    const Orv::PtrInterface* find(std::string_view path) const {
        return run.tree().find(path).get();
    }
    std::string typeAt(std::string_view path) const {
        const auto object = run.tree().find(path);
        return object ? object->typeInfo()->name() : "nothing";
    }

    View view;
    Replay run{view};
};

TEST_F(TreeTest, HoldsWhatTheHostMakes) {
    for (const char* path : {"/stage", "/input", "/agentstatus", "/enable"})
        EXPECT_EQ(typeAt(path), "Orv::Dir");
    EXPECT_EQ(typeAt("/global"), "Stage::StageGlobalConfig");
    EXPECT_EQ(typeAt("/fatalerror"), "Stage::FatalError");
    EXPECT_EQ(typeAt("/sm"), "Stage::StageMgrStageClassDirSm");
}

TEST_F(TreeTest, FindsEntriesAndMembers) {
    apply(bootClass() + agent("disk", "mount", 5));

    EXPECT_EQ(typeAt("/stage/boot/config/config"), "Stage::Config");
    EXPECT_EQ(typeAt("/input/boot/disk"), "Stage::AgentConfig");
    EXPECT_EQ(typeAt("/input/boot/disk/event/mount"), "Stage::EventConfig");
    EXPECT_EQ(typeAt("/stage/boot/status/stage/mount"), "Stage::StageStatus");
}

TEST_F(TreeTest, FindsReactorsByTheirAttributes) {
    apply(bootClass() + agent("disk", "mount", 5) + enable("main") + R"({"op":"settle"})");

    EXPECT_EQ(typeAt("/sm/stageMgr/boot"), "Stage::StageMgr");
    EXPECT_EQ(typeAt("/sm/stageMgr/boot/agentStatusLocal"), "Stage::AgentStatusLocal");
    EXPECT_EQ(typeAt("/sm/stageMgr/boot/configSm/stageStatus/mount"),
              "Stage::ConfigSm::OrvStageStatus");
    EXPECT_EQ(typeAt("/sm/stageMgr/boot/statusSm/instStatusSm/main/stageSm/mount"),
              "Stage::StageSm");
    EXPECT_EQ(find("/sm/stageMgr/boot/statusSm/instStatusSm/other"), nullptr);
}

TEST_F(TreeTest, FindsNothingWhereNothingStands) {
    apply(bootClass());

    for (const char* path : {"/", "/x", "/stage/x", "/stage/boot/status/stage", "/stage/boot/x/y",
                             "/stage/boot/status/stage/x", "/stage/boot/status/sorted",
                             "/stage/boot/status/instStatus/a/b", "/global/x", "/sm/x",
                             "/sm/stageMgr", "/sm/initialized"})
        EXPECT_EQ(find(path), nullptr) << path;
}

TEST_F(TreeTest, NamesWithSlashesAndTildesAreEscapedInPaths) {
    apply({create("/stage/a~1b~0c", "Orv::Dir")});

    EXPECT_TRUE(run.tree().stageDir()->entityPtr<Orv::Dir>("a/b~c"));
    EXPECT_EQ(find("/stage/a~1b~0c")->path(), "/stage/a~1b~0c");
    EXPECT_EQ(pathName("a/b~c"), "a~1b~0c");
    EXPECT_EQ(pathNames("/a~1b~0c//"), (std::vector<Orv::Name>{"a/b~c", "", ""}));
}

TEST_F(TreeTest, WhatCannotBeAPathIsRefused) {
    for (const char* path : {"", "stage", "x/y", "/~", "/a~2b", "/a~"})
        EXPECT_THROW(find(path), PathError) << path;
    std::string deep;
    for (int i = 0; i < 64; ++i) deep += "/x";
    EXPECT_EQ(find(deep), nullptr);
    EXPECT_THROW(find(deep + "/x"), PathError);
}

TEST_F(TreeTest, ReactorsAreNotForWriting) {
    apply(bootClass());

    EXPECT_NE(find("/sm/stageMgr/boot/agentStatusLocal"), nullptr);
    EXPECT_THROW(run.tree().entity("/sm/stageMgr/boot/agentStatusLocal"), PathError);
    EXPECT_THROW(run.tree().place("/sm/stageMgr/x"), PathError);
    EXPECT_THROW(run.tree().place("/sm"), PathError);
    EXPECT_THROW(run.tree().entry("/sm/stageMgr/boot"), PathError);
}

TEST_F(TreeTest, AnEntityThatLeftIsNotMistakenForTheOneInItsPlace) {
    apply(bootClass() + agent("disk", "mount", 5));
    apply({R"({"op":"set","path":"/input/boot/disk","attr":"createdOnStageRequest","value":true})",
           R"({"op":"delete","path":"/input/boot"})", create("/input/boot", "Orv::Dir"),
           create("/input/boot/disk", "Stage::AgentConfig"),
           R"({"op":"set","path":"/input/boot/disk","attr":"event","key":"new"})"});

    EXPECT_EQ(typeAt("/input/boot/disk/event/new"), "Stage::EventConfig");
    EXPECT_EQ(typeAt("/input/boot/disk/event/mount"), "nothing");
}

TEST(TreeTests, AManagerCanBeDroppedAndMadeAnewOnTheSameEntities) {
    Orv::ActivityManager activities;
    const Orv::ActivityScope scope(activities);
    Tree tree;
    View view;
    FeedObserver observer(view);
    Inputs inputs(tree, observer);
    for (const std::string& line : bootClass() + agent("disk", "mount", 5))
        inputs.apply(parseInput(line, 0));
    EXPECT_TRUE(tree.find("/sm/stageMgr/boot"));

    tree.stop();
    EXPECT_FALSE(tree.find("/sm"));
    EXPECT_FALSE(tree.find("/sm/stageMgr/boot"));
    EXPECT_TRUE(tree.find("/stage/boot/status/stage/mount"));

    tree.start();
    EXPECT_TRUE(tree.find("/sm/stageMgr/boot"));
    const Orv::Ptr<Orv::PtrInterface> manager = tree.manager();
    tree.start();
    EXPECT_EQ(tree.manager(), manager) << "there is one already";
}

TEST(TreeTests, ReleasesEntitiesThatReferToADirectoryAboveThemselves) {
    Orv::ActivityManager activities;
    const Orv::ActivityScope scope(activities);
    Orv::Ptr<Orv::Dir> stages;
    {
        Tree tree;
        stages = tree.stageDir();
        View view;
        FeedObserver observer(view);
        Inputs inputs(tree, observer);
        for (
            const std::string& line :
            bootClass() +
                R"({"op":"set","path":"/stage/boot/config/config","attr":"agentDir","value":"/stage"})")
            inputs.apply(parseInput(line, 0));
    }
    EXPECT_TRUE(stages->entries().empty());
    EXPECT_EQ(stages->references(), 1u);
}

}  // namespace
}  // namespace Host
