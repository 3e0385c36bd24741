#include "host/history/CriticalChain.h"

#include <fmt/format.h>

#include <memory>

#include "host/Suggest.h"
#include "host/Utf8.h"
#include "host/plan/Duration.h"
#include "host/verb/RunFile.h"

namespace Host {

namespace {

struct ChainCommand {
    RunFile run;
    std::string stage;
    std::string fuzz;
};

[[noreturn]] void refuse(const RunHistory& run, const ChainCommand& command) {
    std::vector<std::string_view> names;
    for (const InstanceHistory& instance : run.instances)
        for (const StageHistory& stage : instance.stages) names.push_back(stage.name);
    if (command.stage.empty() || names.empty())
        throw UsageError(fmt::format("stagemgr: there are no stages in {}",
                                     printable(inputName(command.run.file))));
    const std::string nearest = suggestion(command.stage, names);
    throw UsageError(fmt::format("stagemgr: no stage {} in {}{}", inQuotes(command.stage),
                                 printable(inputName(command.run.file)),
                                 nearest.empty() ? "; stagemgr blame lists all stages" : nearest));
}

int runChain(const ChainCommand& command, const Console& console) {
    ChainOptions options{command.stage, 0.0, command.run.colour(console)};
    if (!command.fuzz.empty()) options.fuzz = durationOption("--fuzz", command.fuzz);
    const RunHistory history = command.run.history(console);
    if (command.run.json) {
        const std::optional<Json> document = criticalChainJson(history, options);
        if (!document) refuse(history, command);
        command.run.write(*document, console);
    } else {
        const std::optional<std::string> text = criticalChain(history, options);
        if (!text) refuse(history, command);
        command.run.write(*text, console);
    }
    return exitDone;
}

}  // namespace

void addCriticalChain(Verbs& verbs) {
    const auto options = std::make_shared<ChainCommand>();
    CLI::App& command = verbs.add(
        "critical-chain", "Show the stages that the last stage, or the named one, had to wait for",
        [&verbs, options] { return runChain(*options, verbs.console()); });
    options->run.addTo(command);
    addText(command, "STAGE", options->stage, "The stage; by default the last one");
    addText(command, "--fuzz", options->fuzz,
            "Also show dependencies that were complete that much before the last one", "DURATION");
}

}  // namespace Host
