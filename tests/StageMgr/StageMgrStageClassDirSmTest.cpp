// How stage classes are found, whatever order their places come in.
#include "StageMgr/StageMgrStageClassDirSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Orv::Dir;
using Orv::Ptr;

// A system whose class "boot" comes place by place.
class ClassDirTest : public ::testing::Test {
  protected:
    System system;

    using Step = std::function<void()>;

    Ptr<Dir> classDir() const { return system.stageDir()->entityPtr<Dir>("boot"); }
    Ptr<Stage::AvailableStageSubPaths> published() const {
        return system.manager()->availableStageSubPath();
    }
    Stage::StageMgr* stageMgr() const { return system.manager()->stageMgr().find("boot"); }
    Stage::StageSubPathSm* watcher() const {
        return system.manager()->stageSubPathSm().find("boot");
    }

    std::vector<Step> topLevelPlaces() {
        return {[this] { system.stageDir()->subdirIs("boot"); },
                [this] { system.inputDir()->subdirIs("boot"); },
                [this] { system.agentStatusDir()->subdirIs("boot"); },
                [this] { system.enableDir()->entryIs("boot", "Stage::EnabledConfig"); }};
    }
    std::vector<Step> subPlaces(Ptr<Dir> dir) {
        return {[dir] { dir->subdirIs("config")->entryIs("config", "Stage::Config"); },
                [dir] { dir->entryIs("status", "Stage::Status"); },
                [dir] { dir->entryIs("completionstatus", "Stage::CompletionStatusDir"); },
                [dir] { dir->entryIs("progress", "Stage::ProgressDir"); },
                [dir] { dir->entryIs("log", "Stage::Log"); }};
    }
    void topLevel() {
        for (const Step& step : topLevelPlaces()) step();
    }
    void subEntries() {
        for (const Step& step : subPlaces(classDir())) step();
    }
    // The class's own directory, whole before it is seen.
    Ptr<Dir> wholeClassDir() {
        const Ptr<Dir> dir = Orv::make<Dir>("boot");
        for (const Step& step : subPlaces(dir)) step();
        return dir;
    }
};

TEST_F(ClassDirTest, AClassIsWatchedOnceItsLastTopLevelPlaceComesWhicheverThatIs) {
    std::array<std::size_t, 4> order{0, 1, 2, 3};
    do {
        System fresh;
        const std::array<Step, 4> places{
            [&] { fresh.stageDir()->subdirIs("boot"); },
            [&] { fresh.inputDir()->subdirIs("boot"); },
            [&] { fresh.agentStatusDir()->subdirIs("boot"); },
            [&] { fresh.enableDir()->entryIs("boot", "Stage::EnabledConfig"); }};
        for (const std::size_t place : order) {
            EXPECT_EQ(fresh.manager()->stageSubPathSm().size(), 0u);
            places[place]();
        }
        EXPECT_EQ(fresh.manager()->stageSubPathSm().size(), 1u);
        EXPECT_EQ(fresh.manager()->stageMgr().size(), 0u);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(ClassDirTest, AClassIsManagedOnceItsLastEntryComesWhicheverThatIs) {
    std::array<std::size_t, 5> order{0, 1, 2, 3, 4};
    do {
        System fresh;
        const Ptr<Dir> dir = fresh.stageDir()->subdirIs("boot");
        fresh.inputDir()->subdirIs("boot");
        fresh.agentStatusDir()->subdirIs("boot");
        fresh.enableDir()->entryIs("boot", "Stage::EnabledConfig");
        // The Config comes before its directory is seen, so the directory's coming is what counts.
        const Ptr<Dir> config = Orv::make<Dir>("config");
        config->entryIs("config", "Stage::Config");
        const std::array<Step, 5> places{
            [&] { dir->entryIs(config); }, [&] { dir->entryIs("status", "Stage::Status"); },
            [&] { dir->entryIs("completionstatus", "Stage::CompletionStatusDir"); },
            [&] { dir->entryIs("progress", "Stage::ProgressDir"); },
            [&] { dir->entryIs("log", "Stage::Log"); }};
        for (const std::size_t place : order) {
            EXPECT_EQ(fresh.manager()->stageMgr().size(), 0u);
            EXPECT_EQ(fresh.manager()->stageSubPathSm().size(), 1u);
            places[place]();
        }
        EXPECT_EQ(fresh.manager()->stageMgr().size(), 1u);
        EXPECT_EQ(fresh.manager()->stageSubPathSm().size(), 0u);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(ClassDirTest, ClassesThatAreThereAtTheStartAreManagedAtOnce) {
    System waiting(System::Manager::waits);
    waiting.stageClass("boot");
    waiting.stageClass("switchover");

    waiting.start();

    EXPECT_NE(waiting.manager()->stageMgr().find("boot"), nullptr);
    EXPECT_NE(waiting.manager()->stageMgr().find("switchover"), nullptr);
    EXPECT_TRUE(waiting.manager()->initialized());
}

TEST_F(ClassDirTest, TheStartLooksAtTheFourDirectoriesInOrder) {
    System waiting(System::Manager::waits);
    waiting.trace(6);

    waiting.start();

    Lines handlers;
    for (const TraceLine& line : waiting.traced()) handlers.push_back(line.handler);
    EXPECT_THAT(handlers, ElementsAre("handleInitialized", "handleStage", "handleStageInput",
                                      "handleStageAgentStatus", "handleStageEnableConfig"));
}

TEST_F(ClassDirTest, AClassIsLookedAtOnceForEachOfItsTopLevelEntriesAtTheStart) {
    System waiting(System::Manager::waits);
    waiting.inputDir()->subdirIs("boot");
    waiting.enableDir()->entryIs("boot", "Stage::EnabledConfig");
    waiting.enableDir()->entryIs("other", "Stage::EnabledConfig");
    waiting.trace(6);

    waiting.start();

    EXPECT_THAT(waiting.traced(6, " StageClass: "),
                ElementsAre(" StageClass: boot", " StageClass: boot", " StageClass: other"));
}

TEST_F(ClassDirTest, ATopLevelPlaceOfAnotherTypeCountsAsMissing) {
    for (int wrong = 0; wrong < 4; ++wrong) {
        System fresh;
        const auto place = [&](const Ptr<Dir>& dir, int which) {
            dir->entryIs("boot", wrong == which ? "Stage::Config" : "Orv::Dir");
        };
        place(fresh.stageDir(), 0);
        place(fresh.inputDir(), 1);
        place(fresh.agentStatusDir(), 2);
        fresh.enableDir()->entryIs("boot", wrong == 3 ? "Orv::Dir" : "Stage::EnabledConfig");

        EXPECT_EQ(fresh.manager()->stageSubPathSm().size(), 0u) << wrong;
    }
}

TEST_F(ClassDirTest, AnEntryOfAnotherTypeCountsAsMissing) {
    const Lines names{"config", "status", "completionstatus", "progress", "log"};
    const Lines types{"Orv::Dir", "Stage::Status", "Stage::CompletionStatusDir",
                      "Stage::ProgressDir", "Stage::Log"};
    for (std::size_t wrong = 0; wrong < names.size(); ++wrong) {
        System fresh;
        const Ptr<Dir> dir = fresh.stageDir()->subdirIs("boot");
        fresh.inputDir()->subdirIs("boot");
        fresh.agentStatusDir()->subdirIs("boot");
        fresh.enableDir()->entryIs("boot", "Stage::EnabledConfig");
        for (std::size_t i = 0; i < names.size(); ++i)
            dir->entryIs(names[i], i == wrong ? "Stage::FatalError" : types[i].c_str());

        EXPECT_FALSE(fresh.manager()->availableStageSubPath()->stageSubPath().contains("boot"))
            << names[wrong];
        EXPECT_EQ(fresh.manager()->stageMgr().size(), 0u);

        // Put right, it is published.
        dir->entryDel(names[wrong]);
        dir->entryIs(names[wrong], types[wrong]);
        EXPECT_TRUE(fresh.manager()->availableStageSubPath()->stageSubPath().value("boot"));
    }
}

TEST_F(ClassDirTest, AClassWhoseEntriesAllExistIsMadeInsideItsWatcherWhichStays) {
    system.stageDir()->entryIs(wholeClassDir());
    system.inputDir()->subdirIs("boot");
    system.agentStatusDir()->subdirIs("boot");
    ASSERT_EQ(stageMgr(), nullptr);

    system.enableDir()->entryIs("boot", "Stage::EnabledConfig");

    EXPECT_NE(stageMgr(), nullptr);
    EXPECT_NE(watcher(), nullptr);
    EXPECT_TRUE(published()->stageSubPath().value("boot"));
    EXPECT_THAT(system.errors(), IsEmpty());
}

TEST_F(ClassDirTest, AWatcherThatStaysIsHarmless) {
    system.stageDir()->entryIs(wholeClassDir());
    system.inputDir()->subdirIs("boot");
    system.agentStatusDir()->subdirIs("boot");
    system.enableDir()->entryIs("boot", "Stage::EnabledConfig");
    const Stage::StageMgr* const made = stageMgr();
    system.trace(6);

    classDir()->entryIs("more", "Stage::Config");

    // The watcher looks, and publishes what is published already.
    EXPECT_THAT(system.traced(6, ""), ElementsAre(" Orv::Dir name: more"));
    EXPECT_EQ(stageMgr(), made);
}

TEST_F(ClassDirTest, AClassWhoseEntriesComeLaterLosesItsWatcherBeforeItsManagerIsMade) {
    topLevel();
    ASSERT_NE(watcher(), nullptr);
    const Ptr<Stage::StageSubPathSm> held(watcher());
    system.trace(8);

    subEntries();

    EXPECT_EQ(watcher(), nullptr);
    EXPECT_TRUE(held->retired());
    ASSERT_NE(stageMgr(), nullptr);
    EXPECT_NE(stageMgr()->configSm(), nullptr);
    EXPECT_NE(stageMgr()->statusSm(), nullptr);
}

TEST_F(ClassDirTest, TheWatcherIsGoneWhenTheManagerIsMade) {
    class Sink final : public Orv::TraceSink {
      public:
        std::function<void()> atTheManagersStart;
        void line(const Orv::TraceSite& site, const std::string&) override {
            if (std::string_view(site.signature).find("StageMgr::handleInitialized") !=
                std::string_view::npos)
                atTheManagersStart();
        }
    } sink;
    topLevel();
    ASSERT_NE(watcher(), nullptr);
    bool watched = true;
    bool managed = true;
    sink.atTheManagersStart = [&] {
        watched = watcher() != nullptr;
        managed = stageMgr() != nullptr;
    };
    Orv::TraceHandle::named("StageMgr").sinkIs(&sink);
    Orv::TraceHandle::named("StageMgr").levelIs(8);

    subEntries();
    Orv::TraceHandle::named("StageMgr").levelIs(Orv::TraceHandle::off);
    Orv::TraceHandle::named("StageMgr").sinkIs(nullptr);

    EXPECT_FALSE(watched);
    EXPECT_FALSE(managed) << "it is stored once it is constructed";
    EXPECT_NE(stageMgr(), nullptr);
}

TEST_F(ClassDirTest, ReadinessIsTracedFromTheLastEntryToTheManager) {
    topLevel();
    for (std::size_t i = 0; i < 4; ++i) subPlaces(classDir())[i]();
    system.trace(6);

    classDir()->entryIs("log", "Stage::Log");

    std::vector<std::string> lines;
    for (const TraceLine& line : system.traced())
        if (line.level == 6) {
            EXPECT_EQ(line.unit, "StageMgrStageClassDirSm");
            lines.push_back(line.handler + ":" + line.text);
        }
    EXPECT_THAT(lines,
                ElementsAre("handleStageClassDir: Orv::Dir name: log",
                            "handleStageSubPath: StageClass: boot",
                            "handleStageSubPath: All required paths available. Creating StageMgr.",
                            "handleStageSubPath: Created StageMgr for StageClass: boot"));
}

TEST_F(ClassDirTest, TheLastTopLevelPlaceIsTraced) {
    system.stageDir()->subdirIs("boot");
    system.inputDir()->subdirIs("boot");
    system.agentStatusDir()->subdirIs("boot");
    system.trace(6);

    system.enableDir()->entryIs("boot", "Stage::EnabledConfig");

    EXPECT_THAT(
        system.traced(6, " "),
        ElementsAre(" StageClass: boot", " Top level required paths available.", " boot", " boot"));
}

TEST_F(ClassDirTest, AClassPublishedWithoutAConfigIsNotMadeAndALaterConfigDoesNotMakeIt) {
    topLevel();
    classDir()->subdirIs("config");
    classDir()->entryIs("status", "Stage::Status");
    classDir()->entryIs("completionstatus", "Stage::CompletionStatusDir");
    classDir()->entryIs("progress", "Stage::ProgressDir");
    classDir()->entryIs("log", "Stage::Log");

    EXPECT_TRUE(published()->stageSubPath().value("boot"));
    EXPECT_EQ(stageMgr(), nullptr);
    EXPECT_NE(watcher(), nullptr);

    classDir()->entityPtr<Dir>("config")->entryIs("config", "Stage::Config");
    classDir()->entryIs("more", "Stage::Config");
    EXPECT_EQ(stageMgr(), nullptr);
}

TEST_F(ClassDirTest, AConfigOfAnotherTypeCountsAsMissing) {
    topLevel();
    const Ptr<Dir> config = Orv::make<Dir>("config");
    config->entryIs("config", "Stage::FatalError");
    classDir()->entryIs(config);
    for (std::size_t i = 1; i < 5; ++i) subPlaces(classDir())[i]();

    EXPECT_TRUE(published()->stageSubPath().value("boot"));
    EXPECT_EQ(stageMgr(), nullptr);
}

TEST_F(ClassDirTest, ARepeatedNotificationMakesNoSecondManager) {
    topLevel();
    subEntries();
    const Ptr<Stage::StageMgr> manager(stageMgr());
    const Ptr<Stage::ConfigSm> configSm = manager->configSm();
    const Ptr<Stage::StatusSm> statusSm = manager->statusSm();

    published()->stageSubPathIs("boot", false);
    published()->stageSubPathIs("boot", true);
    published()->stageSubPathIs("boot", true);

    EXPECT_EQ(system.manager()->stageMgr().size(), 1u);
    EXPECT_EQ(stageMgr(), manager.get());
    EXPECT_EQ(stageMgr()->configSm(), configSm);
    EXPECT_EQ(stageMgr()->statusSm(), statusSm);
}

TEST_F(ClassDirTest, AChangedConfigReplacesBothSidesWhenTheClassIsLookedAtAgain) {
    topLevel();
    subEntries();
    const Ptr<Stage::StageMgr> manager(stageMgr());
    const Ptr<Stage::ConfigSm> configSm = manager->configSm();
    const Ptr<Stage::StatusSm> statusSm = manager->statusSm();

    const Ptr<Dir> config = classDir()->entityPtr<Dir>("config");
    config->entryDel("config");
    config->entryIs("config", "Stage::Config");
    EXPECT_EQ(stageMgr()->configSm(), configSm);  // nothing watches below "config"
    published()->stageSubPathIs("boot", false);

    EXPECT_EQ(stageMgr(), manager.get());
    EXPECT_NE(stageMgr()->configSm(), configSm);
    EXPECT_NE(stageMgr()->statusSm(), statusSm);
    EXPECT_TRUE(configSm->retired());
    EXPECT_TRUE(statusSm->retired());
}

TEST_F(ClassDirTest, AChangedEnabledConfigReplacesTheStatusSideAlone) {
    topLevel();
    subEntries();
    const Ptr<Stage::ConfigSm> configSm = stageMgr()->configSm();
    const Ptr<Stage::StatusSm> statusSm = stageMgr()->statusSm();

    system.enableDir()->entryDel("boot");
    system.enableDir()->entryIs("boot", "Stage::EnabledConfig");
    published()->stageSubPathIs("boot", false);

    EXPECT_EQ(stageMgr()->configSm(), configSm);
    EXPECT_NE(stageMgr()->statusSm(), statusSm);
}

TEST_F(ClassDirTest, AChangedInputDirectoryReplacesTheConfigurationSideAlone) {
    topLevel();
    subEntries();
    const Ptr<Stage::ConfigSm> configSm = stageMgr()->configSm();
    const Ptr<Stage::StatusSm> statusSm = stageMgr()->statusSm();

    system.inputDir()->subdirDel("boot");
    system.inputDir()->subdirIs("boot");
    published()->stageSubPathIs("boot", false);

    EXPECT_NE(stageMgr()->configSm(), configSm);
    EXPECT_EQ(stageMgr()->statusSm(), statusSm);
}

TEST_F(ClassDirTest, RemovingAManagedClassLeavesItsManagerRunning) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Stage::StageMgr* const manager = world.stageMgr();
    const Ptr<Stage::Log> log = world.logs();

    world.stageDir()->subdirDel("app");

    EXPECT_EQ(world.stageMgr(), manager);
    EXPECT_NE(world.statusSm(), nullptr);
    EXPECT_TRUE(world.manager()->availableStageSubPath()->stageSubPath().value("app"));
    // Both its sides go on with the entities that they hold.
    world.agent("fan").report("early", "spare");
    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "spare"}));
    world.enable("spare");
    world.settle();
    ASSERT_NE(log->instanceLog("spare"), nullptr);
    EXPECT_EQ(log->instanceLog("spare")->log().front().message, "app stages started");
    EXPECT_THAT(world.errors(), IsEmpty());
}

TEST_F(ClassDirTest, AnEntryThatDisappearsLeavesTheManagerInPlace) {
    topLevel();
    subEntries();
    const Ptr<Stage::StageMgr> manager(stageMgr());
    const Ptr<Stage::ConfigSm> configSm = manager->configSm();
    const Ptr<Stage::StatusSm> statusSm = manager->statusSm();

    for (const char* const entry : {"status", "completionstatus", "progress", "log"})
        classDir()->entryDel(entry);
    classDir()->subdirDel("config");
    system.enableDir()->entryDel("boot");
    system.inputDir()->subdirDel("boot");
    system.agentStatusDir()->subdirDel("boot");

    EXPECT_EQ(stageMgr(), manager.get());
    EXPECT_EQ(manager->configSm(), configSm);
    EXPECT_EQ(manager->statusSm(), statusSm);
}

TEST_F(ClassDirTest, AWatchedClassThatLosesATopLevelPlaceKeepsItsWatcher) {
    topLevel();
    const Stage::StageSubPathSm* const held = watcher();

    system.inputDir()->subdirDel("boot");

    EXPECT_EQ(watcher(), held);
}

TEST_F(ClassDirTest, AWatcherOnAnotherDirectoryIsRefused) {
    topLevel();
    const Ptr<Stage::StageSubPathSm> held(watcher());

    system.stageDir()->subdirDel("boot");
    EXPECT_THAT(system.errors(), IsEmpty());
    system.stageDir()->subdirIs("boot");

    EXPECT_THAT(system.errors(),
                ElementsAre("Reinstantiating the pointer interface where constructor parameter "
                            "attribute _stageClassDir has a different value of /stage/boot than "
                            "the current value of /stage/boot not allowed"));
    EXPECT_EQ(watcher(), held.get());
}

TEST_F(ClassDirTest, ClassesAreIndependent) {
    topLevel();
    system.stageClass("other");

    EXPECT_EQ(stageMgr(), nullptr);
    EXPECT_NE(watcher(), nullptr);
    EXPECT_NE(system.manager()->stageMgr().find("other"), nullptr);
    EXPECT_EQ(system.manager()->stageSubPathSm().size(), 1u);
}

TEST_F(ClassDirTest, OnlyAClassThatIsPublishedNowIsMade) {
    topLevel();
    subEntries();
    const auto other = Orv::make<Stage::AvailableStageSubPaths>();
    other->stageSubPathIs("boot", true);
    system.trace(6);

    system.manager()->availableStageSubPathIs(other);
    EXPECT_THAT(system.traced(6), IsEmpty());

    other->stageSubPathDel("boot");
    EXPECT_THAT(system.traced(6), ElementsAre(" StageClass: boot",
                                              " All required paths available. Creating StageMgr.",
                                              " Created StageMgr for StageClass: boot"));
}

TEST_F(ClassDirTest, AnotherDirectoryIsLookedAtAtOnce) {
    system.inputDir()->subdirIs("boot");
    system.agentStatusDir()->subdirIs("boot");
    system.enableDir()->entryIs("boot", "Stage::EnabledConfig");
    const Ptr<Dir> other = Orv::make<Dir>("otherstage");
    other->entryIs(wholeClassDir());

    system.manager()->stageDirIs(other);

    EXPECT_NE(stageMgr(), nullptr);
    // The directory that it watched before is nothing to it any more.
    system.trace(6);
    system.stageDir()->subdirIs("later");
    EXPECT_THAT(system.traced(6), IsEmpty());
}

TEST_F(ClassDirTest, EachDirectoryCanBeReplacedAndTakenAway) {
    system.stageDir()->entryIs(wholeClassDir());
    const Ptr<Dir> input = Orv::make<Dir>("otherinput");
    input->subdirIs("boot");
    const Ptr<Dir> agentStatus = Orv::make<Dir>("otheragentstatus");
    agentStatus->subdirIs("boot");
    const Ptr<Dir> enable = Orv::make<Dir>("otherenable");
    enable->entryIs("boot", "Stage::EnabledConfig");

    system.manager()->stageInputDirIs(input);
    system.manager()->stageAgentStatusDirIs(agentStatus);
    EXPECT_EQ(stageMgr(), nullptr);
    system.manager()->stageEnableConfigDirIs(enable);
    EXPECT_NE(stageMgr(), nullptr);

    system.manager()->stageDirIs(nullptr);
    system.manager()->stageInputDirIs(nullptr);
    system.manager()->stageAgentStatusDirIs(nullptr);
    system.manager()->stageEnableConfigDirIs(nullptr);
    system.manager()->handleStage();
    system.manager()->handleStageInput();
    system.manager()->handleStageAgentStatus();
    system.manager()->handleStageEnableConfig();
    system.manager()->handleStageClass("boot");
    system.manager()->handleStageSubPath("boot");
    EXPECT_NE(stageMgr(), nullptr);
}

TEST_F(ClassDirTest, AManagerOnNothingManagesNothing) {
    const auto manager =
        Stage::stageMgrStageClassDirSmFactory(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);

    EXPECT_TRUE(manager->initialized());
    EXPECT_TRUE(manager->stageMgr().empty());
}

TEST_F(ClassDirTest, AllManagersGoWithTheDirectoryReactor) {
    World world;
    world.agent("fan").event("early");
    world.agent("fan").report("early", "other");
    world.enable("boot");
    world.settle();
    const Lines log = world.log("boot");
    const Ptr<Stage::StageMgr> manager(const_cast<Stage::StageMgr*>(world.stageMgr()));

    world.stop();

    EXPECT_TRUE(manager->retired());
    EXPECT_EQ(manager->configSm(), nullptr);
    EXPECT_EQ(manager->statusSm(), nullptr);
    EXPECT_EQ(manager->agentStatusLocal(), nullptr);
    EXPECT_EQ(manager->parent(), nullptr);
    EXPECT_EQ(world.armedTimers(), 0u);
    // What it wrote stays, and it writes nothing more.
    world.agent("fan").report("early", "boot");
    world.disable("boot");
    world.advance(anHour);
    EXPECT_EQ(world.log("boot"), log);
    EXPECT_NE(world.instanceStatus("boot"), nullptr);
}

}  // namespace
