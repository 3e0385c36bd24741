#include "host/history/Explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <unordered_map>

#include "host/Words.h"
#include "host/history/StageTimes.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

using Kind = Cause::Kind;
using State = StageOutcome::State;

std::string shown(std::string_view name) {
    // Names stand in sentences: those that would not be told from the words get quotes.
    const bool plain = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.';
    });
    return plain ? std::string(name) : inQuotes(name);
}

template <class Names>
std::string list(const Names& names) {
    return firstOf(names, 8, [](std::string_view name) { return shown(name); });
}

// One instance's stages, and what each that has not started waits for.
class Waits {
  public:
    Waits(const RunHistory& run, const InstanceHistory& instance) : run_(run), instance_(instance) {
        for (std::size_t i = 0; i < instance.stages.size(); ++i)
            places_.emplace(instance.stages[i].name, i);
        for (std::size_t i = 0; i < instance.stages.size(); ++i)
            if (notStarted(i) && instance.stages[i].outcome.critical) critical_.push_back(i);
    }

    const StageHistory& stage(std::size_t i) const { return instance_.stages[i]; }
    std::size_t size() const { return instance_.stages.size(); }
    bool notStarted(std::size_t i) const { return stage(i).outcome.state == State::notStarted; }
    bool heldByCritical(std::size_t i) const { return stage(i).outcome.heldByCritical; }
    const std::vector<std::size_t>& critical() const { return critical_; }

    // size(): none has that name.
    std::size_t place(std::string_view name) const {
        const auto found = places_.find(name);
        return found == places_.end() ? size() : found->second;
    }

    // What keeps every stage of the instance from starting.
    std::vector<Cause> instanceCauses() const;
    Cause doNotStart(std::size_t i) const;
    Cause missing(std::string_view name) const;
    std::vector<Cause> pending(std::size_t i) const;
    // Each comes after the next, and the last after the first.
    Cause cycle(const std::vector<std::size_t>& stages) const;
    // Nothing holds it, and yet it has not started.
    Cause nextPass(std::size_t i) const;

  private:
    Cause reboot() const;

    const RunHistory& run_;
    const InstanceHistory& instance_;
    std::unordered_map<std::string_view, std::size_t> places_;
    std::vector<std::size_t> critical_;  // that have not started
};

std::vector<Cause> Waits::instanceCauses() const {
    std::vector<Cause> causes;
    if (instance_.state == InstanceOutcome::State::complete) return causes;
    if (instance_.disabled) {
        Cause gone{0, Kind::notEnabled};
        gone.since = instance_.disabled;
        gone.text = "the instance was taken away at " + timeText(*instance_.disabled);
        gone.release = "enabling the instance again; it then starts from its beginning";
        return {gone};
    }
    if (instance_.state == InstanceOutcome::State::unmanaged) {
        Cause unmanaged{0, Kind::unmanaged};
        unmanaged.text =
            "no manager runs the instance" +
            (instance_.missing.empty() ? std::string()
                                       : ": there is no " + printable(instance_.missing));
        if (!instance_.missing.empty())
            unmanaged.release = "making " + printable(instance_.missing);
        return {unmanaged};
    }
    if (run_.reboot) causes.push_back(reboot());
    if (instance_.state == InstanceOutcome::State::suspended) {
        Cause suspended{0, Kind::suspended};
        suspended.since = instance_.suspended;
        suspended.text = "the operator suspended the instance: no further stage starts";
        suspended.release = "taking back the suspension of the instance";
        causes.push_back(suspended);
    }
    return causes;
}

Cause Waits::reboot() const {
    Cause reboot{0, Kind::reboot};
    reboot.since = run_.reboot->time;
    reboot.text = fmt::format("a reboot ({}) was requested at {}: {}", run_.reboot->mode,
                              timeText(run_.reboot->time), printable(run_.reboot->reason));
    reboot.release = "only the reboot: no stage starts any more, and no report counts";
    return reboot;
}

Cause Waits::doNotStart(std::size_t i) const {
    Cause held{0, Kind::doNotStart};
    held.stage = stage(i).name;
    held.since = stage(i).ready;
    held.text = shown(stage(i).name) + " is on the do-not-start list";
    held.release = "removing " + shown(stage(i).name) + " from the do-not-start list";
    return held;
}

Cause Waits::missing(std::string_view name) const {
    Cause missing{0, Kind::missingStage};
    missing.stage = name;
    missing.text = "there is no stage " + shown(name);
    missing.release = "a participant for a stage " + shown(name) + ", or no dependency on it";
    return missing;
}

std::vector<Cause> Waits::pending(std::size_t i) const {
    std::vector<Cause> causes;
    const StageHistory& stage = this->stage(i);
    for (const EventHistory& event : stage.events) {
        if (event.how != EventHistory::End::pending) continue;
        Cause pending{0, Kind::pendingReport};
        pending.stage = stage.name;
        pending.agent = event.agent;
        pending.since = stage.start;
        pending.text =
            fmt::format("{} has not reported for {}", shown(event.agent), shown(stage.name));
        if (stage.start) pending.text += ", which started at " + timeText(*stage.start);
        pending.release =
            fmt::format("the report of {} for {}", shown(event.agent), shown(stage.name));
        // A stage that timed out and is still waited for is auto-completed as well.
        const bool assumedFirst = stage.start && event.autoComplete && !run_.reboot &&
                                  *stage.start + *event.autoComplete >= run_.end &&
                                  (stage.timedOut || *event.autoComplete <= stage.limit);
        if (stage.timedOut)
            pending.text += fmt::format(" and timed out at {}", timeText(*stage.timedOut));
        if (assumedFirst) {
            pending.until = *stage.start + *event.autoComplete;
            pending.text += fmt::format("; without a report it is auto-completed at {}",
                                        timeText(*pending.until));
            pending.release +=
                fmt::format(", or its auto-completion at {}", timeText(*pending.until));
        } else if (stage.timedOut) {
            pending.until = stage.timedOut;
        } else if (std::isinf(stage.limit)) {
            pending.text += " and has no limit";
        } else if (stage.start) {
            pending.until = *stage.start + stage.limit;
            pending.text += fmt::format("; its limit of {} ends at {}", timeText(stage.limit),
                                        timeText(*pending.until));
        }
        causes.push_back(std::move(pending));
    }
    return causes;
}

Cause Waits::cycle(const std::vector<std::size_t>& stages) const {
    Cause cycle{0, Kind::cycle};
    cycle.stage = stage(stages.front()).name;
    std::string way;
    for (const std::size_t place : stages) way += shown(stage(place).name) + " after ";
    way += shown(cycle.stage);
    cycle.text = "they wait for each other: " + way;
    cycle.release = "taking one of these dependencies away: " + way;
    return cycle;
}

Cause Waits::nextPass(std::size_t i) const {
    Cause next{0, Kind::nextPass};
    next.stage = stage(i).name;
    next.since = stage(i).ready;
    next.text =
        "nothing holds " + shown(stage(i).name) +
        " any more; it starts as soon as the next stage is complete, when the manager looks "
        "again";
    next.release = "the completion of any stage that runs";
    return next;
}

// Goes from a stage to what it waits for, and on, each stage once. The way is kept on the heap:
// chains may be long.
class Descent {
  public:
    explicit Descent(const Waits& waits) : waits_(waits), seen_(waits.size(), false) {}

    std::vector<Cause> from(std::size_t stage) {
        push(0, stage, {});
        while (!todo_.empty()) {
            const Step step = std::move(todo_.back());
            todo_.pop_back();
            take(step);
        }
        return std::move(causes_);
    }

  private:
    struct Step {
        std::size_t depth;
        std::size_t stage;  // the place of the stage to be looked into; that is all, unless
        std::optional<Cause> cause;  // this stands alone
    };

    void push(std::size_t depth, std::size_t stage, std::optional<Cause> cause) {
        todo_.push_back({depth, stage, std::move(cause)});
    }

    void take(const Step& step) {
        // What is taken at this depth is no way from what was taken there before.
        path_.resize(std::min(path_.size(), step.depth));
        if (step.cause) {
            add(step.depth, *step.cause);
            return;
        }
        const StageHistory& stage = waits_.stage(step.stage);
        std::size_t below = step.depth;
        if (step.depth != 0) {  // the first is what is being explained
            if (seen_[step.stage]) return again(step.depth, step.stage);
            Cause waits{0, Kind::waits};
            waits.stage = stage.name;
            waits.since = stage.start ? stage.start : stage.ready;
            waits.text = fmt::format("{} {}", shown(stage.name),
                                     waits_.notStarted(step.stage) ? "has not started"
                                     : stage.timedOut ? "timed out, and is not complete"
                                                      : "is not complete");
            add(step.depth, waits);
        }
        ++below;
        seen_[step.stage] = true;
        path_.resize(step.depth, waits_.size());
        path_.push_back(step.stage);
        expand(below, step.stage);
    }

    void again(std::size_t depth, std::size_t place) {
        const std::string name = shown(waits_.stage(place).name);
        const auto at = std::find(path_.begin(), path_.end(), place);
        Cause cause{0, at == path_.end() ? Kind::explained : Kind::cycle};
        cause.stage = waits_.stage(place).name;
        if (at == path_.end()) {
            cause.text = name + " is not complete either, for the reasons above";
        } else {
            std::vector<std::size_t> cycle(at, path_.end());
            std::erase(cycle, waits_.size());
            cause = waits_.cycle(cycle);
        }
        add(depth, std::move(cause));
    }

    // What a stage waits for, the last on top.
    void expand(std::size_t depth, std::size_t place) {
        const StageHistory& stage = waits_.stage(place);
        if (!waits_.notStarted(place)) {
            for (Cause& cause : waits_.pending(place)) add(depth, std::move(cause));
            return;
        }
        std::vector<Step> steps;
        for (const Orv::String& name : stage.outcome.incompleteDependencies) {
            const std::size_t other = waits_.place(name.view());
            if (other == waits_.size())
                steps.push_back({depth, other, waits_.missing(name.view())});
            else
                steps.push_back({depth, other, {}});
        }
        if (stage.outcome.heldByOperator) steps.push_back({depth, place, waits_.doNotStart(place)});
        if (waits_.heldByCritical(place)) {
            Cause first{0, Kind::criticalFirst};
            std::vector<std::string> names;
            for (const std::size_t other : waits_.critical())
                names.push_back(waits_.stage(other).name);
            first.text = fmt::format("{} is not critical, and critical stages start first: {}",
                                     shown(stage.name), list(names));
            if (criticalExplained_) {
                first.text += "; see above";
                steps.push_back({depth, place, first});
            } else {
                criticalExplained_ = true;
                steps.push_back({depth, place, first});
                for (const std::size_t other : waits_.critical())
                    steps.push_back({depth + 1, other, {}});
            }
        }
        for (auto step = steps.rbegin(); step != steps.rend(); ++step)
            todo_.push_back(std::move(*step));
    }

    void add(std::size_t depth, Cause cause) {
        cause.depth = depth == 0 ? 0 : depth - 1;
        causes_.push_back(std::move(cause));
    }

    const Waits& waits_;
    std::vector<bool> seen_;
    std::vector<std::size_t> path_;  // by depth
    std::vector<Step> todo_;
    std::vector<Cause> causes_;
    bool criticalExplained_ = false;
};

// Of a stage that has started: what its start waited for last, and what that one's did.
class Ascent {
  public:
    Ascent(const InstanceHistory& instance, const Waits& waits)
        : instance_(instance), waits_(waits) {}

    std::vector<Cause> from(std::size_t place) {
        std::vector<bool> seen(waits_.size(), false);
        while (!seen[place]) {
            seen[place] = true;
            const StageHistory& stage = waits_.stage(place);
            const double ready = stage.ready.value_or(instance_.enabled);
            const std::optional<CriticalWait> wait = criticalWait(instance_, stage);
            const double free = wait ? wait->until : ready;
            if (*stage.start > free) held(stage, free, wait ? "could have started" : "was ready");
            if (wait) heldForCritical(stage, *wait, ready);
            const StageHistory* const before = startedAfter(instance_, stage);
            if (before == nullptr) {
                began(stage);
                break;
            }
            if (wait && wait->opener == before)
                opened(stage, *before);
            else
                took(stage, *before);
            place = waits_.place(before->name);
        }
        return std::move(causes_);
    }

  private:
    void held(const StageHistory& stage, double since, const char* what) {
        Cause cause{0, Kind::held};
        cause.stage = stage.name;
        cause.since = since;
        cause.until = stage.start;
        cause.text = fmt::format("{} {} at {}, and was held by the operator for {}, until {}",
                                 shown(stage.name), what, timeText(since),
                                 timeText(*stage.start - since), timeText(*stage.start));
        causes_.push_back(std::move(cause));
    }

    void heldForCritical(const StageHistory& stage, const CriticalWait& wait, double ready) {
        Cause cause{0, Kind::held};
        cause.stage = stage.name;
        cause.since = ready;
        cause.until = wait.until;
        cause.text = fmt::format(
            "{} was ready at {}, but critical stages start first: the last of them, {}, started "
            "at {}",
            shown(stage.name), timeText(ready), shown(wait.last->name),
            timeText(*wait.last->start));
        if (wait.opener == nullptr && *wait.last->start < *stage.start)
            cause.text += fmt::format("; the manager looked again at {}", timeText(*stage.start));
        causes_.push_back(std::move(cause));
    }

    void took(const StageHistory& stage, const StageHistory& other) {
        took(fmt::format("{} comes after {}", shown(stage.name), shown(other.name)), other);
    }

    // The one whose completion ended the wait for critical stages.
    void opened(const StageHistory& stage, const StageHistory& other) {
        took(fmt::format("then {} had to wait until the next stage was complete: {}",
                         shown(stage.name), shown(other.name)),
             other);
    }

    void took(const std::string& how, const StageHistory& other) {
        Cause cause{0, Kind::took};
        cause.stage = other.name;
        cause.since = other.start;
        cause.until = other.end;
        cause.text = fmt::format("{}, which took {}, from {} to {}", how,
                                 timeText(*other.end - *other.start), timeText(*other.start),
                                 timeText(*other.end));
        if (other.outcome.state == State::passedOver) {
            cause.text += ", when it timed out and was passed over";
            std::vector<std::string> lost;
            for (const EventHistory& event : other.events)
                if (event.how == EventHistory::End::pending ||
                    (event.end && *event.end > *other.end))
                    lost.push_back(event.agent);
            if (!lost.empty()) cause.text += "; no report had come from " + list(lost);
            if (!lost.empty()) cause.agent = lost.front();
        } else if (const EventHistory* const last = lastEvent(other)) {
            cause.agent = last->agent;
            cause.text += last->how == EventHistory::End::assumed
                              ? "; the last report, of " + shown(last->agent) + ", was assumed"
                              : "; the last report was that of " + shown(last->agent);
        }
        causes_.push_back(std::move(cause));
    }

    static const EventHistory* lastEvent(const StageHistory& stage) {
        const EventHistory* last = nullptr;
        for (const EventHistory& event : stage.events)
            if (event.end && *event.end <= *stage.end &&
                (last == nullptr || *event.end >= *last->end))
                last = &event;
        return last;
    }

    void began(const StageHistory& stage) {
        Cause cause{0, Kind::began};
        cause.stage = stage.name;
        cause.since = instance_.enabled;
        // It may come after one that does not exist any more.
        cause.text =
            fmt::format("{} {}, and its instance began at {}", shown(stage.name),
                        stage.dependencies.empty() ? "comes after no other" : "waited for no other",
                        timeText(instance_.enabled));
        causes_.push_back(std::move(cause));
    }

    const InstanceHistory& instance_;
    const Waits& waits_;
    std::vector<Cause> causes_;
};

// How a stage that is complete, or was passed over, came to that.
std::vector<Cause> blemishes(const StageHistory& stage) {
    std::vector<Cause> causes;
    const std::string name = shown(stage.name);
    if (stage.outcome.state == State::late || stage.outcome.state == State::passedOver) {
        Cause cause{0, stage.outcome.state == State::late ? Kind::late : Kind::passedOver};
        cause.stage = stage.name;
        cause.since = stage.timedOut;
        cause.until = stage.end;
        const std::string when = stage.timedOut ? " at " + timeText(*stage.timedOut) : "";
        if (stage.outcome.state == State::late)
            cause.text =
                fmt::format("{} is critical and timed out{}; it was complete {} later", name, when,
                            timeText(stage.end.value_or(0) - stage.timedOut.value_or(0)));
        else
            cause.text =
                fmt::format("{} timed out{}, and progression went on without it", name, when);
        std::vector<std::string> pending;
        std::vector<std::string> afterwards;
        for (const EventHistory& event : stage.events) {
            if (event.how == EventHistory::End::pending)
                pending.push_back(event.agent);
            else if (event.end && stage.timedOut && *event.end > *stage.timedOut)
                afterwards.push_back(event.agent);
        }
        if (!pending.empty()) {
            cause.agent = pending.front();
            cause.text += "; still no report from " + list(pending);
        }
        if (!afterwards.empty()) {
            if (cause.agent.empty()) cause.agent = afterwards.front();
            cause.text += "; too late came " + list(afterwards);
        }
        causes.push_back(std::move(cause));
    }
    for (const EventHistory& event : stage.events) {
        if (event.how != EventHistory::End::assumed) continue;
        Cause cause{0, Kind::assumed};
        cause.stage = stage.name;
        cause.agent = event.agent;
        cause.since = event.end;
        cause.text = (event.reportedLate
                          ? fmt::format("{} reported late for {}, at {}", shown(event.agent), name,
                                        timeText(*event.reportedLate))
                          : fmt::format("{} did not report for {}", shown(event.agent), name)) +
                     fmt::format("; the manager assumed that it was done{}",
                                 event.end ? ", at " + timeText(*event.end) : std::string());
        causes.push_back(std::move(cause));
    }
    return causes;
}

std::vector<Cause> with(std::vector<Cause> causes, std::vector<Cause> more) {
    causes.insert(causes.end(), std::make_move_iterator(more.begin()),
                  std::make_move_iterator(more.end()));
    return causes;
}

// Of two ascending ones.
std::vector<std::size_t> united(const std::vector<std::size_t>& a,
                                const std::vector<std::size_t>& b) {
    std::vector<std::size_t> all;
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(all));
    return all;
}

// After a reboot request nothing else helps.
void onlyTheReboot(std::vector<Cause>& causes) {
    for (Cause& cause : causes)
        if (cause.kind != Kind::reboot) cause.release.clear();
}

std::string howItStands(const StageHistory& stage, double now) {
    const std::string name = shown(stage.name);
    const std::string started = stage.start ? "started at " + timeText(*stage.start) : "";
    switch (stage.outcome.state) {
        case State::notStarted: return name + " has not started";
        case State::running:
            return fmt::format("{} {} and is not complete after {}", name, started,
                               timeText(now - stage.start.value_or(now)));
        case State::overdue:
            return fmt::format("{} {}, timed out at {}, and is still waited for", name, started,
                               timeText(stage.timedOut.value_or(now)));
        case State::complete:
        case State::late:
            return fmt::format("{} {} and was complete at {}", name, started,
                               timeText(stage.end.value_or(now)));
        case State::passedOver: break;
    }
    return fmt::format("{} {} and was passed over at {}", name, started,
                       timeText(stage.end.value_or(now)));
}

std::string_view howItStands(InstanceOutcome::State state) {
    using Is = InstanceOutcome::State;
    switch (state) {
        case Is::complete: return "complete";
        case Is::running: return "running";
        case Is::held: return "held: no stage runs, and not all are complete";
        case Is::overdue: return "waiting for a critical stage that timed out";
        case Is::suspended: return "suspended by the operator";
        case Is::rebooting: return "stopped by a reboot request";
        case Is::unmanaged: break;
    }
    return "not managed";
}

// Which stages wait for what, the other way round.
class HeldBack {
  public:
    explicit HeldBack(const Waits& waits) : waits_(waits), dependents_(waits.size() + 1) {
        // The last is no stage: it stands for "some critical stage has not started".
        for (std::size_t i = 0; i < waits.size(); ++i) {
            if (!waits.notStarted(i)) continue;
            for (const Orv::String& name : waits.stage(i).outcome.incompleteDependencies) {
                const std::size_t other = waits.place(name.view());
                if (other != waits.size()) dependents_[other].push_back(i);
            }
            if (waits.heldByCritical(i)) dependents_[waits.size()].push_back(i);
        }
        for (const std::size_t critical : waits.critical())
            dependents_[critical].push_back(waits.size());
    }

    // All that wait for one of these, in the order of the class; themselves only if they do.
    std::vector<std::size_t> by(const std::vector<std::size_t>& stages) const {
        std::vector<bool> reached(dependents_.size(), false);
        std::vector<std::size_t> todo = stages;
        while (!todo.empty()) {
            const std::size_t place = todo.back();
            todo.pop_back();
            for (const std::size_t dependent : dependents_[place]) {
                if (reached[dependent]) continue;
                reached[dependent] = true;
                todo.push_back(dependent);
            }
        }
        std::vector<std::size_t> all;
        for (std::size_t i = 0; i < waits_.size(); ++i)
            if (reached[i]) all.push_back(i);
        return all;
    }

  private:
    const Waits& waits_;
    std::vector<std::vector<std::size_t>> dependents_;
};

// Stages that wait for each other, each cycle once: one for each group that hangs together.
std::vector<std::vector<std::size_t>> cycles(const Waits& waits) {
    // Whoever waits for nobody is taken out, and no longer waited for; what is left leads into a
    // cycle, wherever one goes.
    std::vector<std::vector<std::size_t>> needs(waits.size());
    std::vector<std::vector<std::size_t>> dependents(waits.size());
    std::vector<std::size_t> count(waits.size(), 0);
    std::vector<std::size_t> free;
    for (std::size_t i = 0; i < waits.size(); ++i) {
        if (waits.notStarted(i))
            for (const Orv::String& name : waits.stage(i).outcome.incompleteDependencies) {
                const std::size_t other = waits.place(name.view());
                if (other == waits.size()) continue;
                needs[i].push_back(other);
                dependents[other].push_back(i);
                ++count[i];
            }
        if (count[i] == 0) free.push_back(i);
    }
    while (!free.empty()) {
        const std::size_t i = free.back();
        free.pop_back();
        for (const std::size_t dependent : dependents[i])
            if (--count[dependent] == 0) free.push_back(dependent);
    }
    std::vector<std::vector<std::size_t>> found;
    std::vector<std::size_t> walk(waits.size(), 0);  // the number of the walk that came by
    for (std::size_t i = 0; i < waits.size(); ++i) {
        if (count[i] == 0 || walk[i] != 0) continue;
        std::vector<std::size_t> path;
        std::size_t at = i;
        while (walk[at] == 0) {
            walk[at] = i + 1;
            path.push_back(at);
            at = *std::find_if(needs[at].begin(), needs[at].end(),
                               [&](std::size_t other) { return count[other] != 0; });
        }
        if (walk[at] == i + 1)
            found.emplace_back(std::find(path.begin(), path.end(), at), path.end());
    }
    return found;
}

}  // namespace

std::string_view causeWord(Kind kind) {
    switch (kind) {
        case Kind::pendingReport: return "pending-report";
        case Kind::waits: return "waits";
        case Kind::missingStage: return "missing-stage";
        case Kind::cycle: return "cycle";
        case Kind::doNotStart: return "do-not-start";
        case Kind::criticalFirst: return "critical-first";
        case Kind::suspended: return "suspended";
        case Kind::reboot: return "reboot";
        case Kind::unmanaged: return "unmanaged";
        case Kind::notEnabled: return "not-enabled";
        case Kind::explained: return "explained";
        case Kind::passedOver: return "passed-over";
        case Kind::late: return "late";
        case Kind::assumed: return "assumed";
        case Kind::nextPass: return "next-pass";
        case Kind::took: return "took";
        case Kind::began: return "began";
        case Kind::held: break;
    }
    return "held";
}

std::vector<std::string> releases(const Explanation& explanation) {
    std::vector<std::string> all;
    for (const Cause& cause : explanation.causes)
        if (!cause.release.empty() && std::find(all.begin(), all.end(), cause.release) == all.end())
            all.push_back(cause.release);
    return all;
}

Explanation explainStage(const RunHistory& run, const InstanceHistory& instance,
                         const StageHistory& stage) {
    const Waits waits(run, instance);
    const auto place = static_cast<std::size_t>(&stage - instance.stages.data());
    Explanation made{instance.stageClass, instance.instance, stage.name,
                     howItStands(stage, run.end), false};
    if (!waits.notStarted(place)) {
        made.causes = stage.outcome.isComplete() ? blemishes(stage) : waits.pending(place);
        made.good = made.causes.empty() && stage.outcome.isComplete();
        if (run.reboot) onlyTheReboot(made.causes);
        if (stage.start)
            made.causes = with(std::move(made.causes), Ascent(instance, waits).from(place));
        return made;
    }
    made.causes = with(waits.instanceCauses(), Descent(waits).from(place));
    if (run.reboot) onlyTheReboot(made.causes);
    if (made.causes.empty()) made.causes.push_back(waits.nextPass(place));
    return made;
}

Explanation explainInstance(const RunHistory& run, const InstanceHistory& instance) {
    const Waits waits(run, instance);
    const HeldBack heldBack(waits);
    Explanation made{instance.stageClass, instance.instance, {}, {}, false};
    const auto add = [&](Cause cause, const std::vector<std::size_t>& held) {
        made.causes.push_back(std::move(cause));
        made.holdsBack.emplace_back();
        for (const std::size_t place : held)
            made.holdsBack.back().push_back(waits.stage(place).name);
    };

    std::vector<std::size_t> waiting;
    for (std::size_t i = 0; i < waits.size(); ++i)
        if (waits.notStarted(i)) waiting.push_back(i);
    for (Cause& cause : waits.instanceCauses()) add(std::move(cause), waiting);
    const bool stopped = !made.causes.empty();  // as a whole

    std::vector<std::string_view> missing;
    for (std::size_t i = 0; i < waits.size(); ++i) {
        const StageHistory& stage = waits.stage(i);
        if (stage.outcome.isComplete()) {
            for (Cause& cause : blemishes(stage)) add(std::move(cause), {});
        } else if (!waits.notStarted(i)) {
            for (Cause& cause : waits.pending(i)) add(std::move(cause), heldBack.by({i}));
        } else {
            if (stage.outcome.heldByOperator) {
                add(waits.doNotStart(i), united({i}, heldBack.by({i})));
            }
            const bool free = stage.outcome.incompleteDependencies.empty() &&
                              !stage.outcome.heldByOperator && !stage.outcome.heldByCritical;
            if (free && !stopped) add(waits.nextPass(i), united({i}, heldBack.by({i})));
            for (const Orv::String& name : stage.outcome.incompleteDependencies)
                if (waits.place(name.view()) == waits.size() &&
                    std::find(missing.begin(), missing.end(), name.view()) == missing.end())
                    missing.push_back(name.view());
        }
    }
    for (const std::string_view name : missing) {
        std::vector<std::size_t> first;
        for (const std::size_t i : waiting) {
            const auto& needs = waits.stage(i).outcome.incompleteDependencies;
            if (std::any_of(needs.begin(), needs.end(),
                            [&](const Orv::String& need) { return need.view() == name; }))
                first.push_back(i);
        }
        add(waits.missing(name), united(first, heldBack.by(first)));
    }
    for (const std::vector<std::size_t>& cycle : cycles(waits))
        add(waits.cycle(cycle), heldBack.by(cycle));
    if (run.reboot) onlyTheReboot(made.causes);
    made.good = made.causes.empty() && instance.state == InstanceOutcome::State::complete;
    made.text = instance.complete && instance.state == InstanceOutcome::State::complete
                    ? "complete at " + timeText(*instance.complete)
                    : std::string(howItStands(instance.state));
    if (instance.state == InstanceOutcome::State::complete && instance.disabled)
        made.text += ", and taken away at " + timeText(*instance.disabled);
    return made;
}

}  // namespace Host
