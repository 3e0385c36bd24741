// The watcher of one class's own entries.
#include "StageMgr/StageSubPathSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Orv::Dir;
using Orv::Ptr;

struct SubPath : ::testing::Test {
    System system{System::Manager::waits};
    Ptr<Dir> dir = system.stageDir()->subdirIs("boot");
    Ptr<Stage::AvailableStageSubPaths> published = Orv::make<Stage::AvailableStageSubPaths>();

    void allBut(const std::string& missing) {
        if (missing != "config") dir->subdirIs("config");
        const std::pair<const char*, const char*> entries[] = {
            {"status", "Stage::Status"},
            {"completionstatus", "Stage::CompletionStatusDir"},
            {"progress", "Stage::ProgressDir"},
            {"log", "Stage::Log"}};
        for (const auto& [name, type] : entries)
            if (missing != name) dir->entryIs(name, type);
    }
};

TEST_F(SubPath, PublishesTheClassWithinItsConstructionWhenAllIsThere) {
    allBut("");

    const auto watcher = Stage::stageSubPathSmFactory("boot", dir, published);

    EXPECT_TRUE(watcher->initialized());
    EXPECT_EQ(watcher->name(), "boot");
    EXPECT_TRUE(published->stageSubPath().value("boot"));
}

TEST_F(SubPath, DoesNotPublishWhileAnyEntryIsMissing) {
    for (const char* const missing : {"config", "status", "completionstatus", "progress", "log"}) {
        const Ptr<Dir> fresh = system.stageDir()->subdirIs(std::string("boot") + missing);
        dir = fresh;
        allBut(missing);
        const auto watcher = Stage::stageSubPathSmFactory("boot", dir, published);

        EXPECT_THAT(published->stageSubPath().size(), 0u) << missing;
    }
}

TEST_F(SubPath, PublishesWhenTheLastEntryComes) {
    const auto watcher = Stage::stageSubPathSmFactory("boot", dir, published);
    allBut("log");
    ASSERT_FALSE(published->stageSubPath().contains("boot"));

    dir->entryIs("log", "Stage::Log");

    EXPECT_TRUE(published->stageSubPath().value("boot"));
}

TEST_F(SubPath, LooksOnceAtEachEntryThatIsThere) {
    dir->entryIs("status", "Stage::Status");
    dir->entryIs("log", "Stage::Log");
    system.trace(6);

    const auto watcher = Stage::stageSubPathSmFactory("boot", dir, published);

    EXPECT_THAT(system.traced(6, "Orv::Dir name"),
                ElementsAre(" Orv::Dir name: status", " Orv::Dir name: log"));
}

TEST_F(SubPath, DoesNotAskWhetherTheConfigIsInItsDirectory) {
    allBut("");
    ASSERT_TRUE(dir->entityPtr<Dir>("config")->entries().empty());

    const auto watcher = Stage::stageSubPathSmFactory("boot", dir, published);

    EXPECT_TRUE(published->stageSubPath().value("boot"));
}

TEST_F(SubPath, NeverWithdrawsWhatItPublished) {
    allBut("");
    const auto watcher = Stage::stageSubPathSmFactory("boot", dir, published);

    dir->entryDel("log");
    dir->subdirDel("config");

    EXPECT_TRUE(published->stageSubPath().value("boot"));
}

TEST_F(SubPath, PublishesNothingOnceItsOwnerHasDroppedIt) {
    const auto watcher = Stage::stageSubPathSmFactory("boot", dir, published);
    watcher->retire();

    allBut("");
    watcher->handleStageClassDir("log");

    EXPECT_FALSE(published->stageSubPath().contains("boot"));
}

TEST_F(SubPath, LooksAtAnotherDirectoryAtOnce) {
    const Ptr<Dir> empty = system.stageDir()->subdirIs("empty");
    const auto watcher = Stage::stageSubPathSmFactory("boot", empty, published);
    allBut("");
    ASSERT_FALSE(published->stageSubPath().contains("boot"));

    watcher->stageClassDirIs(dir);

    EXPECT_TRUE(published->stageSubPath().value("boot"));
}

TEST_F(SubPath, WithoutADirectoryOrAPlaceToPublishDoesNothing) {
    allBut("");
    system.trace(6);

    const auto lost = Stage::stageSubPathSmFactory("boot", nullptr, published);
    lost->handleStageClassDir();
    const auto mute = Stage::stageSubPathSmFactory("boot", dir, nullptr);
    lost->stageClassDirIs(nullptr);

    EXPECT_THAT(published->stageSubPath().size(), 0u);
}

}  // namespace
