#include "host/history/Diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "host/Table.h"
#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

constexpr double tolerance = 1e-3;

bool changed(double by) { return std::abs(by) > tolerance; }

// How long a complete instance would have taken, had its stages other own times: each starts as
// long after what it waited for as it did.
class Model {
  public:
    explicit Model(const InstanceHistory& instance) : stages_(instance.stages.size()) {
        std::map<std::string_view, std::size_t> numbers;
        for (std::size_t i = 0; i < instance.stages.size(); ++i)
            numbers.emplace(instance.stages[i].name, i);
        // The others start when the last critical one has started.
        double gate = 0.0;
        for (std::size_t i = 0; i < instance.stages.size(); ++i) {
            const StageHistory& stage = instance.stages[i];
            Stage& made = stages_[i];
            if (!stage.start || !stage.end) continue;
            made.ran = true;
            made.start = *stage.start - instance.enabled;
            made.own = *stage.end - *stage.start;
            made.critical = stage.outcome.critical;
            if (made.critical) gate = std::max(gate, made.start);
            for (const std::string& name : stage.dependencies)
                if (const auto other = numbers.find(name); other != numbers.end())
                    made.after.push_back(other->second);
        }
        for (Stage& stage : stages_) {
            std::erase_if(stage.after, [&](std::size_t other) {
                return !stages_[other].ran ||
                       stages_[other].start + stages_[other].own > stage.start + 1e-9;
            });
            double ready = 0.0;
            for (const std::size_t other : stage.after)
                ready = std::max(ready, stages_[other].start + stages_[other].own);
            stage.gated = !stage.critical && gate > ready && stage.start >= gate;
            stage.rest = stage.start - (stage.gated ? gate : ready);
        }
        // What a stage waited for started no later than it; of one moment, in the order of waiting.
        sort();
    }

    double total(std::size_t changed, double own) const {
        std::vector<double> end(stages_.size());
        double gate = 0.0;
        double last = 0.0;
        for (const bool gated : {false, true})
            for (const std::size_t i : order_) {
                const Stage& stage = stages_[i];
                if (stage.gatedBelow != gated) continue;
                double start = stage.gated ? gate : 0.0;
                for (const std::size_t other : stage.after) start = std::max(start, end[other]);
                start += stage.rest;
                if (stage.critical) gate = std::max(gate, start);
                end[i] = start + (i == changed ? own : stage.own);
                last = std::max(last, end[i]);
            }
        return last;
    }

  private:
    struct Stage {
        bool ran = false;
        bool critical = false;
        bool gated = false;
        bool gatedBelow = false;  // it is, or it waits for one that is
        double start = 0.0;
        double own = 0.0;
        double rest = 0.0;
        std::vector<std::size_t> after{};
    };

    void sort() {
        std::vector<std::size_t> waits(stages_.size());
        std::vector<std::vector<std::size_t>> behind(stages_.size());
        for (std::size_t i = 0; i < stages_.size(); ++i)
            for (const std::size_t other : stages_[i].after) {
                behind[other].push_back(i);
                ++waits[i];
            }
        for (std::size_t i = 0; i < stages_.size(); ++i)
            if (waits[i] == 0 && stages_[i].ran) order_.push_back(i);
        for (std::size_t at = 0; at < order_.size(); ++at) {
            Stage& stage = stages_[order_[at]];
            stage.gatedBelow = stage.gatedBelow || stage.gated;
            for (const std::size_t next : behind[order_[at]]) {
                if (stage.gatedBelow) stages_[next].gatedBelow = true;
                if (--waits[next] == 0 && stages_[next].ran) order_.push_back(next);
            }
        }
    }

    std::vector<Stage> stages_;
    std::vector<std::size_t> order_;
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
            const std::vector<const StageHistory*> latest =
                latestDependencies(*instance.after, after);
            // Held longer than its dependencies took: no stage is to blame.
            if (!latest.empty() && stageTimes(*instance.after, after, afterUntil).held <= tolerance)
                made.waitedFor = latest.front()->name;
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
