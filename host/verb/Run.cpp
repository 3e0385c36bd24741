#include "host/session/Run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "host/HumanView.h"
#include "host/JsonLines.h"
#include "host/Utf8.h"
#include "host/plan/Duration.h"
#include "host/session/LiveRun.h"
#include "host/verb/Verbs.h"

namespace Host {

namespace {

struct RunArguments {
    std::string plan;
    std::string until = "end";
    std::string within = "infinity";
    std::string onReboot = "exit";
    std::string record;
    std::vector<std::string> instances;
    bool reports = false;
    bool json = false;
    RunOptions options{};
};

void makeFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error || access(folder.c_str(), W_OK | X_OK) != 0)
        throw UsageError(fmt::format("stagemgr: --output: nothing can be written to {}: {}",
                                     inQuotes(folder),
                                     error ? error.message() : std::strerror(errno)));
}

// A terminal whose cursor can be moved.
bool drawable(const Console& console) {
    const char* const kind = std::getenv("TERM");
    return console.columns != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

int run(const RunArguments& arguments, const Console& console) {
    RunOptions options = arguments.options;
    options.untilComplete = arguments.until == "complete";
    if (arguments.onReboot != "exit") options.onReboot = arguments.onReboot;
    if (arguments.reports) options.reports = STDIN_FILENO;
    options.within = durationOption("--within", arguments.within);
    if (arguments.record == "-")
        throw UsageError(
            "stagemgr: --record needs the name of a file; with --json, standard "
            "output has what the manager does");
    if (arguments.reports && arguments.plan == "-")
        throw UsageError(
            "stagemgr: standard input cannot hold the plan and the reports; name a "
            "file for the plan");

    keepApart("--record", arguments.record, arguments.plan);

    const Plan plan = withInstances(planFile(arguments.plan, console), arguments.instances);
    if (!options.outputFolder.empty()) makeFolder(options.outputFolder);
    std::optional<OutFile> record;
    if (!arguments.record.empty()) record.emplace(arguments.record, console);
    if (record) options.record = &record->stream();

    const HumanStyle style{console.colour, console.columns};
    std::unique_ptr<View> view;
    if (arguments.json)
        view = std::make_unique<JsonLines>(console.out);
    else if (drawable(console))
        view = std::unique_ptr<View>(options.live = new LiveRun(console.out, style));
    else
        view = std::make_unique<HumanView>(console.out, style);
    options.output = &console.out;
    const int status = runPlan(plan, options, *view, console.err);
    return status;
}

}  // namespace

void addRun(Verbs& verbs) {
    const auto arguments = std::make_shared<RunArguments>();
    CLI::App& command = verbs.add(
        "run", "Bring a plan up in real time, with real processes, and take it down again",
        [&verbs, arguments] { return run(*arguments, verbs.console()); });
    command.add_option("PLAN", arguments->plan, "The plan; - is standard input")->required();
    command
        .add_option("--instance", arguments->instances,
                    "Run this instance only; may be given several times")
        ->type_name("NAME")
        ->allow_extra_args(false)
        ->take_all();
    command
        .add_option("--until", arguments->until,
                    "complete: stop as soon as everything is up; end: run as long as what was "
                    "started runs")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"complete", "end"}));
    command
        .add_option("--within", arguments->within,
                    "Give up, with exit status 6, when it is not complete after that long")
        ->type_name("DURATION");
    command
        .add_option("--on-reboot", arguments->onReboot,
                    "What to do when a reboot is requested, after everything was stopped: exit, or "
                    "a command for the shell")
        ->type_name("exit|COMMAND");
    command
        .add_option("--record", arguments->record,
                    "Write the run's journal there, for replay and for the verbs that look at runs")
        ->type_name("FILE");
    command
        .add_option("--output", arguments->options.outputFolder,
                    "Write what each participant writes to a file of its own in that folder")
        ->type_name("FOLDER");
    command.add_flag("--show-output", arguments->options.showOutput,
                     "Show what participants write as it comes, on standard error");
    command.add_flag("--reports", arguments->reports,
                     "Read reports for external participants from standard input, as lines AGENT "
                     "STAGE [INSTANCE]");
    command.add_flag("--json", arguments->json,
                     "Show what the manager does as JSON Lines, not for people");
}

}  // namespace Host
