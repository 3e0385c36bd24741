// Every name that breaks careless programs, through every input and output.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "host/CommandLine.h"
#include "host/Journal.h"
#include "host/Json.h"
#include "host/Utf8.h"
#include "host/plan/PlanReader.h"
#include "tests/host/HostileNames.h"
#include "tests/host/Journals.h"
#include "tests/host/TemporaryFile.h"

namespace Host {
namespace {

std::string quoted(const std::string& name) {
    std::string text;
    appendText(text, name);
    return text;
}

// The same for a plan: YAML ends a line at separators, even inside of quotes.
std::string escaped(const std::string& name) {
    std::string text = quoted(name);
    for (const auto& [separator, escape] :
         {std::pair<std::string, std::string>{"\u2028", "\\u2028"},
          std::pair<std::string, std::string>{"\u2029", "\\u2029"}})
        for (std::size_t at = text.find(separator); at != std::string::npos;
             at = text.find(separator))
            text.replace(at, separator.size(), escape);
    return text;
}

// The name as that of a class, its application, an instance, a stage and a participant. JSON, whose
// escapes say exactly what is meant; what is not UTF-8 stands there as it is.
std::string planWith(const std::string& name) {
    const std::string n = utf8Fault(name) == std::string::npos ? escaped(name) : "\"" + name + "\"";
    return "{\"version\": 1, \"class\": " + n + ", \"application\": " + n + ", \"instances\": [" +
           n + "], \"stages\": {" + n + ": {\"participants\": {" + n +
           ": {\"takes\": \"1s\"}, \"second\": {\"takes\": \"2s\"}}}, \"follows\": {\"after\": " +
           n + ", \"takes\": \"1s\"}}}";
}

struct Ran {
    int status;
    std::string out;
    std::string err;
};
Ran stagemgr(const std::vector<std::string>& arguments) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    const int status = commandLine(arguments, Console{in, out, err});
    return {status, out.str(), err.str()};
}

// What a terminal would obey: control characters other than the end of a line, and characters that
// turn the direction of what follows.
std::string harm(const std::string& text) {
    if (const std::size_t at = utf8Fault(text); at != std::string::npos)
        return "a byte that is not UTF-8, at " + std::to_string(at);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte < 0x20 && byte != '\n') || byte == 0x7f)
            return "a control character, at " + std::to_string(i);
    }
    for (const char* const turn : {"\u202a", "\u202b", "\u202d", "\u202e", "\u2066", "\u2067",
                                   "\u2068", "\u0085", "\u009b", "\u2028", "\u2029"})
        if (const std::size_t at = text.find(turn); at != std::string::npos)
            return "a character that turns or breaks the line, at " + std::to_string(at);
    return {};
}

bool holds(const Json& json, const std::string& name) {
    if (json.string() != nullptr) return *json.string() == name;
    if (json.array() != nullptr)
        return std::any_of(json.array()->begin(), json.array()->end(),
                           [&](const Json& one) { return holds(one, name); });
    if (json.object() != nullptr)
        return std::any_of(json.object()->begin(), json.object()->end(), [&](const auto& member) {
            return member.first == name || holds(member.second, name);
        });
    return false;
}

std::size_t count(const std::string& text, char c) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), c));
}

TEST(HostileNames, APlanTakesThemExactlyOrSaysWhyNot) {
    for (const HostileName& hostile : hostileNames()) {
        std::vector<Diagnostic> diagnostics;
        const std::string text = planWith(hostile.name);
        const Plan plan = readPlan("plan.yaml", text, diagnostics);

        EXPECT_EQ(diagnostics.empty(), hostile.inPlans) << hostile.what;
        if (hostile.inPlans) {
            ASSERT_EQ(plan.classes.size(), 1U) << hostile.what;
            ASSERT_EQ(plan.classes[0].stages.size(), 2U) << hostile.what;
            EXPECT_EQ(plan.classes[0].name, hostile.name) << hostile.what;
            EXPECT_EQ(plan.classes[0].instances.at(0).name, hostile.name) << hostile.what;
            EXPECT_EQ(plan.classes[0].stages[0].name, hostile.name) << hostile.what;
            EXPECT_EQ(plan.classes[0].stages[0].participants.at(0).name, hostile.name)
                << hostile.what;
            EXPECT_EQ(plan.classes[0].stages[1].after.at(0).stage, hostile.name) << hostile.what;
        } else {
            EXPECT_EQ(harm(diagnosticsText(diagnostics, text, false)), "") << hostile.what;
        }
    }
}

TEST(HostileNames, AJournalTakesThemExactlyOrSaysWhyNot) {
    for (const HostileName& hostile : hostileNames()) {
        const bool good = utf8Fault(hostile.name) == std::string::npos;
        const std::string line =
            "{\"op\": \"set\", \"path\": \"/enable/boot\", \"attr\": \"enabled\", "
            "\"key\": " +
            (good ? quoted(hostile.name) : "\"" + hostile.name + "\"") + ", \"value\": true}";
        if (!good) {
            EXPECT_THROW(parseInput(line, 0.0), MalformedInput) << hostile.what;
            continue;
        }
        const Input input = parseInput(line, 0.0);
        ASSERT_TRUE(input.key && input.key->string() != nullptr) << hostile.what;
        EXPECT_EQ(*input.key->string(), hostile.name) << hostile.what;
        EXPECT_EQ(parseInput(inputLine(input), 0.0), input) << hostile.what;
    }
}

TEST(HostileNames, AJournalWithThemIsObservedExactly) {
    for (const HostileName& hostile : hostileNames()) {
        if (utf8Fault(hostile.name) != std::string::npos) continue;
        std::string key = quoted(hostile.name);
        const std::string observed = replayedText(
            text(bootClass() + agent("disk", "mount", 5) +
                 ("{\"op\": \"set\", \"path\": \"/enable/boot\", \"attr\": \"enabled\", \"key\": " +
                  key + ", \"value\": true}")));
        std::istringstream lines(observed);
        std::string line;
        bool found = false;
        while (std::getline(lines, line)) found = holds(parseJson(line), hostile.name) || found;
        EXPECT_TRUE(found) << hostile.what;
    }
}

TEST(HostileNames, NoTextForPeopleObeysThem) {
    for (const HostileName& hostile : hostileNames()) {
        const TemporaryFile plan(planWith(hostile.name), ".yaml");
        for (const std::vector<std::string>& verb : std::vector<std::vector<std::string>>{
                 {"check", plan.path(), "--slack", "--all"},
                 {"simulate", plan.path()},
                 {"simulate", plan.path(), "--each-agent-missing"},
                 {"simulate", plan.path(), "--runs", "3", "--jobs", "1"},
                 {"explain", plan.path()},
                 {"explain", plan.path(), "follows", "--at", "0"},
                 {"time", plan.path()},
                 {"blame", plan.path(), "--participants"},
                 {"critical-chain", plan.path()},
                 {"diff", plan.path(), plan.path()}}) {
            const Ran ran = stagemgr(verb);
            EXPECT_EQ(harm(ran.out), "") << hostile.what << ": " << verb[0];
            EXPECT_EQ(harm(ran.err), "") << hostile.what << ": " << verb[0];
            EXPECT_EQ(ran.status == exitRefused, !hostile.inPlans)
                << hostile.what << ": " << verb[0];
        }
    }
}

TEST(HostileNames, JsonHoldsThemExactly) {
    for (const HostileName& hostile : hostileNames()) {
        if (!hostile.inPlans) continue;
        const TemporaryFile plan(planWith(hostile.name), ".yaml");
        for (const std::vector<std::string>& verb : std::vector<std::vector<std::string>>{
                 {"check", plan.path(), "--slack", "--json"},
                 {"simulate", plan.path(), "--json"},
                 {"simulate", plan.path(), "--each-agent-missing", "--json"},
                 {"explain", plan.path(), "--at", "0", "--json"},
                 {"time", plan.path(), "--json"},
                 {"blame", plan.path(), "--json"},
                 {"critical-chain", plan.path(), "--json"},
                 {"plot", plan.path(), "--json"},
                 {"graph", plan.path(), "--json"},
                 {"diff", plan.path(), plan.path(), "--json"}}) {
            const Ran ran = stagemgr(verb);
            ASSERT_NO_THROW(parseJson(ran.out)) << hostile.what << ": " << verb[0] << ran.err;
            EXPECT_TRUE(holds(parseJson(ran.out), hostile.name)) << hostile.what << ": " << verb[0];
        }
    }
}

// Nothing in a name becomes a part of the picture: it has as many parts as with a harmless one.
TEST(HostileNames, PicturesShowThemAsText) {
    struct Picture {
        std::vector<std::string> verb;
        char part;
    };
    for (const Picture& picture :
         {Picture{{"plot", "--participants"}, '<'}, Picture{{"graph"}, '<'},
          Picture{{"graph", "--format", "dot"}, '\n'},
          Picture{{"graph", "--format", "mermaid"}, '\n'}}) {
        const auto drawn = [&](const std::string& name) {
            const TemporaryFile plan(planWith(name), ".yaml");
            std::vector<std::string> arguments = picture.verb;
            arguments.push_back(plan.path());
            return stagemgr(arguments);
        };
        const std::size_t parts = count(drawn("harmless").out, picture.part);
        ASSERT_GT(parts, 3U);
        for (const HostileName& hostile : hostileNames()) {
            if (!hostile.inPlans) continue;
            const Ran ran = drawn(hostile.name);
            EXPECT_EQ(ran.status, 0) << hostile.what << ran.err;
            EXPECT_EQ(count(ran.out, picture.part), parts) << hostile.what;
            EXPECT_EQ(utf8Fault(ran.out), std::string::npos) << hostile.what;
        }
    }
}

}  // namespace
}  // namespace Host
