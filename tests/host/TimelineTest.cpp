#include "host/history/Timeline.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "host/session/RunSource.h"
#include "tests/host/Journals.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using End = EventHistory::End;
using State = StageOutcome::State;

RunHistory runOf(const Lines& journal) {
    std::istringstream in(text(journal));
    return journalRun(in);
}

std::string timed(const char* what, const std::optional<double>& time) {
    return time ? fmt::format(" {} {}", what, *time) : std::string();
}

// For example "power ready 0 start 0 end 2".
Lines stageLines(const InstanceHistory& instance) {
    Lines lines;
    for (const StageHistory& stage : instance.stages)
        lines.push_back(stage.name + timed("ready", stage.ready) + timed("start", stage.start) +
                        timed("timed out", stage.timedOut) + timed("end", stage.end));
    return lines;
}
// For example "psu reported 2".
Lines eventLines(const StageHistory& stage) {
    Lines lines;
    for (const EventHistory& event : stage.events)
        lines.push_back(event.agent +
                        (event.how == End::pending    ? " pending"
                         : event.how == End::reported ? " reported"
                         : event.how == End::assumed  ? " assumed"
                                                      : " withdrawn") +
                        timed("at", event.end));
    return lines;
}
Lines eventLines(const InstanceHistory& instance, std::string_view stage) {
    return eventLines(*instance.stage(stage));
}

TEST(Timeline, TellsWhenStagesWereReadyAndStartedAndEnded) {
    const RunHistory run = planRun(
        planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2), takes("fans", 0)}),
                                    stage("disks", {"power"}, {takes("shelf", 3)}),
                                    stage("web", {"disks", "power"}, {takes("nginx", 0)})})}));

    ASSERT_EQ(run.instances.size(), 1u);
    const InstanceHistory& main = run.instances.front();
    EXPECT_EQ(main.stageClass + "/" + main.instance + " of " + main.application,
              "boot/main of boot");
    EXPECT_EQ(main.state, InstanceOutcome::State::complete);
    EXPECT_EQ(main.enabled, 0.0);
    EXPECT_EQ(main.complete, 5.0);
    EXPECT_EQ(main.deadline, std::numeric_limits<double>::infinity());
    EXPECT_THAT(stageLines(main),
                ElementsAre("power ready 0 start 0 end 2", "disks ready 2 start 2 end 5",
                            "web ready 5 start 5 end 5"));
    EXPECT_THAT(eventLines(main, "power"), ElementsAre("psu reported at 2", "fans reported at 0"));
    EXPECT_THAT(main.stage("web")->dependencies, ElementsAre("disks", "power"));
    EXPECT_EQ(run.end, 5.0);
}

TEST(Timeline, NeverShowsAnAssumedEventAsReported) {
    Plan plan = planOf({stageClass(
        "boot", {stage("power", {}, {takes("psu", 2), takes("fans", 9), takes("bmc", -1)}),
                 stage("disks", {"power"}, {takes("shelf", 8)})})});
    plan.classes[0].stages[0].participants[1].autoComplete = 4.0;
    plan.classes[0].stages[0].participants[2].autoComplete = 5.0;

    const RunHistory run = planRun(plan);

    // The fans report at 9, which changes nothing any more.
    EXPECT_THAT(eventLines(run.instances[0], "power"),
                ElementsAre("psu reported at 2", "fans assumed at 4", "bmc assumed at 5"));
    EXPECT_THAT(stageLines(run.instances[0]),
                ElementsAre("power ready 0 start 0 end 5", "disks ready 5 start 5 end 13"));
    EXPECT_EQ(run.instances[0].stages[0].events[1].autoComplete, 4.0);
    EXPECT_EQ(run.instances[0].stages[0].events[0].autoComplete, std::nullopt);
}

TEST(Timeline, TellsWhatTimedOutAndWasPassedOver) {
    Plan plan = planOf({stageClass("boot", {stage("power", {}, {takes("psu", 7), takes("a", 1)}),
                                            stage("disks", {"power"}, {takes("shelf", 4)})})});
    plan.classes[0].stages[0].participants[0].limit = 5.0;
    plan.classes[0].stages[0].participants[1].limit = 3.0;

    const RunHistory run = planRun(plan);

    const InstanceHistory& main = run.instances[0];
    EXPECT_THAT(stageLines(main), ElementsAre("power ready 0 start 0 timed out 5 end 5",
                                              "disks ready 5 start 5 end 9"));
    EXPECT_EQ(main.stages[0].outcome.state, State::passedOver);
    EXPECT_EQ(main.stages[0].limit, 5.0);
    EXPECT_EQ(main.stages[0].events[1].limit, 3.0);
    EXPECT_THAT(eventLines(main, "power"), ElementsAre("psu reported at 7", "a reported at 1"));
}

TEST(Timeline, TellsWhenACriticalStageWasLate) {
    Plan plan = planOf({stageClass("boot", {stage("power", {}, {takes("psu", 7)})})});
    plan.classes[0].onTimeout = OnTimeout::wait;
    plan.classes[0].stages[0].participants[0].limit = 5.0;
    plan.classes[0].stages[0].participants[0].critical = true;

    const RunHistory late = planRun(plan);
    plan.classes[0].stages[0].participants[0].takes = Takes{Takes::Kind::never};
    const RunHistory overdue = planRun(plan);

    EXPECT_THAT(stageLines(late.instances[0]),
                ElementsAre("power ready 0 start 0 timed out 5 end 7"));
    EXPECT_EQ(late.instances[0].stages[0].outcome.state, State::late);
    EXPECT_THAT(stageLines(overdue.instances[0]), ElementsAre("power ready 0 start 0 timed out 5"));
    EXPECT_EQ(overdue.instances[0].stages[0].outcome.state, State::overdue);
    EXPECT_EQ(overdue.instances[0].state, InstanceOutcome::State::overdue);
    EXPECT_EQ(overdue.instances[0].complete, std::nullopt);
}

TEST(Timeline, TellsWhatWasHeldOrNeverStarted) {
    Plan plan = planOf({stageClass(
        "boot",
        {stage("first", {}, {takes("a", 2)}), stage("other", {}, {takes("b", 1)}),
         stage("urgent", {"first"}, {takes("c", 3)}), stage("never", {"nowhere"}, {takes("d", 3)}),
         stage("silent", {"first"}, {takes("e", 3)})})});
    plan.classes[0].stages[2].participants[0].critical = true;
    plan.classes[0].doNotStart = {{"silent", {}}};

    const RunHistory run = planRun(plan);

    const InstanceHistory& main = run.instances[0];
    EXPECT_THAT(stageLines(main),
                ElementsAre("first ready 0 start 0 end 2", "other ready 0 start 5 end 6",
                            "urgent ready 2 start 2 end 5", "never", "silent ready 2"));
    EXPECT_EQ(main.stages[3].outcome.state, State::notStarted);
    EXPECT_THAT(main.stages[3].dependencies, ElementsAre("nowhere"));
    EXPECT_THAT(eventLines(main, "never"), ElementsAre("d pending"));
    EXPECT_TRUE(main.stages[4].outcome.heldByOperator);
    EXPECT_EQ(main.state, InstanceOutcome::State::held);
}

TEST(Timeline, TellsInstancesAndClassesApart) {
    PlanClass boot = stageClass("boot", {stage("power", {}, {takes("psu", 2)})});
    boot.instances = {{"left", {}, 0.0, false}, {"right", {}, 1.5, false}};
    boot.deadline = 60.0;
    PlanClass other = stageClass("other", {stage("power", {}, {takes("psu", 4)})});
    other.instances = {{"left", {}, 0.5, false}};

    const RunHistory run = planRun(planOf({boot, other}));

    Lines lines;
    for (const InstanceHistory& instance : run.instances)
        lines.push_back(fmt::format("{}/{} {} to {}, {}", instance.stageClass, instance.instance,
                                    instance.enabled, *instance.complete,
                                    eventLines(instance, "power").front()));
    EXPECT_THAT(lines, ElementsAre("boot/left 0 to 2, psu reported at 2",
                                   "other/left 0.5 to 4.5, psu reported at 4.5",
                                   "boot/right 1.5 to 3.5, psu reported at 3.5"));
    EXPECT_EQ(run.instances[0].deadline, 60.0);
}

TEST(Timeline, TellsWhatASuspendedInstanceDid) {
    PlanClass boot = stageClass("boot", {stage("power", {}, {takes("psu", 2)})});
    boot.instances = {{"left", {}, 1.0, true}};

    const RunHistory run = planRun(planOf({boot}));

    EXPECT_EQ(run.instances[0].suspended, 1.0);
    EXPECT_EQ(run.instances[0].state, InstanceOutcome::State::suspended);
    EXPECT_THAT(stageLines(run.instances[0]), ElementsAre("power ready 1"));
}

TEST(Timeline, TellsTheRebootAndTheMessages) {
    Plan plan = planOf({stageClass("boot", {stage("power", {}, {takes("psu", -1)}),
                                            stage("disks", {"power"}, {takes("shelf", 1)})})});
    plan.classes[0].deadline = 30.0;

    const RunHistory run = planRun(plan);

    ASSERT_TRUE(run.reboot);
    EXPECT_EQ(run.reboot->time, 30.0);
    EXPECT_EQ(run.reboot->mode, "cold");
    EXPECT_EQ(run.reboot->reason, "Global stage progression timed out after 30 secs");
    EXPECT_EQ(run.reboot->description, "Stage progression timeout during boot.");
    ASSERT_EQ(run.messages.size(), 1u);
    EXPECT_EQ(run.messages[0].time, 30.0);
    EXPECT_EQ(run.messages[0].text, "Global stage progression did not complete after 30 secs.");
    EXPECT_EQ(run.instances[0].state, InstanceOutcome::State::rebooting);
    EXPECT_THAT(stageLines(run.instances[0]), ElementsAre("power ready 0 start 0", "disks"));
}

TEST(Timeline, CountsAReportBeforeTheStartAsMadeAtTheStart) {
    const RunHistory run = runOf(
        bootClass() + agent("psu", "power", 10) + agent("fans", "power", 10) +
        report(1, "psu", "power", "main") +
        R"({"at":2,"op":"set","path":"/enable/boot","attr":"enabled","key":"main","value":true})" +
        report(3, "fans", "power", "main"));

    EXPECT_THAT(stageLines(run.instances[0]), ElementsAre("power ready 2 start 2 end 3"));
    EXPECT_THAT(eventLines(run.instances[0], "power"),
                ElementsAre("psu reported at 2", "fans reported at 3"));
}

TEST(Timeline, CountsARegistrationsOwnCompletionAsReported) {
    const RunHistory run = runOf(
        bootClass() + agent("psu", "power", 10) + enable("main") +
        R"({"at":4,"op":"set","path":"/input/boot/psu/event/power","attr":"complete","key":"main","value":true})");

    EXPECT_THAT(eventLines(run.instances[0], "power"), ElementsAre("psu reported at 4"));
}

TEST(Timeline, TellsWhichEventsLeftAStageAndWhichCameLater) {
    const RunHistory run =
        runOf(bootClass() + agent("psu", "power", 50) + agent("fans", "power", 50) +
              agent("bmc", "power", 50) + enable("main") + report(1, "psu", "power", "main") +
              R"({"at":3,"op":"unset","path":"/input/boot/fans","attr":"event","key":"power"})" +
              R"({"at":3.5,"op":"unset","path":"/input/boot/psu","attr":"event","key":"power"})" +
              R"({"at":4,"op":"create","path":"/input/boot/late","type":"Stage::AgentConfig"})" +
              agent("late", "power", 50) + report(6, "late", "power", "main") +
              report(7, "bmc", "power", "main"));

    EXPECT_THAT(eventLines(run.instances[0], "power"),
                ElementsAre("bmc reported at 7", "late reported at 6", "fans withdrawn at 3",
                            "psu reported at 1"));
    EXPECT_THAT(stageLines(run.instances[0]), ElementsAre("power ready 0 start 0 end 7"));
}

const char* const disabled =
    R"({"at":5,"op":"set","path":"/enable/boot","attr":"enabled","key":"main","value":false})";
const char* const enabledAgain =
    R"({"at":8,"op":"set","path":"/enable/boot","attr":"enabled","key":"main","value":true})";

TEST(Timeline, KeepsTheHistoryOfAnInstanceThatIsDisabled) {
    const RunHistory run =
        runOf(bootClass() + agent("psu", "power", 50) + agent("fans", "power", 50) +
              agent("web", "late", 10) + enable("main") + report(2, "psu", "power", "main") +
              disabled + enabledAgain);

    ASSERT_EQ(run.instances.size(), 2u);
    const InstanceHistory& first = run.instances[0];
    EXPECT_EQ(first.disabled, 5.0);
    EXPECT_EQ(first.state, InstanceOutcome::State::running);
    EXPECT_THAT(stageLines(first), ElementsAre("power ready 0 start 0", "late ready 0 start 0"));
    EXPECT_THAT(eventLines(first, "power"), ElementsAre("psu reported at 2", "fans pending"));
    const InstanceHistory& second = run.instances[1];
    EXPECT_EQ(second.enabled, 8.0);
    EXPECT_EQ(second.disabled, std::nullopt);
    EXPECT_THAT(eventLines(second, "power"), ElementsAre("psu reported at 8", "fans pending"));
}

TEST(Timeline, ACompleteInstanceThatIsDisabledStaysComplete) {
    const RunHistory run = runOf(bootClass() + agent("psu", "power", 50) + enable("main") +
                                 report(2, "psu", "power", "main") + disabled);

    ASSERT_EQ(run.instances.size(), 1u);
    EXPECT_EQ(run.instances[0].state, InstanceOutcome::State::complete);
    EXPECT_EQ(run.instances[0].complete, 2.0);
    EXPECT_EQ(run.instances[0].disabled, 5.0);
    EXPECT_THAT(stageLines(run.instances[0]), ElementsAre("power ready 0 start 0 end 2"));
}

// Nothing that is taken away in mid-run makes what happened before unknown.
TEST(Timeline, OutlivesWhatIsRemoved) {
    for (const char* const path :
         {"/stage/boot", "/stage/boot/status", "/stage/boot/config", "/stage/boot/log",
          "/stage/boot/completionstatus", "/stage/boot/progress", "/input/boot", "/input/boot/psu",
          "/agentstatus/boot", "/agentstatus/boot/psu", "/enable/boot"}) {
        const RunHistory run =
            runOf(bootClass() + agent("psu", "power", 50) + agent("fans", "power", 50) +
                  enable("main") + report(2, "psu", "power", "main") +
                  fmt::format(R"({{"at":5,"op":"delete","path":"{}"}})", path) +
                  R"({"at":6,"op":"settle"})" + bootClass() + agent("psu", "power", 50) +
                  R"({"at":9,"op":"settle"})");

        ASSERT_FALSE(run.instances.empty()) << path;
        const InstanceHistory& first = run.instances[0];
        EXPECT_EQ(first.enabled, 0.0) << path;
        const StageHistory* const power = first.stage("power");
        ASSERT_NE(power, nullptr) << path;
        EXPECT_EQ(power->start, 0.0) << path;
        EXPECT_THAT(eventLines(*power), testing::Contains("psu reported at 2")) << path;
    }
}

TEST(Timeline, KnowsInstancesThatNothingRuns) {
    const RunHistory run = runOf({create("/enable/boot", "Stage::EnabledConfig"), enable("main")});

    ASSERT_EQ(run.instances.size(), 1u);
    EXPECT_EQ(run.instances[0].state, InstanceOutcome::State::unmanaged);
    EXPECT_EQ(run.instances[0].missing, "/stage/boot");
    EXPECT_THAT(run.instances[0].stages, IsEmpty());
}

TEST(RunSource, TellsJournalsFromPlans) {
    EXPECT_EQ(runText("# a journal\n\n{\"at\": 0, \"op\": \"end\"}\n"), RunText::journal);
    EXPECT_EQ(runText("{\"at\": 0, \"op\": }\n"), RunText::journal);
    EXPECT_EQ(runText("# a plan\nversion: 1\n"), RunText::plan);
    EXPECT_EQ(runText("{\"version\": 1, \"stages\": {}}"), RunText::plan);
    EXPECT_EQ(runText("{\n\"version\": 1}"), RunText::plan);
    EXPECT_EQ(runText(""), RunText::neither);
    EXPECT_EQ(runText("{\"at\": 0}\n"), RunText::neither);
}

}  // namespace
}  // namespace Host
