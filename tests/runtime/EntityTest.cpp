#include "runtime/Entity.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "runtime/Dir.h"
#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Orv::String;
using RuntimeTest::Colour;
using RuntimeTest::Lines;
using RuntimeTest::Listener;
using RuntimeTest::Part;
using RuntimeTest::Thing;
using RuntimeTest::World;

Lines keys(const Part::Parts& parts) {
    Lines names;
    for (const auto& [name, part] : parts) names.push_back(name.str());
    return names;
}

// A thing and a listener that writes what it is told.
class EntityChange : public ::testing::Test {
  protected:
    EntityChange() {
        listener.size = [this] { log.push_back("size"); };
        listener.tag = [this](String tag) { log.push_back("tag " + tag.str()); };
        listener.part = [this](Name name) { log.push_back("part " + name.str()); };
        listener.other = [this] { log.push_back("other"); };
    }
    World world;
    Ptr<Thing> thing = make<Thing>("thing");
    Listener listener{thing};
    Lines log;
};

// Scalars.

TEST(Assign, SaysWhetherItChangedAnything) {
    double number = 1;
    EXPECT_FALSE(Orv::assign(number, 1.0));
    EXPECT_TRUE(Orv::assign(number, 2.0));
    EXPECT_EQ(number, 2);

    String text = "a";
    EXPECT_FALSE(Orv::assign(text, String(std::string("a"))));
    EXPECT_TRUE(Orv::assign(text, String("b")));

    auto part = make<Part>("part");
    Ptr<Part> held = part;
    EXPECT_FALSE(Orv::assign(held, part));
    EXPECT_TRUE(Orv::assign(held, make<Part>("part")));
}

TEST_F(EntityChange, AScalarTellsOnceAndOnlyWhenItChanged) {
    thing->sizeIs(3);
    thing->sizeIs(3);
    thing->openIs(true);
    thing->openIs(true);
    thing->labelIs("label");
    thing->labelIs(String(std::string("la") + "bel"));
    thing->colourIs(Colour::green);
    thing->colourIs(Colour::green);

    EXPECT_EQ(log, (Lines{"size", "other", "other", "other"}));
    EXPECT_EQ(thing->size(), 3);
    EXPECT_TRUE(thing->open());
    EXPECT_EQ(thing->label(), "label");
    EXPECT_EQ(thing->colour(), Colour::green);
}

TEST_F(EntityChange, AReferenceIsComparedByIdentity) {
    const auto first = make<Part>("same");
    const auto second = make<Part>("same");

    thing->neighbourIs(first);
    thing->neighbourIs(first);
    thing->neighbourIs(second);
    thing->neighbourIs(nullptr);
    thing->neighbourIs(nullptr);

    EXPECT_EQ(log, (Lines{"other", "other", "other"}));
    EXPECT_EQ(second->references(), 1u);
}

TEST_F(EntityChange, InfinitiesAndNansAreValuesLikeOthers) {
    thing->sizeIs(INFINITY);
    thing->sizeIs(INFINITY);
    thing->sizeIs(NAN);
    thing->sizeIs(NAN);
    thing->sizeIs(-INFINITY);

    EXPECT_EQ(log, (Lines{"size", "size", "size", "size"}));
    EXPECT_EQ(thing->size(), -INFINITY);
}

// Collections.

TEST_F(EntityChange, AMemberTellsWithItsKeyWhenItComesChangesAndGoes) {
    thing->tagIs("a", true);
    thing->tagIs("b", false);
    thing->tagIs("a", true);
    thing->tagIs("a", false);
    thing->tagDel("a");
    thing->tagDel("a");
    thing->tagDel("never there");

    EXPECT_EQ(log, (Lines{"tag a", "tag b", "tag a", "tag a"}));
    EXPECT_FALSE(thing->tag().contains("a"));
    EXPECT_TRUE(thing->tag().contains("b"));
}

TEST_F(EntityChange, AMemberThatIsFalseIsNotAbsent) {
    thing->tagIs("a", false);

    EXPECT_EQ(log, (Lines{"tag a"}));
    EXPECT_TRUE(thing->tag().contains("a"));
    EXPECT_FALSE(thing->tag().value("a"));
    EXPECT_FALSE(thing->tag().value("absent"));
}

TEST_F(EntityChange, ClearingTellsOncePerKey) {
    for (const char* tag : {"c", "a", "b"}) thing->tagIs(tag, true);
    log.clear();

    thing->tagDelAll();
    thing->tagDelAll();

    EXPECT_EQ(log, (Lines{"tag c", "tag a", "tag b"}));
    EXPECT_TRUE(thing->tag().empty());
}

TEST_F(EntityChange, ClearingLeavesWhatACallbackAddsMeanwhile) {
    thing->tagIs("a", true);
    thing->tagIs("b", true);
    listener.tag = [this](String tag) {
        log.push_back(tag.str());
        if (tag == "a") thing->tagIs("new", true);
        if (tag == "a") thing->tagDel("b");
    };
    log.clear();

    thing->tagDelAll();

    EXPECT_EQ(log, (Lines{"a", "new", "b"}));
    EXPECT_TRUE(thing->tag().contains("new"));
    EXPECT_EQ(thing->tag().size(), 1u);
}

TEST_F(EntityChange, CompositeKeysAreComparedFieldByField) {
    thing->readingIs({"1", "23"}, 5);
    thing->readingIs({"12", "3"}, 6);
    thing->readingIs({"1", "23"}, 5);

    EXPECT_EQ(log, (Lines{"other", "other"}));
    EXPECT_EQ(thing->reading().value({"1", "23"}), 5);
    EXPECT_EQ(thing->reading().value({"12", "3"}), 6);
    EXPECT_FALSE(thing->reading().contains({"12", "23"}));
}

TEST_F(EntityChange, MembersThatAreReferencesAreComparedByIdentity) {
    const auto part = make<Part>("part");

    thing->userIs("a", part);
    thing->userIs("a", part);
    thing->userIs("a", make<Part>("part"));
    thing->userDel("a");

    EXPECT_EQ(log, (Lines{"other", "other", "other"}));
    EXPECT_EQ(part->references(), 1u);
}

TEST_F(EntityChange, AKeyOutlivesWhatItCameFrom) {
    thing->tagIs("a", true);
    Lines told;
    listener.tag = [&](String tag) {
        if (thing->tag().size() < 100)  // makes the collection move its members
            for (int i = 0; i < 100; ++i) thing->tagIs(std::to_string(i), true);
        told.push_back(tag.str());
    };

    for (const auto& [tag, value] : thing->tag()) {
        thing->tagDel(tag);  // the key lies in the collection itself
        break;
    }

    EXPECT_EQ(told.size(), 101u);
    EXPECT_EQ(told.back(), "a");
}

// Instantiating collections.

TEST_F(EntityChange, AnInstantiatingMutatorMakesTheMemberAndTellsOnceItIsInPlace) {
    Ptr<Part> seen;
    listener.part = [&](Name name) {
        seen = thing->part().value(name);
        log.push_back(seen->path().str());
    };
    const auto root = make<Orv::Dir>();
    root->entryIs(thing);

    const Ptr<Part> made = thing->partIs("wheel");

    EXPECT_EQ(made, seen);
    EXPECT_EQ(made->key(), "wheel");
    EXPECT_EQ(made->parent(), thing.get());
    EXPECT_EQ(log, (Lines{"/thing/part/wheel"}));
}

TEST_F(EntityChange, AnInstantiatingMutatorReturnsAnExistingMemberSilently) {
    const Ptr<Part> made = thing->partIs("wheel");
    log.clear();

    EXPECT_EQ(thing->partIs("wheel"), made);

    EXPECT_EQ(log, Lines{});
}

TEST_F(EntityChange, AMemberThatItsOwnCallbackDeletesIsReturnedOutOfPlace) {
    listener.part = [&](Name name) { thing->partDel(name); };

    const Ptr<Part> made = thing->partIs("wheel");

    ASSERT_TRUE(made);
    EXPECT_EQ(made->parent(), nullptr);
    EXPECT_TRUE(thing->part().empty());
}

TEST_F(EntityChange, ADeletedMemberIsOutOfPlaceWhenItIsToldOf) {
    thing->partIs("wheel");
    bool there = true;
    listener.part = [&](Name name) { there = thing->part().contains(name); };

    thing->partDel("wheel");
    EXPECT_FALSE(there);
    EXPECT_EQ(Part::alive, 0);

    log.clear();
    thing->partDel("wheel");
    EXPECT_EQ(log, Lines{});
}

TEST_F(EntityChange, DeletingAllMembersTellsOncePerKey) {
    for (const char* name : {"c", "a", "b"}) thing->partIs(name);
    log.clear();

    thing->partDelAll();

    EXPECT_EQ(log, (Lines{"part c", "part a", "part b"}));
    EXPECT_EQ(Part::alive, 0);
}

TEST_F(EntityChange, AMemberThatGoesLosesItsOwnMembersBeforeItsOwnerTells) {
    class PartListener final : public Part::NotifieeConst {
      public:
        PartListener(const Ptr<Part>& part, Lines& log) : log_(log) { notifierIs(part); }
        void onPart(Name name) override {
            log_.push_back(notifier()->key().str() + " lost " + name.str() +
                           (notifier()->parent() == nullptr ? ", alone" : ", in place"));
        }

      private:
        Lines& log_;
    };
    const Ptr<Part> wheel = thing->partIs("wheel");
    const Ptr<Part> tyre = wheel->partIs("tyre");
    tyre->partIs("tread");
    wheel->partIs("hub");
    const PartListener onWheel(wheel, log);
    const PartListener onTyre(tyre, log);
    log.clear();

    thing->partDel("wheel");

    EXPECT_EQ(log, (Lines{"tyre lost tread, alone", "wheel lost tyre, alone",
                          "wheel lost hub, alone", "part wheel"}));
    EXPECT_TRUE(wheel->part().empty());
    EXPECT_TRUE(tyre->part().empty());
}

TEST(EntityMember, ItsOwnerMayGoWhileTheMembersMembersGo) {
    class Releasing final : public Part::NotifieeConst {
      public:
        RuntimeTest::Callback<> release;
        void onPart(Name) override { release(); }
    };
    auto thing = make<Thing>("thing");
    Releasing releasing;
    releasing.notifierIs(thing->partIs("wheel"));
    thing->partIs("wheel")->partIs("tyre");
    releasing.release = [&] { thing = nullptr; };
    Thing* const raw = thing.get();

    raw->partDel("wheel");

    EXPECT_FALSE(thing);
    EXPECT_EQ(Thing::alive, 0);
    releasing.notifierIs(nullptr);
    EXPECT_EQ(Part::alive, 0);
}

TEST(EntityMember, OutlivesItsOwnerWithoutAParent) {
    auto root = make<Orv::Dir>();
    auto thing = make<Thing>("thing");
    root->entryIs(thing);
    const Ptr<Part> wheel = thing->partIs("wheel");
    const Ptr<Part> tyre = wheel->partIs("tyre");

    root = nullptr;
    EXPECT_EQ(thing->parent(), nullptr);
    thing = nullptr;

    EXPECT_EQ(wheel->parent(), nullptr);
    EXPECT_EQ(wheel->path(), "/thing/part/wheel");
    EXPECT_EQ(tyre->parent(), wheel.get());
    EXPECT_EQ(tyre->path(), "/thing/part/wheel/part/tyre");
}

TEST(EntityMember, AnAllocationThatFailsLeavesTheCollectionAsItWas) {
    int failures = 0;
    for (int size = 0; size <= 40; ++size)
        for (std::size_t which = 1; which <= 6; ++which) {
            const auto thing = make<Thing>("thing");
            int told = 0;
            for (int i = 0; i < size; ++i) thing->partIs(std::to_string(i));
            const Lines before = keys(thing->part());
            Listener listener(thing);
            listener.part = [&](Name) { ++told; };
            const Name name("new");
            bool failed = false;
            {
                const RuntimeTest::FailingAllocation failing(which);
                try {
                    thing->partIs(name);
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
            }
            if (failed) {
                ++failures;
                ASSERT_EQ(keys(thing->part()), before);
                ASSERT_EQ(told, 0);
                ASSERT_EQ(Part::alive, size);
                thing->partIs(name);
            }
            ASSERT_EQ(told, 1);
            ASSERT_EQ(thing->part().size(), before.size() + 1);
            ASSERT_EQ(thing->part().value(name)->parent(), thing.get());
        }
    EXPECT_GT(failures, 41);  // the member itself fails at least
}

TEST(EntityMember, GoesAlsoWhenThereIsNoMemoryToRememberWhereItStood) {
    auto thing = make<Thing>("a thing with a long name, for a path that has to be allocated");
    const Ptr<Part> wheel = thing->partIs("wheel");
    const Ptr<Part> tyre = wheel->partIs("tyre");
    int told = 0;
    Listener listener(thing);
    listener.part = [&](Name) { ++told; };
    const Name name("wheel");
    {
        const RuntimeTest::FailingAllocation all(1);
        thing->partDel(name);
    }

    EXPECT_EQ(told, 1);
    EXPECT_EQ(wheel->parent(), nullptr);
    EXPECT_EQ(tyre->parent(), nullptr);
    EXPECT_TRUE(wheel->part().empty());
    EXPECT_EQ(wheel->path(), "");
    EXPECT_TRUE(wheel->left());
}

TEST(EntityMember, AnAllocationThatFailsLeavesAPlainCollectionAsItWas) {
    for (int size = 0; size <= 40; ++size) {
        const auto thing = make<Thing>("thing");
        for (int i = 0; i < size; ++i) thing->tagIs(std::to_string(i), true);
        int told = 0;
        Listener listener(thing);
        listener.tag = [&](String) { ++told; };
        const String tag("new");
        bool failed = false;
        {
            const RuntimeTest::FailingAllocation failing(1);
            try {
                thing->tagIs(tag, true);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
        }
        ASSERT_EQ(thing->tag().contains(tag), !failed);
        ASSERT_EQ(told, failed ? 0 : 1);
        ASSERT_EQ(thing->tag().size(), static_cast<std::size_t>(size) + (failed ? 0 : 1));
    }
}

// Queues.

TEST_F(EntityChange, AQueueKeepsEveryEntryAndTellsOfEach) {
    thing->lineEnq("one");
    thing->lineEnq("one");

    EXPECT_EQ(log, (Lines{"other", "other"}));
    EXPECT_EQ(thing->line(), (std::vector<String>{"one", "one"}));
}

// Name, parent, path.

TEST(Entity, HasItsKeyAsNameUnlessItsTypeSaysOtherwise) {
    const auto thing = make<Thing>("thing");

    EXPECT_EQ(thing->key(), "thing");
    EXPECT_EQ(thing->name(), "thing");
}

TEST(Entity, TakesItsNameFromABackup) {
    const auto thing = make<Thing>();

    thing->nameIsFromBackup("restored");
    thing->reconstruct();

    EXPECT_EQ(thing->key(), "restored");
    EXPECT_EQ(thing->name(), "restored");
}

TEST(Entity, KnowsItsType) {
    const auto thing = make<Thing>("thing");

    EXPECT_EQ(&thing->info(), &Thing::type());
    EXPECT_EQ(thing->typeInfo(), &Thing::type());
    EXPECT_STREQ(thing->info().name(), "Test::Thing");
}

TEST(EntityPath, IsEmptyForWhatNeverStoodAnywhereAndForARoot) {
    EXPECT_EQ(make<Thing>("thing")->path(), "");
    EXPECT_EQ(make<Orv::Dir>()->path(), "");
    EXPECT_EQ(make<Thing>("thing")->parent(), nullptr);
}

TEST(EntityPath, StaysEmptyForWhatIsTakenFromNowhere) {
    const auto thing = make<Thing>("thing");

    thing->leave();

    EXPECT_EQ(thing->path(), "");
    EXPECT_FALSE(thing->left());
}

TEST(EntityPath, LeadsThroughDirectoriesAttributesAndKeys) {
    const auto root = make<Orv::Dir>();
    const auto input = root->subdirIs("input");
    const auto thing = make<Thing>("disk");
    input->entryIs(thing);

    const auto tyre = thing->partIs("wheel")->partIs("tyre");

    EXPECT_EQ(input->path(), "/input");
    EXPECT_EQ(thing->path(), "/input/disk");
    EXPECT_EQ(tyre->path(), "/input/disk/part/wheel/part/tyre");
}

TEST(EntityPath, EscapesSlashesAndTildesInNames) {
    const auto root = make<Orv::Dir>();
    const auto thing = make<Thing>("a/b~c/");
    root->entryIs(thing);

    EXPECT_EQ(thing->path(), "/a~1b~0c~1");
    EXPECT_EQ(thing->partIs("~1")->path(), "/a~1b~0c~1/part/~01");
}

TEST(EntityPath, OfAnEmptyNameEndsWithASlash) {
    const auto root = make<Orv::Dir>();
    const auto thing = make<Thing>("");
    root->entryIs(thing);

    EXPECT_EQ(thing->path(), "/");
    EXPECT_EQ(thing->partIs("")->path(), "//part/");
}

TEST(EntityPath, OfASingleMemberEndsWithTheAttribute) {
    const auto root = make<Orv::Dir>();
    const auto thing = make<Thing>("thing");
    root->entryIs(thing);
    const auto part = make<Part>("unused");

    part->parentIs(thing.get(), "favourite", true);

    EXPECT_EQ(part->path(), "/thing/favourite");
    part->parentIs(nullptr);
}

TEST(EntityPath, IsKeptByWhatLeftItsTree) {
    const auto root = make<Orv::Dir>();
    const auto thing = make<Thing>("thing");
    root->entryIs(thing);
    const auto wheel = thing->partIs("wheel");
    const auto tyre = wheel->partIs("tyre");

    root->entryDel("thing");

    EXPECT_EQ(thing->path(), "/thing");
    EXPECT_EQ(wheel->path(), "/thing/part/wheel");
    EXPECT_EQ(tyre->path(), "/thing/part/wheel/part/tyre");
    EXPECT_EQ(thing->parent(), nullptr);
    EXPECT_EQ(tyre->parent(), nullptr);
}

TEST(Entity, HasLeftOnceItStoodSomewhereAndStandsNowhereAnyMore) {
    const auto root = make<Orv::Dir>();
    const auto thing = make<Thing>("thing");
    EXPECT_FALSE(thing->left());
    root->entryIs(thing);
    const auto wheel = thing->partIs("wheel");
    EXPECT_FALSE(thing->left());
    EXPECT_FALSE(wheel->left());

    root->entryDel("thing");
    EXPECT_TRUE(thing->left());
    EXPECT_TRUE(wheel->left());
    root->entryIs(thing);
    EXPECT_FALSE(thing->left());
}

TEST(EntityPath, FollowsAnEntityThatStandsAgain) {
    const auto root = make<Orv::Dir>();
    const auto elsewhere = root->subdirIs("elsewhere");
    const auto thing = make<Thing>("thing");
    root->entryIs(thing);
    root->entryDel("thing");

    elsewhere->entryIs(thing);

    EXPECT_EQ(thing->path(), "/elsewhere/thing");
    EXPECT_EQ(thing->parent(), elsewhere.get());
}

}  // namespace
