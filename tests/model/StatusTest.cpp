#include "model/Status.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "runtime/Dir.h"
#include "tests/model/Told.h"
#include "tests/support/Allocations.h"

namespace {

using ModelTest::expectMembers;
using ModelTest::expectScalar;
using ModelTest::Lines;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Stage::InstanceStatus;
using Stage::StageStatus;
using Stage::Status;

class Listener final : public Status::NotifieeConst {
  public:
    Lines told;
    void onStage(Name stage) override { told.push_back("stage " + stage.str()); }
    void onInstStatus(Name instance) override { told.push_back("instStatus " + instance.str()); }
    void onSorted() override { told.push_back("sorted"); }
};

class StatusEntity : public testing::Test {
  protected:
    StatusEntity() { listener.notifierIs(status); }

    Ptr<Status> status = make<Status>("status");
    Listener listener;
    Lines& told = listener.told;
};

// It has nobody any more who keeps account of it.
TEST(StatusEntityThatIsGone, LeavesItsStagesToWhoeverHoldsThem) {
    Ptr<Status> status = make<Status>("status");
    const Ptr<StageStatus> stage = status->stageIs("early");
    status = nullptr;

    stage->dependencyIs("power", true);
    stage->criticalIs(true);

    EXPECT_TRUE(stage->dependency("power"));
    EXPECT_TRUE(stage->critical());
}

TEST_F(StatusEntity, MakesItsStages) {
    expectMembers<StageStatus>(
        *status, status->stage(), told, "stage",
        {[&](Name stage) { return status->stage(stage); },
         [&](Name stage) { return status->stageIs(stage); },
         [&](Name stage) { status->stageDel(stage); }, [&] { status->stageDelAll(); }});
}

TEST_F(StatusEntity, MakesItsInstances) {
    expectMembers<InstanceStatus>(*status, status->instStatus(), told, "instStatus",
                                  {[&](Name instance) { return status->instStatus(instance); },
                                   [&](Name instance) { return status->instStatusIs(instance); },
                                   [&](Name instance) { status->instStatusDel(instance); },
                                   [&] { status->instStatusDelAll(); }});
}

TEST_F(StatusEntity, SortedTellsOncePerChange) {
    expectScalar(*status, told, "sorted", &Status::sorted, &Status::sortedIs, false, true);
}

TEST_F(StatusEntity, AStageAndAnInstanceMayHaveOneName) {
    status->stageIs("main");
    status->instStatusIs("main");
    status->stageDel("main");

    EXPECT_NE(status->instStatus("main"), nullptr);
}

TEST_F(StatusEntity, LosesAllMembersWhenItsDirectoryDropsIt) {
    const Ptr<Orv::Dir> dir = make<Orv::Dir>();
    dir->entryIs(status);
    status->stageIs("mount");
    status->instStatusIs("main");
    told.clear();

    dir->entryDel("status");

    EXPECT_THAT(told, testing::UnorderedElementsAre("stage mount", "instStatus main"));
}

TEST_F(StatusEntity, AMemberThatIsHeldKnowsNoParentOnceTheStatusIsGone) {
    const Ptr<StageStatus> stage = status->stageIs("mount");
    const Ptr<InstanceStatus> instance = status->instStatusIs("main");

    listener.notifierIs(nullptr);
    status = nullptr;

    EXPECT_EQ(stage->parent(), nullptr);
    EXPECT_EQ(instance->parent(), nullptr);
}

// --- the indexes beside the stages ---------------------------------------------------------------

Lines dependentsOf(const Status& status, const char* name) {
    Lines stages;
    status.eachDependent(name, [&](const StageStatus& s) { stages.push_back(s.key().str()); });
    std::sort(stages.begin(), stages.end());
    return stages;
}

TEST_F(StatusEntity, KnowsTheStagesThatListADependency) {
    for (const char* stage : {"a", "b", "c"}) status->stageIs(stage)->dependencyIs("late", true);
    status->stage("b")->dependencyIs("late", false);
    status->stage("b")->dependencyIs("other", true);
    EXPECT_EQ(dependentsOf(*status, "late"), Lines({"a", "b", "c"})) << "whatever the value";
    EXPECT_EQ(dependentsOf(*status, "other"), Lines({"b"}));

    const std::uint64_t changes = status->dependencyChanges();
    status->stage("a")->dependencyDel("late");
    EXPECT_EQ(status->dependencyChanges(), changes + 1);
    EXPECT_EQ(dependentsOf(*status, "late"), Lines({"b", "c"}));
    status->stageDel("c");
    EXPECT_EQ(dependentsOf(*status, "late"), Lines({"b"}));
    status->stage("b")->dependencyDelAll();
    EXPECT_EQ(dependentsOf(*status, "late"), Lines());
    EXPECT_EQ(dependentsOf(*status, "other"), Lines());
}

TEST_F(StatusEntity, AStageThatHasLeftCountsNoMore) {
    const Ptr<StageStatus> gone = status->stageIs("a");
    gone->eventIs(make<Stage::EventConfig>("a", "disk"));
    status->stageDel("a");
    const std::uint64_t changes = status->dependencyChanges();

    gone->dependencyIs("late", true);
    gone->eventIs(make<Stage::EventConfig>("a", "fan"));
    gone->eventDel("disk");

    EXPECT_EQ(dependentsOf(*status, "late"), Lines());
    EXPECT_EQ(status->dependencyChanges(), changes);
    EXPECT_EQ(status->stagesOf("disk"), 0u);
    EXPECT_EQ(status->stagesOf("fan"), 0u);
}

TEST_F(StatusEntity, CountsTheStagesInWhichAnAgentHasAnEvent) {
    for (const char* stage : {"a", "b"})
        status->stageIs(stage)->eventIs(make<Stage::EventConfig>(stage, "disk"));
    status->stage("a")->eventIs(make<Stage::EventConfig>("a", "disk"));
    EXPECT_EQ(status->stagesOf("disk"), 2u) << "another event of the agent is no other stage";

    status->stage("a")->eventDel("disk");
    EXPECT_EQ(status->stagesOf("disk"), 1u);
    status->stageDel("b");
    EXPECT_EQ(status->stagesOf("disk"), 0u);
}

// Writes what it is told, and sees that nobody was told before it.
class Index final : public Status::Index {
  public:
    explicit Index(const Lines& others) : others_(others) {}
    Lines told;

    void stageStored(StageStatus& stage, bool present) noexcept override {
        say((present ? "stage " : "no stage ") + stage.key().str());
    }
    void placesStored() noexcept override { say("places"); }
    void dependencyStored(StageStatus& stage, const Orv::String& dependency,
                          bool present) noexcept override {
        say(stage.key().str() + (present ? " on " : " not on ") + dependency.str());
    }
    void criticalStored(StageStatus& stage) noexcept override {
        say(stage.key().str() + (stage.critical() ? " critical" : " not critical"));
    }

  private:
    void say(std::string line) {
        EXPECT_EQ(others_.size(), told.size()) << line << " is told first";
        told.push_back(std::move(line));
    }
    const Lines& others_;
};

class Watcher final : public StageStatus::NotifieeConst {
  public:
    explicit Watcher(Lines& told) : told_(told) {}
    void onDependency(Orv::String) override { told_.push_back("dependency"); }
    void onCritical() override { told_.push_back("critical"); }

  private:
    Lines& told_;
};

TEST_F(StatusEntity, AnIndexIsToldOfEachChangeBeforeAnybodyElse) {
    Index index(told);
    Watcher watcher(told);
    status->indexIs(index);

    const Ptr<StageStatus> a = status->stageIs("a");
    watcher.notifierIs(a);
    a->dependencyIs("b", false);
    a->criticalIs(true);
    a->dependencyDel("b");
    a->criticalIs(false);
    status->stageDel("a");

    EXPECT_EQ(index.told, Lines({"stage a", "a on b", "a critical", "a not on b", "a not critical",
                                 "no stage a"}));
    status->indexDel(index);
    status->stageIs("a");
    EXPECT_EQ(index.told.size(), 6u);
}

TEST_F(StatusEntity, AnIndexIsNotToldOfADependencyThatChangesItsValueAlone) {
    const Ptr<StageStatus> a = status->stageIs("a");
    a->dependencyIs("b", true);
    Lines nobody;
    Index index(nobody);
    status->indexIs(index);
    const std::uint32_t changes = a->dependencyChanges();

    a->dependencyIs("b", false);

    EXPECT_EQ(index.told, Lines());
    EXPECT_EQ(a->dependencyChanges(), changes + 1);
    status->indexDel(index);
}

TEST_F(StatusEntity, PlacesRiseAlongTheStagesAndAreGivenAnewWhenMostAreFree) {
    for (const char* stage : {"a", "b", "c"}) status->stageIs(stage);
    EXPECT_LT(status->stage("a")->place(), status->stage("b")->place());
    EXPECT_LT(status->stage("b")->place(), status->stage("c")->place());
    EXPECT_LT(status->stage("c")->place(), status->places());

    Lines nobody;
    for (int i = 0; i < 1000; ++i) {
        status->stageIs("passing");
        status->stageDel("passing");
    }
    EXPECT_LT(status->places(), 100u);
    while (status->places() > 4) {
        status->stageIs("passing");
        if (status->places() > 4) status->stageDel("passing");
    }
    EXPECT_EQ(status->stage("a")->place(), 0u);
    EXPECT_EQ(status->stage("b")->place(), 1u);
    EXPECT_EQ(status->stage("c")->place(), 2u);
    EXPECT_EQ(status->stage("passing")->place(), 3u);
}

TEST_F(StatusEntity, TellsItsIndexesThatPlacesAreGivenAnew) {
    Lines nobody;
    class Counter final : public Status::Index {
      public:
        int places = 0;
        int stages = 0;
        void stageStored(StageStatus&, bool present) noexcept override { stages += present; }
        void placesStored() noexcept override { ++places; }
        void dependencyStored(StageStatus&, const Orv::String&, bool) noexcept override {}
        void criticalStored(StageStatus&) noexcept override {}
    } index;
    status->indexIs(index);

    for (int i = 0; i < 200; ++i) {
        status->stageIs("passing");
        status->stageDel("passing");
    }

    EXPECT_EQ(index.places, 2);
    EXPECT_EQ(index.stages + index.places, 200);
    status->indexDel(index);
}

TEST_F(StatusEntity, GivesItsIndexesUpWhenThereIsNoMemoryForThem) {
    bool refused = true;
    int givenUp = 0;
    for (std::size_t which = 1; refused; ++which) {
        SCOPED_TRACE(which);
        const Ptr<Status> indexed = make<Status>("status");
        for (const char* stage : {"a", "b", "c"}) indexed->stageIs(stage);
        const auto event = make<Stage::EventConfig>("a", "disk");
        const std::vector<std::function<void()>> acts = {
            [&] { indexed->stage("a")->dependencyIs("late", true); },
            [&] { indexed->stage("b")->dependencyIs("late", true); },
            [&] { indexed->stage("a")->eventIs(event); },
            [&] { indexed->stage("c")->dependencyIs("late", true); },
            [&] { indexed->stage("c")->dependencyIs("other", true); },
            [&] { indexed->stage("b")->dependencyDel("late"); },
        };
        refused = RuntimeTest::doneWithout(which, acts);

        if (!indexed->indexed()) {
            ++givenUp;
            indexed->stage("a")->eventDel("disk");
            indexed->stageDel("a");
            continue;
        }
        for (const char* name : {"late", "other"}) {
            Lines listing;
            for (const auto& [stage, entity] : indexed->stage())
                if (entity->dependency().contains(name)) listing.push_back(stage.str());
            EXPECT_EQ(dependentsOf(*indexed, name), listing);
        }
        EXPECT_EQ(indexed->stagesOf("disk"), indexed->stage("a")->event().size());
    }
    EXPECT_GT(givenUp, 0);
}

}  // namespace
