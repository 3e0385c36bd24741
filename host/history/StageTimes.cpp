#include "host/history/StageTimes.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "host/Words.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

std::vector<std::string> pendingAgents(const StageHistory& stage) {
    std::vector<std::string> agents;
    for (const EventHistory& event : stage.events)
        if (event.how == EventHistory::End::pending) agents.push_back(event.agent);
    return agents;
}

std::string whyNotStarted(const InstanceHistory& instance, const StageHistory& stage) {
    std::vector<std::string> reasons;
    std::vector<std::string> missing;
    std::vector<std::string> incomplete;
    for (const Orv::String& name : stage.outcome.incompleteDependencies) {
        const bool exists = instance.stage(name.view()) != nullptr;
        (exists ? incomplete : missing).emplace_back(name.view());
    }
    if (!incomplete.empty()) reasons.push_back("needs " + printableList(incomplete));
    if (!missing.empty()) reasons.push_back("needs what does not exist: " + printableList(missing));
    if (stage.outcome.heldByOperator) reasons.emplace_back("held by the do-not-start list");
    if (stage.outcome.heldByCritical) reasons.emplace_back("critical stages start first");
    if (instance.state == InstanceOutcome::State::rebooting)
        reasons.emplace_back("a reboot was requested");
    else if (instance.suspended)
        reasons.emplace_back("the instance is suspended");
    else if (!instance.disabled && waitsForNextCompletion(instance, stage))
        reasons.emplace_back("starts when the next stage is complete");
    return reasons.empty() ? "not started"
                           : fmt::format("not started: {}", fmt::join(reasons, ", "));
}

}  // namespace

std::string changeText(double seconds) {
    const std::string text = timeText(seconds);
    return text.starts_with('-') ? text : "+" + text;
}

std::string instanceLabel(const InstanceHistory& instance) {
    return printable(instance.stageClass) + "/" + printable(instance.instance);
}

std::vector<std::string> instanceLabels(const RunHistory& run) {
    std::vector<std::string> labels;
    std::map<std::string, int> times;
    for (const InstanceHistory& instance : run.instances) {
        std::string label = instanceLabel(instance);
        const int time = ++times[label];
        if (time > 1) label += fmt::format("#{}", time);
        labels.push_back(std::move(label));
    }
    return labels;
}

const char* stateName(InstanceOutcome::State state) {
    using State = InstanceOutcome::State;
    switch (state) {
        case State::complete: return "complete";
        case State::running: return "running";
        case State::held: return "held";
        case State::overdue: return "overdue";
        case State::suspended: return "suspended";
        case State::rebooting: return "rebooting";
        case State::unmanaged: break;
    }
    return "unmanaged";
}

const char* stateName(StageOutcome::State state) {
    using State = StageOutcome::State;
    switch (state) {
        case State::complete: return "complete";
        case State::late: return "late";
        case State::passedOver: return "passedOver";
        case State::running: return "running";
        case State::overdue: return "overdue";
        case State::notStarted: break;
    }
    return "notStarted";
}

const char* endName(EventHistory::End how) {
    using End = EventHistory::End;
    switch (how) {
        case End::reported: return "reported";
        case End::assumed: return "assumed";
        case End::withdrawn: return "withdrawn";
        case End::pending: break;
    }
    return "pending";
}

const char* kindName(Stretch::Kind kind) {
    using Kind = Stretch::Kind;
    switch (kind) {
        case Kind::work: return "work";
        case Kind::timedOut: return "timedOut";
        case Kind::assumed: return "assumed";
        case Kind::unfinished: return "unfinished";
        case Kind::held: break;
    }
    return "held";
}

double until(const RunHistory& run, const InstanceHistory& instance) {
    if (instance.complete) return *instance.complete;
    double end = instance.disabled.value_or(run.end);
    if (instance.state == InstanceOutcome::State::rebooting && run.reboot)
        end = std::min(end, run.reboot->time);
    return std::max(end, instance.enabled);
}

StageTimes stageTimes(const InstanceHistory& instance, const StageHistory& stage, double until) {
    const double ready = stage.ready.value_or(stage.start.value_or(until));
    const double start = stage.start.value_or(until);
    StageTimes times;
    times.waited = std::max(0.0, std::min(ready, start) - instance.enabled);
    times.held = std::max(0.0, start - ready);
    if (stage.start) times.own = std::max(0.0, stage.end.value_or(until) - start);
    return times;
}

std::optional<CriticalWait> criticalWait(const InstanceHistory& instance,
                                         const StageHistory& stage) {
    if (stage.outcome.critical || !stage.start || !stage.ready || *stage.start <= *stage.ready)
        return std::nullopt;
    CriticalWait wait{nullptr, nullptr, *stage.start};
    for (const StageHistory& other : instance.stages)
        if (other.outcome.critical && other.start && *other.start >= *stage.ready &&
            *other.start <= *stage.start &&
            (wait.last == nullptr || *other.start > *wait.last->start))
            wait.last = &other;
    if (wait.last == nullptr) return std::nullopt;
    // What ended in the moment in which the last one started is what let that one start, unless
    // the stage started in that moment as well: then it is what took no time.
    const double since = *wait.last->start;
    const bool atOnce = since == *stage.start;
    const auto rank = [&](const StageHistory& of) {
        const bool withIt = *of.start == *stage.start;
        return std::tuple(*of.end, withIt != atOnce, atOnce && !of.outcome.critical);
    };
    for (const StageHistory& other : instance.stages)
        if (&other != &stage && other.start && other.end && *other.end <= *stage.start &&
            (*other.end > since || (atOnce && *other.end == since)) &&
            (wait.opener == nullptr || rank(other) < rank(*wait.opener)))
            wait.opener = &other;
    if (wait.opener != nullptr) wait.until = *wait.opener->end;
    return wait;
}

const StageHistory* startedAfter(const InstanceHistory& instance, const StageHistory& stage) {
    if (!stage.start) return nullptr;
    if (const auto wait = criticalWait(instance, stage); wait && wait->opener != nullptr)
        return wait->opener;
    for (const StageHistory* const other : latestDependencies(instance, stage))
        if (other->start && other->end && *other->end <= *stage.start) return other;
    return nullptr;
}

bool waitsForNextCompletion(const InstanceHistory& instance, const StageHistory& stage) {
    using State = InstanceOutcome::State;
    return !stage.start && stage.outcome.incompleteDependencies.empty() &&
           !stage.outcome.heldByOperator && !stage.outcome.heldByCritical && !instance.suspended &&
           instance.state != State::complete && instance.state != State::unmanaged;
}

std::vector<std::string> assumedAgents(const StageHistory& stage) {
    std::vector<std::string> agents;
    for (const EventHistory& event : stage.events)
        if (event.how == EventHistory::End::assumed) agents.push_back(event.agent);
    return agents;
}

std::vector<std::string> marks(const InstanceHistory& instance, const StageHistory& stage) {
    using State = StageOutcome::State;
    std::vector<std::string> made;
    const std::string pending = printableList(pendingAgents(stage));
    const std::string whom = pending.empty() ? "" : ", waiting for " + pending;
    switch (stage.outcome.state) {
        case State::complete: break;
        case State::late: made.emplace_back("timed out, completed late"); break;
        case State::passedOver:
            made.push_back("timed out, passed over" +
                           (pending.empty() ? ", reported later" : ", no report from " + pending));
            break;
        case State::running: made.push_back("running" + whom); break;
        case State::overdue: made.push_back("timed out, critical" + whom); break;
        case State::notStarted: made.push_back(whyNotStarted(instance, stage)); break;
    }
    const std::vector<std::string> assumed = assumedAgents(stage);
    if (!assumed.empty()) made.push_back("auto-completed for " + printableList(assumed));
    return made;
}

std::string markText(const InstanceHistory& instance, const StageHistory& stage) {
    return fmt::format("{}", fmt::join(marks(instance, stage), "; "));
}

const StageHistory* lastStage(const InstanceHistory& instance) {
    const StageHistory* last = nullptr;
    const StageHistory* underWay = nullptr;
    std::vector<std::string_view> neededByOthers;
    for (const StageHistory& stage : instance.stages) {
        if (stage.end && (last == nullptr || *stage.end >= *last->end)) last = &stage;
        if (stage.start && !stage.end && (underWay == nullptr || *stage.start >= *underWay->start))
            underWay = &stage;
        if (!stage.start)
            neededByOthers.insert(neededByOthers.end(), stage.dependencies.begin(),
                                  stage.dependencies.end());
    }
    std::sort(neededByOthers.begin(), neededByOthers.end());
    if (!instance.complete) {
        const StageHistory* notStarted = nullptr;
        for (const StageHistory& stage : instance.stages)
            if (!stage.start && (notStarted == nullptr ||
                                 !std::binary_search(neededByOthers.begin(), neededByOthers.end(),
                                                     std::string_view(stage.name))))
                notStarted = &stage;
        if (notStarted != nullptr) return notStarted;
        if (underWay != nullptr) return underWay;
    }
    return last;
}

std::vector<const StageHistory*> latestDependencies(const InstanceHistory& instance,
                                                    const StageHistory& stage) {
    std::vector<const StageHistory*> all;
    for (const std::string& name : stage.dependencies)
        if (const StageHistory* const other = instance.stage(name)) all.push_back(other);
    std::stable_sort(all.begin(), all.end(), [](const StageHistory* a, const StageHistory* b) {
        if (a->end && b->end) return *a->end > *b->end;
        if (a->end || b->end) return !a->end;
        if (a->start && b->start) return *a->start > *b->start;
        return !a->start && b->start;
    });
    return all;
}

std::vector<Stretch> criticalPath(const InstanceHistory& instance, double until) {
    using Kind = Stretch::Kind;
    const StageHistory* stage = nullptr;
    const auto rank = [&](const StageHistory& of) {
        const bool overdue = of.outcome.state == StageOutcome::State::overdue;
        return std::tuple(!of.end, overdue, of.end.value_or(*of.start));
    };
    for (const StageHistory& other : instance.stages)
        if (other.start && *other.start <= until &&
            (stage == nullptr || rank(other) >= rank(*stage)))
            stage = &other;
    std::vector<Stretch> path;
    double end = until;  // of what is explained next
    const auto add = [&](Kind kind, const StageHistory* of, double from) {
        from = std::clamp(from, instance.enabled, end);
        if (from < end) path.push_back({kind, of, from, end});
        end = from;
    };
    if (stage != nullptr && stage->end && *stage->end < until)
        add(Kind::held, nullptr, *stage->end);
    std::set<const StageHistory*> met;
    while (stage != nullptr) {
        met.insert(stage);
        Kind kind = stage->end ? Kind::work : Kind::unfinished;
        if (stage->outcome.state == StageOutcome::State::passedOver) {
            kind = Kind::timedOut;
        } else if (stage->end) {
            const EventHistory* lastEvent = nullptr;
            for (const EventHistory& event : stage->events)
                if (event.end && *event.end <= *stage->end &&
                    (lastEvent == nullptr || *event.end >= *lastEvent->end))
                    lastEvent = &event;
            if (lastEvent != nullptr && lastEvent->how == EventHistory::End::assumed)
                kind = Kind::assumed;
        }
        add(kind, stage, *stage->start);
        const StageHistory* before = startedAfter(instance, *stage);
        if (met.contains(before)) before = nullptr;
        add(Kind::held, stage, before != nullptr ? *before->end : instance.enabled);
        stage = before;
    }
    if (end > instance.enabled) add(Kind::held, nullptr, instance.enabled);
    std::reverse(path.begin(), path.end());
    return path;
}

Json jsonTime(const std::optional<double>& time) { return time ? Json(*time) : Json(); }

Json jsonTexts(const std::vector<std::string>& texts) {
    return Json::Array(texts.begin(), texts.end());
}

Json stageJson(const InstanceHistory& instance, const StageHistory& stage, double until) {
    const StageTimes times = stageTimes(instance, stage, until);
    Json::Array participants;
    for (const EventHistory& event : stage.events)
        participants.push_back(Json::Object{
            {"name", event.agent},
            {"outcome", endName(event.how)},
            {"critical", event.critical},
            {"limit", event.limit},
            {"autoComplete", jsonTime(event.autoComplete)},
            {"end", jsonTime(event.end)},
            {"reportedLate", jsonTime(event.reportedLate)},
            {"own", stage.start ? Json(std::max(0.0, event.end.value_or(until) - *stage.start))
                                : Json()}});
    return Json::Object{{"stage", stage.name},
                        {"outcome", stateName(stage.outcome.state)},
                        {"critical", stage.outcome.critical},
                        {"dependencies", jsonTexts(stage.dependencies)},
                        {"limit", stage.limit},
                        {"ready", jsonTime(stage.ready)},
                        {"start", jsonTime(stage.start)},
                        {"timedOut", jsonTime(stage.timedOut)},
                        {"end", jsonTime(stage.end)},
                        {"waited", times.waited},
                        {"held", times.held},
                        {"own", stage.start ? Json(times.own) : Json()},
                        {"marks", jsonTexts(marks(instance, stage))},
                        {"participants", std::move(participants)}};
}

Json::Object instanceJson(const InstanceHistory& instance, double until) {
    return {{"class", instance.stageClass},
            {"instance", instance.instance},
            {"application", instance.application},
            {"outcome", stateName(instance.state)},
            {"enabled", instance.enabled},
            {"complete", jsonTime(instance.complete)},
            {"suspended", jsonTime(instance.suspended)},
            {"disabled", jsonTime(instance.disabled)},
            {"deadline", instance.deadline},
            {"until", until},
            {"total", until - instance.enabled}};
}

}  // namespace Host
