#include "runtime/OrderedMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "runtime/Ptr.h"
#include "runtime/String.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::OrderedMap;
using Orv::String;

// A key whose hashes collide as much as `Hashes` says.
template <std::uint32_t Hashes>
struct Key {
    int id = 0;
    std::uint32_t hash() const { return static_cast<std::uint32_t>(id) % Hashes; }
    friend bool operator==(const Key&, const Key&) = default;
};

template <class K, class V>
std::vector<std::pair<K, V>> members(const OrderedMap<K, V>& map) {
    std::vector<std::pair<K, V>> all;
    for (const auto& [key, value] : map) all.emplace_back(key, value);
    return all;
}

std::vector<std::string> keys(const OrderedMap<String, int>& map) {
    std::vector<std::string> all;
    for (const auto& [key, value] : map) all.push_back(key.str());
    return all;
}

using Keys = std::vector<std::string>;

TEST(OrderedMap, IsEmptyAtFirst) {
    const OrderedMap<String, int> map;

    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.size(), 0u);
    EXPECT_FALSE(map.contains("a"));
    EXPECT_EQ(map.find("a"), nullptr);
    EXPECT_EQ(map.value("a"), 0);
    EXPECT_EQ(map.begin(), map.end());
}

TEST(OrderedMap, KeepsTheOrderInWhichMembersWereAdded) {
    OrderedMap<String, int> map;
    for (const char* key : {"d", "b", "a", "c"}) EXPECT_TRUE(map.set(key, 1));

    EXPECT_EQ(keys(map), (Keys{"d", "b", "a", "c"}));
}

TEST(OrderedMap, OverwritingKeepsThePlaceAndRemovingAndAddingGoesToTheEnd) {
    OrderedMap<String, int> map;
    for (const char* key : {"a", "b", "c"}) map.set(key, 1);

    EXPECT_FALSE(map.set("a", 2));
    EXPECT_EQ(keys(map), (Keys{"a", "b", "c"}));
    EXPECT_EQ(map.value("a"), 2);

    EXPECT_TRUE(map.del("a"));
    EXPECT_TRUE(map.set("a", 3));
    EXPECT_EQ(keys(map), (Keys{"b", "c", "a"}));
}

TEST(OrderedMap, RemovalReturnsTheValueAndSaysWhetherThereWasOne) {
    OrderedMap<String, String> map;
    map.set("a", "value");
    String removed = "untouched";

    EXPECT_FALSE(map.del("b", &removed));
    EXPECT_EQ(removed, "untouched");
    EXPECT_TRUE(map.del("a", &removed));
    EXPECT_EQ(removed, "value");
    EXPECT_FALSE(map.del("a"));
    EXPECT_TRUE(map.empty());
}

TEST(OrderedMap, ARemovedValueIsReleasedAtOnceAlsoWhileTheMapIsWalked) {
    class Object final : public Orv::PtrInterface {
      public:
        explicit Object(bool& deleted) : deleted_(deleted) {}
        ~Object() override { deleted_ = true; }

      private:
        bool& deleted_;
    };
    bool deleted = false;
    OrderedMap<String, Orv::Ptr<Object>> map;
    map.set("a", Orv::make<Object>(deleted));
    map.set("b", nullptr);

    map.walk([&](const String& key) {
        if (key == "a") {
            map.del(key);
            EXPECT_TRUE(deleted);
        }
    });

    EXPECT_EQ(map.size(), 1u);
}

TEST(OrderedMap, AValueMayChangeTheMapWhileItIsReleased) {
    class Object final : public Orv::PtrInterface {
      public:
        explicit Object(std::function<void()> gone) : gone_(std::move(gone)) {}
        ~Object() override { gone_(); }

      private:
        std::function<void()> gone_;
    };
    OrderedMap<Key<4>, Orv::Ptr<Object>> map;
    const auto refill = [&] {
        for (int i = 100; i < 200; ++i) map.set({i}, nullptr);
    };
    map.set({1}, Orv::make<Object>(refill));
    map.set({1}, nullptr);  // overwritten
    EXPECT_EQ(map.size(), 101u);

    OrderedMap<Key<4>, Orv::Ptr<Object>> other;
    other.set({1}, Orv::make<Object>([&] { other.set({2}, nullptr); }));
    other.del({1});
    EXPECT_TRUE(other.contains({2}));
    EXPECT_EQ(other.size(), 1u);
}

TEST(OrderedMap, FindGivesWriteAccess) {
    OrderedMap<String, int> map;
    map.set("a", 1);

    *map.find("a") = 5;

    EXPECT_EQ(map.value("a"), 5);
}

TEST(OrderedMap, HoldsManyMembers) {
    constexpr int many = 100000;
    OrderedMap<Key<0xffffffff>, int> map;
    for (int i = 0; i < many; ++i) map.set({i}, i);
    for (int i = 0; i < many; i += 2) map.del({i});

    EXPECT_EQ(map.size(), many / 2u);
    int expected = 1;
    for (const auto& [key, value] : map) {
        ASSERT_EQ(key.id, expected);
        ASSERT_EQ(value, expected);
        expected += 2;
    }
    EXPECT_EQ(map.find({0}), nullptr);
    EXPECT_NE(map.find({many - 1}), nullptr);
}

// Walking.

TEST(OrderedMapWalk, VisitsEachMemberInOrder) {
    OrderedMap<String, int> map;
    for (const char* key : {"c", "a", "b"}) map.set(key, 1);
    Keys seen;

    map.walk([&](const String& key) { seen.push_back(key.str()); });

    EXPECT_EQ(seen, (Keys{"c", "a", "b"}));
}

TEST(OrderedMapWalk, IsARangeOfKeysToo) {
    OrderedMap<String, int> map;
    for (const char* key : {"c", "a", "b", "d"}) map.set(key, 1);
    Keys seen;

    for (const String key : map.walked()) {
        seen.push_back(key.str());
        map.del(key);
        if (key == "c") map.del("a");
        if (key == "b") break;
    }

    EXPECT_EQ(seen, (Keys{"c", "b"}));
    EXPECT_EQ(map.size(), 1u);
    map.del("d");
    for (const String key : map.walked()) FAIL() << key;
}

TEST(OrderedMapWalk, SurvivesTheRemovalOfTheCurrentOfAnyAndOfAll) {
    OrderedMap<String, int> map;
    for (const char* key : {"a", "b", "c", "d"}) map.set(key, 1);
    Keys seen;

    map.walk([&](String key) {
        seen.push_back(key.str());
        map.del(key);
        if (key == "b") map.del("c");
    });

    EXPECT_EQ(seen, (Keys{"a", "b", "d"}));
    EXPECT_TRUE(map.empty());
}

TEST(OrderedMapWalk, DoesNotVisitWhatIsAddedMeanwhile) {
    OrderedMap<Key<8>, int> map;
    map.set({0}, 1);
    map.set({1}, 1);
    std::vector<int> seen;

    map.walk([&](Key<8> key) {
        seen.push_back(key.id);
        for (int i = 0; i < 50; ++i) map.set({100 * (key.id + 1) + i}, 1);
    });

    EXPECT_EQ(seen, (std::vector<int>{0, 1}));
    EXPECT_EQ(map.size(), 102u);
}

TEST(OrderedMapWalk, VisitsAMemberThatWasRemovedAndAddedAgainOnceInItsOldTurn) {
    OrderedMap<String, int> map;
    for (const char* key : {"a", "b", "c"}) map.set(key, 1);
    Keys seen;

    map.walk([&](const String& key) {
        seen.push_back(key.str());
        if (key != "a") return;
        map.del("b");
        map.set("b", 2);
        map.del("a");
        map.set("a", 2);
    });

    EXPECT_EQ(seen, (Keys{"a", "b", "c"}));
    EXPECT_EQ(keys(map), (Keys{"c", "b", "a"}));
}

TEST(OrderedMapWalk, DoesNotVisitWhatWasGoneAtTheStartAndCameBack) {
    OrderedMap<String, int> map;
    for (const char* key : {"a", "b", "c"}) map.set(key, 1);
    map.del("b");  // its place stays for now
    Keys seen;

    map.walk([&](const String& key) {
        seen.push_back(key.str());
        map.set("b", 2);
    });

    EXPECT_EQ(seen, (Keys{"a", "c"}));
}

TEST(OrderedMapWalk, PlacesRiseAlongTheOrder) {
    OrderedMap<String, int> map;
    for (const char* key : {"c", "a", "b"}) map.set(key, 1);
    map.del("a");
    map.set("a", 1);

    EXPECT_LT(map.place("c"), map.place("b"));
    EXPECT_LT(map.place("b"), map.place("a"));
    EXPECT_EQ(map.place("d"), map.nowhere);
}

TEST(OrderedMap, ThatIsReservedTakesWhatIsToComeWithoutAllocating) {
    for (const int before : {0, 9}) {
        for (const int members : {8, 20, 28, 29, 100}) {
            SCOPED_TRACE(std::to_string(before) + " of " + std::to_string(members));
            OrderedMap<Key<64>, int> map;
            for (int id = 0; id < before; ++id) map.set({id}, id);
            map.reserve(static_cast<std::size_t>(members));
            const std::size_t allocations = RuntimeTest::allocations();

            for (int id = before; id < members; ++id) map.set({id}, id);

            EXPECT_EQ(RuntimeTest::allocations(), allocations);
            for (int id = 0; id < members; ++id) EXPECT_EQ(map.value({id}), id);
        }
    }
}

TEST(OrderedMapWalk, AtPlacesVisitsThoseAlone) {
    OrderedMap<Key<8>, int> map;
    for (int id = 0; id < 40; ++id) map.set({id}, id);
    std::vector<int> seen;

    map.walkAt(
        {map.place({39}), map.place({3}), map.place({17})}, [] { return true; },
        [&](Key<8> key) { seen.push_back(key.id); });

    EXPECT_EQ(seen, (std::vector<int>{3, 17, 39}));
}

TEST(OrderedMapWalk, AtPlacesVisitsAllThatIsLeftOnceTheyAreNotKnown) {
    OrderedMap<Key<8>, int> map;
    for (int id = 0; id < 8; ++id) map.set({id}, id);
    std::vector<int> seen;

    map.walkAt(
        {map.place({1}), map.place({3})}, [&] { return seen.empty(); },
        [&](Key<8> key) {
            seen.push_back(key.id);
            map.set({8}, 8);
        });

    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
}

TEST(OrderedMapWalk, AtPlacesVisitsAllThatIsLeftOnceAMemberIsRemoved) {
    OrderedMap<Key<8>, int> map;
    for (int id = 0; id < 8; ++id) map.set({id}, id);
    std::vector<int> seen;

    map.walkAt(
        {map.place({0}), map.place({2}), map.place({6})}, [] { return true; },
        [&](Key<8> key) {
            seen.push_back(key.id);
            if (key.id != 2) return;
            map.del({3});
            map.del({6});
            map.set({6}, 6);
        });

    EXPECT_EQ(seen, (std::vector<int>{0, 2, 4, 5, 6, 7}));
}

TEST(OrderedMapWalk, LeavesNoWalkBehindWhenAVisitThrows) {
    OrderedMap<Key<64>, int> map;
    for (int i = 0; i < 40; ++i) map.set({i}, i);

    EXPECT_THROW(map.walk([](Key<64>) { throw 1; }), int);
    for (int i = 1; i < 40; ++i) map.del({i});

    // A map that nobody walks gives up its places: it can be filled without growing.
    const std::size_t before = RuntimeTest::allocations();
    for (int i = 1; i < 8; ++i) map.set({i}, i);
    EXPECT_EQ(RuntimeTest::allocations(), before);
}

// One act on a map and on a plain model of it.
template <class K>
class Pair {
  public:
    explicit Pair(unsigned seed, int range) : random(seed), range_(range) {}

    int number(int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); }

    void act() {
        const K key{number(range_)};
        const auto at =
            std::find_if(model.begin(), model.end(), [&](const auto& m) { return m.first == key; });
        // Favours growing and shrinking in turns, so that every size is passed.
        if (number(100) < (growing_ ? 70 : 30)) {
            const int value = number(1000);
            ASSERT_EQ(map.set(key, value), at == model.end());
            if (at == model.end())
                model.emplace_back(key, value);
            else
                at->second = value;
        } else {
            int removed = -1;
            ASSERT_EQ(map.del(key, &removed), at != model.end());
            if (at != model.end()) {
                ASSERT_EQ(removed, at->second);
                model.erase(at);
            }
        }
        if (number(40) == 0) growing_ = !growing_;
    }

    bool inModel(const K& key) const {
        return std::any_of(model.begin(), model.end(),
                           [&](const auto& m) { return m.first == key; });
    }

    void compare() const {
        ASSERT_EQ(map.size(), model.size());
        ASSERT_EQ(map.empty(), model.empty());
        ASSERT_TRUE(members(map) == model);
        for (int id = 0; id < range_; ++id) {
            ASSERT_EQ(map.contains(K{id}), inModel(K{id}));
            ASSERT_EQ(map.find(K{id}) != nullptr, inModel(K{id}));
        }
        for (const auto& [key, value] : model) ASSERT_EQ(map.value(key), value);
    }

    // Walks both, with random acts and walks inside of the visits.
    void walk(int depth) {
        std::vector<K> wanted;
        for (const auto& m : model) wanted.push_back(m.first);
        auto next = wanted.begin();
        const auto skipAbsent = [&] {
            while (next != wanted.end() && !inModel(*next)) ++next;
        };
        map.walk([&](K key) {
            skipAbsent();
            ASSERT_TRUE(next != wanted.end()) << "visited too many";
            ASSERT_TRUE(key == *next) << key.id << " instead of " << next->id;
            ++next;
            ++visits;
            for (int acts = number(3); acts > 0; --acts) act();
            if (depth > 0 && number(6) == 0) walk(depth - 1);
        });
        skipAbsent();
        ASSERT_TRUE(next == wanted.end()) << "visited too few";
    }

    OrderedMap<K, int> map;
    std::vector<std::pair<K, int>> model;
    std::mt19937 random;
    std::size_t visits = 0;

  private:
    int range_;
    bool growing_ = true;
};

template <class K>
class OrderedMapOracle : public ::testing::Test {};
using KeyKinds = ::testing::Types<Key<0xffffffff>, Key<7>, Key<1>>;
struct KeyKindNames {
    template <class K>
    static std::string GetName(int i) {
        return std::vector<std::string>{"DistinctHashes", "FewHashes",
                                        "OneHash"}[static_cast<std::size_t>(i)];
    }
};
TYPED_TEST_SUITE(OrderedMapOracle, KeyKinds, KeyKindNames);

TYPED_TEST(OrderedMapOracle, RandomActsAgreeWithAPlainVector) {
    for (const int range : {3, 12, 40, 150})
        for (unsigned seed = 1; seed <= 8; ++seed) {
            Pair<TypeParam> pair(seed, range);
            for (int i = 0; i < 600; ++i) {
                pair.act();
                if (i % 7 == 0) pair.compare();
                if (::testing::Test::HasFatalFailure()) FAIL() << range << "/" << seed;
            }
            pair.compare();
        }
}

TYPED_TEST(OrderedMapOracle, RandomWalksAgreeWithACopyOfTheKeysThatIsLookedUpBeforeEachStep) {
    std::size_t visits = 0;
    for (const int range : {3, 12, 40, 150})
        for (unsigned seed = 1; seed <= 5; ++seed) {
            Pair<TypeParam> pair(seed, range);
            for (int i = 0; i < 20; ++i) {
                for (int acts = pair.number(8); acts > 0; --acts) pair.act();
                pair.walk(2);
                pair.compare();
                if (::testing::Test::HasFatalFailure()) FAIL() << range << "/" << seed;
            }
            visits += pair.visits;
        }
    EXPECT_GT(visits, 5000u);
}

// What it costs.

// Counts how often members are moved.
struct MovedKey {
    int id = 0;
    static inline int moves = 0;

    MovedKey() = default;
    explicit MovedKey(int i) : id(i) {}
    MovedKey(const MovedKey&) = default;
    MovedKey(MovedKey&& other) noexcept : id(other.id) { ++moves; }
    MovedKey& operator=(const MovedKey&) = default;
    MovedKey& operator=(MovedKey&& other) noexcept {
        id = other.id;
        ++moves;
        return *this;
    }
    std::uint32_t hash() const { return static_cast<std::uint32_t>(id); }
    friend bool operator==(const MovedKey& a, const MovedKey& b) { return a.id == b.id; }
};

TEST(OrderedMapCost, RemovingAndAddingInTurnsIsConstantAtAnySize) {
    for (const int size : {1000, 1023, 1024, 1025, 1500}) {
        OrderedMap<MovedKey, int> map;
        for (int i = 0; i < size; ++i) map.set(MovedKey(i), i);

        MovedKey::moves = 0;
        constexpr int rounds = 10000;
        for (int i = 0; i < rounds; ++i) {
            map.del(MovedKey(i));
            map.set(MovedKey(i + size), i);
        }

        EXPECT_LT(MovedKey::moves, rounds * 10) << "size " << size;
        EXPECT_EQ(map.size(), static_cast<std::size_t>(size));
    }
}

TEST(OrderedMapCost, WhatAWalkRemovedIsForgottenWhenTheOutermostWalkEnds) {
    struct SharedKey {
        std::shared_ptr<int> id;
        std::uint32_t hash() const { return static_cast<std::uint32_t>(*id); }
        bool operator==(const SharedKey& other) const { return *id == *other.id; }
    };
    std::vector<SharedKey> held;
    OrderedMap<SharedKey, int> map;
    for (int i = 0; i < 100; ++i) {
        held.push_back({std::make_shared<int>(i)});
        map.set(held.back(), i);
    }

    map.walk([&](const SharedKey& outer) {
        if (*outer.id != 0) return;
        map.walk([&](const SharedKey& key) {
            if (*key.id < 90) map.del(key);
        });
        EXPECT_GT(held[1].id.use_count(), 1);  // the outer walk still needs its place
    });
    for (int i = 0; i < 90; ++i)
        EXPECT_EQ(held[static_cast<std::size_t>(i)].id.use_count(), 1) << i;
    EXPECT_EQ(map.size(), 10u);

    map.walk([&](const SharedKey& key) { map.del(key); });
    for (const SharedKey& key : held) EXPECT_EQ(key.id.use_count(), 1);
}

TEST(OrderedMapCost, LookingUpAndRemovingAllocateNothing) {
    OrderedMap<Key<0xffffffff>, int> map;
    for (int i = 0; i < 1000; ++i) map.set({i}, i);
    const std::size_t before = RuntimeTest::allocations();

    for (int i = 0; i < 1000; ++i) {
        map.find({i});
        if (i % 3 == 0) map.set({i}, -i);
    }
    map.walk([&](Key<0xffffffff> key) {
        if (key.id % 2 == 0) map.del(key);
    });
    for (int i = 0; i < 1000; ++i) map.del({i});

    EXPECT_EQ(RuntimeTest::allocations(), before);
    EXPECT_TRUE(map.empty());
}

TEST(OrderedMapFailure, AnAllocationThatFailsLeavesEverythingAsItWas) {
    int failures = 0;
    // Around every growth of the array and of the index, with and without tombstones, walked or
    // not.
    for (int size = 0; size <= 260; size += size < 40 ? 1 : 11)
        for (const int removed : {0, 1, 5})
            for (const bool walked : {false, true})
                for (std::size_t which = 1; which <= 2; ++which) {
                    OrderedMap<Key<0xffffffff>, int> map;
                    for (int i = 0; i < size; ++i) map.set({i}, i);
                    for (int i = 0; i < std::min(removed, size); ++i) map.del({i});
                    const auto before = members(map);
                    bool failed = false;
                    const auto add = [&] {
                        const RuntimeTest::FailingAllocation failing(which);
                        try {
                            map.set({-7}, 7);
                        } catch (const std::bad_alloc&) {
                            failed = true;
                        }
                    };

                    if (walked)
                        map.walk([&](Key<0xffffffff>) {
                            if (!failed && !map.contains({-7})) add();
                        });
                    else
                        add();

                    failures += failed;
                    if (failed) {
                        ASSERT_TRUE(members(map) == before) << size;
                        ASSERT_FALSE(map.contains({-7}));
                        map.set({-7}, 7);
                    }
                    if (!map.contains({-7})) {
                        ASSERT_TRUE(walked && before.empty());
                        continue;
                    }
                    ASSERT_EQ(map.size(), before.size() + 1);
                    for (const auto& [key, value] : before) ASSERT_EQ(map.value(key), value);
                    ASSERT_EQ(map.value({-7}), 7);
                }
    EXPECT_GT(failures, 20);
}

}  // namespace
