// What a run costs in steps that can be counted: it grows with the work to be done, not with how
// many stages there are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "runtime/Trace.h"
#include "tests/support/World.h"

namespace StageTest {
namespace {

constexpr int stages = 1000;

std::string stageName(int stage) { return "stage" + std::to_string(stage); }
std::string agentName(int stage) { return "agent" + std::to_string(stage); }

Lines chain(int stage) { return stage == 0 ? Lines() : Lines{stageName(stage - 1)}; }

Lines fan(int stage) {
    if (stage == 0) return {};
    if (stage + 1 < stages) return {stageName(0)};
    Lines all;
    for (int i = 1; i < stage; ++i) all.push_back(stageName(i));
    return all;
}

// Three different ones of the ten of the layer before.
Lines layered(int stage) {
    if (stage < 10) return {};
    const int before = stage / 10 * 10 - 10;
    return {stageName(before + stage % 10), stageName(before + (stage * 3 + 1) % 10),
            stageName(before + (stage * 3 + 5) % 10)};
}

// Takes part in the record as a stage reactor does, for a stage that never runs.
class Bystander final : public Stage::AgentStatusLocal::SubscriberConst {
  public:
    using SubscriberConst::SubscriberConst;
    void onComplete(Stage::AgentStatusKey) override { ++told; }
    int told = 0;
};

struct Shape {
    const char* name;
    Lines (*dependsOn)(int);
};
void PrintTo(const Shape& shape, std::ostream* out) { *out << shape.name; }

class Cost : public testing::TestWithParam<Shape> {
  protected:
    void SetUp() override {
        if (Orv::TraceHandle::someEnabled())
            GTEST_SKIP() << "who traces is told of every stage and every report";
        for (int stage = 0; stage < stages; ++stage)
            world.agent(agentName(stage))
                .event(stageName(stage), {.dependsOn = GetParam().dependsOn(stage)});
    }
    void run() {
        world.enable("boot");
        world.settle();
        for (int stage = 0; stage < stages; ++stage) {
            world.agent(agentName(stage)).report(stageName(stage), "boot");
            world.settle();
        }
    }

    World world;
};

TEST_P(Cost, ARunVisitsEachStageAFewTimes) {
    run();

    ASSERT_TRUE(world.instanceComplete("boot"));
    const auto visited = world.instance("boot")->visitedStages();
    EXPECT_GE(visited, stages);
    EXPECT_LE(visited, 4 * stages);
}

TEST_P(Cost, AReportReachesNoStageButItsOwn) {
    std::vector<std::unique_ptr<Bystander>> bystanders;
    for (int stage = 0; stage < stages; ++stage) {
        const auto record = world.agentStatusLocal();
        bystanders.push_back(
            std::make_unique<Bystander>(record, stageName(stage), "another instance"));
        bystanders.push_back(
            std::make_unique<Bystander>(record, "another " + stageName(stage), "boot"));
    }

    run();

    ASSERT_TRUE(world.instanceComplete("boot"));
    int told = 0;
    for (const auto& bystander : bystanders) told += bystander->told;
    EXPECT_EQ(told, 0);
}

INSTANTIATE_TEST_SUITE_P(Shapes, Cost,
                         testing::Values(Shape{"chain", chain}, Shape{"fan", fan},
                                         Shape{"layered", layered}),
                         [](const auto& shape) { return std::string(shape.param.name); });

// So the bystanders would have noticed.
TEST(CostOfReports, WhoAsksForAStageIsToldOfEachOfItsReportsOnce) {
    World world;
    for (int agent = 0; agent < 10; ++agent)
        for (const char* stage : {"disks", "network"}) world.agent(agentName(agent)).event(stage);
    world.enable("boot");
    world.settle();
    const Bystander disks(world.agentStatusLocal(), "disks", "boot");

    for (int agent = 0; agent < 10; ++agent) {
        world.agent(agentName(agent)).report("disks", "boot");
        EXPECT_EQ(disks.told, agent + 1);
    }
    EXPECT_THAT(world.pendingEvents("boot", "disks"), testing::IsEmpty());
    EXPECT_THAT(world.pendingEvents("boot", "network"), testing::SizeIs(10));
}

}  // namespace
}  // namespace StageTest
