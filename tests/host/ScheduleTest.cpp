#include "host/plan/Schedule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>

#include "host/session/Session.h"
#include "tests/host/Steps.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> names(const PlanClass& stageClass,
                               const std::vector<std::size_t>& stages) {
    std::vector<std::string> named;
    for (const std::size_t s : stages) named.push_back(stageClass.stages[s].name);
    return named;
}

Schedule typical(const PlanClass& stageClass) {
    const StageGraph graph(stageClass);
    return schedule(graph, typicalDurations(graph));
}

TEST(Schedule, AStageStartsWhenTheLastOfWhatItComesAfterIsDone) {
    const PlanClass boot =
        steps({step("a", 3), step("b", 5), step("c", 2, {"a", "b"}), step("d", 1, {"a"})});

    const Schedule made = typical(boot);

    EXPECT_EQ(made.stages[2].start, 5);
    EXPECT_EQ(made.stages[3].start, 3);
    EXPECT_EQ(made.end, 7);
    EXPECT_TRUE(made.whole);
    EXPECT_THAT(names(boot, made.chain(made.last)), ElementsAre("b", "c"));
}

TEST(Schedule, SlackIsHowMuchLaterAStageCouldStart) {
    const PlanClass boot =
        steps({step("a", 3), step("b", 5), step("c", 2, {"a", "b"}), step("d", 1, {"a"})});

    const Schedule made = typical(boot);

    EXPECT_EQ(made.stages[0].slack, 2);
    EXPECT_EQ(made.stages[1].slack, 0);
    EXPECT_EQ(made.stages[2].slack, 0);
    EXPECT_EQ(made.stages[3].slack, 3);
}

TEST(Schedule, StagesThatAreNotCriticalWaitForACompletionAfterTheLastCriticalStart) {
    const PlanClass boot =
        steps({critical(step("a", 3)), critical(step("b", 5, {"a"})), step("free", 1)});

    const Schedule made = typical(boot);

    EXPECT_EQ(made.stages[1].start, 3);
    EXPECT_EQ(made.stages[2].start, 8);
    EXPECT_TRUE(made.stages[2].gated);
    EXPECT_THAT(names(boot, made.chain(2)), ElementsAre("a", "b", "free"));
    EXPECT_THAT(made.stages[1].slack, 0);
}

TEST(Schedule, WithTheOtherGateTheyStartWithTheLastCriticalStage) {
    const PlanClass boot =
        steps({critical(step("a", 3)), critical(step("b", 5, {"a"})), step("free", 1)});
    const StageGraph graph(boot);

    const Schedule made = schedule(graph, typicalDurations(graph), Schedule::Gate::samePass);

    EXPECT_EQ(made.stages[2].start, 3);
}

Schedule latest(const PlanClass& stageClass) {
    const StageGraph graph(stageClass);
    return schedule(graph, typicalDurations(graph), Schedule::Gate::latest);
}

TEST(Schedule, BeingDoneSoonerMayOpenTheGateLater) {
    PlanClass boot = steps({critical(step("fast", 5)), critical(step("first", 2)),
                            critical(step("second", 6, {"first"})), step("other", 5)});
    EXPECT_EQ(typical(boot).end, 10);

    const Schedule made = latest(boot);
    EXPECT_EQ(made.end, 13);
    EXPECT_THAT(names(boot, made.chain(made.last)), ElementsAre("first", "second", "other"));

    boot.stages[0] = critical(step("fast", 1));
    EXPECT_EQ(typical(boot).end, 13);
}

TEST(Schedule, TheLatestGateIsThatOfStagesThatMayBeLastToStart) {
    const PlanClass roots =
        steps({critical(step("long", 100)), critical(step("short", 3)), step("other", 1)});
    EXPECT_EQ(latest(roots).stages[2].start, 3);

    const PlanClass after = steps({critical(step("long", 100)), critical(step("p", 10)),
                                   critical(step("c", 1, {"p"})), step("other", 1)});
    EXPECT_EQ(latest(after).stages[3].start, 11) << "c starts after long whatever p takes";

    const PlanClass deep =
        steps({critical(step("a", 10)), critical(step("c", 100, {"a"})),
               critical(step("x", 1, {"a"})), critical(step("y", 2, {"x"})), step("other", 1)});
    EXPECT_EQ(latest(deep).stages[4].start, 13) << "y starts after c";
}

TEST(Schedule, WhatIsEndlessMayBeLeftOutOfAccount) {
    PlanClass boot = steps({critical(step("service", forever)), critical(step("short", 3)),
                            step("other", 2), step("last", 1, {"service"})});
    const StageGraph graph(boot);
    const auto end = [&](Schedule::Endless endless) {
        return schedule(graph, typicalDurations(graph), Schedule::Gate::latest, endless);
    };

    EXPECT_EQ(end(Schedule::Endless::never).end, 5);
    EXPECT_FALSE(end(Schedule::Endless::never).whole);
    EXPECT_EQ(end(Schedule::Endless::nothing).stages[2].start, 3) << "it opens no gate either";
    EXPECT_EQ(end(Schedule::Endless::nothing).stages[3].start, 3);
    EXPECT_TRUE(end(Schedule::Endless::nothing).whole);

    boot.stages[1] = critical(step("short", forever));
    const StageGraph endless(boot);
    EXPECT_EQ(schedule(endless, typicalDurations(endless), Schedule::Gate::latest,
                       Schedule::Endless::nothing)
                  .stages[2]
                  .start,
              0);
}

TEST(Schedule, WhatWaitsInVainDoesNotStart) {
    PlanClass boot = steps({step("a", 1, {"gone"}), step("b", 1, {"a"}), step("held", 1),
                            step("after", 1, {"held"}), step("x", 1, {"y"}), step("y", 1, {"x"}),
                            step("free", 4)});
    boot.doNotStart.push_back({"held", {}});

    const Schedule made = typical(boot);

    for (std::size_t s = 0; s < 6; ++s) EXPECT_EQ(made.stages[s].start, forever) << s;
    EXPECT_EQ(made.stages[6].start, 0);
    EXPECT_FALSE(made.whole);
    EXPECT_EQ(made.end, 4);
}

TEST(Schedule, WhatNeverEndsLetsNothingStart) {
    PlanClass boot = steps({critical(step("a", forever)), step("b", 1, {"a"})});

    const Schedule made = typical(boot);

    EXPECT_EQ(made.stages[0].start, 0);
    EXPECT_EQ(made.stages[1].start, forever);
    EXPECT_FALSE(made.whole);
    EXPECT_THAT(made.chain(made.last), IsEmpty());
}

TEST(Schedule, AStageThatIsPassedOverTakesItsLimit) {
    PlanClass boot = steps({limited(step("a", 50), 20), step("b", 1, {"a"})});

    EXPECT_EQ(typical(boot).stages[1].start, 20);
}

TEST(Schedule, ACriticalStageIsWaitedForBeyondItsLimitUnlessThePlanSaysProceed) {
    PlanClass boot = steps({critical(limited(step("a", 50), 20)), step("b", 1, {"a"})});

    boot.onTimeout = OnTimeout::wait;
    EXPECT_EQ(typical(boot).stages[1].start, 50);

    boot.onTimeout = OnTimeout::proceed;
    EXPECT_EQ(typical(boot).stages[1].start, 20);
}

TEST(Schedule, AutoCompletionBoundsAParticipant) {
    PlanClass boot = steps({step("a", forever), step("b", 1, {"a"})});
    boot.stages[0].participants[0].autoComplete = 7;

    EXPECT_EQ(typical(boot).stages[1].start, 7);
}

TEST(Schedule, TheLargestLimitIsTheStages) {
    PlanStage both = limited(step("a", 1), 0.1);
    both.participants.push_back(both.participants[0]);
    both.participants[1].limit = 0.25;

    EXPECT_EQ(stageLimit(both), 0.25);
    both.participants.pop_back();
    EXPECT_EQ(stageLimit(both), static_cast<double>(0.1F)) << "in single precision, on purpose";
    both.participants[0].limit = 0.7;
    EXPECT_EQ(stageLimit(both), static_cast<double>(std::nextafter(0.7F, 1.0F)))
        << "the nearest would be less than the plan's";
    both.participants[0].limit = 1e300;
    EXPECT_EQ(stageLimit(both), forever);
}

TEST(Schedule, LongestDurationsPassOverWhoTakesNoTime) {
    PlanClass boot = steps(
        {limited(step("a", 1), 30), limited(step("milestone", 0), 30), limited(step("c", 1), 30)});
    boot.stages[2].participants[0].autoComplete = 12;
    const StageGraph graph(boot);

    EXPECT_THAT(longestDurations(graph), ElementsAre(30, 0, 12));
}

TEST(Schedule, LeastDurationsAreWhatIsCertain) {
    PlanClass boot =
        steps({step("fixed", 4), step("uniform", 1), step("normal", 1), step("silent", 1)});
    boot.stages[1].participants[0].takes = Takes{Takes::Kind::uniform, 2, 6};
    boot.stages[2].participants[0].takes = Takes{Takes::Kind::normal, 5, 1};
    boot.stages[3].participants[0].takes.reset();
    const StageGraph graph(boot);

    EXPECT_THAT(leastDurations(graph), ElementsAre(4, 2, 0, 0));
    EXPECT_THAT(typicalDurations(graph), ElementsAre(4, 4, 5, 1));
}

// Reports after what everybody takes, and notes when stages start.
class Diary final : public Performer {
  public:
    void start(Session& session, const Part& part) override {
        starts[part.stage->name] = session.time();
        session.scheduleReport(session.time() + part.participant->takes->a, part);
    }

    std::map<std::string, double> starts;
};

class RandomPlans {
  public:
    explicit RandomPlans(unsigned seed) : random_(seed) {}

    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

    // With durations of 0 up to `longest`: small whole numbers, so that many stages end at once.
    PlanClass next(unsigned longest) {
        const unsigned size = 1 + below(8);
        std::vector<PlanStage> stages;
        for (unsigned s = 0; s < size; ++s) {
            std::vector<std::string> after;
            for (unsigned d = 0; d < s; ++d)
                if (below(3) == 0) after.push_back("s" + std::to_string(d));
            stages.push_back(step("s" + std::to_string(s), below(longest + 1), after));
            if (below(3) == 0) stages.back() = critical(stages.back());
        }
        return steps(stages);
    }

  private:
    std::mt19937 random_;
};

TEST(Schedule, NothingIsLaterThanByTheLatestGate) {
    RandomPlans plans(7);
    bool reached = false;
    for (int round = 0; round < 1000; ++round) {
        const PlanClass boot = plans.next(9);
        const StageGraph graph(boot);
        const std::vector<double> longest = typicalDurations(graph);
        const Schedule made = schedule(graph, longest, Schedule::Gate::latest);
        ASSERT_TRUE(made.whole);
        for (int run = 0; run < 20; ++run) {
            std::vector<double> taken = longest;
            for (double& seconds : taken)
                if (plans.below(2) == 0) seconds *= plans.below(4) / 4.0;
            const Schedule got = schedule(graph, taken);
            for (std::size_t s = 0; s < graph.size(); ++s)
                ASSERT_LE(got.stages[s].start, made.stages[s].start)
                    << "round " << round << ", run " << run << ", stage " << s;
            reached = reached || got.end == made.end;
        }
    }
    EXPECT_TRUE(reached);
}

// When everything is done if that stage starts so much later than it could: an account of its own.
double endIfLate(const StageGraph& graph, const std::vector<double>& takes, std::size_t late,
                 double by) {
    std::vector<double> ends(graph.size(), forever);
    std::vector<double> starts(graph.size(), forever);  // later than now: it will
    std::vector<bool> done(graph.size());
    double now = 0.0;
    for (;;) {
        bool open = true;
        for (std::size_t s = 0; s < graph.size(); ++s)
            open = open && (!graph.critical(s) || starts[s] <= now);
        for (std::size_t s = 0; s < graph.size(); ++s) {
            bool ready = starts[s] == forever && (open || graph.critical(s));
            for (const StageGraph::Wait& wait : graph.after(s)) ready = ready && done[wait.stage];
            if (!ready) continue;
            starts[s] = s == late ? now + by : now;
            ends[s] = starts[s] + takes[s];
        }
        double next = forever;
        for (std::size_t s = 0; s < graph.size(); ++s)
            if (!done[s]) next = std::min(next, ends[s]);
        if (next == forever) return now;
        now = next;
        std::vector<bool> completed = done;
        for (std::size_t s = 0; s < graph.size(); ++s) completed[s] = done[s] || ends[s] == now;
        done = completed;
    }
}

TEST(Schedule, SlackIsWhatItSays) {
    RandomPlans plans(11);
    unsigned gated = 0;
    for (int round = 0; round < 1500; ++round) {
        const PlanClass boot = plans.next(12);
        const StageGraph graph(boot);
        const std::vector<double> takes = typicalDurations(graph);
        const Schedule made = schedule(graph, takes);
        for (std::size_t s = 0; s < graph.size(); ++s) {
            if (made.stages[s].gated) ++gated;
            const double slack = made.stages[s].slack;
            ASSERT_LE(endIfLate(graph, takes, s, std::max(0.0, slack - 0.01)), made.end)
                << "round " << round << ", stage " << s << ", slack " << slack;
            ASSERT_GT(endIfLate(graph, takes, s, slack + 0.01), made.end)
                << "round " << round << ", stage " << s << ", slack " << slack;
        }
    }
    EXPECT_GT(gated, 200u);
}

TEST(Schedule, ByTheLatestGateSlackDelaysNothing) {
    RandomPlans plans(13);
    for (int round = 0; round < 400; ++round) {
        const PlanClass boot = plans.next(9);
        const StageGraph graph(boot);
        std::vector<double> longest = typicalDurations(graph);
        for (double& seconds : longest) seconds += 1.0;
        const Schedule made = schedule(graph, longest, Schedule::Gate::latest);
        for (std::size_t s = 0; s < graph.size(); ++s) {
            for (int run = 0; run < 8; ++run) {
                std::vector<double> taken = longest;
                for (double& seconds : taken)
                    if (plans.below(2) == 0) seconds *= (1 + plans.below(4)) / 4.0;
                const double slack = made.stages[s].slack;
                // Whoever is late may start anywhere up to that.
                const double start = schedule(graph, taken).stages[s].start;
                const double by = made.stages[s].start + slack - start - 0.01;
                if (slack == 0.0) continue;
                ASSERT_LE(endIfLate(graph, taken, s, by * plans.below(5) / 4.0), made.end)
                    << "round " << round << ", stage " << s << ", slack " << slack;
            }
        }
    }
}

// The gate needs a completion after the last critical start, and not a certain one.
TEST(Schedule, WhatOpensTheGateHasSlackWhereAnotherWouldDoSoInTime) {
    PlanClass boot =
        steps({critical(step("s0", 12)), critical(step("s1", 6)), step("s2", 6, {"s0"})});
    EXPECT_EQ(typical(boot).stages[1].slack, 12);

    boot.stages.push_back(step("s3", 11));
    EXPECT_EQ(typical(boot).end, 18);
    EXPECT_EQ(typical(boot).stages[1].slack, 1) << "s3 can start with 7, before s0 is done";
    EXPECT_EQ(typical(boot).stages[0].slack, 0) << "s2 comes after it";
}

TEST(Schedule, IsWhatTheManagerDoes) {
    std::mt19937 random(20);
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    for (int round = 0; round < 300; ++round) {
        const unsigned size = 1 + below(12);
        std::vector<PlanStage> stages;
        for (unsigned s = 0; s < size; ++s) {
            std::vector<std::string> after;
            for (unsigned d = 0; d < s; ++d)
                if (below(4) == 0) after.push_back("s" + std::to_string(d));
            if (below(20) == 0) after.push_back(below(2) == 0 ? "gone" : "s" + std::to_string(s));
            // Small whole numbers, so that many stages end at once.
            stages.push_back(step("s" + std::to_string(s), below(5), after));
            if (below(4) == 0) stages.back() = critical(stages.back());
        }
        std::shuffle(stages.begin(), stages.end(), random);
        PlanClass boot = steps(stages);
        if (below(4) == 0) boot.doNotStart.push_back({boot.stages.front().name, {}});
        const Plan run = planOf({boot});

        View view;
        Diary diary;
        Session session(run, diary, view);
        session.advance(Session::never);

        const Schedule made = typical(boot);
        std::map<std::string, double> expected;
        for (std::size_t s = 0; s < boot.stages.size(); ++s)
            if (made.stages[s].start != forever)
                expected[boot.stages[s].name] = made.stages[s].start;
        ASSERT_EQ(diary.starts, expected) << "round " << round;
    }
}

}  // namespace
}  // namespace Host
