#include "host/history/Plot.h"

#include <memory>

#include "host/verb/RunFile.h"

namespace Host {

namespace {

struct PlotCommand {
    RunFile run;
    bool participants = false;
};

int runPlot(const PlotCommand& command, const Console& console) {
    const RunHistory history = command.run.history(console);
    if (command.run.json)
        command.run.write(plotJson(history), console);
    else
        command.run.write(plot(history, {command.run.file, command.participants}), console);
    return exitDone;
}

}  // namespace

void addPlot(Verbs& verbs) {
    const auto options = std::make_shared<PlotCommand>();
    CLI::App& command = verbs.add("plot", "Draw a run over time, as SVG",
                                  [&verbs, options] { return runPlot(*options, verbs.console()); });
    options->run.addTo(command);
    addFlag(command, "--participants", options->participants, "Draw who took part, too");
}

}  // namespace Host
