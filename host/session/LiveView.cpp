#include "host/session/LiveView.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/Terminal.h"
#include "host/Words.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

using StageState = StageOutcome::State;
using InstanceState = InstanceOutcome::State;

constexpr std::size_t lastCompletions = 3;  // that are shown

// Tenths: more would flicker.
std::string briefTime(double seconds) { return durationText(std::floor(seconds * 10) / 10, 0.1); }

// A line is cut as a whole before it gets its colour.
struct Line {
    std::string text;
    const char* colour = "";  // plain
};
constexpr const char* heading = "1";
constexpr const char* dim = "2";
constexpr const char* good = "32";
constexpr const char* notice = "36";
constexpr const char* warning = "33";
constexpr const char* bad = "1;31";

class Instance {
  public:
    Instance(const InstanceHistory& instance, double now, const LiveStyle& style)
        : instance_(instance), now_(now), style_(style) {
        for (const StageHistory& stage : instance.stages)
            nameWidth_ = std::max(nameWidth_, terminalColumns(printable(stage.name)));
        nameWidth_ = std::min(nameWidth_, std::max<std::size_t>(style.columns / 4, 8));
    }

    Line header() const {
        std::string text =
            printable(instance_.stageClass) + "/" + printable(instance_.instance) + "  " + state();
        if (!over() && !std::isinf(instance_.deadline)) {
            const double left = instance_.enabled + instance_.deadline - now_;
            text += left >= 0 ? "  deadline in " + briefTime(left)
                              : "  deadline was " + briefTime(-left) + " ago";
        }
        const auto complete =
            std::count_if(instance_.stages.begin(), instance_.stages.end(),
                          [](const StageHistory& stage) { return stage.outcome.isComplete(); });
        text += fmt::format("  {} of {} stage{} complete", complete, instance_.stages.size(),
                            instance_.stages.size() == 1 ? "" : "s");
        return {std::move(text), heading};
    }

    // What is most urgent first.
    std::vector<Line> lines() const {
        std::vector<Line> running;
        std::vector<Line> held;
        std::vector<Line> waiting;
        std::vector<const StageHistory*> complete;
        for (const StageHistory& stage : instance_.stages) {
            switch (stage.outcome.state) {
                case StageState::overdue: running.insert(running.begin(), overdue(stage)); break;
                case StageState::running: running.push_back(this->running(stage)); break;
                case StageState::notStarted:
                    (isHeld(stage) ? held : waiting).push_back(notStarted(stage));
                    break;
                default: complete.push_back(&stage);
            }
        }
        std::vector<Line> all = std::move(running);
        all.insert(all.end(), held.begin(), held.end());
        std::stable_sort(complete.begin(), complete.end(), [](const auto* a, const auto* b) {
            return a->end.value_or(0) > b->end.value_or(0);
        });
        complete.resize(std::min(complete.size(), lastCompletions));
        for (const StageHistory* const stage : complete) all.push_back(completed(*stage));
        all.insert(all.end(), waiting.begin(), waiting.end());
        return all;
    }

  private:
    bool over() const {
        return instance_.state == InstanceState::complete ||
               instance_.state == InstanceState::rebooting ||
               instance_.state == InstanceState::unmanaged;
    }

    std::string state() const {
        const std::string elapsed = briefTime(now_ - instance_.enabled);
        switch (instance_.state) {
            case InstanceState::complete:
                return "complete after " +
                       briefTime(instance_.complete.value_or(now_) - instance_.enabled);
            case InstanceState::running: return "running for " + elapsed;
            case InstanceState::held: return "held, after " + elapsed;
            case InstanceState::overdue:
                return "waiting for a critical stage that timed out, after " + elapsed;
            case InstanceState::suspended: return "suspended, after " + elapsed;
            case InstanceState::rebooting: return "stopped by the reboot request";
            case InstanceState::unmanaged: break;
        }
        return "not managed" +
               (instance_.missing.empty() ? "" : ": no " + printable(instance_.missing));
    }

    std::string name(const StageHistory& stage) const {
        return cutToColumns(printable(stage.name), nameWidth_, true);
    }

    Line overdue(const StageHistory& stage) const {
        return {fmt::format("  ! {}  timed out {} ago, waits for {}", name(stage),
                            briefTime(now_ - stage.timedOut.value_or(now_)),
                            printableList(stage.outcome.pendingAgents)),
                bad};
    }

    Line running(const StageHistory& stage) const {
        const std::size_t width = style_.columns >= 100 ? 24 : style_.columns >= 60 ? 12 : 6;
        const double elapsed = std::max(0.0, now_ - stage.start.value_or(now_));
        const double used =
            std::isinf(stage.limit) || stage.limit <= 0 ? 0 : std::min(elapsed / stage.limit, 1.0);
        const auto full = static_cast<std::size_t>(used * static_cast<double>(width));
        std::string bar = std::isinf(stage.limit)
                              ? cutToColumns("no limit", width + 2, true)
                              : "[" + std::string(full, '#') + std::string(width - full, '.') + "]";
        std::string time = briefTime(elapsed);
        if (!std::isinf(stage.limit)) time += " of " + durationText(stage.limit, 0.1);
        return {fmt::format("  > {}  {}  {}  {}", name(stage), bar, cutToColumns(time, 14, true),
                            printableList(stage.outcome.pendingAgents)),
                used > 0.8 ? warning : notice};
    }

    // By somebody, rather than by stages that are on their way.
    bool isHeld(const StageHistory& stage) const {
        return stage.outcome.heldByOperator || isLost(stage) ||
               stage.outcome.incompleteDependencies.empty();
    }
    // A stage that it depends on does not exist.
    bool isLost(const StageHistory& stage) const {
        const auto& needs = stage.outcome.incompleteDependencies;
        return std::any_of(needs.begin(), needs.end(), [&](const Orv::String& need) {
            return instance_.stage(need.view()) == nullptr;
        });
    }

    Line notStarted(const StageHistory& stage) const {
        std::vector<std::string> reasons;
        if (stage.outcome.heldByOperator) reasons.emplace_back("on the do-not-start list");
        std::vector<Orv::String> missing;
        std::vector<Orv::String> incomplete;
        for (const Orv::String& need : stage.outcome.incompleteDependencies)
            (instance_.stage(need.view()) == nullptr ? missing : incomplete).push_back(need);
        if (!missing.empty()) reasons.push_back("there is no stage " + printableList(missing));
        if (!incomplete.empty()) reasons.push_back("after " + printableList(incomplete));
        if (stage.outcome.heldByCritical && incomplete.empty())
            reasons.emplace_back("critical stages start first");
        if (instance_.state == InstanceState::suspended && incomplete.empty())
            reasons.emplace_back("suspended by the operator");
        const bool held = isHeld(stage);
        return {fmt::format("  {} {}  {}", held ? "-" : " ", name(stage), fmt::join(reasons, "; ")),
                held ? warning : dim};
    }

    Line completed(const StageHistory& stage) const {
        std::string text =
            fmt::format("  + {}  {}", name(stage),
                        stage.outcome.state == StageState::passedOver ? "timed out, passed over"
                        : stage.outcome.state == StageState::late     ? "complete, but late"
                                                                      : "complete");
        if (!stage.outcome.assumedAgents.empty())
            text += ", assumed for " + printableList(stage.outcome.assumedAgents);
        if (stage.start && stage.end)
            text += fmt::format(" after {}, {} ago", briefTime(*stage.end - *stage.start),
                                briefTime(now_ - *stage.end));
        const bool fine =
            stage.outcome.state == StageState::complete && stage.outcome.assumedAgents.empty();
        return {std::move(text), fine ? good : warning};
    }

    const InstanceHistory& instance_;
    double now_;
    const LiveStyle& style_;
    std::size_t nameWidth_ = 0;
};

}  // namespace

std::vector<std::string> liveLines(const RunHistory& run, double now, const LiveStyle& style) {
    std::size_t room = std::max<std::size_t>(style.rows, 2) - 1;
    std::vector<Line> lines;
    if (run.reboot && room > 1) {
        lines.push_back({"reboot requested: " + printable(run.reboot->reason), bad});
        --room;
    }
    std::vector<const InstanceHistory*> instances;
    for (const InstanceHistory& instance : run.instances)
        if (!instance.disabled) instances.push_back(&instance);
    if (instances.empty()) lines.push_back({"no instance has begun", dim});
    const std::size_t shown =
        instances.size() <= room ? instances.size() : std::max<std::size_t>(room - 1, 0);
    // Each instance gets an equal part of what is left.
    std::size_t left = room - shown - (shown < instances.size() ? 1 : 0);
    for (std::size_t i = 0; i < shown; ++i) {
        const Instance instance(*instances[i], now, style);
        lines.push_back(instance.header());
        std::vector<Line> more = instance.lines();
        const std::size_t part = left / (shown - i);
        if (more.size() > part) {
            const std::size_t kept = part == 0 ? 0 : part - 1;
            const std::size_t hidden = more.size() - kept;
            more.resize(kept);
            if (part != 0) more.push_back({fmt::format("    and {} more", hidden), dim});
        }
        left -= more.size();
        lines.insert(lines.end(), more.begin(), more.end());
    }
    if (shown < instances.size())
        lines.push_back({fmt::format("and {} more instances", instances.size() - shown), dim});

    std::vector<std::string> made;
    for (const Line& line : lines) {
        std::string text = cutToColumns(line.text, style.columns);
        if (style.colour && *line.colour != '\0')
            text = fmt::format("\033[{}m{}\033[0m", line.colour, text);
        made.push_back(std::move(text));
    }
    return made;
}

namespace {

// Of a line with colours.
std::size_t columnsOf(std::string_view line) {
    std::string text;
    while (!line.empty()) {
        const std::size_t escape = line.find('\033');
        text += line.substr(0, escape);
        const std::size_t end = escape == line.npos ? line.npos : line.find('m', escape);
        line.remove_prefix(end == line.npos ? line.size() : end + 1);
    }
    return terminalColumns(text);
}

}  // namespace

void LiveView::draw(double now, const std::vector<std::string>& lines, std::size_t columns) {
    columns_ = std::max<std::size_t>(columns, 1);
    const std::string before = erasing();
    lines_ = lines;
    drawn_ = now;
    out_ << before << drawing() << std::flush;
}

void LiveView::above(std::string_view lines) {
    out_ << erasing() << lines << drawing() << std::flush;
}

void LiveView::clear() {
    out_ << erasing() << std::flush;
    lines_.clear();
}

std::string LiveView::erasing() const {
    std::size_t rows = 0;
    for (const std::string& line : lines_)
        rows += std::max<std::size_t>((columnsOf(line) + columns_ - 1) / columns_, 1);
    return rows == 0 ? std::string() : fmt::format("\r\033[{}A\033[J", rows);
}

std::string LiveView::drawing() const {
    std::string text;
    for (const std::string& line : lines_) text += line + "\n";
    return text;
}

}  // namespace Host
