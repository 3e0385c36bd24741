#include "host/plan/PlanInputs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "host/Replay.h"
#include "host/plan/PlanReader.h"
#include "tests/host/Journals.h"

namespace Host {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Plan plan(const std::string& text) { return wantedPlan("p.yaml", "version: 1\n" + text, false); }

Lines linesOf(const std::vector<Input>& inputs) {
    Lines lines;
    for (const Input& input : inputs) lines.push_back(inputLine(input));
    return lines;
}

// The lines that name any of the paths or attributes.
Lines linesOf(const std::string& text, const std::string& with) {
    Lines lines;
    for (const std::string& line : linesOf(planInputs(plan(text))))
        if (line.find(with) != std::string::npos) lines.push_back(line);
    return lines;
}

// What the manager logs: "TIME MESSAGE".
Lines logged(const std::vector<Input>& inputs) {
    Lines lines;
    for (const std::string& line : replayed(linesOf(inputs))) {
        const std::size_t message = line.find("\"message\": \"");
        if (line.find("\"event\": \"log\"") == std::string::npos) continue;
        lines.push_back(line.substr(6, line.find(',') - 6) + " " +
                        line.substr(message + 12, line.size() - message - 14));
    }
    return lines;
}

TEST(PlanInputs, SmallestPlanIsWholeInputs) {
    EXPECT_THAT(
        linesOf(planInputs(plan("stages: {a: }\n"))),
        ElementsAre(
            R"({"at": 0.0, "op": "create", "path": "/stage/system", "type": "Orv::Dir"})",
            R"({"at": 0.0, "op": "create", "path": "/stage/system/config", "type": "Orv::Dir"})",
            R"({"at": 0.0, "op": "create", "path": "/stage/system/config/config", "type": "Stage::Config"})",
            R"({"at": 0.0, "op": "create", "path": "/stage/system/status", "type": "Stage::Status"})",
            R"({"at": 0.0, "op": "create", "path": "/stage/system/completionstatus", "type": "Stage::CompletionStatusDir"})",
            R"({"at": 0.0, "op": "create", "path": "/stage/system/progress", "type": "Stage::ProgressDir"})",
            R"({"at": 0.0, "op": "create", "path": "/stage/system/log", "type": "Stage::Log"})",
            R"({"at": 0.0, "op": "create", "path": "/input/system", "type": "Orv::Dir"})",
            R"({"at": 0.0, "op": "create", "path": "/agentstatus/system", "type": "Orv::Dir"})",
            R"({"at": 0.0, "op": "create", "path": "/enable/system", "type": "Stage::EnabledConfig"})",
            R"({"at": 0.0, "op": "set", "path": "/stage/system/config/config", "attr": "stageClass", "value": "system"})",
            R"({"at": 0.0, "op": "set", "path": "/stage/system/config/config", "attr": "application", "value": "system"})",
            R"({"at": 0.0, "op": "set", "path": "/stage/system/config/config", "attr": "globalStageCompletionTimeout", "value": 0.0})",
            R"({"at": 0.0, "op": "set", "path": "/stage/system/config/config", "attr": "stageTimeoutIsFatal", "value": true})",
            R"({"at": 0.0, "op": "set", "path": "/stage/system/config/config", "attr": "continueOnTimeout", "value": false})",
            R"({"at": 0.0, "op": "set", "path": "/stage/system/config/config", "attr": "resetMode", "value": "cold"})",
            R"({"at": 0.0, "op": "set", "path": "/stage/system/config/config", "attr": "reloadCauseDesc", "value": "Stage progression timeout."})",
            R"({"at": 0.0, "op": "create", "path": "/input/system/a", "type": "Stage::AgentConfig"})",
            R"({"at": 0.0, "op": "create", "path": "/agentstatus/system/a", "type": "Stage::AgentStatus"})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/a", "attr": "event", "key": "a"})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/a/event/a", "attr": "timeout", "value": 90.0})",
            R"({"at": 0.0, "op": "set", "path": "/enable/system", "attr": "enabled", "key": "main", "value": true})"));
}

TEST(PlanInputs, TimeOutsDoWhatThePlanSays) {
    const auto settings = [](const std::string& word) {
        return linesOf("on-timeout: " + word + "\nstages: {a: }\n", "imeout\", \"value\": ");
    };
    EXPECT_THAT(settings("continue"), Contains(HasSubstr("continueOnTimeout\", \"value\": true")));
    EXPECT_THAT(settings("wait"), Contains(HasSubstr("continueOnTimeout\", \"value\": false")));
    const auto fatal = [](const std::string& word) {
        return linesOf("on-timeout: " + word + "\nstages: {a: }\n", "stageTimeoutIsFatal");
    };
    EXPECT_THAT(fatal("reboot"), ElementsAre(HasSubstr("true")));
    EXPECT_THAT(fatal("continue"), ElementsAre(HasSubstr("false")));
    EXPECT_THAT(fatal("wait"), ElementsAre(HasSubstr("false")));
}

TEST(PlanInputs, DeadlineIsSaidInSeconds) {
    EXPECT_THAT(linesOf("deadline: 2min\nstages: {a: }\n", "globalStage"),
                ElementsAre(HasSubstr("\"value\": 120.0")));
}

TEST(PlanInputs, AgentOfSeveralStagesIsMadeOnce) {
    const std::string text = "stages: {a: {participants: {fan: }}, b: {participants: {fan: }}}\n";
    EXPECT_THAT(linesOf(text, "Stage::AgentConfig").size(), 1u);
    EXPECT_THAT(linesOf(text, "Stage::AgentStatus").size(), 1u);
    EXPECT_THAT(linesOf(text, "\"attr\": \"event\""),
                ElementsAre(HasSubstr("\"key\": \"a\""), HasSubstr("\"key\": \"b\"")));
}

TEST(PlanInputs, EventSaysWhatItsParticipantDoes) {
    EXPECT_THAT(
        linesOf("stages:\n"
                "  b:\n"
                "    after: a\n"
                "    participants:\n"
                "      x: {after: c, critical: true, limit: infinity, auto-complete: 5s}\n"
                "      y:\n",
                "/event/b"),
        ElementsAre(
            R"({"at": 0.0, "op": "set", "path": "/input/system/x/event/b", "attr": "timeout", "value": "inf"})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/x/event/b", "attr": "critical", "value": true})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/x/event/b", "attr": "dependency", "key": "a", "value": true})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/x/event/b", "attr": "dependency", "key": "c", "value": true})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/x/event/b", "attr": "autoCompleteTimeout", "value": 5.0})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/x/event/b", "attr": "enableAutoComplete", "value": true})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/y/event/b", "attr": "timeout", "value": 90.0})",
            R"({"at": 0.0, "op": "set", "path": "/input/system/y/event/b", "attr": "dependency", "key": "a", "value": true})"));
}

TEST(PlanInputs, InstancesAreEnabledInTheOrderOfTheirStarts) {
    EXPECT_THAT(
        linesOf("instances: {late: {start: 1min}, held: {suspended: true, start: 5}, now: }\n"
                "stages: {a: }\n",
                "\"path\": \"/enable/system\", \"attr\""),
        ElementsAre(
            R"({"at": 0.0, "op": "set", "path": "/enable/system", "attr": "enabled", "key": "now", "value": true})",
            R"({"at": 5.0, "op": "set", "path": "/enable/system", "attr": "suspended", "key": "held", "value": true})",
            R"({"at": 5.0, "op": "set", "path": "/enable/system", "attr": "enabled", "key": "held", "value": true})",
            R"({"at": 60.0, "op": "set", "path": "/enable/system", "attr": "enabled", "key": "late", "value": true})"));
}

TEST(PlanInputs, EveryClassIsRegisteredBeforeAnyInstanceIsEnabled) {
    const Lines lines = linesOf(planInputs(
        plan("classes: {boot: {stages: {a: }}, more: {stages: {b: }, do-not-start: b}}\n")));
    ASSERT_GE(lines.size(), 2u);
    EXPECT_THAT(lines[lines.size() - 2], HasSubstr("\"/enable/boot\""));
    EXPECT_THAT(lines[lines.size() - 1], HasSubstr("\"/enable/more\""));
    EXPECT_THAT(
        lines,
        Contains(
            R"({"at": 0.0, "op": "set", "path": "/global", "attr": "doNotStartStage", "key": {"stageClass": "more", "stage": "b"}, "value": true})"));
}

// The manager narrows limits to the nearest number of single precision, which may be a smaller one.
TEST(PlanInputs, NoLimitIsLessThanThePlans) {
    const auto limit = [](const std::string& said) {
        return linesOf("stages: {a: {limit: " + said + "}}\n", "\"timeout\"").front();
    };
    ASSERT_LT(0.7F, 0.7);
    ASSERT_GT(0.1F, 0.1);

    EXPECT_THAT(limit("700ms"), HasSubstr("\"value\": 0.7000000476837158}"));
    EXPECT_THAT(limit("100ms"), HasSubstr("\"value\": 0.1}"));
    EXPECT_THAT(limit("2.5s"), HasSubstr("\"value\": 2.5}"));
}

TEST(PlanInputs, NamesAreEscapedInPaths) {
    EXPECT_THAT(linesOf("class: a/b\nstages: {'x~/y': }\n", "\"timeout\""),
                ElementsAre(HasSubstr("\"/input/a~1b/x~0~1y/event/x~0~1y\"")));
}

TEST(PlanInputs, EveryLineReadsBackAsItsInput) {
    const Lines lines =
        linesOf(planInputs(plan("deadline: 1.5s\n"
                                "instances: {x: {start: 250ms}}\n"
                                "stages: {'\u00fc \"': {limit: infinity}}\n")));
    for (const std::string& line : lines) EXPECT_EQ(inputLine(parseInput(line, 0.0)), line);
}

TEST(PlanInputs, ManagerGoesThroughThePlan) {
    std::vector<Input> inputs =
        planInputs(plan("stages:\n"
                        "  network: {limit: 30s}\n"
                        "  web:\n"
                        "    after: network\n"
                        "    participants: {front: , back: {auto-complete: 4s}}\n"));
    inputs.push_back(reportInput(2.0, "system", "network", "network", "main"));
    inputs.push_back(reportInput(3.0, "system", "front", "web", "main"));
    EXPECT_THAT(
        logged(inputs),
        ElementsAre("0.0 system stages started", "0.0 stage network started",
                    "0.0   event network:network started", "2.0   event network:network completed",
                    "2.0 stage network is complete", "2.0 stage web started",
                    "2.0   event web:front started", "2.0   event web:back started",
                    "3.0   event web:front completed", "6.0   event web:back autocompleted",
                    "6.0   event web:back completed", "6.0 stage web is complete",
                    "6.0 system stages complete"));
}

TEST(PlanInputs, ManagerHoldsWhatThePlanHolds) {
    const Lines lines = logged(planInputs(plan("do-not-start: a\nstages: {a: }\n")));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("stage a started"))));
    EXPECT_THAT(lines, Not(IsEmpty()));
}

}  // namespace
}  // namespace Host
