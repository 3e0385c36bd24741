#include "host/Replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "host/JsonLines.h"
#include "model/EnabledConfig.h"
#include "runtime/Error.h"
#include "tests/host/Journals.h"
#include "tests/host/TemporaryFile.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The messages of the progress log, with their times.
Lines logged(const Lines& journal) {
    Lines lines;
    for (const std::string& line : replayed(journal)) {
        const std::size_t message = line.find("\"message\": \"");
        if (line.find("\"event\": \"log\"") == std::string::npos) continue;
        const std::size_t time = std::string("{\"t\": ").size();
        lines.push_back(line.substr(time, line.find(',') - time) + " " +
                        line.substr(message + 12, line.size() - message - 14));
    }
    return lines;
}

Lines bootOf(const std::string& agentName, const std::string& stage, double timeout) {
    return bootClass() + agent(agentName, stage, timeout) + enable("main");
}

TEST(Replay, AppliesLinesOfOneTimeBackToBack) {
    // Were a pass run between them, "mount" would start before it is held.
    EXPECT_THAT(
        logged(
            bootOf("disk", "mount", 5) +
            R"({"op":"set","path":"/global","attr":"doNotStartStage","key":{"stageClass":"boot","stage":"mount"},"value":true})" +
            R"({"at":1,"op":"end"})"),
        ElementsAre("0.0 Boot stages started"));
}

TEST(Replay, FiresWhatIsDueAtASettle) {
    EXPECT_THAT(
        logged(
            bootOf("disk", "mount", 5) + R"({"op":"settle"})" +
            R"({"op":"set","path":"/global","attr":"doNotStartStage","key":{"stageClass":"boot","stage":"mount"},"value":true})" +
            R"({"at":1,"op":"end"})"),
        ElementsAre("0.0 Boot stages started", "0.0 stage mount started",
                    "0.0   event mount:disk started"));
}

TEST(Replay, FiresTimersAtTheirOwnTimeBetweenTheLines) {
    EXPECT_THAT(
        logged(bootOf("disk", "mount", 2.5) + R"({"at":100,"op":"end"})"),
        ElementsAre("0.0 Boot stages started", "0.0 stage mount started",
                    "0.0   event mount:disk started", "2.5 stage mount is complete (timeout)",
                    "2.5 stage mount timed out but will continue on", "2.5 Boot stages complete"));
}

TEST(Replay, TakesAReportAtTheMomentOfTheLimitAsInTime) {
    const Lines inTime = logged(bootOf("disk", "mount", 2) + report(2, "disk", "mount", "main"));
    const Lines late = logged(bootOf("disk", "mount", 2) + report(2.001, "disk", "mount", "main"));

    EXPECT_EQ(inTime.back(), "2.0 Boot stages complete");
    EXPECT_EQ(inTime[4], "2.0 stage mount is complete");
    EXPECT_EQ(late[3], "2.0 stage mount is complete (timeout)");
}

TEST(Replay, GoesOnUntilNoTimerIsArmed) {
    const std::string all = replayedText(text(bootOf("disk", "mount", 7.5)));

    EXPECT_THAT(all, HasSubstr("{\"t\": 7.5, \"event\": \"state\""));
}

TEST(Replay, StopsAtItsEnd) {
    const std::string all =
        replayedText(text(bootOf("disk", "mount", 7.5) + R"({"at":3,"op":"end"})" +
                          report(4, "disk", "mount", "main")));

    EXPECT_THAT(all, HasSubstr("{\"t\": 3.0, \"event\": \"state\""));
    EXPECT_THAT(all, testing::Not(HasSubstr("completed")));
}

TEST(Replay, FiresWhatIsDueAtTheEnd) {
    EXPECT_EQ(logged(bootOf("disk", "mount", 3) + R"({"at":3,"op":"end"})").back(),
              "3.0 Boot stages complete");
}

TEST(Replay, OfNothingShowsTheHostsTree) {
    EXPECT_EQ(
        replayedText(""),
        R"({"t": 0.0, "event": "state", "tree": {"/stage": {"type": "Orv::Dir"}, "/input": {"type": "Orv::Dir"}, )"
        R"("/agentstatus": {"type": "Orv::Dir"}, "/enable": {"type": "Orv::Dir"}, )"
        R"("/global": {"type": "Stage::StageGlobalConfig", "doNotStartStage": []}, )"
        R"("/fatalerror": {"type": "Stage::FatalError", "requestReboot": "none", "rebootReason": "", "reloadCauseDesc": ""}, )"
        R"("/sm": {"type": "Stage::StageMgrStageClassDirSm", "initialized": true, "stageSubPathSm": [], "stageMgr": []}, )"
        R"("/sm/availableStageSubPath": {"type": "Stage::AvailableStageSubPaths", "stageSubPath": {}}}})"
        "\n");
}

TEST(Observations, LeaveOutWhatTheInputsThemselvesChange) {
    EXPECT_THAT(
        replayed(bootClass() +
                 R"({"op":"set","path":"/fatalerror","attr":"rebootReason","value":"x"})" +
                 R"({"op":"set","path":"/stage/boot/status","attr":"stage","key":"a"})" +
                 R"({"op":"set","path":"/stage/boot/status/stage/a","attr":"timeout","value":3})" +
                 R"({"op":"unset","path":"/stage/boot/status","attr":"stage","key":"a"})" +
                 R"({"op":"delete","path":"/stage/boot"})"),
        IsEmpty());
}

TEST(Observations, HoldTheManagersAnswerToAnInputInTheSameAttribute) {
    // The withdrawal of the request is the host's, that of the event the manager's.
    const Lines lines = replayed(
        bootClass() + create("/agentstatus/boot/late", "Stage::AgentStatus") +
        R"({"op":"set","path":"/agentstatus/boot/late","attr":"stageRequest","key":"s","value":{"agent":"late","stage":"s","timeout":2}})" +
        R"({"at":1,"op":"clear","path":"/agentstatus/boot/late","attr":"stageRequest"})");

    EXPECT_THAT(
        lines,
        testing::Contains(
            R"({"t": 1.0, "event": "unset", "path": "/input/boot/late", "attr": "event", "key": "s"})"));
    for (const std::string& line : lines) EXPECT_EQ(line.find("stageRequest\""), std::string::npos);
}

TEST(Observations, OfAClearComeKeyByKey) {
    const Lines before = bootOf("disk", "mount", 5) + enable("spare") + R"({"op":"settle"})";
    Lines lines =
        replayed(before + R"({"at":1,"op":"clear","path":"/enable/boot","attr":"enabled"})");
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(
                                                   replayed(before + R"({"op":"end"})").size()));

    Lines expected;
    for (const std::string instance : {"main", "spare"})
        for (const std::string place :
             {R"(completionstatus", "attr": "status")", R"(status", "attr": "instStatus")",
              R"(progress", "attr": "progress")", R"(log", "attr": "instanceLog")"})
            expected.push_back(R"({"t": 1.0, "event": "unset", "path": "/stage/boot/)" + place +
                               ", \"key\": \"" + instance + "\"}");
    EXPECT_EQ(lines, expected);
}

TEST(Observations, LeaveOutWhatGoesWithADeletedEntry) {
    const Lines before = bootOf("disk", "mount", 5) + R"({"op":"settle"})";
    const Lines quiet = replayed(before + R"({"op":"end"})");

    const Lines lines =
        replayed(before + R"({"at":1,"op":"delete","path":"/stage/boot"})" + R"({"op":"end"})");

    EXPECT_EQ(Lines(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(quiet.size())),
              quiet);
    for (const std::string& line : lines)
        EXPECT_EQ(line.find("\"event\": \"delete\""), std::string::npos) << line;
}

// Throws whenever an instance is enabled or disabled.
class Thrower final : public Stage::EnabledConfig::NotifieeConst {
    void onEnabled(Orv::String instance) override {
        throw std::runtime_error("no " + instance.str());
    }
};

TEST(Observations, HoldTheExceptionsOfHandlersAndGoOn) {
    std::ostringstream out;
    {
        JsonLines view(out);
        Replay run(view);
        for (const std::string& line : bootClass()) run.apply(parseInput(line, 0));
        Thrower thrower;
        thrower.notifierIs(run.tree().enableDir()->entityPtr<Stage::EnabledConfig>("boot"));
        run.apply(parseInput(enable("main"), 0));
        thrower.notifierIs(nullptr);
        run.finish();
    }
    EXPECT_THAT(out.str(),
                HasSubstr("{\"t\": 0.0, \"event\": \"error\", \"text\": \"no main\"}\n"));
    EXPECT_THAT(out.str(), HasSubstr("Boot stages complete"));
}

TEST(Observations, HoldPrintedLinesAndHandThemOn) {
    std::istringstream in(text(
        bootOf("bmc", "firmware", 1) +
        R"({"op":"set","path":"/input/boot/bmc/event/firmware","attr":"critical","value":true})"));
    std::ostringstream out;
    std::ostringstream printed;
    JsonLines view(out, &printed);
    replay(in, view);

    EXPECT_EQ(printed.str(), " Critical stage firmware timed out! Boot suspended for debugging.\n");
    EXPECT_THAT(
        out.str(),
        HasSubstr(
            R"({"t": 1.0, "event": "print", "text": " Critical stage firmware timed out! Boot suspended for debugging."})"));
}

TEST(ObservationsDeathTest, AreWrittenOutBeforeAnAbort) {
    const TemporaryFile temporary;
    const std::string& file = temporary.path();
    EXPECT_DEATH(
        {
            std::ofstream out(file);
            JsonLines view(out);
            Replay run(view);
            for (const std::string& line : bootOf("disk", "mount", 5))
                run.apply(parseInput(line, 0));
            Orv::assertThat(false, "the moon is there");
        },
        "Assertion failed: the moon is there");

    std::ifstream in(file);
    std::string last;
    for (std::string line; std::getline(in, line);) last = line;
    EXPECT_EQ(
        last,
        R"({"t": 0.0, "event": "log", "path": "/stage/boot/log/instanceLog/main", "message": "Boot stages started"})");
}

// Gives a line at a time, and notes what had been written before each.
class LineByLine final : public std::streambuf {
  public:
    LineByLine(Lines lines, const std::ostringstream& out) : lines_(std::move(lines)), out_(out) {}
    std::vector<std::size_t> writtenBefore;

  private:
    int_type underflow() override {
        writtenBefore.push_back(out_.str().size());
        if (next_ == lines_.size()) return traits_type::eof();
        current_ = lines_[next_++] + "\n";
        setg(current_.data(), current_.data(), current_.data() + current_.size());
        return traits_type::to_int_type(current_[0]);
    }
    std::streamsize showmanyc() override { return 0; }

    Lines lines_;
    const std::ostringstream& out_;
    std::size_t next_ = 0;
    std::string current_;
};

TEST(Replay, WritesTheAnswerToALineBeforeItWaitsForTheNext) {
    std::ostringstream out;
    LineByLine lines(bootOf("disk", "mount", 5) + R"({"op":"settle"})" + R"({"op":"settle"})", out);
    std::istream in(&lines);

    replay(in, out);

    // The class; then agent, registration, limit, status; then enabling, and twice settling.
    const std::vector<std::size_t>& before = lines.writtenBefore;
    ASSERT_GE(before.size(), 20u);
    EXPECT_EQ(before[12], 0u);          // nothing yet
    EXPECT_GT(before[14], 0u);          // the stage is known
    EXPECT_GT(before[17], before[16]);  // the instance is
    EXPECT_GT(before[18], before[17]);  // the stage has started
    EXPECT_EQ(before[19], before[18]);  // and that is all
}

TEST(Replay, RunsManyTimesInOneProcessAndNested) {
    const std::string journal = text(bootOf("disk", "mount", 5));
    const std::string once = replayedText(journal);
    View quiet;
    Replay outer(quiet);
    outer.apply(parseInput(R"({"at":50,"op":"settle"})", 0));

    for (int i = 0; i < 100; ++i) ASSERT_EQ(replayedText(journal), once);

    EXPECT_EQ(outer.time(), 50);
    EXPECT_EQ(Orv::System::currentTime(), 50);
}

}  // namespace
}  // namespace Host
