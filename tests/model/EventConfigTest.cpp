#include "model/EventConfig.h"

#include "tests/model/Told.h"

namespace {

using ModelTest::expectFlags;
using ModelTest::expectScalar;
using ModelTest::expectSeconds;
using ModelTest::Lines;
using ModelTest::threeNames;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Orv::String;
using Stage::EventConfig;

class Listener final : public EventConfig::NotifieeConst {
  public:
    Lines told;
    void onName() override { told.push_back("name"); }
    void onStage() override { told.push_back("stage"); }
    void onAgent() override { told.push_back("agent"); }
    void onComplete(String instance) override { told.push_back("complete " + instance.str()); }
    void onError(String instance) override { told.push_back("error " + instance.str()); }
    void onDependency(String stage) override { told.push_back("dependency " + stage.str()); }
    void onTimeout() override { told.push_back("timeout"); }
    void onCritical() override { told.push_back("critical"); }
    void onAutoCompleteTimeout() override { told.push_back("autoCompleteTimeout"); }
    void onEnableAutoComplete() override { told.push_back("enableAutoComplete"); }
    void onCompleteNotRunnable() override { told.push_back("completeNotRunnable"); }
};

class EventConfigEntity : public testing::Test {
  protected:
    EventConfigEntity() { listener.notifierIs(event); }

    Ptr<EventConfig> event = make<EventConfig>("mount", "disk");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(EventConfigEntity, IsNamedAfterItsStageAndItsAgent) {
    EXPECT_EQ(event->name(), "mount:disk");
    EXPECT_EQ(event->stage(), "mount");
    EXPECT_EQ(event->agent(), "disk");
}

TEST_F(EventConfigEntity, StandsUnderItsStagesName) { EXPECT_EQ(event->key(), "mount"); }

TEST_F(EventConfigEntity, NamesMayHoldAnyCharacters) {
    const Ptr<EventConfig> odd = make<EventConfig>("a:b", ":/~");

    EXPECT_EQ(odd->name(), "a:b::/~");
    EXPECT_EQ(make<EventConfig>("", "")->name(), ":");
}

TEST_F(EventConfigEntity, EveryAttributeTellsOncePerChange) {
    expectScalar(*event, told, "name", &EventConfig::name, &EventConfig::nameIs,
                 String("mount:disk"), String("other"));
    expectScalar(*event, told, "stage", &EventConfig::stage, &EventConfig::stageIs, Name("mount"),
                 Name("other"));
    expectScalar(*event, told, "agent", &EventConfig::agent, &EventConfig::agentIs, String("disk"),
                 String("other"));
    expectScalar(*event, told, "critical", &EventConfig::critical, &EventConfig::criticalIs, false,
                 true);
    expectScalar(*event, told, "enableAutoComplete", &EventConfig::enableAutoComplete,
                 &EventConfig::enableAutoCompleteIs, false, true);
    expectScalar(*event, told, "completeNotRunnable", &EventConfig::completeNotRunnable,
                 &EventConfig::completeNotRunnableIs, false, true);
}

TEST_F(EventConfigEntity, TimesTakeAnyNumber) {
    expectSeconds(*event, told, "timeout", &EventConfig::timeout, &EventConfig::timeoutIs);
    expectSeconds(*event, told, "autoCompleteTimeout", &EventConfig::autoCompleteTimeout,
                  &EventConfig::autoCompleteTimeoutIs);
}

TEST_F(EventConfigEntity, CollectionsTellPerKey) {
    expectFlags<String>(
        event->complete(), told, "complete",
        {[&](const String& i) { return event->complete(i); },
         [&](String i, bool value) { event->completeIs(i, value); },
         [&](String i) { event->completeDel(i); }, [&] { event->completeDelAll(); }},
        threeNames<String>());
    expectFlags<String>(event->error(), told, "error",
                        {[&](const String& i) { return event->error(i); },
                         [&](String i, bool value) { event->errorIs(i, value); },
                         [&](String i) { event->errorDel(i); }, [&] { event->errorDelAll(); }},
                        threeNames<String>());
    expectFlags<String>(
        event->dependency(), told, "dependency",
        {[&](const String& s) { return event->dependency(s); },
         [&](String s, bool value) { event->dependencyIs(s, value); },
         [&](String s) { event->dependencyDel(s); }, [&] { event->dependencyDelAll(); }},
        threeNames<String>());
}

TEST_F(EventConfigEntity, CompletionInOneInstanceSaysNothingOfAnother) {
    event->completeIs("one", true);

    EXPECT_TRUE(event->complete("one"));
    EXPECT_FALSE(event->complete("other"));
}

}  // namespace
