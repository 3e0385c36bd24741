// conformance [--seeds N] [--first S] [--stop]: lets the model and the library do the same random
// journals, and shows the smallest journals on which they differ.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/conformance/Behaviour.h"
#include "tests/conformance/Campaign.h"
#include "tests/conformance/Generator.h"
#include "tests/conformance/JournalText.h"
#include "tests/conformance/Shrink.h"
#include "tests/conformance/Walks.h"

namespace conformance {
namespace {

// What kind of journal a seed stands for.
struct Kind {
    GeneratorOptions generator;
    States states = States::last;
    bool walks = false;
};

Kind kindOf(std::uint64_t seed) {
    Kind kind;
    switch (seed % 8) {
        case 1: kind.generator.meddle = false; break;
        case 3: kind.generator.rename = true; break;
        case 5: kind.generator.abort = true; break;
        case 6:
            kind.generator.abort = true;
            kind.generator.rename = true;
            break;
        case 7:
            kind.generator.fewest = 60;
            kind.generator.most = 300;
            break;
        default: break;
    }
    if (seed / 8 % 16 == 0) kind.states = States::everyLine;
    kind.walks = seed / 8 % 3 == 1;
    return kind;
}

std::string differenceApart(const std::vector<Line>& lines, States states) {
    return firstDifference(modelBehaviour(lines, states).text,
                           libraryBehaviourApart(lines, states));
}

Verdict judge(std::uint64_t seed) {
    const Kind kind = kindOf(seed);
    const std::vector<Line> lines = generate(seed, kind.generator);
    const Behaviour expected = modelBehaviour(lines, kind.states);
    const Walks walks(kind.walks);
    Verdict verdict;
    verdict.lines = lines.size();
    verdict.observations = expected.observations;
    verdict.aborted = expected.aborted;
    // Only what is to abort needs a process of its own.
    verdict.agrees =
        firstDifference(expected.text, expected.aborted ? libraryBehaviourApart(lines, kind.states)
                                                        : libraryBehaviour(lines, kind.states))
            .empty();
    return verdict;
}

// All lines but the states, of which the difference is shown alone.
std::string withoutStates(const std::string& text) {
    std::istringstream in(text);
    std::string out;
    for (std::string line; std::getline(in, line);)
        if (line.find("\"event\": \"state\"") == std::string::npos) out += "  " + line + '\n';
    return out;
}

void show(const std::vector<Line>& lines, States states) {
    const std::string model = modelBehaviour(lines, states).text;
    const std::string library = libraryBehaviourApart(lines, states);
    std::printf(
        "%s\nthe model:\n%s\nthe library:\n%s\nexpected of the model, was of the library:\n%s\n",
        textOf(lines).c_str(), withoutStates(model).c_str(), withoutStates(library).c_str(),
        firstDifference(model, library).c_str());
    std::fflush(stdout);
}

void showSmallest(std::uint64_t seed) {
    const Kind kind = kindOf(seed);
    const Walks walks(kind.walks);
    const std::vector<Line> lines = generate(seed, kind.generator);
    const States states = differenceApart(lines, States::last).empty() ? kind.states : States::last;
    if (differenceApart(lines, states).empty()) {
        std::printf("seed %llu: differs no more when it is run alone; its %zu lines:\n%s\n",
                    static_cast<unsigned long long>(seed), lines.size(), textOf(lines).c_str());
        return;
    }
    const std::vector<Line> small = shrink(lines, [&](const std::vector<Line>& candidate) {
        return !differenceApart(candidate, states).empty();
    });
    std::printf("seed %llu: %zu lines, of which these are left:\n",
                static_cast<unsigned long long>(seed), lines.size());
    show(small, states);
}

std::string summaryOf(const Count& count, double seconds) {
    const auto number = [](std::uint64_t n) { return std::to_string(n); };
    return number(count.journals) + " journals, " + number(count.differences) + " differences (" +
           number(count.lines) + " lines, " + number(count.observations) + " observations, " +
           number(count.aborted) + " journals that end in a failed assertion; " +
           std::to_string(static_cast<std::uint64_t>(seconds + 0.5)) + " s, " +
           number(static_cast<std::uint64_t>(static_cast<double>(count.journals) /
                                             std::max(seconds, 0.001))) +
           " journals a second)";
}

int compareSeeds(std::uint64_t first, std::uint64_t seeds, unsigned jobs, bool stop,
                 std::size_t shown) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const auto seconds = [&] {
        return std::chrono::duration<double>(Clock::now() - start).count();
    };
    Campaign campaign;
    campaign.first = first;
    campaign.seeds = seeds;
    campaign.jobs = jobs;
    campaign.stop = stop;
    campaign.judge = judge;
    campaign.progress = [&](const Count& count) {
        std::fprintf(stderr, "%s\n", summaryOf(count, seconds()).c_str());
    };
    const Result result = run(campaign);
    const std::string summary = summaryOf(result.count, seconds());

    for (std::size_t i = 0; i < std::min(shown, result.differing.size()); ++i)
        showSmallest(result.differing[i]);
    if (!result.differing.empty()) {
        std::printf("seeds that differ:");
        for (const std::uint64_t seed : result.differing)
            std::printf(" %llu", static_cast<unsigned long long>(seed));
        std::printf("%s\n", result.count.differences > result.differing.size() ? " ..." : "");
    }
    if (result.failedProcesses > 0)
        std::printf("%llu processes failed when they ended; see above\n",
                    static_cast<unsigned long long>(result.failedProcesses));
    std::printf("seeds %llu to %llu: %s\n", static_cast<unsigned long long>(first),
                static_cast<unsigned long long>(first + seeds - 1), summary.c_str());
    return result.count.differences == 0 && result.failedProcesses == 0 &&
                   result.count.journals == seeds
               ? 0
               : 1;
}

int compareFile(const std::string& file) {
    std::ifstream in(file);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in) throw std::runtime_error(file + ": cannot be read; name a journal");
    const std::vector<Line> all = parseJournal(text.str());
    const std::vector<Line> lines = applicable(all);
    if (lines.size() != all.size())
        std::printf("%zu lines cannot be applied, and are left out\n", all.size() - lines.size());
    const bool agrees = differenceApart(lines, States::everyLine).empty();
    if (agrees)
        std::printf("no difference\n");
    else
        show(lines,
             differenceApart(lines, States::last).empty() ? States::everyLine : States::last);
    return agrees ? 0 : 1;
}

}  // namespace
}  // namespace conformance

int main(int argc, char** argv) {
    CLI::App app("Compares the library with an independent model of it on random journals.",
                 "conformance");
    std::uint64_t seeds = 20000;
    std::uint64_t first = 1;
    std::uint64_t printed = 0;
    unsigned jobs = 2;
    bool stop = false;
    std::size_t shown = 3;
    std::string journal;
    app.add_option("--seeds", seeds, "How many journals")->check(CLI::PositiveNumber);
    app.add_option("--first", first, "The first seed");
    app.add_option("--jobs", jobs, "How many processes")->check(CLI::Range(1, 256));
    app.add_flag("--stop", stop, "Ends at the first difference");
    app.add_option("--show", shown, "How many differences are shrunken and shown");
    auto* const print = app.add_option("--print", printed, "Only prints the journal of a seed");
    auto* const file =
        app.add_option("--journal", journal, "Compares on this journal, after each of its lines");
    CLI11_PARSE(app, argc, argv);

    try {
        if (print->count() > 0) {
            const auto lines =
                conformance::generate(printed, conformance::kindOf(printed).generator);
            std::printf("%s", conformance::textOf(lines).c_str());
            return 0;
        }
        if (file->count() > 0) return conformance::compareFile(journal);
        return conformance::compareSeeds(first, seeds, jobs, stop, shown);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "conformance: %s\n", error.what());
        return 2;
    }
}
