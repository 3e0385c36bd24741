#include "runtime/Pellum.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

using Pellum::Descriptor;
using Pellum::Ring;

TEST(PellumRing, IsEmptyAtFirst) {
    const auto ring = std::make_unique<Ring>();

    EXPECT_EQ(ring->recorded(), 0u);
    EXPECT_TRUE(ring->records().empty());
}

TEST(PellumRing, HoldsWhatWasRecordedOldestFirst) {
    const auto ring = std::make_unique<Ring>();
    const Descriptor a{"Unit", "a", 1};
    const Descriptor b{"Unit", "b", 2};

    ring->record(a);
    ring->record(b);
    ring->record(a);

    const auto records = ring->records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].number, 1u);
    EXPECT_EQ(records[0].descriptor, &a);
    EXPECT_EQ(records[1].descriptor, &b);
    EXPECT_EQ(records[2].number, 3u);
    EXPECT_EQ(records[2].descriptor, &a);
}

TEST(PellumRing, HoldsTheLastOnesOnly) {
    const auto ring = std::make_unique<Ring>();
    const Descriptor old{"Unit", "old", 1};
    const Descriptor fresh{"Unit", "fresh", 2};

    for (int i = 0; i < 10; ++i) ring->record(old);
    for (std::size_t i = 0; i < Ring::capacity; ++i) ring->record(fresh);

    EXPECT_EQ(ring->recorded(), Ring::capacity + 10);
    const auto records = ring->records();
    ASSERT_EQ(records.size(), Ring::capacity);
    std::uint64_t number = 10;
    for (const auto& record : records) {
        ASSERT_EQ(record.number, ++number);
        ASSERT_EQ(record.descriptor, &fresh);
    }
}

TEST(PellumRing, SeveralThreadsWriteWhileOneReads) {
    const auto ring = std::make_unique<Ring>();
    const std::vector<Descriptor> descriptors{
        {"Unit", "a", 1}, {"Unit", "b", 2}, {"Unit", "c", 3}, {"Unit", "d", 4}};
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (const Descriptor& descriptor : descriptors)
        writers.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) ring->record(descriptor);
        });
    std::thread reader([&] {
        while (!done) {
            std::uint64_t last = 0;
            for (const auto& record : ring->records()) {
                ASSERT_GT(record.number, last);
                last = record.number;
                ASSERT_GE(record.descriptor, descriptors.data());
                ASSERT_LT(record.descriptor, descriptors.data() + descriptors.size());
            }
        }
    });
    for (std::thread& writer : writers) writer.join();
    done = true;
    reader.join();

    EXPECT_EQ(ring->recorded(), 80000u);
    EXPECT_EQ(ring->records().size(), Ring::capacity);
    EXPECT_EQ(ring->records().back().number, 80000u);
}

TEST(PellumRing, IsOneForTheProcess) { EXPECT_EQ(&Pellum::ring(), &Pellum::ring()); }

}  // namespace
