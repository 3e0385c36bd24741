#include "host/plan/Check.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <set>
#include <utility>

#include "host/JsonDocument.h"
#include "host/Table.h"
#include "host/Utf8.h"
#include "host/plan/Duration.h"
#include "host/plan/PlanReader.h"
#include "host/plan/Sarif.h"
#include "host/verb/Verbs.h"

namespace Host {

namespace {

using Severity = Diagnostic::Severity;

struct CheckOptions {
    std::vector<std::string> plans;
    bool json = false;
    bool sarif = false;
    bool all = false;
    bool slack = false;
    bool strict = false;
};

// One plan, read and checked.
struct Result {
    Plan plan;
    bool refused = false;
    CheckedPlan checked;

    std::size_t count(Severity severity) const {
        return Host::count(checked.diagnostics, severity);
    }
    ExitStatus status(bool strict) const {
        if (refused) return exitRefused;
        const bool bad = count(Severity::error) > 0 || (strict && count(Severity::warning) > 0);
        return bad ? exitFailed : exitDone;
    }
};

std::unique_ptr<Result> checkedFile(const std::string& name, const Console& console, bool all) {
    auto result = std::make_unique<Result>();
    std::vector<Diagnostic> found;
    result->plan = readPlan(inputName(name), wholeFile(name, console), found);
    result->refused = Host::count(found, Severity::error) > 0;
    // What could not be read would seem to be missing.
    if (!result->refused) result->checked = check(result->plan);
    std::vector<Diagnostic>& diagnostics = result->checked.diagnostics;
    diagnostics.insert(diagnostics.begin(), found.begin(), found.end());
    if (!all)
        std::erase_if(diagnostics,
                      [](const Diagnostic& d) { return d.severity == Severity::note; });
    std::stable_sort(diagnostics.begin(), diagnostics.end(),
                     [](const Diagnostic& a, const Diagnostic& b) { return a.place < b.place; });
    return result;
}

// How many there are of what, for the summaries.
struct Counts {
    explicit Counts(const StageGraph& graph) : stages(graph.size()) {
        std::set<std::string_view> names;
        for (std::size_t s = 0; s < graph.size(); ++s) {
            if (graph.critical(s)) ++critical;
            for (const PlanParticipant& participant : graph.stage(s).participants)
                if (!takesNoTime(participant)) names.insert(participant.name);
        }
        participants = names.size();
    }

    std::size_t stages;
    std::size_t critical = 0;
    std::size_t participants = 0;  // without those of milestones
};

bool hasDeadline(const PlanClass& stageClass) {
    return stageClass.deadline > 0.0 && std::isfinite(stageClass.deadline);
}

const char* reasonName(StageGraph::Reason::Kind kind) {
    switch (kind) {
        case StageGraph::Reason::Kind::missing: return "missing";
        case StageGraph::Reason::Kind::knot: return "cycle";
        case StageGraph::Reason::Kind::held: return "held";
        case StageGraph::Reason::Kind::none: break;
    }
    return "waits";  // for a stage that does not end
}

// For people.

std::string counted(std::size_t number, std::string_view what) {
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

std::string summary(const Result& result) {
    const std::string file = printable(result.plan.file);
    std::vector<std::string> found;
    for (const Severity severity : {Severity::error, Severity::warning, Severity::note})
        if (const std::size_t number = result.count(severity); number > 0)
            found.push_back(counted(number, severityName(severity)));
    if (result.refused)
        return fmt::format("{}: cannot be taken: {}\n", file, fmt::join(found, ", "));
    if (result.count(Severity::error) + result.count(Severity::warning) > 0)
        return fmt::format("{}: {}\n", file, fmt::join(found, ", "));

    std::size_t stages = 0;
    std::size_t participants = 0;
    std::size_t critical = 0;
    for (const CheckedClass& stageClass : result.checked.classes) {
        const Counts counts(stageClass.graph);
        stages += counts.stages;
        participants += counts.participants;
        critical += counts.critical;
    }
    const std::size_t classes = result.checked.classes.size();
    return fmt::format("{}: nothing to complain of: {}{} ({} critical), {}{}\n", file,
                       classes > 1 ? fmt::format("{} classes, ", classes) : "",
                       counted(stages, "stage"), critical, counted(participants, "participant"),
                       found.empty() ? "" : fmt::format("; {}", fmt::join(found, ", ")));
}

std::string startText(const Schedule::Times& times, StageGraph::Reason::Kind reason) {
    if (times.start < std::numeric_limits<double>::infinity()) return timeText(times.start);
    return fmt::format("never ({})", reasonName(reason));
}

// Per stage, when it starts and how much later it could.
std::string slackTable(const CheckedClass& checked) {
    const StageGraph& graph = checked.graph;
    const PlanClass& stageClass = graph.stageClass();
    constexpr auto right = Table::Align::right;
    Table table({{"STAGE"},
                 {"STARTS", right},
                 {"TAKES", right},
                 {"SLACK", right},
                 {"LIMIT", right},
                 {"STARTS BY LIMITS", right},
                 {"SLACK", right}});
    bool assumed = false;
    bool critical = false;
    for (std::size_t s = 0; s < graph.size(); ++s) {
        const auto& participants = graph.stage(s).participants;
        const bool guess = std::any_of(participants.begin(), participants.end(),
                                       [](const PlanParticipant& p) { return !p.takes; });
        const Schedule::Times& typical = checked.typical.stages[s];
        const Schedule::Times& longest = checked.longest.stages[s];
        const StageGraph::Reason::Kind reason = graph.reason(s).kind;
        const auto slack = [](const Schedule::Times& times) {
            return std::isfinite(times.slack) ? timeText(times.slack) : "-";
        };
        assumed = assumed || guess;
        critical = critical || graph.critical(s);
        table.row({printable(graph.stage(s).name) + (graph.critical(s) ? " *" : ""),
                   startText(typical, reason), (guess ? "~" : "") + timeText(typical.duration),
                   slack(typical), timeText(stageLimit(graph.stage(s))), startText(longest, reason),
                   slack(longest)});
    }
    const auto end = [](const Schedule& made) {
        return made.whole
                   ? "complete after " + timeText(made.end)
                   : "not complete, the last stage that ends does so after " + timeText(made.end);
    };
    std::string text = fmt::format(
        "\n{}: {}\n  by what participants take: {}\n  by their limits: {}\n",
        printable(stageClass.name),
        hasDeadline(stageClass) ? "deadline " + timeText(stageClass.deadline) : "no deadline",
        end(checked.typical), end(checked.longest));
    text += table.text(false);
    text += "slack: how much later a stage could start without delaying the end\n";
    if (critical) text += "*: critical\n";
    if (assumed)
        text += fmt::format("~: for participants that do not say, {} is assumed\n",
                            timeText(assumedTakes.a));
    return text;
}

// Each text ends with the rule's name, to look it up.
std::string diagnosticsWithRules(const Result& result, bool colour) {
    std::vector<Diagnostic> diagnostics = result.checked.diagnostics;
    for (Diagnostic& diagnostic : diagnostics)
        diagnostic.text += fmt::format(" [{}]", diagnostic.rule);
    return diagnosticsText(diagnostics, result.plan.text, colour);
}

// For programs.

Json number(std::size_t value) { return static_cast<double>(value); }

Json placed(Place place, Json::Object object) {
    object.push_back({"line", place.line > 0 ? number(place.line) : Json()});
    object.push_back(
        {"column", place.line > 0 && place.column > 0 ? number(place.column) : Json()});
    return object;
}

Json findingJson(const Diagnostic& diagnostic) {
    Json::Array related;
    for (const Diagnostic::Related& other : diagnostic.related)
        related.push_back(placed(other.place, {{"text", other.text}}));
    Json made =
        placed(diagnostic.place, {{"rule", diagnostic.rule},
                                  {"severity", std::string(severityName(diagnostic.severity))},
                                  {"text", diagnostic.text}});
    made.object()->push_back({"related", std::move(related)});
    return made;
}

Json scheduleJson(const StageGraph& graph, const Schedule& made) {
    Json::Array chain;
    for (const std::size_t s : made.chain(made.last)) chain.push_back(graph.stage(s).name);
    return Json::Object{{"complete", made.whole}, {"end", made.end}, {"chain", std::move(chain)}};
}

Json timesJson(const Schedule::Times& times) {
    return Json::Object{
        {"start", times.start}, {"duration", times.duration}, {"slack", times.slack}};
}

Json classJson(const CheckedClass& checked, bool slack) {
    const StageGraph& graph = checked.graph;
    const PlanClass& stageClass = graph.stageClass();
    const Counts counts(graph);
    Json::Object made{{"name", stageClass.name},
                      {"stages", number(counts.stages)},
                      {"criticalStages", number(counts.critical)},
                      {"participants", number(counts.participants)},
                      {"deadline", hasDeadline(stageClass) ? Json(stageClass.deadline) : Json()},
                      {"typical", scheduleJson(graph, checked.typical)},
                      {"longest", scheduleJson(graph, checked.longest)}};
    if (!slack) return made;
    Json::Array stages;
    for (std::size_t s = 0; s < graph.size(); ++s) {
        const StageGraph::Reason& reason = graph.reason(s);
        const bool starts = reason.kind == StageGraph::Reason::Kind::none;
        stages.push_back(
            Json::Object{{"stage", graph.stage(s).name},
                         {"critical", graph.critical(s)},
                         {"limit", stageLimit(graph.stage(s))},
                         {"typical", timesJson(checked.typical.stages[s])},
                         {"longest", timesJson(checked.longest.stages[s])},
                         {"neverStarts", starts ? Json() : Json(reasonName(reason.kind))},
                         {"because", starts ? Json() : Json(graph.stage(reason.root).name)}});
    }
    made.push_back({"schedule", std::move(stages)});
    return made;
}

Json planJson(const Result& result, bool slack) {
    Json::Array findings;
    for (const Diagnostic& diagnostic : result.checked.diagnostics)
        findings.push_back(findingJson(diagnostic));
    Json::Array classes;
    for (const CheckedClass& stageClass : result.checked.classes)
        classes.push_back(classJson(stageClass, slack));
    return Json::Object{{"file", result.plan.file},
                        {"refused", result.refused},
                        {"errors", number(result.count(Severity::error))},
                        {"warnings", number(result.count(Severity::warning))},
                        {"notes", number(result.count(Severity::note))},
                        {"findings", std::move(findings)},
                        {"classes", std::move(classes)}};
}

int runCheck(const CheckOptions& options, const Console& console) {
    OutFile out("-", console);
    int status = exitDone;
    Json::Array plans;
    std::vector<Diagnostic> diagnostics;
    for (const std::string& name : options.plans) {
        std::unique_ptr<Result> result;
        try {
            result = checkedFile(name, console, options.all);
        } catch (const UsageError& e) {  // the others are checked all the same
            console.err << e.what() << '\n' << std::flush;
            status = std::max<int>(status, exitUsage);
            continue;
        }
        status = std::max<int>(status, result->status(options.strict));
        const std::vector<Diagnostic>& found = result->checked.diagnostics;
        if (options.json) {
            plans.push_back(planJson(*result, options.slack));
        } else if (options.sarif) {
            diagnostics.insert(diagnostics.end(), found.begin(), found.end());
        } else {
            out.stream() << diagnosticsWithRules(*result, console.colour) << summary(*result);
            if (options.slack)
                for (const CheckedClass& stageClass : result->checked.classes)
                    out.stream() << slackTable(stageClass);
        }
    }
    if (options.json)
        out.stream() << jsonDocument(
            Json::Object{{"schema", "stagemgr.check/1"}, {"plans", std::move(plans)}});
    if (options.sarif) out.stream() << jsonDocument(sarif(diagnostics));
    out.flush();
    return status;
}

}  // namespace

void addCheck(Verbs& verbs) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App& command =
        verbs.add("check", "Say what is wrong with plans, without running them",
                  [&verbs, options] { return runCheck(*options, verbs.console()); });
    command.add_option("PLAN", options->plans, "The plans; - is standard input")->required();
    CLI::Option* const json = command.add_flag("--json", options->json, "Write it as JSON");
    CLI::Option* const sarif = command.add_flag(
        "--sarif", options->sarif, "Write it as SARIF 2.1.0, for editors and code reviews");
    CLI::Option* const slack = command.add_flag(
        "--slack", options->slack, "Also say when each stage starts, and how much later it could");
    sarif->excludes(json)->excludes(slack);
    command.add_flag("--all", options->all, "Also give notes: what is right, but may surprise");
    command.add_flag("--strict", options->strict, "Let warnings count as errors");
}

}  // namespace Host
