#include "StageMgr/StatusSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/Error.h"
#include "tests/support/World.h"

namespace {

using Orv::make;
using Orv::Name;
using Orv::Ptr;
using StageTest::Lines;
using StageTest::System;
using StageTest::World;

// Which of an instance's five records there are: progress, completion status, instance status,
// reactor and log, each as its initial or a dot.
std::string records(const World& world, const char* instance) {
    return std::string(world.progress(instance) ? "P" : ".") +
           (world.completionStatus(instance) ? "C" : ".") +
           (world.instanceStatus(instance) ? "I" : ".") +
           (world.instance(instance) != nullptr ? "R" : ".") +
           (world.instanceLog(instance) ? "L" : ".");
}

constexpr const char* all = "PCIRL";
constexpr const char* none = ".....";

// --- enabling and disabling ---------------------------------------------------------------------

TEST(Enabling, MakesTheRecordsInOrder) {
    World world;
    world.agent("fan").event("early");
    world.observe();

    world.enable("boot");

    EXPECT_EQ(
        world.observed(),
        Lines({"/enable/app/enabled[boot] = true", "/stage/app/progress/progress[boot] +",
               "/stage/app/completionstatus/status[boot] +", "/stage/app/status/instStatus[boot] +",
               "/stage/app/status/instStatus/boot/progress = "
               "/stage/app/progress/progress/boot",
               "/stage/app/log/instanceLog[boot] +",
               "/stage/app/log/instanceLog/boot/log << app stages started"}));
}

TEST(Enabling, HandsTheInstanceItsRecords) {
    World world;
    world.enable("boot");

    EXPECT_EQ(
        world.instance("boot")->arguments(),
        std::tuple(Ptr<const Stage::Config>(world.config()),
                   Ptr<const Stage::EnabledConfig>(world.enabledConfig()), world.status(),
                   world.completionStatus("boot"), world.progress("boot"), world.logs(),
                   Ptr<const Stage::StageGlobalConfig>(world.globalConfig()), world.fatalError(),
                   world.instanceStatus("boot"), world.agentStatusLocal()));
    EXPECT_EQ(world.instanceStatus("boot")->progress(), world.progress("boot"));
}

TEST(Disabling, DeletesTheRecordsInOrder) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.observe();
    Lines reactor;
    const auto look = [&](const char* when) {
        reactor.push_back(std::string(world.instance("boot") != nullptr ? "there " : "gone ") +
                          when);
    };
    world.when("status[boot] -", [&] { look("when the completion status goes"); });
    world.when("instStatus[boot] -", [&] { look("when the instance status goes"); });

    world.disable("boot");

    EXPECT_EQ(world.observed(),
              Lines({"/enable/app/enabled[boot] -", "/stage/app/completionstatus/status[boot] -",
                     "/stage/app/status/instStatus[boot] -", "/stage/app/progress/progress[boot] -",
                     "/stage/app/log/instanceLog[boot] -"}));
    EXPECT_EQ(reactor, Lines({"there when the completion status goes",
                              "gone when the instance status goes"}));
    EXPECT_EQ(records(world, "boot"), none);
}

TEST(Disabling, AFalseMemberDeletesAsARemovedOneDoes) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.observe();

    world.enable("boot", false);

    EXPECT_EQ(
        world.observed(),
        Lines({"/enable/app/enabled[boot] = false", "/stage/app/completionstatus/status[boot] -",
               "/stage/app/status/instStatus[boot] -", "/stage/app/progress/progress[boot] -",
               "/stage/app/log/instanceLog[boot] -"}));
    EXPECT_EQ(records(world, "boot"), none);
}

TEST(Disabling, TakesTheTimersAlong) {
    World world({.deadline = 100});
    world.agent("fan").event("early", {.timeout = 30, .autoComplete = 20});
    world.enable("boot");
    world.settle();
    EXPECT_EQ(world.armedTimers(), 3u) << "deadline, stage timer, auto-completion";

    world.disable("boot");

    EXPECT_EQ(world.armedTimers(), 0u);
    world.advance(200);
    EXPECT_EQ(records(world, "boot"), none);
    EXPECT_EQ(world.messages(), Lines());
}

TEST(Disabling, AReportThatComesAfterwardsWritesNoLog) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    world.disable("boot");

    world.agent("fan").report("early", "boot");
    world.advance(1);

    EXPECT_EQ(records(world, "boot"), none);
}

TEST(Disabling, APassThatWasAskedForDoesNotRun) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");

    world.disable("boot");
    world.settle();

    EXPECT_EQ(records(world, "boot"), none);
}

TEST(Enabling, AgainAfterDisablingStartsFromTheBeginning) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.advance(5);
    world.disable("boot");

    world.enable("boot");
    world.advance(0);

    EXPECT_EQ(world.timedLog("boot"), Lines({"5 app stages started", "5 stage early started",
                                             "5   event early:fan started"}));
}

TEST(Enabling, AgainAfterCompletionStartsFromTheBeginning) {
    World world;
    world.agent("fan").event("early").report("early", "boot");
    world.enable("boot");
    world.settle();
    ASSERT_TRUE(world.instanceComplete("boot"));
    world.disable("boot");
    world.agent("fan").withdrawReport("early", "boot");

    world.enable("boot");
    world.settle();

    EXPECT_FALSE(world.instanceComplete("boot"));
    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started"}));
}

TEST(Enabling, AgainStartsFromTheFirstStagesSinceAllProgressIsGone) {
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");
    world.settle();
    ASSERT_EQ(world.activeStages("boot"), Lines({"early", "late"}));
    world.agent("fan").withdrawReport("early", "boot");
    world.disable("boot");

    world.enable("boot");
    EXPECT_EQ(world.activeStages("boot"), Lines());
    EXPECT_TRUE(world.progress("boot")->stage().empty());
    world.settle();

    EXPECT_EQ(world.activeStages("boot"), Lines({"early"}));
    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started"}));
    EXPECT_FALSE(world.progress("boot")->stage("late"));
}

TEST(Enabling, AgainFindsTheReportsThatStand) {
    // They are the class's, not the instance's.
    World world;
    world.agent("fan").event("early");
    world.agent("disk").event("late", {.dependsOn = {"early"}});
    world.enable("boot");
    world.settle();
    world.agent("fan").report("early", "boot");
    world.disable("boot");

    world.enable("boot");
    world.settle();

    EXPECT_EQ(world.log("boot"),
              Lines({"app stages started", "stage early started", "  event early:fan started",
                     "  event early:fan completed", "stage early is complete", "stage late started",
                     "  event late:disk started"}));
}

// Absent, false or true, for an instance that exists or does not.
TEST(Enabling, DependsOnTheMemberAlone) {
    enum class Member { absent, no, yes };
    struct Row {
        Member member;
        bool exists;
        const char* records;
    };
    const Row rows[] = {
        {Member::absent, false, none}, {Member::no, false, none}, {Member::yes, false, all},
        {Member::absent, true, none},  {Member::no, true, none},  {Member::yes, true, all},
    };
    for (const Row& row : rows) {
        World world;
        world.agent("fan").event("early");
        if (row.exists) {
            world.enable("boot");
            world.settle();
        }
        const Ptr<Stage::InstanceStatusSm> before(world.instance("boot"));

        if (row.member == Member::absent) {
            world.enable("boot");
            world.disable("boot");
        } else {
            world.enable("boot", row.member == Member::yes);
        }
        world.statusSm()->handleEnabled("boot");

        const std::string which = std::to_string(static_cast<int>(row.member)) +
                                  (row.exists ? " for one that exists" : " for one that does not");
        EXPECT_EQ(records(world, "boot"), row.records) << which;
        if (row.exists && row.member == Member::yes) {
            EXPECT_EQ(world.instance("boot"), before.get()) << which;
        }
    }
}

TEST(Enabling, AnInstanceThatRunsIsLeftAsItIs) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.settle();
    const Ptr<Stage::InstanceStatusSm> reactor(world.instance("boot"));
    const Ptr<Stage::InstanceStatus> status = world.instanceStatus("boot");
    const Lines log = world.log("boot");
    world.observe();

    world.enable("boot");
    world.statusSm()->handleEnabled("boot");
    world.statusSm()->handleEnabled();
    world.settle();

    EXPECT_EQ(world.observed(), Lines());
    EXPECT_EQ(world.instance("boot"), reactor.get());
    EXPECT_EQ(world.instanceStatus("boot"), status);
    EXPECT_EQ(world.log("boot"), log);
}

TEST(Enabling, InstancesAreIndependent) {
    World world;
    world.agent("fan").event("early");
    world.enable("boot");
    world.enable("spare");
    world.settle();

    world.disable("boot");

    EXPECT_EQ(records(world, "boot"), none);
    EXPECT_EQ(records(world, "spare"), all);
    EXPECT_EQ(world.log("spare"),
              Lines({"app stages started", "stage early started", "  event early:fan started"}));
}

TEST(Enabling, ClassesAreIndependent) {
    World world;
    StageTest::StageClass& net = world.stageClass("net");
    world.enable("boot");

    EXPECT_NE(world.instance("boot"), nullptr);
    EXPECT_EQ(net.instance("boot"), nullptr);

    net.enable("boot");
    world.disable("boot");
    world.settle();

    EXPECT_EQ(net.log("boot"), Lines({"net stages started", "net stages complete"}));
}

TEST(Enabling, AnyNameWillDo) {
    World world;
    for (const char* name : {"", "a/b", "~", "stage:agent", "\xff\n"}) {
        world.enable(name);
        world.settle();
        EXPECT_EQ(world.log(name), Lines({"app stages started", "app stages complete"}));
        world.disable(name);
        EXPECT_EQ(records(world, name), none);
    }
}

// Whoever watches the log disables the instance at each of its lines in turn.
TEST(Disabling, AtAnyLineOfItsOwnLogLeavesNothing) {
    const auto run = [](World& world) {
        world.agent("fan").event("early", {.timeout = 30, .critical = true});
        world.agent("disk").event("late",
                                  {.timeout = 100, .dependsOn = {"early"}, .autoComplete = 5});
        world.enable("boot");
        world.advance(40);
        world.agent("fan").report("early", "boot");
        world.advance(10);
    };
    const Lines lines{"app stages started",
                      "stage early started",
                      "  event early:fan started",
                      "stage early is complete (timeout)",
                      "  event early:fan completed",
                      "stage early is complete",
                      "stage late started",
                      "  event late:disk started",
                      "  event late:disk autocompleted",
                      "  event late:disk completed",
                      "stage late is complete",
                      "app stages complete"};
    {
        World undisturbed;
        run(undisturbed);
        ASSERT_EQ(undisturbed.log("boot"), lines);
    }
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        World world;
        bool disabled = false;
        world.when("log << " + line, [&] {
            world.disable("boot");
            disabled = true;
        });

        run(world);

        EXPECT_TRUE(disabled);
        EXPECT_EQ(records(world, "boot"), none);
        EXPECT_EQ(world.armedTimers(), 0u);
        EXPECT_EQ(world.errors(), Lines());
    }
}

TEST(Disabling, WhileTheRecordsAreMadeLeavesNothing) {
    for (const char* made : {"/progress[boot] +", "/status[boot] +", "/instStatus[boot] +",
                             "/boot/progress = ", "/instanceLog[boot] +"}) {
        SCOPED_TRACE(made);
        World world;
        world.when(made, [&] { world.disable("boot"); });

        world.enable("boot");
        world.settle();

        EXPECT_EQ(records(world, "boot"), none);
        EXPECT_EQ(world.errors(), Lines());
    }
}

// --- the start ----------------------------------------------------------------------------------

TEST(StatusSmStart, TakesInWhatIsEnabledAlready) {
    World world(System::Manager::waits);
    world.enable("boot");
    world.enable("spare");

    world.start();

    EXPECT_EQ(records(world, "boot"), all);
    EXPECT_EQ(records(world, "spare"), all);
    EXPECT_TRUE(world.statusSm()->initialized());
}

TEST(StatusSmStart, DeletesStaleStatusesAndProgressAndLeavesCompletionAndLogAlone) {
    World world(System::Manager::waits);
    world.status()->instStatusIs("stale");
    world.progressDir()->progressIs("stale");
    world.completionStatusDir()->statusIs("stale");
    world.logs()->instanceLogIs("stale");

    world.start();

    EXPECT_EQ(records(world, "stale"), ".C..L");
}

TEST(StatusSmStart, AnInstanceThatIsEnabledFalseLosesAllItsRecords) {
    World world(System::Manager::waits);
    world.enable("stale", false);
    world.status()->instStatusIs("stale");
    world.progressDir()->progressIs("stale");
    world.completionStatusDir()->statusIs("stale");
    world.logs()->instanceLogIs("stale");

    world.start();

    EXPECT_EQ(records(world, "stale"), none);
}

TEST(StatusSmStart, AnInstanceThatIsEnabledKeepsItsRecords) {
    World world(System::Manager::waits);
    world.enable("boot");
    const Ptr<Stage::InstanceStatus> status = world.status()->instStatusIs("boot");
    const Ptr<Stage::Progress> progress = world.progressDir()->progressIs("boot");
    const Ptr<Stage::CompletionStatus> completion = world.completionStatusDir()->statusIs("boot");
    const Ptr<Stage::InstanceLog> log = world.logs()->instanceLogIs("boot");

    world.start();

    EXPECT_EQ(world.instanceStatus("boot"), status);
    EXPECT_EQ(world.progress("boot"), progress);
    EXPECT_EQ(world.completionStatus("boot"), completion);
    EXPECT_EQ(world.instanceLog("boot"), log);
    EXPECT_EQ(status->progress(), progress);
}

TEST(StatusSmStart, EachStaleRecordGoesByItself) {
    World world(System::Manager::waits);
    world.enable("boot");
    world.status()->instStatusIs("one");
    world.status()->instStatusIs("other");
    world.progressDir()->progressIs("third");

    world.start();

    EXPECT_EQ(world.status()->instStatus().size(), 1u);
    EXPECT_EQ(world.progressDir()->progress().size(), 1u);
    EXPECT_EQ(records(world, "boot"), all);
}

TEST(StatusSmStart, StaleStatusesGoBeforeStaleProgressAndAfterWhatIsEnabled) {
    World world(System::Manager::waits);
    world.enable("boot");
    world.status()->instStatusIs("stale");
    world.progressDir()->progressIs("stale");
    world.observe();

    world.start();

    EXPECT_EQ(world.observed("boot] +").size(), 4u);
    const Lines& seen = world.observed();
    EXPECT_EQ(Lines(seen.end() - 2, seen.end()), Lines({"/stage/app/status/instStatus[stale] -",
                                                        "/stage/app/progress/progress[stale] -"}));
}

// --- what it watches ----------------------------------------------------------------------------

TEST(StatusSmReactor, AnotherEnabledConfigIsTakenInAtOnce) {
    World world;
    world.enable("boot");
    world.enable("both");
    const Ptr<Stage::InstanceStatusSm> both(world.instance("both"));
    const Ptr<Stage::EnabledConfig> other = make<Stage::EnabledConfig>("app");
    other->enabledIs("spare", true);
    other->enabledIs("off", false);

    world.statusSm()->enabledConfigIs(other);

    EXPECT_EQ(records(world, "boot"), none) << "not enabled there";
    EXPECT_EQ(records(world, "both"), none);
    EXPECT_EQ(records(world, "spare"), all);
    EXPECT_EQ(records(world, "off"), none);

    other->enabledIs("later", true);
    world.enable("of the old one");
    EXPECT_EQ(records(world, "later"), all);
    EXPECT_EQ(records(world, "of the old one"), none);
}

TEST(StatusSmReactor, TheSameEnabledConfigChangesNothing) {
    World world;
    world.enable("boot");
    world.observe();

    world.statusSm()->enabledConfigIs(world.enabledConfig());

    EXPECT_EQ(world.observed(), Lines());
}

TEST(StatusSmReactor, WithoutAnEnabledConfigNothingIsEnabled) {
    World world;

    world.statusSm()->enabledConfigIs(nullptr);
    world.enable("boot");
    world.statusSm()->handleEnabled("boot");

    EXPECT_EQ(records(world, "boot"), none);
}

TEST(StatusSmReactor, EnablingIsHandledBeforeItHasStarted) {
    // handleEnabled has no guard: the start itself calls it.
    World world(System::Manager::waits);
    world.enable("boot");
    bool initialized = true;
    world.when("/progress[boot] +", [&] {
        // The class's reactors are under construction then.
        initialized = world.statusSm() != nullptr;
    });

    world.start();

    EXPECT_FALSE(initialized);
    EXPECT_EQ(records(world, "boot"), all);
}

// --- its children -------------------------------------------------------------------------------

class InstanceReactors : public testing::Test {
  protected:
    // In the order in which an InstanceStatusSm takes them.
    struct Arguments {
        Ptr<const Stage::Config> config;
        Ptr<const Stage::EnabledConfig> enabledConfig;
        Ptr<Stage::Status> status;
        Ptr<Stage::CompletionStatus> completionStatus;
        Ptr<Stage::Progress> progress;
        Ptr<Stage::Log> log;
        Ptr<const Stage::StageGlobalConfig> stageGlobalConfig;
        Ptr<Stage::FatalError> fatalErrorRequest;
        Ptr<Stage::InstanceStatus> instanceStatus;
        Ptr<Stage::AgentStatusLocal> agentStatusLocal;
    };

    InstanceReactors() {
        world.enable("boot");
        same = {world.config(),
                world.enabledConfig(),
                world.status(),
                world.completionStatus("boot"),
                world.progress("boot"),
                world.logs(),
                world.globalConfig(),
                world.fatalError(),
                world.instanceStatus("boot"),
                world.agentStatusLocal()};
        held = Ptr<Stage::InstanceStatusSm>(world.instance("boot"));
    }

    Ptr<Stage::InstanceStatusSm> instStatusSmIs(const Arguments& a) {
        return world.statusSm()->instStatusSmIs(
            a.config, a.enabledConfig, a.status, a.completionStatus, a.progress, a.log,
            a.stageGlobalConfig, a.fatalErrorRequest, a.instanceStatus, a.agentStatusLocal);
    }
    // The text of the refusal; empty when there is none.
    std::string refusal(const Arguments& arguments) {
        try {
            instStatusSmIs(arguments);
            return "";
        } catch (const Orv::NameInUseError& error) {
            return error.what();
        }
    }
    static std::string refused(const std::string& parameter, const std::string& wanted,
                               const std::string& current) {
        return "Reinstantiating the pointer interface where constructor parameter attribute _" +
               parameter + " has a different value of " + wanted + " than the current value of " +
               current + " not allowed";
    }

    World world;
    Arguments same;
    Ptr<Stage::InstanceStatusSm> held;
};

TEST_F(InstanceReactors, OneWithTheSameArgumentsIsReturned) {
    EXPECT_EQ(instStatusSmIs(same), held);
    EXPECT_EQ(world.instance("boot"), held.get());
}

TEST_F(InstanceReactors, OneWithAnyOtherArgumentIsRefusedAndTheOldOneStays) {
    Arguments other = same;
    other.config = nullptr;
    EXPECT_EQ(refusal(other), refused("config", "null", "/stage/app/config/config"));
    other = same;
    other.enabledConfig = nullptr;
    EXPECT_EQ(refusal(other), refused("enabledConfig", "null", "/enable/app"));
    other = same;
    other.status = nullptr;
    EXPECT_EQ(refusal(other), refused("status", "null", "/stage/app/status"));
    other = same;
    other.completionStatus = nullptr;
    EXPECT_EQ(refusal(other),
              refused("completionStatus", "null", "/stage/app/completionstatus/status/boot"));
    other = same;
    other.progress = nullptr;
    EXPECT_EQ(refusal(other), refused("progress", "null", "/stage/app/progress/progress/boot"));
    other = same;
    other.log = nullptr;
    EXPECT_EQ(refusal(other), refused("log", "null", "/stage/app/log"));
    other = same;
    other.stageGlobalConfig = nullptr;
    EXPECT_EQ(refusal(other), refused("stageGlobalConfig", "null", "/global"));
    other = same;
    other.fatalErrorRequest = nullptr;
    EXPECT_EQ(refusal(other), refused("fatalErrorRequest", "null", "/fatalerror"));
    other = same;
    other.agentStatusLocal = nullptr;
    EXPECT_EQ(refusal(other),
              refused("agentStatusLocal", "null", "/sm/stageMgr/app/agentStatusLocal"));

    EXPECT_EQ(world.instance("boot"), held.get());
    EXPECT_EQ(instStatusSmIs(same), held);
}

TEST_F(InstanceReactors, AnotherStatusOfTheSameNameIsRefused) {
    Arguments other = same;
    world.status()->instStatusDel("boot");
    other.instanceStatus = world.status()->instStatusIs("boot");

    EXPECT_EQ(refusal(other), refused("instanceStatus", "/stage/app/status/instStatus/boot",
                                      "/stage/app/status/instStatus/boot"));
    EXPECT_EQ(world.instance("boot"), held.get());
}

TEST_F(InstanceReactors, TheFirstArgumentThatDiffersIsNamed) {
    Arguments other = same;
    other.agentStatusLocal = nullptr;
    other.progress = nullptr;
    other.log = nullptr;

    EXPECT_EQ(refusal(other), refused("progress", "null", "/stage/app/progress/progress/boot"));
}

TEST_F(InstanceReactors, OneForAnotherNameIsMade) {
    Arguments other = same;
    other.instanceStatus = make<Stage::InstanceStatus>("spare");

    const Ptr<Stage::InstanceStatusSm> spare = instStatusSmIs(other);

    EXPECT_NE(spare, held);
    EXPECT_EQ(world.instance("spare"), spare.get());
    EXPECT_EQ(spare->instanceName(), "spare");
}

TEST_F(InstanceReactors, AreDeletedByName) {
    world.statusSm()->instStatusSmDel("absent");
    EXPECT_EQ(world.instance("boot"), held.get());

    world.statusSm()->instStatusSmDel("boot");
    EXPECT_EQ(world.instance("boot"), nullptr);
}

// --- traces -------------------------------------------------------------------------------------

TEST(StatusSmTrace, EnablingAndDisablingAreOnLevelFour) {
    World world;
    world.trace(4);

    world.enable("boot");

    ASSERT_EQ(world.traced().size(), 1u);
    EXPECT_EQ(world.traced()[0].level, 4);
    EXPECT_EQ(world.traced()[0].signature, "void Stage::StatusSm::handleEnabled(Orv::String)");

    world.forgetTraced();
    world.disable("boot");

    ASSERT_EQ(world.traced().size(), 3u);
    EXPECT_EQ(world.traced()[0].signature, "void Stage::StatusSm::handleEnabled(Orv::String)");
    EXPECT_EQ(world.traced()[1].level, 4);
    EXPECT_EQ(world.traced()[1].text, " deleting progress");
    EXPECT_EQ(world.traced()[2].level, 4);
    EXPECT_EQ(world.traced()[2].text, " deleting logs");
}

TEST(StatusSmTrace, DeletionsAreTracedBeforeTheyAreMade) {
    World world;
    world.enable("boot");
    world.trace(4);
    Lines traced;
    world.when("progress[boot] -", [&] { traced = world.traced(4); });

    world.disable("boot");

    EXPECT_EQ(traced.back(), " deleting progress");
}

TEST(StatusSmTrace, TheStartIsOnLevelFour) {
    World world(System::Manager::waits);
    world.trace(4);

    world.start();

    ASSERT_EQ(world.traced().size(), 1u);
    EXPECT_EQ(world.traced()[0].level, 4);
    EXPECT_EQ(world.traced()[0].signature, "void Stage::StatusSm::handleInitialized()");
}

}  // namespace
