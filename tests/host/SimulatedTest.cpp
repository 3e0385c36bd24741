#include "host/session/Simulated.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "host/JsonLines.h"
#include "host/session/Random.h"
#include "host/session/Simulation.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

PlanParticipant distributed(const std::string& name, const Takes& takes) {
    PlanParticipant made = Host::takes(name, 0);
    made.takes = takes;
    return made;
}

constexpr auto uniform = Takes::Kind::uniform;
constexpr auto normal = Takes::Kind::normal;
constexpr auto exponential = Takes::Kind::exponential;

Simulation simulated(const Plan& plan) {
    View nobody;
    return simulate(plan, Durations(plan), nobody);
}

TEST(Random, IsSplitMix64) {
    // The first numbers of the sequence from 0, as its authors' program gives them.
    Random random{};

    EXPECT_EQ(random.next(), 0xe220a8397b1dcdafU);
    EXPECT_EQ(random.next(), 0x6e789e6aa1b965f4U);
    EXPECT_EQ(random.next(), 0x06c45d188009454fU);
}

TEST(Random, HasAnotherSequenceForEachSeed) {
    EXPECT_NE(Random({1}).next(), Random({2}).next());
    EXPECT_NE(Random({1, 2}).next(), Random({2, 1}).next());
    EXPECT_EQ(Random({1, 2}).next(), Random({1, 2}).next());
}

struct Sampled {
    double mean;
    double deviation;
    double least;
    double most;
};

Sampled sampled(const Takes& takes) {
    constexpr int count = 20000;
    double sum = 0;
    double squares = 0;
    double least = Session::never;
    double most = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        Random random{7, i};
        const double value = sample(takes, random);
        sum += value;
        squares += value * value;
        least = std::min(least, value);
        most = std::max(most, value);
    }
    const double mean = sum / count;
    return {mean, std::sqrt(squares / count - mean * mean), least, most};
}

TEST(Random, SamplesDistributions) {
    const Sampled even = sampled({uniform, 2, 4});
    EXPECT_NEAR(even.mean, 3, 0.02);
    EXPECT_NEAR(even.deviation, 2 / std::sqrt(12), 0.02);
    EXPECT_GE(even.least, 2);
    EXPECT_LE(even.most, 4);

    const Sampled bell = sampled({normal, 10, 2});
    EXPECT_NEAR(bell.mean, 10, 0.06);
    EXPECT_NEAR(bell.deviation, 2, 0.05);

    const Sampled decay = sampled({exponential, 3});
    EXPECT_NEAR(decay.mean, 3, 0.09);
    EXPECT_NEAR(decay.deviation, 3, 0.12);

    EXPECT_EQ(sampled({normal, 0, 1}).least, 0) << "nothing takes less than no time";
}

TEST(Random, LosesAsOftenAsIsSaid) {
    int lost = 0;
    for (std::uint64_t i = 0; i < 10000; ++i) {
        Random random{7, i};
        if (std::isinf(sample({Takes::Kind::fixed, 1, 0, 0.25}, random))) ++lost;
    }
    EXPECT_NEAR(lost, 2500, 130);
}

// power, then disks beside web.
Plan threeStages() {
    PlanClass boot = stageClass("boot", {stage("power", {}, {takes("psu", 2), takes("fans", 1)}),
                                         stage("disks", {"power"}, {takes("shelf", 3)}),
                                         stage("web", {"power"}, {takes("nginx", 1)})});
    return planOf({boot});
}

TEST(Simulated, EverybodyReportsAtItsTypicalTime) {
    const Simulation run = simulated(threeStages());

    EXPECT_EQ(run.outcome, RunOutcome::complete);
    EXPECT_EQ(run.time, 5.0);
}

TEST(Simulated, WhatTakesItsLimitIsInTimeWhateverSinglePrecisionMakesOfThat) {
    PlanParticipant own = takes("a", 0.7);
    own.limit = 0.7;
    own.critical = true;
    EXPECT_EQ(simulated(planOf({stageClass("boot", {stage("a", {}, {own})})})).outcome,
              RunOutcome::complete);

    PlanParticipant absent = takes("a", -1);
    absent.limit = 10.7;
    absent.autoComplete = 10.7;
    EXPECT_EQ(simulated(planOf({stageClass("boot", {stage("a", {}, {absent})})})).outcome,
              RunOutcome::autoCompleted);
}

TEST(Simulated, WhatEndsWithTheDeadlineIsTooLate) {
    PlanClass boot = stageClass("boot", {stage("a", {}, {takes("a", 10)})});
    boot.deadline = 10;
    EXPECT_EQ(simulated(planOf({boot})).outcome, RunOutcome::rebooting);

    boot.deadline = 10.000001;
    EXPECT_EQ(simulated(planOf({boot})).outcome, RunOutcome::complete);
}

TEST(Simulated, WhoDoesNotSayTakesWhatIsAssumed) {
    Plan plan = threeStages();
    plan.classes[0].stages[1].participants[0].takes.reset();
    Durations durations(plan);

    EXPECT_EQ(durations.assumed(), 1U);
    EXPECT_EQ(simulated(plan).time, 3.0);

    durations.set(plan.classes[0].stages[1].participants[0], {}, 8);
    EXPECT_EQ(durations.assumed(), 0U);
}

TEST(Simulated, ADurationIsSetForAllInstancesOrForOne) {
    Plan plan = threeStages();
    plan.classes[0].instances = {{"left"}, {"right"}};
    const PlanParticipant& shelf = plan.classes[0].stages[1].participants[0];
    Durations durations(plan);
    durations.set(shelf, {}, 10);
    durations.set(shelf, "right", 20);
    View nobody;

    const Simulation run = simulate(plan, durations, nobody);

    ASSERT_EQ(run.instances.size(), 2U);
    EXPECT_EQ(run.instances[0].lastCompletion, 12.0);
    EXPECT_EQ(run.instances[1].lastCompletion, 22.0);
}

TEST(Simulated, LosingAParticipantWinsOverWhatWasSetForIt) {
    const Plan plan = threeStages();
    const PlanParticipant& shelf = plan.classes[0].stages[1].participants[0];
    Durations durations(plan);
    durations.set(shelf, "main", 20);
    durations.lose(shelf);
    View nobody;

    EXPECT_EQ(simulate(plan, durations, nobody).outcome, RunOutcome::continued);
}

TEST(Simulated, LongChainsThatTakeNoTimeDoNotNest) {
    PlanClass boot = stageClass("boot", {});
    for (int i = 0; i < 3000; ++i)
        boot.stages.push_back(stage(
            std::to_string(i),
            i == 0 ? std::vector<std::string>() : std::vector<std::string>{std::to_string(i - 1)},
            {takes("agent", 0)}));

    EXPECT_EQ(simulated(planOf({boot})).outcome, RunOutcome::complete);
}

TEST(Simulation, EndsAtARebootRequest) {
    Plan plan = threeStages();
    PlanParticipant& shelf = plan.classes[0].stages[1].participants[0];
    shelf.limit = 2;
    shelf.critical = true;

    const Simulation run = simulated(plan);

    EXPECT_EQ(run.outcome, RunOutcome::rebooting);
    EXPECT_EQ(run.time, 4.0);
    EXPECT_THAT(run.rebootReason, testing::HasSubstr("disks"));
}

TEST(Simulation, TellsHowARunEnded) {
    Plan plan = threeStages();
    PlanClass& boot = plan.classes[0];
    PlanParticipant& shelf = boot.stages[1].participants[0];
    const auto outcome = [&] { return simulated(plan).outcome; };

    shelf.autoComplete = 1;
    EXPECT_EQ(outcome(), RunOutcome::autoCompleted) << "though it reports all the same, later";
    shelf.takes = Takes{Takes::Kind::never};
    EXPECT_EQ(outcome(), RunOutcome::autoCompleted);
    shelf.autoComplete.reset();
    EXPECT_EQ(outcome(), RunOutcome::continued);
    shelf.limit = Session::never;
    EXPECT_EQ(outcome(), RunOutcome::waiting);

    shelf.limit = 2;
    shelf.critical = true;
    boot.onTimeout = OnTimeout::wait;
    EXPECT_EQ(outcome(), RunOutcome::overdue);
    shelf.takes = Takes{Takes::Kind::fixed, 5};
    EXPECT_EQ(outcome(), RunOutcome::late);
    shelf.critical = false;
    shelf.limit = 90;

    boot.doNotStart = {{"web"}};
    EXPECT_EQ(outcome(), RunOutcome::held);
    boot.doNotStart.clear();
    boot.instances[0].suspended = true;
    EXPECT_EQ(outcome(), RunOutcome::suspended);
    boot.instances[0].suspended = false;
    boot.stages[0].after = {{"nothing"}};
    EXPECT_EQ(outcome(), RunOutcome::neverStartable);
    boot.stages[0].after = {{"web"}};
    EXPECT_EQ(outcome(), RunOutcome::neverStartable);
}

TEST(RunOutcome, NamesTheStagesThatCanNeverStart) {
    InstanceOutcome instance;
    const auto waits = [&](const char* name, std::vector<Orv::String> dependencies) {
        StageOutcome made;
        made.stage = Orv::Name(name);
        made.incompleteDependencies = std::move(dependencies);
        instance.stages.push_back(made);
    };
    waits("after nobody", {});
    waits("after somebody", {"after nobody"});
    EXPECT_THAT(neverStartable(instance), IsEmpty());

    waits("left", {"right"});
    waits("right", {"left", "after nobody"});
    waits("after the cycle", {"right"});
    waits("after a stranger", {"stranger"});
    EXPECT_THAT(neverStartable(instance), ElementsAre(2, 3, 4, 5));
}

TEST(Simulation, FindsWhatEachLossLeadsTo) {
    Plan plan = threeStages();
    PlanParticipant& psu = plan.classes[0].stages[0].participants[0];
    psu.critical = true;
    psu.limit = 10;
    plan.classes[0].stages[0].participants[1].limit = 10;
    plan.classes[0].stages[2].participants[0].limit = 7;

    const std::vector<Missing> all = eachMissing(1, plan, Durations(plan));

    ASSERT_EQ(all.size(), 4U);
    EXPECT_EQ(all[0].participant->name, "psu");
    EXPECT_EQ(all[0].outcome, RunOutcome::rebooting);
    EXPECT_EQ(all[0].time, 10.0);
    EXPECT_EQ(all[1].participant->name, "fans");
    EXPECT_EQ(all[1].outcome, RunOutcome::rebooting) << "the whole stage is critical";
    EXPECT_EQ(all[3].participant->name, "nginx");
    EXPECT_EQ(all[3].outcome, RunOutcome::continued);
    EXPECT_EQ(all[3].time, 9.0);
}

TEST(Simulation, LosesNobodyAtAMilestone) {
    const Plan plan = planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2)}),
                                                  stage("up", {"power"}, {takes("up", 0)})})});

    const std::vector<Missing> all = eachMissing(1, plan, Durations(plan));

    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].participant->name, "psu");
}

TEST(Simulation, LossesSpreadOverProcessesAreTheSame) {
    const Plan plan = threeStages();
    const std::vector<Missing> alone = eachMissing(1, plan, Durations(plan));
    for (const unsigned processes : {2U, 3U, 64U}) {
        const std::vector<Missing> all = eachMissing(processes, plan, Durations(plan));

        ASSERT_EQ(all.size(), alone.size());
        for (std::size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(all[i].participant, alone[i].participant);
            EXPECT_EQ(all[i].outcome, alone[i].outcome);
            EXPECT_EQ(all[i].time, alone[i].time);
        }
    }
}

Plan distributedPlan() {
    PlanClass boot =
        stageClass("boot", {stage("power", {}, {distributed("psu", {normal, 2, 0.5})}),
                            stage("disks", {"power"}, {distributed("shelf", {uniform, 1, 5, 0.2})}),
                            stage("web", {"power"}, {distributed("nginx", {exponential, 2})})});
    boot.stages[1].participants[0].limit = 6;
    return planOf({boot});
}

TEST(Simulation, ManyRunsAreCountedByTheirOutcomes) {
    const Plan plan = distributedPlan();

    const Runs runs = simulateRuns(plan, Durations(plan), 1, 0, 500, {});

    const std::uint64_t continued = runs.outcomes[static_cast<int>(RunOutcome::continued)];
    EXPECT_EQ(runs.outcomes[static_cast<int>(RunOutcome::complete)] + continued, 500U);
    EXPECT_NEAR(static_cast<double>(continued), 100, 30);
    EXPECT_EQ(runs.completions.size(), 500U);
    EXPECT_THAT(runs.timeouts, ElementsAre(0, continued, 0));
    EXPECT_EQ(runs.met, 500U);
}

TEST(Simulation, ARunDependsOnItsSeedAndNumberAlone) {
    const Plan plan = distributedPlan();
    const Durations durations(plan);

    const Runs all = simulateRuns(plan, durations, 3, 0, 20, {});
    const Runs some = simulateRuns(plan, durations, 3, 7, 12, {});

    const auto begin = all.completions.begin();
    EXPECT_EQ(some.completions, std::vector<double>(begin + 7, begin + 12));
    EXPECT_NE(simulateRuns(plan, durations, 4, 0, 20, {}).completions, all.completions);
}

TEST(Simulation, WhatIsSetOfOneLeavesTheOthersTheirDraws) {
    const Plan plan = distributedPlan();
    Durations durations(plan);
    durations.draw(5, 1);
    const Part web{plan.classes.data(), &plan.classes[0].stages[2],
                   plan.classes[0].stages[2].participants.data(), "main"};
    const double before = durations.of(web);

    durations.set(plan.classes[0].stages[0].participants[0], {}, 100);

    EXPECT_EQ(durations.of(web), before);
}

TEST(Simulation, SpreadOverProcessesItIsTheSame) {
    const Plan plan = distributedPlan();
    const Durations durations(plan);
    const Expectation expected{{RunOutcome::complete}, 6.0};
    const Runs alone = simulateRuns(plan, durations, 9, 0, 23, expected);
    EXPECT_GT(alone.met, 0U);
    EXPECT_LT(alone.met, 23U);

    for (const unsigned processes : {1U, 2U, 5U, 40U}) {
        const Runs spread = simulateRunsIn(processes, plan, durations, 9, 23, expected);

        EXPECT_EQ(spread.outcomes, alone.outcomes);
        EXPECT_EQ(spread.completions, alone.completions);
        EXPECT_EQ(spread.timeouts, alone.timeouts);
        EXPECT_EQ(spread.met, alone.met);
    }
}

TEST(Simulation, ItsRecordReplaysToTheSameObservations) {
    Plan plan = distributedPlan();
    plan.classes[0].instances = {{"left"}, {"right", {}, 1.25}};
    Durations durations(plan);
    durations.draw(2, 0);
    std::ostringstream recorded;
    std::ostringstream observed;
    JsonLines view(observed);
    simulate(plan, durations, view, &recorded);

    std::istringstream journal(recorded.str());
    std::ostringstream again;
    replay(journal, again);

    EXPECT_EQ(again.str(), observed.str());
}

TEST(Simulation, PercentilesAreValuesThatWereThere) {
    EXPECT_EQ(percentile({1, 2, 3, 4}, 50), 2);
    EXPECT_EQ(percentile({1, 2, 3, 4}, 51), 3);
    EXPECT_EQ(percentile({1, 2, 3, 4}, 100), 4);
    EXPECT_EQ(percentile({7}, 1), 7);
}

}  // namespace
}  // namespace Host
