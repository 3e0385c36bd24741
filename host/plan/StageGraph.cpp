#include "host/plan/StageGraph.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace Host {

StageGraph::StageGraph(const PlanClass& stageClass)
    : class_(stageClass),
      after_(size()),
      missing_(size()),
      before_(size()),
      critical_(size()),
      criticalFor_(size(), none),
      heldBy_(size()),
      knotOf_(size(), none),
      reasons_(size()) {
    findWaits();
    findCritical();
    findKnots();
    findReasons();
}

void StageGraph::findWaits() {
    std::unordered_map<std::string_view, std::size_t> numbers;
    for (std::size_t s = 0; s < size(); ++s) numbers.emplace(stage(s).name, s);

    std::vector<std::size_t> seenFor(size(), none);
    const auto add = [&](std::size_t s, const StageReference& said, const PlanParticipant* whose) {
        const auto found = numbers.find(said.stage);
        if (found == numbers.end()) {
            missing_[s].push_back({none, &said, whose});
        } else if (seenFor[found->second] != s) {
            seenFor[found->second] = s;
            after_[s].push_back({found->second, &said, whose});
            before_[found->second].push_back(s);
        }
    };
    for (std::size_t s = 0; s < size(); ++s) {
        for (const StageReference& said : stage(s).after) add(s, said, nullptr);
        for (const PlanParticipant& participant : stage(s).participants)
            for (const StageReference& said : participant.after) add(s, said, &participant);
    }
    for (const StageReference& held : class_.doNotStart) {
        const auto found = numbers.find(held.stage);
        if (found != numbers.end() && heldBy_[found->second] == nullptr)
            heldBy_[found->second] = &held;
    }
}

void StageGraph::findCritical() {
    std::vector<std::size_t> reached;
    for (std::size_t s = 0; s < size(); ++s) {
        critical_[s] = stage(s).critical();
        if (critical_[s]) reached.push_back(s);
    }
    for (std::size_t i = 0; i < reached.size(); ++i) {
        for (const Wait& wait : after_[reached[i]]) {
            if (critical_[wait.stage]) continue;
            critical_[wait.stage] = true;
            criticalFor_[wait.stage] = reached[i];
            reached.push_back(wait.stage);
        }
    }
}

// Strongly connected components by Tarjan's method, with a stack of our own: chains are as long as
// a plan likes.
void StageGraph::findKnots() {
    struct Visit {
        std::size_t stage;
        std::size_t edge;
    };
    std::vector<std::size_t> order(size(), none);
    std::vector<std::size_t> low(size(), none);
    std::vector<bool> open(size());
    std::vector<std::size_t> path;
    std::vector<Visit> visits;
    std::size_t next = 0;

    const auto enter = [&](std::size_t s) {
        order[s] = low[s] = next++;
        open[s] = true;
        path.push_back(s);
        visits.push_back({s, 0});
    };
    const auto leave = [&](std::size_t s) {
        if (low[s] != order[s]) return;
        const auto first = std::find(path.rbegin(), path.rend(), s).base() - 1;
        std::vector<std::size_t> knot(first, path.end());
        path.erase(first, path.end());
        for (const std::size_t member : knot) open[member] = false;
        const bool waitsForItself = std::any_of(after_[s].begin(), after_[s].end(),
                                                [&](const Wait& w) { return w.stage == s; });
        if (knot.size() == 1 && !waitsForItself) return;
        std::sort(knot.begin(), knot.end());
        knots_.push_back(std::move(knot));
    };
    for (std::size_t s = 0; s < size(); ++s) {
        if (order[s] == none) enter(s);
        while (!visits.empty()) {
            const std::size_t at = visits.back().stage;
            if (visits.back().edge < after_[at].size()) {
                const std::size_t to = after_[at][visits.back().edge++].stage;
                if (order[to] == none)
                    enter(to);
                else if (open[to])
                    low[at] = std::min(low[at], order[to]);
            } else {
                visits.pop_back();
                if (!visits.empty()) {
                    const std::size_t above = visits.back().stage;
                    low[above] = std::min(low[above], low[at]);
                }
                leave(at);
            }
        }
    }
    std::sort(knots_.begin(), knots_.end());
    for (std::size_t k = 0; k < knots_.size(); ++k)
        for (const std::size_t s : knots_[k]) knotOf_[s] = k;
}

std::vector<std::size_t> StageGraph::circle(const std::vector<std::size_t>& knot) const {
    // The search from one stage costs as much as the set has waits.
    constexpr std::size_t mostSearches = 200;
    const std::size_t searches = knot.size() <= mostSearches ? knot.size() : 1;

    std::vector<std::size_t> best;
    std::unordered_map<std::size_t, std::size_t> from;  // the stage that it was reached from
    for (std::size_t i = 0; i < searches; ++i) {
        const std::size_t start = knot[i];
        std::vector<std::size_t> reached{start};
        from.clear();
        std::size_t last = none;
        for (std::size_t r = 0; r < reached.size() && last == none; ++r) {
            for (const Wait& wait : after_[reached[r]]) {
                if (wait.stage == start) {
                    last = reached[r];
                    break;
                }
                if (knotOf_[wait.stage] == knotOf_[start] &&
                    from.emplace(wait.stage, reached[r]).second)
                    reached.push_back(wait.stage);
            }
        }
        std::vector<std::size_t> found{last};
        while (found.back() != start) found.push_back(from.at(found.back()));
        std::reverse(found.begin(), found.end());
        if (best.empty() || found.size() < best.size()) best = std::move(found);
        if (best.size() <= 2) break;  // nothing is shorter that is worth a search
    }
    return best;
}

const StageGraph::Wait& StageGraph::wait(std::size_t of, std::size_t on) const {
    return *std::find_if(after_[of].begin(), after_[of].end(),
                         [&](const Wait& w) { return w.stage == on; });
}

void StageGraph::spread(std::vector<std::size_t> roots, Reason::Kind kind) {
    for (const std::size_t s : roots) reasons_[s] = {kind, s, none};
    for (std::size_t i = 0; i < roots.size(); ++i) {
        for (const std::size_t waiting : before_[roots[i]]) {
            if (reasons_[waiting].kind != Reason::Kind::none) continue;
            reasons_[waiting] = {kind, reasons_[roots[i]].root, roots[i]};
            roots.push_back(waiting);
        }
    }
}

void StageGraph::findReasons() {
    std::vector<std::size_t> roots;
    for (std::size_t s = 0; s < size(); ++s)
        if (!missing_[s].empty()) roots.push_back(s);
    // All knots are marked before anything spreads: what is in one has its reason there.
    std::vector<std::size_t> tied;
    for (std::size_t s = 0; s < size(); ++s)
        if (knotOf_[s] != none && missing_[s].empty()) tied.push_back(s);
    for (const std::size_t s : tied) reasons_[s] = {Reason::Kind::knot, s, none};
    spread(std::move(roots), Reason::Kind::missing);
    spread(std::move(tied), Reason::Kind::knot);

    std::vector<std::size_t> held;
    for (std::size_t s = 0; s < size(); ++s)
        if (heldBy_[s] != nullptr && reasons_[s].kind == Reason::Kind::none) held.push_back(s);
    spread(std::move(held), Reason::Kind::held);
}

}  // namespace Host
