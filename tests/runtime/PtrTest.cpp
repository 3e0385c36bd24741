#include "runtime/Ptr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "runtime/Notifiee.h"
#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"

namespace {

using Orv::DeliveryScope;
using Orv::make;
using Orv::Ptr;
using RuntimeTest::Lines;
using RuntimeTest::Thing;
using RuntimeTest::ThreadSafePtrs;
using RuntimeTest::World;

// Writes its life into a log.
class Witness : public Orv::PtrInterface {
  public:
    explicit Witness(Lines& log, std::string name = "it") : log_(log), name_(std::move(name)) {}
    ~Witness() override { log_.push_back(name_ + " deleted"); }

    std::function<void()> gone;
    Ptr<Orv::PtrInterface> held;

  protected:
    void lastReferenceGone() override {
        log_.push_back(name_ + " gone");
        if (gone) gone();
    }

  private:
    Lines& log_;
    std::string name_;
};

class DerivedWitness final : public Witness {
  public:
    using Witness::Witness;
};

// Watches without counting: the only kind that can see its notifier go.
class Mourner final : public Orv::NotifieeBase {
  public:
    explicit Mourner(const Orv::PtrInterface* object, std::function<void()> onZero = {})
        : told(std::move(onZero)) {
        link(object);
        wantsZeroReferencesIs(true);
    }
    std::function<void()> told;
    void onZeroReferences() override {
        if (told) told();
    }
};

// Counting, with the switch off and on.

class PtrCounting : public ::testing::TestWithParam<bool> {
  protected:
    ThreadSafePtrs threadSafe{GetParam()};
    Lines log;
};
INSTANTIATE_TEST_SUITE_P(Switch, PtrCounting, ::testing::Bool(),
                         [](const auto& param) { return std::string(param.param ? "On" : "Off"); });

TEST_P(PtrCounting, AMadeObjectHasOneReference) {
    const auto p = make<Witness>(log);

    EXPECT_EQ(p->references(), 1u);
    EXPECT_FALSE(p->deletionPending());
}

TEST_P(PtrCounting, CopiesAddAndDropsRemove) {
    auto p = make<Witness>(log);
    {
        const Ptr<Witness> second = p;
        const Ptr<const Witness> third = second;
        const Ptr<Orv::PtrInterface> fourth = p;
        EXPECT_EQ(p->references(), 4u);
    }
    EXPECT_EQ(p->references(), 1u);
    EXPECT_EQ(log, Lines{});

    p = nullptr;

    EXPECT_EQ(log, (Lines{"it gone", "it deleted"}));
}

TEST_P(PtrCounting, MovingLeavesTheCountAndEmptiesTheSource) {
    auto p = make<DerivedWitness>(log);

    Ptr<DerivedWitness> moved = std::move(p);
    const Ptr<Witness> converted = std::move(moved);

    EXPECT_FALSE(p);      // NOLINT: moved from on purpose
    EXPECT_FALSE(moved);  // NOLINT
    EXPECT_EQ(converted->references(), 1u);
}

TEST_P(PtrCounting, AssignmentReleasesWhatWasHeld) {
    auto a = make<Witness>(log, "a");
    const auto b = make<Witness>(log, "b");

    a = b;

    EXPECT_EQ(log, (Lines{"a gone", "a deleted"}));
    EXPECT_EQ(b->references(), 2u);
    EXPECT_EQ(a, b);
}

TEST_P(PtrCounting, AssignmentToItselfChangesNothing) {
    auto p = make<Witness>(log);
    const auto& same = p;

    p = same;

    EXPECT_EQ(p->references(), 1u);
    EXPECT_EQ(log, Lines{});
}

TEST_P(PtrCounting, ReleaseAndAdoptPassTheReferenceOn) {
    auto p = make<Witness>(log);

    Witness* const raw = p.release();
    EXPECT_FALSE(p);
    EXPECT_EQ(raw->references(), 1u);

    p = Ptr<Witness>::adopt(raw);
    EXPECT_EQ(p->references(), 1u);
}

TEST_P(PtrCounting, ARawPointerIsCounted) {
    const auto p = make<Witness>(log);

    const Ptr<Witness> second(p.get());

    EXPECT_EQ(p->references(), 2u);
}

TEST_P(PtrCounting, AnOwnedChainGoesAsAWhole) {
    auto first = make<Witness>(log, "first");
    first->held = make<Witness>(log, "second");

    first = nullptr;

    EXPECT_EQ(log, (Lines{"first gone", "first deleted", "second gone", "second deleted"}));
}

TEST(PtrSwitch, AnObjectLivesThroughSwitchesWithItsCount) {
    Lines log;
    const ThreadSafePtrs off(false);
    auto p = make<Witness>(log);
    Ptr<Witness> plain = p;

    Orv::threadSafePtrsIs(true);
    EXPECT_EQ(p->references(), 2u);
    Ptr<Witness> atomic = p;
    plain = nullptr;
    EXPECT_EQ(p->references(), 2u);

    Orv::threadSafePtrsIs(false);
    atomic = nullptr;
    EXPECT_EQ(p->references(), 1u);
    EXPECT_EQ(log, Lines{});

    Orv::threadSafePtrsIs(true);
    p = nullptr;
    EXPECT_EQ(log, (Lines{"it gone", "it deleted"}));
}

TEST(PtrSwitch, IsOffAtStart) { EXPECT_FALSE(Orv::threadSafePtrs()); }

// What a pointer is.

TEST(Ptr, IsNullByDefault) {
    const Ptr<Thing> p;

    EXPECT_FALSE(p);
    EXPECT_EQ(p.get(), nullptr);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(p, Ptr<Thing>(nullptr));
}

TEST(Ptr, ComparesByIdentity) {
    const auto a = make<Thing>("same");
    const auto b = make<Thing>("same");

    EXPECT_EQ(a, Ptr<Thing>(a));
    EXPECT_EQ(a, a.get());
    EXPECT_NE(a, b);
}

TEST(Ptr, ToConstGivesReadOnlyAccess) {
    static_assert(std::is_convertible_v<Ptr<Thing>, Ptr<const Thing>>);
    static_assert(!std::is_convertible_v<Ptr<const Thing>, Ptr<Thing>>);
    static_assert(std::is_same_v<decltype(*std::declval<Ptr<const Thing>>()), const Thing&>);
    static_assert(!std::is_convertible_v<Ptr<Orv::Entity>, Ptr<Thing>>);
    static_assert(std::is_nothrow_move_constructible_v<Ptr<Thing>>);

    const Ptr<const Thing> reader = make<Thing>("t");
    EXPECT_EQ(reader->name(), "t");
}

TEST(Ptr, AConstructorMayHandOutPointersToItsObject) {
    class Introvert final : public Orv::PtrInterface {
      public:
        Introvert() {
            const Ptr<Introvert> self(this);
            seen = references();
        }
        std::uint32_t seen = 0;
    };
    const auto p = make<Introvert>();

    EXPECT_EQ(p->seen, 2u);
    EXPECT_EQ(p->references(), 1u);
}

TEST(Ptr, AConstructorThatThrowsLeavesNothing) {
    class Failing final : public Orv::PtrInterface {
      public:
        explicit Failing(const Ptr<Orv::PtrInterface>& other) : held(other) {
            throw std::runtime_error("no");
        }
        Ptr<Orv::PtrInterface> held;
    };
    Lines log;
    const Ptr<Orv::PtrInterface> other = make<Witness>(log);

    EXPECT_THROW(make<Failing>(other), std::runtime_error);

    EXPECT_EQ(other->references(), 1u);
}

TEST(ValidPtr, RefusesNullWithTheFixedText) {
    try {
        Orv::validPtr(Ptr<Thing>());
        FAIL() << "no error";
    } catch (const Orv::RangeError& e) {
        EXPECT_STREQ(e.what(), "null ValidPtr");
    }
}

TEST(ValidPtr, PassesAnObjectOn) {
    const auto t = make<Thing>("t");

    EXPECT_EQ(Orv::validPtr(t), t);
}

// The last reference.

TEST(LastReference, DeletionIsPendingWhileTheObjectIsToldOfItsEnd) {
    Lines log;
    auto p = make<Witness>(log);
    Witness* const raw = p.get();
    bool pending = false;
    std::uint32_t references = 99;
    p->gone = [&] {
        pending = raw->deletionPending();
        references = raw->references();
    };

    p = nullptr;

    EXPECT_TRUE(pending);
    EXPECT_EQ(references, 0u);
}

TEST(LastReference, PointersMadeAndDroppedMeanwhileDoNotTellTwice) {
    Lines log;
    auto p = make<Witness>(log);
    Witness* const raw = p.get();
    p->gone = [&] { const Ptr<Witness> again(raw); };

    p = nullptr;

    EXPECT_EQ(log, (Lines{"it gone", "it deleted"}));
}

TEST(LastReference, AnObjectThatIsTakenBackWhileItIsToldLivesOn) {
    Lines log;
    Ptr<Witness> rescued;
    auto p = make<Witness>(log);
    Witness* const raw = p.get();
    p->gone = [&] { rescued = Ptr<Witness>(raw); };

    p = nullptr;

    ASSERT_EQ(log, (Lines{"it gone"}));
    EXPECT_EQ(rescued->references(), 1u);
    EXPECT_FALSE(rescued->deletionPending());
    raw->gone = {};
    rescued = nullptr;
    EXPECT_EQ(log.back(), "it deleted");
}

TEST(ZeroReferences, ReachWhoAskedInTheOrderOfConnectingAndNobodyElse) {
    Lines log;
    auto p = make<Witness>(log);
    Mourner first(p.get(), [&] { log.push_back("first"); });
    Mourner uninterested(p.get(), [&] { log.push_back("uninterested"); });
    uninterested.wantsZeroReferencesIs(false);
    Mourner silenced(p.get(), [&] { log.push_back("silenced"); });
    silenced.notificationActiveIs(false);
    Mourner last(p.get(), [&] { log.push_back("last"); });

    p = nullptr;

    EXPECT_EQ(log, (Lines{"first", "last", "it gone", "it deleted"}));
    EXPECT_FALSE(first.isRegisteredNotifiee());
    EXPECT_FALSE(silenced.isRegisteredNotifiee());
}

TEST(ZeroReferences, MayBeWantedByOneThatDoesNothingThen) {
    class Idle final : public Orv::NotifieeBase {
      public:
        explicit Idle(const Orv::PtrInterface* object) {
            link(object);
            wantsZeroReferencesIs(true);
        }
    };
    Lines log;
    auto p = make<Witness>(log);
    const Idle idle(p.get());
    const Mourner behind(p.get(), [&] { log.push_back("behind"); });

    p = nullptr;

    EXPECT_EQ(log, (Lines{"behind", "it gone", "it deleted"}));
    EXPECT_FALSE(idle.isRegisteredNotifiee());
}

TEST(ZeroReferences, DeletionIsPendingMeanwhile) {
    Lines log;
    auto p = make<Witness>(log);
    const Witness* const raw = p.get();
    bool pending = false;
    const Mourner mourner(raw, [&] { pending = raw->deletionPending(); });

    p = nullptr;

    EXPECT_TRUE(pending);
}

TEST(ZeroReferences, WhoTakesTheObjectBackKeepsIt) {
    Lines log;
    Ptr<Witness> rescued;
    auto p = make<Witness>(log);
    Witness* const raw = p.get();
    const auto mourner = std::make_unique<Mourner>(raw, [&] { rescued = Ptr<Witness>(raw); });

    p = nullptr;

    EXPECT_EQ(log, Lines{});
    ASSERT_TRUE(rescued);
    EXPECT_EQ(rescued->references(), 1u);
    EXPECT_FALSE(rescued->deletionPending());

    mourner->told = {};
    rescued = nullptr;
    EXPECT_EQ(log, (Lines{"it gone", "it deleted"}));
}

TEST(ZeroReferences, AnExceptionReachesTheHookAndTheOthersAreTold) {
    World world;
    Lines log;
    auto p = make<Witness>(log);
    const Mourner failing(p.get(), [] { throw std::runtime_error("grief"); });
    const Mourner calm(p.get(), [&] { log.push_back("calm"); });

    p = nullptr;

    EXPECT_EQ(world.environment.exceptions, (Lines{"grief"}));
    EXPECT_EQ(log, (Lines{"calm", "it gone", "it deleted"}));
}

TEST(ZeroReferences, AMournerMayLeaveMeanwhile) {
    Lines log;
    auto p = make<Witness>(log);
    std::unique_ptr<Mourner> self;
    self = std::make_unique<Mourner>(p.get(), [&] {
        log.push_back("told");
        self.reset();
    });

    p = nullptr;

    EXPECT_EQ(log, (Lines{"told", "it gone", "it deleted"}));
}

// What is on the stack stays.

TEST(DeliveryScope, KeepsWhatLosesItsLastReferenceUntilTheOutermostEnds) {
    Lines log;
    auto p = make<Witness>(log);
    {
        const DeliveryScope outer;
        {
            const DeliveryScope inner;
            p = nullptr;
            EXPECT_EQ(log, (Lines{"it gone"}));  // told at once
        }
        EXPECT_EQ(log, (Lines{"it gone"}));
    }
    EXPECT_EQ(log, (Lines{"it gone", "it deleted"}));
}

TEST(DeliveryScope, DeletesWhatItsDeletionsRelease) {
    Lines log;
    auto p = make<Witness>(log, "owner");
    p->held = make<Witness>(log, "owned");
    {
        const DeliveryScope scope;
        p = nullptr;
    }
    EXPECT_EQ(log, (Lines{"owner gone", "owner deleted", "owned gone", "owned deleted"}));
}

TEST(DeliveryScope, AnObjectTakenBackBeforeTheEndLivesOn) {
    Lines log;
    auto p = make<Witness>(log);
    Witness* const raw = p.get();
    {
        const DeliveryScope scope;
        p = nullptr;
        EXPECT_TRUE(raw->deletionPending());
        p = Ptr<Witness>(raw);
    }

    EXPECT_EQ(log, (Lines{"it gone"}));
    EXPECT_FALSE(p->deletionPending());
    EXPECT_EQ(p->references(), 1u);
    p = nullptr;
    EXPECT_EQ(log.back(), "it deleted");
}

TEST(DeliveryScope, AnObjectTakenBackAndDroppedAgainIsDeletedOnce) {
    Lines log;
    auto p = make<Witness>(log);
    Witness* const raw = p.get();
    {
        const DeliveryScope scope;
        p = nullptr;
        p = Ptr<Witness>(raw);
        p = nullptr;
    }

    EXPECT_EQ(log, (Lines{"it gone", "it deleted"}));
}

TEST(DeliveryScope, NotificationsDuringTheDeletionsAreDelivered) {
    // What a deletion releases tells its own mourners, which is a delivery in itself.
    Lines log;
    auto p = make<Witness>(log, "owner");
    p->held = make<Witness>(log, "owned");
    const Mourner mourner(p->held.get(), [&] { log.push_back("mourned"); });
    auto other = make<Witness>(log, "other");
    {
        const DeliveryScope scope;
        other = nullptr;
        p = nullptr;
    }
    EXPECT_EQ(log.size(), 7u);
    for (const char* line : {"mourned", "owned deleted", "owner deleted", "other deleted"})
        EXPECT_EQ(std::count(log.begin(), log.end(), line), 1) << line;
}

TEST(PtrInterface, ANotifierThatGoesDisconnectsWhoDidNotCountIt) {
    Lines log;
    auto p = make<Witness>(log);
    const Mourner mourner(p.get());
    ASSERT_TRUE(mourner.isRegisteredNotifiee());

    p = nullptr;

    EXPECT_FALSE(mourner.isRegisteredNotifiee());
}

TEST(PtrInterface, HasNoPathAndNoTypeUnlessItSaysSo) {
    Lines log;
    const auto p = make<Witness>(log);

    EXPECT_EQ(p->path(), "");
    EXPECT_EQ(p->typeInfo(), nullptr);
}

}  // namespace
