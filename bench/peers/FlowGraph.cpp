// oneTBB's flow graph with one worker, a node per stage. It knows no reports: a stage is complete
// as soon as it has started. What it counts is all that a node does.
#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/global_control.h>

#include <atomic>
#include <deque>

#include "bench/Runs.h"

namespace {

class FlowGraph {
  public:
    explicit FlowGraph(const Bench::Workload& workload) {
        for (const auto& depends : workload.dependsOn) {
            auto& stage = stages_.emplace_back(graph_, [this](const tbb::flow::continue_msg&) {
                complete_.fetch_add(1, std::memory_order_relaxed);
            });
            if (depends.empty()) tbb::flow::make_edge(start_, stage);
            for (const std::uint32_t on : depends) tbb::flow::make_edge(stages_[on], stage);
        }
    }

    bool run() {
        complete_ = 0;
        start_.try_put(tbb::flow::continue_msg());
        graph_.wait_for_all();
        return complete_ == stages_.size();
    }

  private:
    tbb::global_control one_{tbb::global_control::max_allowed_parallelism, 1};
    std::atomic<std::size_t> complete_ = 0;
    tbb::flow::graph graph_;
    tbb::flow::broadcast_node<tbb::flow::continue_msg> start_{graph_};
    std::deque<tbb::flow::continue_node<tbb::flow::continue_msg>> stages_;
};

[[maybe_unused]] const bool added = [] {
    Bench::addRuns({"tbb", Bench::runAgain<FlowGraph>});
    return true;
}();

}  // namespace
