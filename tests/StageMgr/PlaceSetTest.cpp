#include "StageMgr/PlaceSet.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

using Stage::PlaceSet;

TEST(PlaceSet, IsEmptyAtFirst) {
    PlaceSet set;
    EXPECT_EQ(set.next(0), PlaceSet::none);
    EXPECT_EQ(set.next(1000000), PlaceSet::none);
    set.roomFor(10000);
    EXPECT_EQ(set.next(0), PlaceSet::none);
}

TEST(PlaceSet, FindsTheLeastMemberFromThereOn) {
    PlaceSet set;
    set.roomFor(300000);
    for (const std::uint32_t number : {0u, 63u, 64u, 4095u, 4096u, 262143u, 299999u})
        set.is(number, true);

    EXPECT_EQ(set.next(0), 0u);
    EXPECT_EQ(set.next(1), 63u);
    EXPECT_EQ(set.next(63), 63u);
    EXPECT_EQ(set.next(64), 64u);
    EXPECT_EQ(set.next(65), 4095u);
    EXPECT_EQ(set.next(4096), 4096u);
    EXPECT_EQ(set.next(4097), 262143u);
    EXPECT_EQ(set.next(262144), 299999u);
    EXPECT_EQ(set.next(300000), PlaceSet::none);
}

TEST(PlaceSet, DoesWhatASortedSetDoes) {
    std::mt19937 random(1);
    PlaceSet set;
    std::set<std::uint32_t> sorted;
    constexpr std::uint32_t end = 9000;
    set.roomFor(end);
    for (int step = 0; step < 100000; ++step) {
        const auto number = static_cast<std::uint32_t>(random() % end);
        if (random() % 3 != 0) {
            set.is(number, false);
            sorted.erase(number);
        } else {
            set.is(number, true);
            sorted.insert(number);
        }
        const auto from = static_cast<std::uint32_t>(random() % (end + 200));
        const auto found = sorted.lower_bound(from);
        ASSERT_EQ(set.next(from), found == sorted.end() ? PlaceSet::none : *found) << step;
    }
    set.clear();
    EXPECT_EQ(set.next(0), PlaceSet::none);
}

}  // namespace
