#include "host/plan/Schedule.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <queue>
#include <utility>

namespace Host {

namespace {

constexpr double forever = std::numeric_limits<double>::infinity();

bool passedOver(const StageGraph& graph, std::size_t s) {
    return !graph.critical(s) || graph.stageClass().onTimeout == OnTimeout::proceed;
}

template <class Seconds>
std::vector<double> durations(const StageGraph& graph, Seconds seconds) {
    std::vector<double> all(graph.size());
    for (std::size_t s = 0; s < graph.size(); ++s) {
        for (const PlanParticipant& participant : graph.stage(s).participants) {
            const double takes =
                std::min(seconds(participant), participant.autoComplete.value_or(forever));
            all[s] = std::max(all[s], takes);
        }
        if (passedOver(graph, s)) all[s] = std::min(all[s], stageLimit(graph.stage(s)));
    }
    return all;
}

// One progression, from completion to completion.
class Progression {
  public:
    Progression(const StageGraph& graph, const std::vector<double>& durations, Schedule::Gate gate)
        : graph_(graph), gate_(gate), waits_(graph.size()) {
        made_.stages.resize(graph.size());
        for (std::size_t s = 0; s < graph.size(); ++s) {
            made_.stages[s] = {forever, durations[s], forever, StageGraph::none, false};
            // One wait that never ends keeps it from starting.
            waits_[s] = graph.after(s).size() + graph.missing(s).size() +
                        (graph.heldBy(s) != nullptr ? 1 : 0);
            if (graph.critical(s)) ++criticalNotStarted_;
        }
    }

    Schedule run() {
        for (std::size_t s = 0; s < graph_.size(); ++s)
            if (waits_[s] == 0) ready(s, StageGraph::none);
        pass(0.0, StageGraph::none);
        while (!running_.empty() && running_.top().first < forever) {
            const double now = running_.top().first;
            const std::size_t first = running_.top().second;
            while (!running_.empty() && running_.top().first == now) {
                const std::size_t done = running_.top().second;
                running_.pop();
                for (const std::size_t waiting : graph_.before(done))
                    if (--waits_[waiting] == 0) ready(waiting, done);
            }
            made_.end = now;
            made_.last = first;
            pass(now, first);
        }
        made_.whole = order_.size() == graph_.size() && running_.empty();
        findSlack();
        return std::move(made_);
    }

  private:
    void ready(std::size_t s, std::size_t cause) {
        made_.stages[s].cause = cause;
        (graph_.critical(s) ? readyCritical_ : readyOthers_).push_back(s);
    }

    void start(std::size_t s, double now) {
        made_.stages[s].start = now;
        running_.emplace(now + made_.stages[s].duration, s);
        order_.push_back(s);
    }

    // `first` is the stage whose completion called for it.
    void pass(double now, std::size_t first) {
        bool open = criticalNotStarted_ == 0;
        for (const std::size_t s : std::exchange(readyCritical_, {})) {
            start(s, now);
            --criticalNotStarted_;
        }
        if (gate_ == Schedule::Gate::samePass) open = criticalNotStarted_ == 0;
        if (!open) {
            for (const std::size_t s : readyOthers_) made_.stages[s].gated = true;
            return;
        }
        if (!std::exchange(opened_, true)) opener_ = first;
        for (const std::size_t s : std::exchange(readyOthers_, {})) {
            if (made_.stages[s].gated) made_.stages[s].cause = first;
            start(s, now);
        }
    }

    // From the end: nothing may start later than what it lets start allows.
    void findSlack() {
        std::vector<double> latestEnd(graph_.size(), made_.end);
        const auto atLatest = [&](std::size_t s) {
            return latestEnd[s] - made_.stages[s].duration;
        };
        double gateAtLatest = forever;
        for (std::size_t i = order_.size(); i-- > 0;) {
            const std::size_t s = order_[i];
            Schedule::Times& times = made_.stages[s];
            if (times.start + times.duration == forever) {
                latestEnd[s] = forever;  // what never ends delays nothing more
                continue;
            }
            double latest = atLatest(s);
            if (graph_.critical(s)) latest = std::min(latest, gateAtLatest);
            times.slack = std::max(0.0, latest - times.start);
            for (const StageGraph::Wait& wait : graph_.after(s))
                latestEnd[wait.stage] = std::min(latestEnd[wait.stage], latest);
            if (graph_.critical(s)) continue;
            gateAtLatest = std::min(gateAtLatest, latest);
            if (opener_ != StageGraph::none)
                latestEnd[opener_] = std::min(latestEnd[opener_], latest);
        }
    }

    using End = std::pair<double, std::size_t>;

    const StageGraph& graph_;
    Schedule::Gate gate_;
    Schedule made_{};
    std::vector<std::size_t> waits_;  // per stage: how much it still waits for
    std::size_t criticalNotStarted_ = 0;
    std::vector<std::size_t> readyCritical_;
    std::vector<std::size_t> readyOthers_;
    bool opened_ = false;
    // The stage whose completion opened the gate; none when it was never closed.
    std::size_t opener_ = StageGraph::none;
    std::priority_queue<End, std::vector<End>, std::greater<>> running_;
    std::vector<std::size_t> order_;  // as they started
};

}  // namespace

double givenLimit(double limit) {
    if (limit > std::numeric_limits<float>::max()) return limit;
    const auto kept = static_cast<float>(limit);
    return kept < limit ? std::nextafter(kept, std::numeric_limits<float>::infinity()) : limit;
}

double stageLimit(const PlanStage& stage) {
    float limit = 0.0F;
    for (const PlanParticipant& participant : stage.participants) {
        const double given = givenLimit(participant.limit);
        const bool large = given > std::numeric_limits<float>::max();
        const float own =
            large ? std::numeric_limits<float>::infinity() : static_cast<float>(given);
        limit = std::max(limit, own);
    }
    return limit;
}

double typicalTakes(const PlanParticipant& participant) {
    const Takes takes = participant.takes.value_or(assumedTakes);
    switch (takes.kind) {
        case Takes::Kind::uniform: return takes.a + (takes.b - takes.a) / 2.0;
        case Takes::Kind::never: return forever;
        case Takes::Kind::fixed:
        case Takes::Kind::normal:
        case Takes::Kind::exponential: break;
    }
    return takes.a;
}

double leastTakes(const PlanParticipant& participant) {
    if (!participant.takes) return 0.0;
    switch (participant.takes->kind) {
        case Takes::Kind::fixed:
        case Takes::Kind::uniform: return participant.takes->a;
        case Takes::Kind::never: return forever;
        case Takes::Kind::normal:
        case Takes::Kind::exponential: break;
    }
    return 0.0;
}

bool takesNoTime(const PlanParticipant& participant) {
    return participant.kind == PlanParticipant::Kind::simulated && participant.takes &&
           participant.takes == Takes{};
}

std::vector<double> typicalDurations(const StageGraph& graph) {
    return durations(graph, typicalTakes);
}

std::vector<double> leastDurations(const StageGraph& graph) { return durations(graph, leastTakes); }

std::vector<double> longestDurations(const StageGraph& graph) {
    std::vector<double> all(graph.size());
    for (std::size_t s = 0; s < graph.size(); ++s) {
        const double limit = stageLimit(graph.stage(s));
        for (const PlanParticipant& participant : graph.stage(s).participants)
            if (!takesNoTime(participant))
                all[s] = std::max(all[s], participant.autoComplete.value_or(limit));
        all[s] = std::min(all[s], limit);
    }
    return all;
}

Schedule schedule(const StageGraph& graph, const std::vector<double>& durations,
                  Schedule::Gate gate) {
    return Progression(graph, durations, gate).run();
}

std::vector<std::size_t> Schedule::chain(std::size_t to) const {
    std::vector<std::size_t> links;
    for (; to != StageGraph::none; to = stages[to].cause) links.push_back(to);
    std::reverse(links.begin(), links.end());
    return links;
}

}  // namespace Host
