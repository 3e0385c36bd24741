// The observations are a function of the journal, and of nothing else.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "runtime/Ptr.h"
#include "runtime/Trace.h"
#include "tests/host/Journals.h"

namespace Host {
namespace {

std::vector<std::string> journals() {
    std::vector<std::filesystem::path> files{"examples/appliance.jsonl"};
    for (const auto& entry : std::filesystem::directory_iterator("tests/scenario/cases"))
        if (entry.path().string().ends_with(".in.jsonl")) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<std::string> texts;
    for (const auto& file : files) {
        std::ostringstream text;
        text << std::ifstream(file).rdbuf();
        texts.push_back(text.str());
    }
    return texts;
}

std::vector<std::string> allReplayed() {
    std::vector<std::string> observations;
    for (const std::string& journal : journals()) observations.push_back(replayedText(journal));
    return observations;
}

// Counts, so that a test can tell that there was something to trace.
class CountingSink final : public Orv::TraceSink {
  public:
    void line(const Orv::TraceSite&, const std::string&) override { ++lines; }
    std::size_t lines = 0;
};

TEST(Observations, AreTheSameEachTime) {
    const auto first = allReplayed();

    ASSERT_GT(first.size(), 10u);
    EXPECT_EQ(allReplayed(), first);
}

TEST(Observations, AreTheSameWithThreadSafePointers) {
    const auto plain = allReplayed();

    Orv::threadSafePtrsIs(true);
    const auto safe = allReplayed();
    Orv::threadSafePtrsIs(false);

    EXPECT_EQ(safe, plain);
}

TEST(Observations, AreTheSameWithTracing) {
    const auto silent = allReplayed();
    Orv::TraceHandle& trace = Orv::TraceHandle::named("StageMgr");
    CountingSink sink;

    trace.sinkIs(&sink);
    for (const int level : {0, 4, 7, 8, 9}) {
        trace.levelIs(level);
        EXPECT_EQ(allReplayed(), silent) << "at level " << level;
    }
    trace.levelIs(Orv::TraceHandle::off);
    trace.recordLevelIs(9);
    EXPECT_EQ(allReplayed(), silent) << "with the ring buffer on";
    trace.recordLevelIs(Orv::TraceHandle::off);
    trace.sinkIs(nullptr);

    EXPECT_GT(sink.lines, 1000u);
}

}  // namespace
}  // namespace Host
