#include "host/plan/Schedule.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <queue>
#include <utility>

namespace Host {

namespace {

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

// Which critical stages may be the last ones to start, if stages may take less than they are said
// to, and whose completion then opens the gate. The last ones start when a stage completes that
// they come after. Nothing critical comes after them; so that stage is one after which only such
// come, here called final, and all of these start with its completion. Theirs opens the gate.
class LastStarts {
  public:
    explicit LastStarts(const StageGraph& graph)
        : graph_(graph), last_(graph.size()), final_(graph.size() + 1) {
        std::vector<std::size_t> later(graph.size());  // how many critical ones come after it
        bool any = false;
        bool allAtOnce = true;
        for (std::size_t s = 0; s < graph.size(); ++s) {
            if (!graph.critical(s)) continue;
            any = true;
            allAtOnce = allAtOnce && graph.after(s).empty();
            for (const StageGraph::Wait& wait : graph.after(s)) ++later[wait.stage];
        }
        for (std::size_t s = 0; s < graph.size(); ++s) {
            last_[s] = graph.critical(s) && later[s] == 0;
            final_[s] = later[s] > 0;
        }
        for (std::size_t s = 0; s < graph.size(); ++s)
            if (graph.critical(s) && !last_[s])
                for (const StageGraph::Wait& wait : graph.after(s)) final_[wait.stage] = false;
        // Where no critical stage waits, all start with the instance: as if after one more stage.
        final_.back() = any && allAtOnce;
    }

    bool last(std::size_t s) const { return last_[s]; }
    std::size_t count() const {
        return static_cast<std::size_t>(std::count(final_.begin(), final_.end(), true));
    }
    // The final stages that one of the last starts with.
    template <class Visit>
    void each(std::size_t s, Visit visit) const {
        if (!last_[s]) return;
        for (const StageGraph::Wait& wait : graph_.after(s))
            if (final_[wait.stage]) visit(wait.stage);
        if (final_.back()) visit(final_.size() - 1);
    }

  private:
    const StageGraph& graph_;
    std::vector<bool> last_;
    std::vector<bool> final_;  // its last member: the start of the instance
};

// One progression, from completion to completion.
class Progression {
  public:
    Progression(const StageGraph& graph, const std::vector<double>& durations, Schedule::Gate gate,
                Schedule::Endless endless)
        : graph_(graph),
          gate_(gate),
          waits_(graph.size()),
          endPass_(graph.size()),
          lastStarts_(graph),
          unopened_(lastStarts_.count()),
          opener_(graph.size() + 1, StageGraph::none),
          finite_(graph.size() + 1) {
        made_.stages.resize(graph.size());
        for (std::size_t s = 0; s < graph.size(); ++s) {
            const bool nothing = durations[s] == forever && endless == Schedule::Endless::nothing;
            made_.stages[s] = {forever, nothing ? 0.0 : durations[s], forever, StageGraph::none,
                               false};
            // One wait that never ends keeps it from starting.
            waits_[s] = graph.after(s).size() + graph.missing(s).size() +
                        (graph.heldBy(s) != nullptr ? 1 : 0);
            if (graph.critical(s)) ++criticalNotStarted_;
            if (durations[s] < forever)
                lastStarts_.each(s, [&](std::size_t f) { finite_[f] = true; });
            endless_.push_back(durations[s] == forever);
        }
    }

    Schedule run() {
        for (std::size_t s = 0; s < graph_.size(); ++s)
            if (waits_[s] == 0) ready(s, StageGraph::none);
        pass(0.0, StageGraph::none);
        while (!running_.empty() && running_.top().first < forever) {
            const double now = running_.top().first;
            const std::size_t first = running_.top().second;
            ++pass_;
            while (!running_.empty() && running_.top().first == now) {
                const std::size_t done = running_.top().second;
                running_.pop();
                complete(done);
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

    void complete(std::size_t s) {
        endPass_[s] = pass_;
        for (const std::size_t waiting : graph_.before(s))
            if (--waits_[waiting] == 0) ready(waiting, s);
        lastStarts_.each(s, [&](std::size_t f) {
            if (opener_[f] != StageGraph::none || (endless_[s] && finite_[f])) return;
            opener_[f] = s;
            --unopened_;
        });
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
            lastCriticalStart_ = now;
            lastCriticalPass_ = pass_;
        }
        if (gate_ == Schedule::Gate::samePass) open = criticalNotStarted_ == 0;
        if (gate_ == Schedule::Gate::latest) open = open && unopened_ == 0;
        if (!open) {
            for (const std::size_t s : readyOthers_) made_.stages[s].gated = true;
            return;
        }
        for (const std::size_t s : std::exchange(readyOthers_, {})) {
            if (made_.stages[s].gated) made_.stages[s].cause = first;
            start(s, now);
        }
    }

    // Slack. From the end: nothing may start later than what it lets start allows.

    double endOf(std::size_t s) const { return made_.stages[s].start + made_.stages[s].duration; }

    // The latest ends of stages, from those that `latestEnd` has already; what is not critical
    // finds out how late the gate may open. Calls found(stage, latest start) for each that ends.
    template <class Found>
    void backward(std::vector<double>& latestEnd, Found found) const {
        for (std::size_t i = order_.size(); i-- > 0;) {
            const std::size_t s = order_[i];
            if (endOf(s) == forever) {
                latestEnd[s] = forever;  // what never ends delays nothing more
                continue;
            }
            found(s, latestEnd);
            const double latest = latestEnd[s] - made_.stages[s].duration;
            for (const StageGraph::Wait& wait : graph_.after(s))
                latestEnd[wait.stage] = std::min(latestEnd[wait.stage], latest);
        }
    }

    void findSlack() {
        std::vector<double> latestEnd(graph_.size(), made_.end);
        backward(latestEnd, [&](std::size_t s, const std::vector<double>& ends) {
            const double latest = ends[s] - made_.stages[s].duration;
            made_.stages[s].slack = std::max(0.0, latest - made_.stages[s].start);
            if (!graph_.critical(s)) gateAtLatest_ = std::min(gateAtLatest_, latest);
        });
        if (gateAtLatest_ == forever || criticalNotStarted_ > 0) return;
        if (gate_ == Schedule::Gate::latest)
            boundByLatestGate();
        else if (lastCriticalPass_)
            boundByGate();
    }

    void bound(std::size_t s, double slack) {
        made_.stages[s].slack = std::max(0.0, std::min(made_.stages[s].slack, slack));
    }

    void boundByLatestGate() {
        std::vector<double> latestEnd(graph_.size(), made_.end);
        for (const std::size_t opener : opener_)
            if (opener != StageGraph::none) latestEnd[opener] = std::min(made_.end, gateAtLatest_);
        backward(latestEnd, [&](std::size_t s, const std::vector<double>& ends) {
            bound(s, ends[s] - endOf(s));
            // It alone may be late, and all others done before it starts.
            if (lastStarts_.last(s)) bound(s, gateAtLatest_ - endOf(s));
        });
    }

    // The gate opens with the first completion after the last critical start. To be later, a
    // critical stage must leave one that is no later than the gate may be: its own, that of a stage
    // that comes after it, or of another.
    void boundByGate() {
        // Those that do so as it is, the latest first.
        for (const std::size_t s : order_)
            if (graph_.critical(s) && opens(s) && endOf(s) <= gateAtLatest_) openers_.push_back(s);
        std::stable_sort(openers_.begin(), openers_.end(),
                         [&](std::size_t a, std::size_t b) { return endOf(a) > endOf(b); });
        position_.resize(graph_.size());
        for (std::size_t i = 0; i < order_.size(); ++i) position_[order_[i]] = i;
        lateness_.assign(graph_.size(), {});
        reachedFrom_.assign(graph_.size(), StageGraph::none);

        // From a stage's start to the last critical one that waits for it.
        std::vector<double> toLastStart(graph_.size());
        // If the latest of the openers has to open it.
        std::vector<double> latestEnd(graph_.size(), made_.end);
        const double opened = openers_.empty() ? 0.0 : endOf(openers_.front());
        if (!openers_.empty()) latestEnd[openers_.front()] = std::min(made_.end, gateAtLatest_);
        backward(latestEnd, [&](std::size_t s, const std::vector<double>& ends) {
            if (!graph_.critical(s)) return;
            const double lastStart = made_.stages[s].start + toLastStart[s];
            for (const StageGraph::Wait& wait : graph_.after(s))
                toLastStart[wait.stage] = std::max(
                    toLastStart[wait.stage], made_.stages[wait.stage].duration + toLastStart[s]);
            const double enough = std::min(ends[s] - endOf(s), opened - lastStart);
            bound(s, gateAtLatest_ - lastStart);
            if (gate_ == Schedule::Gate::nextPass && made_.stages[s].slack > enough)
                bound(s, std::max(enough, gateSlack(s)));
        });
    }

    bool opens(std::size_t s) const {
        return endOf(s) < forever && endPass_[s] > *lastCriticalPass_;
    }

    // A time, and how many passes came before at that time.
    using Moment = std::pair<double, unsigned>;
    static Moment later(Moment start, double duration) {
        return duration > 0.0 ? Moment(start.first + duration, 0)
                              : Moment(start.first, start.second + 1);
    }

    // How much later the critical stage could start with the gate still open in time. It makes what
    // comes after it late as well. Each stage opens the gate in time in one interval of delays.
    double gateSlack(std::size_t s) {
        // What is late with it, and when each would start for its sake alone.
        constexpr std::size_t mostSteps = 2'000'000;
        if (steps_ > mostSteps) return 0.0;
        std::vector<std::size_t> late{s};
        reachedFrom_[s] = s;
        for (std::size_t i = 0; i < late.size(); ++i) {
            steps_ += 1 + graph_.before(late[i]).size();
            for (const std::size_t waiting : graph_.before(late[i])) {
                if (!graph_.critical(waiting) || made_.stages[waiting].start == forever) continue;
                if (std::exchange(reachedFrom_[waiting], s) == s) continue;
                lateness_[waiting] = {};
                late.push_back(waiting);
            }
        }
        std::sort(late.begin(), late.end(),
                  [&](std::size_t a, std::size_t b) { return position_[a] < position_[b]; });
        lateness_[s] = {made_.stages[s].start, 0};
        Moment lastStart = lateness_[s];
        for (const std::size_t l : late) {
            lastStart = std::max(lastStart, lateness_[l]);
            if (endOf(l) == forever) continue;
            const Moment end = later(lateness_[l], made_.stages[l].duration);
            for (const std::size_t waiting : graph_.before(l))
                if (reachedFrom_[waiting] == s)
                    lateness_[waiting] = std::max(lateness_[waiting], end);
        }

        std::vector<std::pair<double, double>> intervals;
        for (const std::size_t o : openers_) {
            if (reachedFrom_[o] == s) continue;
            intervals.emplace_back(0.0, endOf(o) - lastStart.first);
            break;
        }
        for (const std::size_t l : late) {
            if (endOf(l) > gateAtLatest_) continue;
            const Moment end = later(lateness_[l], made_.stages[l].duration);
            const bool staysLast = end > lastStart;
            if (!opens(l) && !staysLast) continue;
            intervals.emplace_back(
                opens(l) ? 0.0 : lastCriticalStart_ - end.first,
                staysLast ? gateAtLatest_ - end.first : endOf(l) - lastStart.first);
        }
        std::sort(intervals.begin(), intervals.end());
        double slack = 0.0;
        for (const auto& [from, to] : intervals)
            if (from <= slack) slack = std::max(slack, to);
        return slack;
    }

    using End = std::pair<double, std::size_t>;

    const StageGraph& graph_;
    Schedule::Gate gate_;
    Schedule made_{};
    std::vector<std::size_t> waits_;  // per stage: how much it still waits for
    std::size_t criticalNotStarted_ = 0;
    std::vector<std::size_t> readyCritical_;
    std::vector<std::size_t> readyOthers_;
    std::priority_queue<End, std::vector<End>, std::greater<>> running_;
    std::vector<std::size_t> order_;  // as they started
    // Passes are counted from 0. Per stage, the one before which it completed.
    std::size_t pass_ = 0;
    std::vector<std::size_t> endPass_;
    std::optional<std::size_t> lastCriticalPass_{};
    double lastCriticalStart_ = 0.0;

    // For the latest gate. Per final stage, whose completion opens the gate if that is the last.
    LastStarts lastStarts_;
    std::size_t unopened_;
    std::vector<std::size_t> opener_;
    std::vector<bool> finite_;   // per final stage: that something opens it which is not endless
    std::vector<bool> endless_;  // per stage

    // For slack.
    double gateAtLatest_ = forever;
    std::vector<std::size_t> openers_;
    std::vector<std::size_t> position_;  // in the order
    std::vector<Moment> lateness_;
    std::vector<std::size_t> reachedFrom_;
    std::size_t steps_ = 0;
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

std::vector<double> saidDurations(const StageGraph& graph) {
    return durations(graph, [](const PlanParticipant& participant) {
        return participant.takes ? typicalTakes(participant) : 0.0;
    });
}

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
                  Schedule::Gate gate, Schedule::Endless endless) {
    return Progression(graph, durations, gate, endless).run();
}

std::vector<std::size_t> Schedule::chain(std::size_t to) const {
    std::vector<std::size_t> links;
    for (; to != StageGraph::none; to = stages[to].cause) links.push_back(to);
    std::reverse(links.begin(), links.end());
    return links;
}

}  // namespace Host
