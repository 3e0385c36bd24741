#include "host/session/RunOutcome.h"

#include <algorithm>
#include <unordered_map>

namespace Host {

namespace {

struct Words {
    RunOutcome outcome;
    std::string_view word;
    std::string_view text;
};

constexpr Words outcomeWords[] = {
    {RunOutcome::complete, "complete", "is complete"},
    {RunOutcome::late, "late", "is complete, but a critical stage timed out and was waited for"},
    {RunOutcome::autoCompleted, "auto-completed",
     "is complete, but some participants did not report and were assumed to be done"},
    {RunOutcome::continued, "continued",
     "is complete, but some stages timed out and were passed over"},
    {RunOutcome::waiting, "waiting", "waits for reports, and no limit ends that"},
    {RunOutcome::held, "held", "is held by the do-not-start list"},
    {RunOutcome::neverStartable, "never-startable",
     "cannot go on: some stages can never start, since what they depend on does not exist or "
     "depends on them"},
    {RunOutcome::suspended, "suspended", "is suspended by the operator"},
    {RunOutcome::overdue, "overdue",
     "is suspended for debugging: a critical stage timed out and is waited for"},
    {RunOutcome::rebooting, "rebooting", "ended in a reboot request"},
    {RunOutcome::unmanaged, "unmanaged", "did not begin: nothing is there to be managed"},
};

const Words& wordsOf(RunOutcome outcome) { return outcomeWords[static_cast<std::size_t>(outcome)]; }

bool some(const InstanceOutcome& instance, StageOutcome::State state) {
    return std::any_of(instance.stages.begin(), instance.stages.end(),
                       [&](const StageOutcome& stage) { return stage.state == state; });
}

}  // namespace

const std::vector<RunOutcome>& allRunOutcomes() {
    static const std::vector<RunOutcome> all = [] {
        std::vector<RunOutcome> made;
        for (const Words& each : outcomeWords) made.push_back(each.outcome);
        return made;
    }();
    return all;
}

std::string_view outcomeWord(RunOutcome outcome) { return wordsOf(outcome).word; }
std::string_view outcomeText(RunOutcome outcome) { return wordsOf(outcome).text; }

RunOutcome instanceOutcome(const InstanceOutcome& instance) {
    using State = InstanceOutcome::State;
    switch (instance.state) {
        case State::complete: break;
        case State::running: return RunOutcome::waiting;
        case State::held:
            return neverStartable(instance).empty() ? RunOutcome::held : RunOutcome::neverStartable;
        case State::overdue: return RunOutcome::overdue;
        case State::suspended: return RunOutcome::suspended;
        case State::rebooting: return RunOutcome::rebooting;
        case State::unmanaged: return RunOutcome::unmanaged;
    }
    if (some(instance, StageOutcome::State::passedOver)) return RunOutcome::continued;
    if (std::any_of(instance.stages.begin(), instance.stages.end(),
                    [](const StageOutcome& stage) { return !stage.assumedAgents.empty(); }))
        return RunOutcome::autoCompleted;
    return some(instance, StageOutcome::State::late) ? RunOutcome::late : RunOutcome::complete;
}

RunOutcome runOutcome(const std::vector<InstanceOutcome>& instances) {
    if (instances.empty()) return RunOutcome::unmanaged;
    RunOutcome worst = RunOutcome::complete;
    for (const InstanceOutcome& instance : instances)
        worst = std::max(worst, instanceOutcome(instance));
    return worst;
}

std::vector<std::size_t> neverStartable(const InstanceOutcome& instance) {
    const std::vector<StageOutcome>& stages = instance.stages;
    std::unordered_map<std::string_view, std::size_t> places;
    for (std::size_t i = 0; i < stages.size(); ++i) places.emplace(stages[i].stage.view(), i);

    // What each still waits for; who waits for nothing may start, and releases others.
    std::vector<std::size_t> waits(stages.size(), 0);
    std::vector<std::vector<std::size_t>> dependents(stages.size());
    std::vector<std::size_t> possible;
    for (std::size_t i = 0; i < stages.size(); ++i) {
        if (stages[i].state == StageOutcome::State::notStarted) {
            for (const Orv::String& dependency : stages[i].incompleteDependencies) {
                ++waits[i];
                const auto found = places.find(dependency.view());
                if (found != places.end()) dependents[found->second].push_back(i);
            }
        }
        if (waits[i] == 0) possible.push_back(i);
    }
    for (std::size_t next = 0; next < possible.size(); ++next)
        for (const std::size_t dependent : dependents[possible[next]])
            if (--waits[dependent] == 0) possible.push_back(dependent);

    std::vector<std::size_t> never;
    for (std::size_t i = 0; i < stages.size(); ++i)
        if (waits[i] != 0) never.push_back(i);
    return never;
}

}  // namespace Host
