#include "host/history/Plot.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "host/history/Svg.h"
#include "host/session/RunSource.h"
#include "tests/host/HostileNames.h"
#include "tests/host/Journals.h"
#include "tests/host/Plans.h"
#include "tests/host/Xml.h"

namespace Host {
namespace {

using testing::UnorderedElementsAre;

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Plan everything() {
    Plan plan = planOf({stageClass(
        "boot",
        {stage("power", {}, {takes("psu", 2), takes("fans", 1)}),
         stage("lost", {"power"}, {takes("a", -1)}), stage("assumed", {"power"}, {takes("b", -1)}),
         stage("never", {"nowhere"}, {takes("c", 1)}), stage("urgent", {"power"}, {takes("d", 1)}),
         stage("held", {}, {takes("e", 1)})})});
    plan.classes[0].stages[1].participants[0].limit = 5.0;
    plan.classes[0].stages[2].participants[0].autoComplete = 4.0;
    plan.classes[0].stages[4].participants[0].critical = true;
    plan.classes[0].onTimeout = OnTimeout::proceed;
    plan.classes[0].deadline = 9.0;
    return plan;
}

TEST(Plot, ShowsEveryOutcomeInItsOwnWay) {
    const std::string svg = plot(planRun(everything()), {"plan.yaml", true});

    EXPECT_EQ(xmlFault(svg), "");
    for (const char* const look :
         {"work", "held", "timed-out", "assumed", "not-started", "limit", "deadline", "reboot"})
        EXPECT_TRUE(holds(svg, std::string("class=\"") + look + "\"")) << look;
    // The legend tells what is there, and nothing else.
    EXPECT_TRUE(holds(svg, ">auto-completed</text>"));
    EXPECT_FALSE(holds(svg, ">not finished</text>"));
    EXPECT_TRUE(holds(svg, "boot/main: not complete after 9s, deadline 9s"));
}

TEST(Plot, ShowsParticipantsWhenAsked) {
    const RunHistory run = planRun(everything());

    EXPECT_TRUE(holds(plot(run, {"plan.yaml", true}), ">fans</text>"));
    EXPECT_FALSE(holds(plot(run, {"plan.yaml", false}), ">fans</text>"));
}

// Of the bars of that look, where they begin and how wide they are; those of the legend are no
// bars.
std::set<std::string> bars(const std::string& svg, const std::string& look) {
    std::set<std::string> found;
    const std::regex bar("<rect class=\"" + look +
                         "\" x=\"([0-9.]+)\" y=\"[0-9.]+\" width=\"([0-9.]+)\" "
                         "height=\"[0-9.]+\"><title>([^ <]*): ");
    for (std::sregex_iterator at(svg.begin(), svg.end(), bar), end; at != end; ++at)
        found.insert(at->str(3) + " " + at->str(1) + " " + at->str(2));
    return found;
}

// In time up to the limit, and from then on timed out: the stage and its participant alike.
TEST(Plot, ShowsFromWhenOnAParticipantIsOverdue) {
    Plan plan = planOf({stageClass(
        "boot", {stage("power", {}, {takes("psu", 8)}), stage("disks", {"power"}, {takes("a", -1)}),
                 stage("net", {"power"}, {takes("b", 12)})})});
    for (PlanStage& stage : plan.classes[0].stages) {
        stage.participants[0].critical = true;
        stage.participants[0].limit = 4.0;
    }
    plan.classes[0].onTimeout = OnTimeout::wait;

    const RunHistory run = planRun(plan);
    const std::string svg = plot(run, {"plan.yaml", true});

    // From 0 s to 20 s.
    EXPECT_EQ(run.end, 20.0);
    const auto at = [&](const std::string& name, double from, double to) {
        static const std::regex first("<rect class=\"work\" x=\"([0-9.]+)\"[^>]*><title>power:");
        std::smatch left;
        EXPECT_TRUE(std::regex_search(svg, left, first));
        const double second = 1000.0 / 20.1;
        return fmt::format("{} {} {}", name, svgNumber(std::stod(left.str(1)) + from * second),
                           svgNumber((to - from) * second));
    };
    EXPECT_THAT(bars(svg, "under-way"),
                UnorderedElementsAre(at("disks", 8, 12), at("disks:a", 8, 12)));
    EXPECT_THAT(
        bars(svg, "timed-out"),
        UnorderedElementsAre(at("power", 4, 8), at("power:psu", 4, 8), at("disks", 12, 20),
                             at("disks:a", 12, 20), at("net", 12, 20), at("net:b", 12, 20)));
}

TEST(Plot, TakesRunsInWhichNothingHappens) {
    EXPECT_EQ(xmlFault(plot(RunHistory(), {"nothing", true})), "");
    EXPECT_TRUE(holds(plot(RunHistory(), {"nothing", false}), "No instance was enabled."));

    PlanClass idle = stageClass("boot", {stage("a", {"nowhere"}, {takes("x", 1)})});
    EXPECT_EQ(xmlFault(plot(planRun(planOf({idle})), {"idle", true})), "");
}

TEST(Plot, NoNameBreaksIt) {
    for (const HostileName& hostile : hostileNames()) {
        if (hostile.name.empty()) continue;
        PlanClass made = stageClass(hostile.name, {stage(hostile.name, {}, {takes("x", 1)})});
        made.stages[0].participants[0].name = hostile.name;
        made.instances[0].name = hostile.name;

        const std::string svg = plot(planRun(planOf({made})), {hostile.name, true});

        EXPECT_EQ(xmlFault(svg), "") << hostile.what;
    }
}

TEST(Plot, StepsOfTheAxisAreRoundAndEnough) {
    for (double span = 1e-5; span < 1e8; span *= 1.37) {
        const double step = axisStep(span, 10.0);
        EXPECT_LE(span / step, 10.0 + 1e-9) << span;
        EXPECT_GE(span / step, 2.0) << span;
    }
    EXPECT_EQ(axisStep(50.0, 10.0), 5.0);
    EXPECT_EQ(axisStep(130.0, 10.0), 15.0);
    EXPECT_EQ(axisStep(3600.0, 10.0), 600.0);
}

TEST(Plot, TellsTheSameToPrograms) {
    const Json document = plotJson(planRun(everything()));

    EXPECT_EQ(*document.member("schema"), Json("stagemgr.plot/1"));
    const Json::Array& stages =
        *document.member("instances")->array()->front().member("stages")->array();
    ASSERT_EQ(stages.size(), 6u);
    EXPECT_EQ(*stages[1].member("outcome"), Json("passedOver"));
    EXPECT_EQ(*stages[1].member("timedOut"), *stages[1].member("end"));
    EXPECT_EQ(*stages[3].member("start"), Json());
    EXPECT_EQ(*document.member("reboot")->member("time"), Json(9.0));
}

}  // namespace
}  // namespace Host
