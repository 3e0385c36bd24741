#include "StageMgr/Messages.h"

#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using Orv::LogHandle;
using StageTest::Lines;
using StageTest::Messages;
using StageTest::World;

TEST(Messages, AStageThatIsSlowIsAWarning) {
    EXPECT_STREQ(Stage::stageSlow.identifier(), "STAGEMGR_STAGE_SLOW");
    EXPECT_EQ(Stage::stageSlow.severity(), 4);
    EXPECT_STREQ(Stage::stageSlow.format(), "%s stage %s timed out");
    EXPECT_STREQ(Stage::stageSlow.explanation(),
                 "A stage in progression is taking longer than expected. Stages that depend on "
                 "this stage will begin after this stage is completed.");
}

TEST(Messages, AStageThatCompletesLateIsAWarning) {
    EXPECT_STREQ(Stage::stageCompleteAfterTimeout.identifier(),
                 "STAGEMGR_STAGE_COMPLETE_AFTER_TIMEOUT");
    EXPECT_EQ(Stage::stageCompleteAfterTimeout.severity(), 4);
    EXPECT_STREQ(Stage::stageCompleteAfterTimeout.format(),
                 "%s resumed after stage %s completed after timeout.");
    EXPECT_STREQ(Stage::stageCompleteAfterTimeout.explanation(),
                 "A stage that had been taking longer than expected to complete has now "
                 "completed.  Stages that depend on this completion are able to proceed.");
}

TEST(Messages, AMissedDeadlineIsAnError) {
    EXPECT_STREQ(Stage::globalStageCompletionTimeout.identifier(),
                 "STAGEMGR_GLOBAL_STAGE_COMPLETION_TIMEOUT");
    EXPECT_EQ(Stage::globalStageCompletionTimeout.severity(), 3);
    EXPECT_STREQ(Stage::globalStageCompletionTimeout.format(),
                 "Global stage progression did not complete after %s secs.");
    EXPECT_STREQ(Stage::globalStageCompletionTimeout.explanation(),
                 "Stage progression took longer than the global timeout limit, rebooting system "
                 "to proceed.");
}

TEST(Messages, AreDefinedInTheirOrderAndAreAll) {
    Lines identifiers;
    for (const LogHandle* const message : LogHandle::definitions())
        identifiers.push_back(message->identifier());

    EXPECT_EQ(identifiers, Lines({"STAGEMGR_STAGE_SLOW", "STAGEMGR_STAGE_COMPLETE_AFTER_TIMEOUT",
                                  "STAGEMGR_GLOBAL_STAGE_COMPLETION_TIMEOUT"}));
}

TEST(Messages, NoneAsksAnythingOfTheOperator) {
    for (const LogHandle* message : {&Stage::stageSlow, &Stage::stageCompleteAfterTimeout,
                                     &Stage::globalStageCompletionTimeout}) {
        SCOPED_TRACE(message->identifier());
        EXPECT_STREQ(message->recommendedAction(), Orv::NoActionRequired);
        EXPECT_EQ(message->first(), 0.0);
        EXPECT_EQ(message->second(), 1.0);
        EXPECT_EQ(message->flag(), 0);
    }
}

TEST(Messages, TheApplicationComesFirstAndTheStageSecond) {
    World world({.application = "Cold start"});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");

    world.advance(30);
    world.agent("fan").report("early", "boot");

    EXPECT_EQ(world.identifiers(),
              Lines({"STAGEMGR_STAGE_SLOW", "STAGEMGR_STAGE_COMPLETE_AFTER_TIMEOUT"}));
    EXPECT_EQ(world.messages(),
              Messages({"Cold start stage early timed out",
                        "Cold start resumed after stage early completed after timeout."}));
}

TEST(Messages, TheDeadlineIsWrittenInWholeSeconds) {
    World world({.deadline = 90.9});
    world.agent("fan").event("early");
    world.enable("boot");

    world.advance(91);

    EXPECT_EQ(world.identifiers(), Lines({"STAGEMGR_GLOBAL_STAGE_COMPLETION_TIMEOUT"}));
    EXPECT_EQ(world.messages(),
              Messages({"Global stage progression did not complete after 90 secs."}));
}

TEST(Messages, NamesThatLookLikeFormatsAreNotOnes) {
    World world({.application = "%s%%"});
    world.agent("fan").event("%s", {.timeout = 30, .critical = true});
    world.enable("boot");

    world.advance(30);

    EXPECT_EQ(world.messages(), Messages({"%s%% stage %s timed out"}));
    EXPECT_EQ(world.printed(),
              Lines({" Critical stage %s timed out! %s%% suspended for debugging."}));
}

TEST(Messages, OneThatIsNotOkToLogIsNotRaisedAndTheRestGoesOn) {
    World world({.deadline = 60});
    world.agent("fan").event("early", {.timeout = 30, .critical = true});
    world.enable("boot");
    world.messagesAreOk(false);

    world.advance(60);

    EXPECT_EQ(world.messages(), Messages());
    EXPECT_EQ(world.refused(),
              Lines({"STAGEMGR_STAGE_SLOW", "STAGEMGR_GLOBAL_STAGE_COMPLETION_TIMEOUT"}));
    EXPECT_EQ(world.printed(),
              Lines({" Critical stage early timed out! app suspended for debugging."}));
    EXPECT_EQ(world.reboot().reason, "Global stage progression timed out after 60 secs");
}

}  // namespace
