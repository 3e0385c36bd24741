#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "StageMgr/InstanceStatusSm.h"
#include "tests/support/World.h"

namespace {

using Orv::never;
using Orv::Ptr;
using Stage::InstanceStatusSm;
using StageTest::Lines;
using StageTest::System;
using StageTest::World;

// How often a handler was entered while traces were taken.
int entries(const World& world, const std::string& signature) {
    return static_cast<int>(std::count_if(
        world.traced().begin(), world.traced().end(), [&](const StageTest::TraceLine& line) {
            return line.signature == signature && line.text == " instanceName boot";
        }));
}

int passes(const World& world) {
    return entries(world, "void Stage::InstanceStatusSm::handleNextStage()");
}

bool traced(const World& world, int level, const std::string& text) {
    const Lines lines = world.traced(level);
    return std::find(lines.begin(), lines.end(), text) != lines.end();
}

// --- asking for a pass --------------------------------------------------------------------------

class AskingForAPass : public testing::Test {
  protected:
    AskingForAPass() {
        world.agent("fan").event("early", {.dependsOn = {"never"}});
        world.enable("boot");
        world.advance(3);
        instance = Ptr<InstanceStatusSm>(world.instance("boot"));
        world.trace();
    }

    World world;
    Ptr<InstanceStatusSm> instance;
};

TEST_F(AskingForAPass, ArmsItForThePresentTime) {
    instance->doNextStage();

    EXPECT_TRUE(instance->needRecalculateNextStage());
    EXPECT_EQ(instance->recalculateNextStage(), 3);
    EXPECT_EQ(passes(world), 0) << "it waits for its turn";

    world.settle();

    EXPECT_EQ(passes(world), 1);
    EXPECT_FALSE(instance->needRecalculateNextStage());
    EXPECT_EQ(instance->recalculateNextStage(), never);
}

TEST_F(AskingForAPass, TracesOnEntry) {
    instance->doNextStage();

    ASSERT_FALSE(world.traced().empty());
    EXPECT_EQ(world.traced()[0].level, 8);
    EXPECT_EQ(world.traced()[0].signature, "void Stage::InstanceStatusSm::doNextStage()");
    EXPECT_EQ(world.traced()[0].text, " instanceName() boot");
}

TEST_F(AskingForAPass, ManyTimesMakesOnePass) {
    for (int i = 0; i < 100; ++i) instance->doNextStage();
    world.settle();

    EXPECT_EQ(passes(world), 1);
}

TEST_F(AskingForAPass, IsRefusedWhileTheInstanceIsNotEnabled) {
    // Another set of enabled instances, of which the class does not know yet.
    const auto instanceOf = [&](bool present) {
        const auto enabled = Orv::make<Stage::EnabledConfig>("app");
        if (present) enabled->enabledIs("boot", false);
        return Stage::instanceStatusSmFactory(
            world.config(), enabled, world.status(), world.completionStatus("boot"),
            world.progress("boot"), world.logs(), world.globalConfig(), world.fatalError(),
            Orv::make<Stage::InstanceStatus>("boot"), world.agentStatusLocal());
    };
    for (const bool present : {false, true}) {
        SCOPED_TRACE(present ? "false" : "absent");
        world.forgetTraced();
        const Ptr<InstanceStatusSm> other = instanceOf(present);

        EXPECT_FALSE(other->needRecalculateNextStage());
        EXPECT_EQ(other->recalculateNextStage(), never);
        EXPECT_TRUE(traced(world, 8, " instance boot not enabled yet, do nothing."));
    }
}

TEST_F(AskingForAPass, IsRefusedWhileTheInstanceIsSuspended) {
    world.suspend("boot");
    EXPECT_FALSE(world.instanceStatus("boot")->suspended()) << "nobody has asked yet";

    instance->doNextStage();

    EXPECT_TRUE(world.instanceStatus("boot")->suspended());
    EXPECT_FALSE(instance->needRecalculateNextStage());
    EXPECT_EQ(instance->recalculateNextStage(), never);
    EXPECT_TRUE(traced(world, 8,
                       " stage progression for instance boot has been suspended. Dont advance to "
                       "next stage"));
}

TEST_F(AskingForAPass, IsGrantedWhenSuspendedIsFalse) {
    world.suspend("boot", false);

    instance->doNextStage();

    EXPECT_FALSE(world.instanceStatus("boot")->suspended());
    EXPECT_TRUE(instance->needRecalculateNextStage());
}

TEST_F(AskingForAPass, IsGrantedAfterASuspensionWhoseMarkStays) {
    world.suspend("boot");
    instance->doNextStage();
    world.suspendDel("boot");

    instance->doNextStage();

    EXPECT_TRUE(instance->needRecalculateNextStage());
    EXPECT_TRUE(world.instanceStatus("boot")->suspended()) << "nothing clears it";
}

TEST_F(AskingForAPass, BeforeTheStartIsRememberedForIt) {
    instance->initializedIs(false);

    instance->doNextStage();

    EXPECT_TRUE(instance->needRecalculateNextStage());
    EXPECT_EQ(instance->recalculateNextStage(), never);
    EXPECT_TRUE(traced(world, 8, "InstanceStatusSm not yet initialized "));

    instance->handleInitialized();
    EXPECT_EQ(instance->recalculateNextStage(), 3);
}

// --- the pass is refused ------------------------------------------------------------------------

TEST_F(AskingForAPass, APassBeforeTheStartDoesNothing) {
    instance->doNextStage();
    instance->initializedIs(false);

    instance->handleNextStage();

    EXPECT_TRUE(instance->needRecalculateNextStage());
    EXPECT_TRUE(traced(world, 8, "not yet initialized, instanceName() boot"));
}

TEST_F(AskingForAPass, APassWhileARebootIsPendingDoesNothing) {
    instance->doNextStage();
    world.rebootIs();

    world.settle();

    EXPECT_TRUE(instance->needRecalculateNextStage());
    EXPECT_TRUE(traced(world, 8, " reboot already in progress, do nothing."));
}

TEST_F(AskingForAPass, APassThatNobodyAskedForDoesNothing) {
    instance->handleNextStage();

    EXPECT_TRUE(traced(world, 8, "handleNextStage not needed yet, instanceName() boot"));
    EXPECT_TRUE(world.traced(9).empty()) << "no stage is looked at";
}

TEST_F(AskingForAPass, ThePassTracesOnEntry) {
    instance->handleNextStage();

    EXPECT_EQ(world.traced()[0].level, 8);
    EXPECT_EQ(world.traced()[0].signature, "void Stage::InstanceStatusSm::handleNextStage()");
    EXPECT_EQ(world.traced()[0].text, " instanceName boot");
}

TEST_F(AskingForAPass, ABurstOfCompletionsMakesOnePass) {
    for (const char* agent : {"a", "b", "c"}) world.agent(agent).event(agent);
    instance->doNextStage();
    world.settle();
    world.forgetTraced();

    for (const char* agent : {"a", "b", "c"}) world.agent(agent).report(agent, "boot");
    world.settle();

    EXPECT_EQ(passes(world), 1);
}

// --- the decision for one stage -----------------------------------------------------------------

// What becomes of a stage when a pass is asked for.
enum class Fate {
    noPass,    // the instance is suspended: no pass is granted
    reboot,    // the pass refuses: a reboot is pending
    active,    // it runs already, and is waited for
    passed,    // the same, and a critical stage has not started while it is not critical
    critical,  // it waits for the critical stage
    unready,   // it waits for what it depends on
    held,      // the operator holds it
    starts,
};
[[maybe_unused]] std::ostream& operator<<(std::ostream& out, Fate fate) {
    static const char* const names[] = {"noPass",   "reboot",  "active", "passed",
                                        "critical", "unready", "held",   "starts"};
    return out << names[static_cast<int>(fate)];
}

struct Situation {
    bool suspended;
    bool rebootPending;
    bool active;
    bool dependenciesComplete;
    bool critical;
    bool anotherCriticalNotStarted;
    // By its member on the do-not-start list.
    Fate absent;
    Fate no;
    Fate yes;
};

constexpr bool x = true;
constexpr bool o = false;
using enum Fate;

// Every combination. "another": another critical stage has not started; a critical stage that has
// not started itself is one such for all others.
const Situation situations[] = {
    // suspended, reboot, active, dependencies, critical, another; absent, false, true
    {o, o, o, o, o, o, unready, unready, unready}, {o, o, o, o, o, x, critical, critical, critical},
    {o, o, o, o, x, o, unready, unready, unready}, {o, o, o, o, x, x, unready, unready, unready},
    {o, o, o, x, o, o, starts, starts, held},      {o, o, o, x, o, x, critical, critical, critical},
    {o, o, o, x, x, o, starts, starts, held},      {o, o, o, x, x, x, starts, starts, held},
    {o, o, x, o, o, o, active, active, active},    {o, o, x, o, o, x, passed, passed, passed},
    {o, o, x, o, x, o, active, active, active},    {o, o, x, o, x, x, active, active, active},
    {o, o, x, x, o, o, active, active, active},    {o, o, x, x, o, x, passed, passed, passed},
    {o, o, x, x, x, o, active, active, active},    {o, o, x, x, x, x, active, active, active},

    {o, x, o, o, o, o, reboot, reboot, reboot},    {o, x, o, o, o, x, reboot, reboot, reboot},
    {o, x, o, o, x, o, reboot, reboot, reboot},    {o, x, o, o, x, x, reboot, reboot, reboot},
    {o, x, o, x, o, o, reboot, reboot, reboot},    {o, x, o, x, o, x, reboot, reboot, reboot},
    {o, x, o, x, x, o, reboot, reboot, reboot},    {o, x, o, x, x, x, reboot, reboot, reboot},
    {o, x, x, o, o, o, reboot, reboot, reboot},    {o, x, x, o, o, x, reboot, reboot, reboot},
    {o, x, x, o, x, o, reboot, reboot, reboot},    {o, x, x, o, x, x, reboot, reboot, reboot},
    {o, x, x, x, o, o, reboot, reboot, reboot},    {o, x, x, x, o, x, reboot, reboot, reboot},
    {o, x, x, x, x, o, reboot, reboot, reboot},    {o, x, x, x, x, x, reboot, reboot, reboot},

    {x, o, o, o, o, o, noPass, noPass, noPass},    {x, o, o, o, o, x, noPass, noPass, noPass},
    {x, o, o, o, x, o, noPass, noPass, noPass},    {x, o, o, o, x, x, noPass, noPass, noPass},
    {x, o, o, x, o, o, noPass, noPass, noPass},    {x, o, o, x, o, x, noPass, noPass, noPass},
    {x, o, o, x, x, o, noPass, noPass, noPass},    {x, o, o, x, x, x, noPass, noPass, noPass},
    {x, o, x, o, o, o, noPass, noPass, noPass},    {x, o, x, o, o, x, noPass, noPass, noPass},
    {x, o, x, o, x, o, noPass, noPass, noPass},    {x, o, x, o, x, x, noPass, noPass, noPass},
    {x, o, x, x, o, o, noPass, noPass, noPass},    {x, o, x, x, o, x, noPass, noPass, noPass},
    {x, o, x, x, x, o, noPass, noPass, noPass},    {x, o, x, x, x, x, noPass, noPass, noPass},

    {x, x, o, o, o, o, noPass, noPass, noPass},    {x, x, o, o, o, x, noPass, noPass, noPass},
    {x, x, o, o, x, o, noPass, noPass, noPass},    {x, x, o, o, x, x, noPass, noPass, noPass},
    {x, x, o, x, o, o, noPass, noPass, noPass},    {x, x, o, x, o, x, noPass, noPass, noPass},
    {x, x, o, x, x, o, noPass, noPass, noPass},    {x, x, o, x, x, x, noPass, noPass, noPass},
    {x, x, x, o, o, o, noPass, noPass, noPass},    {x, x, x, o, o, x, noPass, noPass, noPass},
    {x, x, x, o, x, o, noPass, noPass, noPass},    {x, x, x, o, x, x, noPass, noPass, noPass},
    {x, x, x, x, o, o, noPass, noPass, noPass},    {x, x, x, x, o, x, noPass, noPass, noPass},
    {x, x, x, x, x, o, noPass, noPass, noPass},    {x, x, x, x, x, x, noPass, noPass, noPass},
};

enum class Member { absent, no, yes };

// Lets the situation come about, asks for a pass, and checks that stage "y" meets its fate and no
// other. "before" is what it depends on, and "gate" the other critical stage.
void expectFate(const Situation& s, Member member, Fate fate) {
    World world;
    if (member != Member::absent) world.hold("y", member == Member::yes);
    world.agent("before").event("before", {.critical = true});
    world.agent("other").event("other");
    world.enable("boot");
    world.settle();
    if (s.dependenciesComplete) world.agent("before").report("before", "boot");
    world.settle();
    if (s.anotherCriticalNotStarted)
        world.agent("gate").event("gate", {.critical = true, .dependsOn = {"never"}});
    world.agent("y").appears({{"y", {.critical = s.critical, .dependsOn = {"before"}}}});
    if (s.active) world.instanceStatus("boot")->activeStageIs(world.stage("y"));
    if (s.suspended) world.suspend("boot");
    if (s.rebootPending) world.rebootIs();
    const std::size_t lines = world.log("boot").size();
    world.trace();

    world.instance("boot")->doNextStage();
    world.settle();

    const Lines all = world.log("boot");
    Lines written;  // of "y"; the stage "other" may start in the same pass
    for (std::size_t i = lines; i < all.size(); ++i)
        if (all[i].find("other") == std::string::npos) written.push_back(all[i]);
    EXPECT_EQ(passes(world), fate == noPass ? 0 : 1);
    EXPECT_EQ(world.instanceStatus("boot")->suspended(), fate == noPass);
    EXPECT_EQ(traced(world, 8, " reboot already in progress, do nothing."), fate == reboot);
    EXPECT_EQ(traced(world, 9, "Stage y in progress, but not yet complete,  instanceName boot"),
              fate == active || fate == passed);
    EXPECT_EQ(traced(world, 9, "Stage y in progress, but now non-critical,  instanceName boot"),
              fate == passed);
    EXPECT_EQ(traced(world, 9,
                     "y is ready, but some critical stage hasn't started  yet, instanceName boot"),
              fate == critical);
    EXPECT_EQ(
        traced(world, 9, "Incomplete dependency before means y is unready, instanceName boot"),
        fate == unready);
    EXPECT_EQ(traced(world, 7, "y ready, but not allowed to start, instanceName boot"),
              fate == held);
    EXPECT_EQ(world.traced(7, "Activating stage y").size(), fate == starts ? 1u : 0u);
    EXPECT_EQ(written,
              fate == starts ? Lines({"stage y started", "  event y:y started"}) : Lines());
    EXPECT_EQ(world.instanceStatus("boot")->activeStage().contains("y"),
              s.active || fate == starts);
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST(Selection, EverySituationHasItsFate) {
    EXPECT_EQ(std::size(situations), 64u);
    for (const Situation& s : situations) {
        std::ostringstream row;
        row << s.suspended << s.rebootPending << s.active << s.dependenciesComplete << s.critical
            << s.anotherCriticalNotStarted;
        {
            SCOPED_TRACE(row.str() + " absent");
            expectFate(s, Member::absent, s.absent);
        }
        {
            SCOPED_TRACE(row.str() + " false");
            expectFate(s, Member::no, s.no);
        }
        {
            SCOPED_TRACE(row.str() + " true");
            expectFate(s, Member::yes, s.yes);
        }
    }
}

// --- what a stage waits for ---------------------------------------------------------------------

class Selecting : public testing::Test {
  protected:
    World world;
};

TEST_F(Selecting, AStageThatDoesNotExistIsWaitedForForEver) {
    world.agent("fan").event("early", {.dependsOn = {"never"}});
    world.enable("boot");
    world.trace();

    world.advance(1e6);

    EXPECT_EQ(world.activeStages("boot"), Lines());
    EXPECT_TRUE(traced(world, 9,
                       "never is not yet ready, which means early is also unready, instanceName "
                       "boot"));
}

TEST_F(Selecting, AStageThatDependsOnItselfNeverStarts) {
    world.agent("fan").event("early", {.dependsOn = {"early"}});
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines());
}

TEST_F(Selecting, AStageThatRunsIsWaitedFor) {
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.trace();

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
    EXPECT_TRUE(
        traced(world, 9, "Incomplete dependency early means late is unready, instanceName boot"));

    world.agent("fan").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(Selecting, AnActiveStageWithoutItsReactorIsNotComplete) {
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.instance("boot")->stageSmDel("early");
    world.trace();

    world.instance("boot")->doNextStage();
    world.settle();

    EXPECT_TRUE(traced(world, 9,
                       "Unactivated stage SM for early means late is unready, instanceName boot"));
    EXPECT_TRUE(
        traced(world, 9, "Stage early in progress, but not yet complete,  instanceName boot"));
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST_F(Selecting, EveryDependencyHasToBeComplete) {
    world.agent("a").event("a");
    world.agent("b").event("b");
    world.agent("fan").event("late", {.dependsOn = {"a", "b"}});
    world.enable("boot");
    world.settle();

    world.agent("b").report("b", "boot");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"a", "b"}));

    world.agent("a").report("a", "boot");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"a", "b", "late"}));
}

TEST_F(Selecting, ADependencyCountsWhateverItsValue) {
    world.agent("fan").event("early");
    world.enable("boot");
    // The configuration side writes true only; somebody else may have written this.
    world.stage("early")->dependencyIs("never", false);

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines());
}

TEST_F(Selecting, OneInstanceDoesNotWaitForAnother) {
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.enable("spare");
    world.settle();

    world.agent("fan").report("early", "boot");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
    EXPECT_EQ(world.activeStages("spare"), Lines({"early"}));
}

// --- criticality --------------------------------------------------------------------------------

TEST_F(Selecting, ACriticalStageThatCannotStartHoldsBackEveryOther) {
    world.agent("a").event("a");
    world.agent("gate").event("gate", {.critical = true, .dependsOn = {"never"}});
    world.agent("b").event("b");
    world.enable("boot");
    world.trace();

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines());
    EXPECT_TRUE(traced(
        world, 9, "a is ready, but some critical stage hasn't started  yet, instanceName boot"));
    EXPECT_TRUE(traced(
        world, 9, "b is ready, but some critical stage hasn't started  yet, instanceName boot"));
}

TEST_F(Selecting, OtherStagesStartInThePassAfterTheLastCriticalOneHasStarted) {
    world.agent("a").event("a");
    world.agent("gate").event("gate", {.critical = true});
    world.enable("boot");

    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"gate"}))
        << "the pass that starts it has met it inactive";

    world.agent("gate").report("gate", "boot");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"gate", "a"}));
}

TEST_F(Selecting, ACriticalStageThatRunsHoldsNobodyBack) {
    world.agent("gate").event("gate", {.critical = true});
    world.enable("boot");
    world.settle();
    world.agent("a").event("a");

    world.instance("boot")->doNextStage();
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"gate", "a"}));
}

TEST_F(Selecting, CriticalStagesStartTogether) {
    world.agent("a").event("a", {.critical = true});
    world.agent("b").event("b", {.critical = true});
    world.agent("c").event("c");
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"a", "b"}));
}

TEST_F(Selecting, AStageThatTheOperatorHoldsHoldsTheOthersBackWhenItIsCritical) {
    world.agent("gate").event("gate", {.critical = true});
    world.agent("a").event("a");
    world.hold("gate");
    world.enable("boot");

    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines());

    world.holdDel("gate");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"gate"}));
}

TEST_F(Selecting, AStageThatRunsIsWaitedForAlthoughItIsNotCritical) {
    world.agent("a").event("a");
    world.enable("boot");
    world.settle();
    world.agent("gate").event("gate", {.critical = true, .dependsOn = {"never"}});
    world.trace();

    world.instance("boot")->doNextStage();
    world.settle();

    EXPECT_TRUE(traced(world, 9, "Stage a in progress, but now non-critical,  instanceName boot"));
    EXPECT_TRUE(traced(world, 9, "Stage a in progress, but not yet complete,  instanceName boot"));
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST_F(Selecting, AStageThatBecomesCriticalIsNotHeldBackAnyMore) {
    world.agent("a").event("a");
    world.agent("gate").event("gate", {.critical = true, .dependsOn = {"never"}});
    world.enable("boot");
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines());

    world.agent("a").registered("a")->criticalIs(true);
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"a"}));
}

TEST_F(Selecting, TheEndOfCriticalityWaitsForAPassThatAnotherChangeAsksFor) {
    world.agent("a").event("a");
    world.agent("gate").event("gate", {.critical = true, .dependsOn = {"never"}});
    world.enable("boot");
    world.settle();

    world.agent("gate").registered("gate")->criticalIs(false);
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines());

    world.instance("boot")->doNextStage();
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"a"}));
}

// --- several stages in one pass -----------------------------------------------------------------

TEST_F(Selecting, EveryReadyStageStartsInOnePassInTheOrderInWhichTheyWereAdded) {
    for (const char* stage : {"c", "a", "b"}) world.agent("fan").event(stage);
    world.enable("boot");
    world.trace();

    world.settle();

    EXPECT_EQ(passes(world), 1);
    EXPECT_EQ(
        world.log("boot"),
        Lines({"app stages started", "stage c started", "  event c:fan started", "stage a started",
               "  event a:fan started", "stage b started", "  event b:fan started"}));
}

TEST_F(Selecting, StartingAStageIsTracedThenLoggedThenDone) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.observe();
    world.trace(7);
    Lines tracedFirst;
    world.when("<< stage early started", [&] { tracedFirst = world.traced(7); });

    world.settle();

    EXPECT_EQ(tracedFirst, Lines({"Activating stage early instanceName boot"}));
    EXPECT_EQ(world.observed(),
              Lines({"/stage/app/log/instanceLog/boot/log << stage early started",
                     "/stage/app/status/instStatus/boot/activeStage[early] = "
                     "/stage/app/status/stage/early",
                     "/stage/app/log/instanceLog/boot/log <<   event early:fan started",
                     "/stage/app/progress/progress/boot/stage[early] = true"}));
}

// A stage without events completes while it is started.
class SelectingEmptyStages : public Selecting {
  protected:
    void emptyStage(const char* stage) {
        world.agent("nobody").event(stage);
        world.agent("nobody").withdraw(stage);
    }
};

TEST_F(SelectingEmptyStages, AStageThatCompletesAtOnceLetsAStageBehindItStartInTheSamePass) {
    emptyStage("early");
    world.agent("fan").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.trace();
    Lines startsInPass;
    world.when("<< stage late started", [&] { startsInPass = {std::to_string(passes(world))}; });

    world.settle();

    EXPECT_EQ(startsInPass, Lines({"1"}));
    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "stage early is complete",
                     "stage late started", "  event late:fan started"}));
}

TEST_F(SelectingEmptyStages, AStageThatCompletesAtOnceLetsAStageBeforeItStartInTheNextPass) {
    world.agent("fan").event("late", {.dependsOn = {"early"}});
    emptyStage("early");
    world.enable("boot");
    world.trace();
    Lines startsInPass;
    world.when("<< stage late started", [&] { startsInPass = {std::to_string(passes(world))}; });

    world.settle();

    EXPECT_EQ(startsInPass, Lines({"2"}));
    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "stage early is complete",
                     "stage late started", "  event late:fan started"}));
}

TEST_F(SelectingEmptyStages, AChainOfStagesThatCompleteAtOnceTakesOnePassAndOneToSeeIt) {
    for (const char* stage : {"a", "b", "c"}) emptyStage(stage);
    world.stage("b")->dependencyIs("a", true);
    world.stage("c")->dependencyIs("b", true);
    world.enable("boot");
    world.trace();

    world.settle();

    EXPECT_EQ(passes(world), 2);
    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage a started", "stage a is complete",
                     "stage b started", "stage b is complete", "stage c started",
                     "stage c is complete", "app stages complete"}));
}

TEST_F(Selecting, AStageThatIsAddedDuringThePassWaitsForTheNext) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.when("<< stage early started", [&] { world.agent("disk").event("late"); });

    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));

    world.instance("boot")->doNextStage();
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(Selecting, AStageThatIsRemovedDuringThePassIsNotStarted) {
    world.agent("fan").event("early").event("late");
    world.enable("boot");
    world.when("<< stage early started", [&] { world.status()->stageDel("late"); });

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
    EXPECT_EQ(world.errors(), Lines());
}

TEST_F(Selecting, TheStageThatIsBeingStartedMayBeRemoved) {
    world.agent("fan").event("early").event("late");
    world.enable("boot");
    world.when("<< stage early started", [&] { world.status()->stageDel("early"); });

    world.settle();

    EXPECT_EQ(world.errors(), Lines());
    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
}

TEST_F(Selecting, ARebootThatIsRequestedDuringThePassLetsItEnd) {
    // The pass asks once, at its beginning.
    world.agent("fan").event("early").event("late");
    world.enable("boot");
    world.when("<< stage early started", [&] { world.rebootIs(); });

    world.settle();

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "stage early is complete",
                     "stage late started", "stage late is complete"}));
}

// --- the end of the pass ------------------------------------------------------------------------

TEST_F(Selecting, AClassWithoutStagesIsCompleteAtOnce) {
    world.enable("boot");

    world.settle();

    EXPECT_EQ(world.log("boot"), Lines({"app stages started", "app stages complete"}));
    EXPECT_TRUE(world.instanceComplete("boot"));
    EXPECT_TRUE(world.instanceStatus("boot")->complete());
}

TEST(Completing, WritesStatusRecordAndLineAndStopsTheDeadline) {
    World world({.application = "Boot", .deadline = 60});
    world.agent("fan").event("early");
    world.enable("boot");
    world.advance(1);
    world.agent("fan").report("early", "boot");
    ASSERT_EQ(world.instance("boot")->globalStageClock(), 60);
    double clockAtTheLine = 0;
    world.when("<< Boot stages complete",
               [&] { clockAtTheLine = world.instance("boot")->globalStageClock(); });
    world.observe();

    world.settle();

    EXPECT_EQ(world.observed(),
              Lines({"/stage/app/status/instStatus/boot/complete = true",
                     "/stage/app/completionstatus/status/boot/complete = true",
                     "/stage/app/log/instanceLog/boot/log << Boot stages complete"}));
    EXPECT_EQ(clockAtTheLine, never);
    EXPECT_EQ(world.instance("boot")->globalStageClock(), never);
}

TEST_F(Selecting, AnInstanceThatIsCompleteSaysSoAgainWhenAPassIsAskedFor) {
    world.enable("boot");
    world.settle();

    world.instance("boot")->doNextStage();
    world.settle();

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "app stages complete", "app stages complete"}));
}

TEST_F(Selecting, ThePassThatStartsTheLastStageDoesNotCompleteTheInstance) {
    world.agent("nobody").event("only");
    world.agent("nobody").withdraw("only");
    world.enable("boot");
    world.trace();
    Lines completeInPass;
    world.when("<< app stages complete", [&] { completeInPass = {std::to_string(passes(world))}; });

    world.settle();

    EXPECT_EQ(completeInPass, Lines({"2"}));
}

class EndOfAPass : public Selecting {
  protected:
    // The summaries of the pass that a test asks for.
    Lines summaries() {
        world.forgetTraced();
        world.trace();
        world.instance("boot")->doNextStage();
        world.settle();
        return world.traced(7, " Inactive stages? ");
    }
};

TEST_F(EndOfAPass, OnlyInactiveStagesAreSummedUp) {
    world.agent("fan").event("early", {.dependsOn = {"never"}});
    world.enable("boot");
    world.settle();

    EXPECT_EQ(summaries(),
              Lines({" Inactive stages? 1 IncompleteActiveStages? 0 instanceName boot"}));
}

TEST_F(EndOfAPass, OnlyIncompleteStagesAreSummedUp) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();

    EXPECT_EQ(summaries(),
              Lines({" Inactive stages? 0 IncompleteActiveStages? 1 instanceName boot"}));
}

TEST_F(EndOfAPass, BothAreNotSummedUp) {
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();

    EXPECT_EQ(summaries(), Lines());
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST_F(EndOfAPass, NeitherIsNotSummedUp) {
    world.enable("boot");
    world.settle();

    EXPECT_EQ(summaries(), Lines());
    EXPECT_TRUE(world.instanceComplete("boot"));
}

TEST_F(EndOfAPass, AStageThatStartsInThePassCountsAsInactive) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.trace();

    world.settle();

    EXPECT_EQ(world.traced(7, " Inactive stages? "),
              Lines({" Inactive stages? 1 IncompleteActiveStages? 0 instanceName boot"}));
}

// --- suspension ---------------------------------------------------------------------------------

TEST_F(Selecting, SuspendingStopsNewPassesAndNotTheStagesThatRun) {
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.suspend("boot");

    world.agent("fan").report("early", "boot");
    world.advance(10);

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started",
                     "  event early:fan completed", "stage early is complete"}));
    EXPECT_TRUE(world.instanceStatus("boot")->suspended());
    EXPECT_FALSE(world.instanceComplete("boot"));
}

TEST_F(Selecting, ASuspensionThatEndsWaitsForTheNextRequest) {
    world.agent("fan").event("early").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.suspend("boot");
    world.agent("fan").report("early", "boot");
    world.settle();

    world.suspendDel("boot");
    world.advance(10);
    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));

    world.hold("other", false);
    world.settle();
    EXPECT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
    EXPECT_TRUE(world.instanceStatus("boot")->suspended()) << "nothing clears it";
}

TEST_F(Selecting, SuspendingComesTooLateForAPassThatIsGranted) {
    world.agent("fan").event("early");
    world.enable("boot");

    world.suspend("boot");
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
    EXPECT_FALSE(world.instanceStatus("boot")->suspended());
}

TEST_F(Selecting, AnInstanceThatIsSuspendedFromTheStartStartsNothing) {
    world.agent("fan").event("early");
    world.suspend("boot");

    world.enable("boot");
    world.settle();

    EXPECT_EQ(world.log("boot"), Lines({"app stages started"}));
    EXPECT_TRUE(world.instanceStatus("boot")->suspended());
}

TEST_F(Selecting, SuspendingOneInstanceLeavesAnother) {
    world.agent("fan").event("early");
    world.suspend("boot");
    world.enable("boot");
    world.enable("spare");

    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines());
    EXPECT_EQ(world.activeStages("spare"), Lines({"early"}));
}

// --- active stages ------------------------------------------------------------------------------

TEST_F(Selecting, AnActiveStageHasARunningReactorInsteadOfAWaitingOne) {
    world.agent("fan").event("early");
    world.enable("boot");
    ASSERT_NE(world.stageEnableSm("boot", "early"), nullptr);
    ASSERT_EQ(world.stageSm("boot", "early"), nullptr);
    world.trace();

    world.settle();

    EXPECT_EQ(world.stageEnableSm("boot", "early"), nullptr);
    ASSERT_NE(world.stageSm("boot", "early"), nullptr);
    EXPECT_EQ(world.stageSm("boot", "early")->arguments(),
              std::tuple(Ptr<const Stage::StageStatus>(world.stage("early")), Orv::String("boot"),
                         world.instance("boot")->logSm(), world.agentStatusLocal()));
    EXPECT_EQ(world.stageSm("boot", "early")->mainSm(), world.instance("boot"));
    EXPECT_TRUE(world.progress("boot")->stage("early"));
    EXPECT_TRUE(
        traced(world, 9, "Replacing Stage Enable Sm with Stage Sm for early instanceName boot"));
    EXPECT_TRUE(traced(world, 8, " for stage early"));
}

TEST_F(Selecting, AStageThatSomebodyElseActivatesRunsAsWell) {
    world.agent("fan").event("early", {.dependsOn = {"never"}});
    world.enable("boot");
    world.settle();

    world.instanceStatus("boot")->activeStageIs(world.stage("early"));

    EXPECT_EQ(world.log("boot"), Lines({"app stages started", "  event early:fan started"}));
    EXPECT_EQ(world.stageEnableSm("boot", "early"), nullptr);
    EXPECT_TRUE(world.progress("boot")->stage("early"));
}

TEST_F(Selecting, RemovingAnActiveStageLeavesItsReactor) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Ptr<Stage::StageSm> running(world.stageSm("boot", "early"));
    world.observe();

    world.instanceStatus("boot")->activeStageDel("early");

    EXPECT_EQ(world.stageSm("boot", "early"), running.get());
    EXPECT_EQ(world.stageEnableSm("boot", "early"), nullptr);
    EXPECT_TRUE(world.progress("boot")->stage("early"));
    EXPECT_EQ(world.observed(), Lines({"/stage/app/status/instStatus/boot/activeStage[early] -"}));

    world.agent("fan").report("early", "boot");
    EXPECT_TRUE(running->complete());
}

TEST_F(Selecting, AnActiveStageThatWasRemovedIsStartedAgainByItsLineAlone) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Ptr<Stage::StageSm> running(world.stageSm("boot", "early"));
    world.instanceStatus("boot")->activeStageDel("early");

    world.instance("boot")->doNextStage();
    world.settle();

    EXPECT_EQ(world.log("boot"), Lines({"app stages started", "stage early started",
                                        "  event early:fan started", "stage early started"}));
    EXPECT_EQ(world.stageSm("boot", "early"), running.get());
}

TEST_F(Selecting, AnActiveStageIsTakenUpOnce) {
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Ptr<Stage::StageSm> running(world.stageSm("boot", "early"));
    const Lines log = world.log("boot");

    world.instance("boot")->handleActiveStage("early");
    world.instance("boot")->handleActiveStage();
    world.instance("boot")->handleActiveStage("absent");

    EXPECT_EQ(world.stageSm("boot", "early"), running.get());
    EXPECT_EQ(world.log("boot"), log);
    EXPECT_EQ(world.stageSm("boot", "absent"), nullptr);
}

TEST_F(Selecting, ActiveStagesAreNotTakenUpBeforeTheStart) {
    world.agent("fan").event("early", {.dependsOn = {"never"}});
    world.enable("boot");
    world.settle();
    InstanceStatusSm* const instance = world.instance("boot");
    instance->initializedIs(false);
    world.trace();

    world.instanceStatus("boot")->activeStageIs(world.stage("early"));
    EXPECT_EQ(world.traced(8, "Not initialized. instanceName boot Return from").size(), 1u);
    instance->handleActiveStage();
    EXPECT_EQ(world.traced(8, "Not initialized.  Return from").size(), 1u);

    EXPECT_EQ(world.stageSm("boot", "early"), nullptr);
    EXPECT_NE(world.stageEnableSm("boot", "early"), nullptr);
}

TEST_F(Selecting, ProgressIsWrittenAfterTheStagesReactorIsMade) {
    world.agent("fan").event("early");
    world.enable("boot");
    bool running = false;
    world.when("/progress/boot/stage[early]",
               [&] { running = world.stageSm("boot", "early") != nullptr; });

    world.settle();

    EXPECT_TRUE(running);
}

}  // namespace
