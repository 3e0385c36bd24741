#include "runtime/Dir.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::Dir;
using Orv::Entity;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using RuntimeTest::Callback;
using RuntimeTest::Lines;
using RuntimeTest::Part;
using RuntimeTest::Thing;
using RuntimeTest::World;

class Watcher final : public Dir::NotifieeConst {
  public:
    Watcher(const Ptr<Dir>& dir, Callback<Name> onEntry) : told(std::move(onEntry)) {
        notifierIs(dir);
    }
    Callback<Name> told;
    void onEntityPtr(Name name) override { told(std::move(name)); }
};

Lines names(const Dir& dir) {
    Lines all;
    for (const auto& [name, entry] : dir.entries()) all.push_back(name.str());
    return all;
}

class DirTest : public ::testing::Test {
  protected:
    DirTest() {
        Orv::TypeRegistry& registry = Orv::TypeRegistry::instance();
        registry.typeIs(Dir::type());
        registry.typeIs(Thing::type());
        registry.typeIs(Part::type());
    }
    World world;
    Ptr<Dir> root = make<Dir>();
    Lines log;
    Watcher watcher{root, [this](Name name) {
                        log.push_back((root->entityRef(name) ? "+" : "-") + name.str());
                    }};
};

TEST_F(DirTest, WhoTakesNoCallbackOverIsPassedByInSilence) {
    class Idle final : public Dir::NotifieeConst {};
    Idle idle;
    idle.notifierIs(root);
    const Watcher behind(root, [&](Name name) { log.push_back("behind " + name.str()); });

    root->subdirIs("input");
    idle.onEntityPtr(Orv::Immediate());

    EXPECT_EQ(log, (Lines{"+input", "behind input"}));
    EXPECT_EQ(world.environment.exceptions, Lines{});
    EXPECT_TRUE(idle.isRegisteredNotifiee());
}

TEST_F(DirTest, MakesAnEntryOfARegisteredTypeAndTells) {
    const Ptr<Entity> made = root->entryIs("thing", "Test::Thing");

    ASSERT_TRUE(made);
    EXPECT_EQ(&made->info(), &Thing::type());
    EXPECT_EQ(made->key(), "thing");
    EXPECT_EQ(made->parent(), root.get());
    EXPECT_EQ(root->entityRef("thing"), made);
    EXPECT_EQ(log, (Lines{"+thing"}));
}

TEST_F(DirTest, ReturnsAnEntryOfTheSameTypeSilently) {
    const Ptr<Entity> made = root->entryIs("thing", "Test::Thing");

    EXPECT_EQ(root->entryIs("thing", "Test::Thing"), made);

    EXPECT_EQ(log, (Lines{"+thing"}));
}

TEST_F(DirTest, LeavesAnEntryOfAnotherTypeAsItIs) {
    const Ptr<Entity> made = root->entryIs("thing", "Test::Thing");
    const Ptr<Dir> sub = root->subdirIs("sub");
    log.clear();

    EXPECT_EQ(root->entryIs("thing", "Orv::Dir"), nullptr);
    EXPECT_EQ(root->subdirIs("thing"), nullptr);
    EXPECT_EQ(root->entryIs("sub", "Test::Thing"), nullptr);
    EXPECT_FALSE(root->entryIs(make<Thing>("sub")));
    EXPECT_FALSE(root->entryIs(make<Thing>("thing")));

    EXPECT_EQ(root->entityRef("thing"), made);
    EXPECT_EQ(root->entityRef("sub"), sub);
    EXPECT_EQ(log, Lines{});
    EXPECT_EQ(Thing::alive, 1);
}

TEST_F(DirTest, RefusesATypeThatCannotBeMade) {
    const auto refused = [&](const char* type) {
        try {
            root->entryIs("name", type);
        } catch (const Orv::RangeError& e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };

    EXPECT_EQ(refused("No::Such"), "no entity of type \"No::Such\" can be made");
    EXPECT_EQ(refused("Test::Part"), "no entity of type \"Test::Part\" can be made");  // no maker
    EXPECT_EQ(refused(""), "no entity of type \"\" can be made");
    EXPECT_EQ(log, Lines{});
    EXPECT_TRUE(root->entries().empty());
}

TEST_F(DirTest, SubdirsAreEntriesOfTypeDir) {
    const Ptr<Entity> made = root->entryIs("sub", "Orv::Dir");

    EXPECT_EQ(root->subdirIs("sub"), made);
    EXPECT_EQ(root->entityPtr<Dir>("sub"), made);
    EXPECT_EQ(log, (Lines{"+sub"}));
}

TEST_F(DirTest, FindsEntriesByTypeAndName) {
    const Ptr<Entity> thing = root->entryIs("thing", "Test::Thing");
    const Ptr<Dir> sub = root->subdirIs("sub");

    EXPECT_EQ(root->entityPtr<Thing>("thing"), thing);
    EXPECT_EQ(root->entityPtr<Entity>("thing"), thing);
    EXPECT_EQ(root->entityPtr<Dir>("thing"), nullptr);
    EXPECT_EQ(root->entityPtr<Part>("thing"), nullptr);
    EXPECT_EQ(root->entityPtr<Thing>("sub"), nullptr);
    EXPECT_EQ(root->entityPtr<Thing>("absent"), nullptr);
    EXPECT_EQ(root->entityRef("absent"), nullptr);
    EXPECT_EQ(root->entityRef("sub"), sub);
}

TEST_F(DirTest, KeepsEntriesInTheOrderInWhichTheyCame) {
    root->entryIs("c", "Test::Thing");
    root->subdirIs("a");
    root->entryIs("b", "Test::Thing");
    root->entryDel("c");
    root->entryIs("c", "Test::Thing");

    EXPECT_EQ(names(*root), (Lines{"a", "b", "c"}));
}

TEST_F(DirTest, TakesAReadyEntity) {
    const auto thing = make<Thing>("thing");

    EXPECT_TRUE(root->entryIs(thing));

    EXPECT_EQ(root->entityRef("thing"), thing);
    EXPECT_EQ(thing->parent(), root.get());
    EXPECT_EQ(log, (Lines{"+thing"}));
}

TEST_F(DirTest, EachKindIsRemovedByItsOwnMutatorOnly) {
    root->entryIs("thing", "Test::Thing");
    root->subdirIs("sub");
    log.clear();

    root->entryDel("sub");
    root->subdirDel("thing");
    root->entryDel("absent");
    root->subdirDel("absent");
    EXPECT_EQ(log, Lines{});
    EXPECT_EQ(names(*root), (Lines{"thing", "sub"}));

    root->entryDel("thing");
    root->subdirDel("sub");
    EXPECT_EQ(log, (Lines{"-thing", "-sub"}));
    EXPECT_TRUE(root->entries().empty());
    EXPECT_EQ(Thing::alive, 0);
}

// An entity that leaves: out of the directory, then its members one by one, then the directory
// tells.
TEST_F(DirTest, AnEntryThatGoesLosesItsMembersBeforeTheDirectoryTells) {
    const auto thing = make<Thing>("thing");
    root->entryIs(thing);
    thing->partIs("wheel")->partIs("tyre");
    thing->partIs("hub");
    RuntimeTest::Listener onThing(thing);
    onThing.part = [&](Name name) {
        EXPECT_FALSE(root->entityRef("thing"));
        EXPECT_EQ(thing->parent(), nullptr);
        log.push_back("lost " + name.str());
    };
    log.clear();

    root->entryDel("thing");

    EXPECT_EQ(log, (Lines{"lost wheel", "lost hub", "-thing"}));
    EXPECT_TRUE(thing->part().empty());
}

TEST_F(DirTest, PlainCollectionsStayWithAnEntityThatGoes) {
    const auto thing = make<Thing>("thing");
    root->entryIs(thing);
    thing->tagIs("tag", true);
    thing->sizeIs(3);

    root->entryDel("thing");

    EXPECT_TRUE(thing->tag().contains("tag"));
    EXPECT_EQ(thing->size(), 3);
}

TEST_F(DirTest, ASubdirThatGoesLosesItsEntriesOneByOneBeforeItsParentTells) {
    const Ptr<Dir> sub = root->subdirIs("sub");
    const Ptr<Dir> deep = sub->subdirIs("deep");
    const auto thing = make<Thing>("thing");
    deep->entryIs(thing);
    deep->entryIs(make<Thing>("other"));
    sub->entryIs(make<Thing>("last"));
    thing->partIs("wheel");
    const Watcher onSub(sub, [&](Name name) {
        EXPECT_FALSE(root->entityRef("sub"));
        log.push_back("sub: " + name.str());
    });
    const Watcher onDeep(deep, [&](Name name) {
        EXPECT_FALSE(sub->entityRef("deep"));
        log.push_back("deep: " + name.str());
    });
    RuntimeTest::Listener onThing(thing);
    onThing.part = [&](Name name) { log.push_back("lost " + name.str()); };
    log.clear();

    root->subdirDel("sub");

    EXPECT_EQ(
        log, (Lines{"lost wheel", "deep: thing", "deep: other", "sub: deep", "sub: last", "-sub"}));
    EXPECT_TRUE(sub->entries().empty());
    EXPECT_TRUE(deep->entries().empty());
}

TEST_F(DirTest, AnEntryMayBeMadeAnewWhileItIsRemoved) {
    // Never in place: first it has gone, and then there is another.
    const Ptr<Entity> first = root->entryIs("thing", "Test::Thing");
    log.clear();
    bool once = true;
    watcher.told = [&](Name name) {
        log.push_back((root->entityRef(name) ? "+" : "-") + name.str());
        if (std::exchange(once, false)) root->entryIs(name, "Test::Thing");
    };

    root->entryDel("thing");

    EXPECT_EQ(log, (Lines{"-thing", "+thing"}));
    EXPECT_NE(root->entityRef("thing"), first);
    EXPECT_EQ(Thing::alive, 2);
}

TEST_F(DirTest, AnEntryThatItsOwnCallbackRemovesIsReturnedOutOfPlace) {
    watcher.told = [&](Name name) {
        root->entryDel(name);
        root->subdirDel(name);
    };

    const Ptr<Entity> thing = root->entryIs("thing", "Test::Thing");
    const Ptr<Dir> sub = root->subdirIs("sub");

    ASSERT_TRUE(thing);
    ASSERT_TRUE(sub);
    EXPECT_EQ(thing->parent(), nullptr);
    EXPECT_EQ(sub->parent(), nullptr);
    EXPECT_TRUE(root->entries().empty());
}

TEST_F(DirTest, MayGoWhileOneOfItsEntriesGoes) {
    const Ptr<Dir> sub = root->subdirIs("sub");
    sub->entryIs(make<Thing>("thing"));
    auto only = make<Dir>();
    only->entryIs(make<Thing>("thing"));
    only->entityPtr<Thing>("thing")->partIs("wheel");
    RuntimeTest::Listener onThing(only->entityPtr<Thing>("thing"));
    onThing.part = [&](Name) { only = nullptr; };
    Dir* const raw = only.get();

    raw->entryDel("thing");

    EXPECT_FALSE(only);
    EXPECT_EQ(onThing.notifier()->parent(), nullptr);
}

TEST_F(DirTest, WorksWithoutAnyRegisteredTypeForSubdirs) {
    // subdirIs asks no registry: a host may build its tree before anything is registered.
    EXPECT_TRUE(root->subdirIs("a")->subdirIs("b"));
    EXPECT_EQ(root->entityPtr<Dir>("a")->entityPtr<Dir>("b")->path(), "/a/b");
}

TEST_F(DirTest, TellsOfNoImmediateFormByItself) {
    class Immediately final : public Dir::NotifieeConst {
      public:
        int told = 0;
        void onEntityPtr(Orv::Immediate) override { ++told; }
        void onEntityPtr(Name) override {}
    };
    Immediately immediately;
    immediately.notifierIs(root);

    root->entryIs("thing", "Test::Thing");
    root->entryDel("thing");

    EXPECT_EQ(immediately.told, 0);
}

TEST_F(DirTest, AFactoryThatYieldsNothingRaisesTheRangeError) {
    static const Orv::TypeInfo nothing =
        Orv::TypeBuilder<Thing>("Test::Nothing")
            .entry([](const Name&) -> Ptr<Entity> { return nullptr; })
            .done();
    Orv::TypeRegistry::instance().typeIs(nothing);

    try {
        root->entryIs("name", "Test::Nothing");
        FAIL() << "accepted";
    } catch (const Orv::RangeError& e) {
        EXPECT_STREQ(e.what(), "null ValidPtr");
    }
    EXPECT_TRUE(root->entries().empty());
}

TEST_F(DirTest, AnAllocationThatFailsLeavesTheDirectoryAsItWas) {
    int failures = 0;
    for (int size = 0; size <= 20; ++size)
        for (std::size_t which = 1; which <= 6; ++which) {
            const auto dir = make<Dir>();
            for (int i = 0; i < size; ++i) dir->entryIs(make<Thing>(std::to_string(i)));
            const Lines before = names(*dir);
            const Name name("new");
            bool failed = false;
            {
                const RuntimeTest::FailingAllocation failing(which);
                try {
                    dir->entryIs(name, "Test::Thing");
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
            }
            if (failed) {
                ++failures;
                ASSERT_EQ(names(*dir), before);
                ASSERT_EQ(Thing::alive, size);
                dir->entryIs(name, "Test::Thing");
            }
            ASSERT_EQ(dir->entries().size(), before.size() + 1);
            ASSERT_EQ(dir->entityRef(name)->parent(), dir.get());
        }
    EXPECT_GT(failures, 21);
}

}  // namespace
