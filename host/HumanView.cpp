#include "host/HumanView.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "host/Outcome.h"
#include "host/Terminal.h"
#include "host/Tree.h"
#include "host/Words.h"
#include "model/InstanceStatus.h"
#include "runtime/Type.h"

namespace Host {

namespace {

constexpr std::size_t timeWidth = 8;
constexpr std::size_t narrowest = 24;  // for a text, however little room there is
constexpr std::size_t widestWho = 32;  // a longer name breaks out of its column

std::string padded(std::string text, std::size_t width) {
    const std::size_t columns = terminalColumns(text);
    if (columns < width) text.append(width - columns, ' ');
    return text;
}

std::string instanceLabel(std::string_view stageClass, std::string_view instance) {
    return printable(stageClass) + "/" + printable(instance);
}

// "class/instance" for a member of one of the class's collections.
std::string labelOf(const Orv::Entity& member) {
    const auto* const collection = dynamic_cast<const Orv::Entity*>(member.parent());
    const auto* const dir =
        collection != nullptr ? dynamic_cast<const Orv::Entity*>(collection->parent()) : nullptr;
    return dir != nullptr ? instanceLabel(dir->key(), member.key()) : printable(member.key());
}

std::string stageCount(const InstanceOutcome& outcome) {
    const std::size_t all = outcome.stages.size();
    const std::size_t complete = outcome.completeStages();
    if (all == 0) return "no stages";
    return complete == all ? fmt::format("{} stage{}", all, all == 1 ? "" : "s")
                           : fmt::format("{} of {} stages complete", complete, all);
}

}  // namespace

std::string HumanView::coloured(std::string_view text, Colour colour) const {
    if (!style_.colour || colour == Colour::plain || text.empty()) return std::string(text);
    const auto code = [&] {
        switch (colour) {
            case Colour::dim: return "2";
            case Colour::good: return "32";
            case Colour::notice: return "36";
            case Colour::warning: return "33";
            case Colour::bad: return "1;31";
            case Colour::plain: break;
        }
        return "0";
    }();
    return fmt::format("\033[{}m{}\033[0m", code, text);
}

void HumanView::wrapped(const std::string& first, std::string_view text, Colour colour) {
    const std::size_t indent = terminalColumns(first);
    // What is indented goes on at its own indentation.
    const std::size_t inner = std::min(text.find_first_not_of(' '), text.size());
    const std::size_t room =
        style_.columns == 0
            ? std::string_view::npos
            : std::max(narrowest, style_.columns - std::min(style_.columns, indent + inner));
    out_ << coloured(first, Colour::dim);
    std::string_view rest = text.substr(inner);
    for (std::size_t rows = 0; rows == 0 || !rest.empty(); ++rows) {
        if (rows != 0) out_ << std::string(indent, ' ');
        std::size_t columns = 0;
        std::size_t end = 0;      // of what fits
        std::size_t lastGap = 0;  // the last blank in it
        while (end < rest.size()) {
            const std::size_t length = std::max<std::size_t>(1, utf8Length(rest, end));
            columns += terminalColumns(rest.substr(end, length));
            if (columns > room) break;
            if (rest[end] == ' ' && end != 0) lastGap = end;
            end += length;
        }
        const bool whole = end >= rest.size();
        if (!whole && rest[end] != ' ' && lastGap != 0) end = lastGap;
        out_ << std::string(inner, ' ') << coloured(rest.substr(0, end), colour) << '\n';
        rest.remove_prefix(std::min(end, rest.size()));
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    }
}

void HumanView::widen(std::string_view who) {
    whoWidth_ = std::max(whoWidth_, std::min(widestWho, terminalColumns(who)));
}

void HumanView::heading() {
    if (std::exchange(headed_, true)) return;
    out_ << coloured(fmt::format("{:>{}}  {}  {}", "TIME", timeWidth, padded("INSTANCE", whoWidth_),
                                 "WHAT"),
                     Colour::dim)
         << '\n';
}

void HumanView::row(double t, std::string_view who, std::string_view text, Colour colour) {
    widen(who);
    heading();
    wrapped(fmt::format("{:>{}.3f}  {}  ", t, timeWidth, padded(std::string(who), whoWidth_)), text,
            colour);
}

void HumanView::onLog(double t, const Stage::InstanceLog& log) {
    const std::string text = printable(log.log().back().message.text());
    // The lines of single events are indented.
    row(t, labelOf(log), text, text.starts_with(' ') ? Colour::dim : Colour::plain);
}

void HumanView::onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) {
    const bool error = message.severity() <= 3;
    row(t, error ? "! error" : "! warning",
        fmt::format("{} ({})", printable(text), message.identifier()),
        error ? Colour::bad : Colour::warning);
}

void HumanView::onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) {
    const std::string_view name = attribute.name();
    if (const auto* const fatal = dynamic_cast<const Stage::FatalError*>(&entity)) {
        if (name != "requestReboot") return;
        const auto mode =
            Orv::ValueTraits<Stage::FatalError::ResetMode>::nameOf(fatal->requestReboot());
        row(t, "! reboot",
            fmt::format("requested ({}): {}. {}", mode, printable(fatal->rebootReason()),
                        printable(fatal->reloadCauseDesc())),
            Colour::bad);
    } else if (const auto* const status = dynamic_cast<const Stage::InstanceStatus*>(&entity)) {
        if (name == "suspended" && status->suspended())
            row(t, labelOf(*status), "suspended: no further stage starts", Colour::warning);
    }
}

void HumanView::onWatchdog(double t, const Halbe::HalbeInfo& watchdog) {
    row(t, "! watchdog", fmt::format("set to {} s", printable(watchdog.watchdogTimeout())),
        Colour::notice);
}

void HumanView::onPrint(double t, const Orv::String& line) {
    row(t, "! console", printable(line), Colour::warning);
}

void HumanView::onError(double t, const char* what) {
    row(t, "! exception", printable(what), Colour::bad);
}

void HumanView::onEnd(double t, const Tree& tree) {
    const std::vector<InstanceOutcome> all = outcomes(tree);
    out_ << (headed_ ? "\n" : "") << fmt::format("After {:.3f} s", t)
         << (all.empty() ? ": no instance is enabled\n" : "\n");
    for (const InstanceOutcome& outcome : all)
        widen(instanceLabel(outcome.stageClass, outcome.instance));
    for (const InstanceOutcome& outcome : all) instance(outcome);
    flush();
}

void HumanView::instance(const InstanceOutcome& outcome) {
    using State = InstanceOutcome::State;
    const std::string count = stageCount(outcome);
    std::string text;
    Colour colour = Colour::warning;
    switch (outcome.state) {
        case State::complete:
            text = outcome.stages.empty()
                       ? "complete, no stages"
                       : fmt::format("complete at {:.3f}, {}", outcome.lastCompletion, count);
            colour = Colour::good;
            break;
        case State::running: text = "running, " + count; break;
        case State::held: text = "held, " + count; break;
        case State::suspended: text = "suspended, " + count; break;
        case State::overdue:
            text = "waiting for a critical stage that timed out, " + count;
            colour = Colour::bad;
            break;
        case State::rebooting:
            text = "stopped by the reboot request, " + count;
            colour = Colour::bad;
            break;
        case State::unmanaged:
            text = "not managed" +
                   (outcome.missing.empty() ? "" : ": no " + printable(outcome.missing));
            colour = Colour::bad;
            break;
    }
    out_ << "  " << padded(instanceLabel(outcome.stageClass, outcome.instance), whoWidth_) << "  "
         << coloured(text, colour) << '\n';
    std::size_t nameWidth = 0;
    for (const StageOutcome& stage : outcome.stages)
        nameWidth = std::max(nameWidth, terminalColumns(printable(stage.stage)));
    for (const StageOutcome& stage : outcome.stages) this->stage(stage, nameWidth);
}

void HumanView::stage(const StageOutcome& outcome, std::size_t nameWidth) {
    using State = StageOutcome::State;
    const std::string pending = printableList(outcome.pendingAgents);
    std::vector<std::string> facts;
    Colour colour = Colour::warning;
    switch (outcome.state) {
        case State::complete: break;
        case State::late:
            facts.push_back(fmt::format("timed out, complete at {:.3f}", outcome.completionTime));
            break;
        case State::passedOver:
            facts.push_back(
                fmt::format("timed out at {:.3f}, passed over", outcome.completionTime));
            facts.push_back(pending.empty() ? "reported later" : "still no report from " + pending);
            break;
        case State::running: facts.push_back("running, waiting for " + pending); break;
        case State::overdue:
            facts.push_back("timed out, critical, waiting for " + pending);
            colour = Colour::bad;
            break;
        case State::notStarted:
            facts.emplace_back("not started");
            if (!outcome.incompleteDependencies.empty())
                facts.push_back("needs " + printableList(outcome.incompleteDependencies));
            if (outcome.heldByOperator) facts.emplace_back("held by the do-not-start list");
            if (outcome.heldByCritical) facts.emplace_back("critical stages start first");
            break;
    }
    if (!outcome.assumedAgents.empty())
        facts.push_back("auto-completed for " + printableList(outcome.assumedAgents));
    if (facts.empty()) return;
    wrapped("    " + padded(printable(outcome.stage), nameWidth) + "  ",
            fmt::format("{}", fmt::join(facts, "; ")), colour);
}

}  // namespace Host
