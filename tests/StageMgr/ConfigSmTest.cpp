// Registration: how agents' events become stages.
#include "StageMgr/ConfigSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Orv::Ptr;

template <class Map>
Lines keys(const Map& map) {
    Lines names;
    for (const auto& [key, value] : map) names.push_back(key.str());
    return names;
}

Ptr<Stage::ConfigSm> configSmOn(const World& world) {
    return Stage::configSmFactory(world.config(), world.status(), world.inputDir(),
                                  world.agentStatusDir(), Orv::make<Stage::AgentStatusLocal>());
}

Lines agentsTracked(const Stage::ConfigSm& configSm, const Lines& candidates) {
    Lines tracked;
    for (const std::string& agent : candidates)
        if (configSm.agentConfig(agent) != nullptr) tracked.push_back(agent);
    return tracked;
}

// --- adding
// ---------------------------------------------------------------------------------------

TEST(Registration, AnEventForAStageThatDoesNotExistMakesTheStageWithItsEventAndItsLimit) {
    World world;
    world.observe();

    world.agent("fan").appears({{"early", {.timeout = 30}}});

    ASSERT_NE(world.stage("early"), nullptr);
    EXPECT_EQ(world.event("early", "fan"), world.agent("fan").registered("early"));
    EXPECT_EQ(world.stage("early")->timeout(), 30);
    EXPECT_THAT(world.observed("/stage/app/status"),
                ElementsAre("/stage/app/status/stage[early] +",
                            "/stage/app/status/stage/early/event[fan] = /input/app/fan/event/early",
                            "/stage/app/status/stage/early/timeout = 30"));
}

TEST(Registration, AddingAStageAndAnEventIsTracedAtLevel7) {
    World world;
    world.trace(7);

    world.agent("fan").appears({{"early", {}}});
    EXPECT_THAT(world.traced(7),
                ElementsAre("Adding stage early to status.", "Adding event fan to stage early"));
    world.forgetTraced();

    world.agent("disk").appears({{"early", {}}});
    EXPECT_THAT(world.traced(7), ElementsAre("Adding event disk to stage early"));
}

TEST(Registration, EventsOfSeveralAgentsStandUnderTheirAgentsNames) {
    World world;
    world.agent("fan").event("early").event("late");
    world.agent("disk").event("early");

    EXPECT_EQ(keys(world.stage("early")->event()), Lines({"fan", "disk"}));
    EXPECT_EQ(keys(world.stage("late")->event()), Lines({"fan"}));
}

TEST(Registration, AnEventThatIsAddedLaterJoinsItsStage) {
    World world;
    world.agent("fan").event("early");
    EXPECT_EQ(world.stage("late"), nullptr);

    world.agent("fan").event("late");

    EXPECT_NE(world.event("late", "fan"), nullptr);
}

TEST(Registration, AnAgentThatIsListedAlreadyIsLeftAlone) {
    World world;
    world.agent("fan").event("early");
    world.trace(9);

    const_cast<Stage::ConfigSm::OrvAgentConfig*>(world.configSm()->agentConfig("fan"))
        ->handleEvent("early");

    EXPECT_THAT(world.traced(7), IsEmpty());
    EXPECT_THAT(world.traced(8), ElementsAre("fan(event:early)"));
}

TEST(Registration, AStageThatTheAgentNeverListedChangesNothing) {
    World world;
    world.agent("fan").event("early");
    world.observe();

    world.configSm()->agentConfig("fan")->handleEvent("other");

    EXPECT_EQ(world.stage("other"), nullptr);
    EXPECT_THAT(world.observed(), IsEmpty());
}

TEST(Registration, AnEventWithALowerLimitLeavesTheStagesLimit) {
    World world;
    world.agent("fan").appears({{"early", {.timeout = 120}}});

    world.agent("disk").appears({{"early", {.timeout = 30}}});

    EXPECT_EQ(world.stage("early")->timeout(), 120);
}

TEST(Registration, AnEventWithAHigherLimitRaisesTheStagesLimit) {
    World world;
    world.agent("fan").appears({{"early", {.timeout = 30}}});

    world.agent("disk").appears({{"early", {.timeout = 120}}});

    EXPECT_EQ(world.stage("early")->timeout(), 120);
}

TEST(Registration, AnEventOfAnotherAgentsNameStandsUnderThatAndRaisesTheLimitAsAny) {
    // The limit is one that a recomputation narrows to less.
    World world;
    const auto config = Orv::make<Stage::AgentConfig>("fan");
    const Ptr<Stage::EventConfig> event = config->eventIs("early", "disk");
    event->timeoutIs(0.7);

    world.inputDir()->entryIs(config);

    EXPECT_EQ(keys(world.stage("early")->event()), Lines({"disk"}));
    EXPECT_EQ(world.event("early", "disk"), event);
    EXPECT_EQ(world.stage("early")->timeout(), 0.7);
}

// --- removing
// -------------------------------------------------------------------------------------

TEST(Registration, AnEventThatGoesLeavesItsStageWhichStays) {
    World world;
    world.agent("fan").event("early");
    world.trace(7);

    world.agent("fan").withdraw("early");

    EXPECT_THAT(world.traced(7), ElementsAre("Deleting fan from early"));
    ASSERT_NE(world.stage("early"), nullptr);
    EXPECT_TRUE(world.stage("early")->event().empty());
    EXPECT_NE(world.configSm()->stageStatus("early"), nullptr);
}

TEST(Registration, AnAgentWhoseEntryGoesIsWithdrawnFromAllItsStages) {
    World world;
    world.agent("fan").event("early").event("late");
    world.agent("disk").event("early");

    world.agent("fan").leave();

    EXPECT_EQ(world.configSm()->agentConfig("fan"), nullptr);
    EXPECT_EQ(keys(world.stage("early")->event()), Lines({"disk"}));
    EXPECT_TRUE(world.stage("late")->event().empty());
}

TEST(Registration, AnAgentThatComesAgainIsRegisteredAnew) {
    World world;
    world.agent("fan").event("early");
    const Ptr<Stage::EventConfig> before = world.event("early", "fan");
    world.agent("fan").leave();

    world.agent("fan").event("early");

    EXPECT_NE(world.event("early", "fan"), nullptr);
    EXPECT_NE(world.event("early", "fan"), before);
    EXPECT_NE(world.configSm()->agentConfig("fan"), nullptr);
}

TEST(Registration, AnEntryOfAnotherTypeIsNoAgent) {
    World world;
    world.inputDir()->entryIs("fan", "Stage::AgentStatus");
    world.inputDir()->subdirIs("disk");

    EXPECT_EQ(agentsTracked(*world.configSm(), {"fan", "disk"}), Lines());
    EXPECT_THAT(world.errors(), IsEmpty());
}

// --- at the start
// ---------------------------------------------------------------------------------

TEST(ConfigSmConstruction, TakesInWhatIsThere) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("disk").report("early", "boot");
    world.status()->stageIs("empty");

    const auto configSm = configSmOn(world);

    EXPECT_NE(configSm->agentConfig("fan"), nullptr);
    EXPECT_NE(configSm->stageStatus("early"), nullptr);
    EXPECT_NE(configSm->stageStatus("empty"), nullptr);
    EXPECT_EQ(keys(configSm->agentStatusSm().map()), Lines({"disk"}));
    EXPECT_TRUE(configSm->initialized());
}

TEST(ConfigSmConstruction, TakesInAgentsThenStagesThenReports) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("fan").report("early", "boot");
    world.status()->stageIs("empty");
    world.trace(8);

    const auto configSm = configSmOn(world);

    Lines order;
    for (const TraceLine& line : world.traced()) {
        const std::string name = line.signature.substr(0, line.signature.find('('));
        if (name.find("ConfigSm::handle") != std::string::npos || line.text.find("empty") == 11)
            order.push_back(line.handler + (line.handler == "handleCritical" ? line.text : ""));
        if (name.find("AgentStatusSm::handleInitialized") != std::string::npos)
            order.push_back("AgentStatusSm");
    }
    EXPECT_THAT(order,
                ElementsAre("handleAgent", "handleAgent", "handleStage",  // fan, and stage early
                            "handleAgent",                                // the second pass: fan
                            "handleCritical for stage empty critical=0", "handleInitialized",
                            "handleAgentStatus", "handleAgentStatus", "AgentStatusSm"));
}

TEST(ConfigSmConstruction, WithoutAConfigLeavesAgentsAlone) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");

    const auto configSm =
        Stage::configSmFactory(nullptr, world.status(), world.inputDir(), world.agentStatusDir(),
                               Orv::make<Stage::AgentStatusLocal>());

    EXPECT_EQ(configSm->agentConfig("fan"), nullptr);
    // The directory is watched all the same.
    world.agent("disk").event("early");
    EXPECT_NE(configSm->agentConfig("disk"), nullptr);
}

TEST(ConfigSmConstruction, WithoutAStatusMakesNoStages) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");

    const auto configSm =
        Stage::configSmFactory(world.config(), nullptr, world.inputDir(), world.agentStatusDir(),
                               Orv::make<Stage::AgentStatusLocal>());

    EXPECT_NE(configSm->agentConfig("fan"), nullptr);
    EXPECT_EQ(world.stage("early"), nullptr);
    configSm->handleStage("early");
}

TEST(ConfigSmConstruction, WithoutAnAgentDirectoryTracksNoAgents) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("fan").report("early", "boot");

    const auto configSm =
        Stage::configSmFactory(world.config(), world.status(), nullptr, world.agentStatusDir(),
                               Orv::make<Stage::AgentStatusLocal>());

    EXPECT_EQ(configSm->agentConfig("fan"), nullptr);
    EXPECT_EQ(keys(configSm->agentStatusSm().map()), Lines({"fan"}));
    configSm->handleAgent("fan");
}

TEST(ConfigSmConstruction, WithoutAnAgentStatusDirectoryTracesThatAtLevel0) {
    World world(System::Manager::waits);
    world.trace(0);

    const auto configSm = Stage::configSmFactory(world.config(), world.status(), world.inputDir(),
                                                 nullptr, Orv::make<Stage::AgentStatusLocal>());

    EXPECT_THAT(world.traced(0), ElementsAre("handleAgentStatus agentStatusDir is NULL"));
    EXPECT_TRUE(configSm->initialized());
}

TEST(ConfigSmConstruction, WithoutAnAgentStatusDirectoryKeepsRegistrationsByRequest) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("fan").config()->createdOnStageRequestIs(true);

    const auto configSm = Stage::configSmFactory(world.config(), world.status(), world.inputDir(),
                                                 nullptr, Orv::make<Stage::AgentStatusLocal>());

    EXPECT_NE(configSm->agentConfig("fan"), nullptr);
    EXPECT_NE(world.agent("fan").config(), nullptr);
}

TEST(ConfigSmConstruction, OnNothingAtAllDoesNothing) {
    const auto configSm = Stage::configSmFactory(nullptr, nullptr, nullptr, nullptr, nullptr);

    EXPECT_TRUE(configSm->initialized());
    configSm->handleAgent();
    configSm->handleAgent("fan");
    configSm->handleAgentStatus("fan");
    configSm->handleGlobalStageCompletionTimeout();
    EXPECT_TRUE(configSm->agentStatusSm().empty());
}

TEST(ConfigSmConstruction, TakesTheAgentOutOfStagesThatItNoLongerLists) {
    World world(System::Manager::waits);
    world.agent("fan").event("early").event("late");
    const Ptr<Stage::EventConfig> old = world.agent("fan").registered("late");
    world.status()->stageIs("early")->eventIs(world.agent("fan").registered("early"));
    world.status()->stageIs("late")->eventIs(old);
    world.agent("fan").withdraw("late");

    const auto configSm = configSmOn(world);

    // The stage's reactor did not exist yet when the agent was taken in; it still lists the event.
    EXPECT_EQ(keys(world.stage("late")->event()), Lines({"fan"}));

    // From then on it is found.
    configSm->agentConfig("fan")->handleEvent();
    EXPECT_TRUE(world.stage("late")->event().empty());
    EXPECT_EQ(keys(world.stage("early")->event()), Lines({"fan"}));
}

// An entry of the agent directory is tracked, left alone or dropped by what it is and by what the
// agent's status is, whether it was tracked before or not.
TEST(AgentEntry, EachIsTrackedOrDroppedByItsKindAndItsAgentsStatus) {
    enum Entry { nothing, anotherType, ownRegistration, byRequest };
    enum AgentsStatus { none, ofAnotherType, present, noDirectory };
    struct Row {
        Entry entry;
        AgentsStatus status;
        bool tracked;
        bool stays;
    };
    const Row rows[] = {
        {nothing, none, false, false},          {nothing, ofAnotherType, false, false},
        {nothing, present, false, false},       {nothing, noDirectory, false, false},
        {anotherType, none, false, true},       {anotherType, ofAnotherType, false, true},
        {anotherType, present, false, true},    {anotherType, noDirectory, false, true},
        {ownRegistration, none, true, true},    {ownRegistration, ofAnotherType, true, true},
        {ownRegistration, present, true, true}, {ownRegistration, noDirectory, true, true},
        {byRequest, none, false, false},        {byRequest, ofAnotherType, false, false},
        {byRequest, present, true, true},       {byRequest, noDirectory, true, true},
    };
    for (const Row& row : rows) {
        for (const bool trackedBefore : {false, true}) {
            SCOPED_TRACE(std::to_string(row.entry) + std::to_string(row.status) +
                         (trackedBefore ? " tracked before" : ""));
            World world(System::Manager::waits);
            if (row.status == ofAnotherType)
                world.agentStatusDir()->entryIs("fan", "Stage::AgentConfig");
            if (row.status == present) world.agentStatusDir()->entryIs("fan", "Stage::AgentStatus");
            const auto configSm =
                Stage::configSmFactory(world.config(), world.status(), world.inputDir(),
                                       row.status == noDirectory ? nullptr : world.agentStatusDir(),
                                       Orv::make<Stage::AgentStatusLocal>());
            if (trackedBefore) configSm->agentConfigIs(Orv::make<Stage::AgentConfig>("fan"));
            if (row.entry == anotherType) world.inputDir()->entryIs("fan", "Stage::AgentStatus");
            if (row.entry == ownRegistration || row.entry == byRequest) {
                const auto config = Orv::make<Stage::AgentConfig>("fan");
                config->createdOnStageRequestIs(row.entry == byRequest);
                world.inputDir()->entryIs(config);
            }

            configSm->handleAgent("fan");

            EXPECT_EQ(configSm->agentConfig("fan") != nullptr, row.tracked);
            EXPECT_EQ(world.inputDir()->entries().contains("fan"), row.stays);
        }
    }
}

TEST(AgentEntry, AllAreLookedAtTogetherAndThenThoseThatAreTrackedWithoutOne) {
    World world;
    world.agent("fan").event("early");
    world.configSm()->agentConfigIs(Orv::make<Stage::AgentConfig>("gone"));
    world.trace(8);

    world.configSm()->handleAgent();

    EXPECT_EQ(agentsTracked(*world.configSm(), {"fan", "gone"}), Lines({"fan"}));
    Lines looks;
    for (const TraceLine& line : world.traced())
        if (line.handler == "handleAgent" && line.text.starts_with("("))
            looks.push_back(line.text.substr(0, line.text.find(')') + 1));
    EXPECT_EQ(looks, Lines({"(fan)", "(fan)", "(gone)"}));
}

// --- the stages' reactors
// -------------------------------------------------------------------------

TEST(StageReactors, ComeAndGoWithTheStages) {
    World world;
    world.status()->stageIs("early");
    EXPECT_NE(world.configSm()->stageStatus("early"), nullptr);

    world.status()->stageDel("early");
    EXPECT_EQ(world.configSm()->stageStatus("early"), nullptr);
}

TEST(StageReactors, EveryReactorHearsOfAStageThatComesOrGoes) {
    World world;
    world.status()->stageIs("early");
    world.status()->stageIs("late");
    world.trace(8);

    world.status()->stageIs("new");
    EXPECT_THAT(world.traced(8, " stage="), ElementsAre(" stage=new"));
    EXPECT_THAT(
        world.traced(8, " detected stage new"),
        ElementsAre(" for stage early detected stage new", " for stage late detected stage new",
                    " for stage new detected stage new"));
    world.forgetTraced();

    world.status()->stageDel("early");
    EXPECT_THAT(
        world.traced(8, " detected stage "),
        ElementsAre(" for stage late detected stage early", " for stage new detected stage early"));
}

TEST(StageReactors, TheWholeCollectionIsMatchedWithoutTellingThem) {
    World world;
    world.status()->stageIs("early");
    world.trace(8);

    const_cast<Stage::ConfigSm*>(world.configSm())->handleStatus();

    EXPECT_THAT(world.traced(8, " stage="), IsEmpty());
    EXPECT_NE(world.configSm()->stageStatus("early"), nullptr);
}

TEST(StageReactors, FollowTheEventsThatOthersPutIntoAStage) {
    World world;
    world.agent("fan").event("early", {.timeout = 60});
    const Ptr<Stage::EventConfig> event = world.agent("fan").registered("early");
    const Ptr<Stage::StageStatus> other = world.status()->stageIs("other");

    other->eventIs(event);
    EXPECT_EQ(other->timeout(), 60);
    event->timeoutIs(90);
    EXPECT_EQ(other->timeout(), 90);

    other->eventDel("fan");
    event->timeoutIs(120);
    EXPECT_EQ(other->timeout(), 90);
    EXPECT_EQ(world.stage("early")->timeout(), 120);
}

TEST(StageReactors, AnEventThatIsReplacedByAnotherOfItsAgentIsFollowedInstead) {
    World world;
    world.agent("fan").event("early", {.timeout = 60}).event("late", {.timeout = 30});
    const Ptr<Stage::EventConfig> early = world.agent("fan").registered("early");
    const Ptr<Stage::EventConfig> late = world.agent("fan").registered("late");

    world.stage("early")->eventIs(late);

    EXPECT_EQ(world.stage("early")->timeout(), 30);
    early->timeoutIs(500);
    EXPECT_EQ(world.stage("early")->timeout(), 30);
    late->timeoutIs(40);
    EXPECT_EQ(world.stage("early")->timeout(), 40);
}

TEST(StageReactors, FollowAnEventUnderTheNameUnderWhichItStandsAlthoughItsAgentGotAnother) {
    World world(System::Manager::waits);
    world.agent("fan").event("early", {.timeout = 30});
    const Ptr<Stage::EventConfig> event = world.agent("fan").registered("early");
    world.status()->stageIs("early")->eventIs(event);
    event->agentIs("disk");
    world.start();
    ASSERT_EQ(keys(world.stage("early")->event()), Lines({"fan"}));

    event->timeoutIs(90);
    EXPECT_EQ(world.stage("early")->timeout(), 90);

    world.stage("early")->eventDel("fan");
    event->timeoutIs(120);
    EXPECT_EQ(world.stage("early")->timeout(), 90) << "it is out of the stage";
}

TEST(StageReactors, TheWholeCollectionOfEventsIsMatched) {
    World world;
    world.agent("fan").event("early");
    Stage::ConfigSm::OrvStageStatus& reactor = *world.configSm()->stageStatus("early");
    const auto held = [&] {
        return Stage::ConfigSm::OrvStageStatus::type()
            .attribute("eventConfig")
            ->keys(reactor)
            .size();
    };
    EXPECT_EQ(held(), 1u);
    reactor.eventConfigDel("fan");
    EXPECT_EQ(held(), 0u);

    reactor.handleEvent();
    EXPECT_EQ(held(), 1u);
}

TEST(StageReactors, ANewEventTakesInItsDependenciesThenItsLimitThenItsCriticality) {
    World world;
    world.observe();

    world.agent("fan").appears(
        {{"early", {.timeout = 30, .critical = true, .dependsOn = {"base"}}}});

    EXPECT_THAT(world.observed("/stage/early/"),
                ElementsAre("/stage/app/status/stage/early/event[fan] = /input/app/fan/event/early",
                            "/stage/app/status/stage/early/dependency[base] = true",
                            "/stage/app/status/stage/early/timeout = 30",
                            "/stage/app/status/stage/early/critical = true"));
}

// --- registrations by request
// ---------------------------------------------------------------------

// An agent's registration that the manager made for its requests, with what it asked for.
World& withRequests(World& world, const Lines& stages) {
    for (const std::string& stage : stages) world.agent("fan").request(stage, 60);
    return world;
}

TEST(RegistrationByRequest, DoesNotOutliveItsAgentsStatus) {
    World world;
    withRequests(world, {"early", "late"});
    ASSERT_NE(world.agent("fan").config(), nullptr);
    ASSERT_TRUE(world.agent("fan").config()->createdOnStageRequest());
    world.trace(9);

    world.agent("fan").fallSilent();

    EXPECT_EQ(world.agent("fan").config(), nullptr);
    EXPECT_EQ(world.configSm()->agentConfig("fan"), nullptr);
    EXPECT_TRUE(world.configSm()->agentStatusSm().empty());
    EXPECT_TRUE(world.stage("early")->event().empty());
    EXPECT_TRUE(world.stage("late")->event().empty());
    EXPECT_THAT(world.traced(8, "dynamic"),
                ElementsAre("handleAgentStatus AgentConfig for agent: fan was created on dynamic "
                            "StageRequest. Deleting it."));
}

TEST(RegistrationByRequest, ClearsItsEventsBeforeItsEntryGoes) {
    World world;
    withRequests(world, {"early"});
    world.observe();

    world.agent("fan").fallSilent();

    EXPECT_THAT(
        world.observed("app/fan"),
        ElementsAre("- /agentstatus/app/fan", "/input/app/fan/event[early] -", "- /input/app/fan"));
}

TEST(RegistrationByRequest, IsDroppedRatherThanTrackedWhenItsAgentHasNoStatus) {
    World world;
    const auto config = Orv::make<Stage::AgentConfig>("fan");
    config->createdOnStageRequestIs(true);
    config->eventIs("early", "fan");
    world.trace(8);

    world.inputDir()->entryIs(config);

    EXPECT_EQ(world.agent("fan").config(), nullptr);
    EXPECT_EQ(world.configSm()->agentConfig("fan"), nullptr);
    EXPECT_EQ(world.stage("early"), nullptr);
    EXPECT_THAT(world.traced(8, "got deleted"),
                ElementsAre("handleAgent AgentStatus for agent fan got deleted"));
}

TEST(RegistrationByRequest, IsDroppedAtTheStartWhenItsAgentHasNoStatus) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("fan").config()->createdOnStageRequestIs(true);

    const auto configSm = configSmOn(world);

    EXPECT_EQ(world.agent("fan").config(), nullptr);
    EXPECT_EQ(configSm->agentConfig("fan"), nullptr);
    EXPECT_EQ(world.stage("early"), nullptr);
}

TEST(RegistrationByRequest, LosesAtTheStartWhatItsAgentNoLongerAsksFor) {
    World world(System::Manager::waits);
    world.agent("fan").event("kept").event("missing").event("blank");
    world.agent("fan").config()->createdOnStageRequestIs(true);
    world.agent("fan").request("kept", 60);
    world.agent("fan").status()->stageRequestIs("blank", {});
    world.trace(8);

    const auto configSm = configSmOn(world);

    EXPECT_EQ(keys(world.agent("fan").config()->event()), Lines({"kept"}));
    EXPECT_THAT(world.traced(8, "StageRequest for stage"),
                ElementsAre("handleAgentStatus StageRequest for stage missing got deleted",
                            "handleAgentStatus StageRequest for stage blank got deleted"));
    EXPECT_TRUE(world.stage("missing")->event().empty());
    EXPECT_EQ(keys(world.stage("kept")->event()), Lines({"fan"}));
}

TEST(RegistrationByRequest, IsNotThePruningOfAnAgentsOwnRegistration) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("fan").status();
    world.agentStatusDir()->entryIs("fan", "Stage::AgentStatus");

    const auto configSm = configSmOn(world);
    EXPECT_NE(world.agent("fan").registered("early"), nullptr);

    world.agent("fan").fallSilent();
    EXPECT_NE(world.agent("fan").registered("early"), nullptr);
    EXPECT_NE(configSm->agentConfig("fan"), nullptr);
}

TEST(RegistrationByRequest, AnAgentsStatusOfAnotherTypeCountsAsNone) {
    World world;
    world.agentStatusDir()->entryIs("fan", "Stage::AgentConfig");
    const auto config = Orv::make<Stage::AgentConfig>("fan");
    config->createdOnStageRequestIs(true);

    world.inputDir()->entryIs(config);

    EXPECT_EQ(world.agent("fan").config(), nullptr);
    EXPECT_TRUE(world.configSm()->agentStatusSm().empty());
}

// --- the agents' status reactors
// ------------------------------------------------------------------

TEST(StatusReactors, ComeAndGoWithTheAgentsStatus) {
    World world;
    world.agentStatusDir()->entryIs("fan", "Stage::AgentStatus");
    const Ptr<Stage::AgentStatusSm> reactor(world.configSm()->agentStatusSm().find("fan"));
    ASSERT_NE(reactor, nullptr);
    EXPECT_EQ(reactor->agentName(), "fan");
    EXPECT_EQ(
        reactor->arguments(),
        std::tuple(world.inputDir(), Ptr<const Stage::AgentStatus>(world.agent("fan").status()),
                   world.agentStatusLocal()));

    world.agent("fan").fallSilent();
    EXPECT_TRUE(world.configSm()->agentStatusSm().empty());
    EXPECT_TRUE(reactor->retired());
}

TEST(StatusReactors, AreMadeOnlyOnceAgentsAndStagesAreTakenIn) {
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agent("fan").report("early", "boot");
    const auto record = Orv::make<Stage::AgentStatusLocal>();

    const auto configSm = Stage::configSmFactory(world.config(), world.status(), world.inputDir(),
                                                 world.agentStatusDir(), record);

    // The report needs the registration, and found it.
    EXPECT_TRUE(record->complete({"fan", "early", "boot"}));
}

TEST(StatusReactors, AllAreLookedAtTogether) {
    World world;
    withRequests(world, {"early"});
    world.agent("disk").report("early", "boot");
    const Ptr<Stage::AgentStatusSm> before(world.configSm()->agentStatusSm().find("fan"));
    world.agent("fan").config()->eventIs("stale", "fan");

    world.configSm()->handleAgentStatus();

    EXPECT_EQ(keys(world.agent("fan").config()->event()), Lines({"early"}));
    EXPECT_EQ(world.configSm()->agentStatusSm().find("fan"), before.get());
    EXPECT_EQ(keys(world.configSm()->agentStatusSm().map()), Lines({"fan", "disk"}));
}

TEST(StatusReactors, ComeAtOnceForAStatusThatComesWhileAgentsAreTakenIn) {
    // Only the look at all of them waits until the rest is taken in.
    World world(System::Manager::waits);
    world.agent("fan").event("early");
    world.agentStatusDir()->entryIs("fan", "Stage::AgentStatus");
    world.when("/status/stage[early] +",
               [&] { world.agentStatusDir()->entryIs("disk", "Stage::AgentStatus"); });
    world.trace(8);

    const auto configSm = configSmOn(world);

    Lines order;
    for (const TraceLine& line : world.traced())
        if (line.handler == "handleAgentStatus" || line.handler == "handleInitialized")
            order.push_back(line.signature.substr(line.signature.find("Stage::")) + line.text);
    EXPECT_EQ(order,
              Lines({"Stage::ConfigSm::handleAgentStatus(Orv::Name)(disk)",
                     "Stage::AgentStatusSm::handleInitialized() agent disk",
                     "Stage::ConfigSm::handleInitialized()", "Stage::ConfigSm::handleAgentStatus()",
                     "Stage::ConfigSm::handleAgentStatus(Orv::Name)(fan)",
                     "Stage::AgentStatusSm::handleInitialized() agent fan",
                     "Stage::ConfigSm::handleAgentStatus(Orv::Name)(disk)"}));
}

TEST(ConfigSmMutators, RefuseNull) {
    World world;
    Stage::ConfigSm& configSm = const_cast<Stage::ConfigSm&>(*world.configSm());
    world.status()->stageIs("early");
    const auto text = [](auto&& call) -> std::string {
        try {
            call();
        } catch (const Orv::NullParameterError& e) {
            return e.what();
        }
        return "no error";
    };

    EXPECT_EQ(
        text([&] { configSm.stageStatusIs(nullptr); }),
        "null _stageStatus parameter to mutator for Stage::ConfigSm::stageStatus not allowed\"");
    EXPECT_EQ(
        text([&] { configSm.agentConfigIs(nullptr); }),
        "null _agentConfig parameter to mutator for Stage::ConfigSm::agentConfig not allowed\"");
    EXPECT_EQ(text([&] { configSm.stageStatus("early")->eventConfigIs(nullptr); }),
              "null _eventConfig parameter to mutator for "
              "Stage::ConfigSm::OrvStageStatus::eventConfig not allowed\"");
}

TEST(ConfigSmTracing, TheEntryTraceOfAnAgentTellsWhatWasFound) {
    World world;
    world.agent("fan").event("early");
    world.trace(8);

    const_cast<Stage::ConfigSm*>(world.configSm())->handleAgent("fan");
    const_cast<Stage::ConfigSm*>(world.configSm())->handleAgent("none");

    EXPECT_THAT(world.traced(8),
                ElementsAre("(fan)AgentDir: /input/appac: /input/app/fanac->createdOnStageRequest: "
                            "0AgentStatusDir: /agentstatus/app",
                            "(none)AgentDir: /input/appac: nullac->createdOnStageRequest: "
                            "0AgentStatusDir: /agentstatus/app"));
}

}  // namespace
