#include "host/session/RunSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "host/Json.h"
#include "host/Replay.h"
#include "host/Utf8.h"
#include "host/plan/PlanReader.h"
#include "host/session/Session.h"
#include "host/session/Simulation.h"

namespace Host {

RunHistory planRun(const Plan& plan) {
    Timeline timeline;
    const Durations durations(plan);
    Simulated performer(durations);
    Session session(plan, performer, timeline);
    advanceUnlessReboot(session, Session::never);
    session.finish();
    return timeline.history(session.tree());
}

RunHistory journalRun(std::istream& journal, double until) {
    Timeline timeline;
    Replay run(timeline);
    JournalReader reader(journal);
    try {
        bool ended = false;
        while (!ended) {
            const std::optional<Input> input = reader.next();
            if (!input || input->at > until) break;
            ended = !run.apply(*input);
        }
        if (ended || until == Session::never) {
            run.finish();
        } else {
            run.runUntil(until);
            run.settle();
        }
    } catch (const MalformedInput& e) {
        throw JournalError(reader.line(), e.what());
    }
    return timeline.history(run.tree());
}

RunText runText(std::string_view text) {
    const auto has = [text](const char* word) { return text.find(word) != std::string_view::npos; };
    const RunText other = has("version") || has("stages") ? RunText::plan : RunText::neither;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string_view::npos || line[first] == '#') continue;
        try {
            return parseJson(line).member("op") != nullptr ? RunText::journal : other;
        } catch (const JsonError&) {
            // A line that was meant to be an input gets the journal's error, unless it is the first
            // of a plan in JSON, in which something is called "op".
            return line[first] == '{' && line.find("\"op\"") != std::string_view::npos &&
                           !has("\"version\"") && !has("\"stages\"")
                       ? RunText::journal
                       : other;
        }
    }
    return other;
}

std::string neitherText(const std::string& file) {
    return fmt::format(
        "{}: neither a plan nor a journal: a plan is YAML or JSON with \"version\" and \"stages\", "
        "a journal has one JSON object with \"op\" per line",
        printable(file));
}

RunHistory runOf(const std::string& file, std::string text, bool colour) {
    switch (runText(text)) {
        case RunText::plan: return planRun(wantedPlan(file, std::move(text), colour));
        case RunText::journal: {
            std::istringstream journal(std::move(text));
            try {
                return journalRun(journal);
            } catch (const JournalError& e) {
                throw std::runtime_error(
                    fmt::format("{}:{}: {}", printable(file), e.line(), e.what()));
            }
        }
        case RunText::neither: break;
    }
    throw std::runtime_error(neitherText(file));
}

}  // namespace Host
