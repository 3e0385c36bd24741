#include "runtime/ActivityManager.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"

namespace {

using Orv::ActivityManager;
using Orv::ActivityScope;
using Orv::never;
using Orv::RealTime;
using Orv::System;
using Orv::VirtualTime;
using RuntimeTest::Callback;
using RuntimeTest::Lines;
using RuntimeTest::Recorder;
using RuntimeTest::World;

constexpr double infinity = std::numeric_limits<double>::infinity();

class Timer final : public Orv::Clock::NotifieeConst {
  public:
    explicit Timer(ActivityManager& manager, double time, Callback<> onTime)
        : then(std::move(onTime)) {
        notifierIs(manager.clock());
        timeMinIs(time);
    }
    Callback<> then;
    void onTime() override { then(); }
};

class ActivityManagerTest : public ::testing::Test {
  protected:
    World world;
    ActivityManager& manager = world.manager;
    Lines log;

    // A timer that writes its name and the time.
    std::unique_ptr<Timer> timer(std::string name, double time, Callback<> then = {}) {
        return std::make_unique<Timer>(manager, time, [this, name = std::move(name), then] {
            char text[32];
            std::snprintf(text, sizeof text, " at %g", System::currentTime());
            log.push_back(name + text);
            then();
        });
    }
};

TEST_F(ActivityManagerTest, VirtualTimeStartsAtZero) {
    EXPECT_EQ(manager.currentTime(), 0);
    EXPECT_EQ(System::currentTime(), 0);
}

TEST_F(ActivityManagerTest, SettleFiresWhatIsDueNowAndWhatFallsDueMeanwhile) {
    const auto due = timer("due", 0);
    const auto past = timer("past", -5);
    std::unique_ptr<Timer> chained;
    const auto first = timer("first", -infinity, [&] { chained->timeMinIs(0); });
    chained = timer("chained", never);
    const auto later = timer("later", 0.001);

    EXPECT_EQ(manager.settle(), 4u);

    EXPECT_EQ(log, (Lines{"first at 0", "past at 0", "due at 0", "chained at 0"}));
    EXPECT_EQ(manager.settle(), 0u);
    EXPECT_EQ(later->timeMin(), 0.001);
}

TEST_F(ActivityManagerTest, RunUntilFiresEachAtItsOwnTimeAndStopsBeforeWhatIsDueThen) {
    const auto b = timer("b", 2);
    const auto a = timer("a", 1.5);
    const auto c = timer("c", 5);

    EXPECT_TRUE(manager.runUntil(5));

    EXPECT_EQ(log, (Lines{"a at 1.5", "b at 2"}));
    EXPECT_EQ(manager.currentTime(), 5);
    manager.settle();
    EXPECT_EQ(log.back(), "c at 5");
}

TEST_F(ActivityManagerTest, RunUntilFiresWhatItsTimersArm) {
    int ticks = 0;
    std::unique_ptr<Timer> tick;
    tick = timer("tick", 1, [&] {
        if (++ticks < 10) tick->timeMinIs(System::currentTime() + 1);
    });

    manager.runUntil(4);

    EXPECT_EQ(log, (Lines{"tick at 1", "tick at 2", "tick at 3"}));
    EXPECT_EQ(tick->timeMin(), 4);
}

TEST_F(ActivityManagerTest, ATimerForAPastTimeFiresAtThePresentAndTimeNeverGoesBack) {
    manager.runUntil(10);
    const auto past = timer("past", 3);

    EXPECT_TRUE(manager.runUntil(5));

    EXPECT_EQ(log, (Lines{"past at 10"}));
    EXPECT_EQ(manager.currentTime(), 10);
}

TEST_F(ActivityManagerTest, TimeStandsStillWhileHandlersRun) {
    // A source that moves on each time it is asked.
    class Running final : public Orv::TimeSource {
      public:
        double now() override { return now_ += 1; }
        bool waitUntil(double) override { return true; }

      private:
        double now_ = 0;
    };
    Running time;
    Recorder environment;
    ActivityManager running(time, environment);
    const ActivityScope scope(running);
    double first = 0;
    double second = 0;
    const Timer t(running, 0, [&] {
        first = System::currentTime();
        second = System::currentTime();
    });

    running.settle();

    EXPECT_EQ(first, second);
    EXPECT_EQ(first, running.currentTime());
    running.timeUpdate();
    EXPECT_GT(running.currentTime(), first);
}

TEST_F(ActivityManagerTest, TimeDoesNotGoBackWithItsSource) {
    class Backward final : public Orv::TimeSource {
      public:
        double at = 10;
        double now() override { return at; }
        bool waitUntil(double) override { return true; }
    };
    Backward time;
    Recorder environment;
    ActivityManager backward(time, environment);
    time.at = 5;

    backward.timeUpdate();

    EXPECT_EQ(backward.currentTime(), 10);
}

TEST_F(ActivityManagerTest, RunUntilIdleGoesOnUntilNothingIsArmed) {
    const auto far = timer("far", 1e9);
    std::unique_ptr<Timer> a;
    a = timer("a", 1, [&] {
        if (log.size() < 3) a->timeMinIs(System::currentTime() + 100);
    });

    manager.runUntilIdle();

    EXPECT_EQ(log, (Lines{"a at 1", "a at 101", "a at 201", "far at 1e+09"}));
    EXPECT_EQ(manager.currentTime(), 1e9);
}

TEST_F(ActivityManagerTest, RunUntilNeverEndsAfterTheLastTimerOfVirtualTime) {
    const auto a = timer("a", 7);

    EXPECT_FALSE(manager.runUntil(never));

    EXPECT_EQ(log, (Lines{"a at 7"}));
    EXPECT_EQ(manager.currentTime(), 7);
}

TEST_F(ActivityManagerTest, AReactorOfATimerMayDestroyItself) {
    std::unique_ptr<Timer> a;
    a = timer("a", 1, [&] { a.reset(); });

    manager.runUntilIdle();

    EXPECT_EQ(log, (Lines{"a at 1"}));
}

TEST(ActivityScope, PutsAManagerInPlaceOfTheThreadsAndScopesNest) {
    ActivityManager* const standard = &Orv::activityManager();
    ActivityManager outer;
    ActivityManager inner;
    {
        const ActivityScope a(outer);
        EXPECT_EQ(&Orv::activityManager(), &outer);
        {
            const ActivityScope b(inner);
            EXPECT_EQ(&Orv::activityManager(), &inner);
        }
        EXPECT_EQ(&Orv::activityManager(), &outer);
    }
    EXPECT_EQ(&Orv::activityManager(), standard);
}

TEST(ActivityManager, ByDefaultRunsInVirtualTime) {
    ActivityManager manager;
    const ActivityScope scope(manager);
    int fired = 0;
    const Timer t(manager, 1e6, [&] { ++fired; });

    manager.runUntilIdle();

    EXPECT_EQ(fired, 1);
    EXPECT_EQ(System::currentTime(), 1e6);
}

TEST(ActivityManager, TimersMayOutliveIt) {
    auto manager = std::make_unique<ActivityManager>();
    Timer t(*manager, 5, {});

    manager.reset();

    EXPECT_EQ(t.timeMin(), 5);
    t.timeMinIs(6);
    EXPECT_EQ(t.notifier()->nextTime(), 6);
}

TEST(VirtualTime, JumpsForwardOnly) {
    VirtualTime time;

    EXPECT_TRUE(time.waitUntil(5));
    EXPECT_EQ(time.now(), 5);
    EXPECT_TRUE(time.waitUntil(3));
    EXPECT_TRUE(time.waitUntil(-infinity));
    EXPECT_EQ(time.now(), 5);
    EXPECT_FALSE(time.waitUntil(never));
    EXPECT_EQ(time.now(), 5);
}

// Real time.

double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// A generous limit: what must end soon, ends within it on the busiest machine.
constexpr double soon = 20;

TEST(RealTime, CountsSecondsSinceTheEpoch) {
    RealTime time;

    EXPECT_NEAR(time.now(), wallSeconds(), soon);
}

TEST(RealTime, NeverStepsBack) {
    RealTime time;
    double last = time.now();
    for (int i = 0; i < 10000; ++i) {
        const double now = time.now();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(RealTime, WaitsUntilTheTime) {
    RealTime time;
    const double start = time.now();

    EXPECT_TRUE(time.waitUntil(start + 0.02));

    EXPECT_GE(time.now(), start + 0.02);
}

TEST(RealTime, DoesNotWaitForAPastTime) {
    RealTime time;
    const double start = time.now();

    EXPECT_TRUE(time.waitUntil(start - 1));
    EXPECT_TRUE(time.waitUntil(-infinity));
}

TEST(RealTime, ATimeThatIsNoneIsNeitherWaitedForNorReached) {
    RealTime time;

    EXPECT_FALSE(time.waitUntil(std::numeric_limits<double>::quiet_NaN()));
}

TEST(RealTime, AnInterruptionEndsAWaitForever) {
    RealTime time;
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        time.interrupt();
    });

    EXPECT_FALSE(time.waitUntil(never));

    other.join();
}

TEST(RealTime, AnInterruptionThatComesFirstEndsTheNextWaitAndOnlyThat) {
    RealTime time;
    time.interrupt();
    time.interrupt();

    EXPECT_FALSE(time.waitUntil(time.now() + 1000));
    EXPECT_TRUE(time.waitUntil(time.now() + 0.001));
}

TEST(RealTime, RunUntilFiresTimersAtTheirTimes) {
    RealTime time;
    Recorder environment;
    ActivityManager manager(time, environment);
    ASSERT_EQ(&manager.timeSource(), &time);
    const ActivityScope scope(manager);
    const double start = manager.currentTime();
    double first = 0;
    double second = 0;
    const Timer a(manager, start + 0.02, [&] { second = System::currentTime(); });
    const Timer b(manager, start + 0.01, [&] { first = System::currentTime(); });

    EXPECT_TRUE(manager.runUntil(start + 0.03));

    EXPECT_GE(first, start + 0.01);
    EXPECT_GE(second, start + 0.02);
    EXPECT_GE(second, first);
    EXPECT_GE(manager.currentTime(), start + 0.03);
}

TEST(RealTime, AnInterruptionEndsRunUntilAndRunUntilIdle) {
    RealTime time;
    Recorder environment;
    ActivityManager manager(time, environment);
    const ActivityScope scope(manager);
    int fired = 0;
    const double start = manager.currentTime();
    const Timer far(manager, start + 1000, [&] { ++fired; });

    time.interrupt();
    EXPECT_FALSE(manager.runUntil(start + 2000));
    time.interrupt();
    manager.runUntilIdle();

    EXPECT_EQ(fired, 0);
    EXPECT_EQ(far.timeMin(), start + 1000);
}

TEST(RealTime, ATimerMayInterruptItsOwnRun) {
    RealTime time;
    Recorder environment;
    ActivityManager manager(time, environment);
    const ActivityScope scope(manager);
    const double start = manager.currentTime();
    const Timer a(manager, start, [&] { time.interrupt(); });

    EXPECT_FALSE(manager.runUntil(start + 1000));

    EXPECT_EQ(a.timeMin(), never);
}

}  // namespace
