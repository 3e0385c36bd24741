#include "model/AgentStatusLocal.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runtime/Trace.h"
#include "tests/model/Told.h"

namespace {

using ModelTest::expectFlags;
using ModelTest::Lines;
using Orv::make;
using Orv::Ptr;
using Stage::AgentStatusKey;
using Stage::AgentStatusLocal;

class Listener final : public AgentStatusLocal::NotifieeConst {
  public:
    Lines told;
    void onComplete(AgentStatusKey key) override {
        told.push_back("complete " + key.agent.str() + ":" + key.stage.str() + ":" +
                       key.instance.str());
    }
};

TEST(AgentStatusLocalEntity, NeedsNothingToBeMade) {
    EXPECT_TRUE(make<AgentStatusLocal>()->complete().empty());
}

TEST(AgentStatusLocalEntity, CompletionsTellPerKey) {
    const Ptr<AgentStatusLocal> record = make<AgentStatusLocal>();
    Listener listener;
    listener.notifierIs(record);

    expectFlags<AgentStatusKey>(
        record->complete(), listener.told, "complete",
        {[&](const AgentStatusKey& key) { return record->complete(key); },
         [&](AgentStatusKey key, bool value) { record->completeIs(key, value); },
         [&](AgentStatusKey key) { record->completeDel(key); }, [&] { record->completeDelAll(); }},
        {{{"disk", "mount", "main"}, "disk:mount:main"},
         {{"disk", "mount", "spare"}, "disk:mount:spare"},
         {{"fan", "mount", "main"}, "fan:mount:main"}});
}

// Does something whenever a member changes, before anybody else is told.
class WhenObserved final : public Orv::TreeObserver {
  public:
    explicit WhenObserved(std::function<void()> act) : act_(std::move(act)) {}
    void onScalar(const Orv::Entity&, const Orv::Attribute&) override {}
    void onMember(const Orv::Entity&, const Orv::Attribute&, const Orv::Value&) override { act_(); }
    void onEnqueued(const Orv::Entity&, const Orv::Attribute&) override {}
    void onEntry(const Orv::Dir&, const Orv::Entity&, bool) override {}

  private:
    std::function<void()> act_;
};

// Subscribers that write their names and the agent.
class Subscriptions : public testing::Test {
  protected:
    class Subscriber final : public AgentStatusLocal::SubscriberConst {
      public:
        Subscriber(Subscriptions& test, std::string name, const char* stage, const char* instance)
            : SubscriberConst(test.record, stage, instance), test_(test), name_(std::move(name)) {}
        void onComplete(AgentStatusKey key) override {
            test_.told.push_back(name_ + " " + key.agent.str());
            test_.then();
        }

      private:
        Subscriptions& test_;
        std::string name_;
    };
    class Host final : public AgentStatusLocal::NotifieeConst {
      public:
        explicit Host(Lines& told) : told_(told) {}
        void onComplete(AgentStatusKey) override { told_.push_back("host"); }

      private:
        Lines& told_;
    };

    std::unique_ptr<Subscriber> subscriber(const std::string& name, const char* stage,
                                           const char* instance = "main") {
        return std::make_unique<Subscriber>(*this, name, stage, instance);
    }
    Lines take() { return std::exchange(told, {}); }

    const Ptr<AgentStatusLocal> record = make<AgentStatusLocal>();
    Lines told;
    std::function<void()> then = [] {};
};

TEST_F(Subscriptions, ATrueCompletionReachesTheOneWhoseStageAndInstanceItIs) {
    const auto mount = subscriber("mount", "mount");
    const auto other = subscriber("other", "mount", "spare");
    const auto net = subscriber("net", "net");

    record->completeIs({"disk", "mount", "main"}, true);
    record->completeIs({"disk", "net", "spare"}, true);

    EXPECT_EQ(take(), Lines({"mount disk"}));
}

TEST_F(Subscriptions, AFalseOrRemovedCompletionReachesAll) {
    const auto mount = subscriber("mount", "mount");
    const auto net = subscriber("net", "net");

    record->completeIs({"disk", "net", "main"}, false);
    EXPECT_EQ(take(), Lines({"mount disk", "net disk"}));

    record->completeDel({"disk", "net", "main"});
    EXPECT_EQ(take(), Lines({"mount disk", "net disk"}));
}

TEST_F(Subscriptions, ReachAllWhileSomebodyTraces) {
    const auto mount = subscriber("mount", "mount");
    const auto net = subscriber("net", "net");
    Orv::TraceHandle& handle = Orv::TraceHandle::named("SubscriptionsTest");

    handle.recordLevelIs(0);
    record->completeIs({"disk", "net", "main"}, true);
    handle.recordLevelIs(Orv::TraceHandle::off);
    EXPECT_EQ(take(), Lines({"mount disk", "net disk"}));
}

TEST_F(Subscriptions, ReachAllInTheOrderOfJoiningWhileAHostListensToo) {
    const auto mount = subscriber("mount", "mount");
    Host host(told);
    host.notifierIs(record);
    const auto net = subscriber("net", "net");

    record->completeIs({"disk", "net", "main"}, true);
    EXPECT_EQ(take(), Lines({"mount disk", "host", "net disk"}));

    host.notifierIs(nullptr);
    record->completeIs({"fan", "net", "main"}, true);
    EXPECT_EQ(take(), Lines({"net fan"}));
}

TEST_F(Subscriptions, ReachBothWhenTwoWaitForTheSame) {
    const auto first = subscriber("first", "mount");
    auto second = subscriber("second", "mount");
    const auto net = subscriber("net", "net");

    record->completeIs({"disk", "mount", "main"}, true);
    EXPECT_EQ(take(), Lines({"first disk", "second disk", "net disk"}));

    second.reset();
    record->completeIs({"fan", "mount", "main"}, true);
    EXPECT_EQ(take().front(), "first fan");
}

TEST_F(Subscriptions, WhoIsSwitchedOffOrHasGoneIsNotTold) {
    auto mount = subscriber("mount", "mount");
    const auto net = subscriber("net", "net");

    mount->notificationActiveIs(false);
    record->completeIs({"disk", "mount", "main"}, true);
    EXPECT_EQ(take(), Lines());

    mount.reset();
    record->completeIs({"fan", "mount", "main"}, true);
    EXPECT_EQ(take(), Lines());
    EXPECT_EQ(record->notifiees(), 1u);
}

TEST_F(Subscriptions, ASubscriberMayGoWhileItIsTold) {
    auto mount = subscriber("mount", "mount");
    then = [&] { mount.reset(); };

    record->completeIs({"disk", "mount", "main"}, true);
    record->completeIs({"fan", "mount", "main"}, true);

    EXPECT_EQ(take(), Lines({"mount disk"}));
}

TEST_F(Subscriptions, AReportThatIsTakenBackAndMadeAgainReachesWhoWaitsForIt) {
    const auto mount = subscriber("mount", "mount");
    record->completeIs({"disk", "mount", "main"}, true);
    record->completeDel({"disk", "mount", "main"});
    take();

    record->completeIs({"disk", "mount", "main"}, true);

    EXPECT_EQ(take(), Lines({"mount disk"}));
}

TEST_F(Subscriptions, WhoJoinsWhileAnObserverIsToldIsToldToo) {
    std::vector<std::unique_ptr<Subscriber>> joined;
    const WhenObserved joining([&] {
        for (int i = 0; i < 100; ++i)
            joined.push_back(subscriber("other", "mount", std::to_string(i).c_str()));
        joined.push_back(subscriber("mount", "mount"));
    });

    record->completeIs({"disk", "mount", "main"}, true);

    EXPECT_EQ(take(), Lines({"mount disk"}));
}

TEST_F(Subscriptions, NobodyIsToldOfAReportThatAnObserverHasTakenBack) {
    const auto net = subscriber("net", "net");
    int taken = 0;
    const WhenObserved takingBack([&] {
        if (++taken == 1) record->completeDel({"disk", "mount", "main"});
    });

    record->completeIs({"disk", "mount", "main"}, true);

    EXPECT_EQ(taken, 2) << "the report, and that it is taken back";
    EXPECT_EQ(take(), Lines({"net disk"})) << "once: that it is taken back";
    EXPECT_FALSE(record->complete({"disk", "mount", "main"}));
}

TEST_F(Subscriptions, TheReportsOfAStageInAnInstanceAreCounted) {
    const auto reports = [&](const char* instance) { return record->reports("mount", instance); };
    EXPECT_EQ(reports("main"), 0u);
    for (const char* agent : {"disk", "fan"}) {
        record->completeIs({agent, "mount", "main"}, true);
        record->completeIs({agent, "mount", "main"}, false);
    }
    record->completeIs({"disk", "mount", "spare"}, true);
    EXPECT_EQ(reports("main"), 2u) << "whatever the value";
    EXPECT_EQ(reports("spare"), 1u);

    record->completeDel({"disk", "mount", "main"});
    record->completeDel({"disk", "mount", "main"});
    EXPECT_EQ(reports("main"), 1u);
    record->completeDel({"fan", "mount", "main"});
    EXPECT_EQ(reports("main"), 0u);
    EXPECT_EQ(reports("spare"), 1u);
}

}  // namespace
