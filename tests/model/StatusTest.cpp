#include "model/Status.h"

#include "runtime/Dir.h"
#include "tests/model/Told.h"

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

}  // namespace
