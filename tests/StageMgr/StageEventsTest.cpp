// What a started stage makes of its events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::IsEmpty;

// The time at which the stage became complete, or -1 while it is not.
double completionTime(const StageClass& world, const std::string& stage) {
    const Stage::StageSm* const running = world.stageSm("boot", stage);
    return running != nullptr && running->complete() ? running->completionTime() : -1;
}

TEST(StageEvents, AStageIsCompleteWhenItsLastPendingEventIs) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan", "early:disk"}));

    world.advance(1);
    world.agent("fan").report("early", "boot");
    EXPECT_EQ(completionTime(world, "early"), -1);
    world.advance(2);
    world.agent("disk").report("early", "boot");

    EXPECT_EQ(completionTime(world, "early"), 3);
    EXPECT_THAT(world.pendingEvents("boot", "early"), IsEmpty());
    world.settle();
    EXPECT_EQ(
        world.log("boot"),
        Lines({"app stages started", "stage early started", "  event early:fan started",
               "  event early:disk started", "  event early:fan completed",
               "  event early:disk completed", "stage early is complete", "app stages complete"}));
}

TEST(StageEvents, AStageWithoutEventsIsCompleteInsideItsOwnConstruction) {
    World world;
    world.agent("fan").event("early").withdraw("early");
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.log("boot"), Lines({"app stages started", "stage early started",
                                        "stage early is complete", "app stages complete"}));
    EXPECT_EQ(completionTime(world, "early"), 0);
    EXPECT_EQ(world.stageSm("boot", "early")->timeMin(), Orv::never);
}

TEST(StageEvents, AStageWithoutEventsNotesTheTimeAndAsksForTheNextStage) {
    World world;
    world.agent("fan").event("early").withdraw("early");
    world.advance(5);
    bool asked = false;
    world.when("/progress/boot/stage[early]",
               [&] { asked = world.instance("boot")->needRecalculateNextStage(); });
    world.enable("boot");

    world.settle();

    EXPECT_EQ(completionTime(world, "early"), 5);
    EXPECT_TRUE(asked);
    EXPECT_EQ(world.armedTimers(), 0u);
}

TEST(StageEvents, AnEventThatIsCompleteBeforehandLogsExactlyOneCompletedLine) {
    World world;
    world.agent("fan").event("early", {.completeIn = {"boot"}});
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan completed",
                     "stage early is complete", "app stages complete"}));
    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
}

TEST(StageEvents, AnEventThatIsCompleteWhenItJoinsIsRecordedAndLogsNothing) {
    World world;
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").appears({{"early", {.completeIn = {"boot"}}}});

    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
    EXPECT_EQ(world.log("boot").back(), "  event early:disk started");
}

TEST(StageEvents, CompletionInAnotherInstanceIsIgnored) {
    World world;
    world.agent("fan").event("early", {.completeIn = {"other"}});
    world.enable("boot");
    world.settle();

    world.agent("fan").registered("early")->completeIs("third", true);

    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_EQ(completionTime(world, "early"), -1);
}

TEST(StageEvents, AnEventThatJoinsARunningStageIsStartedAndWaitedFor) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    world.agent("disk").event("early");
    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
    EXPECT_EQ(completionTime(world, "early"), -1);
    EXPECT_EQ(world.log("boot").at(3), "  event early:disk started");
}

TEST(StageEvents, AnEventThatLeavesIsNoLongerWaitedFor) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early", {.autoComplete = 5});
    world.enable("boot");
    world.settle();
    ASSERT_NE(world.autoCompleteSm("boot", "early", "disk"), nullptr);
    world.agent("fan").report("early", "boot");

    world.agent("disk").withdraw("early");

    EXPECT_EQ(completionTime(world, "early"), 0);
    EXPECT_EQ(world.autoCompleteSm("boot", "early", "disk"), nullptr);
    EXPECT_EQ(world.log("boot").back(), "stage early is complete");
}

TEST(StageEvents, AnAgentThatLeavesTakesItsEventsAlong) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    world.agent("fan").leave();

    EXPECT_EQ(completionTime(world, "early"), 0);
    EXPECT_EQ(world.stageSm("boot", "early")->event("fan"), nullptr);
}

TEST(StageEvents, AWithdrawnCompletionStartsTheEventAgainAndReopensNothing) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    const auto event = world.agent("fan").registered("early");
    event->completeIs("boot", true);
    world.settle();
    ASSERT_TRUE(world.stageSm("boot", "early")->complete());

    event->completeIs("boot", false);
    world.settle();

    EXPECT_EQ(world.log("boot").back(), "  event early:fan started");
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_TRUE(world.stageSm("boot", "early")->complete());
    EXPECT_FALSE(world.instance("boot")->needRecalculateNextStage());
}

TEST(StageEvents, AnEventThatJoinsWhileARebootIsPendingIsNotStarted) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Lines before = world.log("boot");
    world.rebootIs();

    world.agent("disk").event("early", {.autoComplete = 1});

    EXPECT_EQ(world.log("boot"), before);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
    EXPECT_EQ(world.autoCompleteSm("boot", "early", "disk"), nullptr);
}

TEST(StageEvents, AReportWhileARebootIsPendingLeavesTheStageAsItIs) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Lines before = world.log("boot");
    world.rebootIs();

    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.log("boot"), before);
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
}

TEST(StageEvents, ARepeatedTrueLogsAgainAndChangesNothingElse) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("early");
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");

    world.agent("fan").report("early", "boot", false).report("early", "boot", true);

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started",
                     "  event early:disk started", "  event early:fan completed",
                     "  event early:fan completed"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
}

TEST(StageEvents, AStageCompletesWithoutTheEventThatJoinedWhileARebootWasPending) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.rebootIs();
    world.agent("disk").event("early");

    world.agent("fan").withdraw("early");

    EXPECT_EQ(completionTime(world, "early"), 0);
    EXPECT_EQ(world.log("boot").back(), "stage early is complete");
    EXPECT_NE(world.stageSm("boot", "early")->event("disk"), nullptr);
}

// --- completing
// -----------------------------------------------------------------------------------

TEST(StageCompletion, StopsTheTimerThenNotesTheTimeThenIsCompleteThenLogsThenAsks) {
    World world;
    world.agent("fan").event("early", {.timeout = 30});
    world.enable("boot");
    world.advance(5);
    const Stage::StageSm* const stage = world.stageSm("boot", "early");
    const auto situation = [&] {
        return std::string(stage->timeMin() == Orv::never ? "stopped " : "armed ") +
               (stage->completionTime() == 5 ? "noted " : "- ") +
               (stage->complete() ? "complete " : "- ") +
               (world.instance("boot")->needRecalculateNextStage() ? "asked" : "-");
    };
    class Listener final : public Stage::StageSm::NotifieeConst {
      public:
        std::function<void(const char*)> told;
        void onCompletionTime() override { told("completionTime: "); }
        void onComplete() override { told("complete: "); }
        void onTimedOut() override { told("timedOut: "); }
    } listener;
    listener.notifierIs(Orv::Ptr<const Stage::StageSm>(stage));
    Lines seen;
    listener.told = [&](const char* what) { seen.push_back(what + situation()); };
    world.when("<<   event early:fan completed", [&] { seen.push_back("line: " + situation()); });
    world.when("<< stage early is complete", [&] { seen.push_back("line: " + situation()); });

    world.agent("fan").report("early", "boot");
    seen.push_back("end: " + situation());

    EXPECT_EQ(seen, Lines({"line: armed - - -", "completionTime: stopped noted - -",
                           "complete: stopped noted complete -", "line: stopped noted complete -",
                           "end: stopped noted complete asked"}));
}

TEST(StageCompletion, ComesOnceHoweverOftenItsEventsBeginAndEndAgain) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.advance(5);
    class Listener final : public Stage::StageSm::NotifieeConst {
      public:
        int told = 0;
        void onCompletionTime() override { ++told; }
        void onComplete() override { ++told; }
    } listener;
    listener.notifierIs(Orv::Ptr<const Stage::StageSm>(world.stageSm("boot", "early")));
    const auto event = world.agent("fan").registered("early");

    for (const bool complete : {true, false, true, false, true}) {
        event->completeIs("boot", complete);
        world.advance(1);
    }

    EXPECT_EQ(listener.told, 2);
    EXPECT_EQ(completionTime(world, "early"), 5);
    // Only the first report found the record without it.
    EXPECT_EQ(world.log("boot"), Lines({"app stages started", "stage early started",
                                        "  event early:fan started", "  event early:fan completed",
                                        "stage early is complete", "app stages complete",
                                        "  event early:fan started", "  event early:fan started"}));
}

// --- the stage's events and the pending ones
// ------------------------------------------------------

// A stage that "disk" keeps incomplete, and in which "fan" auto-completes.
class Reconciling : public ::testing::Test {
  protected:
    Reconciling() {
        world.agent("disk").event("early");
        world.agent("fan").event("early", {.autoComplete = 60});
        world.enable("boot");
        world.settle();
    }
    Stage::StageSm& stage() const { return *world.stageSm("boot", "early"); }
    // Does something to the stage's events that its reactor is not told of, as of all that follows.
    template <class Act>
    void unseen(Act&& act) {
        stage().notificationActiveIs(false);
        act();
    }
    bool autoCompletes() const { return world.autoCompleteSm("boot", "early", "fan") != nullptr; }
    const Lines both{"early:disk", "early:fan"};
    const Lines disk{"early:disk"};

    World world;
};

TEST_F(Reconciling, AnEventThatIsNotInTheStageIsNeitherPendingNorAutoCompleted) {
    unseen([&] { world.stage("early")->eventDel("fan"); });
    ASSERT_EQ(world.pendingEvents("boot", "early"), both);

    stage().handleEventDel("fan");

    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
    EXPECT_FALSE(autoCompletes());
}

TEST_F(Reconciling, AnEventThatIsCompleteByItselfIsLeftAlone) {
    world.agent("fan").registered("early")->completeIs("boot", true);
    world.agentStatusLocal()->completeDel({"fan", "early", "boot"});
    const Lines log = world.log("boot");

    stage().handleEventDel("fan");

    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
    EXPECT_FALSE(autoCompletes());
    EXPECT_EQ(world.log("boot"), log);
}

TEST_F(Reconciling, AnEventThatIsCompleteByTheRecordIsLeftAlone) {
    world.agent("fan").report("early", "boot");

    stage().handleEventDel("fan");

    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
    EXPECT_FALSE(autoCompletes());
}

TEST_F(Reconciling, AnEventThatIsPendingIsLeftAlone) {
    stage().autoCompleteSmDel("fan");

    stage().handleEventDel("fan");

    EXPECT_EQ(world.pendingEvents("boot", "early"), both);
    EXPECT_FALSE(autoCompletes()) << "it is not made anew";
}

TEST_F(Reconciling, AnIncompleteEventThatIsNotPendingBecomesSoWithoutALine) {
    stage().pendingEventDel("early:fan");
    stage().autoCompleteSmDel("fan");
    const Lines log = world.log("boot");
    world.trace(9);

    stage().handleEventDel("fan");

    EXPECT_EQ(world.pendingEvents("boot", "early"), both);
    EXPECT_TRUE(autoCompletes());
    EXPECT_EQ(world.log("boot"), log);
    EXPECT_EQ(world.traced(9, "Incomplete event"),
              Lines({"Incomplete event being added to pending events early:fan"}));
}

TEST_F(Reconciling, AnIncompleteEventThatIsNotPendingStaysSoWhileARebootIs) {
    stage().pendingEventDel("early:fan");
    stage().autoCompleteSmDel("fan");
    world.rebootIs();

    stage().handleEventDel("fan");

    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
    EXPECT_FALSE(autoCompletes());
}

TEST_F(Reconciling, TheWholeCollectionLeavesWhatIsPendingAlone) {
    unseen([&] { world.stage("early")->eventDel("fan"); });

    stage().handleEvent();

    EXPECT_EQ(stage().event("fan"), nullptr);
    EXPECT_EQ(world.pendingEvents("boot", "early"), both);
    EXPECT_TRUE(autoCompletes());

    // One event by itself is reconciled.
    stage().handleEvent("fan");
    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
    EXPECT_FALSE(autoCompletes());
}

TEST_F(Reconciling, TheWholeCollectionTakesInWhatHasJoined) {
    unseen([&] { world.agent("net").event("early"); });
    ASSERT_EQ(stage().event("net"), nullptr);

    stage().handleEvent();

    EXPECT_EQ(stage().event("net"), world.event("early", "net"));
    EXPECT_EQ(world.log("boot").back(), "  event early:net started");
}

TEST_F(Reconciling, TheSameEventIsFollowedOnAndAnotherInstead) {
    const auto first = world.event("early", "fan");
    const Lines log = world.log("boot");
    stage().eventIs("fan", first);
    EXPECT_EQ(stage().event("fan"), first);
    EXPECT_EQ(world.log("boot"), log);

    const auto other = Orv::make<Stage::EventConfig>("early", "fan");
    other->nameIs("other");
    stage().eventIs("fan", other);
    EXPECT_EQ(stage().event("fan"), other);
    EXPECT_EQ(world.log("boot").back(), "  event other started");
    first->completeIs("boot", true);
    EXPECT_EQ(world.log("boot").back(), "  event other started") << "nobody follows it any more";
    other->completeIs("boot", true);
    EXPECT_EQ(world.log("boot").back(), "  event other completed");
}

TEST_F(Reconciling, APendingEventIsToldOfOnceAndReplacedByAnotherOfItsName) {
    const auto first = world.event("early", "fan");
    world.trace(8);
    const auto looks = [&] { return world.traced(8, " pendingEvents, instanceName boot").size(); };

    stage().pendingEventIs(first);
    EXPECT_EQ(looks(), 0u) << "it is pending already";
    stage().pendingEventIs(Orv::make<Stage::EventConfig>("early", "fan"));
    EXPECT_EQ(looks(), 1u);
    stage().pendingEventDel("absent");
    EXPECT_EQ(looks(), 1u);
    stage().pendingEventDel("early:fan");
    EXPECT_EQ(looks(), 2u);
    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);
}

// An event counts as complete by itself or by the class's record; absent and false are the same.
TEST_F(Reconciling, EitherCompletesAnEvent) {
    enum class Member { absent, no, yes };
    using enum Member;
    struct Row {
        Member byItself;
        Member byTheRecord;
        bool complete;
        bool withoutARecord;
    };
    const Row rows[] = {
        {absent, absent, false, false}, {absent, no, false, false}, {absent, yes, true, false},
        {no, absent, false, false},     {no, no, false, false},     {no, yes, true, false},
        {yes, absent, true, true},      {yes, no, true, true},      {yes, yes, true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(static_cast<int>(row.byItself)) + " " +
                     std::to_string(static_cast<int>(row.byTheRecord)));
        const auto event = Orv::make<Stage::EventConfig>("early", "net");
        if (row.byItself != absent) event->completeIs("boot", row.byItself == yes);
        event->completeIs("other", row.byItself != yes);
        const auto record = Orv::make<Stage::AgentStatusLocal>();
        if (row.byTheRecord != absent)
            record->completeIs({"net", "early", "boot"}, row.byTheRecord == yes);
        record->completeIs({"net", "early", "other"}, row.byTheRecord != yes);
        world.forgetTraced();
        world.trace(9);

        stage().agentStatusLocalIs(record);
        EXPECT_EQ(stage().eventComplete(*event), row.complete);
        EXPECT_EQ(world.traced(9, "eventComplete"),
                  Lines({std::string("eventComplete resultFromEventConfig: ") +
                         (row.byItself == yes ? "1" : "0") +
                         " resultFromAgentStatusLocal: " + (row.byTheRecord == yes ? "1" : "0")}));

        stage().agentStatusLocalIs(nullptr);
        EXPECT_EQ(stage().eventComplete(*event), row.withoutARecord);
    }
}

TEST_F(Reconciling, AnotherRecordIsReadAtOnce) {
    const auto record = Orv::make<Stage::AgentStatusLocal>();
    record->completeIs({"fan", "early", "boot"}, true);

    stage().agentStatusLocalIs(record);
    EXPECT_EQ(world.log("boot").back(), "  event early:fan completed");
    EXPECT_EQ(world.pendingEvents("boot", "early"), disk);

    record->completeIs({"disk", "early", "boot"}, true);
    EXPECT_TRUE(stage().complete());
}

TEST_F(Reconciling, TheSameRecordIsNotReadAgain) {
    world.agent("fan").report("early", "boot");
    const Lines log = world.log("boot");

    stage().agentStatusLocalIs(world.agentStatusLocal());

    EXPECT_EQ(world.log("boot"), log);
}

TEST_F(Reconciling, WithoutARecordNothingIsReadAndEventsGoByThemselves) {
    stage().agentStatusLocalIs(nullptr);
    world.trace(8);

    stage().handleCompleteLocal();
    EXPECT_EQ(world.traced(8, "NULL"), Lines({" agentStatusLocal is NULL"}));

    world.forgetTraced();
    stage().handleCompleteLocal({"fan", "early", "boot"});
    EXPECT_EQ(world.traced(0), Lines({"Can't un-complete a Stage event. Ignoring..."}));
    world.agent("fan").registered("early")->completeIs("boot", true);
    EXPECT_EQ(world.pendingEvents("boot", "early"), both);
}

TEST(StageStart, WhatComesBeforeItIsReadyIsLeftForWhenItIs) {
    // One event is pending and one is complete already when the stage is made.
    World world;
    world.agent("fan").event("early", {.completeIn = {"boot"}});
    world.agent("disk").event("early");
    world.enable("boot");
    world.trace(8);

    world.settle();

    Lines left;
    for (const TraceLine& line : world.traced())
        if (line.signature.find("Stage::StageSm::") != std::string::npos &&
            line.text.find("Return from ") != std::string::npos)
            left.push_back(line.handler);
    EXPECT_EQ(left, Lines({"handleCompleteLocal", "handlePendingEvent"}));
    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:disk started",
                     "  event early:fan completed"}));
}

TEST(StageEvents, NullIsNoPendingEvent) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    try {
        world.stageSm("boot", "early")->pendingEventIs(nullptr);
        FAIL() << "nothing was raised";
    } catch (const Orv::NullParameterError& e) {
        EXPECT_STREQ(e.what(),
                     "null _pendingEvent parameter to mutator for "
                     "Stage::StageSm::pendingEvent not allowed\"");
    }
}

}  // namespace
