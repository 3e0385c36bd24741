#include "host/session/Simulation.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "host/Tree.h"
#include "host/plan/PlanInputs.h"

namespace Host {

namespace {

bool timedOut(const StageOutcome& stage) {
    using State = StageOutcome::State;
    return stage.state == State::late || stage.state == State::passedOver ||
           stage.state == State::overdue;
}

Simulation simulated(Session& session) {
    advanceUnlessReboot(session, Session::never);

    Simulation made;
    made.instances = outcomes(session.tree());
    made.outcome = runOutcome(made.instances);
    made.time = session.time();
    if (rebootRequested(session.tree()))
        made.rebootReason = session.tree().fatalError()->rebootReason().str();
    if (isCompletion(made.outcome)) {
        made.time = 0.0;
        for (const InstanceOutcome& instance : made.instances)
            made.time = std::max(made.time, instance.lastCompletion);
    }
    session.finish();
    return made;
}

// Nobody watches, and the plan's inputs were made before.
Simulation simulatedAgain(const Plan& plan, const std::vector<Input>& inputs,
                          const Durations& durations) {
    View nobody;
    Simulated participants(durations);
    Session session(plan, inputs, participants, nobody);
    return simulated(session);
}

}  // namespace

void advanceUnlessReboot(Session& session, double until) {
    for (;;) {
        const double next = session.next();
        if (next == Session::never || next > until) break;
        if (rebootRequested(session.tree())) return;
        session.advance(next);
    }
    if (until != Session::never && !rebootRequested(session.tree())) session.advance(until);
}

Simulation simulate(const Plan& plan, const Durations& durations, View& view,
                    std::ostream* record) {
    Simulated participants(durations);
    Session session(plan, participants, view, record);
    return simulated(session);
}

void simulateMissing(const Plan& plan, const Durations& durations, std::span<Missing> some) {
    const std::vector<Input> inputs = planInputs(plan);
    for (Missing& missing : some) {
        Durations without = durations;
        without.lose(*missing.participant);
        const Simulation run = simulatedAgain(plan, inputs, without);
        missing.outcome = run.outcome;
        missing.time = run.time;
    }
}

bool Expectation::met(RunOutcome outcome, double time) const {
    return time <= within && std::find(outcomes.begin(), outcomes.end(), outcome) != outcomes.end();
}

Runs simulateRuns(const Plan& plan, Durations durations, std::uint64_t seed, std::uint64_t first,
                  std::uint64_t last, const std::optional<Expectation>& expected) {
    using StageName = std::pair<std::string_view, std::string_view>;
    std::map<StageName, std::size_t> places;
    for (const PlanClass& stageClass : plan.classes)
        for (const PlanStage& stage : stageClass.stages)
            places.emplace(StageName(stageClass.name, stage.name), places.size());

    const std::vector<Input> inputs = planInputs(plan);
    Runs made;
    made.outcomes.resize(allRunOutcomes().size());
    made.timeouts.resize(places.size());
    for (std::uint64_t run = first; run < last; ++run) {
        durations.draw(seed, run);
        const Simulation one = simulatedAgain(plan, inputs, durations);
        ++made.outcomes[static_cast<std::size_t>(one.outcome)];
        if (isCompletion(one.outcome)) made.completions.push_back(one.time);
        if (!expected || expected->met(one.outcome, one.time)) ++made.met;
        std::set<std::size_t> late;  // in several instances, and counted once
        for (const InstanceOutcome& instance : one.instances)
            for (const StageOutcome& stage : instance.stages)
                if (timedOut(stage))
                    late.insert(places.at({instance.stageClass.view(), stage.stage.view()}));
        for (const std::size_t place : late) ++made.timeouts[place];
    }
    return made;
}

double percentile(const std::vector<double>& ascending, unsigned percent) {
    const std::size_t place = (ascending.size() * percent + 99) / 100;
    return ascending[std::max<std::size_t>(place, 1) - 1];
}

}  // namespace Host
