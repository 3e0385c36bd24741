#include "host/history/Diff.h"

#include <gtest/gtest.h>

#include "host/session/RunSource.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

Plan aPlan() {
    return planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2)}),
                                       stage("net", {"power"}, {takes("nic", 3), takes("bond", 2)}),
                                       stage("disks", {"power"}, {takes("shelf", 4)}),
                                       stage("web", {"net", "disks"}, {takes("c", 1)})})});
}

void setTakes(Plan& plan, std::size_t stage, double seconds) {
    plan.classes[0].stages[stage].participants[0].takes = Takes{Takes::Kind::fixed, seconds};
}

TEST(Diff, TellsNothingOfTheSameRun) {
    const RunHistory run = planRun(aPlan());

    EXPECT_EQ(diffText(diff(run, run), false), "boot/main: 7s -> 7s (no change)\n");
}

// net takes 6 s longer, of which disks hides one.
TEST(Diff, TellsWhichStageIsToBlame) {
    Plan slower = aPlan();
    setTakes(slower, 1, 9);
    const RunHistory before = planRun(aPlan());
    const RunHistory after = planRun(slower);

    EXPECT_EQ(diffText(diff(before, after), false),
              "boot/main: 7s -> 12s (+5s)\n"
              "EXPLAINS  OWN  BEFORE  AFTER  STAGE  WHY\n"
              "     +5s  +6s      3s     9s  net    nic 3s -> 9s\n"
              "web only waited: it started 5s later, after net.\n");
    EXPECT_EQ(diffText(diff(after, before), false),
              "boot/main: 12s -> 7s (-5s)\n"
              "EXPLAINS  OWN  BEFORE  AFTER  STAGE  WHY\n"
              "     -5s  -6s      9s     3s  net    nic 9s -> 3s\n"
              "web only waited: it started 5s earlier, after disks.\n");
}

TEST(Diff, SortsByWhatExplainsMost) {
    Plan slower = aPlan();
    setTakes(slower, 0, 3);  // on the way of everything
    setTakes(slower, 2, 8);
    setTakes(slower, 1, 5);  // hidden by disks

    const RunHistory before = planRun(aPlan());
    const RunHistory after = planRun(slower);
    const std::vector<InstanceDiff> found = diff(before, after);

    ASSERT_EQ(found[0].stages.size(), 4u);
    EXPECT_EQ(found[0].stages[0].name, "disks");
    EXPECT_EQ(found[0].stages[0].explains, 3.0);  // net would have been the last
    EXPECT_EQ(found[0].stages[1].name, "power");
    EXPECT_EQ(found[0].stages[1].explains, 1.0);
    EXPECT_EQ(found[0].stages[2].name, "net");
    EXPECT_EQ(found[0].stages[2].explains, 0.0);
    EXPECT_EQ(found[0].stages[3].name, "web");
    EXPECT_EQ(found[0].stages[3].kind, StageDiff::Kind::waited);
    EXPECT_EQ(found[0].stages[3].waitedFor, "disks");
}

// A slower critical stage delays what starts after all critical ones.
TEST(Diff, KnowsThatOthersStartAfterCriticalStages) {
    Plan plan = planOf({stageClass(
        "boot", {stage("first", {}, {takes("a", 2)}), stage("urgent", {"first"}, {takes("b", 1)}),
                 stage("other", {}, {takes("c", 5)})})});
    plan.classes[0].stages[1].participants[0].critical = true;
    Plan slower = plan;
    setTakes(slower, 0, 4);

    const RunHistory before = planRun(plan);
    const RunHistory after = planRun(slower);
    const std::vector<InstanceDiff> found = diff(before, after);

    EXPECT_EQ(found[0].stages[0].name, "first");
    EXPECT_EQ(found[0].stages[0].explains, 2.0);
    EXPECT_EQ(found[0].afterTotal - found[0].beforeTotal, 2.0);
}

// "b" starts last of the critical ones: what is not critical starts when the next stage after that
// is complete.
Plan criticalFirst(double b, double c) {
    Plan plan = planOf(
        {stageClass("boot", {stage("a", {}, {takes("x", 2)}), stage("b", {"a"}, {takes("x", b)}),
                             stage("c", {}, {takes("x", c)}), stage("o", {}, {takes("x", 8)})})});
    plan.classes[0].stages[1].participants[0].critical = true;
    plan.classes[0].stages[2].participants[0].critical = true;
    return plan;
}

TEST(Diff, BlamesTheStageWhoseCompletionOthersWaitedFor) {
    EXPECT_EQ(diffText(diff(planRun(criticalFirst(5, 1)), planRun(criticalFirst(9, 1))), false),
              "boot/main: 15s -> 19s (+4s)\n"
              "EXPLAINS  OWN  BEFORE  AFTER  STAGE  WHY\n"
              "     +4s  +4s      5s     9s  b      x 5s -> 9s\n"
              "o only waited: it started 4s later, after b.\n");
    // c ends before b has started, or else ends the wait earlier than b.
    EXPECT_EQ(diffText(diff(planRun(criticalFirst(5, 1)), planRun(criticalFirst(5, 3))), false),
              "boot/main: 15s -> 11s (-4s)\n"
              "EXPLAINS  OWN  BEFORE  AFTER  STAGE  WHY\n"
              "     -4s  +2s      1s     3s  c      x 1s -> 3s\n"
              "o only waited: it started 4s earlier, after c.\n");
}

// What takes no time is complete in the moment in which it starts, but only then.
TEST(Diff, TakesPassesOfOneMomentInTheirOrder) {
    const auto plan = [](double c) {
        Plan made = planOf({stageClass(
            "boot", {stage("a", {}, {takes("x", 0)}), stage("o", {"a"}, {takes("x", 4)}),
                     stage("c", {}, {takes("x", c)}), stage("b", {"a"}, {takes("x", 9)})})});
        made.classes[0].stages[2].participants[0].critical = true;
        made.classes[0].stages[3].participants[0].critical = true;
        return made;
    };

    const std::vector<InstanceDiff> found = diff(planRun(plan(3)), planRun(plan(18)));

    EXPECT_EQ(found[0].afterTotal, 18.0);
    EXPECT_EQ(found[0].stages[0].name, "c");
    EXPECT_EQ(found[0].stages[0].explains, 9.0);
    EXPECT_EQ(found[0].stages[1].waitedFor, "b");
}

TEST(Diff, TellsChangedOutcomesAndStagesOfOneRunAlone) {
    Plan other = aPlan();
    other.classes[0].stages[1].participants[1].takes = Takes{Takes::Kind::never};
    other.classes[0].stages[1].participants[1].autoComplete = 2.0;
    other.classes[0].stages.erase(other.classes[0].stages.begin() + 2);
    other.classes[0].stages[2].after = {{"net", {}}};
    other.classes[0].stages.push_back(stage("new", {"web"}, {takes("d", 2)}));

    const RunHistory before = planRun(aPlan());
    const RunHistory after = planRun(other);

    EXPECT_EQ(diffText(diff(before, after), false),
              "boot/main: 7s -> 8s (+1s)\n"
              "EXPLAINS  OWN  BEFORE  AFTER  STAGE  WHY\n"
              "     +2s    -       -     2s  new    only in the second run\n"
              "     -1s    -      4s      -  disks  only in the first run\n"
              "       -    -      3s     3s  net    was complete, is auto-completed for bond\n"
              "web only waited: it started 1s earlier, after net.\n");
}

TEST(Diff, TellsInstancesOfOneRunAlone) {
    Plan two = aPlan();
    two.classes[0].instances.push_back({"second", {}, 1.0, false});
    const RunHistory one = planRun(aPlan());
    const RunHistory both = planRun(two);

    EXPECT_EQ(diffText(diff(one, both), false),
              "boot/main: 7s -> 7s (no change)\n\nboot/second is only in the second run.\n");
    EXPECT_EQ(diffText(diff(both, one), false),
              "boot/main: 7s -> 7s (no change)\n\nboot/second is only in the first run.\n");
}

TEST(Diff, TellsTheSameToPrograms) {
    Plan slower = aPlan();
    setTakes(slower, 1, 9);
    const RunHistory before = planRun(aPlan());
    const RunHistory after = planRun(slower);

    const Json document = diffJson(diff(before, after));

    EXPECT_EQ(*document.member("schema"), Json("stagemgr.diff/1"));
    const Json& net =
        document.member("instances")->array()->front().member("stages")->array()->front();
    EXPECT_EQ(*net.member("stage"), Json("net"));
    EXPECT_EQ(*net.member("explains"), Json(5.0));
    EXPECT_EQ(*net.member("own")->member("before"), Json(3.0));
    EXPECT_EQ(*net.member("participants")->array()->front().member("name"), Json("nic"));
}

}  // namespace
}  // namespace Host
