#include "host/history/TimeReport.h"

#include <gtest/gtest.h>

#include "host/session/RunSource.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

TEST(TimeReport, TellsHowLongAnInstanceTook) {
    const RunHistory run = planRun(planOf({stageClass(
        "boot", {stage("power", {}, {takes("psu", 2)}), stage("web", {"power"}, {takes("a", 3)}),
                 stage("short", {"power"}, {takes("b", 1)})})}));

    EXPECT_EQ(timeReport(run),
              "boot/main finished in 5s (work) = 5s.\n"
              "web was the last of 3 stages, after 5s.\n");
}

TEST(TimeReport, TellsWhereTheTimeWent) {
    Plan plan = planOf({stageClass(
        "boot",
        {stage("power", {}, {takes("psu", 2)}), stage("lost", {"power"}, {takes("a", -1)}),
         stage("assumed", {"lost"}, {takes("b", -1)}), stage("urgent", {"power"}, {takes("c", 15)}),
         stage("last", {"assumed"}, {takes("d", 1)})})});
    plan.classes[0].stages[1].participants[0].limit = 5.0;
    plan.classes[0].stages[2].participants[0].autoComplete = 4.0;
    const RunHistory run = planRun(plan);
    plan.classes[0].stages[3].participants[0].critical = true;
    plan.classes[0].onTimeout = OnTimeout::wait;
    const RunHistory gated = planRun(plan);

    EXPECT_EQ(timeReport(run),
              "boot/main finished in 17s (work) = 17s.\n"
              "urgent was the last of 5 stages, after 17s.\n");
    // What is not critical starts when urgent, the last critical stage to start, is complete.
    EXPECT_EQ(timeReport(gated),
              "boot/main finished in 18s (work) + 5s (timed out) + 4s (auto-completed) = 27s.\n"
              "last was the last of 5 stages, after 27s.\n");
}

TEST(TimeReport, TellsWhatIsNotFinished) {
    Plan plan = planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2)}),
                                            stage("disks", {"power"}, {takes("shelf", -1)}),
                                            stage("web", {"disks"}, {takes("a", 1)})})});
    plan.classes[0].deadline = 30.0;

    const RunHistory run = planRun(plan);

    EXPECT_EQ(timeReport(run),
              "boot/main is not finished after 2s (work) + 28s (unfinished) = 30s.\n"
              "It was stopped by a reboot request (Global stage progression timed out after 30 "
              "secs), with 1 of 3 stages complete.\n");
}

TEST(TimeReport, TellsTheSameToPrograms) {
    const RunHistory run =
        planRun(planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2)})})}));

    const Json document = timeJson(run);

    EXPECT_EQ(*document.member("schema"), Json("stagemgr.time/1"));
    const Json& instance = document.member("instances")->array()->front();
    EXPECT_EQ(*instance.member("work"), Json(2.0));
    EXPECT_EQ(*instance.member("total"), Json(2.0));
    EXPECT_EQ(*instance.member("outcome"), Json("complete"));
    EXPECT_EQ(instance.member("path")->array()->size(), 1u);
}

TEST(TimeReport, TellsThatNothingWasEnabled) {
    EXPECT_EQ(timeReport(RunHistory()), "No instance was enabled.\n");
}

}  // namespace
}  // namespace Host
