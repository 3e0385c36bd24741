// conformance-allocation [--seeds N] [--step K] [JOURNAL...]: refuses the n-th allocation of a
// journal's run, for every n, and goes on with the journal.
//
// Whatever is refused: nothing crashes, nothing leaks, and what stands under a name bears it and
// knows where it stands. What the handler that was cut off should have done is lost.
#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "host/Journal.h"
#include "host/Replay.h"
#include "tests/conformance/Behaviour.h"
#include "tests/conformance/Generator.h"
#include "tests/conformance/Invariants.h"
#include "tests/conformance/JournalText.h"
#include "tests/support/Allocations.h"

namespace conformance {
namespace {

using RuntimeTest::FailingAllocation;

struct Journal {
    std::string name;
    std::vector<Line> lines;
};

std::vector<Host::Input> inputsOf(const std::vector<Line>& lines) {
    std::vector<Host::Input> inputs;
    double at = 0;
    for (const Line& line : lines) {
        inputs.push_back(Host::parseInput(textOf(line), at));
        at = inputs.back().at;
    }
    return inputs;
}

// Returns false when there were fewer allocations, and tells of what is wrong otherwise.
template <class Say>
bool runWithout(std::size_t allocation, const std::vector<Host::Input>& inputs, const Say& say) {
    const std::size_t before = RuntimeTest::allocationsHeld();
    bool refused = false;
    // A line that cannot be applied because an earlier one was cut off is passed over.
    const auto goOn = [&](auto&& act) {
        try {
            act();
        } catch (const std::bad_alloc&) {
        } catch (const Host::MalformedInput&) {
        }
    };
    {
        const FailingAllocation failing(allocation, RuntimeTest::Refused::one);
        Host::View nobody;
        goOn([&] {
            Host::Replay replay(nobody);
            Invariants invariants(replay.tree(), say);
            for (const Host::Input& input : inputs) {
                bool more = true;
                goOn([&] { more = replay.apply(input); });
                if (!more) break;
            }
            goOn([&] { replay.finish(); });
            if (failing.failed()) invariants.onStandingCutOff();
        });
        refused = failing.failed();
    }
    if (!refused) return false;
    if (const std::size_t held = RuntimeTest::allocationsHeld(); held != before)
        say(std::to_string(held - before) + " allocations are never freed");
    return true;
}

// Returns how much was wrong in its runs.
std::size_t judge(const Journal& journal, std::size_t step, std::size_t& runs) {
    const std::vector<Host::Input> inputs = inputsOf(journal.lines);
    const std::string untouched = libraryBehaviour(journal.lines, States::last);
    std::size_t wrong = 0;
    std::size_t allocation = 1;
    const auto say = [&](const std::string& what) {
        if (++wrong <= 5)
            std::printf("%s, without its allocation %zu: %s\n", journal.name.c_str(), allocation,
                        what.c_str());
    };
    for (; runWithout(allocation, inputs, say); allocation += step) ++runs;
    // What all runs have in common has not suffered.
    if (libraryBehaviour(journal.lines, States::last) != untouched)
        say("the next run has other observations");
    return wrong;
}

}  // namespace
}  // namespace conformance

int main(int argc, char** argv) {
    CLI::App app("Refuses each allocation of a journal's run, one in each run.",
                 "conformance-allocation");
    std::uint64_t seeds = 0;
    std::size_t step = 1;
    std::vector<std::string> files;
    app.add_option("--seeds", seeds, "How many random journals");
    app.add_option("--step", step, "Every how manieth allocation")->check(CLI::PositiveNumber);
    app.add_option("journal", files, "Journals")->check(CLI::ExistingFile);
    CLI11_PARSE(app, argc, argv);

    try {
        std::vector<conformance::Journal> journals;
        for (const std::string& file : files) {
            std::ostringstream text;
            text << std::ifstream(file).rdbuf();
            journals.push_back({file, conformance::parseJournal(text.str())});
        }
        for (std::uint64_t seed = 1; seed <= seeds; ++seed)
            journals.push_back({"seed " + std::to_string(seed), conformance::generate(seed)});

        std::size_t runs = 0;
        std::size_t wrong = 0;
        for (const conformance::Journal& journal : journals)
            wrong += conformance::judge(journal, step, runs);
        std::printf("%zu journals, %zu allocations refused, %zu faults\n", journals.size(), runs,
                    wrong);
        return wrong == 0 && runs > 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "conformance-allocation: %s\n", error.what());
        return 2;
    }
}
