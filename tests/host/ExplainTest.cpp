#include "host/history/Explain.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "host/CommandLine.h"
#include "host/session/RunSource.h"
#include "host/session/Simulation.h"
#include "tests/host/Journals.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

RunHistory runOf(const Plan& plan, double until = Session::never) {
    const Durations durations(plan);
    Simulated participants(durations);
    Timeline timeline;
    Session session(plan, participants, timeline);
    session.advance(until);
    return timeline.history(session.tree());
}

Explanation ofStage(const Plan& plan, const std::string& name, double until = Session::never) {
    const RunHistory run = runOf(plan, until);
    return explainStage(run, run.instances.at(0), *run.instances[0].stage(name));
}
Explanation ofInstance(const Plan& plan, double until = Session::never) {
    const RunHistory run = runOf(plan, until);
    return explainInstance(run, run.instances.at(0));
}

// Each reason as "kind text", indented by its depth.
std::vector<std::string> causes(const Explanation& explanation) {
    std::vector<std::string> all;
    for (const Cause& cause : explanation.causes)
        all.push_back(std::string(cause.depth, ' ') + std::string(causeWord(cause.kind)) + " " +
                      (cause.stage.empty() ? "" : cause.stage) +
                      (cause.agent.empty() ? "" : ":" + cause.agent));
    return all;
}

std::string doNotStart(double at, const std::string& stage, bool on) {
    return fmt::format(R"({{"at":{},"op":"set","path":"/global","attr":"doNotStartStage",)"
                       R"("key":{{"stageClass":"boot","stage":"{}"}},"value":{}}})",
                       at, stage, on);
}

// power, then db, then web.
Plan chain() {
    return planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2)}),
                                       stage("db", {"power"}, {takes("postgres", 10)}),
                                       stage("web", {"db"}, {takes("nginx", 1)})})});
}

TEST(Explain, FollowsAStageToTheReportThatIsMissing) {
    const Explanation told = ofStage(chain(), "web", 5);

    EXPECT_EQ(told.text, "web has not started");
    EXPECT_FALSE(told.good);
    EXPECT_THAT(causes(told), ElementsAre("waits db", " pending-report db:postgres"));
    EXPECT_EQ(
        told.causes[1].text,
        "postgres has not reported for db, which started at 2s; its limit of 1min 30s ends at "
        "1min 32s");
    EXPECT_EQ(told.causes[1].since, 2.0);
    EXPECT_EQ(told.causes[1].until, 92.0);
    EXPECT_THAT(releases(told), ElementsAre("the report of postgres for db"));
}

TEST(Explain, SaysWhereTheTimeWent) {
    const Explanation told = ofStage(chain(), "web");

    EXPECT_EQ(told.text, "web started at 12s and was complete at 13s");
    EXPECT_TRUE(told.good);
    ASSERT_THAT(causes(told), ElementsAre("took db:postgres", "took power:psu", "began power"));
    EXPECT_EQ(told.causes[0].text,
              "web comes after db, which took 10s, from 2s to 12s; the last report was that of "
              "postgres");
    EXPECT_THAT(releases(told), IsEmpty());
}

TEST(Explain, FollowsTheDependencyThatCameLast) {
    Plan plan = chain();
    plan.classes[0].stages.push_back(stage("cache", {}, {takes("memcached", 4)}));
    plan.classes[0].stages[2].after.push_back({"cache"});

    EXPECT_THAT(causes(ofStage(plan, "web")),
                ElementsAre("took db:postgres", "took power:psu", "began power"));
    plan.classes[0].stages[3].participants[0].takes->a = 20;
    EXPECT_THAT(causes(ofStage(plan, "web")), ElementsAre("took cache:memcached", "began cache"));
}

TEST(Explain, NamesAStageThatDoesNotExist) {
    Plan plan = chain();
    plan.classes[0].stages[1].after = {{"pwer"}};

    const Explanation told = ofStage(plan, "web");

    EXPECT_THAT(causes(told), ElementsAre("waits db", " missing-stage pwer"));
    EXPECT_THAT(releases(told),
                ElementsAre("a participant for a stage pwer, or no dependency on it"));
}

TEST(Explain, NamesStagesThatWaitForEachOther) {
    Plan plan = chain();
    plan.classes[0].stages[0].after = {{"db"}};

    const Explanation told = ofStage(plan, "web");

    EXPECT_THAT(causes(told), ElementsAre("waits db", " waits power", "  cycle db"));
    EXPECT_EQ(told.causes[2].text, "they wait for each other: db after power after db");
    EXPECT_THAT(causes(ofStage(plan, "db")), ElementsAre("waits power", " cycle db"));
}

// "db" comes after "power", and waits for it as a critical stage, too: that is no circle.
TEST(Explain, AStageThatIsNamedTwiceDoesNotWaitForItself) {
    Plan plan = planOf({stageClass(
        "boot", {stage("bmc", {}, {takes("bmc", 5)}), stage("power", {"bmc"}, {takes("psu", 2)}),
                 stage("db", {"power"}, {takes("postgres", 10)})})});
    plan.classes[0].stages[1].participants[0].critical = true;

    EXPECT_THAT(causes(ofStage(plan, "db", 1)),
                ElementsAre("waits power", " waits bmc", "  pending-report bmc:bmc",
                            "critical-first ", " explained power"));
}

TEST(Explain, NamesTheDoNotStartList) {
    Plan plan = chain();
    plan.classes[0].doNotStart = {{"db"}};

    EXPECT_THAT(causes(ofStage(plan, "web")), ElementsAre("waits db", " do-not-start db"));
    EXPECT_THAT(releases(ofStage(plan, "db")),
                ElementsAre("removing db from the do-not-start list"));
}

TEST(Explain, NamesTheCriticalStageThatStartsFirst) {
    Plan plan = chain();
    plan.classes[0].stages.push_back(stage("motd", {}, {takes("echo", 1)}));
    plan.classes[0].stages[2].participants[0].critical = true;

    const Explanation waits = ofStage(plan, "motd", 5);
    EXPECT_THAT(causes(waits), ElementsAre("critical-first ", " waits web", "  waits db",
                                           "   pending-report db:postgres"));

    const Explanation started = ofStage(plan, "motd");
    EXPECT_THAT(causes(started), ElementsAre("held motd", "took web:nginx", "took db:postgres",
                                             "took power:psu", "began power"));
    EXPECT_EQ(started.causes[0].text,
              "motd was ready at 0s, but critical stages start first: the last of them, web, "
              "started at 12s");
    EXPECT_EQ(started.causes[0].since, 0.0);
    EXPECT_EQ(started.causes[0].until, 13.0);
    EXPECT_EQ(started.causes[1].text,
              "then motd had to wait until the next stage was complete: web, which took 1s, from "
              "12s to 13s; the last report was that of nginx");
}

// The way goes on behind what the operator held.
TEST(Explain, FollowsAHeldStageToTheBeginning) {
    const Lines journal = bootClass() + agent("psu", "power", 90) + agent("nginx", "web", 90) +
                          R"({"op":"set","path":"/input/boot/nginx/event/web","attr":"dependency",)"
                          R"("key":"power","value":true})" +
                          doNotStart(0, "web", true) + enable("main") +
                          report(2, "psu", "power", "main") + doNotStart(5, "web", false) +
                          report(6, "nginx", "web", "main");
    std::istringstream in(text(journal));
    const RunHistory run = journalRun(in);

    const Explanation told = explainStage(run, run.instances[0], *run.instances[0].stage("web"));

    EXPECT_TRUE(told.good);
    ASSERT_THAT(causes(told), ElementsAre("held web", "took power:psu", "began power"));
    EXPECT_EQ(told.causes[0].text,
              "web was ready at 2s, and was held by the operator for 3s, until 5s");
}

TEST(Explain, TellsCriticalStagesFromTheOperator) {
    const Lines journal = bootClass() + agent("psu", "power", 90) + agent("nginx", "web", 90) +
                          R"({"op":"set","path":"/input/boot/psu/event/power","attr":"critical",)"
                          R"("value":true})" +
                          doNotStart(0, "web", true) + enable("main") +
                          report(2, "psu", "power", "main") + doNotStart(5, "web", false) +
                          report(6, "nginx", "web", "main");
    std::istringstream in(text(journal));
    const RunHistory run = journalRun(in);

    const Explanation told = explainStage(run, run.instances[0], *run.instances[0].stage("web"));

    ASSERT_THAT(causes(told), ElementsAre("held web", "held web", "took power:psu", "began power"));
    EXPECT_EQ(told.causes[0].text,
              "web could have started at 2s, and was held by the operator for 3s, until 5s");
    EXPECT_EQ(told.causes[1].text,
              "web was ready at 0s, but critical stages start first: the last of them, power, "
              "started at 0s");
}

TEST(Explain, NamesTheSuspensionOfAnInstance) {
    Plan plan = chain();
    plan.classes[0].instances[0].suspended = true;

    const Explanation told = ofStage(plan, "power");

    EXPECT_THAT(causes(told), ElementsAre("suspended "));
    EXPECT_THAT(releases(told), ElementsAre("taking back the suspension of the instance"));
}

TEST(Explain, NothingButTheRebootReleasesWhatItStopped) {
    Plan plan = chain();
    plan.classes[0].stages[1].participants[0].critical = true;
    plan.classes[0].stages[1].participants[0].limit = 3;

    const Explanation told = ofStage(plan, "web");

    EXPECT_THAT(causes(told), ElementsAre("reboot ", "waits db", " pending-report db:postgres"));
    EXPECT_THAT(told.causes[0].text, HasSubstr("a reboot (cold) was requested at 5s: "));
    EXPECT_THAT(told.causes[2].text, EndsWith("which started at 2s and timed out at 5s"));
    EXPECT_THAT(releases(told), ElementsAre(StartsWith("only the reboot")));
}

TEST(Explain, KnowsThatAReportWillBeAssumed) {
    Plan plan = chain();
    plan.classes[0].stages[1].participants[0].autoComplete = 4;

    const Explanation told = ofStage(plan, "db", 5);
    EXPECT_EQ(told.causes[0].text,
              "postgres has not reported for db, which started at 2s; without a report it is "
              "auto-completed at 6s");
    EXPECT_EQ(told.causes[0].until, 6.0);
    EXPECT_THAT(releases(told),
                ElementsAre("the report of postgres for db, or its auto-completion at 6s"));

    // The limit ends before.
    plan.classes[0].stages[1].participants[0].limit = 3;
    EXPECT_THAT(ofStage(plan, "db", 4).causes[0].text, EndsWith("; its limit of 3s ends at 5s"));
    EXPECT_THAT(releases(ofStage(plan, "db", 4)), ElementsAre("the report of postgres for db"));
}

TEST(Explain, EachStageIsFollowedOnce) {
    Plan plan = chain();
    plan.classes[0].stages.push_back(stage("cache", {"db"}, {takes("memcached", 4)}));
    plan.classes[0].stages.push_back(stage("shop", {"web", "cache"}, {takes("shop", 4)}));

    EXPECT_THAT(causes(ofStage(plan, "shop", 5)),
                ElementsAre("waits web", " waits db", "  pending-report db:postgres", "waits cache",
                            " explained db"));
}

TEST(Explain, ALongChainIsFollowedToItsEnd) {
    PlanClass boot = stageClass("boot", {stage("0", {}, {takes("agent", -1)})});
    for (int i = 1; i < 2000; ++i)
        boot.stages.push_back(
            stage(std::to_string(i), {std::to_string(i - 1)}, {takes("agent", 1)}));

    const Explanation told = ofStage(planOf({boot}), "1999", 1);

    EXPECT_EQ(told.causes.size(), 2000U);
    EXPECT_EQ(told.causes.back().kind, Cause::Kind::pendingReport);
}

TEST(Explain, NothingIsWrongWithACompleteInstance) {
    const Explanation told = ofInstance(chain());

    EXPECT_TRUE(told.good);
    EXPECT_THAT(causes(told), IsEmpty());
    EXPECT_EQ(told.text, "complete at 13s");
}

TEST(Explain, ARebootIsNothingToWhatWasCompleteBefore) {
    Plan plan = chain();
    plan.classes.push_back(stageClass("late", {stage("slow", {}, {takes("a", -1)})}));
    plan.classes[1].deadline = 20;

    const RunHistory run = runOf(plan);

    ASSERT_TRUE(run.reboot);
    const Explanation complete = explainInstance(run, run.instances[0]);
    EXPECT_TRUE(complete.good);
    EXPECT_EQ(complete.text, "complete at 13s");
    EXPECT_THAT(releases(complete), IsEmpty());
    EXPECT_THAT(releases(explainInstance(run, run.instances[1])),
                ElementsAre(StartsWith("only the reboot")));
}

TEST(Explain, NothingIsWrongWithWhatWasTakenAwayWhenItWasComplete) {
    const Lines journal =
        bootClass() + agent("psu", "power", 90) + enable("main") +
        report(2, "psu", "power", "main") +
        R"({"at":3,"op":"set","path":"/enable/boot","attr":"enabled","key":"main","value":false})";
    std::istringstream in(text(journal));
    const RunHistory run = journalRun(in);

    const Explanation told = explainInstance(run, run.instances.at(0));

    EXPECT_TRUE(told.good);
    EXPECT_EQ(told.text, "complete at 2s, and taken away at 3s");
    EXPECT_THAT(causes(told), IsEmpty());
}

TEST(Explain, FindsTheRootsOfWhatIsNotAsItShouldBe) {
    PlanClass boot = stageClass(
        "boot",
        {stage("power", {}, {takes("psu", -1), takes("fans", 1)}),
         stage("db", {"power"}, {takes("postgres", 1)}), stage("web", {"db"}, {takes("nginx", 1)}),
         stage("lost", {"nobody"}, {takes("a", 1)}), stage("loster", {"lost"}, {takes("a", 1)}),
         stage("left", {"right"}, {takes("a", 1)}), stage("right", {"left"}, {takes("a", 1)}),
         stage("maintenance", {}, {takes("a", 1)})});
    boot.doNotStart = {{"maintenance"}};

    const Explanation told = ofInstance(planOf({boot}), 5);

    EXPECT_THAT(causes(told), ElementsAre("pending-report power:psu", "do-not-start maintenance",
                                          "missing-stage nobody", "cycle left"));
    EXPECT_THAT(told.holdsBack,
                ElementsAre(ElementsAre("db", "web"), ElementsAre("maintenance"),
                            ElementsAre("lost", "loster"), ElementsAre("left", "right")));
}

TEST(Explain, AStageThatNothingHoldsStartsWhenTheManagerLooksAgain) {
    // The last critical stage starts in the pass that looks at the others too early.
    Plan plan = planOf({stageClass("boot", {stage("motd", {}, {takes("echo", 1)}),
                                            stage("db", {}, {takes("postgres", -1)})})});
    plan.classes[0].stages[1].participants[0].critical = true;
    plan.classes[0].stages[1].participants[0].limit = 90;

    const Explanation told = ofInstance(plan, 5);

    EXPECT_THAT(causes(told), ElementsAre("next-pass motd", "pending-report db:postgres"));
    EXPECT_THAT(causes(ofStage(plan, "motd", 5)), ElementsAre("next-pass motd"));
}

TEST(Explain, FindsWhatWentWrongOnTheWay) {
    Plan plan = chain();
    plan.classes[0].stages[0].participants[0].limit = 1;
    plan.classes[0].stages[1].participants[0].autoComplete = 4;

    const Explanation told = ofInstance(plan);

    EXPECT_FALSE(told.good);
    ASSERT_THAT(causes(told), ElementsAre("passed-over power:psu", "assumed db:postgres"));
    EXPECT_EQ(told.causes[0].text,
              "power timed out at 1s, and progression went on without it; too late came psu");
    EXPECT_EQ(told.causes[1].text,
              "postgres reported late for db, at 11s; the manager assumed that it was done, at 5s");
    EXPECT_EQ(ofInstance(plan, 10).causes[1].text,
              "postgres did not report for db; the manager assumed that it was done, at 5s");
}

struct Ran {
    int status;
    std::string out;
    std::string err;
};
Ran explain(std::vector<std::string> arguments, const std::string& text) {
    arguments.insert(arguments.begin(), {"explain", "-"});
    std::istringstream input(text);
    std::ostringstream out;
    std::ostringstream err;
    const int status = commandLine(arguments, Console{input, out, err});
    return {status, out.str(), err.str()};
}

const std::string plan = R"(version: 1
class: system
stages:
  power: {takes: 2s}
  db:
    after: power
    participants:
      postgres: {takes: 10s}
  web: {after: db, takes: 1s}
)";

std::string journal() {
    std::ostringstream recorded;
    View nobody;
    const Plan recordedPlan = chain();
    simulate(recordedPlan, Durations(recordedPlan), nobody, &recorded);
    return recorded.str();
}

TEST(ExplainVerb, ExplainsAPlan) {
    const Ran ran = explain({"web", "--at", "5s"}, plan);

    EXPECT_EQ(ran.status, exitDone);
    EXPECT_EQ(ran.out,
              "system/main at 5s: web has not started\n"
              "  db is not complete\n"
              "    postgres has not reported for db, which started at 2s; its limit of 1min 30s "
              "ends at 1min 32s\n"
              "What would release it:\n"
              "  the report of postgres for db\n");
    EXPECT_THAT(explain({}, plan).out, HasSubstr("  everything is as it should be\n"));
    EXPECT_THAT(explain({"--set", "postgres:db=never"}, plan).out,
                HasSubstr("  db timed out at 1min 32s, and progression went on without it; still "
                          "no report from postgres\n"));
}

TEST(ExplainVerb, ExplainsAJournal) {
    EXPECT_THAT(explain({"web", "--at", "5"}, journal()).out,
                AllOf(StartsWith("boot/main at 5s: web has not started\n"),
                      HasSubstr("the report of postgres for db")));
    EXPECT_THAT(explain({"web"}, journal()).out,
                StartsWith("boot/main at 13s: web started at 12s and was complete at 13s\n"));
    EXPECT_THAT(explain({"--set", "postgres:db=never"}, journal()).err,
                HasSubstr("is a journal, and what it records has happened"));
}

TEST(ExplainVerb, RefusesNamesThatNobodyHas) {
    const auto refused = [](const std::vector<std::string>& arguments) {
        const Ran ran = explain(arguments, plan);
        EXPECT_EQ(ran.status, exitUsage);
        EXPECT_EQ(ran.out, "");
        return ran.err;
    };
    EXPECT_THAT(refused({"wob"}), HasSubstr("no stage \"wob\" in <stdin>; did you mean \"web\"?"));
    EXPECT_THAT(refused({"nginx"}), HasSubstr("; there are \"power\", \"db\", \"web\""));
    EXPECT_THAT(refused({"--instance", "mian"}), HasSubstr("did you mean \"main\"?"));
    EXPECT_THAT(refused({"--class", "sistem"}), HasSubstr("did you mean \"system\"?"));
    EXPECT_THAT(refused({"--at", "soon"}), HasSubstr("--at: "));
    EXPECT_THAT(refused({"\x1b[31m"}), Not(HasSubstr("\x1b")));
}

TEST(ExplainVerb, WritesJson) {
    EXPECT_EQ(
        explain({"web", "--at", "5s", "--json"}, plan).out,
        "{\"schema\": \"stagemgr.explain/1\", \"time\": 5.0, \"explanations\": "
        "[{\"stageClass\": \"system\", \"instance\": \"main\", \"stage\": \"web\", \"text\": "
        "\"web has not started\", \"good\": false, \"causes\": [{\"kind\": \"waits\", "
        "\"depth\": 0.0, \"stage\": \"db\", \"since\": 2.0, \"text\": \"db is not complete\"}, "
        "{\"kind\": \"pending-report\", \"depth\": 1.0, \"stage\": \"db\", \"agent\": "
        "\"postgres\", \"since\": 2.0, \"until\": 92.0, \"text\": \"postgres has not reported "
        "for db, which started at 2s; its limit of 1min 30s ends at 1min 32s\", \"release\": "
        "\"the report of postgres for db\"}]}]}\n");
}

}  // namespace
}  // namespace Host
