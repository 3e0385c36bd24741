// Journals that were damaged at random: each is replayed, or refused with a line number. Nothing
// else happens, which the sanitizers see to.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "host/HumanView.h"
#include "host/Journal.h"
#include "host/Replay.h"
#include "host/Utf8.h"
#include "tests/host/Journals.h"

namespace Host {
namespace {

using Random = std::mt19937;

// 0 where there is nothing to choose from.
std::size_t below(Random& random, std::size_t end) { return end == 0 ? 0 : random() % end; }

// Without stage requests: a damaged one may name another agent, which the manager takes for a
// mistake of our own, and ends.
Lines wholeJournal() {
    return bootClass() + agent("disk", "mount", 5) + agent("nic", "network", 2) +
           R"({"op":"set","path":"/input/boot/nic/event/network","attr":"dependency","key":"mount","value":true})" +
           R"({"op":"set","path":"/input/boot/nic/event/network","attr":"critical","value":true})" +
           R"({"op":"set","path":"/input/boot/disk/event/mount","attr":"autoCompleteTimeout","value":1.5})" +
           R"({"op":"set","path":"/input/boot/disk/event/mount","attr":"enableAutoComplete","value":true})" +
           R"({"op":"set","path":"/stage/boot/config/config","attr":"globalStageCompletionTimeout","value":60})" +
           R"({"op":"set","path":"/stage/boot/config/config","attr":"agentDir","value":"/input/boot"})" +
           enable("main") + enable("spare") + R"({"op":"settle"})" +
           report(1, "disk", "mount", "main") + report(1.25, "nic", "network", "main") +
           R"({"op":"set","path":"/global","attr":"doNotStartStage","key":{"stageClass":"boot","stage":"network"},"value":true})" +
           R"({"op":"clear","path":"/global","attr":"doNotStartStage"})" +
           R"({"op":"delete","path":"/input/boot/disk"})" +
           R"({"at":3,"op":"unset","path":"/enable/boot","attr":"enabled","key":"main"})" +
           R"({"at":70,"op":"end"})";
}

// One damage: to bytes, to words, or to the order of lines.
std::string damaged(std::string journal, const std::string& spare, Random& random) {
    if (journal.empty()) return spare;
    const std::size_t at = below(random, journal.size());
    const std::size_t length = std::min(1 + below(random, 12), journal.size() - at);
    switch (below(random, 8)) {
        case 0: journal[at] = static_cast<char>(random()); break;
        case 1: journal.erase(at, length); break;
        case 2: journal.insert(at, spare.substr(below(random, spare.size()), length)); break;
        case 3: journal.resize(at); break;
        case 4:
            journal.replace(at, length, spare.substr(below(random, spare.size()), length));
            break;
        case 5: {  // a bit
            journal[at] = static_cast<char>(journal[at] ^ (1 << below(random, 8)));
            break;
        }
        case 6: {  // a line stands elsewhere
            const std::size_t from = journal.rfind('\n', at) + 1;
            const std::size_t end = std::min(journal.find('\n', from), journal.size() - 1) + 1;
            const std::string line = journal.substr(from, end - from);
            journal.erase(from, line.size());
            const std::size_t to = journal.find('\n', below(random, journal.size()));
            journal.insert(to == std::string::npos ? 0 : to + 1, line);
            break;
        }
        default: {  // a word in place of another
            static constexpr const char* words[] = {"true",
                                                    "null",
                                                    "\"inf\"",
                                                    "\"-inf\"",
                                                    "\"nan\"",
                                                    "-1",
                                                    "1e308",
                                                    "{}",
                                                    "[]",
                                                    "\"\"",
                                                    "\"/sm\"",
                                                    "\"create\"",
                                                    "\"delete\"",
                                                    "\"set\"",
                                                    "\"unset\"",
                                                    "\"clear\"",
                                                    "\"enabled\"",
                                                    "\"complete\"",
                                                    "\"event\"",
                                                    "\"main\"",
                                                    "\"mount\"",
                                                    "\"/stage/boot\"",
                                                    "\"/input/boot/disk\"",
                                                    "\"/enable/boot\"",
                                                    "\"Orv::Dir\""};
            const std::size_t from = journal.find_first_of(":,", at);
            if (from == std::string::npos) break;
            const std::size_t end = journal.find_first_of(",}\n", from + 1);
            if (end == std::string::npos) break;
            journal.replace(from + 1, end - from - 1, words[below(random, std::size(words))]);
        }
    }
    return journal.empty() ? "\n" : journal;
}

class Mutations : public testing::TestWithParam<unsigned> {};

TEST_P(Mutations, AreReplayedOrRefused) {
    Random random(GetParam());
    const Lines lines = wholeJournal();
    const std::string whole = text(lines);
    std::size_t replayedWhole = 0;
    std::size_t refused = 0;
    for (int i = 0; i < 400; ++i) {
        std::string journal = whole;
        for (std::size_t n = 1 + below(random, 3); n > 0; --n)
            journal = damaged(journal, whole, random);
        SCOPED_TRACE(journal);
        std::istringstream in(journal);
        std::ostringstream out;
        try {
            if (i % 4 == 0) {
                HumanView view(out, {.colour = true, .columns = 40});
                replay(in, view);
            } else {
                replay(in, out);
            }
            ++replayedWhole;
        } catch (const JournalError& e) {
            ++refused;
            const std::string what = e.what();
            EXPECT_FALSE(what.empty());
            EXPECT_EQ(what.find_first_of("\n\r\033"), std::string::npos) << "one plain line";
            EXPECT_GE(e.line(), 1u);
            EXPECT_LE(
                e.line(),
                static_cast<std::size_t>(std::count(journal.begin(), journal.end(), '\n')) + 1);
        }
        EXPECT_EQ(utf8Fault(out.str()), std::string::npos);
    }
    EXPECT_GT(replayedWhole, 10u);
    EXPECT_GT(refused, 100u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Mutations, testing::Range(1u, 6u));

}  // namespace
}  // namespace Host
