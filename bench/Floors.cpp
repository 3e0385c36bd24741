#include "bench/Floors.h"

namespace Bench {

Kahn::Kahn(const Workload& workload)
    : agents_(workload.agents), firstDependent_(workload.stages() + 1) {
    for (const auto& depends : workload.dependsOn) {
        dependencies_.push_back(static_cast<std::uint32_t>(depends.size()));
        for (const std::uint32_t on : depends) ++firstDependent_[on + 1];
    }
    for (std::uint32_t stage = 0; stage < workload.stages(); ++stage)
        firstDependent_[stage + 1] += firstDependent_[stage];
    dependents_.resize(firstDependent_.back());
    auto next = firstDependent_;
    for (std::uint32_t stage = 0; stage < workload.stages(); ++stage)
        for (const std::uint32_t on : workload.dependsOn[stage]) dependents_[next[on]++] = stage;
}

void Kahn::enable() {
    complete_ = 0;
    waiting_ = dependencies_;
    pending_.assign(dependencies_.size(), 0);
    for (std::size_t stage = 0; stage < waiting_.size(); ++stage)
        if (waiting_[stage] == 0) pending_[stage] = agents_;
}

void Kahn::report(std::uint32_t stage) {
    if (pending_[stage] == 0 || --pending_[stage] != 0) return;
    ++complete_;
    for (std::uint32_t at = firstDependent_[stage]; at < firstDependent_[stage + 1]; ++at)
        if (--waiting_[dependents_[at]] == 0) pending_[dependents_[at]] = agents_;
}

bool Kahn::run() {
    enable();
    for (std::uint32_t stage = 0; stage < waiting_.size(); ++stage)
        for (std::uint32_t agent = 0; agent < agents_; ++agent) report(stage);
    return complete_ == waiting_.size();
}

Keyed::Keyed(const Workload& workload) {
    for (std::uint32_t number = 0; number < workload.stages(); ++number) {
        const std::string name = stageName(number);
        Stage& stage = stages_[name];
        stage.dependencies = static_cast<std::uint32_t>(workload.dependsOn[number].size());
        for (const std::uint32_t on : workload.dependsOn[number])
            stages_[stageName(on)].dependents.push_back(name);
        for (std::uint32_t agent = 0; agent < workload.agents; ++agent) {
            stage.agents.push_back(agentName(number, agent));
            reports_.push_back({stage.agents.back(), name, "main"});
        }
    }
}

void Keyed::enable(const std::string& instance) {
    Instance& enabled = instances_[instance];
    enabled.stages.reserve(stages_.size());
    for (const auto& [name, stage] : stages_) {
        Running& running = enabled.stages[name];
        running.waiting = stage.dependencies;
        if (running.waiting == 0) start(stage, running);
    }
}

void Keyed::report(const Report& report) {
    const auto instance = instances_.find(report.instance);
    if (instance == instances_.end()) return;
    auto& stages = instance->second.stages;
    const auto running = stages.find(report.stage);
    if (running == stages.end()) return;
    auto& pending = running->second.pending;
    if (pending.erase(report.agent) == 0 || !pending.empty()) return;

    ++instance->second.complete;
    for (const std::string& dependent : stages_.find(report.stage)->second.dependents) {
        Running& waits = stages.find(dependent)->second;
        if (--waits.waiting == 0) start(stages_.find(dependent)->second, waits);
    }
}

bool Keyed::complete(const std::string& instance) const {
    const auto found = instances_.find(instance);
    return found != instances_.end() && found->second.complete == stages_.size();
}

bool Keyed::run() {
    enable("main");
    for (const Report& next : reports_) report(next);
    return complete("main");
}

}  // namespace Bench
