#include "host/history/Blame.h"

#include <memory>

#include "host/verb/RunFile.h"

namespace Host {

namespace {

struct BlameCommand {
    RunFile run;
    bool participants = false;
};

int runBlame(const BlameCommand& command, const Console& console) {
    const RunHistory history = command.run.history(console);
    if (command.run.json)
        command.run.write(blameJson(history, command.participants), console);
    else
        command.run.write(blame(history, {command.participants, command.run.colour(console)}),
                          console);
    return exitDone;
}

}  // namespace

void addBlame(Verbs& verbs) {
    const auto options = std::make_shared<BlameCommand>();
    CLI::App& command =
        verbs.add("blame", "List the stages by the time that they took themselves, longest first",
                  [&verbs, options] { return runBlame(*options, verbs.console()); });
    options->run.addTo(command);
    addFlag(command, "--participants", options->participants,
            "List who took part in them, not whole stages");
}

}  // namespace Host
