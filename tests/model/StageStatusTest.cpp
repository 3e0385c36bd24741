#include "model/StageStatus.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectFlags;
using ModelTest::expectScalar;
using ModelTest::expectSeconds;
using ModelTest::keysOf;
using ModelTest::Lines;
using ModelTest::threeNames;
using Orv::make;
using Orv::Ptr;
using Orv::String;
using Stage::EventConfig;
using Stage::StageStatus;

class Listener final : public StageStatus::NotifieeConst {
  public:
    Lines told;
    void onEvent(String agent) override { told.push_back("event " + agent.str()); }
    void onDependency(String stage) override { told.push_back("dependency " + stage.str()); }
    void onTimeout() override { told.push_back("timeout"); }
    void onCritical() override { told.push_back("critical"); }
};

class StageStatusEntity : public testing::Test {
  protected:
    StageStatusEntity() { listener.notifierIs(stage); }

    Ptr<StageStatus> stage = make<StageStatus>("mount");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(StageStatusEntity, IsNamedAfterItsStage) { EXPECT_EQ(stage->name(), "mount"); }

TEST_F(StageStatusEntity, ScalarsTellOncePerChange) {
    expectSeconds(*stage, told, "timeout", &StageStatus::timeout, &StageStatus::timeoutIs);
    expectScalar(*stage, told, "critical", &StageStatus::critical, &StageStatus::criticalIs, false,
                 true);
}

TEST_F(StageStatusEntity, DependenciesTellPerStage) {
    expectFlags<String>(
        stage->dependency(), told, "dependency",
        {[&](const String& s) { return stage->dependency(s); },
         [&](String s, bool value) { stage->dependencyIs(s, value); },
         [&](String s) { stage->dependencyDel(s); }, [&] { stage->dependencyDelAll(); }},
        threeNames<String>());
}

TEST_F(StageStatusEntity, AnEventStandsUnderItsAgentsName) {
    const Ptr<EventConfig> disk = make<EventConfig>("mount", "disk");
    const Ptr<EventConfig> fan = make<EventConfig>("mount", "fan");

    stage->eventIs(disk);
    stage->eventIs(fan);
    stage->eventIs(disk);

    EXPECT_EQ(told, Lines({"event disk", "event fan"}));
    EXPECT_EQ(keysOf(stage->event()), Lines({"disk", "fan"}));
    EXPECT_EQ(stage->event("disk"), disk);
    EXPECT_EQ(stage->event("mount:disk"), nullptr);
}

TEST_F(StageStatusEntity, AnotherEventOfTheSameAgentIsAChange) {
    const Ptr<EventConfig> before = make<EventConfig>("mount", "disk");
    const Ptr<EventConfig> after = make<EventConfig>("mount", "disk");

    stage->eventIs(before);
    stage->eventIs(after);

    EXPECT_EQ(told, Lines({"event disk", "event disk"}));
    EXPECT_EQ(stage->event("disk"), after);
    EXPECT_EQ(stage->event().size(), 1u);
}

TEST_F(StageStatusEntity, EventsGoByTheirAgentsName) {
    ModelTest::Observer observer;
    for (const char* agent : {"a", "b", "c"}) stage->eventIs(make<EventConfig>("mount", agent));
    EXPECT_EQ(observer.told, told);
    told.clear();

    stage->eventDel("absent");
    stage->eventDel("a");
    stage->eventDel("a");
    EXPECT_EQ(told, Lines({"event a"}));

    stage->eventDelAll();
    stage->eventDelAll();
    EXPECT_THAT(told, testing::UnorderedElementsAre("event a", "event b", "event c"));
    EXPECT_TRUE(stage->event().empty());
}

TEST_F(StageStatusEntity, DoesNotOwnItsEvents) {
    const Ptr<EventConfig> disk = make<EventConfig>("mount", "disk");

    stage->eventIs(disk);

    EXPECT_EQ(disk->parent(), nullptr);
}

}  // namespace
