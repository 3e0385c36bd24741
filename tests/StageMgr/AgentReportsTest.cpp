// How agents' reports and requests reach the stages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::Contains;
using ::testing::IsEmpty;

bool recorded(const StageClass& world, const Stage::AgentStatusKey& key) {
    return world.agentStatusLocal()->complete().contains(key);
}

TEST(AgentReports, AReportIsRecordedWhenTheAgentIsRegisteredForTheStage) {
    World world;
    world.agent("fan").event("early");

    world.agent("fan").report("early", "boot");

    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
}

TEST(AgentReports, AReportForAStageWithoutRegistrationIsDropped) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("late");

    world.agent("fan").report("late", "boot");
    world.agent("stranger").report("early", "boot");

    EXPECT_FALSE(recorded(world, {"fan", "late", "boot"}));
    EXPECT_FALSE(recorded(world, {"stranger", "early", "boot"}));
}

TEST(AgentReports, TheAgentsOwnRegistrationCountsWhateverAgentTheKeyNames) {
    World world;
    world.agent("fan").event("early");

    world.agent("fan").report("early", "boot");
    world.agent("fan").status()->completeIs({"disk", "early", "boot"}, true);

    EXPECT_TRUE(world.agentStatusLocal()->complete({"disk", "early", "boot"}));
}

TEST(AgentReports, AFalseReportIsRecordedAsFalse) {
    World world;
    world.agent("fan").event("early");

    world.agent("fan").report("early", "boot", false);

    EXPECT_TRUE(recorded(world, {"fan", "early", "boot"}));
    EXPECT_FALSE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
}

TEST(AgentReports, AWithdrawnReportIsTakenFromTheRecord) {
    World world;
    world.agent("fan").event("early").report("early", "boot");

    world.agent("fan").withdrawReport("early", "boot");

    EXPECT_FALSE(recorded(world, {"fan", "early", "boot"}));
}

TEST(AgentReports, WhatIsCompleteIsNeverUncompleted) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");
    world.settle();
    world.trace(0);

    world.agent("fan").report("early", "boot", false);
    world.agent("fan").withdrawReport("early", "boot");

    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.traced(0), Lines({"Can't un-complete a Stage event. Ignoring...",
                                      "Can't un-complete a Stage event. Ignoring..."}));
}

TEST(AgentReports, AReportForAnotherInstanceWaitsForIt) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.trace(8);

    world.agent("fan").report("early", "other");
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_THAT(world.traced(8, "are different"),
                Contains(" StageSm stage: early Event stage: early are different. Returning..."));
    world.enable("other");
    world.settle();

    EXPECT_EQ(world.log("other"), Lines({"app stages started", "stage early started",
                                         "  event early:fan started", "  event early:fan completed",
                                         "stage early is complete", "app stages complete"}));
}

TEST(AgentReports, AReportBeforeTheRegistrationIsNotRecorded) {
    World world;
    world.agent("fan").report("early", "boot");
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
}

TEST(AgentReports, AReportThatWasRecordedDoesNotCompleteAnEventThatJoinsLater) {
    World world;
    world.agent("disk").event("early");
    world.agent("fan").event("early").report("early", "boot");
    world.agent("fan").withdraw("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").event("early");

    EXPECT_EQ(world.log("boot").back(), "  event early:fan started");
    EXPECT_THAT(world.pendingEvents("boot", "early"), Contains("early:fan"));
}

// An event that is recorded as complete, and joins its running stage only then: it is started.
class RecordedBeforeItJoined : public ::testing::Test {
  protected:
    RecordedBeforeItJoined() {
        world.agent("disk").event("early", {.timeout = 30});
        world.agent("fan").event("early").report("early", "boot");
        world.agent("fan").withdraw("early");
        world.enable("boot");
        world.settle();
    }
    void joins(const EventOptions& options = {}) {
        world.agent("fan").appears({{"early", options}});
        EXPECT_EQ(world.log("boot").back(), "  event early:fan started");
        EXPECT_EQ(world.pendingEvents("boot", "early"), both);
        before = world.log("boot").size();
    }
    Lines since() const {
        const Lines all = world.log("boot");
        return Lines(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
    }
    const Lines both{"early:disk", "early:fan"};
    const Lines disk{"early:disk"};

    World world;
    std::size_t before = 0;
};

TEST_F(RecordedBeforeItJoined, IsNotMadePendingByTheStageItself) {
    world.agent("fan").leave();
    world.trace(9);

    joins();

    EXPECT_EQ(world.traced(9, "being added to pending"), Lines());
    EXPECT_THAT(world.traced(9, "eventComplete"),
                Contains("eventComplete resultFromEventConfig: 0 resultFromAgentStatusLocal: 1"));
}

TEST_F(RecordedBeforeItJoined, IsRetiredByTheNextReport) {
    world.agent("fan").leave();
    joins();

    world.agent("fan").report("early", "boot", false);
    EXPECT_EQ(since(), Lines());
    world.agent("fan").report("early", "boot");

    EXPECT_EQ(since(), Lines({"  event early:fan completed"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
}

TEST_F(RecordedBeforeItJoined, IsRetiredByReadingTheRecordAgain) {
    world.agent("fan").leave();
    joins();

    world.stageSm("boot", "early")->handleCompleteLocal();

    EXPECT_EQ(since(), Lines({"  event early:fan completed"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
}

TEST_F(RecordedBeforeItJoined, IsNotRetiredByAnAutoCompletionWhichFindsTheRecordAsItIs) {
    world.agent("fan").leave();
    joins({.autoComplete = 5});

    world.advance(5);

    EXPECT_EQ(since(), Lines({"  event early:fan autocompleted"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), both);
}

TEST_F(RecordedBeforeItJoined, IsPassedOverWithItsStageWhenThatTimesOut) {
    world.agent("fan").leave();
    joins();

    world.advance(30);

    EXPECT_EQ(since(),
              Lines({"stage early is complete (timeout)",
                     "stage early timed out but will continue on", "app stages complete"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), both);
}

TEST(AgentReports, AReportThatIsClearedAfterTheStageCompletedIsRecordedSoAndChangesNothing) {
    World world;
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");
    world.settle();
    const Lines log = world.log("boot");

    world.agent("fan").report("early", "boot", false);
    world.settle();

    EXPECT_TRUE(recorded(world, {"fan", "early", "boot"}));
    EXPECT_FALSE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
    EXPECT_EQ(world.log("boot"), log);
}

TEST(AgentReports, AReportFromNobodyRegisteredIsTraced) {
    World world;
    world.agent("stranger").report("other", "boot");
    world.trace(9);

    world.agent("stranger").report("early", "boot");

    EXPECT_EQ(world.traced(9), Lines({" Could not find AgentConfig for stranger"}));
    EXPECT_EQ(world.traced(8, " AgentStatus agent: "),
              Lines({" AgentStatus agent: stranger AgentStatusKey agent: stranger, stage: early, "
                     "instance: boot is 1"}));
}

TEST(AgentReports, AReportOfAnEventThatIsNotInTheStageStaysForLater) {
    // The agent is registered for the stage, and its event was taken out of it by somebody else.
    World world;
    world.agent("disk").event("early");
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.stage("early")->eventDel("fan");
    world.trace(0);

    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.traced(0), Lines({" Could not find EventConfig for fan in stage early"}));
    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
}

// --- an agent's status reactor
// --------------------------------------------------------------------

class StatusReactor : public ::testing::Test {
  protected:
    StatusReactor() { world.agent("fan").event("early").report("other", "boot"); }
    Stage::AgentStatusSm& reactor() const { return *world.configSm()->agentStatusSm().find("fan"); }

    World world;
};

TEST_F(StatusReactor, LooksAtRequestsFirstAndThenAtReports) {
    // The report counts, since the request has registered the agent by then.
    world.agent("disk").request("late").report("late", "boot");
    world.agent("disk").withdrawRequest("late").withdrawReport("late", "boot");
    ASSERT_EQ(world.agent("disk").registered("late"), nullptr);
    const auto status = Orv::make<Stage::AgentStatus>("net");
    status->completeIs({"net", "late", "boot"}, true);
    status->stageRequestIs("late", {"net", "late", 5});

    world.agentStatusDir()->entryIs(status);

    EXPECT_EQ(world.agent("net").registered("late")->timeout(), 5);
    EXPECT_TRUE(world.agentStatusLocal()->complete({"net", "late", "boot"}));
}

TEST_F(StatusReactor, LooksAtAnotherStatusAtOnce) {
    const auto other = Orv::make<Stage::AgentStatus>("fan");
    other->stageRequestIs("late", {"fan", "late", 5});
    other->completeIs({"fan", "early", "boot"}, true);

    reactor().agentStatusIs(other);

    EXPECT_NE(world.agent("fan").registered("late"), nullptr);
    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    other->completeIs({"fan", "late", "boot"}, true);
    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "late", "boot"}));
    world.agent("fan").report("early", "spare");
    EXPECT_FALSE(recorded(world, {"fan", "early", "spare"})) << "the old one is not watched";
}

TEST_F(StatusReactor, WithoutAStatusReadsEverythingAsWithdrawn) {
    world.agent("fan").report("early", "boot");
    reactor().agentStatusIs(nullptr);

    reactor().handleComplete({"fan", "early", "boot"});

    EXPECT_FALSE(recorded(world, {"fan", "early", "boot"}));
    EXPECT_EQ(reactor().agentName(), "");
}

TEST_F(StatusReactor, WithoutAStatusHasNothingToReadAll) {
    reactor().agentStatusIs(nullptr);

    EXPECT_DEATH(reactor().handleStageRequest(), "agentStatus\\(\\)");
    EXPECT_DEATH(reactor().handleComplete(), "agentStatus\\(\\)");
}

TEST_F(StatusReactor, IsNotMadeToLookAtTheSameStatusAgain) {
    world.agent("fan").report("late", "boot");
    world.agent("fan").event("late");

    reactor().agentStatusIs(reactor().agentStatus());

    EXPECT_FALSE(recorded(world, {"fan", "late", "boot"})) << "the report came too early to count";
}

TEST_F(StatusReactor, ThatGoesWhileItRegistersTheAgentWritesNothingMore) {
    world.agent("net").report("other", "boot");
    world.when("+ /input/app/net", [&] { world.configSm()->agentStatusSmDel("net"); });

    world.agent("net").request("late", 5);

    ASSERT_NE(world.agent("net").config(), nullptr);
    EXPECT_FALSE(world.agent("net").config()->createdOnStageRequest());
    EXPECT_THAT(world.agent("net").config()->event(), IsEmpty());
}

TEST_F(StatusReactor, ThatGoesWhileItMarksARegistrationAddsNoEvent) {
    world.agent("net").report("other", "boot");
    world.when("net/createdOnStageRequest", [&] { world.configSm()->agentStatusSmDel("net"); });

    world.agent("net").request("late", 5);

    ASSERT_NE(world.agent("net").config(), nullptr);
    EXPECT_TRUE(world.agent("net").config()->createdOnStageRequest());
    EXPECT_THAT(world.agent("net").config()->event(), IsEmpty());
}

TEST_F(StatusReactor, ThatGoesWhileItAddsAnEventLeavesItsLimitAndLooksNoFurther) {
    const Orv::Ptr<Stage::AgentStatusSm> held(&reactor());
    const auto other = Orv::make<Stage::AgentStatus>("fan");
    other->stageRequestIs("late", {"fan", "late", 5});
    other->stageRequestIs("last", {"fan", "last", 5});
    other->completeIs({"fan", "early", "boot"}, true);
    world.when("fan/event[late] +", [&] { world.configSm()->agentStatusSmDel("fan"); });

    held->agentStatusIs(other);

    ASSERT_NE(world.agent("fan").registered("late"), nullptr);
    EXPECT_NE(world.agent("fan").registered("late")->timeout(), 5);
    EXPECT_EQ(world.agent("fan").registered("last"), nullptr);
    EXPECT_FALSE(recorded(world, {"fan", "early", "boot"}));
}

TEST_F(StatusReactor, ThatGoesWhileItRecordsAReportRecordsNoOther) {
    struct OnRecord final : Stage::AgentStatusLocal::NotifieeConst {
        explicit OnRecord(World& w) : world(w) { notifierIs(w.agentStatusLocal()); }
        void onComplete(Stage::AgentStatusKey) override {
            world.configSm()->agentStatusSmDel("fan");
        }
        World& world;
    };
    const Orv::Ptr<Stage::AgentStatusSm> held(&reactor());
    const auto other = Orv::make<Stage::AgentStatus>("fan");
    other->completeIs({"fan", "early", "boot"}, true);
    other->completeIs({"fan", "early", "spare"}, true);
    const OnRecord onRecord(world);

    held->agentStatusIs(other);

    EXPECT_TRUE(recorded(world, {"fan", "early", "boot"}));
    EXPECT_FALSE(recorded(world, {"fan", "early", "spare"}));
}

TEST(StageRequest, RegistersTheAgentAndJoinsTheRunningStage) {
    World world;
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").request("early", 500);

    ASSERT_NE(world.agent("fan").config(), nullptr);
    EXPECT_TRUE(world.agent("fan").config()->createdOnStageRequest());
    EXPECT_EQ(world.agent("fan").registered("early")->timeout(), 500);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk", "early:fan"}));
}

TEST(StageRequest, RepeatedWithANewLimitChangesTheLimitOnly) {
    World world;
    world.agent("fan").request("early", 500);
    const auto event = world.agent("fan").registered("early");

    world.agent("fan").request("early", 600);

    EXPECT_EQ(world.agent("fan").registered("early"), event);
    EXPECT_EQ(event->timeout(), 600);
}

TEST(StageRequest, RepeatedWithANewLimitWritesNothingElse) {
    World world;
    world.agent("fan").request("early", 500);
    world.observe();

    world.agent("fan").request("early", 600);

    EXPECT_EQ(world.observed(), Lines({"/agentstatus/app/fan/stageRequest[early] = fan:early:600",
                                       "/input/app/fan/event/early/timeout = 600",
                                       "/stage/app/status/stage/early/timeout = 600"}));
}

TEST(StageRequest, WritesTheRegistrationThenItsMarkThenTheEventThenItsLimit) {
    World world;
    world.observe();

    world.agent("fan").request("early", 500);

    EXPECT_EQ(world.observed("/input/"),
              Lines({"+ /input/app/fan", "/input/app/fan/createdOnStageRequest = true",
                     "/input/app/fan/event[early] +",
                     "/stage/app/status/stage/early/event[fan] = /input/app/fan/event/early",
                     "/input/app/fan/event/early/timeout = 500"}));
    EXPECT_EQ(world.agent("fan").registered("early")->name(), "early:fan");
}

TEST(StageRequest, GoesByTheStageItNamesAndItsWithdrawalByItsKey) {
    World world;
    world.agent("fan").event("kept");
    world.agent("fan").report("other", "boot");
    world.agent("fan").status()->stageRequestIs("kept", {"fan", "early", 5});
    EXPECT_NE(world.agent("fan").registered("early"), nullptr);

    world.agent("fan").withdrawRequest("kept");

    EXPECT_NE(world.agent("fan").registered("early"), nullptr) << "it stood under another key";
    EXPECT_EQ(world.agent("fan").registered("kept"), nullptr);
}

TEST(StageRequest, WithdrawnWithoutARegistrationIsTracedOnly) {
    World world;
    world.agent("fan").request("early");
    world.agent("fan").leave();
    world.observe();
    world.trace(9);

    world.agent("fan").withdrawRequest("early");

    EXPECT_EQ(world.observed(), Lines({"/agentstatus/app/fan/stageRequest[early] -"}));
    EXPECT_EQ(world.traced(9), Lines({" AgentStatus StageRequest deleted for agent fan stage early",
                                      " Could not find AgentConfig for fan"}));
}

TEST(StageRequest, IsTraced) {
    World world;
    world.trace(9);

    world.agent("fan").request("early", 90.5);

    EXPECT_EQ(world.traced(9, "AgentStatus StageRequest"),
              Lines({" AgentStatus StageRequest added for agent: fan stage: early timeout: 90.5"}));
    EXPECT_EQ(world.traced(9, "Could not find"), Lines({" Could not find AgentConfig for fan",
                                                        " Could not find EventConfig for early"}));
    world.forgetTraced();

    world.agent("fan").request("early", 60);
    EXPECT_EQ(world.traced(9, "AgentConfig"), Lines({" AgentConfig exists for agent fan"}));
}

TEST(StageRequest, WithdrawnTakesTheEventAndLeavesTheRegistration) {
    World world;
    world.agent("fan").request("early");

    world.agent("fan").withdrawRequest("early");

    ASSERT_NE(world.agent("fan").config(), nullptr);
    EXPECT_EQ(world.agent("fan").registered("early"), nullptr);
    EXPECT_THAT(world.stage("early")->event(), IsEmpty());
}

TEST(StageRequest, AnEmptyOneCountsAsWithdrawn) {
    World world;
    world.agent("fan").request("early");

    world.agent("fan").status()->stageRequestIs("early", {});

    EXPECT_EQ(world.agent("fan").registered("early"), nullptr);
}

TEST(StageRequest, GoesWithTheAgentsStatus) {
    World world;
    world.agent("fan").request("early");

    world.agent("fan").fallSilent();

    EXPECT_EQ(world.agent("fan").config(), nullptr);
    EXPECT_THAT(world.stage("early")->event(), IsEmpty());
}

TEST(StageRequest, ThatIsWithdrawnLeavesARegistrationThatGoesWithTheAgentsStatus) {
    World world;
    world.agent("fan").request("early");
    world.agent("fan").withdrawRequest("early");
    ASSERT_NE(world.agent("fan").config(), nullptr);
    world.observe();

    world.agent("fan").fallSilent();

    EXPECT_EQ(world.observed(), Lines({"- /agentstatus/app/fan", "- /input/app/fan"}));
    EXPECT_EQ(world.configSm()->agentConfig("fan"), nullptr);
}

TEST(StageRequest, LeavesARegistrationThatItDidNotMake) {
    World world;
    world.agent("fan").event("late");
    world.agent("fan").request("early");

    world.agent("fan").fallSilent();

    ASSERT_NE(world.agent("fan").config(), nullptr);
    EXPECT_FALSE(world.agent("fan").config()->createdOnStageRequest());
    EXPECT_NE(world.agent("fan").registered("late"), nullptr);
}

TEST(StageRequestDeath, ARegistrationThatCannotBeMadeIsOurOwnMistake) {
    // Something else stands under the agent's name.
    World world;
    world.inputDir()->entryIs("fan", "Stage::AgentStatus");

    EXPECT_DEATH(world.agent("fan").request("early"), "Assertion failed: ac\n");
}

TEST(StageRequestDeath, OneForAnotherAgentIsOurOwnMistake) {
    World world;
    world.agent("fan").event("early").report("early", "boot");

    EXPECT_DEATH(world.agent("fan").status()->stageRequestIs("early", {"disk", "early", 1}),
                 "agentName\\(\\) == agent");
}

}  // namespace
