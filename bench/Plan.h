// The real library, with a stage class that is run: reports written into AgentStatus, a virtual
// clock, everything observable, nobody who observes.
#pragma once

#include <string>
#include <vector>

#include "StageMgr/StageMgrStageClassDirSm.h"
#include "bench/Workload.h"
#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "runtime/ActivityManager.h"

namespace Bench {

// While it lives it is the thread's manager: two of them nest, or follow each other.
class Plan {
  public:
    // A manager with an empty stage class.
    Plan();
    explicit Plan(const Workload& workload) : Plan() { stagesAre(workload); }

    // Registers all of it: an agent is an entry of the input directory with one event.
    void stagesAre(const Workload& workload);
    void agentIs(const std::string& agent, const std::string& stage);
    void agentDel(const std::string& agent) { inputs_->entryDel(agent); }
    // Makes the stage critical, or not, by its first agent's event.
    void criticalIs(std::uint32_t stage, bool critical);

    // The names under which agents report, and the entities that they write into, are there before
    // the first report.
    void reportsAre(const Workload& workload, const std::string& instance = "main");
    void forgetReports() { reports_ = {}; }
    // Enables the instance, and lets every agent report in the order of the stages, each in a turn
    // of its own; whether the stages are complete then.
    bool run(const std::string& instance = "main");
    void enable(const std::string& instance = "main");

    void settle() { manager_.settle(); }
    const Orv::Ptr<Stage::Status>& status() const { return status_; }

  private:
    struct Report {
        Orv::Ptr<Stage::AgentStatus> status;
        Stage::AgentStatusKey key;
    };

    Orv::ActivityManager manager_;
    Orv::ActivityScope scope_;
    Orv::Ptr<Orv::Dir> stage_ = Orv::make<Orv::Dir>("stage");
    Orv::Ptr<Orv::Dir> input_ = Orv::make<Orv::Dir>("input");
    Orv::Ptr<Orv::Dir> agentStatus_ = Orv::make<Orv::Dir>("agentstatus");
    Orv::Ptr<Orv::Dir> enable_ = Orv::make<Orv::Dir>("enable");
    Orv::Ptr<Orv::Dir> inputs_;
    Orv::Ptr<Orv::Dir> agentStatuses_;
    Orv::Ptr<Stage::EnabledConfig> enabled_;
    Orv::Ptr<Stage::Status> status_;
    Orv::Ptr<Stage::CompletionStatusDir> completion_;
    Orv::Ptr<Stage::StageMgrStageClassDirSm> root_;
    std::vector<Report> reports_;
};

}  // namespace Bench
