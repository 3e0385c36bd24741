#include "model/InstanceStatus.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectScalar;
using ModelTest::keysOf;
using ModelTest::Lines;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Stage::InstanceStatus;
using Stage::Progress;
using Stage::StageStatus;

class Listener final : public InstanceStatus::NotifieeConst {
  public:
    Lines told;
    void onActiveStage(Name stage) override { told.push_back("activeStage " + stage.str()); }
    void onProgress() override { told.push_back("progress"); }
    void onComplete() override { told.push_back("complete"); }
    void onSuspended() override { told.push_back("suspended"); }
};

class InstanceStatusEntity : public testing::Test {
  protected:
    InstanceStatusEntity() { listener.notifierIs(instance); }

    Ptr<InstanceStatus> instance = make<InstanceStatus>("main");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(InstanceStatusEntity, IsNamedAfterItsInstance) { EXPECT_EQ(instance->name(), "main"); }

TEST_F(InstanceStatusEntity, ScalarsTellOncePerChange) {
    expectScalar(*instance, told, "progress", &InstanceStatus::progress,
                 &InstanceStatus::progressIs, Ptr<Progress>(), make<Progress>("main"));
    expectScalar(*instance, told, "complete", &InstanceStatus::complete,
                 &InstanceStatus::completeIs, false, true);
    expectScalar(*instance, told, "suspended", &InstanceStatus::suspended,
                 &InstanceStatus::suspendedIs, false, true);
}

TEST_F(InstanceStatusEntity, AnActiveStageStandsUnderItsOwnName) {
    const Ptr<StageStatus> mount = make<StageStatus>("mount");

    instance->activeStageIs(mount);
    instance->activeStageIs(mount);
    instance->activeStageIs(make<StageStatus>("probe"));

    EXPECT_EQ(told, Lines({"activeStage mount", "activeStage probe"}));
    EXPECT_EQ(instance->activeStage("mount"), mount);
    EXPECT_EQ(instance->activeStage("absent"), nullptr);
}

TEST_F(InstanceStatusEntity, AnotherStageOfTheSameNameIsAChange) {
    const Ptr<StageStatus> after = make<StageStatus>("mount");

    instance->activeStageIs(make<StageStatus>("mount"));
    instance->activeStageIs(after);

    EXPECT_EQ(told, Lines({"activeStage mount", "activeStage mount"}));
    EXPECT_EQ(instance->activeStage("mount"), after);
}

TEST_F(InstanceStatusEntity, ActiveStagesGoPerName) {
    ModelTest::Observer observer;
    for (const char* stage : {"a", "b", "c"}) instance->activeStageIs(make<StageStatus>(stage));
    EXPECT_EQ(observer.told, told);
    told.clear();

    instance->activeStageDel("absent");
    instance->activeStageDel("b");
    instance->activeStageDel("b");
    EXPECT_EQ(told, Lines({"activeStage b"}));
    EXPECT_EQ(keysOf(instance->activeStage()), Lines({"a", "c"}));

    instance->activeStageDelAll();
    instance->activeStageDelAll();
    EXPECT_THAT(told,
                testing::UnorderedElementsAre("activeStage a", "activeStage b", "activeStage c"));
    EXPECT_TRUE(instance->activeStage().empty());
}

}  // namespace
