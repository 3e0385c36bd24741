// The plans of tests/host/plans: what is taken, and what is refused with which words where. A
// refused plan begins with a comment for each error, or has them beside it in a file .expected:
//
//     # error: TEXT THAT MUST OCCUR @LINE:COLUMN

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/plan/PlanReader.h"

namespace Host {
namespace {

const std::filesystem::path corpus = "tests/host/plans";

std::string content(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in) << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::filesystem::path> plans(const char* folder) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(corpus / folder))
        if (entry.path().extension() != ".expected") paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

struct Expected {
    std::string text;
    Place place{};
};

std::vector<Expected> expectedErrors(const std::filesystem::path& plan) {
    std::filesystem::path beside = plan;
    beside.replace_extension(".expected");
    std::istringstream lines(content(plan.extension() == ".json" ? beside : plan));
    std::vector<Expected> errors;
    constexpr std::string_view mark = "# error: ";
    for (std::string line; std::getline(lines, line) && line.starts_with(mark);) {
        const std::size_t at = line.rfind(" @");
        const std::size_t colon = line.rfind(':');
        EXPECT_TRUE(at != line.npos && colon > at) << plan << ": " << line;
        errors.push_back({line.substr(mark.size(), at - mark.size()),
                          {std::stoul(line.substr(at + 2)), std::stoul(line.substr(colon + 1))}});
    }
    return errors;
}

TEST(PlanCorpus, HasHundredsOfPlans) {
    EXPECT_GE(plans("good").size(), 120u);
    EXPECT_GE(plans("bad").size(), 240u);
}

TEST(PlanCorpus, GoodPlansAreTaken) {
    for (const auto& path : plans("good")) {
        std::vector<Diagnostic> diagnostics;
        const Plan plan = readPlan(path.string(), content(path), diagnostics);
        EXPECT_EQ(diagnosticsText(diagnostics, plan.text, false), "");
        EXPECT_FALSE(plan.classes.empty()) << path;
    }
}

TEST(PlanCorpus, BadPlansAreRefusedWithTheirErrorsAtTheirPlaces) {
    for (const auto& path : plans("bad")) {
        std::vector<Diagnostic> diagnostics;
        const Plan plan = readPlan(path.string(), content(path), diagnostics);
        const std::vector<Expected> expected = expectedErrors(path);
        EXPECT_FALSE(expected.empty()) << path << " says no error";
        EXPECT_EQ(diagnostics.size(), expected.size())
            << diagnosticsText(diagnostics, plan.text, false);
        for (const Expected& error : expected)
            EXPECT_TRUE(std::any_of(diagnostics.begin(), diagnostics.end(),
                                    [&](const Diagnostic& diagnostic) {
                                        return diagnostic.place == error.place &&
                                               diagnostic.text.find(error.text) !=
                                                   std::string::npos;
                                    }))
                << path << ": expected at " << error.place.line << ":" << error.place.column << ": "
                << error.text << "\nfound:\n"
                << diagnosticsText(diagnostics, plan.text, false);
    }
}

TEST(PlanCorpus, EveryErrorNamesItsFileItsRuleAndAPlaceInTheFile) {
    for (const auto& path : plans("bad")) {
        std::vector<Diagnostic> diagnostics;
        const Plan plan = readPlan(path.string(), content(path), diagnostics);
        const auto lines =
            static_cast<std::size_t>(std::count(plan.text.begin(), plan.text.end(), '\n'));
        for (const Diagnostic& diagnostic : diagnostics) {
            EXPECT_EQ(diagnostic.file, path.string());
            EXPECT_EQ(diagnostic.severity, Diagnostic::Severity::error);
            EXPECT_FALSE(diagnostic.rule.empty()) << path;
            EXPECT_GE(diagnostic.place.line, 1u) << path;
            EXPECT_LE(diagnostic.place.line, lines + 1) << path;
            EXPECT_GE(diagnostic.place.column, 1u) << path;
            EXPECT_FALSE(diagnostic.text.ends_with('.')) << diagnostic.text;
        }
    }
}

TEST(PlanCorpus, ExamplesOfTheDocumentAreTaken) {
    const std::string document = content("docs/plan.md");
    constexpr std::string_view fence = "```yaml\n";
    int examples = 0;
    for (std::size_t at = document.find(fence); at != std::string::npos;
         at = document.find(fence, at + 1)) {
        const std::size_t begin = at + fence.size();
        std::vector<Diagnostic> diagnostics;
        const Plan plan =
            readPlan("docs/plan.md", document.substr(begin, document.find("```", begin) - begin),
                     diagnostics);
        EXPECT_EQ(diagnosticsText(diagnostics, plan.text, false), "");
        ++examples;
    }
    EXPECT_EQ(examples, 4);
}

// Whatever is cut off or changed is either a plan or an error, and never anything else.
TEST(PlanCorpus, MutilatedPlansAreAnswered) {
    for (const char* folder : {"good", "bad"})
        for (const auto& path : plans(folder)) {
            const std::string text = content(path);
            for (std::size_t at = 0; at < text.size(); at += 23) {
                std::string changed = text;
                changed[at] = "\":{}[],\t\n\xff-&*!|#"[at % 17];
                for (const std::string& mutilated : {text.substr(0, at), changed}) {
                    std::vector<Diagnostic> diagnostics;
                    const Plan plan = readPlan("p", mutilated, diagnostics);
                    EXPECT_TRUE(!diagnostics.empty() || !plan.classes.empty()) << mutilated;
                }
            }
        }
}

}  // namespace
}  // namespace Host
