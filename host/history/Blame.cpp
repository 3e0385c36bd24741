#include "host/history/Blame.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "host/Table.h"
#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

struct Row {
    const InstanceHistory* instance;
    std::size_t number;  // of the instance
    const StageHistory* stage;
    const EventHistory* event;  // null: the whole stage
    StageTimes times;
    std::optional<double> own;  // absent: never started
};

std::vector<Row> rows(const RunHistory& run, bool participants) {
    std::vector<Row> all;
    for (std::size_t i = 0; i < run.instances.size(); ++i) {
        const InstanceHistory& instance = run.instances[i];
        const double end = until(run, instance);
        for (const StageHistory& stage : instance.stages) {
            const StageTimes times = stageTimes(instance, stage, end);
            const auto own = stage.start ? std::optional(times.own) : std::nullopt;
            if (!participants) {
                all.push_back({&instance, i, &stage, nullptr, times, own});
                continue;
            }
            for (const EventHistory& event : stage.events)
                all.push_back({&instance, i, &stage, &event, times,
                               stage.start ? std::optional(std::max(
                                                 0.0, event.end.value_or(end) - *stage.start))
                                           : std::nullopt});
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const Row& a, const Row& b) {
        return a.own.value_or(-1.0) > b.own.value_or(-1.0);
    });
    return all;
}

std::string eventMark(const InstanceHistory& instance, const StageHistory& stage,
                      const EventHistory& event) {
    using End = EventHistory::End;
    if (!stage.start) return markText(instance, stage);
    switch (event.how) {
        case End::reported:
            return stage.timedOut && *event.end > *stage.timedOut ? "reported after the time-out"
                                                                  : "";
        case End::assumed: return "auto-completed";
        case End::withdrawn: return "withdrawn";
        case End::pending: break;
    }
    return stage.timedOut ? "timed out, no report" : "no report yet";
}

std::string markOf(const Row& row) {
    return row.event != nullptr ? eventMark(*row.instance, *row.stage, *row.event)
                                : markText(*row.instance, *row.stage);
}

std::string nameOf(const Row& row) {
    std::string name = printable(row.stage->name);
    if (row.event != nullptr) name += ":" + printable(row.event->agent);
    return name;
}

}  // namespace

std::string blame(const RunHistory& run, const BlameOptions& options) {
    const std::vector<std::string> labels = instanceLabels(run);
    Table table({{"OWN", Table::Align::right},
                 {"WAITED", Table::Align::right},
                 {"HELD", Table::Align::right},
                 {options.participants ? "PARTICIPANT" : "STAGE"},
                 {"INSTANCE"},
                 {""}});
    if (run.instances.size() == 1) table.hide(4);
    for (const Row& row : rows(run, options.participants))
        table.row({row.own ? timeText(*row.own) : "-", timeText(row.times.waited),
                   row.times.held > 0.0 ? timeText(row.times.held) : "-", nameOf(row),
                   labels[row.number], markOf(row)});
    return table.text(options.colour);
}

Json blameJson(const RunHistory& run, bool participants) {
    Json::Array all;
    for (const Row& row : rows(run, participants)) {
        Json::Object object{{"class", row.instance->stageClass},
                            {"instance", row.instance->instance},
                            {"instanceNumber", static_cast<double>(row.number)},
                            {"stage", row.stage->name}};
        if (row.event != nullptr) {
            object.emplace_back("participant", row.event->agent);
            object.emplace_back("outcome", endName(row.event->how));
        } else {
            object.emplace_back("outcome", stateName(row.stage->outcome.state));
        }
        object.emplace_back("own", jsonTime(row.own));
        object.emplace_back("waited", row.times.waited);
        object.emplace_back("held", row.times.held);
        object.emplace_back("mark", markOf(row));
        all.emplace_back(std::move(object));
    }
    return Json::Object{{"schema", "stagemgr.blame/1"},
                        {"of", participants ? "participants" : "stages"},
                        {"rows", std::move(all)}};
}

}  // namespace Host
