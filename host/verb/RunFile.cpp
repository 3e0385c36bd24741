#include "host/verb/RunFile.h"

#include <fmt/format.h>

#include <CLI/App.hpp>
#include <algorithm>

#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/plan/PlanReader.h"
#include "host/session/RunSource.h"

namespace Host {

void addText(CLI::App& command, const char* name, std::string& text, const char* description,
             const char* type) {
    CLI::Option* const option = command.add_option(name, text, description);
    if (*type != '\0') option->type_name(type);
}

void addWanted(CLI::App& command, const char* name, std::string& text, const char* description) {
    command.add_option(name, text, description)->required();
}

void addFlag(CLI::App& command, const char* name, bool& flag, const char* description) {
    command.add_flag(name, flag, description);
}

void RunFile::addTo(CLI::App& command) {
    addWanted(command, "FILE", file,
              "A plan, which is simulated once, or the journal of a run; - is standard input");
    addText(command, "--instance", instance,
            "Show that instance alone: CLASS/INSTANCE, or one of the two", "NAME");
    addText(command, "--out", out, "Write it there, not to standard output", "FILE");
    addFlag(command, "--json", json, "Write it for programs");
}

RunHistory runHistory(const std::string& file, const Console& console) {
    std::string text = wholeFile(file, console);
    try {
        return runOf(inputName(file), std::move(text), console.colour);
    } catch (const PlanRefused&) {
        throw;
    } catch (const std::runtime_error& e) {
        throw UsageError(e.what());
    }
}

RunHistory selected(RunHistory run, const std::string& wanted, const std::string& file) {
    if (wanted.empty()) return run;
    std::vector<std::string> labels = instanceLabels(run);
    const auto all = std::move(run.instances);
    run.instances.clear();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].stageClass + "/" + all[i].instance == wanted || labels[i] == wanted ||
            all[i].stageClass == wanted || all[i].instance == wanted)
            run.instances.push_back(all[i]);
    if (run.instances.empty())
        throw UsageError(
            all.empty()
                ? fmt::format("stagemgr: no instance was enabled in {}", printable(inputName(file)))
                : fmt::format("stagemgr: no instance {} has begun in {}; there {} {}",
                              inQuotes(wanted), printable(inputName(file)),
                              labels.size() == 1 ? "is" : "are", fmt::join(labels, ", ")));
    return run;
}

RunHistory RunFile::history(const Console& console) const {
    keepApart("--out", out, file);
    return selected(runHistory(file, console), instance, file);
}

void RunFile::write(const std::string& text, const Console& console) const {
    OutFile to(out, console);
    to.stream() << text;
    to.flush();
}

void RunFile::write(const Json& document, const Console& console) const {
    std::string text;
    appendJson(text, document);
    write(text + '\n', console);
}

}  // namespace Host
