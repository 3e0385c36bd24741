// What whole progressions cost: the real library, reports written into AgentStatus, a virtual
// clock.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "StageMgr/StageMgrStageClassDirSm.h"
#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "runtime/ActivityManager.h"

namespace {

// A stage class "bench" whose stages are "0", "1", and so on, each with `agents` agents.
class Plan {
  public:
    Plan() : scope_(manager_) {
        root_ = Stage::stageMgrStageClassDirSmFactory(stage_, input_, reports_, enable_,
                                                      Orv::make<Stage::StageGlobalConfig>("global"),
                                                      Orv::make<Stage::FatalError>("fatalerror"));
        const auto dir = stage_->subdirIs("bench");
        dir->subdirIs("config")->entryIs("config", "Stage::Config");
        dir->entryIs("status", "Stage::Status");
        dir->entryIs("completionstatus", "Stage::CompletionStatusDir");
        dir->entryIs("progress", "Stage::ProgressDir");
        dir->entryIs("log", "Stage::Log");
        inputs_ = input_->subdirIs("bench");
        statuses_ = reports_->subdirIs("bench");
        enabled_ = Orv::make<Stage::EnabledConfig>("bench");
        enable_->entryIs(enabled_);
        done_ = dir->entityPtr<Stage::CompletionStatusDir>("completionstatus");
    }

    void stageIs(int number, const std::vector<int>& dependsOn, int agents = 1) {
        const std::string stage = std::to_string(number);
        for (int i = 0; i < agents; ++i) {
            const std::string agent = stage + "." + std::to_string(i);
            const auto config = Orv::make<Stage::AgentConfig>(agent);
            const auto event = config->eventIs(stage, agent);
            event->timeoutIs(1000);
            for (const int d : dependsOn) event->dependencyIs(std::to_string(d), true);
            inputs_->entryIs(config);
            const auto status = Orv::make<Stage::AgentStatus>(agent);
            statuses_->entryIs(status);
            pendingReports_.push_back({status, {agent, stage, "main"}});
        }
    }

    // Every agent reports in the order in which its stage was added, a settled turn each.
    bool run() {
        enabled_->enabledIs("main", true);
        manager_.settle();
        for (const auto& [status, key] : pendingReports_) {
            status->completeIs(key, true);
            manager_.settle();
        }
        return done_->status("main")->complete();
    }

  private:
    struct Report {
        Orv::Ptr<Stage::AgentStatus> status;
        Stage::AgentStatusKey key;
    };

    Orv::ActivityManager manager_;
    Orv::ActivityScope scope_;
    Orv::Ptr<Orv::Dir> stage_ = Orv::make<Orv::Dir>("stage");
    Orv::Ptr<Orv::Dir> input_ = Orv::make<Orv::Dir>("input");
    Orv::Ptr<Orv::Dir> reports_ = Orv::make<Orv::Dir>("agentstatus");
    Orv::Ptr<Orv::Dir> enable_ = Orv::make<Orv::Dir>("enable");
    Orv::Ptr<Orv::Dir> inputs_;
    Orv::Ptr<Orv::Dir> statuses_;
    Orv::Ptr<Stage::EnabledConfig> enabled_;
    Orv::Ptr<Stage::CompletionStatusDir> done_;
    Orv::Ptr<Stage::StageMgrStageClassDirSm> root_;
    std::vector<Report> pendingReports_;
};

template <class Build>
void progression(benchmark::State& state, Build&& build) {
    for (auto _ : state) {
        Plan plan;
        build(plan);
        if (!plan.run()) state.SkipWithError("the progression did not complete");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void chain(benchmark::State& state) {
    progression(state, [&](Plan& plan) {
        for (int i = 0; i < state.range(0); ++i)
            plan.stageIs(i, i == 0 ? std::vector<int>() : std::vector<int>{i - 1});
    });
}
BENCHMARK(chain)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

void fan(benchmark::State& state) {
    progression(state, [&](Plan& plan) {
        const int last = static_cast<int>(state.range(0)) - 1;
        std::vector<int> all;
        plan.stageIs(0, {});
        for (int i = 1; i < last; ++i) {
            plan.stageIs(i, {0});
            all.push_back(i);
        }
        plan.stageIs(last, all);
    });
}
BENCHMARK(fan)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

// One stage, to which all report.
void fanIn(benchmark::State& state) {
    progression(state, [&](Plan& plan) { plan.stageIs(0, {}, static_cast<int>(state.range(0))); });
}
BENCHMARK(fanIn)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
