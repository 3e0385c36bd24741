#include "host/history/Diff.h"

#include <memory>

#include "host/verb/RunFile.h"

namespace Host {

namespace {

struct DiffCommand {
    RunFile before;
    std::string after;
};

int runDiff(const DiffCommand& command, const Console& console) {
    if (command.before.file == "-" && command.after == "-")
        throw UsageError("stagemgr: only one of the two runs can be standard input");
    const RunHistory before = command.before.history(console);
    const RunHistory after =
        selected(runHistory(command.after, console), command.before.instance, command.after);
    const std::vector<InstanceDiff> instances = diff(before, after);
    if (command.before.json)
        command.before.write(diffJson(instances), console);
    else
        command.before.write(diffText(instances, command.before.colour(console)), console);
    return exitDone;
}

}  // namespace

void addDiff(Verbs& verbs) {
    const auto options = std::make_shared<DiffCommand>();
    CLI::App& command =
        verbs.add("diff", "Show what is slower or faster in a second run, and whose fault it is",
                  [&verbs, options] { return runDiff(*options, verbs.console()); });
    options->before.addTo(command);
    addWanted(command, "SECOND", options->after, "The second run: a plan or a journal as well");
}

}  // namespace Host
