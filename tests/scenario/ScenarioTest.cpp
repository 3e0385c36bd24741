// Whole journals through the library's entry point: what comes out is compared byte by byte with
// what is written beside them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/Replay.h"

namespace Host {
namespace {

namespace fs = std::filesystem;

std::string content(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

// The cases' inputs, by name.
std::vector<fs::path> casesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().string().ends_with(".in.jsonl")) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

fs::path expectedOf(const fs::path& in) {
    std::string name = in.string();
    name.replace(name.rfind(".in.jsonl"), std::string::npos, ".out.jsonl");
    return name;
}

// The first line in which they differ, as both have it.
std::string firstDifference(const std::string& expected, const std::string& actual) {
    std::istringstream expectedLines(expected);
    std::istringstream actualLines(actual);
    for (int number = 1;; ++number) {
        std::string e;
        std::string a;
        const bool hasE = static_cast<bool>(std::getline(expectedLines, e));
        const bool hasA = static_cast<bool>(std::getline(actualLines, a));
        if (!hasE && !hasA) return "only the last line's end";
        if (e == a && hasE && hasA) continue;
        return "line " + std::to_string(number) + "\n  expected: " + (hasE ? e : "nothing") +
               "\n  but got:  " + (hasA ? a : "nothing");
    }
}

void compare(const fs::path& in) {
    std::ifstream journal(in, std::ios::binary);
    std::ostringstream out;
    replay(journal, out);
    const std::string expected = content(expectedOf(in));
    if (out.str() != expected)
        ADD_FAILURE() << in.filename().string() << ": " << firstDifference(expected, out.str());
}

TEST(Scenarios, ComeOutAsTheyAreWritten) {
    const std::vector<fs::path> cases = casesIn("tests/scenario/cases");

    ASSERT_GE(cases.size(), 15u);
    for (const fs::path& in : cases) compare(in);
}

// Further cases lie wherever STAGEMGR_CASES says.
TEST(Scenarios, FromElsewhereComeOutAsTheyAreWritten) {
    const char* const folder = std::getenv("STAGEMGR_CASES");
    if (folder == nullptr) GTEST_SKIP() << "STAGEMGR_CASES names no folder";
    const std::vector<fs::path> cases = casesIn(folder);

    ASSERT_FALSE(cases.empty());
    for (const fs::path& in : cases) compare(in);
}

}  // namespace
}  // namespace Host
