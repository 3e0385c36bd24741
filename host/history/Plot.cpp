#include "host/history/Plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/history/Svg.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

constexpr double margin = 16.0;
constexpr double chartWidth = 1000.0;
constexpr double widestName = 260.0;
constexpr double widestNote = 420.0;
constexpr double letters = 12.0;
constexpr double smallLetters = 10.0;
constexpr double rowHeight = 18.0;
constexpr double eventHeight = 13.0;
constexpr double headingHeight = 30.0;
constexpr double axisHeight = 20.0;
constexpr double tickDistance = 96.0;

// How a bar looks, and what the legend says of it.
enum class Look { work, held, timedOut, assumed, underWay, notStarted, limit, deadline, reboot };
constexpr std::pair<Look, const char*> legend[] = {
    {Look::work, "own time"},         {Look::held, "held"},
    {Look::timedOut, "timed out"},    {Look::assumed, "auto-completed"},
    {Look::underWay, "not finished"}, {Look::notStarted, "not started"},
    {Look::limit, "limit"},           {Look::deadline, "deadline"},
    {Look::reboot, "reboot request"}};

const char* className(Look look) {
    switch (look) {
        case Look::work: return "work";
        case Look::held: return "held";
        case Look::timedOut: return "timed-out";
        case Look::assumed: return "assumed";
        case Look::underWay: return "under-way";
        case Look::notStarted: return "not-started";
        case Look::limit: return "limit";
        case Look::deadline: return "deadline";
        case Look::reboot: break;
    }
    return "reboot";
}

// Each look differs by its pattern or its outline as well, for whoever sees no colours.
std::string definitions() {
    return fmt::format(
        R"(<style>
.work {{ fill: {blue}; }}
.held {{ fill: url(#p-held); stroke: #999999; stroke-width: 0.5; }}
.timed-out {{ fill: url(#p-timed-out); stroke: {vermilion}; stroke-width: 1; }}
.assumed {{ fill: url(#p-assumed); stroke: #9c6c00; stroke-width: 1; }}
.under-way {{ fill: #d6ecfa; stroke: {blue}; stroke-width: 1; stroke-dasharray: 4 2; }}
.not-started {{ fill: none; stroke: #999999; stroke-width: 1; stroke-dasharray: 1 3; }}
.limit {{ stroke: {ink}; stroke-width: 1.5; }}
.deadline {{ stroke: {vermilion}; stroke-width: 1.5; stroke-dasharray: 6 3; }}
.reboot {{ stroke: {ink}; stroke-width: 2.5; }}
.grid {{ stroke: {grid}; stroke-width: 1; }}
.pale {{ fill: {pale}; }}
.small {{ font-size: 10px; }}
</style>
<defs>
<pattern id="p-held" width="4" height="4" patternUnits="userSpaceOnUse">)"
        R"(<rect width="4" height="4" fill="#f2f2f2"/><path d="M0 4 L4 0" stroke="#9a9a9a" stroke-width="0.8"/></pattern>
<pattern id="p-timed-out" width="7" height="7" patternUnits="userSpaceOnUse">)"
        R"(<rect width="7" height="7" fill="{vermilion}"/><path d="M-1 1 L1 -1 M0 7 L7 0 M6 8 L8 6" stroke="#ffffff" stroke-width="1.6"/></pattern>
<pattern id="p-assumed" width="6" height="6" patternUnits="userSpaceOnUse">)"
        R"(<rect width="6" height="6" fill="{orange}"/><circle cx="3" cy="3" r="1.3" fill="#ffffff"/></pattern>
</defs>
)",
        fmt::arg("blue", Ink::blue), fmt::arg("vermilion", Ink::vermilion),
        fmt::arg("orange", Ink::orange), fmt::arg("grid", Ink::grid), fmt::arg("ink", Ink::text),
        fmt::arg("pale", Ink::pale));
}

class Picture {
  public:
    Picture(const RunHistory& run, const PlotOptions& options) : run_(run), options_(options) {
        measure();
        for (std::size_t i = 0; i < run.instances.size(); ++i) instance(i);
        if (run.instances.empty())
            text(margin, y_ += 20.0, "No instance was enabled.", letters, "");
        else
            axis(y_ + 4.0), y_ += axisHeight + 4.0;
    }

    std::string svg() const {
        const double width =
            chartLeft_ + chartWidth + (noteWidth_ > 0.0 ? 12.0 + noteWidth_ : 0.0) + margin;
        std::string head;
        double y = 26.0;
        head += textAt(margin, y, fittingText(options_.title, width - 2 * margin, 16.0), 16.0,
                       R"(font-weight="bold")");
        y += 24.0;
        double x = margin;
        for (const auto& [look, words] : legend) {
            if (!used_.contains(look)) continue;
            const double needed = 30.0 + textWidth(words, letters) + 20.0;
            if (x > margin && x + needed > width - margin) {
                x = margin;
                y += 20.0;
            }
            head += sample(look, x, y);
            head += textAt(x + 30.0, y, words, letters, "");
            x += needed;
        }
        if (someCritical_) {
            if (x > margin && x + 110.0 > width - margin) {
                x = margin;
                y += 20.0;
            }
            head += textAt(x, y, "critical stage", letters, R"(font-weight="600")");
        }
        y += 14.0;
        const double height = y + y_ + margin;
        return svgBegin(width, height, options_.title) + definitions() + head +
               fmt::format("<g transform=\"translate(0 {})\">\n", svgNumber(y)) + body_ +
               "</g>\n</svg>\n";
    }

  private:
    double x(double time) const { return chartLeft_ + (time - origin_) / span_ * chartWidth; }

    static std::string textAt(double x, double y, std::string_view text, double size,
                              std::string_view attributes) {
        return fmt::format("<text x=\"{}\" y=\"{}\"{}{}{}>{}</text>\n", svgNumber(x), svgNumber(y),
                           size == letters ? "" : fmt::format(" font-size=\"{}\"", size),
                           attributes.empty() ? "" : " ", attributes, xmlText(text));
    }
    void text(double x, double y, std::string_view text, double size, std::string_view attributes) {
        body_ += textAt(x, y, text, size, attributes);
    }

    static std::string sample(Look look, double x, double y) {
        if (look == Look::limit || look == Look::deadline || look == Look::reboot)
            return fmt::format(
                "<line class=\"{0}\" x1=\"{2}\" x2=\"{2}\" y1=\"{1}\" y2=\"{3}\"/>\n",
                className(look), svgNumber(y - 12.0), svgNumber(x + 14.0), svgNumber(y + 3.0));
        return fmt::format("<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"24\" height=\"11\"/>\n",
                           className(look), svgNumber(x), svgNumber(y - 10.0));
    }

    void measure() {
        double end = 0.0;
        bool first = true;
        for (const InstanceHistory& instance : run_.instances) {
            origin_ = first ? instance.enabled : std::min(origin_, instance.enabled);
            first = false;
        }
        end = origin_;
        for (const InstanceHistory& instance : run_.instances) {
            const double last = until(run_, instance);
            end = std::max(end, last);
            for (const StageHistory& stage : instance.stages) {
                nameWidth_ = std::max(nameWidth_, textWidth(printable(stage.name), letters));
                noteWidth_ = std::max(noteWidth_, textWidth(note(instance, stage, last), letters));
                if (stage.end) end = std::max(end, *stage.end);
                if (!options_.participants) continue;
                for (const EventHistory& event : stage.events) {
                    nameWidth_ = std::max(nameWidth_,
                                          14.0 + textWidth(printable(event.agent), smallLetters));
                    if (event.end) end = std::max(end, *event.end);
                }
            }
        }
        // A deadline that is not far away is worth its room.
        double shown = end;
        for (const InstanceHistory& instance : run_.instances)
            if (instance.enabled + instance.deadline - origin_ <= (end - origin_) * 1.5)
                shown = std::max(shown, instance.enabled + instance.deadline);
        span_ = shown > origin_ ? shown - origin_ : 1.0;
        span_ *= 1.005;  // room for the last line
        nameWidth_ = std::min(nameWidth_, widestName);
        noteWidth_ = std::min(noteWidth_, widestNote);
        chartLeft_ = margin + nameWidth_ + 10.0;
    }

    std::string note(const InstanceHistory& instance, const StageHistory& stage,
                     double last) const {
        const StageTimes times = stageTimes(instance, stage, last);
        std::string made = stage.start ? timeText(times.own) : "";
        if (stage.start && times.held > 0.0)
            made += fmt::format(" (held {})", timeText(times.held));
        const std::string mark = markText(instance, stage);
        if (!mark.empty()) made += (made.empty() ? "" : " ") + mark;
        return made;
    }

    // Of the axis, from its origin.
    std::vector<double> marks() const {
        const double step = axisStep(span_, chartWidth / tickDistance);
        std::vector<double> all(static_cast<std::size_t>(span_ / step) + 1);
        for (std::size_t i = 0; i < all.size(); ++i) all[i] = step * static_cast<double>(i);
        return all;
    }

    void axis(double y) {
        for (const double mark : marks())
            text(x(origin_ + mark), y + 12.0, timeText(mark), smallLetters,
                 R"(text-anchor="middle" class="pale")");
    }

    void grid(double top, double bottom) {
        std::string path;
        for (const double mark : marks())
            path += fmt::format("M{} {}V{}", svgNumber(x(origin_ + mark)), svgNumber(top),
                                svgNumber(bottom));
        body_ += fmt::format("<path class=\"grid\" d=\"{}\"/>\n", path);
    }

    void line(Look look, double time, double top, double bottom, std::string_view what) {
        used_.insert(look);
        body_ += fmt::format(
            "<line class=\"{0}\" x1=\"{1}\" x2=\"{1}\" y1=\"{2}\" y2=\"{3}\"><title>{4}</title>"
            "</line>\n",
            className(look), svgNumber(x(time)), svgNumber(top), svgNumber(bottom), xmlText(what));
    }

    void bar(Look look, double from, double to, double top, double height, std::string_view what) {
        used_.insert(look);
        const double left = x(from);
        // However short, it is seen.
        const double width = std::max(x(to) - left, look == Look::held ? 0.5 : 1.5);
        body_ += fmt::format(
            "<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\"><title>{}</title>"
            "</rect>\n",
            className(look), svgNumber(left), svgNumber(top), svgNumber(width), svgNumber(height),
            xmlText(what));
    }

    void instance(std::size_t number) {
        const InstanceHistory& instance = run_.instances[number];
        const double last = until(run_, instance);
        std::string heading =
            fmt::format("{}: {} {}", instanceLabels(run_)[number],
                        instance.complete ? "complete after" : "not complete after",
                        timeText(last - instance.enabled));
        if (instance.state == InstanceOutcome::State::unmanaged)
            heading = instanceLabels(run_)[number] + ": not managed";
        if (std::isfinite(instance.deadline))
            heading += fmt::format(", deadline {}", timeText(instance.deadline));
        if (instance.disabled)
            heading +=
                fmt::format(", disabled after {}", timeText(*instance.disabled - instance.enabled));
        y_ += headingHeight;
        text(margin, y_ - 6.0, fittingText(heading, chartLeft_ + chartWidth - margin, letters + 1),
             letters + 1, R"(font-weight="bold")");
        axis(y_);
        y_ += axisHeight;
        const double top = y_;
        std::vector<const StageHistory*> stages;
        for (const StageHistory& stage : instance.stages) stages.push_back(&stage);
        std::stable_sort(stages.begin(), stages.end(),
                         [](const StageHistory* a, const StageHistory* b) {
                             if (a->start && b->start) return *a->start < *b->start;
                             return a->start && !b->start;
                         });
        std::string before = std::exchange(body_, {});
        std::size_t rows = 0;  // since the last axis
        for (std::size_t i = 0; i < stages.size(); ++i, ++rows) {
            // Far down, the axis stands there again.
            if (rows >= 40 && stages.size() - i > 10) {
                axis(y_);
                y_ += axisHeight;
                rows = 0;
            }
            stage(instance, *stages[i], last);
        }
        const double bottom = std::max(y_, top + 4.0);
        std::swap(before, body_);
        grid(top, bottom);
        body_ += before;
        const double deadline = instance.enabled + instance.deadline;
        if (deadline <= origin_ + span_)
            line(Look::deadline, deadline, top - 4.0, bottom,
                 "deadline " + timeText(instance.deadline));
        if (run_.reboot && run_.reboot->time >= instance.enabled &&
            run_.reboot->time <= origin_ + span_)
            line(Look::reboot, run_.reboot->time, top - 4.0, bottom,
                 "reboot request: " + run_.reboot->reason);
        y_ = bottom + 4.0;
    }

    void stage(const InstanceHistory& instance, const StageHistory& stage, double last) {
        const std::string full = note(instance, stage, last);
        const std::string what = printable(stage.name) + ": " + full;
        const double top = y_ + 3.0;
        const double height = rowHeight - 6.0;
        someCritical_ = someCritical_ || stage.outcome.critical;
        text(chartLeft_ - 10.0, y_ + 13.0, fittingText(stage.name, nameWidth_, letters), letters,
             stage.outcome.critical ? R"(text-anchor="end" font-weight="600")"
                                    : R"(text-anchor="end")");
        if (!stage.start) {
            used_.insert(Look::notStarted);
            bar(Look::notStarted, stage.ready.value_or(instance.enabled), last, top + 2.0,
                height - 4.0, what);
        } else {
            if (stage.ready && *stage.start > *stage.ready)
                bar(Look::held, *stage.ready, *stage.start, top + 2.0, height - 4.0, what);
            own(stage, last, top, height, what);
            const double limit = *stage.start + stage.limit;
            if (limit <= origin_ + span_)
                line(Look::limit, limit, y_ + 1.0, y_ + rowHeight - 1.0,
                     "limit " + timeText(stage.limit));
        }
        if (!full.empty())
            text(chartLeft_ + chartWidth + 12.0, y_ + 13.0, fittingText(full, noteWidth_, letters),
                 letters, R"(class="pale")");
        y_ += rowHeight;
        if (!options_.participants || !stage.start) return;
        for (const EventHistory& held : stage.events) event(stage, held, last);
        y_ += 3.0;
    }

    void own(const StageHistory& stage, double last, double top, double height,
             const std::string& what) {
        const double end = stage.end.value_or(last);
        const double out = stage.timedOut.value_or(end);
        const bool assumed = !assumedAgents(stage).empty();
        switch (stage.outcome.state) {
            case StageOutcome::State::passedOver:
                bar(Look::timedOut, *stage.start, end, top, height, what);
                break;
            case StageOutcome::State::late:
            case StageOutcome::State::overdue:
                bar(stage.end ? Look::work : Look::underWay, *stage.start, out, top, height, what);
                bar(Look::timedOut, out, end, top, height, what);
                break;
            default:
                bar(!stage.end ? Look::underWay
                    : assumed  ? Look::assumed
                               : Look::work,
                    *stage.start, end, top, height, what);
        }
    }

    void event(const StageHistory& stage, const EventHistory& event, double last) {
        using End = EventHistory::End;
        const double end = event.end.value_or(std::max(last, *stage.start));
        // When its stage timed out. Until then it was in time, but for one that was passed over:
        // that looks like its stage.
        const double out = std::clamp(stage.timedOut.value_or(end), *stage.start, end);
        const bool passedOver = stage.outcome.state == StageOutcome::State::passedOver;
        const Look look = event.how == End::assumed                 ? Look::assumed
                          : event.how == End::pending && passedOver ? Look::timedOut
                          : event.how == End::pending               ? Look::underWay
                                                                    : Look::work;
        const std::string what =
            fmt::format("{}:{}: {} ({})", printable(stage.name), printable(event.agent),
                        timeText(end - *stage.start), endName(event.how));
        text(chartLeft_ - 10.0, y_ + 9.5, fittingText(event.agent, nameWidth_ - 14.0, smallLetters),
             smallLetters, R"(text-anchor="end" class="pale")");
        bar(look, *stage.start, out, y_ + 2.5, eventHeight - 6.0, what);
        if (out < end) bar(Look::timedOut, out, end, y_ + 2.5, eventHeight - 6.0, what);
        const double limit = *stage.start + event.limit;
        if (event.limit != stage.limit && limit <= origin_ + span_)
            line(Look::limit, limit, y_ + 1.0, y_ + eventHeight - 1.0,
                 "limit " + timeText(event.limit));
        y_ += eventHeight;
    }

    const RunHistory& run_;
    const PlotOptions& options_;
    double origin_ = 0.0;
    double span_ = 1.0;
    double nameWidth_ = 60.0;
    double noteWidth_ = 0.0;
    double chartLeft_ = 0.0;
    double y_ = 0.0;
    std::string body_;
    std::set<Look> used_;
    bool someCritical_ = false;
};

}  // namespace

double axisStep(double span, double most) {
    static constexpr double minutes[] = {15,   30,   60,   120,   300,   600,   900,
                                         1800, 3600, 7200, 10800, 21600, 43200, 86400};
    const double least = span / std::max(most, 1.0);
    if (least <= 10.0) {
        const double power = std::pow(10.0, std::floor(std::log10(std::max(least, 1e-6))));
        for (const double times : {1.0, 2.0, 5.0})
            if (power * times >= least) return power * times;
        return power * 10.0;
    }
    for (const double step : minutes)
        if (step >= least) return step;
    double days = 86400.0;
    while (days < least) days *= 2.0;
    return days;
}

std::string plot(const RunHistory& run, const PlotOptions& options) {
    return Picture(run, options).svg();
}

Json plotJson(const RunHistory& run) {
    Json::Array instances;
    for (const InstanceHistory& instance : run.instances) {
        const double end = until(run, instance);
        Json::Object object = instanceJson(instance, end);
        Json::Array stages;
        for (const StageHistory& stage : instance.stages)
            stages.push_back(stageJson(instance, stage, end));
        object.emplace_back("stages", std::move(stages));
        instances.emplace_back(std::move(object));
    }
    Json reboot;
    if (run.reboot)
        reboot = Json::Object{{"time", run.reboot->time},
                              {"mode", run.reboot->mode},
                              {"reason", run.reboot->reason},
                              {"description", run.reboot->description}};
    Json::Array messages;
    for (const RunHistory::Message& message : run.messages)
        messages.push_back(Json::Object{{"time", message.time},
                                        {"severity", static_cast<double>(message.severity)},
                                        {"id", message.identifier},
                                        {"text", message.text}});
    return Json::Object{{"schema", "stagemgr.plot/1"},
                        {"end", run.end},
                        {"reboot", std::move(reboot)},
                        {"messages", std::move(messages)},
                        {"instances", std::move(instances)}};
}

}  // namespace Host
