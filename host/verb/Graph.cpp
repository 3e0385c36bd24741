#include "host/history/Graph.h"

#include <fmt/format.h>

#include <memory>

#include "host/Suggest.h"
#include "host/Utf8.h"
#include "host/verb/RunFile.h"

namespace Host {

namespace {

struct GraphCommand {
    RunFile run;
    std::string format = "svg";
};

int runGraph(const GraphCommand& command, const Console& console) {
    const std::vector<std::string_view> formats{"svg", "dot", "mermaid"};
    if (command.format != "svg" && command.format != "dot" && command.format != "mermaid")
        throw UsageError(fmt::format("stagemgr: no format {}{}", inQuotes(command.format),
                                     suggestion(command.format, formats).empty()
                                         ? "; there are svg, dot and mermaid"
                                         : suggestion(command.format, formats)));
    const std::vector<StageGraphOf> graphs = graphsOf(command.run.history(console));
    if (command.run.json)
        command.run.write(graphJson(graphs), console);
    else if (command.format == "dot")
        command.run.write(graphDot(graphs), console);
    else if (command.format == "mermaid")
        command.run.write(graphMermaid(graphs), console);
    else
        command.run.write(graphSvg(graphs, command.run.file), console);
    return exitDone;
}

}  // namespace

void addGraph(Verbs& verbs) {
    const auto options = std::make_shared<GraphCommand>();
    CLI::App& command = verbs.add("graph", "Draw which stages wait for which", [&verbs, options] {
        return runGraph(*options, verbs.console());
    });
    options->run.addTo(command);
    addText(command, "--format", options->format, "svg (the default), dot or mermaid",
            "FORMAT:{svg,dot,mermaid}");
}

}  // namespace Host
