#include "model/AgentConfig.h"

#include "runtime/Dir.h"
#include "tests/model/Told.h"

namespace {

using ModelTest::expectMembers;
using ModelTest::expectScalar;
using ModelTest::keysOf;
using ModelTest::Lines;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Stage::AgentConfig;
using Stage::EventConfig;

class Listener final : public AgentConfig::NotifieeConst {
  public:
    Lines told;
    void onEvent(Name stage) override { told.push_back("event " + stage.str()); }
    void onCreatedOnStageRequest() override { told.push_back("createdOnStageRequest"); }
};

class AgentConfigEntity : public testing::Test {
  protected:
    AgentConfigEntity() { listener.notifierIs(agent); }

    Ptr<AgentConfig> agent = make<AgentConfig>("disk");
    Listener listener;
    Lines& told = listener.told;
};

TEST_F(AgentConfigEntity, IsNamedAfterItsAgent) { EXPECT_EQ(agent->name(), "disk"); }

TEST_F(AgentConfigEntity, CreatedOnStageRequestTellsOncePerChange) {
    expectScalar(*agent, told, "createdOnStageRequest", &AgentConfig::createdOnStageRequest,
                 &AgentConfig::createdOnStageRequestIs, false, true);
}

TEST_F(AgentConfigEntity, MakesItsEvents) {
    expectMembers<EventConfig>(
        *agent, agent->event(), told, "event",
        {[&](Name stage) { return agent->event(stage); },
         [&](Name stage) { return agent->eventIs(stage, "disk"); },
         [&](Name stage) { agent->eventDel(stage); }, [&] { agent->eventDelAll(); }});
}

TEST_F(AgentConfigEntity, AnEventIsMadeFromItsStageAndTheGivenAgent) {
    const Ptr<EventConfig> event = agent->eventIs("mount", "somebody else");

    EXPECT_EQ(event->stage(), "mount");
    EXPECT_EQ(event->agent(), "somebody else");
    EXPECT_EQ(event->name(), "mount:somebody else");
}

TEST_F(AgentConfigEntity, AnEventThatExistsKeepsItsAgent) {
    agent->eventIs("mount", "disk");

    EXPECT_EQ(agent->eventIs("mount", "other")->agent(), "disk");
}

TEST_F(AgentConfigEntity, ANewEventIsInPlaceWhenItIsToldOf) {
    class Reader final : public AgentConfig::NotifieeConst {
      public:
        Lines found;
        void onEvent(Name stage) override {
            const Ptr<EventConfig> event = notifier()->event(stage);
            found.push_back(event ? event->name().str() : "gone");
        }
    } reader;
    reader.notifierIs(agent);

    agent->eventIs("mount", "disk");
    agent->eventDel("mount");

    EXPECT_EQ(reader.found, Lines({"mount:disk", "gone"}));
}

TEST_F(AgentConfigEntity, LosesItsEventsOneByOneWhenItsDirectoryDropsIt) {
    const Ptr<Orv::Dir> dir = make<Orv::Dir>();
    dir->entryIs(agent);
    agent->eventIs("mount", "disk");
    agent->eventIs("probe", "disk");
    told.clear();

    dir->entryDel("disk");

    EXPECT_THAT(told, testing::UnorderedElementsAre("event mount", "event probe"));
    EXPECT_TRUE(agent->event().empty());
}

TEST_F(AgentConfigEntity, AnEventOutlivesItsRemovalForWhoeverHoldsIt) {
    const Ptr<EventConfig> event = agent->eventIs("mount", "disk");

    agent->eventDel("mount");

    event->timeoutIs(5);
    EXPECT_EQ(event->timeout(), 5);
    EXPECT_EQ(keysOf(agent->event()), Lines());
}

}  // namespace
