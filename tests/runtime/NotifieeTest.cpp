#include "runtime/Notifiee.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::make;
using Orv::Ptr;
using RuntimeTest::Lines;
using RuntimeTest::Listener;
using RuntimeTest::Thing;
using RuntimeTest::World;

// A thing, and listeners that write their names.
class Delivery : public ::testing::Test {
  protected:
    World world;
    Ptr<Thing> thing = make<Thing>("thing");
    Lines log;

    std::unique_ptr<Listener> listener(std::string name, std::function<void()> then = {}) {
        return std::make_unique<Listener>(thing,
                                          [this, name = std::move(name), then = std::move(then)] {
                                              log.push_back(name);
                                              if (then) then();
                                          });
    }
};

TEST_F(Delivery, FollowsTheOrderOfConnecting) {
    const auto a = listener("a");
    const auto b = listener("b");
    const auto c = listener("c");
    a->notifierIs(nullptr);
    a->notifierIs(thing);

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"b", "c", "a"}));
}

TEST_F(Delivery, ComesOnceTheChangeIsStoredAndBeforeTheMutatorReturns) {
    double seen = 0;
    const auto a = listener("a", [&] { seen = thing->size(); });

    thing->sizeIs(7);
    log.push_back("returned");

    EXPECT_EQ(seen, 7);
    EXPECT_EQ(log, (Lines{"a", "returned"}));
}

TEST_F(Delivery, KnowsHowManyStandInTheList) {
    EXPECT_EQ(thing->notifiees(), 0u);
    const auto a = listener("a");
    {
        const auto b = listener("b");
        b->notificationActiveIs(false);
        EXPECT_EQ(thing->notifiees(), 2u);
    }
    EXPECT_EQ(thing->notifiees(), 1u);
    a->isRegisteredNotifieeIs(false);
    EXPECT_EQ(thing->notifiees(), 0u);
}

TEST_F(Delivery, OfAnEqualValueIsSilent) {
    thing->sizeIs(1);
    const auto a = listener("a");

    thing->sizeIs(1);

    EXPECT_EQ(log, Lines{});
}

TEST_F(Delivery, OfANanAlwaysIsAChange) {
    const auto a = listener("a");

    thing->sizeIs(std::nan(""));
    thing->sizeIs(std::nan(""));

    EXPECT_EQ(log, (Lines{"a", "a"}));
}

TEST_F(Delivery, OfTheOtherZeroIsSilent) {
    const auto a = listener("a");

    thing->sizeIs(-0.0);

    EXPECT_EQ(log, Lines{});
}

TEST_F(Delivery, PassesOverWhoLeavesInItsOwnCallback) {
    std::unique_ptr<Listener> b;
    const auto a = listener("a");
    b = listener("b", [&] { b->notifierIs(nullptr); });
    const auto c = listener("c");

    thing->sizeIs(1);
    thing->sizeIs(2);

    EXPECT_EQ(log, (Lines{"a", "b", "c", "a", "c"}));
}

TEST_F(Delivery, GoesOnAfterAnEarlierOneWasRemoved) {
    std::unique_ptr<Listener> a = listener("a");
    const auto b = listener("b", [&] { a.reset(); });
    const auto c = listener("c");

    thing->sizeIs(1);
    thing->sizeIs(2);

    EXPECT_EQ(log, (Lines{"a", "b", "c", "b", "c"}));
}

TEST_F(Delivery, PassesOverALaterOneThatWasRemoved) {
    std::unique_ptr<Listener> b;
    std::unique_ptr<Listener> d;
    const auto a = listener("a", [&] { b.reset(); });  // the next
    b = listener("b");
    const auto c = listener("c", [&] { d.reset(); });  // the last
    d = listener("d");

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "c"}));
}

TEST_F(Delivery, EndsWhenEverybodyLeft) {
    std::vector<std::unique_ptr<Listener>> all;
    const auto leave = [&] { all.clear(); };
    all.push_back(listener("a", leave));
    all.push_back(listener("b"));
    all.push_back(listener("c"));

    thing->sizeIs(1);
    thing->sizeIs(2);

    EXPECT_EQ(log, (Lines{"a"}));
}

TEST_F(Delivery, DoesNotReachWhoJoinsMeanwhile) {
    std::vector<std::unique_ptr<Listener>> joined;
    const auto a = listener("a", [&] {
        if (joined.empty()) joined.push_back(listener("joined"));
    });
    const auto b = listener("b");

    thing->sizeIs(1);
    EXPECT_EQ(log, (Lines{"a", "b"}));

    log.clear();
    thing->sizeIs(2);
    EXPECT_EQ(log, (Lines{"a", "b", "joined"}));
}

TEST_F(Delivery, DoesNotReachWhoJoinsFromTheLastCallback) {
    std::unique_ptr<Listener> joined;
    const auto a = listener("a", [&] {
        if (!joined) joined = listener("joined");
    });

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a"}));
}

TEST_F(Delivery, DoesNotReachWhoJoinsAfterTheLastHasLeft) {
    std::unique_ptr<Listener> c;
    std::unique_ptr<Listener> joined;
    const auto a = listener("a", [&] {
        c.reset();
        if (!joined) joined = listener("joined");
    });
    const auto b = listener("b");
    c = listener("c");

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "b"}));
}

TEST_F(Delivery, DoesNotReachWhoLeavesAndComesBackMeanwhile) {
    std::unique_ptr<Listener> b;
    std::unique_ptr<Listener> c;
    bool once = true;
    const auto a = listener("a", [&] {
        if (!std::exchange(once, false)) return;
        for (Listener* l : {b.get(), c.get()}) {
            l->notifierIs(nullptr);
            l->notifierIs(thing);
        }
    });
    b = listener("b");
    c = listener("c");

    thing->sizeIs(1);
    EXPECT_EQ(log, (Lines{"a"}));

    log.clear();
    thing->sizeIs(2);
    EXPECT_EQ(log, (Lines{"a", "b", "c"}));
}

TEST_F(Delivery, SurvivesANotifieeThatDestroysItself) {
    std::unique_ptr<Listener> a;
    a = listener("a", [&] { a.reset(); });
    const auto b = listener("b");

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "b"}));
}

TEST_F(Delivery, KeepsItsEntityAliveToTheEnd) {
    // Nobody else holds the entity, and the notifiees let go of it.
    std::vector<std::unique_ptr<Listener>> all;
    Thing* const raw = thing.get();
    all.push_back(listener("a", [&] {
        for (const auto& l : all) l->notifierIs(nullptr);
        EXPECT_EQ(raw->references(), 0u);
        EXPECT_EQ(raw->size(), 1);
        EXPECT_EQ(Thing::alive, 1);
    }));
    all.push_back(listener("b"));

    thing = nullptr;
    ASSERT_EQ(Thing::alive, 1);
    raw->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a"}));
    EXPECT_EQ(Thing::alive, 0);
}

TEST_F(Delivery, KeepsItsEntityWhileOthersAreStillTold) {
    std::unique_ptr<Listener> a;
    std::unique_ptr<Listener> b;
    Thing* const raw = thing.get();
    a = listener("a", [&] { a.reset(); });
    b = listener("b", [&] {
        b.reset();
        EXPECT_EQ(raw->size(), 1);
    });

    thing = nullptr;
    raw->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "b"}));
    EXPECT_EQ(Thing::alive, 0);
}

TEST_F(Delivery, NestsToAnyDepthAndEachChangeReachesEveryone) {
    const auto a = listener("a", [&] {
        if (thing->size() < 3) thing->sizeIs(thing->size() + 1);
    });
    const auto b = listener("b");

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "a", "a", "b", "b", "b"}));
}

TEST_F(Delivery, NestsAThousandDeep) {
    int told = 0;
    const Listener a(thing, [&] {
        if (thing->size() < 1000) thing->sizeIs(thing->size() + 1);
        ++told;
    });

    thing->sizeIs(1);

    EXPECT_EQ(told, 1000);
}

TEST_F(Delivery, WhoLeavesInAnInnerOneIsPassedOverByTheOuterOnes) {
    std::unique_ptr<Listener> c;
    const auto a = listener("a", [&] {
        if (thing->size() < 3) thing->sizeIs(thing->size() + 1);
    });
    const auto b = listener("b", [&] { c.reset(); });
    c = listener("c");

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "a", "a", "b", "b", "b"}));
}

TEST_F(Delivery, WhoJoinsInAnOuterOneIsToldOfTheInnerChange) {
    std::unique_ptr<Listener> joined;
    const auto a = listener("a", [&] {
        if (joined) return;
        joined = listener("joined");
        thing->sizeIs(2);
    });

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "a", "joined"}));
}

TEST_F(Delivery, OfDifferentEntitiesNests) {
    const auto other = make<Thing>("other");
    const auto a = listener("a", [&] { other->sizeIs(thing->size()); });
    const auto b = listener("b");
    const Listener c(other, [&] {
        log.push_back("other");
        thing->openIs(true);
    });

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "other", "b"}));
    EXPECT_TRUE(thing->open());
}

TEST_F(Delivery, PassesAnExceptionToTheHookTellsTheOthersAndReturns) {
    const auto a = listener("a", [] { throw std::runtime_error("first"); });
    const auto b = listener("b");
    const auto c = listener("c", [] { throw 42; });
    const auto d = listener("d", [] { throw std::logic_error("last"); });

    EXPECT_NO_THROW(thing->sizeIs(1));

    EXPECT_EQ(log, (Lines{"a", "b", "c", "d"}));
    EXPECT_EQ(world.environment.exceptions, (Lines{"first", "unknown exception", "last"}));
    EXPECT_EQ(thing->size(), 1);
}

TEST_F(Delivery, OfAnErrorHasTheErrorsText) {
    const auto a = listener("a", [] { Orv::validPtr(Ptr<Thing>()); });

    thing->sizeIs(1);

    EXPECT_EQ(world.environment.exceptions, (Lines{"null ValidPtr"}));
}

TEST_F(Delivery, SurvivesANotifieeThatDestroysItselfAndThrows) {
    std::unique_ptr<Listener> a;
    a = listener("a", [&] {
        a.reset();
        throw std::runtime_error("gone");
    });
    const auto b = listener("b");

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "b"}));
    EXPECT_EQ(world.environment.exceptions, (Lines{"gone"}));
}

TEST_F(Delivery, AnExceptionOfAnInnerOneStaysThere) {
    const auto a = listener("a", [&] {
        if (thing->size() == 1) {
            thing->sizeIs(2);
            log.push_back("a goes on");
        }
    });
    const auto b = listener("b", [&] {
        if (thing->size() == 2) throw std::runtime_error("inner");
    });

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "a", "b", "a goes on", "b"}));
    EXPECT_EQ(world.environment.exceptions, (Lines{"inner", "inner"}));
}

TEST_F(Delivery, WithoutAnyNotifieePropagatesNothingAndChanges) {
    EXPECT_NO_THROW(thing->sizeIs(1));
    EXPECT_EQ(thing->size(), 1);
}

TEST_F(Delivery, MakesNoAllocation) {
    int told = 0;
    Listener a(thing, [&] { ++told; });
    Listener b(thing, [&] { ++told; });
    thing->tagIs("tag", false);
    const Orv::String tag("tag");
    a.tag = [&](Orv::String) { ++told; };
    const std::size_t before = RuntimeTest::allocations();

    for (int i = 1; i <= 100; ++i) thing->sizeIs(i);
    thing->tagIs(tag, true);
    a.notifierIs(nullptr);
    a.notifierIs(thing);
    thing->sizeIs(0);
    const std::size_t after = RuntimeTest::allocations();

    EXPECT_EQ(after, before);
    EXPECT_EQ(told, 203);
}

// Switched off, unregistered.

TEST_F(Delivery, WhatASwitchedOffNotifieeMissesIsLost) {
    const auto a = listener("a");
    EXPECT_TRUE(a->notificationActive());

    a->notificationActiveIs(false);
    thing->sizeIs(1);
    a->notificationActiveIs(true);
    EXPECT_EQ(log, Lines{});

    thing->sizeIs(2);
    EXPECT_EQ(log, (Lines{"a"}));
}

TEST_F(Delivery, ReachesWhoIsSwitchedOnWhenItsTurnComes) {
    std::unique_ptr<Listener> b;
    std::unique_ptr<Listener> c;
    const auto a = listener("a", [&] {
        b->notificationActiveIs(false);
        c->notificationActiveIs(true);
    });
    b = listener("b");
    c = listener("c");
    c->notificationActiveIs(false);

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"a", "c"}));
}

TEST_F(Delivery, DoesNotReachWhoIsNotRegistered) {
    const auto a = listener("a");
    const auto b = listener("b");
    EXPECT_TRUE(a->isRegisteredNotifiee());

    a->isRegisteredNotifieeIs(false);
    EXPECT_FALSE(a->isRegisteredNotifiee());
    EXPECT_EQ(a->notifier(), thing);
    thing->sizeIs(1);
    EXPECT_EQ(log, (Lines{"b"}));

    a->isRegisteredNotifieeIs(true);
    a->isRegisteredNotifieeIs(true);
    log.clear();
    thing->sizeIs(2);
    EXPECT_EQ(log, (Lines{"b", "a"}));
}

TEST(Notifiee, IsNotRegisteredWithoutANotifier) {
    Listener a;

    a.isRegisteredNotifieeIs(true);

    EXPECT_FALSE(a.isRegisteredNotifiee());
    EXPECT_EQ(a.notifier(), nullptr);
}

TEST(Notifiee, CountsItsNotifier) {
    auto thing = make<Thing>("thing");
    Listener a(thing);
    EXPECT_EQ(thing->references(), 2u);
    thing = nullptr;
    EXPECT_EQ(Thing::alive, 1);

    a.notifierIs(nullptr);

    EXPECT_EQ(Thing::alive, 0);
    EXPECT_FALSE(a.isRegisteredNotifiee());
}

TEST(Notifiee, MovesToAnotherNotifier) {
    const auto first = make<Thing>("first");
    const auto second = make<Thing>("second");
    int told = 0;
    Listener a(first, [&] { ++told; });

    a.notifierIs(second);
    first->sizeIs(1);
    EXPECT_EQ(told, 0);
    second->sizeIs(1);
    EXPECT_EQ(told, 1);
    EXPECT_EQ(first->references(), 1u);
}

TEST_F(Delivery, PassesOverWhoMovesToAnotherNotifierMeanwhile) {
    const auto other = make<Thing>("other");
    std::unique_ptr<Listener> b;
    const auto a = listener("a", [&] { b->notifierIs(other); });
    b = listener("b");
    const auto c = listener("c");

    thing->sizeIs(1);
    EXPECT_EQ(log, (Lines{"a", "c"}));

    log.clear();
    other->sizeIs(1);
    EXPECT_EQ(log, (Lines{"b"}));
}

TEST(Notifiee, MayBeDestroyedByWhatItsOldNotifierTakesAlong) {
    // The notifiee holds the last reference to its notifier, whose end destroys the notifiee.
    class Avenger final : public Orv::NotifieeBase {
      public:
        Avenger(const Orv::PtrInterface* object, std::function<void()> onZero)
            : told_(std::move(onZero)) {
            link(object);
            wantsZeroReferencesIs(true);
        }
        void onZeroReferences() override { told_(); }

      private:
        std::function<void()> told_;
    };
    const auto other = make<Thing>("other");
    auto thing = make<Thing>("thing");
    auto victim = std::make_unique<Listener>(thing);
    Listener* const raw = victim.get();
    const Avenger avenger(thing.get(), [&] { victim.reset(); });
    thing = nullptr;

    raw->notifierIs(other);

    EXPECT_FALSE(victim);
    EXPECT_EQ(other->references(), 1u);
    EXPECT_EQ(Thing::alive, 1);
}

// Against an oracle.

// One script of random acts, run on the real thing and on a plain model of the rules: a delivery
// copies the list, and tells who is still on it by the same connection, and switched on.
class Script {
  public:
    static constexpr int notifiers = 3;
    static constexpr int notifiees = 8;

    virtual ~Script() = default;
    explicit Script(unsigned seed) : random_(seed) {}

    std::vector<std::pair<int, int>> log;  // who was told, at which depth

    void run() {
        for (int i = 0; i < 200; ++i) act();
    }

  protected:
    virtual void connect(int notifiee, int notifier) = 0;  // -1: to none
    virtual void activate(int notifiee, bool active) = 0;
    virtual void recreate(int notifiee) = 0;  // destroys it; a fresh one stands nowhere
    virtual void change(int notifier) = 0;
    void told(int notifiee) {
        log.emplace_back(notifiee, depth_);
        for (int acts = number(3); acts > 0; --acts) act();
    }

  private:
    int number(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
    void act() {
        const int which = number(notifiees);
        switch (number(8)) {
            case 0:
            case 1:
            case 2: connect(which, number(notifiers)); break;
            case 3: connect(which, -1); break;
            case 4: activate(which, number(2) == 0); break;
            case 5: recreate(which); break;
            default:
                if (depth_ >= 5) break;
                ++depth_;
                change(which % notifiers);
                --depth_;
        }
    }

    std::mt19937 random_;
    int depth_ = 0;
};

class RealScript final : public Script {
  public:
    explicit RealScript(unsigned seed) : Script(seed) {
        for (auto& thing : things_) thing = make<Thing>("thing");
        for (int i = 0; i < notifiees; ++i) recreate(i);
    }

  private:
    void connect(int notifiee, int notifier) override {
        at(notifiee).notifierIs(notifier < 0 ? Ptr<Thing>()
                                             : things_[static_cast<std::size_t>(notifier)]);
    }
    void activate(int notifiee, bool active) override { at(notifiee).notificationActiveIs(active); }
    void recreate(int notifiee) override {
        auto& place = listeners_[static_cast<std::size_t>(notifiee)];
        place = std::make_unique<Listener>();
        place->size = [this, notifiee] { told(notifiee); };
    }
    void change(int notifier) override {
        Thing& thing = *things_[static_cast<std::size_t>(notifier)];
        thing.sizeIs(thing.size() + 1);
    }
    Listener& at(int notifiee) { return *listeners_[static_cast<std::size_t>(notifiee)]; }

    std::array<Ptr<Thing>, notifiers> things_;
    std::array<std::unique_ptr<Listener>, notifiees> listeners_;
};

class ModelScript final : public Script {
  public:
    using Script::Script;

  private:
    struct Place {
        int notifiee;
        int connection;
    };

    void connect(int notifiee, int notifier) override {
        for (auto& list : lists_)
            std::erase_if(list, [&](const Place& p) { return p.notifiee == notifiee; });
        if (notifier >= 0) at(notifier).push_back({notifiee, ++connections_});
    }
    void activate(int notifiee, bool active) override {
        active_[static_cast<std::size_t>(notifiee)] = active;
    }
    void recreate(int notifiee) override {
        connect(notifiee, -1);
        activate(notifiee, true);
    }
    void change(int notifier) override {
        const std::vector<Place> snapshot = at(notifier);
        for (const Place& place : snapshot) {
            const auto same = [&](const Place& p) { return p.connection == place.connection; };
            const auto& list = at(notifier);
            if (std::any_of(list.begin(), list.end(), same) &&
                active_[static_cast<std::size_t>(place.notifiee)])
                told(place.notifiee);
        }
    }
    std::vector<Place>& at(int notifier) { return lists_[static_cast<std::size_t>(notifier)]; }

    std::array<std::vector<Place>, notifiers> lists_;
    std::array<bool, notifiees> active_{true, true, true, true, true, true, true, true};
    int connections_ = 0;
};

TEST(DeliveryOracle, RandomActsInsideOfCallbacksFollowTheRules) {
    std::size_t told = 0;
    for (unsigned seed = 1; seed <= 300; ++seed) {
        RealScript real(seed);
        ModelScript model(seed);

        real.run();
        model.run();

        ASSERT_EQ(real.log, model.log) << "seed " << seed;
        told += real.log.size();
    }
    EXPECT_GT(told, 10000u);  // the scripts do reach something
}

// Nested notifiees.

class Keeper {
  public:
    class OrvThing final : public Orv::Watch<Thing, Keeper> {
        using Watch::Watch;
        void onSize() override { sm().handleSize(); }
    };

    void handleSize() {
        ++handled;
        if (then) then();
    }

    int handled = 0;
    std::function<void()> then;
    Orv::WatchSlot<OrvThing, Thing> thing;
};

TEST(WatchSlot, IsEmptyAtFirst) {
    const Keeper keeper;

    EXPECT_FALSE(keeper.thing);
    EXPECT_EQ(keeper.thing.get(), nullptr);
    EXPECT_EQ(keeper.thing.watch(), nullptr);
}

TEST(WatchSlot, ForwardsFromTheMomentItIsSet) {
    const auto thing = make<Thing>("thing");
    Keeper keeper;

    EXPECT_TRUE(keeper.thing.is(keeper, thing));
    thing->sizeIs(1);

    EXPECT_EQ(keeper.handled, 1);
    EXPECT_EQ(keeper.thing.ptr(), thing);
    EXPECT_EQ(keeper.thing->size(), 1);
}

TEST(WatchSlot, TheSameEntityKeepsTheNotifiee) {
    const auto thing = make<Thing>("thing");
    Keeper keeper;
    keeper.thing.is(keeper, thing);
    keeper.thing.watch()->notificationActiveIs(false);

    EXPECT_FALSE(keeper.thing.is(keeper, thing));

    EXPECT_FALSE(keeper.thing.watch()->notificationActive());
    EXPECT_EQ(thing->references(), 3u);  // the test's, the slot's, the notifiee's
}

TEST(WatchSlot, AnotherEntityReplacesTheNotifiee) {
    const auto first = make<Thing>("first");
    const auto second = make<Thing>("second");
    Keeper keeper;
    keeper.thing.is(keeper, first);
    keeper.thing.watch()->notificationActiveIs(false);

    EXPECT_TRUE(keeper.thing.is(keeper, second));

    EXPECT_TRUE(keeper.thing.watch()->notificationActive());
    first->sizeIs(1);
    EXPECT_EQ(keeper.handled, 0);
    second->sizeIs(1);
    EXPECT_EQ(keeper.handled, 1);
    EXPECT_EQ(first->references(), 1u);
}

TEST(WatchSlot, NullAndDelDisconnect) {
    const auto thing = make<Thing>("thing");
    Keeper keeper;

    keeper.thing.is(keeper, thing);
    EXPECT_TRUE(keeper.thing.is(keeper, nullptr));
    EXPECT_FALSE(keeper.thing);
    EXPECT_FALSE(keeper.thing.is(keeper, nullptr));

    keeper.thing.is(keeper, thing);
    keeper.thing.del();
    EXPECT_FALSE(keeper.thing);
    thing->sizeIs(1);
    EXPECT_EQ(keeper.handled, 0);
    EXPECT_EQ(thing->references(), 1u);
}

TEST(WatchSlot, ShowsItsNotifieeWhileItHasOne) {
    const auto thing = make<Thing>("thing");
    Keeper keeper;
    const Keeper& reader = keeper;
    EXPECT_EQ(keeper.thing.watch(), nullptr);

    keeper.thing.is(keeper, thing);
    ASSERT_NE(keeper.thing.watch(), nullptr);
    EXPECT_EQ(reader.thing.watch(), keeper.thing.watch());
    EXPECT_EQ(reader.thing.watch()->notifier(), thing);

    keeper.thing.disconnect();
    EXPECT_EQ(reader.thing.watch(), nullptr);
}

TEST(WatchSlot, DisconnectKeepsTheEntityReadable) {
    const auto thing = make<Thing>("thing");
    Keeper keeper;
    keeper.thing.is(keeper, thing);

    keeper.thing.disconnect();

    thing->sizeIs(1);
    EXPECT_EQ(keeper.handled, 0);
    EXPECT_EQ(keeper.thing->size(), 1);
}

TEST(WatchSlot, MayBeEmptiedInItsOwnCallback) {
    auto thing = make<Thing>("thing");
    Keeper keeper;
    keeper.thing.is(keeper, thing);
    keeper.then = [&] { keeper.thing.del(); };
    Thing* const raw = thing.get();
    thing = nullptr;

    raw->sizeIs(1);

    EXPECT_EQ(keeper.handled, 1);
    EXPECT_EQ(Thing::alive, 0);
}

TEST(WatchSlot, MayBeSetAnewInItsOwnCallback) {
    const auto first = make<Thing>("first");
    const auto second = make<Thing>("second");
    Keeper keeper;
    keeper.thing.is(keeper, first);
    keeper.then = [&] { keeper.thing.is(keeper, second); };

    first->sizeIs(1);
    first->sizeIs(2);
    second->sizeIs(1);

    EXPECT_EQ(keeper.handled, 2);
}

}  // namespace
