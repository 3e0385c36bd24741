#include "model/StageStatus.h"

#include <cmath>
#include <functional>
#include <memory>
#include <random>

#include "tests/model/Told.h"
#include "tests/support/Allocations.h"

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

// --- what its events come to ---------------------------------------------------------------------

bool anyCritical(const StageStatus& stage) {
    for (const auto& [agent, event] : stage.event())
        if (event->critical()) return true;
    return false;
}
bool anyDependsOn(const StageStatus& stage, const String& other) {
    for (const auto& [agent, event] : stage.event())
        if (event->dependency(other)) return true;
    return false;
}
// In the order of the events, each rounded where it takes over.
float largestTimeout(const StageStatus& stage) {
    float largest = 0;
    for (const auto& [agent, event] : stage.event())
        if (!(static_cast<double>(largest) > event->timeout()))
            largest = static_cast<float>(event->timeout());
    return largest;
}

// A listener that reads the stage whenever one of its events changes: what it reads has to be what
// a look at the events finds.
class Reader final : public EventConfig::NotifieeConst {
  public:
    Reader(const StageStatus& stage, const Ptr<EventConfig>& event) : stage_(stage) {
        notifierIs(event);
    }
    void onTimeout() override { look(); }
    void onCritical() override { look(); }
    void onDependency(String) override { look(); }
    void look() const {
        ASSERT_EQ(stage_.someEventCritical(), anyCritical(stage_));
        for (const char* other : {"a", "b", "c"})
            ASSERT_EQ(stage_.someEventDependsOn(other), anyDependsOn(stage_, other)) << other;
        const float largest = stage_.largestEventTimeout();
        const float expected = largestTimeout(stage_);
        ASSERT_TRUE(largest == expected || (std::isnan(largest) && std::isnan(expected)))
            << largest << " instead of " << expected;
        ASSERT_EQ(std::signbit(largest), std::signbit(expected));
    }

  private:
    const StageStatus& stage_;
};

TEST_F(StageStatusEntity, SaysOfManyChangingEventsWhatALookAtThemFinds) {
    const std::vector<double> limits = {0,  -0.0,  1,    30,    30.1,     16777217,
                                        -5, 1e300, 0.25, 1e-60, HUGE_VAL, std::nan("")};
    std::mt19937 random(7);
    const auto below = [&](std::size_t end) { return random() % end; };
    std::vector<Ptr<EventConfig>> events;
    std::vector<std::unique_ptr<Reader>> readers;
    for (int i = 0; i < 12; ++i) {
        events.push_back(make<EventConfig>("mount", std::to_string(i)));
        readers.push_back(std::make_unique<Reader>(*stage, events.back()));
    }

    for (int step = 0; step < 20000; ++step) {
        const Ptr<EventConfig> event = events[below(events.size())];
        const char* const other = std::vector{"a", "b", "c"}[below(3)];
        switch (below(6)) {
            case 0: stage->eventIs(event); break;
            case 1: stage->eventDel(event->agent()); break;
            case 2: event->criticalIs(below(4) == 0); break;
            // What is decided by the events' places comes seldom.
            case 3: event->timeoutIs(limits[below(step % 1000 < 800 ? 4 : limits.size())]); break;
            case 4: event->dependencyIs(other, below(3) != 0); break;
            default: event->dependencyDel(other); break;
        }
        readers[0]->look();
        if (HasFatalFailure()) FAIL() << "at step " << step;
    }
}

TEST_F(StageStatusEntity, CountsAnEventThatStandsElsewhereToo) {
    const Ptr<StageStatus> other = make<StageStatus>("other");
    std::vector<Ptr<EventConfig>> events;
    for (int i = 0; i < 6; ++i) {
        events.push_back(make<EventConfig>("mount", std::to_string(i)));
        stage->eventIs(events.back());
        other->eventIs(events.back());
    }

    events[2]->criticalIs(true);
    events[3]->timeoutIs(30);
    for (const auto& s : {stage, other}) {
        EXPECT_TRUE(s->someEventCritical());
        EXPECT_EQ(s->largestEventTimeout(), 30);
    }
    stage->eventDel("2");
    EXPECT_FALSE(stage->someEventCritical());
    EXPECT_TRUE(other->someEventCritical());
    events[2]->criticalIs(false);
    EXPECT_FALSE(other->someEventCritical());
}

TEST_F(StageStatusEntity, CountsNoMoreAnEventThatAnotherOfItsAgentReplaces) {
    for (int i = 0; i < 6; ++i) stage->eventIs(make<EventConfig>("mount", std::to_string(i)));
    const Ptr<EventConfig> before = stage->event("2");
    before->criticalIs(true);
    before->timeoutIs(30);
    before->dependencyIs("a", true);

    stage->eventIs(make<EventConfig>("mount", "2"));

    EXPECT_EQ(before->holder(), nullptr);
    EXPECT_FALSE(stage->someEventCritical());
    EXPECT_FALSE(stage->someEventDependsOn("a"));
    EXPECT_EQ(stage->largestEventTimeout(), 0);
}

TEST_F(StageStatusEntity, NamesTheAgentOfTheFirstEventOfAKind) {
    for (const char* agent : {"a", "b", "c"}) stage->eventIs(make<EventConfig>("mount", agent));
    stage->event("b")->criticalIs(true);
    stage->event("c")->criticalIs(true);
    const auto critical = [](const EventConfig& event) { return event.critical(); };

    EXPECT_EQ(stage->firstAgent(critical), "b");
    stage->event("b")->criticalIs(false);
    stage->event("c")->criticalIs(false);
    EXPECT_EQ(stage->firstAgent(critical), "");
}

TEST_F(StageStatusEntity, ThatGoesLeavesItsEventsToOthers) {
    std::vector<Ptr<EventConfig>> events;
    for (int i = 0; i < 6; ++i) {
        events.push_back(make<EventConfig>("mount", std::to_string(i)));
        stage->eventIs(events.back());
    }
    EXPECT_NE(events[0]->holder(), nullptr);
    listener.notifierIs(nullptr);
    stage = make<StageStatus>("another");
    for (const auto& event : events) {
        EXPECT_EQ(event->holder(), nullptr);
        stage->eventIs(event);
    }

    events[5]->criticalIs(true);

    EXPECT_TRUE(stage->someEventCritical());
}

// Whatever allocation is refused, what the stage says of its events stays what a look at them
// finds.
TEST_F(StageStatusEntity, SaysTheSameOfItsEventsWhenThereIsNoMemoryToCountThem) {
    bool refused = true;
    for (std::size_t which = 1; refused; ++which) {
        SCOPED_TRACE(which);
        const Ptr<StageStatus> counted = make<StageStatus>("mount");
        std::vector<Ptr<EventConfig>> events;
        for (int i = 0; i < 5; ++i) {
            events.push_back(make<EventConfig>("mount", std::to_string(i)));
            events.back()->timeoutIs(i);
            events.back()->dependencyIs("a", i == 0);
        }
        const Reader reader(*counted, events[0]);
        const std::vector<std::function<void()>> acts = {
            [&] { counted->eventIs(events[0]); },
            [&] { counted->eventIs(events[1]); },
            [&] { counted->eventIs(events[2]); },
            [&] { counted->eventIs(events[3]); },
            [&] { events[3]->timeoutIs(70); },
            [&] { events[2]->dependencyIs("b", true); },
            [&] { counted->eventIs(events[4]); },
            [&] { events[0]->timeoutIs(80); },
            [&] { events[1]->dependencyIs("c", true); },
            [&] { events[0]->dependencyDel("a"); },
            [&] { counted->eventDel("0"); },
        };
        refused = RuntimeTest::doneWithout(which, acts);
        reader.look();
        for (const auto& act : acts) {
            act();
            reader.look();
        }
    }
}

}  // namespace
