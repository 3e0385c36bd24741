#include "host/history/CriticalChain.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/session/RunSource.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

std::string chain(const RunHistory& run, const ChainOptions& options = {}) {
    const std::optional<std::string> text = criticalChain(run, options);
    if (!text) return "none";
    return text->substr(text->find("\n\n") + 2);
}

TEST(CriticalChain, FollowsTheLatestDependencies) {
    const RunHistory run = planRun(planOf({stageClass(
        "boot", {stage("power", {}, {takes("psu", 2)}), stage("disks", {"power"}, {takes("a", 3)}),
                 stage("net", {"power"}, {takes("b", 2.5)}),
                 stage("web", {"net", "disks", "power"}, {takes("c", 1)}),
                 stage("quick", {}, {takes("d", 1)})})}));

    EXPECT_EQ(chain(run),
              "web @5s +1s\n"
              "└─disks @2s +3s\n"
              "  └─power @0s +2s\n");
    EXPECT_EQ(chain(run, {"web", 0.5, false}),
              "web @5s +1s\n"
              "├─disks @2s +3s\n"
              "│ └─power @0s +2s\n"
              "└─net @2s +2.5s\n");
    EXPECT_EQ(chain(run, {"quick", 0.0, false}), "quick @0s +1s\n");
    EXPECT_EQ(chain(run, {"none such", 0.0, false}), "none");
}

TEST(CriticalChain, MarksWhatDidNotGoWell) {
    Plan plan = planOf({stageClass(
        "boot", {stage("lost", {}, {takes("a", -1)}), stage("assumed", {"lost"}, {takes("b", -1)}),
                 stage("last", {"assumed", "nowhere"}, {takes("c", 1)})})});
    plan.classes[0].stages[0].participants[0].limit = 5.0;
    plan.classes[0].stages[1].participants[0].autoComplete = 4.0;

    EXPECT_EQ(chain(planRun(plan)),
              "last (not started: needs what does not exist: nowhere)\n"
              "└─nowhere (no such stage)\n");
    EXPECT_EQ(chain(planRun(plan), {"assumed", 0.0, false}),
              "assumed @5s +4s (auto-completed for b)\n"
              "└─lost @0s +5s (timed out, passed over, no report from a)\n");
}

// "a" starts at once, "b" after it; "o" has to wait until "b", the last to start, is complete.
Plan criticalFirst(double b) {
    Plan plan = planOf(
        {stageClass("boot", {stage("a", {}, {takes("x", 2)}), stage("b", {"a"}, {takes("x", b)}),
                             stage("o", {}, {takes("x", 3)})})});
    plan.classes[0].stages[1].participants[0].critical = true;
    return plan;
}

TEST(CriticalChain, GoesOnWithTheStageThatEndedTheWaitForCriticalStages) {
    EXPECT_EQ(chain(planRun(criticalFirst(5))),
              "o @7s +3s (held 7s for critical stages)\n"
              "└─b @2s +5s\n"
              "  └─a @0s +2s\n");
}

TEST(CriticalChain, ShowsBelowWhatHasNotStartedOnlyWhatItStillWaitsFor) {
    Plan held = planOf({stageClass(
        "boot", {stage("a", {}, {takes("x", 1)}), stage("x", {"a"}, {takes("x", 1)})})});
    held.classes[0].doNotStart = {{"x"}};
    EXPECT_EQ(chain(planRun(held)), "x (not started: held by the do-not-start list)\n");

    // b has started, so that no critical stage is waited for, but for its completion.
    Plan overdue = criticalFirst(-1);
    overdue.classes[0].onTimeout = OnTimeout::wait;
    EXPECT_EQ(chain(planRun(overdue)),
              "o (not started: starts when the next stage is complete)\n"
              "└─b @2s +1min 30s (timed out, critical, waiting for x)\n"
              "  └─a @0s +2s\n");
}

TEST(CriticalChain, ShowsTheCriticalStagesForWhichOthersAreHeld) {
    Plan plan = planOf({stageClass(
        "boot", {stage("a", {"c"}, {takes("x", 1)}), stage("b", {"a"}, {takes("x", 1)}),
                 stage("c", {"b"}, {takes("x", 1)}), stage("d", {"c"}, {takes("x", 1)}),
                 stage("e", {}, {takes("x", 1)}), stage("h", {"e"}, {takes("x", 1)})})});
    plan.classes[0].stages[3].participants[0].critical = true;

    EXPECT_EQ(chain(planRun(plan)),
              "h (not started: needs e, critical stages start first)\n"
              "└─e (not started: critical stages start first)\n"
              "  └─d (not started: needs c)\n"
              "    └─c (not started: needs b)\n"
              "      └─b (not started: needs a)\n"
              "        └─a (not started: needs c)\n");
}

TEST(CriticalChain, EndsWhereStagesWaitForEachOther) {
    const RunHistory run = planRun(planOf({stageClass(
        "boot", {stage("a", {"b"}, {takes("x", 1)}), stage("b", {"a"}, {takes("x", 1)})})}));

    EXPECT_EQ(chain(run),
              "a (not started: needs b)\n"
              "└─b (not started: needs a)\n");
}

TEST(CriticalChain, IsAsDeepAsItHasToBe) {
    std::vector<PlanStage> stages{stage("s0", {}, {takes("a", 1)})};
    for (int i = 1; i < 1000; ++i)
        stages.push_back(
            stage("s" + std::to_string(i), {"s" + std::to_string(i - 1)}, {takes("a", 1)}));

    const std::string text = chain(planRun(planOf({stageClass("boot", stages)})));

    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1000);
    EXPECT_NE(text.find("s0 @0s +1s\n"), std::string::npos);
    EXPECT_LT(text.size(), 1'000'000u);
}

TEST(CriticalChain, TellsTheSameToPrograms) {
    const RunHistory run =
        planRun(planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2)}),
                                            stage("web", {"power"}, {takes("c", 1)})})}));

    const std::optional<Json> document = criticalChainJson(run, {});

    ASSERT_TRUE(document);
    EXPECT_EQ(*document->member("schema"), Json("stagemgr.critical-chain/1"));
    const Json::Array& nodes =
        *document->member("instances")->array()->front().member("chain")->array();
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(*nodes[0].member("name"), Json("web"));
    EXPECT_EQ(*nodes[0].member("below"), Json(Json::Array{1.0}));
    EXPECT_EQ(*nodes[1].member("stage")->member("own"), Json(2.0));
}

}  // namespace
}  // namespace Host
