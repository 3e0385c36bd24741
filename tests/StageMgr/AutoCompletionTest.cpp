// Events that the manager completes on their agents' behalf.
#include <gtest/gtest.h>

#include <cmath>

#include "StageMgr/AutoCompleteSm.h"
#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/StageSm.h"
#include "runtime/Error.h"
#include "tests/support/World.h"

namespace {

using Orv::make;
using Orv::never;
using Orv::Ptr;
using Stage::AutoCompleteSm;
using StageTest::Lines;
using StageTest::World;

class AutoCompletion : public testing::Test {
  protected:
    // What the instance's log got since this was asked for the last time.
    Lines lines() {
        const Lines all = world.timedLog("boot");
        const Lines since(all.begin() + static_cast<std::ptrdiff_t>(seen_), all.end());
        seen_ = all.size();
        return since;
    }
    // A stage that starts now.
    void starts(const StageTest::EventOptions& options) {
        world.agent("fan").event("early", options);
        world.enable("boot");
        world.settle();
        lines();
    }
    AutoCompleteSm* timer() const { return world.autoCompleteSm("boot", "early", "fan"); }

    World world;

  private:
    std::size_t seen_ = 0;
};

TEST_F(AutoCompletion, LogsThatAndThenThatItIsComplete) {
    starts({.autoComplete = 20});

    world.advance(20);

    EXPECT_EQ(lines(),
              Lines({"20   event early:fan autocompleted", "20   event early:fan completed",
                     "20 stage early is complete", "20 app stages complete"}));
}

TEST_F(AutoCompletion, ComesAtItsDelayAndNotBefore) {
    starts({.autoComplete = 20});

    world.advance(19.999);
    EXPECT_EQ(lines(), Lines());

    world.advance(0.001);
    EXPECT_EQ(lines().size(), 4u);
}

TEST_F(AutoCompletion, CountsFromTheStartOfTheEvent) {
    world.advance(100);
    starts({.autoComplete = 20});
    EXPECT_EQ(timer()->timeMin(), 120);
}

TEST_F(AutoCompletion, IsWrittenIntoTheClassesRecord) {
    starts({.autoComplete = 20});

    world.advance(20);

    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_FALSE(world.event("early", "fan")->complete("boot"))
        << "the event itself is not touched";
}

TEST_F(AutoCompletion, HasToBeEnabled) {
    world.agent("fan").event("early");
    world.agent("fan").registered("early")->autoCompleteTimeoutIs(20);
    world.enable("boot");

    world.advance(100);

    EXPECT_EQ(timer(), nullptr);
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST_F(AutoCompletion, OfZeroComesAtTheFirstOpportunity) {
    starts({.autoComplete = 0});

    EXPECT_EQ(world.timedLog("boot"),
              Lines({"0 app stages started", "0 stage early started", "0   event early:fan started",
                     "0   event early:fan autocompleted", "0   event early:fan completed",
                     "0 stage early is complete", "0 app stages complete"}));
}

TEST_F(AutoCompletion, IsArmedForItsDelay) {
    struct Row {
        double delay;
        double due;
    };
    const Row rows[] = {{0, 7},
                        {20, 27},
                        {0.5, 7.5},
                        {-5, 2},
                        {HUGE_VAL, never},
                        {-HUGE_VAL, -HUGE_VAL},
                        {std::nan(""), never}};
    for (const Row& row : rows) {
        World other;
        other.advance(7);
        const Ptr<Stage::EventConfig> event = make<Stage::EventConfig>("early", "fan");
        event->autoCompleteTimeoutIs(row.delay);

        const Ptr<AutoCompleteSm> timer =
            make<AutoCompleteSm>(event, nullptr, "boot", make<Stage::AgentStatusLocal>());

        EXPECT_EQ(timer->timeMin(), row.due) << row.delay;
        EXPECT_TRUE(timer->initialized());
    }
}

TEST_F(AutoCompletion, ThatIsOverAlreadyComesAtOnce) {
    starts({.autoComplete = -5});

    EXPECT_TRUE(world.instanceComplete("boot"));
}

TEST_F(AutoCompletion, IsArmedOnce) {
    starts({.autoComplete = 20});

    world.agent("fan").registered("early")->autoCompleteTimeoutIs(5);
    world.advance(19.999);
    EXPECT_EQ(lines(), Lines());

    world.advance(0.001);
    EXPECT_TRUE(world.instanceComplete("boot"));
}

TEST_F(AutoCompletion, IsNotArmedByEnablingItLater) {
    starts({});

    world.agent("fan").registered("early")->autoCompleteTimeoutIs(5);
    world.agent("fan").registered("early")->enableAutoCompleteIs(true);
    world.advance(100);

    EXPECT_EQ(timer(), nullptr);
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST_F(AutoCompletion, IsNotTakenBackByDisablingItLater) {
    starts({.autoComplete = 20});

    world.agent("fan").registered("early")->enableAutoCompleteIs(false);
    world.advance(20);

    EXPECT_TRUE(world.instanceComplete("boot"));
}

// --- its end ------------------------------------------------------------------------------------

TEST_F(AutoCompletion, GoesWithTheAgentsReport) {
    starts({.autoComplete = 20});
    ASSERT_NE(timer(), nullptr);

    world.agent("fan").report("early", "boot");
    EXPECT_EQ(timer(), nullptr);
    world.advance(100);

    EXPECT_EQ(lines(), Lines({"0   event early:fan completed", "0 stage early is complete",
                              "0 app stages complete"}));
}

TEST_F(AutoCompletion, GoesWithTheEventsOwnCompletion) {
    starts({.autoComplete = 20});

    world.agent("fan").registered("early")->completeIs("boot", true);
    EXPECT_EQ(timer(), nullptr);
    world.advance(100);

    EXPECT_EQ(lines(), Lines({"0   event early:fan completed", "0 stage early is complete",
                              "0 app stages complete"}));
}

TEST_F(AutoCompletion, GoesWithItself) {
    starts({.autoComplete = 20});
    const Ptr<AutoCompleteSm> held(timer());

    world.advance(20);

    EXPECT_EQ(timer(), nullptr);
    EXPECT_TRUE(held->retired());
    EXPECT_EQ(world.armedTimers(), 0u);
}

TEST_F(AutoCompletion, DestroysItselfInItsOwnCallbackUnharmed) {
    // Nobody but the stage holds it.
    starts({.autoComplete = 20});

    world.advance(20);

    EXPECT_EQ(world.errors(), Lines());
    EXPECT_TRUE(world.instanceComplete("boot"));
}

TEST_F(AutoCompletion, GoesWithTheEvent) {
    starts({.autoComplete = 20});
    world.agent("disk").event("early");
    lines();
    const Ptr<AutoCompleteSm> held(timer());

    world.agent("fan").withdraw("early");
    EXPECT_EQ(timer(), nullptr);
    EXPECT_EQ(held->timeMin(), never);
    world.advance(100);

    EXPECT_EQ(lines(), Lines());
}

TEST_F(AutoCompletion, GoesWithTheInstance) {
    starts({.autoComplete = 20});

    world.disable("boot");
    world.advance(100);

    EXPECT_EQ(world.armedTimers(), 0u);
    EXPECT_EQ(world.instanceLog("boot"), nullptr);
    EXPECT_FALSE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
}

// --- together with other things -----------------------------------------------------------------

TEST_F(AutoCompletion, IsOfOneEventOnly) {
    world.agent("disk").event("early");
    starts({.autoComplete = 20});

    world.advance(20);

    EXPECT_EQ(lines(),
              Lines({"20   event early:fan autocompleted", "20   event early:fan completed"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:disk"}));
}

TEST_F(AutoCompletion, IsOfOneInstanceOnly) {
    starts({.autoComplete = 20});
    world.advance(10);
    world.enable("spare");

    world.advance(10);
    EXPECT_TRUE(world.instanceComplete("boot"));
    EXPECT_FALSE(world.instanceComplete("spare"));

    world.advance(10);
    EXPECT_TRUE(world.instanceComplete("spare"));
}

TEST_F(AutoCompletion, ComesBeforeTheStagesLimitOfTheSameMoment) {
    starts({.timeout = 20, .critical = true, .autoComplete = 20});

    world.advance(20);

    EXPECT_EQ(lines(),
              Lines({"20   event early:fan autocompleted", "20   event early:fan completed",
                     "20 stage early is complete", "20 app stages complete"}));
    EXPECT_EQ(world.messages(), Lines());
}

TEST_F(AutoCompletion, EndsASuspensionOfItsStage) {
    starts({.timeout = 10, .critical = true, .autoComplete = 20});

    world.advance(20);

    EXPECT_EQ(lines(),
              Lines({"10 stage early is complete (timeout)", "20   event early:fan autocompleted",
                     "20   event early:fan completed", "20 stage early is complete",
                     "20 app stages complete"}));
    EXPECT_EQ(world.identifiers(),
              Lines({"STAGEMGR_STAGE_SLOW", "STAGEMGR_STAGE_COMPLETE_AFTER_TIMEOUT"}));
}

TEST_F(AutoCompletion, OfAStageThatWasPassedOverLeavesItsLines) {
    starts({.timeout = 10, .autoComplete = 20});

    world.advance(20);

    EXPECT_EQ(lines(),
              Lines({"10 stage early is complete (timeout)",
                     "10 stage early timed out but will continue on", "10 app stages complete",
                     "20   event early:fan autocompleted", "20   event early:fan completed"}));
}

TEST_F(AutoCompletion, ThatIsInTimeForAnEventThatJoins) {
    world.agent("disk").event("early");
    world.enable("boot");
    world.advance(5);
    lines();

    world.agent("fan").appears({{"early", {.autoComplete = 20}}});
    EXPECT_EQ(timer()->timeMin(), 25);
    world.advance(20);

    EXPECT_EQ(lines(), Lines({"5   event early:fan started", "25   event early:fan autocompleted",
                              "25   event early:fan completed"}));
}

TEST_F(AutoCompletion, BeginsAnewWithAnEventThatBeginsAnew) {
    starts({.autoComplete = 20});
    world.advance(5);
    world.agent("fan").registered("early")->completeIs("boot", true);
    world.advance(5);
    lines();

    world.agent("fan").registered("early")->completeIs("boot", false);
    EXPECT_EQ(lines(), Lines({"10   event early:fan started"}));
    EXPECT_EQ(timer()->timeMin(), 30);
}

TEST_F(AutoCompletion, GoesOnWhenAnEventThatIsPendingBeginsAgain) {
    starts({.autoComplete = 20});
    const Ptr<AutoCompleteSm> held(timer());
    world.advance(5);

    // From absent to false: the event is told to begin once more.
    world.agent("fan").registered("early")->completeIs("boot", false);

    EXPECT_EQ(lines(), Lines({"5   event early:fan started"}));
    EXPECT_EQ(timer(), held.get());
    EXPECT_EQ(timer()->timeMin(), 20);
}

TEST_F(AutoCompletion, WritesItsLineAloneWhileARebootIsPending) {
    starts({.autoComplete = 20});
    world.rebootIs();

    world.advance(20);

    EXPECT_EQ(lines(), Lines({"20   event early:fan autocompleted"}));
    EXPECT_TRUE(world.agentStatusLocal()->complete({"fan", "early", "boot"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
}

TEST_F(AutoCompletion, ChangesNothingWhenTheAgentHasReportedMeanwhile) {
    // The stage did not take the report: a reboot was pending then.
    starts({.autoComplete = 20});
    world.rebootIs();
    world.agent("fan").report("early", "boot");
    world.rebootIs(Stage::FatalError::ResetMode::none);
    lines();

    world.advance(20);

    EXPECT_EQ(lines(), Lines({"20   event early:fan autocompleted"}));
    EXPECT_EQ(world.pendingEvents("boot", "early"), Lines({"early:fan"}));
}

// --- the reactor --------------------------------------------------------------------------------

TEST_F(AutoCompletion, IsKeyedByTheAgent) {
    EXPECT_EQ(
        make<AutoCompleteSm>(make<Stage::EventConfig>("early", "fan"), nullptr, "boot", nullptr)
            ->key(),
        "fan");
    EXPECT_EQ(make<AutoCompleteSm>(nullptr, nullptr, "boot", nullptr)->key(), "");
}

TEST_F(AutoCompletion, WithoutAnEventIsNeverArmed) {
    const Ptr<AutoCompleteSm> timer = make<AutoCompleteSm>(nullptr, nullptr, "boot", nullptr);

    EXPECT_TRUE(timer->initialized());
    EXPECT_EQ(timer->timeMin(), never);
    timer->handleTimeout();
    EXPECT_EQ(world.errors(), Lines());

    make<AutoCompleteSm>(nullptr, Stage::logSmFactory(world.logs(), "boot"), "boot",
                         world.agentStatusLocal())
        ->handleTimeout();
    EXPECT_EQ(world.instanceLog("boot"), nullptr);
    EXPECT_TRUE(world.agentStatusLocal()->complete().empty());
}

TEST_F(AutoCompletion, DoesWithoutALogAndWithoutARecord) {
    const Ptr<Stage::EventConfig> event = make<Stage::EventConfig>("early", "fan");
    const Ptr<Stage::AgentStatusLocal> record = make<Stage::AgentStatusLocal>();

    make<AutoCompleteSm>(event, nullptr, "boot", record)->handleTimeout();
    EXPECT_TRUE(record->complete({"fan", "early", "boot"}));

    const Ptr<Stage::Log> log = make<Stage::Log>("log");
    make<AutoCompleteSm>(event, Stage::logSmFactory(log, "boot"), "boot", nullptr)->handleTimeout();
    EXPECT_EQ(log->instanceLog("boot")->log().size(), 1u);
}

TEST_F(AutoCompletion, TheReportOfItsClockBeforeItIsReadyIsIgnored) {
    world.trace();

    starts({.autoComplete = 20});

    Lines texts;
    for (const StageTest::TraceLine& line : world.traced())
        if (line.signature == "void Stage::AutoCompleteSm::handleTimeout()")
            texts.push_back(line.text);
    ASSERT_EQ(texts.size(), 2u) << "entry, and return";
    EXPECT_TRUE(texts[1].starts_with("Not initialized.  Return from"));
    EXPECT_EQ(lines(), Lines());
}

class AutoCompletionChildren : public AutoCompletion {
  protected:
    AutoCompletionChildren() { starts({.autoComplete = 20}); }

    std::string refusal(const Ptr<Stage::EventConfig>& event, const Ptr<Stage::LogSm>& log,
                        const char* instance, const Ptr<Stage::AgentStatusLocal>& record) {
        try {
            stage()->autoCompleteSmIs(event, log, instance, record);
            return "";
        } catch (const Orv::NameInUseError& error) {
            const std::string text = error.what();
            const std::size_t from = text.find(" attribute ") + 11;
            return text.substr(from, text.find(" has ") - from);
        }
    }
    Stage::StageSm* stage() const { return world.stageSm("boot", "early"); }
};

TEST_F(AutoCompletionChildren, OneWithTheSameArgumentsIsKept) {
    const Ptr<AutoCompleteSm> held(timer());

    EXPECT_EQ(stage()->autoCompleteSmIs(world.event("early", "fan"), stage()->logSm(), "boot",
                                        world.agentStatusLocal()),
              held);
}

TEST_F(AutoCompletionChildren, OneWithAnyOtherArgumentIsRefused) {
    const Ptr<AutoCompleteSm> held(timer());
    const auto event = world.event("early", "fan");
    const auto log = stage()->logSm();
    const auto record = world.agentStatusLocal();

    EXPECT_EQ(refusal(make<Stage::EventConfig>("early", "fan"), log, "boot", record),
              "_eventConfig");
    EXPECT_EQ(refusal(event, nullptr, "boot", record), "_logSm");
    EXPECT_EQ(refusal(event, log, "spare", record), "_instanceName");
    EXPECT_EQ(refusal(event, log, "boot", nullptr), "_agentStatusLocal");
    EXPECT_EQ(refusal(event, nullptr, "spare", nullptr), "_logSm");
    EXPECT_EQ(timer(), held.get());
}

TEST_F(AutoCompletionChildren, AnotherEventOfTheSameAgentIsReportedAsAnError) {
    // Written into the stage by somebody else, without the old one's leaving first.
    world.agent("fan").registered("early")->nameIs("kept");
    const Ptr<Stage::EventConfig> other = make<Stage::EventConfig>("early", "fan");
    other->enableAutoCompleteIs(true);

    world.stage("early")->eventIs(other);

    ASSERT_EQ(world.errors().size(), 1u);
    EXPECT_TRUE(
        world.errors()[0].starts_with("Reinstantiating the pointer interface where "
                                      "constructor parameter attribute _eventConfig"));
}

TEST_F(AutoCompletionChildren, AreDeletedByAgent) {
    stage()->autoCompleteSmDel("absent");
    EXPECT_NE(timer(), nullptr);

    stage()->autoCompleteSmDel("fan");
    EXPECT_EQ(timer(), nullptr);
}

}  // namespace
