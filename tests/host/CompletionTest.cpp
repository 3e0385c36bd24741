#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/CommandLine.h"
#include "tests/host/TemporaryFile.h"

namespace Host {
namespace {

using testing::HasSubstr;

std::string script(const std::string& shell) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(commandLine({"completion", shell}, Console{in, out, err}), 0) << err.str();
    return out.str();
}

// What a real bash offers for the last of these words.
std::string offered(const std::vector<std::string>& words) {
    std::string program = script("bash") + "COMP_WORDS=(";
    for (const std::string& word : words) program += "'" + word + "' ";
    program += "); COMP_CWORD=" + std::to_string(words.size() - 1) +
               "; _stagemgr; echo \"${COMPREPLY[@]}\"\n";
    const TemporaryFile file(program);
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(
        popen(("bash " + file.path() + " 2>&1").c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr) output += buffer.data();
    return output;
}

TEST(Completion, BashOffersTheVerbsThatBeginSo) {
    EXPECT_EQ(offered({"stagemgr", "rep"}), "replay\n");
    EXPECT_EQ(offered({"stagemgr", "help", "repl"}), "replay\n");
}

TEST(Completion, BashOffersAVerbsOptions) {
    EXPECT_EQ(offered({"stagemgr", "replay", "--hu"}), "--human\n");
}

TEST(Completion, BashOffersFilesToAVerb) {
    EXPECT_EQ(offered({"stagemgr", "replay", "examples/appliance.j"}),
              "examples/appliance.jsonl\n");
    EXPECT_EQ(offered({"stagemgr", "replay", "--human", "examples/appliance.j"}),
              "examples/appliance.jsonl\n");
}

TEST(Completion, BashOffersTheValuesOfAnOption) {
    EXPECT_EQ(offered({"stagemgr", "replay", "--color", "al"}), "always\n");
    EXPECT_EQ(offered({"stagemgr", "completion", "fi"}), "fish\n");
    EXPECT_EQ(offered({"stagemgr", "completion", ""}), "bash zsh fish\n");
    EXPECT_EQ(offered({"stagemgr", "graph", "--format", ""}), "svg dot mermaid\n");
}

TEST(Completion, BashKnowsTheVerbBehindAnOptionOfTheProgram) {
    EXPECT_EQ(offered({"stagemgr", "--color", "al"}), "always\n");
    EXPECT_EQ(offered({"stagemgr", "--color", "always", "rep"}), "replay\n");
    EXPECT_EQ(offered({"stagemgr", "--color", "always", "replay", "--hu"}), "--human\n");
}

TEST(Completion, EveryShellKnowsEveryVerb) {
    for (const char* const shell : {"bash", "zsh", "fish"})
        for (const char* const verb : {"replay", "completion", "help"})
            EXPECT_THAT(script(shell), HasSubstr(verb)) << shell;
}

TEST(Completion, AnUnknownShellIsAnError) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(commandLine({"completion", "csh"}, Console{in, out, err}), exitUsage);
    EXPECT_THAT(err.str(), HasSubstr("csh"));
}

}  // namespace
}  // namespace Host
