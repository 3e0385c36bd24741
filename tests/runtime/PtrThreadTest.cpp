// Counts that several threads change while the switch is on. What these tests prove, they prove
// under the thread sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

#include "runtime/ActivityManager.h"
#include "runtime/Notifiee.h"
#include "runtime/Ptr.h"
#include "runtime/String.h"
#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"

namespace {

using Orv::make;
using Orv::Ptr;
using Orv::String;
using RuntimeTest::Listener;
using RuntimeTest::Thing;
using RuntimeTest::ThreadSafePtrs;

constexpr int threadCount = 8;
constexpr int rounds = 20000;

class Counted final : public Orv::PtrInterface {
  public:
    explicit Counted(std::atomic<int>& deleted) : deleted_(deleted) {}
    ~Counted() override {
        payload = -1;
        ++deleted_;
    }
    int payload = 42;

  private:
    std::atomic<int>& deleted_;
};

// Runs `work` on all threads at once, and waits for them.
template <class Work>
void together(Work work) {
    std::barrier start(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            work(i);
        });
    for (std::thread& thread : threads) thread.join();
}

TEST(PtrThread, EightThreadsCopyAndDropOneObject) {
    const ThreadSafePtrs on(true);
    std::atomic<int> deleted{0};
    auto shared = make<Counted>(deleted);

    together([&](int) {
        for (int i = 0; i < rounds; ++i) {
            const Ptr<Counted> copy = shared;
            const Ptr<const Counted> reader = copy;
            Ptr<Counted> moved = Ptr<Counted>(copy);
            moved = nullptr;
        }
    });

    EXPECT_EQ(shared->references(), 1u);
    EXPECT_EQ(deleted, 0);
    shared = nullptr;
    EXPECT_EQ(deleted, 1);
}

TEST(PtrThread, TheLastOfEightDeletesOnceAndSeesEverything) {
    const ThreadSafePtrs on(true);
    std::atomic<int> deleted{0};
    constexpr int objects = 2000;
    // One pointer for each thread to each object; each thread drops its own.
    std::vector<std::vector<Ptr<Counted>>> held(threadCount);
    for (int i = 0; i < objects; ++i) {
        const auto object = make<Counted>(deleted);
        for (auto& pointers : held) pointers.push_back(object);
    }

    std::atomic<long> sum{0};
    together([&](int thread) {
        long mine = 0;
        for (Ptr<Counted>& pointer : held[static_cast<std::size_t>(thread)]) {
            mine += pointer->payload;
            pointer = nullptr;
        }
        sum += mine;
    });

    EXPECT_EQ(deleted, objects);
    EXPECT_EQ(sum, 42L * objects * threadCount);
}

TEST(PtrThread, AnObjectLivesThroughSwitchesBetweenTheThreads) {
    const ThreadSafePtrs off(false);
    std::atomic<int> deleted{0};
    auto shared = make<Counted>(deleted);
    std::vector<Ptr<Counted>> plain(10, shared);
    ASSERT_EQ(shared->references(), 11u);

    for (int turn = 0; turn < 3; ++turn) {
        Orv::threadSafePtrsIs(true);
        together([&](int) {
            for (int i = 0; i < rounds / 10; ++i) const Ptr<Counted> copy = shared;
        });
        Orv::threadSafePtrsIs(false);
        plain.pop_back();
        plain.emplace_back(shared);
        EXPECT_EQ(shared->references(), 11u);
    }

    plain.clear();
    shared = nullptr;
    EXPECT_EQ(deleted, 1);
}

TEST(PtrThread, EightThreadsCopyHashAndDropOneString) {
    const ThreadSafePtrs on(true);
    const String shared("a text that no thread has hashed yet");
    const std::uint32_t wanted = String("a text that no thread has hashed yet").hash();
    std::atomic<int> wrong{0};

    together([&](int) {
        for (int i = 0; i < rounds; ++i) {
            const String copy = shared;
            if (copy.hash() != wanted || copy.size() != shared.size()) ++wrong;
        }
    });

    EXPECT_EQ(wrong, 0);
}

TEST(PtrThread, AThreadsDeliveryKeepsOnlyWhatThatThreadDrops) {
    const ThreadSafePtrs on(true);
    std::atomic<int> deleted{0};
    auto mine = make<Counted>(deleted);
    auto others = make<Counted>(deleted);

    const Orv::DeliveryScope scope;
    std::thread([&] { others = nullptr; }).join();
    EXPECT_EQ(deleted, 1);
    mine = nullptr;
    EXPECT_EQ(deleted, 1);
}

TEST(PtrThread, AnotherThreadMayDropTheLastReferenceToAnEntityThatIsTelling) {
    const ThreadSafePtrs on(true);
    auto thing = make<Thing>("thing");
    Thing* const raw = thing.get();
    Listener last(thing);
    Listener first;
    first.size = [&] {
        first.notifierIs(nullptr);
        last.notifierIs(nullptr);
        std::thread([&] { thing = nullptr; }).join();
        EXPECT_EQ(Thing::alive, 1);
    };
    first.notifierIs(thing);

    raw->sizeIs(1);

    EXPECT_EQ(Thing::alive, 0);
}

TEST(PtrThread, TheSwitchMayBeSetDuringADelivery) {
    for (const bool before : {false, true}) {
        const ThreadSafePtrs set(before);
        auto thing = make<Thing>("thing");
        Thing* const raw = thing.get();
        Listener listener;
        listener.size = [&] {
            Orv::threadSafePtrsIs(!before);
            listener.notifierIs(nullptr);
            thing = nullptr;
        };
        listener.notifierIs(thing);

        raw->sizeIs(1);

        EXPECT_EQ(Thing::alive, 0);
    }
}

TEST(PtrThread, EveryThreadHasItsOwnManager) {
    const Orv::ActivityManager* const mine = &Orv::activityManager();
    const Orv::ActivityManager* theirs = nullptr;
    std::thread([&] { theirs = &Orv::activityManager(); }).join();

    EXPECT_NE(theirs, nullptr);
    EXPECT_NE(theirs, mine);
}

}  // namespace
