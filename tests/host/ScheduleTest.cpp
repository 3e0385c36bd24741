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

constexpr double forever = std::numeric_limits<double>::infinity();

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
