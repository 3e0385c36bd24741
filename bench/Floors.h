// The least that a progression can cost: what has to be known of a run, and nothing else. No log,
// no clock, nobody to tell, nothing that could change while it runs.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bench/Workload.h"

namespace Bench {

// Everything by number, in flat arrays: what is left when names are gone, too.
class Kahn {
  public:
    explicit Kahn(const Workload& workload);

    // Begins anew.
    void enable();
    // An agent of the stage is done. Reports come once each, and only while the stage runs.
    void report(std::uint32_t stage);
    // Enables, and reports for every agent; whether all stages are complete then.
    bool run();

  private:
    std::uint32_t agents_;
    std::vector<std::uint32_t> dependencies_;  // how many, by stage
    std::vector<std::uint32_t> firstDependent_;
    std::vector<std::uint32_t> dependents_;  // of all stages, one stage's after the other's
    std::vector<std::uint32_t> waiting_;
    std::vector<std::uint32_t> pending_;
    std::uint64_t complete_ = 0;
};

// The same with names: every reference to a stage, an agent or an instance is a std::string that is
// looked up in a hash table, as somebody would write it who gets names from outside.
class Keyed {
  public:
    struct Report {
        std::string agent;
        std::string stage;
        std::string instance;
    };

    explicit Keyed(const Workload& workload);

    void enable(const std::string& instance);
    void disable(const std::string& instance) { instances_.erase(instance); }
    // Does nothing unless the agent is awaited there.
    void report(const Report& report);
    bool complete(const std::string& instance) const;
    bool run();

  private:
    struct Stage {
        std::vector<std::string> agents;
        std::vector<std::string> dependents;
        std::uint32_t dependencies = 0;
    };
    struct Running {
        std::uint32_t waiting = 0;
        std::unordered_set<std::string> pending;  // agents; filled when the stage starts
    };
    struct Instance {
        std::unordered_map<std::string, Running> stages;
        std::uint64_t complete = 0;
    };

    static void start(const Stage& stage, Running& running) {
        running.pending.insert(stage.agents.begin(), stage.agents.end());
    }

    std::unordered_map<std::string, Stage> stages_;
    std::unordered_map<std::string, Instance> instances_;
    std::vector<Report> reports_;
};

}  // namespace Bench
