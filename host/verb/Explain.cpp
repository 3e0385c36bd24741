#include "host/history/Explain.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <sstream>

#include "host/Journal.h"
#include "host/Json.h"
#include "host/Suggest.h"
#include "host/Words.h"
#include "host/plan/Duration.h"
#include "host/plan/PlanReader.h"
#include "host/session/RunSource.h"
#include "host/session/Simulation.h"
#include "host/verb/Settings.h"
#include "host/verb/Verbs.h"

namespace Host {

namespace {

struct ExplainArguments {
    std::string file;
    std::string stage;
    std::string stageClass;
    std::string instance;
    std::string at;
    std::vector<std::string> settings;
    bool json = false;
};

RunHistory history(const ExplainArguments& arguments, const Console& console) {
    double at = Session::never;
    if (!arguments.at.empty()) at = durationOption("--at", arguments.at);
    std::string text = wholeFile(arguments.file, console);
    const std::string name = inputName(arguments.file);
    const RunText kind = runText(text);
    if (kind == RunText::neither) throw UsageError(neitherText(name));
    if (kind == RunText::journal) {
        if (!arguments.settings.empty())
            throw UsageError(fmt::format(
                "stagemgr: --set: {} is a journal, and what it records has happened; --set is for "
                "plans",
                printable(name)));
        std::istringstream journal(std::move(text));
        try {
            return journalRun(journal, at);
        } catch (const JournalError& e) {
            throw UsageError(fmt::format("{}:{}: {}", printable(name), e.line(), e.what()));
        }
    }
    const Plan plan = wantedPlan(name, std::move(text), console.colour);
    Durations durations(plan);
    applySettings(arguments.settings, plan, durations);
    Timeline timeline;
    Simulated participants(durations);
    Session session(plan, participants, timeline);
    advanceUnlessReboot(session, at);
    return timeline.history(session.tree());
}

// Raises UsageError for a name that none of them has; `those` says which of all these are.
void refuseUnknown(const char* what, const std::string& wanted,
                   const std::vector<std::string>& names, const std::string& those,
                   const std::string& file) {
    if (wanted.empty() || std::find(names.begin(), names.end(), wanted) != names.end()) return;
    const std::string nearest = suggestion(wanted, {names.begin(), names.end()});
    throw UsageError(fmt::format(
        "stagemgr: no {} {}{} in {}{}", what, inQuotes(wanted), those, printable(inputName(file)),
        !nearest.empty() || names.empty()
            ? nearest
            : fmt::format("; there {} {}", names.size() == 1 ? "is" : "are",
                          firstOf(names, 8, inQuotes))));
}

std::vector<Explanation> explanations(const RunHistory& run, const ExplainArguments& arguments) {
    std::vector<std::string> classes;
    std::vector<std::string> instances;
    std::vector<std::string> stages;
    const auto note = [](std::vector<std::string>& names, const std::string& name) {
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    };
    std::vector<const InstanceHistory*> wanted;
    for (const InstanceHistory& instance : run.instances) {
        note(classes, instance.stageClass);
        if (!arguments.stageClass.empty() && instance.stageClass != arguments.stageClass) continue;
        note(instances, instance.instance);
        if (!arguments.instance.empty() && instance.instance != arguments.instance) continue;
        wanted.push_back(&instance);
        if (!arguments.stage.empty())
            for (const StageHistory& stage : instance.stages) note(stages, stage.name);
    }
    // What a plan has, and what of it has begun, are two things.
    const std::string by = " has begun by " + timeText(run.end);
    refuseUnknown("class", arguments.stageClass, classes, by, arguments.file);
    refuseUnknown("instance", arguments.instance, instances, by, arguments.file);
    if (wanted.empty())
        throw UsageError(
            fmt::format("stagemgr: no instance has begun in {} by then; try a later time with --at",
                        printable(inputName(arguments.file))));
    // An instance without a manager has no stages to be named.
    const bool managed = std::any_of(wanted.begin(), wanted.end(), [](const auto* instance) {
        return instance->state != InstanceOutcome::State::unmanaged;
    });
    if (managed) refuseUnknown("stage", arguments.stage, stages, "", arguments.file);

    std::vector<Explanation> all;
    for (const InstanceHistory* const instance : wanted) {
        const StageHistory* const stage =
            arguments.stage.empty() ? nullptr : instance->stage(arguments.stage);
        if (stage != nullptr)
            all.push_back(explainStage(run, *instance, *stage));
        else if (arguments.stage.empty() || !managed)
            all.push_back(explainInstance(run, *instance));
    }
    return all;
}

void show(const RunHistory& run, const std::vector<Explanation>& all, const Console& console) {
    constexpr std::size_t deepest = 12;  // of indentation
    std::ostream& out = console.out;
    const auto bold = [&](const std::string& text) {
        return console.colour ? "\033[1m" + text + "\033[0m" : text;
    };
    for (const Explanation& each : all) {
        if (&each != all.data()) out << '\n';
        out << bold(fmt::format("{}/{} at {}: {}", printable(each.stageClass),
                                printable(each.instance), timeText(run.end), each.text))
            << '\n';
        if (each.good && each.stage.empty()) out << "  everything is as it should be\n";
        for (std::size_t i = 0; i < each.causes.size(); ++i) {
            const Cause& cause = each.causes[i];
            out << std::string(2 + 2 * std::min(cause.depth, deepest), ' ') << cause.text << '\n';
            if (i < each.holdsBack.size() && !each.holdsBack[i].empty())
                out << "    not started for that: " << firstOf(each.holdsBack[i], 8, printable)
                    << '\n';
        }
        const std::vector<std::string> releasing = releases(each);
        if (!releasing.empty()) out << "What would release it:\n";
        for (const std::string& release : releasing) out << "  " << release << '\n';
    }
}

void write(const RunHistory& run, const std::vector<Explanation>& all, std::ostream& out) {
    Json::Array explanations;
    for (const Explanation& each : all) {
        Json::Object made{{"stageClass", each.stageClass}, {"instance", each.instance}};
        if (!each.stage.empty()) made.emplace_back("stage", each.stage);
        made.emplace_back("text", each.text);
        made.emplace_back("good", each.good);
        Json::Array causes;
        for (std::size_t i = 0; i < each.causes.size(); ++i) {
            const Cause& cause = each.causes[i];
            Json::Object row{{"kind", std::string(causeWord(cause.kind))},
                             {"depth", static_cast<double>(cause.depth)}};
            if (!cause.stage.empty()) row.emplace_back("stage", cause.stage);
            if (!cause.agent.empty()) row.emplace_back("agent", cause.agent);
            if (cause.since) row.emplace_back("since", *cause.since);
            if (cause.until) row.emplace_back("until", *cause.until);
            row.emplace_back("text", cause.text);
            if (!cause.release.empty()) row.emplace_back("release", cause.release);
            if (i < each.holdsBack.size()) {
                Json::Array names;
                for (const std::string& name : each.holdsBack[i]) names.emplace_back(name);
                row.emplace_back("holdsBack", std::move(names));
            }
            causes.emplace_back(std::move(row));
        }
        made.emplace_back("causes", std::move(causes));
        explanations.emplace_back(std::move(made));
    }
    std::string text;
    appendJson(text, Json::Object{{"schema", "stagemgr.explain/1"},
                                  {"time", run.end},
                                  {"explanations", std::move(explanations)}});
    out << text << '\n';
}

int runExplain(const ExplainArguments& arguments, const Console& console) {
    const RunHistory run = history(arguments, console);
    const std::vector<Explanation> all = explanations(run, arguments);
    if (arguments.json)
        write(run, all, console.out);
    else
        show(run, all, console);
    return exitDone;
}

}  // namespace

void addExplain(Verbs& verbs) {
    const auto arguments = std::make_shared<ExplainArguments>();
    CLI::App& command = verbs.add(
        "explain", "Say why a stage has not started, or came so late, and what would release it",
        [&verbs, arguments] { return runExplain(*arguments, verbs.console()); });
    command
        .add_option("FILE", arguments->file,
                    "A plan, which is simulated, or the journal of a run; - is standard input")
        ->required();
    command.add_option("STAGE", arguments->stage,
                       "The stage; without one, everything that is not as it should be");
    command
        .add_option("--at", arguments->at,
                    "At that time after the run's begin; at its end, if it is not said")
        ->type_name("TIME");
    command.add_option("--class", arguments->stageClass, "In that stage class")->type_name("NAME");
    command.add_option("--instance", arguments->instance, "In that instance")->type_name("NAME");
    command.add_option("--set", arguments->settings, settingHelp)
        ->type_name("AGENT:STAGE=DURATION|never")
        ->allow_extra_args(false)
        ->take_all();
    command.add_flag("--json", arguments->json, "Write JSON: stagemgr.explain/1");
}

}  // namespace Host
