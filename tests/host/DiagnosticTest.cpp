#include "host/plan/Diagnostic.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Host {
namespace {

Diagnostic error(Place place, std::string text) {
    return {Diagnostic::Severity::error, "boot.yaml", place, "rule", std::move(text), {}};
}

std::string shown(const std::string& text, Place place) {
    return diagnosticsText({error(place, "here")}, text, false);
}

TEST(Diagnostics, ShowTheLineAndTheCaret) {
    EXPECT_EQ(shown("version: 1\nstages:\n    after: x\n", {3, 12}),
              "boot.yaml:3:12: error: here\n"
              "    3 |     after: x\n"
              "      |            ^\n");
}

TEST(Diagnostics, StandInTheOrderOfTheirPlaces) {
    EXPECT_EQ(diagnosticsText({error({2, 1}, "third"), error({1, 2}, "second"),
                               error({1, 1}, "first"), error({2, 1}, "fourth")},
                              "", false),
              "boot.yaml:1:1: error: first\n"
              "    1 | \n"
              "      | ^\n"
              "boot.yaml:1:2: error: second\n"
              "    1 | \n"
              "      | ^\n"
              "boot.yaml:2:1: error: third\n"
              "boot.yaml:2:1: error: fourth\n");
}

TEST(Diagnostics, NotesFollowWhatTheyBelongTo) {
    Diagnostic twice = error({2, 1}, "the key \"a\" stands twice");
    twice.related.push_back({{1, 1}, "it stands first here"});
    EXPECT_EQ(diagnosticsText({twice}, "a: 1\na: 2\n", false),
              "boot.yaml:2:1: error: the key \"a\" stands twice\n"
              "    2 | a: 2\n"
              "      | ^\n"
              "boot.yaml:1:1: note: it stands first here\n"
              "    1 | a: 1\n"
              "      | ^\n");
}

TEST(Diagnostics, SeveritiesHaveTheirWords) {
    Diagnostic warning = error({}, "x");
    warning.severity = Diagnostic::Severity::warning;
    Diagnostic note = error({}, "y");
    note.severity = Diagnostic::Severity::note;
    EXPECT_EQ(diagnosticsText({warning, note}, "a", false),
              "boot.yaml: warning: x\n"
              "boot.yaml: note: y\n");
}

TEST(Diagnostics, PlacesOutsideOfTheFileShowNoLine) {
    EXPECT_EQ(shown("a\n", {9, 9}), "boot.yaml:9:9: error: here\n");
    EXPECT_EQ(shown("a\n", {}), "boot.yaml: error: here\n");
    EXPECT_EQ(shown("ab\n", {1, 9}),
              "boot.yaml:1:9: error: here\n"
              "    1 | ab\n"
              "      |   ^\n");
    EXPECT_EQ(shown("ab\n", {1, 0}),
              "boot.yaml:1:0: error: here\n"
              "    1 | ab\n");
}

TEST(Diagnostics, TabsKeepTheCaretInPlace) {
    EXPECT_EQ(shown("a\t\tb", {1, 4}),
              "boot.yaml:1:4: error: here\n"
              "    1 | a               b\n"
              "      |                 ^\n");
}

TEST(Diagnostics, WideCharactersKeepTheCaretInPlace) {
    EXPECT_EQ(shown("\u6f22\u5b57: x", {1, 5}),
              "boot.yaml:1:5: error: here\n"
              "    1 | \u6f22\u5b57: x\n"
              "      |       ^\n");
    EXPECT_EQ(shown("e\u0301\u00fc: x", {1, 6}),
              "boot.yaml:1:6: error: here\n"
              "    1 | e\u0301\u00fc: x\n"
              "      |     ^\n");
}

TEST(Diagnostics, WhatDisturbsATerminalIsEscapedAndKeepsTheCaretInPlace) {
    EXPECT_EQ(shown("\033[31m\u202e\xff: x\r\n", {1, 10}),
              "boot.yaml:1:10: error: here\n"
              "    1 | \\u001b[31m\\u202e\\xff: x\n"
              "      |                       ^\n");
    EXPECT_EQ(diagnosticsText({{Diagnostic::Severity::error, "a\nb", {}, "r", "t", {}}}, "", false),
              "a\\nb: error: t\n");
}

TEST(Diagnostics, ByteOrderMarkIsNoCharacter) {
    EXPECT_EQ(shown("\xef\xbb\xbf"
                    "abc",
                    {1, 2}),
              "boot.yaml:1:2: error: here\n"
              "    1 | abc\n"
              "      |  ^\n");
}

TEST(Diagnostics, LongLinesAreCutAroundTheCaret) {
    std::string line(1000, '.');
    line[499] = 'X';
    const std::string text = shown(line, {1, 500});
    EXPECT_EQ(text, "boot.yaml:1:500: error: here\n    1 | ..." + std::string(60, '.') + "X" +
                        std::string(77, '.') + "...\n      | " + std::string(63, ' ') + "^\n");
    EXPECT_EQ(shown(std::string(10, 'a') + std::string(1000, 'b'), {1, 3}),
              "boot.yaml:1:3: error: here\n    1 | " + std::string(10, 'a') +
                  std::string(131, 'b') + "...\n      |   ^\n");
}

TEST(Diagnostics, ManyOfOneVeryLongLineAreShown) {
    const std::string line(1'000'000, 'x');
    std::vector<Diagnostic> many;
    for (std::size_t i = 1; i <= 1000; ++i) many.push_back(error({1, i * 1'000}, "here"));
    const std::string text = diagnosticsText(many, line, false);
    EXPECT_EQ(std::count(text.begin(), text.end(), '^'), 1000);
    EXPECT_LT(text.size(), 400'000u);
}

TEST(Diagnostics, ColoursMarkThePlaceTheWordAndTheCaret) {
    EXPECT_EQ(diagnosticsText({error({1, 1}, "here")}, "a", true),
              "\033[1mboot.yaml:1:1:\033[0m \033[1;31merror:\033[0m here\n"
              "    1 | a\n"
              "      | \033[1;32m^\033[0m\n");
}

}  // namespace
}  // namespace Host
