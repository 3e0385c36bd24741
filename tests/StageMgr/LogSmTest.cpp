#include "StageMgr/LogSm.h"

#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using Orv::make;
using Orv::Ptr;
using Stage::LogEntry;
using Stage::LogSm;
using Stage::logSmFactory;
using StageTest::Lines;
using StageTest::World;

class LogSmReactor : public testing::Test {
  protected:
    std::vector<LogEntry> entries(const char* instance) const {
        const Ptr<Stage::InstanceLog> found = log->instanceLog(instance);
        return found ? found->log() : std::vector<LogEntry>();
    }

    World world;
    Ptr<Stage::Log> log = make<Stage::Log>("log");
};

TEST_F(LogSmReactor, WritesLinesWithTheCurrentTime) {
    const Ptr<LogSm> writer = logSmFactory(log, "boot");

    writer->logIs("first");
    world.advance(2.5);
    writer->logIs("second");

    EXPECT_EQ(entries("boot"), (std::vector<LogEntry>{{0, "first"}, {2.5, "second"}}));
}

TEST_F(LogSmReactor, KeepsTheOrderOfLinesOfOneMoment) {
    const Ptr<LogSm> writer = logSmFactory(log, "boot");
    world.advance(1);

    writer->logIs("one");
    writer->logIs("two");
    writer->logIs("two");

    EXPECT_EQ(entries("boot"), (std::vector<LogEntry>{{1, "one"}, {1, "two"}, {1, "two"}}));
}

TEST_F(LogSmReactor, MakesTheInstancesLogWithItsFirstLine) {
    const Ptr<LogSm> writer = logSmFactory(log, "boot");
    EXPECT_EQ(log->instanceLog("boot"), nullptr);

    writer->logIs("line");

    EXPECT_EQ(entries("boot"), (std::vector<LogEntry>{{0, "line"}}));
}

TEST_F(LogSmReactor, GoesOnWithALogThatIsThere) {
    const Ptr<Stage::InstanceLog> there = log->instanceLogIs("boot");
    there->logEnq({0, "from an earlier run"});

    logSmFactory(log, "boot")->logIs("line");

    EXPECT_EQ(log->instanceLog("boot"), there);
    EXPECT_EQ(entries("boot"), (std::vector<LogEntry>{{0, "from an earlier run"}, {0, "line"}}));
}

TEST_F(LogSmReactor, WritesToItsOwnInstanceOnly) {
    const Ptr<LogSm> boot = logSmFactory(log, "boot");
    const Ptr<LogSm> spare = logSmFactory(log, "spare");

    boot->logIs("of boot");
    spare->logIs("of spare");

    EXPECT_EQ(entries("boot"), (std::vector<LogEntry>{{0, "of boot"}}));
    EXPECT_EQ(entries("spare"), (std::vector<LogEntry>{{0, "of spare"}}));
}

TEST_F(LogSmReactor, MakesALogThatWasDeletedAnew) {
    const Ptr<LogSm> writer = logSmFactory(log, "boot");
    writer->logIs("before");
    log->instanceLogDel("boot");

    writer->logIs("after");

    EXPECT_EQ(entries("boot"), (std::vector<LogEntry>{{0, "after"}}));
}

TEST_F(LogSmReactor, WritesNothingOnceItIsRetired) {
    const Ptr<LogSm> writer = logSmFactory(log, "boot");

    writer->retire();
    writer->logIs("line");

    EXPECT_EQ(log->instanceLog("boot"), nullptr);
}

TEST_F(LogSmReactor, WritesNothingWithoutALog) {
    logSmFactory(nullptr, "boot")->logIs("line");

    EXPECT_TRUE(log->instanceLog().empty());
}

TEST_F(LogSmReactor, KnowsItsLogAndItsInstance) {
    const Ptr<LogSm> writer = logSmFactory(log, "boot");

    EXPECT_EQ(writer->log(), log);
    EXPECT_EQ(writer->instanceName(), "boot");
}

TEST(LogSmOfAnInstance, IsKeptForTheSameLogAndInstance) {
    World world;
    world.enable("boot");
    Stage::InstanceStatusSm* const instance = world.instance("boot");
    const Ptr<LogSm> before = instance->logSm();

    EXPECT_EQ(instance->logSmIs(world.logs(), "boot"), before);
    EXPECT_EQ(instance->logSm(), before);
}

TEST(LogSmOfAnInstance, IsReplacedForAnotherInstanceName) {
    World world;
    world.enable("boot");
    Stage::InstanceStatusSm* const instance = world.instance("boot");
    const Ptr<LogSm> before = instance->logSm();

    const Ptr<LogSm> after = instance->logSmIs(world.logs(), "spare");
    before->logIs("too late");
    after->logIs("line");

    EXPECT_NE(after, before);
    EXPECT_EQ(instance->logSm(), after);
    EXPECT_EQ(world.log("boot"), Lines({"app stages started"}));
    EXPECT_EQ(world.log("spare"), Lines({"line"}));
}

TEST(LogSmOfAnInstance, IsReplacedForAnotherLog) {
    World world;
    world.enable("boot");
    Stage::InstanceStatusSm* const instance = world.instance("boot");
    const Ptr<LogSm> before = instance->logSm();
    const Ptr<Stage::Log> other = make<Stage::Log>("other");

    const Ptr<LogSm> after = instance->logSmIs(other, "boot");
    after->logIs("line");

    EXPECT_NE(after, before);
    EXPECT_EQ(other->instanceLog("boot")->log(), (std::vector<LogEntry>{{0, "line"}}));
    EXPECT_EQ(world.log("boot"), Lines({"app stages started"}));
}

TEST(LogSmTrace, EveryLineIsTracedOnEntry) {
    World world;
    const Ptr<LogSm> writer = logSmFactory(world.logs(), "boot");
    world.trace();

    writer->logIs("line");

    ASSERT_EQ(world.traced().size(), 1u);
    EXPECT_EQ(world.traced()[0].level, 8);
    EXPECT_EQ(world.traced()[0].unit, "StageMgr");
    EXPECT_EQ(world.traced()[0].handler, "logIs");
    EXPECT_EQ(world.traced()[0].signature, "void Stage::LogSm::logIs(Orv::String)");
}

}  // namespace
