#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/CommandLine.h"
#include "host/Json.h"
#include "host/plan/Check.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string folder = "tests/host/checks/";

struct Ran {
    int status;
    std::string out;
    std::string err;
};

Ran checked(std::vector<std::string> arguments, const std::string& in = {}, bool colour = false) {
    arguments.insert(arguments.begin(), "check");
    std::istringstream input(in);
    std::ostringstream out;
    std::ostringstream err;
    const int status = commandLine(arguments, Console{input, out, err, colour});
    return {status, out.str(), err.str()};
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

const std::string good =
    "version: 1\nstages:\n  power:\n    critical: true\n    takes: 5s\n"
    "  web:\n    after: power\n    external: true\n";
const std::string warned = "version: 1\ndo-not-start: a\nstages:\n  a: x\n  b: {after: a}\n";
const std::string wrong = "version: 1\nstages:\n  a: {after: gone}\n";
const std::string refused = "version: 1\nstages:\n  a: {aftre: b}\n";

TEST(CheckVerb, EachRuleIsFoundInItsPlanAndNotInTheNearMiss) {
    for (const CheckRule& rule : checkRules()) {
        const std::string path = folder + std::string(rule.name);
        const std::string tag = " [" + std::string(rule.name) + "]\n";

        const Ran has = checked({"--all", path + ".yaml"});
        EXPECT_THAT(has.out, HasSubstr(tag));
        EXPECT_EQ(has.out, contentOf(path + ".txt")) << "as it was read and found good";
        const Ran near = checked({"--all", path + ".near.yaml"});
        EXPECT_THAT(near.out, Not(HasSubstr(tag)));
        EXPECT_NE(near.status, exitRefused) << near.out;
        EXPECT_EQ(has.err + near.err, "");
        // A limit of exactly 0, which is the error, is refused by the reader.
        const bool fails =
            rule.severity == Diagnostic::Severity::error && rule.name != "zero-limit";
        EXPECT_EQ(has.status, fails ? exitFailed : exitDone) << rule.name;
    }
}

TEST(CheckVerb, EachPlanOfTheFolderIsOfARule) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        const auto isOf = [&](const CheckRule& rule) {
            return name == std::string(rule.name) + ".yaml" ||
                   name == std::string(rule.name) + ".near.yaml" ||
                   name == std::string(rule.name) + ".txt";
        };
        EXPECT_TRUE(std::any_of(checkRules().begin(), checkRules().end(), isOf)) << name;
    }
}

TEST(CheckVerb, EachRuleIsDocumented) {
    const std::string text = contentOf("docs/check.md");
    for (const CheckRule& rule : checkRules())
        EXPECT_THAT(text, HasSubstr("### " + std::string(rule.name) + "\n"));
}

TEST(CheckVerb, NothingIsToComplainOfInThePlansOfTheManual) {
    const std::string text = contentOf("docs/plan.md");
    const std::string begin = "```yaml\nversion: 1\n";
    unsigned plans = 0;
    for (std::size_t at = text.find(begin); at != text.npos; at = text.find(begin, at + 1)) {
        const std::size_t from = text.find('\n', at) + 1;
        const std::string plan = text.substr(from, text.find("```\n", from) - from);
        const Ran ran = checked({"--strict", "-"}, plan);
        EXPECT_EQ(ran.status, exitDone) << plan << ran.out;
        ++plans;
    }
    EXPECT_GE(plans, 4u);
}

TEST(CheckVerb, SaysThatThereIsNothingToComplainOf) {
    const Ran ran = checked({"-"}, good);

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_EQ(ran.out, "<stdin>: nothing to complain of: 2 stages (1 critical), 2 participants\n");
    EXPECT_EQ(ran.err, "");
}

TEST(CheckVerb, WarningsAreErrorsOnlyIfStrict) {
    EXPECT_EQ(checked({"-"}, warned).status, exitDone);
    EXPECT_THAT(checked({"-"}, warned).out, EndsWith("<stdin>: 1 warning\n"));
    EXPECT_EQ(checked({"-", "--strict"}, warned).status, exitFailed);
    EXPECT_EQ(checked({"-", "--strict", "--all"}, good).status, exitDone);
}

TEST(CheckVerb, FindsErrors) {
    const Ran ran = checked({"-"}, wrong);

    EXPECT_EQ(ran.status, exitFailed);
    EXPECT_EQ(
        ran.out,
        "<stdin>:3:14: error: stage \"a\" comes after \"gone\", which no stage is called; add "
        "that stage, or do not come after it [missing-stage]\n"
        "    3 |   a: {after: gone}\n"
        "      |              ^\n"
        "<stdin>: 1 error\n");
    EXPECT_EQ(ran.err, "");
}

TEST(CheckVerb, APlanThatCannotBeTakenIsShownInTheSameWay) {
    const Ran ran = checked({"-"}, refused);

    EXPECT_EQ(ran.status, exitRefused);
    EXPECT_THAT(ran.out, AllOf(StartsWith("<stdin>:3:7: error: "), HasSubstr(" [unknown-key]\n"),
                               EndsWith("<stdin>: cannot be taken: 1 error\n")));
    EXPECT_EQ(ran.err, "");
}

TEST(CheckVerb, AllPlansAreCheckedAndTheWorstDecides) {
    const std::string warning = folder + "held-chain.yaml";
    const std::string error = folder + "cycle.yaml";

    const Ran ran = checked({warning, error, "-"}, good);
    EXPECT_EQ(ran.status, exitFailed);
    EXPECT_THAT(ran.out, AllOf(HasSubstr(warning + ": 1 warning\n"),
                               HasSubstr(error + ": 1 error\n"), HasSubstr("nothing to complain")));
    EXPECT_EQ(checked({"-", error, warning}, refused).status, exitRefused);

    const Ran missing = checked({"no/such.yaml", error});
    EXPECT_EQ(missing.status, exitUsage);
    EXPECT_THAT(missing.err, HasSubstr("cannot read no/such.yaml: No such file"));
    EXPECT_THAT(missing.out, EndsWith(error + ": 1 error\n"));
}

TEST(CheckVerb, NotesAreShownWhenAskedFor) {
    const std::string plan = folder + "becomes-critical.yaml";

    EXPECT_THAT(checked({plan}).out, Not(HasSubstr("note:")));
    EXPECT_THAT(checked({plan, "--all"}).out, HasSubstr("note: stage \"power\" is critical"));
}

TEST(CheckVerb, ColoursWhatPeopleRead) {
    EXPECT_THAT(checked({"-"}, wrong, true).out, HasSubstr("\033["));
    EXPECT_THAT(checked({"-"}, wrong, false).out, Not(HasSubstr("\033[")));
    EXPECT_THAT(checked({"-", "--json"}, wrong, true).out, Not(HasSubstr("\033[")));
}

TEST(CheckVerb, TellsTheSlackOfStages) {
    const Ran ran = checked({"-", "--slack"},
                            "version: 1\nclass: boot\ndeadline: 10min\nlimit: 1min\nstages:\n"
                            "  power: {critical: true, takes: 5s}\n"
                            "  disks: {after: power, takes: 20s}\n"
                            "  network: {after: power, external: true}\n"
                            "  web: {after: [disks, network], takes: 2s}\n");

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_THAT(ran.out,
                EndsWith("\n"
                         "boot: deadline 10min\n"
                         "  by what participants take: complete after 27s\n"
                         "  by their limits: complete after 3min\n"
                         "STAGE    STARTS  TAKES  SLACK  LIMIT  STARTS BY LIMITS  SLACK\n"
                         "power *      0s     5s     0s   1min                0s     0s\n"
                         "disks        5s    20s     0s   1min              1min     0s\n"
                         "network      5s    ~1s    19s   1min              1min     0s\n"
                         "web         25s     2s     0s   1min              2min     0s\n"
                         "slack: how much later a stage could start without delaying the end\n"
                         "*: critical\n"
                         "~: for participants that do not say, 1s is assumed\n"));
}

TEST(CheckVerb, TheTableSaysWhyAStageNeverStarts) {
    const Ran ran = checked({"-", "--slack"},
                            "version: 1\ndo-not-start: held\nstages:\n  held: x\n"
                            "  a: {after: gone}\n  b: {after: a}\n  c: {takes: never, limit: "
                            "infinity, critical: true}\n  d: {after: c}\n  e: {after: f}\n"
                            "  f: {after: e}\n");

    EXPECT_THAT(ran.out, AllOf(HasSubstr("by what participants take: not complete"),
                               HasSubstr("never (held)"), HasSubstr("never (missing)"),
                               HasSubstr("never (waits)"), HasSubstr("never (cycle)")));
}

TEST(CheckVerb, WritesJson) {
    const Ran ran =
        checked({"--json", "--slack", folder + "never-starts.yaml", folder + "cycle.near.yaml"});

    EXPECT_EQ(ran.status, exitFailed);
    EXPECT_EQ(ran.err, "");
    const Json document = parseJson(ran.out);
    EXPECT_EQ(*document.member("schema"), Json("stagemgr.check/1"));
    const Json::Array& plans = *document.member("plans")->array();
    ASSERT_EQ(plans.size(), 2u);
    const Json& plan = plans[0];
    EXPECT_EQ(*plan.member("file"), Json(folder + "never-starts.yaml"));
    EXPECT_EQ(*plan.member("refused"), Json(false));
    EXPECT_EQ(*plan.member("errors"), Json(2.0));
    EXPECT_EQ(*plan.member("warnings"), Json(0.0));
    const Json& finding = plan.member("findings")->array()->at(0);
    EXPECT_EQ(*finding.member("rule"), Json("missing-stage"));
    EXPECT_EQ(*finding.member("severity"), Json("error"));
    EXPECT_EQ(*finding.member("line"), Json(4.0));
    EXPECT_EQ(*finding.member("column"), Json(12.0));
    EXPECT_THAT(ran.out, HasSubstr("\"line\": 4,\n"));
    const Json& stageClass = plan.member("classes")->array()->at(0);
    EXPECT_EQ(*stageClass.member("stages"), Json(3.0));
    EXPECT_TRUE(stageClass.member("deadline")->null());
    const Json& app = stageClass.member("schedule")->array()->at(1);
    EXPECT_EQ(*app.member("stage"), Json("app"));
    EXPECT_EQ(*app.member("neverStarts"), Json("missing"));
    EXPECT_EQ(*app.member("because"), Json("web"));
    EXPECT_TRUE(app.member("typical")->member("start")->null());
    EXPECT_TRUE(plans[1].member("findings")->array()->empty());
    const Json& typical = *plans[1].member("classes")->array()->at(0).member("typical");
    EXPECT_EQ(*typical.member("complete"), Json(true));
    EXPECT_EQ(*typical.member("end"), Json(3.0));
}

TEST(CheckVerb, JsonOfAPlanThatCannotBeTakenHasNoClasses) {
    const Ran ran = checked({"-", "--json"}, refused);

    EXPECT_EQ(ran.status, exitRefused);
    const Json document = parseJson(ran.out);
    const Json& plan = document.member("plans")->array()->at(0);
    EXPECT_EQ(*plan.member("refused"), Json(true));
    EXPECT_EQ(*plan.member("errors"), Json(1.0));
    EXPECT_TRUE(plan.member("classes")->array()->empty());
}

TEST(CheckVerb, WritesSarif) {
    const Ran ran = checked({"--sarif", folder + "cycle.yaml", "-"}, refused);

    EXPECT_EQ(ran.status, exitRefused);
    const Json document = parseJson(ran.out);
    EXPECT_EQ(*document.member("version"), Json("2.1.0"));
    const Json& run = document.member("runs")->array()->at(0);
    ASSERT_EQ(run.member("results")->array()->size(), 2u);
    const Json& cycle = run.member("results")->array()->at(0);
    EXPECT_EQ(*cycle.member("ruleId"), Json("cycle"));
    EXPECT_EQ(cycle.member("relatedLocations")->array()->size(), 3u);
    EXPECT_EQ(*run.member("results")->array()->at(1).member("ruleId"), Json("unknown-key"));
}

TEST(CheckVerb, RefusesOptionsThatExcludeEachOtherAndNoPlan) {
    EXPECT_EQ(checked({"--json", "--sarif", "-"}, good).status, exitUsage);
    EXPECT_EQ(checked({"--slack", "--sarif", "-"}, good).status, exitUsage);
    EXPECT_EQ(checked({}).status, exitUsage);
    EXPECT_THAT(checked({}).out, IsEmpty());
}

TEST(CheckVerb, SeveralClassesAreNamed) {
    const std::string two =
        "version: 1\nclasses:\n  left:\n    stages:\n      a: {after: b}\n"
        "  right:\n    stages:\n      b: x\n";

    EXPECT_THAT(checked({"-"}, two).out,
                HasSubstr("stage \"a\" comes after \"b\", which no stage of class \"left\" is "
                          "called; class \"right\" has one"));
}

}  // namespace
}  // namespace Host
