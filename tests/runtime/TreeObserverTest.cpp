#include "runtime/TreeObserver.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "runtime/Dir.h"
#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::Attribute;
using Orv::Dir;
using Orv::Entity;
using Orv::make;
using Orv::Name;
using Orv::Ptr;
using Orv::Value;
using RuntimeTest::Callback;
using RuntimeTest::Lines;
using RuntimeTest::Listener;
using RuntimeTest::Part;
using RuntimeTest::Thing;
using RuntimeTest::World;

std::string text(const Value& value) {
    std::ostringstream out;
    if (value.absent()) out << "absent";
    if (value.boolean()) out << (*value.boolean() ? "true" : "false");
    if (value.number()) out << *value.number();
    if (value.string()) out << *value.string();
    if (value.reference()) out << (*value.reference() ? (*value.reference())->path() : "null");
    if (value.fields())
        for (const auto& [name, field] : *value.fields()) out << name << "=" << text(field) << " ";
    return out.str();
}

class Writer final : public Orv::TreeObserver {
  public:
    explicit Writer(Lines& log, std::string prefix = "") : log_(log), prefix_(std::move(prefix)) {}

    Callback<> then;

    void onScalar(const Entity& entity, const Attribute& attribute) override {
        write(entity, std::string(attribute.name()) + " = " + text(attribute.value(entity)));
    }
    void onMember(const Entity& entity, const Attribute& attribute, const Value& key) override {
        write(entity, std::string(attribute.name()) + "[" + text(key) +
                          "] = " + text(attribute.member(entity, key)));
    }
    void onEnqueued(const Entity& entity, const Attribute& attribute) override {
        write(entity, std::string(attribute.name()) + " << " + text(attribute.keys(entity).back()));
    }
    void onEntry(const Dir& dir, const Entity& entry, bool present) override {
        write(dir, (present ? "+ " : "- ") + entry.path().str() + " " + entry.info().name());
    }

  private:
    void write(const Entity& entity, const std::string& what) {
        log_.push_back(prefix_ + entity.path().str() + " " + what);
        then();
    }
    Lines& log_;
    std::string prefix_;
};

class TreeObserverTest : public ::testing::Test {
  protected:
    World world;
    Ptr<Dir> root = make<Dir>();
    Ptr<Thing> thing = make<Thing>("thing");
    Lines log;
};

TEST_F(TreeObserverTest, SeesEveryKindOfChangeWithItsPathAndNewValue) {
    const Writer observer(log);
    root->subdirIs("sub")->entryIs(thing);
    thing->sizeIs(2.5);
    thing->openIs(true);
    thing->labelIs("label");
    thing->colourIs(RuntimeTest::Colour::green);
    thing->tagIs("tag", false);
    thing->tagDel("tag");
    thing->readingIs({"r", "c"}, 7);
    const auto wheel = thing->partIs("wheel");
    wheel->weightIs(4);
    thing->neighbourIs(wheel);
    thing->userIs("user", wheel);
    thing->lineEnq("line");

    EXPECT_EQ(log, (Lines{
                       " + /sub Orv::Dir",
                       "/sub + /sub/thing Test::Thing",
                       "/sub/thing size = 2.5",
                       "/sub/thing open = true",
                       "/sub/thing label = label",
                       "/sub/thing colour = green",
                       "/sub/thing tag[tag] = false",
                       "/sub/thing tag[tag] = absent",
                       "/sub/thing reading[row=r column=c ] = 7",
                       "/sub/thing part[wheel] = /sub/thing/part/wheel",
                       "/sub/thing/part/wheel weight = 4",
                       "/sub/thing neighbour = /sub/thing/part/wheel",
                       "/sub/thing user[user] = /sub/thing/part/wheel",
                       "/sub/thing line << line",
                   }));
}

TEST_F(TreeObserverTest, SeesNothingWhenNothingChanges) {
    root->entryIs(thing);
    thing->tagIs("tag", true);
    thing->partIs("wheel");
    const Writer observer(log);

    thing->sizeIs(0);
    thing->tagIs("tag", true);
    thing->tagDel("absent");
    thing->partIs("wheel");
    thing->partDel("absent");
    root->entryDel("absent");
    root->entryIs(make<Thing>("thing"));

    EXPECT_EQ(log, Lines{});
}

TEST_F(TreeObserverTest, IsToldBeforeAnyNotifieeAndSoInTheOrderOfTheChanges) {
    root->entryIs(thing);
    const Writer observer(log);
    const Listener first(thing, [&] {
        log.push_back("notifiee");
        thing->openIs(true);
    });

    thing->sizeIs(1);

    EXPECT_EQ(log, (Lines{"/thing size = 1", "notifiee", "/thing open = true"}));
}

TEST_F(TreeObserverTest, IsNotToldSeparatelyOfWhatGoesWithAnEntryOrAMember) {
    const auto sub = root->subdirIs("sub");
    sub->entryIs(thing);
    sub->subdirIs("deep")->entryIs(make<Thing>("other"));
    thing->partIs("wheel")->partIs("tyre");
    const Writer observer(log);

    thing->partDel("wheel");
    thing->partIs("hub")->partIs("bolt");
    root->subdirDel("sub");

    EXPECT_EQ(
        log, (Lines{"/sub/thing part[wheel] = absent", "/sub/thing part[hub] = /sub/thing/part/hub",
                    "/sub/thing/part/hub part[bolt] = /sub/thing/part/hub/part/bolt",
                    " - /sub Orv::Dir"}));
}

TEST_F(TreeObserverTest, IsNotToldOfWhatIsWrittenToAnEntityWhileItsMembersGo) {
    root->entryIs(thing);
    thing->partIs("wheel");
    Listener listener(thing);
    listener.part = [&](Name) {
        thing->sizeIs(1);
        thing->tagIs("a", true);
        thing->lineEnq("one");
    };
    Writer observer(log);

    root->entryDel("thing");

    EXPECT_EQ(log, (Lines{" - /thing Test::Thing"}));
    EXPECT_EQ(thing->size(), 1);
    EXPECT_TRUE(thing->tag().contains("a"));
    EXPECT_EQ(thing->line().size(), 1u);
}

TEST_F(TreeObserverTest, IsToldOfWhatOthersDoMeanwhile) {
    root->entryIs(thing);
    const auto other = make<Thing>("other");
    root->entryIs(other);
    thing->partIs("wheel");
    Listener listener(thing);
    listener.part = [&](Name) { other->sizeIs(5); };
    const Writer observer(log);

    root->entryDel("thing");

    EXPECT_EQ(log, (Lines{" - /thing Test::Thing", "/other size = 5"}));
}

TEST_F(TreeObserverTest, SeesAnEntityThatLeftUnderItsOldPath) {
    root->entryIs(thing);
    const auto wheel = thing->partIs("wheel");
    root->entryDel("thing");
    const Writer observer(log);

    thing->sizeIs(3);
    wheel->weightIs(4);

    EXPECT_EQ(log, (Lines{"/thing size = 3", "/thing/part/wheel weight = 4"}));
}

TEST_F(TreeObserverTest, SeesAnEntityThatStandsNowhereWithoutAPath) {
    const Writer observer(log);

    thing->sizeIs(3);

    EXPECT_EQ(log, (Lines{" size = 3"}));
}

TEST_F(TreeObserverTest, WatchesFromConstructionToDestruction) {
    root->entryIs(thing);
    EXPECT_FALSE(Orv::TreeObserver::observed());
    {
        const Writer observer(log);
        EXPECT_TRUE(Orv::TreeObserver::observed());
        thing->sizeIs(1);
    }
    EXPECT_FALSE(Orv::TreeObserver::observed());
    thing->sizeIs(2);

    EXPECT_EQ(log, (Lines{"/thing size = 1"}));
}

TEST_F(TreeObserverTest, SeveralSeeTheSameAndGoInAnyOrder) {
    root->entryIs(thing);
    auto a = std::make_unique<Writer>(log, "a: ");
    auto b = std::make_unique<Writer>(log, "b: ");
    auto c = std::make_unique<Writer>(log, "c: ");

    thing->sizeIs(1);
    EXPECT_EQ(log.size(), 3u);
    b.reset();
    log.clear();
    thing->sizeIs(2);
    EXPECT_EQ(log.size(), 2u);
    a.reset();
    log.clear();
    thing->sizeIs(3);
    EXPECT_EQ(log, (Lines{"c: /thing size = 3"}));
}

TEST_F(TreeObserverTest, MayEndItself) {
    root->entryIs(thing);
    const Writer other(log, "other: ");
    auto observer = std::make_unique<Writer>(log);
    observer->then = [&] { observer.reset(); };

    thing->sizeIs(1);
    thing->sizeIs(2);

    EXPECT_EQ(log, (Lines{"/thing size = 1", "other: /thing size = 1", "other: /thing size = 2"}));
}

TEST_F(TreeObserverTest, WhatItThrowsReachesTheHookAndTheNotifieesAreTold) {
    root->entryIs(thing);
    Writer observer(log);
    observer.then = [] { throw std::runtime_error("disk full"); };
    const Listener listener(thing, [&] { log.push_back("notifiee"); });

    thing->sizeIs(1);
    root->entryDel("thing");

    EXPECT_EQ(log, (Lines{"/thing size = 1", "notifiee", " - /thing Test::Thing"}));
    EXPECT_EQ(world.environment.exceptions, (Lines{"disk full", "disk full"}));
}

TEST_F(TreeObserverTest, SeesItsOwnThreadOnly) {
    const Writer observer(log);

    std::thread([] {
        const auto other = make<Thing>("other");
        other->sizeIs(1);
    }).join();

    EXPECT_EQ(log, Lines{});
}

}  // namespace
