#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "host/CommandLine.h"
#include "host/Json.h"
#include "tests/host/Journals.h"
#include "tests/host/TemporaryFile.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct Ran {
    int status;
    std::string out;
    std::string err;
};

Ran simulate(std::vector<std::string> arguments, const std::string& plan) {
    arguments.insert(arguments.begin(), {"simulate", "-"});
    std::istringstream input(plan);
    std::ostringstream out;
    std::ostringstream err;
    const int status = commandLine(arguments, Console{input, out, err});
    return {status, out.str(), err.str()};
}

const std::string boot = R"(version: 1
class: boot
stages:
  power:
    critical: true
    limit: 10s
    participants:
      psu: {takes: 2s}
      fans: {takes: 1s}
  disks:
    after: power
    limit: 5s
    participants:
      shelf: {takes: 3s}
)";

TEST(SimulateVerb, ShowsTheRunAndItsOutcome) {
    const Ran ran = simulate({}, boot);

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_THAT(ran.out, AllOf(HasSubstr("stage disks started"),
                               EndsWith("\nOutcome: complete after 5s: the run is complete\n")));
    EXPECT_EQ(ran.err, "");
}

TEST(SimulateVerb, EndsWithOneWhenTheRunFails) {
    const Ran ran = simulate({"--set", "psu:power=never"}, boot);

    EXPECT_EQ(ran.status, exitFailed);
    EXPECT_THAT(ran.out, HasSubstr("\nOutcome: rebooting after 10s: the run ended in a reboot "
                                   "request ("));
}

TEST(SimulateVerb, SaysHowManyDurationsWereAssumed) {
    const std::string plan = "version: 1\nstages:\n  one:\n    command: \"true\"\n";

    EXPECT_THAT(simulate({}, plan).err,
                StartsWith("stagemgr: 1 participant does not say how long it takes; it is assumed "
                           "to take 1s"));
    EXPECT_EQ(simulate({"--set", "one:one=2s"}, plan).err, "");
}

TEST(SimulateVerb, SetsDurations) {
    EXPECT_THAT(simulate({"--set", "shelf:disks=1min"}, boot).out,
                HasSubstr("Outcome: continued after 7s"));
    EXPECT_THAT(simulate({"--set", "shelf:disks=1s", "--set", "fans:power=4s"}, boot).out,
                HasSubstr("Outcome: complete after 5s"));
    EXPECT_THAT(simulate({"--set", "boot/shelf:disks@main=1s"}, boot).out,
                HasSubstr("Outcome: complete after 3s"));
    EXPECT_THAT(simulate({"--set", "shelf:disks@man=1s"}, boot).err,
                HasSubstr("; its instances are main"));
}

TEST(SimulateVerb, RefusesSettingsThatItCannotApply) {
    const auto refused = [](const std::string& setting) {
        const Ran ran = simulate({"--set", setting}, boot);
        EXPECT_EQ(ran.status, exitUsage) << setting;
        EXPECT_EQ(ran.out, "") << setting;
        return ran.err;
    };
    EXPECT_THAT(refused("shelve:disks=1s"), HasSubstr("did you mean \"shelf:disks\"?"));
    EXPECT_THAT(refused("disks:shelf=1s"),
                HasSubstr("the agent stands first: did you mean \"shelf:disks\"?"));
    EXPECT_THAT(refused("somebody else=1s"),
                HasSubstr("there are \"psu:power\", \"fans:power\", \"shelf:disks\""));
    EXPECT_THAT(refused("shelf:disks"), HasSubstr("no \"=\""));
    EXPECT_THAT(refused("shelf:disks=soon"), HasSubstr("write a duration such as 30s, or never"));
    EXPECT_THAT(refused("shelf:disks=infinity"), HasSubstr("takes never"));
    EXPECT_THAT(refused("shelf:\x1b[31mdisks=1s"), Not(HasSubstr("\x1b")));
}

TEST(SimulateVerb, ASettingEndsWithItsArgument) {
    std::istringstream in(boot);
    std::ostringstream out;
    std::ostringstream err;

    const int status = commandLine({"simulate", "--set", "shelf:disks=1s", "-", "--within", "3s"},
                                   Console{in, out, err});

    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(status, exitDone);
}

TEST(SimulateVerb, RefusesNumbersThatAreNone) {
    const std::pair<std::vector<std::string>, const char*> table[] = {
        {{"--seed", "-1"}, "--seed \"-1\": write a whole number from 0 to 18446744073709551615\n"},
        {{"--seed", "18446744073709551616"},
         "--seed \"18446744073709551616\": write a whole number from 0 to "
         "18446744073709551615\n"},
        {{"--runs", "0"}, "--runs \"0\": write a whole number from 1 to 100000000\n"},
        {{"--runs", "1e3"}, "--runs \"1e3\": write a whole number from 1 to 100000000\n"},
        {{"--runs", "2", "--jobs", "1025"},
         "--jobs \"1025\": write a whole number from 1 to 1024\n"},
        {{"--runs", "2", "--at-least", "nan"},
         "--at-least \"nan\": write how many in a hundred, from 0 to 100\n"},
        {{"--runs", "2", "--at-least", "101"},
         "--at-least \"101\": write how many in a hundred, from 0 to 100\n"},
        {{"--jobs", "2"},
         "--jobs is for several runs; add --runs or --each-agent-missing, or leave it out\n"},
        {{"--at-least", "50"},
         "--at-least is for several runs; add --runs or --each-agent-missing, or leave it out\n"},
    };
    for (const auto& [arguments, message] : table) {
        const Ran ran = simulate(arguments, boot);
        EXPECT_EQ(ran.status, exitUsage);
        EXPECT_EQ(ran.err, std::string("stagemgr: ") + message);
        EXPECT_EQ(ran.out, "");
    }
    EXPECT_EQ(simulate({"--seed", "010", "--runs", "1"}, boot).out,
              simulate({"--seed", "10", "--runs", "1"}, boot).out);
}

TEST(SimulateVerb, WithoutAnExpectationSoManyRunsHaveToComplete) {
    const Ran ran = simulate({"--set", "psu:power=never", "--runs", "2", "--at-least", "50"}, boot);

    EXPECT_EQ(ran.status, exitFailed);
    EXPECT_EQ(ran.err,
              "stagemgr: <stdin>: 0 of 2 runs (0.00 %) completed; at least 50 % have to\n");
}

TEST(SimulateVerb, ExpectsAnOutcomeInTime) {
    const Ran met = simulate({"--expect", "complete", "--within", "5s"}, boot);
    EXPECT_EQ(met.status, exitDone);
    EXPECT_THAT(met.out, EndsWith("As expected: complete within 5s\n"));

    const Ran late = simulate({"--within", "4s"}, boot);
    EXPECT_EQ(late.status, exitFailed);
    EXPECT_EQ(late.err,
              "stagemgr: <stdin>: expected complete within 4s; complete after 5s: the run is "
              "complete\n");

    EXPECT_EQ(simulate({"--set", "psu:power=never", "--expect", "reboot"}, boot).status, exitDone);
    EXPECT_EQ(simulate({"--set", "shelf:disks=never", "--expect", "complete"}, boot).status,
              exitFailed)
        << "what was passed over is not complete";
    EXPECT_EQ(
        simulate({"--set", "shelf:disks=never", "--expect", "complete,continued"}, boot).status,
        exitDone);
    EXPECT_THAT(simulate({"--expect", "compleet"}, boot).err,
                HasSubstr("did you mean \"complete\"?"));
}

TEST(SimulateVerb, TellsWhatEachLossLeadsTo) {
    const Ran ran = simulate({"--each-agent-missing"}, boot);

    EXPECT_EQ(ran.status, exitDone) << "the plan itself is complete";
    EXPECT_EQ(ran.out,
              "LOST         OUTCOME    AFTER  DELAY\n"
              "psu:power    rebooting  10s    -\n"
              "fans:power   rebooting  10s    -\n"
              "shelf:disks  continued  7s     +2s\n"
              "\n"
              "Without a loss: complete after 5s: the run is complete\n"
              "3 losses: 1 continued, 2 rebooting\n");

    const Ran expected = simulate({"--each-agent-missing", "--expect", "continued"}, boot);
    EXPECT_EQ(expected.status, exitFailed);
    EXPECT_THAT(expected.err, HasSubstr("expected continued; 2 of 3 losses did not end so"));
    EXPECT_EQ(simulate({"--each-agent-missing", "--expect", "continued", "--at-least", "33"}, boot)
                  .status,
              exitDone);
}

const std::string distributed = R"(version: 1
class: boot
stages:
  power:
    participants:
      psu: {takes: {normal: [2s, 500ms]}}
  disks:
    after: power
    limit: 4s
    participants:
      shelf: {takes: {exponential: 2s}}
)";

TEST(SimulateVerb, CountsManyRuns) {
    const Ran ran = simulate({"--runs", "200", "--seed", "4"}, distributed);

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_THAT(ran.out, AllOf(StartsWith("200 runs, seed 4\n\nOUTCOME"), HasSubstr("\n99 %"),
                               HasSubstr("\nTIMED OUT"), HasSubstr("\ndisks  ")));
    EXPECT_EQ(simulate({"--runs", "200", "--seed", "4", "--jobs", "3"}, distributed).out, ran.out);
    EXPECT_EQ(simulate({"--runs", "200", "--seed", "4", "--jobs", "1"}, distributed).out, ran.out);
    EXPECT_NE(simulate({"--runs", "200", "--seed", "5"}, distributed).out, ran.out);
}

TEST(SimulateVerb, ExpectsAShareOfManyRuns) {
    const std::vector<std::string> runs{"--runs", "200", "--expect", "complete"};
    const Ran all = simulate(runs, distributed);
    EXPECT_EQ(all.status, exitFailed);
    EXPECT_THAT(all.err, AllOf(HasSubstr("expected complete; "), HasSubstr(" of 200 runs (")));

    std::vector<std::string> half = runs;
    half.insert(half.end(), {"--at-least", "50"});
    EXPECT_EQ(simulate(half, distributed).status, exitDone);
}

Json json(std::vector<std::string> arguments, const std::string& plan) {
    arguments.push_back("--json");
    return parseJson(simulate(arguments, plan).out);
}
std::string member(const Json& json, const char* key) {
    const Json* const found = json.member(key);
    std::string text;
    if (found != nullptr) appendJson(text, *found);
    return text;
}

TEST(SimulateVerb, WritesJson) {
    const Json single = json({"--set", "shelf:disks=never", "--within", "5s"}, boot);
    EXPECT_EQ(member(single, "schema"), "\"stagemgr.simulate/1\"");
    EXPECT_EQ(member(single, "kind"), "\"single\"");
    EXPECT_EQ(member(single, "outcome"), "\"continued\"");
    EXPECT_EQ(member(single, "time"), "7.0");
    EXPECT_THAT(member(single, "instances"),
                HasSubstr(R"({"stage": "disks", "state": "continued", "critical": false, )"
                          R"("completion": 7.0, "pending": ["shelf"]})"));
    EXPECT_EQ(member(single, "expected"),
              R"({"outcomes": ["complete"], "within": 5.0, "met": false})");

    const Json each = json({"--each-agent-missing"}, boot);
    EXPECT_EQ(member(each, "kind"), "\"eachMissing\"");
    EXPECT_THAT(member(each, "missing"),
                EndsWith(R"({"stageClass": "boot", "stage": "disks", "agent": "shelf", )"
                         R"("outcome": "continued", "time": 7.0, "delay": 2.0}])"));

    const Json many = json({"--runs", "5"}, boot);
    EXPECT_EQ(member(many, "kind"), "\"runs\"");
    EXPECT_EQ(member(many, "outcomes"),
              R"([{"outcome": "complete", "runs": 5.0, "probability": 1.0}])");
    EXPECT_EQ(member(many, "completion"),
              R"({"runs": 5.0, "p50": 5.0, "p90": 5.0, "p95": 5.0, "p99": 5.0, "max": 5.0})");
    EXPECT_EQ(member(many, "timeouts"), "[]");
}

TEST(SimulateVerb, RecordsASingleRun) {
    const TemporaryFile record;
    const std::string& path = record.path();
    const Ran ran = simulate({"--record", path}, boot);

    EXPECT_THAT(replayedText(record.content()), HasSubstr("boot stages complete"));
    EXPECT_EQ(simulate({"--record", path, "--runs", "2"}, boot).status, exitUsage);
    EXPECT_EQ(simulate({"--record", "-"}, boot).status, exitUsage);
    EXPECT_EQ(simulate({"--runs", "2", "--each-agent-missing"}, boot).status, exitUsage);
}

}  // namespace
}  // namespace Host
