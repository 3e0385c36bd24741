#include "runtime/Reactor.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "runtime/Clock.h"
#include "runtime/Dir.h"
#include "runtime/Notifiee.h"
#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::Children;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Orv::Reactor;
using Orv::SingleChild;
using Orv::String;
using RuntimeTest::Callback;
using RuntimeTest::Lines;
using RuntimeTest::Thing;
using RuntimeTest::World;

// A child made from an entity, another entity and a text. It watches the first as its notifier and
// the second through a nested notifiee, and writes its life into a log.
class ChildSm final : public Reactor {
  public:
    class OrvThing final : public Orv::Watch<Thing, ChildSm> {
        using Watch::Watch;
        void onSize() override { sm().handleSize(); }
    };
    class OrvOther final : public Orv::Watch<Thing, ChildSm> {
        using Watch::Watch;
        void onSize() override { sm().handleOther(); }
    };

    ChildSm(Lines& log, Ptr<Thing> thing, Ptr<Thing> other, String text,
            const Callback<>& initialize = {}, int id = ++made)
        : log_(log), text_(std::move(text)), id_(id) {
        thing_.is(*this, std::move(thing));
        if (thing_) thing_.watch()->notificationActiveIs(false);
        other_.is(*this, std::move(other));
        write("made");
        initialize();
        write("initialized");
        ++alive;
    }
    ~ChildSm() override {
        --alive;
        write("deleted");
    }
    static inline int made = 0;
    static inline int alive = 0;

    auto arguments() const { return std::tuple(thing_.ptr(), other_.ptr(), text_); }
    static constexpr std::array<const char*, 3> argumentNames{"thing", "other", "text"};
    const Thing* entity() const { return thing_.get(); }

    void notificationActiveIs(bool active) override {
        write(active ? "on" : "off");
        if (thing_) thing_.watch()->notificationActiveIs(active);
        onSwitch();
    }

    static inline Callback<> onSwitch;
    Callback<> onSize;
    void handleSize() {
        write("size");
        onSize();
        if (retired()) return write("stops");
    }
    void handleOther() { write("other"); }

    int id() const { return id_; }

  private:
    void dismantle() override {
        write("retired");
        thing_.disconnect();
        other_.disconnect();
    }
    void write(const std::string& what) { log_.push_back(std::to_string(id_) + " " + what); }

    Lines& log_;
    String text_;
    int id_;
    Orv::WatchSlot<OrvThing, Thing> thing_;
    Orv::WatchSlot<OrvOther, Thing> other_;
};

class ParentSm final : public Reactor {
  public:
    explicit ParentSm(Lines& log) : log_(log) {}
    ~ParentSm() override { log_.push_back("parent deleted"); }

    SingleChild<ChildSm> single;
    Children<Name, ChildSm> keyed;

    Callback<> initialize;  // what a child does while it is constructed

    Ptr<ChildSm> singleIs(Ptr<Thing> thing, Ptr<Thing> other, String text) {
        return single.is(*this, std::tuple(thing, other, text),
                         [&] { return make<ChildSm>(log_, thing, other, text, initialize); });
    }
    Ptr<ChildSm> refusingIs(Name key, Ptr<Thing> thing, Ptr<Thing> other, String text) {
        return keyed.keepOrRefuse(*this, key, std::tuple(thing, other, text), [&] {
            return make<ChildSm>(log_, thing, other, text, initialize);
        });
    }
    Ptr<ChildSm> keepingIs(Name key, Ptr<Thing> thing) {
        return keyed.keepOrMake(
            *this, key, [&] { return make<ChildSm>(log_, thing, nullptr, key, initialize); });
    }
    Ptr<ChildSm> replacingIs(Name key, Ptr<Thing> thing) {
        return keyed.keepOrReplace(*this, key, thing.get(), [&] {
            return make<ChildSm>(log_, thing, nullptr, key, initialize);
        });
    }

  private:
    void dismantle() override {
        log_.push_back("parent retired");
        keyed.delAll();
        single.del();
    }
    Lines& log_;
};

class ReactorTest : public ::testing::Test {
  protected:
    ReactorTest() {
        ChildSm::made = 0;
        ChildSm::onSwitch = {};
    }
    ~ReactorTest() override {
        parent = nullptr;
        EXPECT_EQ(ChildSm::alive, 0);
    }
    World world;
    Lines log;
    Ptr<Orv::Dir> root = make<Orv::Dir>();
    Ptr<Thing> thing = entry("thing");
    Ptr<Thing> other = entry("other");
    Ptr<ParentSm> parent = make<ParentSm>(log);

    Ptr<Thing> entry(const char* name) {
        auto made = make<Thing>(name);
        root->entryIs(made);
        return made;
    }
    Lines taken() { return std::exchange(log, {}); }
};

using SingleChildTest = ReactorTest;
using KeyedChildren = ReactorTest;
using ReactorLife = ReactorTest;

// A single child.

TEST_F(SingleChildTest, IsConstructedWholeThenStoredThenSwitchedOn) {
    bool stored = true;
    parent->initialize = [&] {
        stored = static_cast<bool>(parent->single);
        thing->sizeIs(1);  // on its notifier: not delivered yet
        other->sizeIs(1);  // on a nested notifiee: live from the moment it stands in its slot
    };

    const auto child = parent->singleIs(thing, other, "text");

    EXPECT_FALSE(stored);
    EXPECT_EQ(parent->single.get(), child.get());
    EXPECT_EQ(taken(), (Lines{"1 made", "1 other", "1 initialized", "1 on"}));
    thing->sizeIs(2);
    EXPECT_EQ(taken(), (Lines{"1 size"}));
}

TEST_F(SingleChildTest, WithEqualArgumentsStays) {
    const auto child = parent->singleIs(thing, other, "text");
    log.clear();

    EXPECT_EQ(parent->singleIs(thing, other, String(std::string("text"))), child);

    EXPECT_EQ(log, Lines{});
}

TEST_F(SingleChildTest, ThatDiffersInAnyArgumentIsReplaced) {
    const Ptr<Thing> nobody;
    parent->singleIs(thing, other, "text");
    log.clear();

    parent->singleIs(other, other, "text");
    EXPECT_EQ(taken(), (Lines{"2 made", "2 initialized", "2 on", "1 retired", "1 deleted"}));
    parent->singleIs(other, thing, "text");
    EXPECT_EQ(taken(), (Lines{"3 made", "3 initialized", "3 on", "2 retired", "2 deleted"}));
    parent->singleIs(other, thing, "Text");
    EXPECT_EQ(taken(), (Lines{"4 made", "4 initialized", "4 on", "3 retired", "3 deleted"}));
    parent->singleIs(other, nobody, "Text");
    EXPECT_EQ(taken(), (Lines{"5 made", "5 initialized", "5 on", "4 retired", "4 deleted"}));
}

TEST_F(SingleChildTest, TheOldOneIsStoredAndWatchesUntilTheNewOneIsStored) {
    parent->singleIs(thing, other, "text");
    log.clear();
    int storedId = 0;
    parent->initialize = [&] {
        storedId = parent->single->id();
        thing->sizeIs(1);
    };

    parent->singleIs(thing, other, "new");

    EXPECT_EQ(storedId, 1);
    EXPECT_EQ(log, (Lines{"2 made", "1 size", "2 initialized", "2 on", "1 retired", "1 deleted"}));
}

TEST_F(SingleChildTest, TheReplacedOneIsRetiredAlsoWhenSomebodyStillHoldsIt) {
    const auto old = parent->singleIs(thing, other, "text");

    parent->singleIs(thing, other, "new");
    log.clear();
    thing->sizeIs(1);

    EXPECT_TRUE(old->retired());
    EXPECT_EQ(log, (Lines{"2 size"}));
}

TEST_F(SingleChildTest, StaysWhenItsReplacementCannotBeMade) {
    const auto child = parent->singleIs(thing, other, "text");
    parent->initialize = [] { throw std::runtime_error("no"); };
    log.clear();

    EXPECT_THROW(parent->singleIs(thing, other, "new"), std::runtime_error);

    EXPECT_EQ(parent->single.get(), child.get());
    thing->sizeIs(1);
    EXPECT_EQ(log, (Lines{"2 made", "1 size"}));
}

TEST_F(SingleChildTest, DelRetiresAndReleasesIt) {
    auto child = parent->singleIs(thing, other, "text");
    log.clear();

    parent->single.del();
    EXPECT_FALSE(parent->single);
    EXPECT_TRUE(child->retired());
    thing->sizeIs(1);
    other->sizeIs(1);
    child = nullptr;

    EXPECT_EQ(log, (Lines{"1 retired", "1 deleted"}));
    parent->single.del();
    EXPECT_EQ(log.size(), 2u);
}

TEST_F(SingleChildTest, IsNotStoredWhenItsOwnerWentMeanwhile) {
    parent->initialize = [&] { parent->retire(); };

    const auto child = parent->singleIs(thing, other, "text");

    EXPECT_FALSE(parent->single);
    EXPECT_TRUE(child->retired());
    thing->sizeIs(1);
    EXPECT_EQ(log, (Lines{"1 made", "parent retired", "1 initialized", "1 retired"}));
}

// Keyed children with further arguments.

TEST_F(KeyedChildren, IsConstructedWholeThenStoredThenSwitchedOn) {
    bool stored = true;
    parent->initialize = [&] {
        stored = parent->keyed.contains("a");
        thing->sizeIs(1);
        other->sizeIs(1);
    };

    const auto child = parent->refusingIs("a", thing, other, "text");

    EXPECT_FALSE(stored);
    EXPECT_EQ(parent->keyed.find("a"), child.get());
    EXPECT_EQ(parent->keyed.size(), 1u);
    EXPECT_EQ(log, (Lines{"1 made", "1 other", "1 initialized", "1 on"}));
}

TEST_F(KeyedChildren, AreStoredWhenTheyAreSwitchedOn) {
    int stored = 0;
    ChildSm::onSwitch = [&] {
        stored += parent->keyed.contains("a");
        stored += static_cast<bool>(parent->single);
    };

    parent->refusingIs("a", thing, other, "text");
    EXPECT_EQ(stored, 1);
    parent->singleIs(thing, other, "text");
    EXPECT_EQ(stored, 3);
}

TEST_F(KeyedChildren, WithEqualArgumentsStay) {
    const auto child = parent->refusingIs("a", thing, other, "text");
    const auto bare = parent->refusingIs("b", nullptr, nullptr, "");
    log.clear();

    EXPECT_EQ(parent->refusingIs("a", thing, other, String(std::string("text"))), child);
    EXPECT_EQ(parent->refusingIs("b", nullptr, nullptr, ""), bare);

    EXPECT_EQ(log, Lines{});
}

class KeyedChildrenRefusal : public ReactorTest {
  protected:
    std::string refusal(Ptr<Thing> first, Ptr<Thing> second, String text) {
        const ChildSm* const held = parent->keyed.find("a");
        log.clear();
        std::string error = "accepted";
        try {
            parent->refusingIs("a", first, second, text);
        } catch (const Orv::NameInUseError& e) {
            error = e.what();
        }
        EXPECT_EQ(parent->keyed.find("a"), held);
        EXPECT_EQ(log, Lines{});
        return error;
    }
};

TEST_F(KeyedChildrenRefusal, NamesTheArgumentItsNewAndItsCurrentValue) {
    parent->refusingIs("a", thing, other, "text");

    EXPECT_EQ(refusal(thing, other, "new"),
              "Reinstantiating the pointer interface where constructor parameter attribute _text "
              "has a different value of new than the current value of text not allowed");
    EXPECT_EQ(refusal(thing, thing, "text"),
              "Reinstantiating the pointer interface where constructor parameter attribute _other "
              "has a different value of /thing than the current value of /other not allowed");
    thing->sizeIs(1);
    EXPECT_EQ(log, (Lines{"1 size"}));  // the child that is there goes on
}

TEST_F(KeyedChildrenRefusal, NamesTheFirstArgumentThatDiffers) {
    parent->refusingIs("a", thing, other, "text");

    EXPECT_EQ(refusal(other, thing, "new"),
              "Reinstantiating the pointer interface where constructor parameter attribute _thing "
              "has a different value of /other than the current value of /thing not allowed");
}

TEST_F(KeyedChildrenRefusal, ShowsNullAndWhatStandsNowhere) {
    parent->refusingIs("a", thing, nullptr, "text");

    EXPECT_EQ(refusal(nullptr, nullptr, "text"),
              "Reinstantiating the pointer interface where constructor parameter attribute _thing "
              "has a different value of null than the current value of /thing not allowed");
    EXPECT_EQ(refusal(thing, make<Thing>("nowhere"), "text"),
              "Reinstantiating the pointer interface where constructor parameter attribute _other "
              "has a different value of Test::Thing than the current value of null not allowed");
}

TEST_F(KeyedChildrenRefusal, IsByIdentityOfEntities) {
    parent->refusingIs("a", thing, other, "text");
    root->entryDel("thing");
    const auto again = entry("thing");

    EXPECT_EQ(refusal(again, other, "text"),
              "Reinstantiating the pointer interface where constructor parameter attribute _thing "
              "has a different value of /thing than the current value of /thing not allowed");
}

TEST_F(KeyedChildren, AHandlerOfTheParentMayMakeTheSameChildWhileItIsConstructed) {
    // The child's construction runs its parent's handlers, which do not find it yet. The later one
    // stays, as the one that its maker is given.
    Ptr<ChildSm> inner;
    parent->initialize = [&] {
        if (!inner) {
            parent->initialize = {};
            inner = parent->refusingIs("a", thing, other, "text");
        }
    };

    const auto outer = parent->refusingIs("a", thing, other, "text");

    EXPECT_NE(inner, outer);
    EXPECT_EQ(parent->keyed.find("a"), outer.get());
    EXPECT_TRUE(inner->retired());
    EXPECT_FALSE(outer->retired());
    inner = nullptr;
    EXPECT_EQ(ChildSm::alive, 1);
}

TEST_F(KeyedChildren, AreNotStoredWhenTheirOwnerWentMeanwhile) {
    parent->initialize = [&] { parent->retire(); };

    const auto child = parent->refusingIs("a", thing, other, "text");

    EXPECT_TRUE(parent->keyed.empty());
    EXPECT_TRUE(child->retired());
}

TEST_F(KeyedChildren, LeaveNothingBehindWhenTheirConstructionFails) {
    parent->initialize = [] { throw std::runtime_error("no"); };

    EXPECT_THROW(parent->refusingIs("a", thing, other, "text"), std::runtime_error);

    EXPECT_TRUE(parent->keyed.empty());
    thing->sizeIs(1);
    other->sizeIs(1);
    EXPECT_EQ(log, (Lines{"1 made"}));
}

TEST_F(KeyedChildren, AreRetiredWhenTheyCannotBeStored) {
    int failures = 0;
    for (int size = 0; size < 40; ++size) {
        const Name key(std::to_string(size));
        log.clear();
        log.reserve(16);  // the log itself must not be what fails
        bool failed = false;
        const auto child = make<ChildSm>(log, thing, other, "text");
        {
            const RuntimeTest::FailingAllocation failing(1);
            try {
                parent->keyed.keepOrMake(*parent, key, [&] { return child; });
            } catch (const std::bad_alloc&) {
                failed = true;
            }
        }
        failures += failed;
        EXPECT_EQ(parent->keyed.contains(key), !failed);
        if (failed) parent->keyed.keepOrMake(*parent, key, [&] { return child; });
        EXPECT_EQ(parent->keyed.size(), static_cast<std::size_t>(size) + 1);
    }
    EXPECT_GT(failures, 2);
}

// Children of their key entity alone, and nested ones.

TEST_F(KeyedChildren, OfTheirKeyAloneStayWhateverTheyWereMadeFrom) {
    const auto child = parent->keepingIs("a", thing);
    log.clear();

    EXPECT_EQ(parent->keepingIs("a", thing), child);
    EXPECT_EQ(parent->keepingIs("a", other), child);

    EXPECT_EQ(log, Lines{});
}

TEST_F(KeyedChildren, ThatAreNestedStayOnTheSameEntity) {
    const auto child = parent->replacingIs("a", thing);
    log.clear();

    EXPECT_EQ(parent->replacingIs("a", thing), child);

    EXPECT_EQ(log, Lines{});
}

TEST_F(KeyedChildren, ThatAreNestedAreReplacedOnAnotherEntity) {
    const auto heldOnTo = parent->replacingIs("c", thing);
    parent->replacingIs("c", other);
    EXPECT_TRUE(heldOnTo->retired());
    parent->keyed.del("c");
    ChildSm::made = 0;
    parent->replacingIs("a", thing);
    parent->replacingIs("b", thing);
    log.clear();

    const auto fresh = parent->replacingIs("a", other);

    EXPECT_EQ(taken(), (Lines{"3 made", "3 initialized", "3 on", "1 retired", "1 deleted"}));
    EXPECT_EQ(parent->keyed.find("a"), fresh.get());
    EXPECT_EQ(parent->keyed.size(), 2u);
    thing->sizeIs(1);
    other->sizeIs(1);
    EXPECT_EQ(taken(), (Lines{"2 size", "3 size"}));
}

// What goes while it is made.

// Looks after itself while it is constructed, as reactors do whose handlers may end them.
class MadeSm final : public Reactor {
  public:
    MadeSm(const Orv::Owner* owner, const bool& needed, const std::function<void(MadeSm&)>& act)
        : Reactor(owner), needed_(needed) {
        act(*this);
    }
    auto arguments() const { return std::tuple(String("same")); }
    [[maybe_unused]] static constexpr std::array<const char*, 1> argumentNames{"text"};

  private:
    bool unwanted() const override { return !needed_; }
    const bool& needed_;
};

class BeingMade : public ReactorTest {
  protected:
    Ptr<MadeSm> madeIs(const std::function<void(MadeSm&)>& act) {
        return children.keepOrMake(*parent, "key",
                                   [&] { return make<MadeSm>(parent.get(), needed, act); });
    }
    bool needed = true;
    Children<Name, MadeSm> children;
};

TEST_F(BeingMade, ASingleChildThatIsNotNeededByThenLeavesTheOldOne) {
    SingleChild<MadeSm> single;
    const auto singleIs = [&](const std::function<void(MadeSm&)>& act) {
        return single.is(*parent, std::tuple(String("another")),
                         [&] { return make<MadeSm>(parent.get(), needed, act); });
    };
    const Ptr<MadeSm> old = singleIs([](MadeSm&) {});
    ASSERT_EQ(single.get(), old.get());

    const Ptr<MadeSm> fresh = singleIs([&](MadeSm&) { needed = false; });

    EXPECT_TRUE(fresh->retired());
    EXPECT_EQ(single.get(), old.get());
    EXPECT_FALSE(old->retired());
}

TEST_F(BeingMade, AReactorCountsAsRetiredOnceItsOwnerIs) {
    bool before = true;
    bool after = false;

    const auto child = madeIs([&](MadeSm& sm) {
        before = sm.retired();
        parent->retire();
        after = sm.retired();
    });

    EXPECT_FALSE(before);
    EXPECT_TRUE(after);
    EXPECT_TRUE(child->retired());
    EXPECT_TRUE(children.empty());
}

TEST_F(BeingMade, AReactorThatIsUnwantedIsNotStored) {
    bool seen = false;

    const auto child = madeIs([&](MadeSm& sm) {
        needed = false;
        seen = sm.retired();
    });

    EXPECT_TRUE(seen);
    EXPECT_TRUE(children.empty());
    needed = true;
    EXPECT_TRUE(child->retired());  // and for good
}

TEST_F(BeingMade, WhatTookItsPlaceMeanwhileStays) {
    Ptr<MadeSm> inner;
    const bool innerNeeded = true;

    const auto outer = madeIs([&](MadeSm&) {
        needed = false;
        inner = children.keepOrMake(*parent, "key", [&] {
            return make<MadeSm>(parent.get(), innerNeeded, [](MadeSm&) {});
        });
    });

    EXPECT_TRUE(outer->retired());
    EXPECT_FALSE(inner->retired());
    EXPECT_EQ(children.find("key"), inner.get());
}

TEST_F(BeingMade, IsOverOnceTheReactorIsStored) {
    const auto child = madeIs([](MadeSm&) {});

    needed = false;  // of no meaning any more: its owner takes it out when it has to go

    EXPECT_FALSE(child->retired());
    EXPECT_EQ(children.find("key"), child.get());
    parent->retire();
    EXPECT_FALSE(child->retired());
}

TEST_F(BeingMade, AnUnwantedReplacementOfASingleChildLeavesTheOldOne) {
    SingleChild<MadeSm> single;
    const auto old = single.is(*parent, std::tuple(String("same")),
                               [&] { return make<MadeSm>(parent.get(), needed, [](MadeSm&) {}); });

    const auto fresh = single.is(*parent, std::tuple(String("other")), [&] {
        return make<MadeSm>(parent.get(), needed, [&](MadeSm&) { needed = false; });
    });

    EXPECT_EQ(single.get(), old.get());
    EXPECT_FALSE(old->retired());
    EXPECT_TRUE(fresh->retired());
}

// Deleting.

TEST_F(KeyedChildren, AreTakenOutRetiredAndReleased) {
    auto child = parent->keepingIs("a", thing);
    log.clear();

    parent->keyed.del("a");
    EXPECT_FALSE(parent->keyed.contains("a"));
    EXPECT_TRUE(child->retired());
    thing->sizeIs(1);
    EXPECT_EQ(taken(), (Lines{"1 retired"}));

    child = nullptr;
    EXPECT_EQ(taken(), (Lines{"1 deleted"}));  // retired once only
}

TEST_F(KeyedChildren, ThatAreAbsentAreDeletedSilently) {
    parent->keyed.del("absent");
    parent->keyed.delAll();

    EXPECT_EQ(log, Lines{});
}

TEST_F(KeyedChildren, AllGoInTheirOrder) {
    for (const char* key : {"c", "a", "b"}) parent->keepingIs(key, thing);
    log.clear();

    parent->keyed.delAll();

    EXPECT_TRUE(parent->keyed.empty());
    EXPECT_EQ(
        log, (Lines{"1 retired", "1 deleted", "2 retired", "2 deleted", "3 retired", "3 deleted"}));
}

TEST_F(KeyedChildren, MayBeWalkedWhileTheyGo) {
    for (const char* key : {"a", "b", "c"}) parent->keepingIs(key, thing);
    Lines seen;

    parent->keyed.map().walk([&](Name key) {
        seen.push_back(key.str());
        parent->keyed.del(key);
        if (key == "a") parent->keyed.del("b");
    });

    EXPECT_EQ(seen, (Lines{"a", "c"}));
    EXPECT_TRUE(parent->keyed.empty());
}

// A reactor's end.

TEST_F(ReactorLife, RetiresOnceAndItsChildrenWithIt) {
    parent->keepingIs("a", thing);
    parent->singleIs(thing, other, "text");
    log.clear();

    parent->retire();
    EXPECT_TRUE(parent->retired());
    parent->retire();
    EXPECT_EQ(taken(),
              (Lines{"parent retired", "1 retired", "1 deleted", "2 retired", "2 deleted"}));

    parent = nullptr;
    EXPECT_EQ(taken(), (Lines{"parent deleted"}));
}

TEST_F(ReactorLife, RetiresWithItsLastReference) {
    parent->keepingIs("a", thing);
    log.clear();

    parent = nullptr;

    EXPECT_EQ(log, (Lines{"parent retired", "1 retired", "1 deleted", "parent deleted"}));
}

TEST_F(ReactorLife, AReactorDestroyedInItsOwnCallbackIsValidUntilTheOutermostDeliveryReturns) {
    parent->keepingIs("a", thing)->onSize = [&] {
        parent->keyed.del("a");
        log.push_back("still here");
    };
    const RuntimeTest::Listener outer(other, [&] {
        thing->sizeIs(5);
        log.push_back("outer goes on");
    });
    log.clear();

    other->sizeIs(1);

    EXPECT_EQ(
        log, (Lines{"1 size", "1 retired", "still here", "1 stops", "outer goes on", "1 deleted"}));
}

TEST_F(ReactorLife, AReactorDestroyedInItsOwnTimerIsValidUntilItReturns) {
    class TimedSm final : public Reactor {
      public:
        class OrvClock final : public Orv::TimerOf<TimedSm> {
            using TimerOf::TimerOf;
            void onTime() override { sm().handleTime(); }
        };
        explicit TimedSm(Lines& log) : log_(log) { clock.is(Orv::activityManager().clock()); }
        ~TimedSm() override { log_.push_back("deleted"); }
        void handleTime() {
            if (!release) return;
            release();
            log_.push_back(retired() ? "retired" : "alive");
        }
        std::function<void()> release;
        Orv::TimerSlot<OrvClock> clock{*this};

      private:
        void dismantle() override { clock.del(); }
        Lines& log_;
    };
    auto timed = make<TimedSm>(log);
    timed->release = [&] { timed = nullptr; };
    timed->clock.timeMinIs(3);

    world.manager.runUntilIdle();

    EXPECT_EQ(log, (Lines{"retired", "deleted"}));
    EXPECT_EQ(world.manager.clock()->armedTimers(), 0u);
}

TEST_F(ReactorLife, ACallbackForAReactorThatIsBeingDestroyedIsIgnored) {
    // The first to be told takes the others away; one of them is still referenced elsewhere.
    parent->keepingIs("first", thing)->onSize = [&] {
        parent->keyed.del("second");
        parent->keyed.del("third");
    };
    parent->keepingIs("second", thing);
    const auto third = parent->refusingIs("third", thing, thing, "text");
    parent->keepingIs("last", thing);
    log.clear();

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"1 size", "2 retired", "3 retired", "4 size", "2 deleted"}));
}

TEST_F(ReactorLife, AThrowInAHandlerReachesTheHookAndTheOthersAreTold) {
    parent->keepingIs("a", thing)->onSize = [] { throw std::runtime_error("handler"); };
    parent->keepingIs("b", thing);
    log.clear();

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"1 size", "2 size"}));
    EXPECT_EQ(world.environment.exceptions, (Lines{"handler"}));
}

TEST_F(ReactorLife, ARefusalInsideOfANotificationReachesTheHook) {
    parent->refusingIs("a", thing, other, "text");
    const RuntimeTest::Listener listener(thing,
                                         [&] { parent->refusingIs("a", thing, other, "new"); });

    thing->sizeIs(1);

    ASSERT_EQ(world.environment.exceptions.size(), 1u);
    EXPECT_EQ(world.environment.exceptions[0],
              "Reinstantiating the pointer interface where constructor parameter attribute _text "
              "has a different value of new than the current value of text not allowed");
}

TEST_F(ReactorLife, AnEntityThatItsOwnerDeletesLeavesItsReactorAlone) {
    const auto child = parent->keepingIs("a", thing);
    log.clear();

    root->entryDel("thing");

    EXPECT_FALSE(child->retired());
    EXPECT_EQ(log, Lines{});
}

TEST(ArgumentText, ShowsTextsAsTheyAreAndEntitiesByPathOrType) {
    class Plain final : public Orv::PtrInterface {};
    const auto root = make<Orv::Dir>();
    const auto thing = make<Thing>("thing");

    EXPECT_EQ(Orv::argumentText(String("text")), "text");
    EXPECT_EQ(Orv::argumentText(Name("name")), "name");
    EXPECT_EQ(Orv::argumentText(Ptr<Thing>()), "null");
    EXPECT_EQ(Orv::argumentText(thing), "Test::Thing");
    root->entryIs(thing);
    EXPECT_EQ(Orv::argumentText(Ptr<const Thing>(thing)), "/thing");
    EXPECT_EQ(Orv::argumentText(make<Plain>()), "an object");
}

}  // namespace
