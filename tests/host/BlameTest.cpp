#include "host/history/Blame.h"

#include <gtest/gtest.h>

#include "host/session/RunSource.h"
#include "tests/host/Plans.h"

namespace Host {
namespace {

Plan everything() {
    Plan plan = planOf({stageClass("boot", {stage("power", {}, {takes("psu", 2), takes("fans", 1)}),
                                            stage("lost", {"power"}, {takes("a", -1)}),
                                            stage("assumed", {"power"}, {takes("b", -1)}),
                                            stage("never", {"nowhere"}, {takes("c", 1)})})});
    plan.classes[0].stages[1].participants[0].limit = 5.0;
    plan.classes[0].stages[2].participants[0].autoComplete = 4.0;
    return plan;
}

TEST(Blame, ListsTheLongestFirst) {
    EXPECT_EQ(blame(planRun(everything()), {}),
              "OWN  WAITED  HELD  STAGE\n"
              " 5s      2s     -  lost     timed out, passed over, no report from a\n"
              " 4s      2s     -  assumed  auto-completed for b\n"
              " 2s      0s     -  power\n"
              "  -      7s     -  never    not started: needs what does not exist: nowhere\n");
}

TEST(Blame, ListsParticipants) {
    EXPECT_EQ(blame(planRun(everything()), {true, false}),
              "OWN  WAITED  HELD  PARTICIPANT\n"
              " 5s      2s     -  lost:a       timed out, no report\n"
              " 4s      2s     -  assumed:b    auto-completed\n"
              " 2s      0s     -  power:psu\n"
              " 1s      0s     -  power:fans\n"
              "  -      7s     -  never:c      not started: needs what does not exist: nowhere\n");
}

TEST(Blame, TellsHoldingFromWaiting) {
    Plan plan = planOf({stageClass(
        "boot", {stage("first", {}, {takes("a", 3)}), stage("urgent", {"first"}, {takes("b", 1)}),
                 stage("other", {}, {takes("c", 1)})})});
    plan.classes[0].stages[1].participants[0].critical = true;
    plan.classes[0].instances.push_back({"second", {}, 1.0, false});

    const std::string text = blame(planRun(plan), {});

    EXPECT_NE(text.find(" 1s      0s    4s  other   boot/main\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" 1s      0s    4s  other   boot/second\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" 1s      3s     -  urgent  boot/main\n"), std::string::npos) << text;
}

TEST(Blame, TellsTheSameToPrograms) {
    const Json document = blameJson(planRun(everything()), true);

    EXPECT_EQ(*document.member("schema"), Json("stagemgr.blame/1"));
    const Json::Array& rows = *document.member("rows")->array();
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(*rows[1].member("participant"), Json("b"));
    EXPECT_EQ(*rows[1].member("outcome"), Json("assumed"));
    EXPECT_EQ(*rows[1].member("own"), Json(4.0));
    EXPECT_EQ(*rows[4].member("own"), Json());
}

}  // namespace
}  // namespace Host
