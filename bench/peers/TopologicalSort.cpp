// Boost.Graph's topological sort: the order of all stages, which is known in advance. It knows no
// reports.
#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/topological_sort.hpp>
#include <iterator>
#include <vector>

#include "bench/Runs.h"

namespace {

class TopologicalSort {
  public:
    explicit TopologicalSort(const Bench::Workload& workload) : stages_(workload.stages()) {
        for (std::uint32_t stage = 0; stage < workload.stages(); ++stage)
            for (const std::uint32_t on : workload.dependsOn[stage])
                boost::add_edge(on, stage, stages_);
    }

    // The last stage comes first.
    bool run() {
        order_.clear();
        boost::topological_sort(stages_, std::back_inserter(order_));
        return order_.size() == boost::num_vertices(stages_);
    }

  private:
    boost::adjacency_list<boost::vecS, boost::vecS, boost::directedS> stages_;
    std::vector<std::size_t> order_;
};

[[maybe_unused]] const bool added = [] {
    Bench::addRuns({"boost.graph", Bench::runAgain<TopologicalSort>});
    return true;
}();

}  // namespace
