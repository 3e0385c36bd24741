#include "host/history/Diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <queue>
#include <utility>

#include "host/Table.h"
#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

constexpr double tolerance = 1e-3;

bool changed(double by) { return std::abs(by) > tolerance; }

// How long a complete instance would have taken, had its stages other own times: each starts as
// long after what it waited for as it did. It goes from completion to completion, as the manager
// does: what is not critical starts in the pass after the one that started the last critical stage,
// and a pass is made whenever stages are complete.
class Model {
  public:
    explicit Model(const InstanceHistory& instance) : stages_(instance.stages.size()) {
        std::map<std::string_view, std::size_t> numbers;
        for (std::size_t i = 0; i < instance.stages.size(); ++i)
            numbers.emplace(instance.stages[i].name, i);
        for (std::size_t i = 0; i < instance.stages.size(); ++i) {
            const StageHistory& stage = instance.stages[i];
            Stage& made = stages_[i];
            if (!stage.start || !stage.end) continue;
            made.ran = true;
            made.start = *stage.start - instance.enabled;
            made.own = *stage.end - *stage.start;
            made.critical = stage.outcome.critical;
            for (const std::string& name : stage.dependencies)
                if (const auto other = numbers.find(name); other != numbers.end())
                    made.after.push_back(other->second);
        }
        for (std::size_t i = 0; i < stages_.size(); ++i) {
            Stage& stage = stages_[i];
            std::erase_if(stage.after, [&](std::size_t other) {
                return !stages_[other].ran ||
                       stages_[other].start + stages_[other].own > stage.start + sameTime;
            });
            for (const std::size_t other : stage.after) stages_[other].before.push_back(i);
        }
        Progression(stages_, stages_.size(), 0.0).learn(stages_);
    }

    // With that stage's own time instead of its own; that of none: as it was.
    double total(std::size_t changed, double own) const {
        return Progression(stages_, changed, own).total();
    }

  private:
    // No more apart than sums of the same times may be.
    static constexpr double sameTime = 1e-6;
    static constexpr double never = std::numeric_limits<double>::infinity();

    // What a stage waits for besides those that it comes after.
    enum class Gate {
        none,      // nothing; or it did not wait, since the last critical one became so later
        pass,      // the pass after that in which the last critical stage started
        critical,  // the start of the last critical stage: the operator called for the next pass
    };
    struct Stage {
        bool ran = false;
        bool critical = false;
        Gate gate = Gate::none;
        double start = 0.0;
        double own = 0.0;
        double rest = 0.0;                 // from the end of its waiting to its start
        std::vector<std::size_t> after{};  // that it waited for
        std::vector<std::size_t> before{};
    };

    // One run of it.
    class Progression {
      public:
        Progression(const std::vector<Stage>& stages, std::size_t changed, double own)
            : stages_(stages), changed_(changed), own_(own), waits_(stages.size()) {}

        double total() {
            begin();
            while (!events_.empty()) step();
            return last_;
        }

        // Goes through the run as it was, and writes down what each stage waited for and how long
        // it rested then.
        void learn(std::vector<Stage>& stages) {
            learned_ = &stages;
            begin();
            for (;;) {
                const double next = events_.empty() ? never : events_.top().time;
                // The operator let it start.
                const auto early = std::min_element(
                    free_.begin(), free_.end(),
                    [&](auto a, auto b) { return stages_[a].start < stages_[b].start; });
                if (early != free_.end() && stages_[*early].start < next - sameTime) {
                    const std::size_t i = *early;
                    free_.erase(early);
                    const bool critical = criticalNotStarted_ == 0;
                    learned(i, critical ? Gate::critical : Gate::none,
                            critical ? std::max(freeSince_[i], lastCritical_) : freeSince_[i]);
                    start(i, stages_[i].start);
                } else if (next < never) {
                    step();
                } else {
                    return;
                }
            }
        }

      private:
        struct Event {
            double time;
            std::size_t stage;
            bool ends;  // or else it starts
            bool operator>(const Event& other) const { return time > other.time; }
        };

        void begin() {
            freeSince_.resize(stages_.size());
            for (std::size_t i = 0; i < stages_.size(); ++i) {
                waits_[i] = stages_[i].after.size();
                if (stages_[i].ran && stages_[i].critical) ++criticalNotStarted_;
                if (stages_[i].ran && waits_[i] == 0) free_.push_back(i);
            }
            pass(0.0);
        }

        void step() {
            const double now = events_.top().time;
            bool some = false;  // is complete
            while (!events_.empty() && events_.top().time <= now + sameTime) {
                const Event event = events_.top();
                events_.pop();
                if (!event.ends) {
                    start(event.stage, event.time);
                    continue;
                }
                some = true;
                last_ = std::max(last_, event.time);
                for (const std::size_t next : stages_[event.stage].before) {
                    if (--waits_[next] != 0 || !stages_[next].ran) continue;
                    freeSince_[next] = now;
                    free_.push_back(next);
                }
            }
            if (some) pass(now);
        }

        void pass(double now) {
            open_ = open_ || criticalNotStarted_ == 0;
            const std::vector<std::size_t> free = std::exchange(free_, {});
            // The critical ones first: what waits for nothing but their starts goes on.
            for (const bool critical : {true, false})
                for (const std::size_t i : free) {
                    const Stage& stage = stages_[i];
                    if (stage.critical != critical) continue;
                    if (held(stage)) {
                        free_.push_back(i);
                        continue;
                    }
                    if (learned_ != nullptr) learned(i, critical ? Gate::none : Gate::pass, now);
                    if (stage.rest > 0.0)
                        events_.push({now + stage.rest, i, false});
                    else
                        start(i, now);
                }
        }

        bool held(const Stage& stage) const {
            if (learned_ != nullptr) return !stage.critical && !open_;
            return (stage.gate == Gate::pass && !open_) ||
                   (stage.gate == Gate::critical && criticalNotStarted_ != 0);
        }

        void learned(std::size_t i, Gate gate, double waited) {
            Stage& stage = (*learned_)[i];
            stage.gate = gate;
            stage.rest = stage.start - waited;
            if (stage.rest < sameTime) stage.rest = 0.0;
        }

        void start(std::size_t i, double now) {
            if (learned_ != nullptr) now = stages_[i].start;  // lest differences add up
            events_.push({now + (i == changed_ ? own_ : stages_[i].own), i, true});
            if (!stages_[i].critical) return;
            lastCritical_ = now;
            if (--criticalNotStarted_ != 0 || learned_ != nullptr) return;
            // What waited for no pass starts now.
            for (const std::size_t other : std::exchange(free_, {}))
                if (stages_[other].gate == Gate::critical)
                    events_.push({now + stages_[other].rest, other, false});
                else
                    free_.push_back(other);
        }

        const std::vector<Stage>& stages_;
        std::size_t changed_;
        double own_;
        std::vector<Stage>* learned_ = nullptr;
        std::vector<std::size_t> waits_;  // how many it still waits for
        std::vector<std::size_t> free_;   // that wait for none, and have not started
        std::vector<double> freeSince_;
        std::size_t criticalNotStarted_ = 0;
        double lastCritical_ = 0.0;  // when it started
        bool open_ = false;
        double last_ = 0.0;
        std::priority_queue<Event, std::vector<Event>, std::greater<>> events_;
    };

    std::vector<Stage> stages_;
};

std::string outcomeOf(const InstanceHistory& instance, const StageHistory& stage) {
    return markText(instance, stage);
}

std::optional<double> ownTime(const InstanceHistory& instance, const StageHistory& stage,
                              double until) {
    if (!stage.start) return std::nullopt;
    return stageTimes(instance, stage, until).own;
}

std::optional<double> eventTime(const StageHistory& stage, const EventHistory& event,
                                double until) {
    if (!stage.start) return std::nullopt;
    return std::max(0.0, event.end.value_or(until) - *stage.start);
}

std::vector<EventDiff> eventDiffs(const StageHistory& before, double beforeUntil,
                                  const StageHistory& after, double afterUntil) {
    std::map<std::string_view, const EventHistory*> earlier;
    for (const EventHistory& event : before.events) earlier.emplace(event.agent, &event);
    std::vector<EventDiff> all;
    for (const EventHistory& event : after.events) {
        EventDiff made{event.agent, std::nullopt, eventTime(after, event, afterUntil)};
        if (const auto found = earlier.find(event.agent); found != earlier.end()) {
            made.before = eventTime(before, *found->second, beforeUntil);
            earlier.erase(found);
        }
        all.push_back(std::move(made));
    }
    for (const EventHistory& event : before.events)
        if (earlier.contains(event.agent))
            all.push_back({event.agent, eventTime(before, event, beforeUntil), std::nullopt});
    std::erase_if(all, [](const EventDiff& event) {
        return (!event.before && !event.after) ||
               (event.before && event.after && !changed(*event.after - *event.before));
    });
    const auto size = [](const EventDiff& event) {
        return std::abs(event.after.value_or(0.0) - event.before.value_or(0.0));
    };
    std::stable_sort(all.begin(), all.end(),
                     [&](const EventDiff& a, const EventDiff& b) { return size(a) > size(b); });
    return all;
}

void compareStages(InstanceDiff& instance, double beforeUntil, double afterUntil) {
    const bool complete = instance.before->complete && instance.after->complete;
    const std::optional<Model> model =
        complete ? std::optional<Model>(*instance.after) : std::nullopt;
    const double total = model ? model->total(instance.after->stages.size(), 0.0) : 0.0;
    for (std::size_t i = 0; i < instance.after->stages.size(); ++i) {
        const StageHistory& after = instance.after->stages[i];
        const StageHistory* const before = instance.before->stage(after.name);
        StageDiff made;
        made.name = after.name;
        made.after = ownTime(*instance.after, after, afterUntil);
        made.outcomeAfter = outcomeOf(*instance.after, after);
        if (before == nullptr) {
            made.kind = StageDiff::Kind::added;
            if (model && made.after) made.explains = total - model->total(i, 0.0);
            instance.stages.push_back(std::move(made));
            continue;
        }
        made.before = ownTime(*instance.before, *before, beforeUntil);
        made.outcomeBefore = outcomeOf(*instance.before, *before);
        if (before->start && after.start)
            made.startChange = (*after.start - instance.after->enabled) -
                               (*before->start - instance.before->enabled);
        const bool itself = made.before && made.after && changed(*made.after - *made.before);
        if (itself) {
            made.kind = StageDiff::Kind::itself;
            if (model) made.explains = total - model->total(i, *made.before);
            made.participants = eventDiffs(*before, beforeUntil, after, afterUntil);
        } else if (made.startChange && changed(*made.startChange)) {
            made.kind = StageDiff::Kind::waited;
            // When the operator held it longer, no stage is to blame.
            const StageHistory* const cause = startedAfter(*instance.after, after);
            if (cause != nullptr && *after.start - *cause->end <= tolerance)
                made.waitedFor = cause->name;
        } else if (made.outcomeBefore == made.outcomeAfter) {
            continue;
        }
        instance.stages.push_back(std::move(made));
    }
    for (const StageHistory& before : instance.before->stages) {
        if (instance.after->stage(before.name) != nullptr) continue;
        StageDiff made;
        made.name = before.name;
        made.kind = StageDiff::Kind::removed;
        made.before = ownTime(*instance.before, before, beforeUntil);
        made.outcomeBefore = outcomeOf(*instance.before, before);
        if (complete && made.before) {
            const Model earlier(*instance.before);
            const auto number = static_cast<std::size_t>(&before - instance.before->stages.data());
            made.explains =
                earlier.total(number, 0.0) - earlier.total(instance.before->stages.size(), 0.0);
        }
        instance.stages.push_back(std::move(made));
    }
    const auto rank = [](const StageDiff& stage) { return stage.kind == StageDiff::Kind::waited; };
    std::stable_sort(instance.stages.begin(), instance.stages.end(),
                     [&](const StageDiff& a, const StageDiff& b) {
                         if (rank(a) != rank(b)) return rank(b);
                         if (std::abs(a.explains) != std::abs(b.explains))
                             return std::abs(a.explains) > std::abs(b.explains);
                         return std::abs(a.after.value_or(0.0) - a.before.value_or(0.0)) >
                                std::abs(b.after.value_or(0.0) - b.before.value_or(0.0));
                     });
}

const char* kindName(StageDiff::Kind kind) {
    switch (kind) {
        case StageDiff::Kind::itself: return "itself";
        case StageDiff::Kind::waited: return "waited";
        case StageDiff::Kind::added: return "added";
        case StageDiff::Kind::removed: return "removed";
        case StageDiff::Kind::same: break;
    }
    return "same";
}

std::string timeOrDash(const std::optional<double>& time) { return time ? timeText(*time) : "-"; }

std::string why(const StageDiff& stage) {
    std::vector<std::string> parts;
    if (stage.kind == StageDiff::Kind::added) parts.emplace_back("only in the second run");
    if (stage.kind == StageDiff::Kind::removed) parts.emplace_back("only in the first run");
    constexpr std::size_t most = 3;
    for (std::size_t i = 0; i < std::min(most, stage.participants.size()); ++i)
        parts.push_back(fmt::format("{} {} -> {}", printable(stage.participants[i].agent),
                                    timeOrDash(stage.participants[i].before),
                                    timeOrDash(stage.participants[i].after)));
    if (stage.participants.size() > most)
        parts.push_back(fmt::format("{} more", stage.participants.size() - most));
    std::string text = fmt::format("{}", fmt::join(parts, ", "));
    if (stage.outcomeBefore != stage.outcomeAfter && stage.kind != StageDiff::Kind::added &&
        stage.kind != StageDiff::Kind::removed) {
        if (!text.empty()) text += "; ";
        text += fmt::format("was {}, is {}",
                            stage.outcomeBefore.empty() ? "complete" : stage.outcomeBefore,
                            stage.outcomeAfter.empty() ? "complete" : stage.outcomeAfter);
    }
    return text;
}

std::string instanceText(const InstanceDiff& instance, bool colour) {
    if (instance.before == nullptr) return instance.label + " is only in the second run.\n";
    if (instance.after == nullptr) return instance.label + " is only in the first run.\n";
    const double change = instance.afterTotal - instance.beforeTotal;
    std::string text = fmt::format(
        "{}: {}{} -> {}{} ({})\n", instance.label, timeText(instance.beforeTotal),
        instance.before->complete ? "" : " (not complete)", timeText(instance.afterTotal),
        instance.after->complete ? "" : " (not complete)",
        changed(change) ? changeText(change) : "no change");
    if (instance.before->state != instance.after->state)
        text += fmt::format("It was {}, and is {}.\n", stateName(instance.before->state),
                            stateName(instance.after->state));
    Table table({{"EXPLAINS", Table::Align::right},
                 {"OWN", Table::Align::right},
                 {"BEFORE", Table::Align::right},
                 {"AFTER", Table::Align::right},
                 {"STAGE"},
                 {"WHY"}});
    std::string waited;
    for (const StageDiff& stage : instance.stages) {
        if (stage.kind == StageDiff::Kind::waited) {
            waited +=
                fmt::format("{} only waited: it started {} {}{}.\n", printable(stage.name),
                            timeText(std::abs(*stage.startChange)),
                            *stage.startChange > 0 ? "later" : "earlier",
                            stage.waitedFor.empty() ? "" : ", after " + printable(stage.waitedFor));
            const std::string other = why(stage);
            if (!other.empty()) waited.insert(waited.size() - 2, "; it " + other);
            continue;
        }
        const bool both = stage.before && stage.after && changed(*stage.after - *stage.before);
        table.row({changed(stage.explains) ? changeText(stage.explains) : "-",
                   both ? changeText(*stage.after - *stage.before) : "-", timeOrDash(stage.before),
                   timeOrDash(stage.after), printable(stage.name), why(stage)});
    }
    if (!table.empty()) text += table.text(colour);
    return text + waited;
}

Json ownJson(const std::optional<double>& before, const std::optional<double>& after) {
    return Json::Object{{"before", jsonTime(before)}, {"after", jsonTime(after)}};
}

}  // namespace

std::vector<InstanceDiff> diff(const RunHistory& before, const RunHistory& after) {
    std::vector<InstanceDiff> all;
    std::map<std::string, std::size_t> places;
    const std::vector<std::string> beforeLabels = instanceLabels(before);
    const std::vector<std::string> afterLabels = instanceLabels(after);
    for (std::size_t i = 0; i < after.instances.size(); ++i) {
        places.emplace(afterLabels[i], all.size());
        InstanceDiff& made = all.emplace_back();
        made.label = afterLabels[i];
        made.after = &after.instances[i];
        made.afterTotal = until(after, *made.after) - made.after->enabled;
    }
    for (std::size_t i = 0; i < before.instances.size(); ++i) {
        const auto [place, alone] = places.emplace(beforeLabels[i], all.size());
        if (alone) all.emplace_back().label = beforeLabels[i];
        InstanceDiff& made = all[place->second];
        made.before = &before.instances[i];
        made.beforeTotal = until(before, *made.before) - made.before->enabled;
        if (made.after != nullptr)
            compareStages(made, made.beforeTotal + made.before->enabled,
                          made.afterTotal + made.after->enabled);
    }
    return all;
}

std::string diffText(const std::vector<InstanceDiff>& instances, bool colour) {
    std::string text;
    for (const InstanceDiff& instance : instances)
        text += (text.empty() ? "" : "\n") + instanceText(instance, colour);
    return text.empty() ? "No instance was enabled in either run.\n" : text;
}

Json diffJson(const std::vector<InstanceDiff>& instances) {
    Json::Array all;
    for (const InstanceDiff& instance : instances) {
        const InstanceHistory& some =
            instance.after != nullptr ? *instance.after : *instance.before;
        const auto state = [](const InstanceHistory* history) {
            return history != nullptr ? Json(stateName(history->state)) : Json();
        };
        Json::Array stages;
        for (const StageDiff& stage : instance.stages) {
            Json::Array participants;
            for (const EventDiff& event : stage.participants)
                participants.push_back(Json::Object{{"name", event.agent},
                                                    {"own", ownJson(event.before, event.after)}});
            stages.push_back(Json::Object{
                {"stage", stage.name},
                {"change", kindName(stage.kind)},
                {"explains", stage.explains},
                {"own", ownJson(stage.before, stage.after)},
                {"startChange", jsonTime(stage.startChange)},
                {"waitedFor", stage.waitedFor.empty() ? Json() : Json(stage.waitedFor)},
                {"marks",
                 Json::Object{{"before", stage.outcomeBefore}, {"after", stage.outcomeAfter}}},
                {"participants", std::move(participants)}});
        }
        all.push_back(Json::Object{
            {"class", some.stageClass},
            {"instance", some.instance},
            {"outcome",
             Json::Object{{"before", state(instance.before)}, {"after", state(instance.after)}}},
            {"total",
             ownJson(
                 instance.before != nullptr ? std::optional(instance.beforeTotal) : std::nullopt,
                 instance.after != nullptr ? std::optional(instance.afterTotal) : std::nullopt)},
            {"stages", std::move(stages)}});
    }
    return Json::Object{{"schema", "stagemgr.diff/1"}, {"instances", std::move(all)}};
}

}  // namespace Host
