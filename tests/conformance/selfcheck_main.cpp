// conformance-selfcheck: that the comparison finds what it is there to find. Ends with status 1
// when it does not.
#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/StageMgrStageClassDirSm.h"
#include "host/Tree.h"
#include "runtime/ActivityManager.h"
#include "tests/conformance/Behaviour.h"
#include "tests/conformance/Campaign.h"
#include "tests/conformance/Generator.h"
#include "tests/conformance/Invariants.h"
#include "tests/conformance/JournalText.h"
#include "tests/conformance/Shrink.h"

namespace conformance {
namespace {

int failures = 0;

void check(bool holds, const std::string& fact) {
    std::printf("%s %s\n", holds ? "ok    " : "FAILED", fact.c_str());
    std::fflush(stdout);
    if (!holds) ++failures;
}

// --- What differs is found, and made small

using Deafness = std::function<bool(const Line&)>;

// A library that does not hear of some lines. Those that cannot be applied without them go as well.
std::string deafBehaviour(const std::vector<Line>& lines, const Deafness& deaf) {
    std::vector<Line> heard;
    for (const Line& line : lines)
        if (!deaf(line)) heard.push_back(line);
    return libraryBehaviourApart(applicable(heard), States::last);
}

bool differs(const std::vector<Line>& lines, const Deafness& deaf) {
    return !firstDifference(modelBehaviour(lines, States::last).text, deafBehaviour(lines, deaf))
                .empty();
}

void findsDeafness(const std::string& what, std::size_t largest, const Deafness& deaf) {
    constexpr std::uint64_t seeds = 200;
    for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
        const std::vector<Line> lines = generate(seed);
        if (!differs(lines, deaf)) continue;
        const std::vector<Line> small = shrink(
            lines, [&](const std::vector<Line>& candidate) { return differs(candidate, deaf); });
        check(differs(small, deaf) && small.size() <= largest,
              "a library that is deaf to " + what + " is found by seed " + std::to_string(seed) +
                  ", and shown by " + std::to_string(small.size()) + " lines of " +
                  std::to_string(lines.size()));
        return;
    }
    check(false,
          "a library that is deaf to " + what + " is found by " + std::to_string(seeds) + " seeds");
}

void findsDifferences() {
    const auto sets = [](const char* attr) {
        return [attr](const Line& line) { return line.op == Op::set && line.attr == attr; };
    };
    findsDeafness("suspension", 25, sets("suspended"));
    findsDeafness("dependencies", 25, sets("dependency"));
    findsDeafness("the list of stages that are held", 25, sets("doNotStartStage"));
    findsDeafness("withdrawals", 25,
                  [](const Line& line) { return line.op == Op::unset && line.attr == "event"; });

    const std::vector<Line> lines = generate(1);
    const std::string text = modelBehaviour(lines, States::everyLine).text;
    check(firstDifference(text, libraryBehaviour(lines, States::everyLine)).empty(),
          "the library agrees on the first journal, after each of its lines");
    check(!firstDifference(text, modelBehaviour(lines, States::last).text).empty(),
          "states that are missing are a difference");
    check(!firstDifference(text, text + "broken: something\n").empty(),
          "a broken invariant is a difference");
    check(firstDifference("{\"a\": 1, \"b\": [true]}", "{\"b\": [true], \"a\": 1.0}").empty(),
          "another order of an object's members is none");
}

// --- A run that ends badly is told from one that ends well

Line line(Op op, std::string path) {
    Line made;
    made.op = op;
    made.path = std::move(path);
    return made;
}

// A class, and an agent that asks for a stage in another agent's name.
std::vector<Line> abortingJournal() {
    std::vector<Line> lines;
    const auto create = [&](const char* path, const char* type) {
        lines.push_back(line(Op::create, path));
        lines.back().type = type;
    };
    create("/stage/boot", "Orv::Dir");
    create("/stage/boot/config", "Orv::Dir");
    create("/stage/boot/config/config", "Stage::Config");
    create("/stage/boot/status", "Stage::Status");
    create("/stage/boot/completionstatus", "Stage::CompletionStatusDir");
    create("/stage/boot/progress", "Stage::ProgressDir");
    create("/stage/boot/log", "Stage::Log");
    create("/input/boot", "Orv::Dir");
    create("/agentstatus/boot", "Orv::Dir");
    create("/enable/boot", "Stage::EnabledConfig");
    create("/agentstatus/boot/fan", "Stage::AgentStatus");
    lines.push_back(line(Op::set, "/agentstatus/boot/fan"));
    lines.back().attr = "stageRequest";
    lines.back().key = nameKey("early");
    lines.back().value = Request{"disk", "early", 1};
    return lines;
}

void tellsHowRunsEnd() {
    const std::vector<Line> lines = abortingJournal();
    const Behaviour model = modelBehaviour(lines, States::last);
    const std::string library = libraryBehaviourApart(lines, States::last);
    check(model.aborted, "the model knows that a request in another agent's name is a mistake");
    check(library.find("Assertion failed: agentName() == agent") != std::string::npos,
          "the text of an assertion that fails in the library is seen");
    check(firstDifference(model.text, library).empty(), "the library agrees");
    check(!firstDifference(model.text,
                           libraryBehaviourApart({lines.begin(), lines.end() - 1}, States::last))
               .empty(),
          "a run that ends well is a difference then");

    std::vector<Line> wrong = {line(Op::set, "/nowhere")};
    wrong.back().attr = "critical";
    wrong.back().value = true;
    check(libraryBehaviour(wrong, States::last).find("refused: ") != std::string::npos,
          "a line that the library refuses is a difference");
}

// --- A seed that ends its process, or never ends, is a difference of that seed alone

void survivesBadSeeds() {
    const auto judged = [](unsigned jobs, std::function<Verdict(std::uint64_t)> judge) {
        Campaign campaign;
        campaign.first = 100;
        campaign.seeds = 50;
        campaign.jobs = jobs;
        campaign.judge = std::move(judge);
        campaign.patience = 1;
        return run(campaign);
    };
    const auto only = [](const Result& result, std::vector<std::uint64_t> seeds) {
        return result.count.journals == 50 && result.differing == seeds &&
               result.count.differences == seeds.size();
    };
    check(only(judged(1, [](std::uint64_t) { return Verdict(); }), {}), "seeds that agree count");
    check(only(judged(3,
                      [](std::uint64_t seed) {
                          Verdict verdict;
                          verdict.agrees = seed != 100 && seed != 149;
                          return verdict;
                      }),
               {100, 149}),
          "seeds that differ are named, the first and the last included");
    check(only(judged(2,
                      [](std::uint64_t seed) {
                          if (seed == 101) std::raise(SIGKILL);
                          if (seed == 120) std::_Exit(3);
                          return Verdict();
                      }),
               {101, 120}),
          "a seed that ends its process is named, and the others are judged");
    check(only(judged(1,
                      [](std::uint64_t seed) {
                          while (seed == 110) getpid();
                          return Verdict();
                      }),
               {110}),
          "a seed that never ends is named, and the others are judged");
    const pid_t self = getpid();
    const Result leaking = judged(1, [self](std::uint64_t seed) {
        if (seed == 100 && getpid() != self) std::atexit([] { std::_Exit(7); });
        return Verdict();
    });
    check(only(leaking, {}) && leaking.failedProcesses == 1,
          "a process that fails when it ends is counted");
}

// --- A broken invariant is seen

void seesBrokenInvariants() {
    Orv::ActivityManager activity;
    const Orv::ActivityScope scope(activity);
    const Host::Tree tree;
    std::vector<std::string> broken;
    Invariants invariants(tree, [&](const std::string& what) { broken.push_back(what); });

    invariants.onStanding();
    check(broken.empty(), "nothing is broken in a tree that is new");

    const Orv::Attribute& attribute = *tree.fatalError()->info().attribute("requestReboot");
    tree.fatalError()->requestRebootIs(Stage::FatalError::ResetMode::cold);
    invariants.onScalar(*tree.fatalError(), attribute);
    check(broken.empty(), "one request for a reboot is none too many");
    tree.fatalError()->requestRebootIs(Stage::FatalError::ResetMode::warm);
    invariants.onScalar(*tree.fatalError(), attribute);
    check(broken.size() == 1, "a second one is");
    broken.clear();

    tree.root()->entityRef("global")->nameIsFromBackup("other");
    invariants.onStanding();
    check(broken.size() == 1, "an entry that bears another name than it stands under is seen");
}

}  // namespace
}  // namespace conformance

int main() {
    conformance::findsDifferences();
    conformance::tellsHowRunsEnd();
    conformance::survivesBadSeeds();
    conformance::seesBrokenInvariants();
    std::printf("%d failed\n", conformance::failures);
    return conformance::failures == 0 ? 0 : 1;
}
