#include "host/history/TimeReport.h"

#include <fmt/format.h>

#include <array>

#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

using Kind = Stretch::Kind;

struct Shares {
    std::array<double, 5> of{};  // by kind
    double share(Kind kind) const { return of[static_cast<std::size_t>(kind)]; }
};

Shares shares(const InstanceHistory& instance, double until) {
    Shares sum;
    for (const Stretch& stretch : criticalPath(instance, until))
        sum.of[static_cast<std::size_t>(stretch.kind)] += stretch.end - stretch.start;
    return sum;
}

std::size_t completeStages(const InstanceHistory& instance) {
    std::size_t count = 0;
    for (const StageHistory& stage : instance.stages) count += stage.outcome.isComplete();
    return count;
}

std::string counted(std::size_t number, const char* what) {
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

std::string sum(const Shares& shares, double total) {
    static constexpr std::pair<Kind, const char*> words[] = {{Kind::work, "work"},
                                                             {Kind::timedOut, "timed out"},
                                                             {Kind::assumed, "auto-completed"},
                                                             {Kind::unfinished, "unfinished"},
                                                             {Kind::held, "held"}};
    std::string text;
    for (const auto& [kind, word] : words)
        if (shares.share(kind) > 0.0)
            text += fmt::format("{}{} ({})", text.empty() ? "" : " + ",
                                timeText(shares.share(kind)), word);
    return text.empty() ? timeText(total) : text + " = " + timeText(total);
}

std::string ending(const InstanceHistory& instance, const RunHistory& run) {
    using State = InstanceOutcome::State;
    switch (instance.state) {
        case State::complete: return "is complete";
        case State::running: return "is still running";
        case State::held: return "is held";
        case State::overdue: return "waits for a critical stage that timed out";
        case State::suspended: return "is suspended";
        case State::rebooting:
            return run.reboot ? fmt::format("was stopped by a reboot request ({})",
                                            printable(run.reboot->reason))
                              : "was stopped by a reboot request";
        case State::unmanaged: break;
    }
    return "is not managed";
}

}  // namespace

std::string timeReport(const RunHistory& run) {
    const std::vector<std::string> labels = instanceLabels(run);
    std::string text;
    for (std::size_t i = 0; i < run.instances.size(); ++i) {
        const InstanceHistory& instance = run.instances[i];
        const double end = until(run, instance);
        const std::size_t complete = completeStages(instance);
        if (i != 0) text += '\n';
        if (instance.state == InstanceOutcome::State::unmanaged && instance.stages.empty()) {
            text += fmt::format(
                "{} is not managed{}.\n", labels[i],
                instance.missing.empty() ? "" : ": there is no " + printable(instance.missing));
            continue;
        }
        text += fmt::format("{} {} {}.\n", labels[i],
                            instance.complete ? "finished in" : "is not finished after",
                            sum(shares(instance, end), end - instance.enabled));
        if (instance.complete) {
            const StageHistory* const last = lastStage(instance);
            if (last != nullptr)
                text += fmt::format("{} was the last of {}, after {}.\n", printable(last->name),
                                    counted(instance.stages.size(), "stage"),
                                    timeText(*last->end - instance.enabled));
        } else {
            text += fmt::format("It {}, with {} of {} complete.\n", ending(instance, run), complete,
                                counted(instance.stages.size(), "stage"));
        }
        if (instance.disabled)
            text += fmt::format("It was disabled after {}.\n",
                                timeText(*instance.disabled - instance.enabled));
    }
    return text.empty() ? "No instance was enabled.\n" : text;
}

Json timeJson(const RunHistory& run) {
    Json::Array instances;
    for (const InstanceHistory& instance : run.instances) {
        const double end = until(run, instance);
        const Shares sums = shares(instance, end);
        Json::Object object = instanceJson(instance, end);
        object.emplace_back("stages", static_cast<double>(instance.stages.size()));
        object.emplace_back("completeStages", static_cast<double>(completeStages(instance)));
        for (const Kind kind :
             {Kind::work, Kind::timedOut, Kind::assumed, Kind::unfinished, Kind::held})
            object.emplace_back(kindName(kind), sums.share(kind));
        Json::Array path;
        for (const Stretch& stretch : criticalPath(instance, end))
            path.push_back(Json::Object{
                {"kind", kindName(stretch.kind)},
                {"stage", stretch.stage != nullptr ? Json(stretch.stage->name) : Json()},
                {"start", stretch.start},
                {"end", stretch.end}});
        object.emplace_back("path", std::move(path));
        instances.emplace_back(std::move(object));
    }
    return Json::Object{
        {"schema", "stagemgr.time/1"}, {"end", run.end}, {"instances", std::move(instances)}};
}

}  // namespace Host
