// What the verbs that show a run have in common: the run, which of its instances, and whether for
// people or for programs.
#pragma once

#include <string>

#include "host/Json.h"
#include "host/history/Timeline.h"
#include "host/verb/Verbs.h"

namespace Host {

struct RunFile {
    std::string file;
    std::string instance;  // "class/instance", or one of the two; empty: all
    std::string out = "-";
    bool json = false;

    // Adds FILE, --instance, --json and --out.
    void addTo(CLI::App& command);
    // Reads it. Raises UsageError and PlanRefused.
    RunHistory history(const Console& console) const;
    // Writes that, or the document, with a line break.
    void write(const std::string& text, const Console& console) const;
    void write(const Json& document, const Console& console) const;
    // Whether people read it on a terminal that takes colours.
    bool colour(const Console& console) const { return console.colour && out == "-"; }
};

// Options of one text, and flags, for verbs that need no more of the parser.
void addText(CLI::App& command, const char* name, std::string& text, const char* description,
             const char* type = "");
void addWanted(CLI::App& command, const char* name, std::string& text, const char* description);
void addFlag(CLI::App& command, const char* name, bool& flag, const char* description);

// Those instances alone. Raises UsageError when there is none.
RunHistory selected(RunHistory run, const std::string& instance, const std::string& file);
// One of the two runs of a verb.
RunHistory runHistory(const std::string& file, const Console& console);

}  // namespace Host
