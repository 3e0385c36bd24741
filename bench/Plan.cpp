#include "bench/Plan.h"

namespace Bench {

Plan::Plan() : scope_(manager_) {
    root_ = Stage::stageMgrStageClassDirSmFactory(stage_, input_, agentStatus_, enable_,
                                                  Orv::make<Stage::StageGlobalConfig>("global"),
                                                  Orv::make<Stage::FatalError>("fatalerror"));
    const auto dir = stage_->subdirIs("bench");
    dir->subdirIs("config")->entryIs("config", "Stage::Config");
    dir->entryIs("status", "Stage::Status");
    dir->entryIs("completionstatus", "Stage::CompletionStatusDir");
    dir->entryIs("progress", "Stage::ProgressDir");
    dir->entryIs("log", "Stage::Log");
    inputs_ = input_->subdirIs("bench");
    agentStatuses_ = agentStatus_->subdirIs("bench");
    enabled_ = Orv::make<Stage::EnabledConfig>("bench");
    enable_->entryIs(enabled_);
    status_ = dir->entityPtr<Stage::Status>("status");
    completion_ = dir->entityPtr<Stage::CompletionStatusDir>("completionstatus");
}

void Plan::stagesAre(const Workload& workload) {
    for (std::uint32_t stage = 0; stage < workload.stages(); ++stage) {
        const Orv::Name name = stageName(stage);
        for (std::uint32_t agent = 0; agent < workload.agents; ++agent) {
            const Orv::Name agentsName = agentName(stage, agent);
            const auto config = Orv::make<Stage::AgentConfig>(agentsName);
            const auto event = config->eventIs(name, agentsName);
            event->timeoutIs(1000);
            for (const std::uint32_t on : workload.dependsOn[stage])
                event->dependencyIs(stageName(on), true);
            inputs_->entryIs(config);
        }
    }
}

void Plan::agentIs(const std::string& agent, const std::string& stage) {
    const auto config = Orv::make<Stage::AgentConfig>(agent);
    config->eventIs(stage, agent);
    inputs_->entryIs(config);
}

void Plan::criticalIs(std::uint32_t stage, bool critical) {
    const auto config = inputs_->entityPtr<Stage::AgentConfig>(agentName(stage, 0));
    config->event(stageName(stage))->criticalIs(critical);
}

void Plan::reportsAre(const Workload& workload, const std::string& instance) {
    reports_.reserve(workload.reports());
    for (std::uint32_t stage = 0; stage < workload.stages(); ++stage)
        for (std::uint32_t agent = 0; agent < workload.agents; ++agent) {
            // Texts of their own, as they come from outside: not those of the registration.
            const std::string name = agentName(stage, agent);
            auto status = agentStatuses_->entityPtr<Stage::AgentStatus>(name);
            if (!status) {
                status = Orv::make<Stage::AgentStatus>(name);
                agentStatuses_->entryIs(status);
            }
            reports_.push_back({std::move(status), {name, stageName(stage), instance}});
        }
}

void Plan::enable(const std::string& instance) {
    enabled_->enabledIs(instance, true);
    manager_.settle();
}

bool Plan::run(const std::string& instance) {
    enable(instance);
    for (const auto& [status, key] : reports_) {
        status->completeIs(key, true);
        manager_.settle();
    }
    return completion_->status(instance)->complete();
}

}  // namespace Bench
