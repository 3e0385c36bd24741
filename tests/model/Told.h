// What the tests of the entities share: how an attribute has to behave, told once per shape.
//
// A test connects a listener that writes "attribute" or "attribute key" for everything it is told,
// and hands the attribute's reader and mutators to the function of its shape.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "runtime/Entity.h"

namespace ModelTest {

using Lines = std::vector<std::string>;

// Writes what observers of the whole tree are told, as listeners do.
class Observer final : public Orv::TreeObserver {
  public:
    Lines told;

    void onScalar(const Orv::Entity&, const Orv::Attribute& attribute) override {
        told.push_back(attribute.name());
    }
    void onMember(const Orv::Entity&, const Orv::Attribute& attribute,
                  const Orv::Value& key) override {
        told.push_back(std::string(attribute.name()) + " " + text(key));
    }
    void onEnqueued(const Orv::Entity&, const Orv::Attribute& attribute) override {
        told.push_back(attribute.name());
    }
    void onEntry(const Orv::Dir&, const Orv::Entity&, bool) override {}

  private:
    static std::string text(const Orv::Value& key) {
        if (key.string()) return key.string()->str();
        std::string fields;
        for (const auto& [name, field] : *key.fields())
            fields += (fields.empty() ? "" : ":") + field.string()->str();
        return fields;
    }
};

// Takes what was told since the last call; observers were told the same.
class Telling {
  public:
    Telling(Lines& told) : told_(told) {}

    Lines take() {
        EXPECT_EQ(observer_.told, told_);
        observer_.told.clear();
        return std::exchange(told_, {});
    }

  private:
    Lines& told_;
    Observer observer_;
};

// A scalar: `initial` at first, told once per change, silent when it stays.
template <class E, class V, class Read, class Write>
void expectScalar(E& entity, Lines& told, const std::string& name, Read read, Write write,
                  const V& initial, const V& other) {
    SCOPED_TRACE(name);
    Telling telling(told);
    const auto value = [&] { return V(std::invoke(read, entity)); };

    EXPECT_EQ(value(), initial);

    std::invoke(write, entity, initial);
    EXPECT_EQ(telling.take(), Lines());

    std::invoke(write, entity, other);
    EXPECT_EQ(telling.take(), Lines({name}));
    EXPECT_EQ(value(), other);

    std::invoke(write, entity, other);
    EXPECT_EQ(telling.take(), Lines());

    std::invoke(write, entity, initial);
    EXPECT_EQ(telling.take(), Lines({name}));
    EXPECT_EQ(value(), initial);
}

// A number in seconds is such a scalar, and takes what is no duration as well.
template <class E, class Read, class Write>
void expectSeconds(E& entity, Lines& told, const std::string& name, Read read, Write write) {
    expectScalar(entity, told, name, read, write, 0.0, 30.5);
    SCOPED_TRACE(name);
    Telling telling(told);

    for (const double seconds : {-1.0, 1e300, HUGE_VAL, -HUGE_VAL, 5e-324}) {
        std::invoke(write, entity, seconds);
        EXPECT_EQ(telling.take(), Lines({name})) << seconds;
        EXPECT_EQ(std::invoke(read, entity), seconds);
    }

    // NaN equals nothing, itself included: it is a change whenever it is set.
    std::invoke(write, entity, std::nan(""));
    std::invoke(write, entity, std::nan(""));
    EXPECT_EQ(telling.take(), Lines({name, name}));
    EXPECT_TRUE(std::isnan(std::invoke(read, entity)));

    // The two zeros are equal.
    std::invoke(write, entity, 0.0);
    EXPECT_EQ(telling.take(), Lines({name}));
    std::invoke(write, entity, -0.0);
    EXPECT_EQ(telling.take(), Lines());
    EXPECT_FALSE(std::signbit(std::invoke(read, entity)));
}

// The mutators of a collection, and the text of a key.
template <class K>
struct FlagMutators {
    std::function<bool(const K&)> read;
    std::function<void(K, bool)> is;
    std::function<void(K)> del;
    std::function<void()> delAll;
};

// A collection to bool. a, b, c: keys; their texts as the listener writes them.
template <class K>
void expectFlags(const Orv::OrderedMap<K, bool>& map, Lines& told, const std::string& name,
                 const FlagMutators<K>& mutators,
                 const std::vector<std::pair<K, std::string>>& keys) {
    SCOPED_TRACE(name);
    Telling telling(told);
    const auto& [a, aText] = keys.at(0);
    const auto& [b, bText] = keys.at(1);
    const auto& [c, cText] = keys.at(2);

    EXPECT_TRUE(map.empty());
    EXPECT_FALSE(mutators.read(a)) << "absent reads as false";

    mutators.is(a, true);
    EXPECT_EQ(telling.take(), Lines({name + " " + aText}));
    EXPECT_TRUE(mutators.read(a));
    EXPECT_FALSE(mutators.read(b));

    mutators.is(a, true);
    EXPECT_EQ(telling.take(), Lines()) << "the same value again";

    mutators.is(a, false);
    EXPECT_EQ(telling.take(), Lines({name + " " + aText}));
    EXPECT_TRUE(map.contains(a));
    EXPECT_FALSE(mutators.read(a));

    mutators.is(b, false);
    EXPECT_EQ(telling.take(), Lines({name + " " + bText})) << "a false member is not an absent one";
    EXPECT_EQ(map.size(), 2u);

    mutators.del(c);
    EXPECT_EQ(telling.take(), Lines()) << "an absent member goes";
    mutators.del(a);
    EXPECT_EQ(telling.take(), Lines({name + " " + aText}));
    mutators.del(a);
    EXPECT_EQ(telling.take(), Lines());
    EXPECT_FALSE(map.contains(a));
    EXPECT_TRUE(map.contains(b));

    mutators.is(c, true);
    mutators.is(a, true);
    telling.take();
    mutators.delAll();
    EXPECT_THAT(telling.take(), testing::UnorderedElementsAre(
                                    name + " " + aText, name + " " + bText, name + " " + cText));
    EXPECT_TRUE(map.empty());
    mutators.delAll();
    EXPECT_EQ(telling.take(), Lines());
}

template <class K>
std::vector<std::pair<K, std::string>> threeNames() {
    return {{"a", "a"}, {"b", "b"}, {"c", "c"}};
}

// An instantiating collection: its owner makes the members.
template <class M>
struct MemberMutators {
    std::function<Orv::Ptr<M>(Orv::Name)> read;
    std::function<Orv::Ptr<M>(Orv::Name)> is;
    std::function<void(Orv::Name)> del;
    std::function<void()> delAll;
};

template <class M>
void expectMembers(const Orv::Entity& owner, const Orv::OrderedMap<Orv::Name, Orv::Ptr<M>>& map,
                   Lines& told, const std::string& name, const MemberMutators<M>& mutators) {
    SCOPED_TRACE(name);
    Telling telling(told);

    EXPECT_TRUE(map.empty());
    EXPECT_EQ(mutators.read("a"), nullptr);

    const Orv::Ptr<M> a = mutators.is("a");
    EXPECT_EQ(telling.take(), Lines({name + " a"}));
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->key(), "a");
    EXPECT_EQ(a->parent(), &owner);
    EXPECT_EQ(a->path(), owner.path().str() + "/" + name + "/a");
    EXPECT_EQ(mutators.read("a"), a);

    EXPECT_EQ(mutators.is("a"), a) << "an existing member is returned";
    EXPECT_EQ(telling.take(), Lines());

    mutators.del("b");
    EXPECT_EQ(telling.take(), Lines());
    mutators.del("a");
    EXPECT_EQ(telling.take(), Lines({name + " a"}));
    EXPECT_EQ(mutators.read("a"), nullptr);
    EXPECT_EQ(a->parent(), nullptr);

    EXPECT_NE(mutators.is("a"), a) << "one that comes again is a new one";
    mutators.is("b");
    telling.take();
    mutators.delAll();
    EXPECT_THAT(telling.take(), testing::UnorderedElementsAre(name + " a", name + " b"));
    EXPECT_TRUE(map.empty());
    mutators.delAll();
    EXPECT_EQ(telling.take(), Lines());
}

// The keys of a collection, in its order.
template <class K, class V>
Lines keysOf(const Orv::OrderedMap<K, V>& map) {
    Lines keys;
    for (const auto& [key, value] : map) keys.push_back(key.str());
    return keys;
}

}  // namespace ModelTest
