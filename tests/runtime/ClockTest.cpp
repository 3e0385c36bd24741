#include "runtime/Clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"
#include "tests/support/Allocations.h"

namespace {

using Orv::Clock;
using Orv::make;
using Orv::never;
using Orv::Ptr;
using RuntimeTest::Callback;
using RuntimeTest::Lines;
using RuntimeTest::World;

constexpr double infinity = std::numeric_limits<double>::infinity();

class Timer final : public Clock::NotifieeConst {
  public:
    Timer() = default;
    explicit Timer(const Ptr<Clock>& clock, Callback<> onTime = {}) : then(std::move(onTime)) {
        notifierIs(clock);
    }
    Callback<> then;
    void onTime() override { then(); }
};

class ClockTest : public ::testing::Test {
  protected:
    World world;
    Ptr<Clock> clock = make<Clock>();
    Lines log;

    std::unique_ptr<Timer> timer(std::string name, double time, Callback<> then = {}) {
        auto made = std::make_unique<Timer>(clock, [this, name = std::move(name), then] {
            log.push_back(name);
            then();
        });
        made->timeMinIs(time);
        return made;
    }
    void fireAll() {
        while (clock->nextTime() != never) clock->fireNext();
    }
};

TEST_F(ClockTest, HasNothingArmedAtFirst) {
    const Timer t(clock);

    EXPECT_EQ(t.timeMin(), never);
    EXPECT_EQ(clock->nextTime(), never);
    EXPECT_EQ(clock->armedTimers(), 0u);
    EXPECT_TRUE(t.isRegisteredNotifiee());
}

TEST_F(ClockTest, FiresInTheOrderOfDueTimeThenOfArming) {
    const auto a = timer("a", 3);
    const auto b = timer("b", 1);
    const auto c = timer("c", 2);
    const auto d = timer("d", 1);
    const auto e = timer("e", 1);

    EXPECT_EQ(clock->nextTime(), 1);
    EXPECT_EQ(clock->armedTimers(), 5u);
    fireAll();

    EXPECT_EQ(log, (Lines{"b", "d", "e", "c", "a"}));
}

TEST_F(ClockTest, ATimerThatTakesNothingOverIsConsumedInSilence) {
    class Idle final : public Clock::NotifieeConst {};
    Idle idle;
    idle.notifierIs(clock);
    idle.timeMinIs(1);
    const auto next = timer("next", 2);

    clock->fireNext();

    EXPECT_EQ(idle.timeMin(), never);
    EXPECT_EQ(log, Lines{});
    EXPECT_EQ(clock->nextTime(), 2);
}

TEST_F(ClockTest, TheSameTimeAgainKeepsThePlace) {
    const auto a = timer("a", 1);
    const auto b = timer("b", 1);

    a->timeMinIs(1);
    fireAll();

    EXPECT_EQ(log, (Lines{"a", "b"}));
}

TEST_F(ClockTest, AnotherTimeAndBackGivesUpThePlace) {
    const auto a = timer("a", 1);
    const auto b = timer("b", 1);

    a->timeMinIs(2);
    a->timeMinIs(1);
    fireAll();

    EXPECT_EQ(log, (Lines{"b", "a"}));
}

TEST_F(ClockTest, NanAndInfinityMeanNever) {
    const auto a = timer("a", std::nan(""));
    const auto b = timer("b", infinity);
    const auto c = timer("c", 1);
    c->timeMinIs(std::nan(""));
    const auto d = timer("d", 1);
    d->timeMinIs(never);

    for (const Timer* t : {a.get(), b.get(), c.get(), d.get()}) EXPECT_EQ(t->timeMin(), never);
    EXPECT_EQ(clock->armedTimers(), 0u);
    EXPECT_EQ(clock->nextTime(), never);
}

TEST_F(ClockTest, MinusInfinityIsBeforeEverything) {
    const auto a = timer("a", -1e308);
    const auto b = timer("b", -infinity);
    const auto c = timer("c", -infinity);
    b->timeMinIs(-infinity);  // keeps its place

    EXPECT_EQ(clock->nextTime(), -infinity);
    fireAll();

    EXPECT_EQ(log, (Lines{"b", "c", "a"}));
}

TEST_F(ClockTest, BothZerosAreOneTime) {
    const auto a = timer("a", 0.0);
    const auto b = timer("b", 0.0);

    a->timeMinIs(-0.0);
    fireAll();

    EXPECT_EQ(log, (Lines{"a", "b"}));
}

TEST_F(ClockTest, NothingFiresInsideOfSettingATime) {
    const auto a = timer("a", -infinity);
    a->timeMinIs(-5);
    a->timeMinIs(0);

    EXPECT_EQ(log, Lines{});
}

TEST_F(ClockTest, TheTimeIsConsumedBeforeTheCallbackAndTheSameMayBeSetAgain) {
    int rounds = 0;
    double seen = 0;
    std::unique_ptr<Timer> a;
    a = timer("a", 1, [&] {
        seen = a->timeMin();
        if (++rounds < 3) a->timeMinIs(1);
    });
    const auto b = timer("b", 1);

    fireAll();

    EXPECT_EQ(seen, never);
    EXPECT_EQ(log, (Lines{"a", "b", "a", "a"}));
    EXPECT_EQ(a->timeMin(), never);
}

TEST_F(ClockTest, ATimerArmedInACallbackTakesItsPlaceByItsTime) {
    std::unique_ptr<Timer> late;
    const auto a = timer("a", 1, [&] { late->timeMinIs(0.5); });
    const auto b = timer("b", 1);
    late = timer("late", never);

    fireAll();

    EXPECT_EQ(log, (Lines{"a", "late", "b"}));
}

TEST_F(ClockTest, ATimerThatAnEarlierOneDisarmedDoesNotFire) {
    std::unique_ptr<Timer> b;
    const auto a = timer("a", 1, [&] { b->timeMinIs(never); });
    b = timer("b", 1);
    const auto c = timer("c", 1);

    fireAll();

    EXPECT_EQ(log, (Lines{"a", "c"}));
}

TEST_F(ClockTest, ATimerThatAnEarlierOneMovedFiresAtItsNewTime) {
    std::unique_ptr<Timer> b;
    const auto a = timer("a", 1, [&] { b->timeMinIs(2); });
    b = timer("b", 1);
    const auto c = timer("c", 1);

    fireAll();

    EXPECT_EQ(log, (Lines{"a", "c", "b"}));
}

TEST_F(ClockTest, ATimerThatAnEarlierOneDestroyedDoesNotFire) {
    std::unique_ptr<Timer> b;
    const auto a = timer("a", 1, [&] { b.reset(); });
    b = timer("b", 1);
    const auto c = timer("c", 1);

    fireAll();

    EXPECT_EQ(log, (Lines{"a", "c"}));
}

TEST_F(ClockTest, ATimerMayDestroyItself) {
    std::unique_ptr<Timer> a;
    a = timer("a", 1, [&] { a.reset(); });
    const auto b = timer("b", 2);

    fireAll();

    EXPECT_EQ(log, (Lines{"a", "b"}));
}

TEST_F(ClockTest, KeepsWhatATimerReleasesUntilItReturns) {
    int alive = 0;
    auto thing = make<RuntimeTest::Thing>("thing");
    const auto a = timer("a", 1, [&] {
        thing = nullptr;
        alive = RuntimeTest::Thing::alive;
    });

    fireAll();

    EXPECT_EQ(alive, 1);
    EXPECT_EQ(RuntimeTest::Thing::alive, 0);
}

TEST_F(ClockTest, MayLoseItsLastReferenceInACallback) {
    std::unique_ptr<Timer> a;
    a = timer("a", 1, [&] { a->notifierIs(nullptr); });
    Clock* const raw = clock.get();
    clock = nullptr;

    raw->fireNext();

    EXPECT_EQ(log, (Lines{"a"}));
    EXPECT_FALSE(a->isRegisteredNotifiee());
}

TEST_F(ClockTest, AnExceptionReachesTheHookAndTheOthersFire) {
    const auto a = timer("a", 1, [] { throw std::runtime_error("late"); });
    const auto b = timer("b", 1, [] { throw 5; });
    const auto c = timer("c", 1);

    EXPECT_NO_THROW(fireAll());

    EXPECT_EQ(log, (Lines{"a", "b", "c"}));
    EXPECT_EQ(world.environment.exceptions, (Lines{"late", "unknown exception"}));
}

TEST_F(ClockTest, TwoTimersOnOneClockAreIndependent) {
    const auto a = timer("a", 1);
    const auto b = timer("b", 2);

    a->timeMinIs(never);

    EXPECT_EQ(b->timeMin(), 2);
    EXPECT_EQ(clock->nextTime(), 2);
}

TEST_F(ClockTest, ADestroyedOrDisconnectedTimerIsDisarmed) {
    auto a = timer("a", 1);
    auto b = timer("b", 2);

    a.reset();
    EXPECT_EQ(clock->armedTimers(), 1u);
    b->notifierIs(nullptr);
    EXPECT_EQ(clock->armedTimers(), 0u);
    EXPECT_EQ(b->timeMin(), never);
    EXPECT_EQ(clock->references(), 1u);
}

TEST_F(ClockTest, ATimerThatMovesToAnotherClockIsDisarmed) {
    const auto other = make<Clock>();
    const auto a = timer("a", 1);

    a->notifierIs(other);

    EXPECT_EQ(a->timeMin(), never);
    EXPECT_EQ(clock->armedTimers(), 0u);
    EXPECT_EQ(other->armedTimers(), 0u);
    a->timeMinIs(1);
    EXPECT_EQ(other->armedTimers(), 1u);
}

TEST_F(ClockTest, ATimerWithoutAClockStaysUnarmed) {
    Timer a;

    a.timeMinIs(1);

    EXPECT_EQ(a.timeMin(), never);
    EXPECT_FALSE(a.isRegisteredNotifiee());
}

TEST_F(ClockTest, AnAllocationThatFailsLeavesTheTimerUnarmedAndTheOthersInOrder) {
    const auto a = timer("a", 2);
    const auto b = timer("b", 1);
    std::vector<std::unique_ptr<Timer>> more;
    int failures = 0;
    for (int i = 0; i < 40; ++i) {
        more.push_back(timer("more", never));
        Timer& fresh = *more.back();
        {
            const RuntimeTest::FailingAllocation failing(1);
            try {
                fresh.timeMinIs(3 + i);
            } catch (const std::bad_alloc&) {
                ++failures;
            }
        }
        if (fresh.timeMin() == never) fresh.timeMinIs(3 + i);
        ASSERT_EQ(fresh.timeMin(), 3 + i);
        ASSERT_EQ(clock->armedTimers(), more.size() + 2);
    }
    EXPECT_GT(failures, 2);

    clock->fireNext();
    clock->fireNext();
    EXPECT_EQ(log, (Lines{"b", "a"}));
    EXPECT_EQ(clock->nextTime(), 3);
}

TEST_F(ClockTest, MovingAnArmedTimerAllocatesNothing) {
    std::vector<std::unique_ptr<Timer>> all;
    for (int i = 0; i < 100; ++i) all.push_back(timer("t", i));
    const std::size_t before = RuntimeTest::allocations();

    for (int round = 0; round < 100; ++round)
        for (int i = 0; i < 100; ++i)
            all[static_cast<std::size_t>(i)]->timeMinIs((i * 37 + round) % 101);

    EXPECT_EQ(RuntimeTest::allocations(), before);
}

TEST(ClockDeathTest, FiringWithNothingArmedIsAnAssertion) {
    const auto clock = make<Clock>();

    EXPECT_DEATH(clock->fireNext(), "Assertion failed: !queue_.empty\\(\\)");
}

// Random acts, outside and inside of callbacks, against a plain list that is searched for the
// least.
TEST(ClockOracle, RandomActsAgreeWithASortedList) {
    constexpr int timers = 30;
    struct Armed {
        double time;
        int sequence;
        int timer;
    };
    std::size_t firings = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        World world;
        std::mt19937 random(seed);
        const auto number = [&](int below) {
            return static_cast<int>(random() % static_cast<unsigned>(below));
        };
        const auto clock = make<Clock>();
        std::vector<std::unique_ptr<Timer>> real(timers);
        std::vector<Armed> model;
        int sequence = 0;
        std::vector<int> fired;
        int depth = 0;

        const auto modelSet = [&](int which, double time) {
            const auto at = std::find_if(model.begin(), model.end(),
                                         [&](const Armed& a) { return a.timer == which; });
            if (std::isnan(time)) time = infinity;
            const double current = at == model.end() ? infinity : at->time;
            if (time == current) return;
            if (at != model.end()) model.erase(at);
            if (time != infinity) model.push_back({time, ++sequence, which});
        };
        std::function<void()> act;
        const auto create = [&](int which) {
            auto& place = real[static_cast<std::size_t>(which)];
            place = std::make_unique<Timer>(clock, [&, which] {
                fired.push_back(which);
                ++depth;
                for (int acts = number(3); acts > 0; --acts) act();
                --depth;
            });
        };
        act = [&] {
            const int which = number(timers);
            switch (number(10)) {
                case 0:
                    create(which);
                    modelSet(which, infinity);
                    return;
                case 1:
                    real[static_cast<std::size_t>(which)]->timeMinIs(std::nan(""));
                    modelSet(which, infinity);
                    return;
                case 2:
                    real[static_cast<std::size_t>(which)]->timeMinIs(-infinity);
                    modelSet(which, -infinity);
                    return;
                default: {
                    const double time = number(12) - 2;
                    real[static_cast<std::size_t>(which)]->timeMinIs(time);
                    modelSet(which, time);
                }
            }
        };
        for (int i = 0; i < timers; ++i) create(i);

        for (int step = 0; step < 400; ++step) {
            act();
            ASSERT_EQ(clock->armedTimers(), model.size());
            for (int i = 0; i < timers; ++i) {
                const auto at = std::find_if(model.begin(), model.end(),
                                             [&](const Armed& a) { return a.timer == i; });
                ASSERT_EQ(real[static_cast<std::size_t>(i)]->timeMin(),
                          at == model.end() ? infinity : at->time);
            }
            const auto first =
                std::min_element(model.begin(), model.end(), [](const Armed& a, const Armed& b) {
                    return a.time != b.time ? a.time < b.time : a.sequence < b.sequence;
                });
            ASSERT_EQ(clock->nextTime(), first == model.end() ? infinity : first->time);
            if (first == model.end() || number(2) == 0) continue;
            const int expected = first->timer;
            model.erase(first);
            clock->fireNext();
            ASSERT_EQ(fired.back(), expected) << "seed " << seed << " step " << step;
            ++firings;
        }
    }
    EXPECT_GT(firings, 5000u);
}

// The slot of a nested timer.

class Sleeper {
  public:
    class OrvClock final : public Orv::TimerOf<Sleeper> {
        using TimerOf::TimerOf;
        void onTime() override { sm().handleTime(); }
    };

    void handleTime() {
        ++handled;
        if (fails) throw std::runtime_error("tired");
    }

    bool fails = false;
    int handled = 0;
    Orv::TimerSlot<OrvClock> clock{*this};
};

TEST(TimerSlot, IsEmptyAndUnarmedAtFirst) {
    Sleeper sleeper;

    sleeper.clock.timeMinIs(1);

    EXPECT_FALSE(sleeper.clock);
    EXPECT_EQ(sleeper.clock.timeMin(), never);
    EXPECT_EQ(sleeper.handled, 0);
}

TEST(TimerSlot, AClockReportsOnceWhenItIsSet) {
    const auto clock = make<Clock>();
    const auto other = make<Clock>();
    Sleeper sleeper;

    sleeper.clock.is(clock);
    EXPECT_TRUE(sleeper.clock);
    EXPECT_EQ(sleeper.handled, 1);
    sleeper.clock.is(clock);
    EXPECT_EQ(sleeper.handled, 1);
    sleeper.clock.is(other);
    EXPECT_EQ(sleeper.handled, 2);
    EXPECT_EQ(clock->references(), 1u);
    sleeper.clock.is(nullptr);
    EXPECT_EQ(sleeper.handled, 2);
    EXPECT_FALSE(sleeper.clock);
}

TEST(TimerSlot, SettingATimeNeverReports) {
    const auto clock = make<Clock>();
    Sleeper sleeper;
    sleeper.clock.is(clock);
    sleeper.handled = 0;

    sleeper.clock.timeMinIs(-infinity);
    sleeper.clock.timeMinIs(5);

    EXPECT_EQ(sleeper.handled, 0);
    EXPECT_EQ(sleeper.clock.timeMin(), 5);
    clock->fireNext();
    EXPECT_EQ(sleeper.handled, 1);
    EXPECT_EQ(sleeper.clock.timeMin(), never);
}

TEST(TimerSlot, DelDisarms) {
    const auto clock = make<Clock>();
    Sleeper sleeper;
    sleeper.clock.is(clock);
    sleeper.clock.timeMinIs(5);

    sleeper.clock.del();

    EXPECT_FALSE(sleeper.clock);
    EXPECT_EQ(sleeper.clock.timeMin(), never);
    EXPECT_EQ(clock->armedTimers(), 0u);
    EXPECT_EQ(clock->references(), 1u);
}

TEST(TimerSlot, AnotherClockDisarms) {
    const auto clock = make<Clock>();
    Sleeper sleeper;
    sleeper.clock.is(clock);
    sleeper.clock.timeMinIs(5);

    sleeper.clock.is(make<Clock>());

    EXPECT_EQ(sleeper.clock.timeMin(), never);
    EXPECT_EQ(clock->armedTimers(), 0u);
}

TEST(TimerSlot, AnExceptionOfTheFirstReportReachesTheHook) {
    World world;
    const auto clock = make<Clock>();
    Sleeper sleeper;
    sleeper.fails = true;

    EXPECT_NO_THROW(sleeper.clock.is(clock));

    EXPECT_EQ(world.environment.exceptions, (Lines{"tired"}));
    EXPECT_TRUE(sleeper.clock);
}

}  // namespace
