// The children of reactors: which stay, which are replaced, and which refuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/World.h"

namespace {

using namespace StageTest;

using Orv::Ptr;

// The error that the call raises; empty when it raises none.
template <class Call>
std::string refusal(Call&& call) {
    try {
        call();
    } catch (const Orv::NameInUseError& e) {
        return e.what();
    }
    return "";
}

std::string refused(const std::string& parameter, const std::string& wanted,
                    const std::string& held) {
    return "Reinstantiating the pointer interface where constructor parameter attribute _" +
           parameter + " has a different value of " + wanted + " than the current value of " +
           held + " not allowed";
}

// Calls `is` with the arguments of which those from the `from`-th on are others.
template <std::size_t From, class Arguments, class Is, std::size_t... I>
auto callFrom(Is&& is, const Arguments& same, const Arguments& other, std::index_sequence<I...>) {
    return is((I < From ? std::get<I>(same) : std::get<I>(other))...);
}
// Calls `is` with the arguments of which the `at`-th alone is another.
template <std::size_t At, class Arguments, class Is, std::size_t... I>
auto callAt(Is&& is, const Arguments& same, const Arguments& other, std::index_sequence<I...>) {
    return is((I == At ? std::get<I>(other) : std::get<I>(same))...);
}

// For each argument: another one there alone is refused with an error that names it, and so it is
// when all that follow differ as well. The child stays.
template <class Arguments, class Is>
void expectRefusals(Is&& is, const Arguments& same, const Arguments& other, const Lines& names,
                    const Lines& heldTexts, const Lines& otherTexts) {
    constexpr std::size_t count = std::tuple_size_v<Arguments>;
    const auto held = std::apply(is, same);
    const auto expectAt = [&]<std::size_t At>(std::integral_constant<std::size_t, At>) {
        const std::string expected = refused(names[At], otherTexts[At], heldTexts[At]);
        EXPECT_EQ(refusal([&] { callAt<At>(is, same, other, std::make_index_sequence<count>()); }),
                  expected);
        EXPECT_EQ(
            refusal([&] { callFrom<At>(is, same, other, std::make_index_sequence<count>()); }),
            expected);
        EXPECT_EQ(std::apply(is, same), held);
        EXPECT_FALSE(held->retired());
    };
    [&]<std::size_t... At>(std::index_sequence<At...>) {
        (expectAt(std::integral_constant<std::size_t, At>()), ...);
    }
    (std::make_index_sequence<count>());
}

class ChildRules : public ::testing::Test {
  protected:
    ChildRules() {
        world.agent("fan").event("early", {.autoComplete = 60});
        world.enable("boot");
        world.settle();
    }
    Stage::StatusSm& statusSm() { return const_cast<Stage::StatusSm&>(*world.statusSm()); }
    Stage::ConfigSm& configSm() { return const_cast<Stage::ConfigSm&>(*world.configSm()); }

    World world;
};

TEST_F(ChildRules, AnInstanceWithOtherArgumentsIsRefused) {
    Stage::InstanceStatusSm& instance = *world.instance("boot");
    using Arguments = decltype(instance.arguments());
    const Arguments same = instance.arguments();
    const Arguments other{Orv::make<Stage::Config>("c"),
                          Orv::make<Stage::EnabledConfig>("e"),
                          Orv::make<Stage::Status>("s"),
                          Orv::make<Stage::CompletionStatus>("boot"),
                          Orv::make<Stage::Progress>("boot"),
                          Orv::make<Stage::Log>("l"),
                          Orv::make<Stage::StageGlobalConfig>("g"),
                          nullptr,
                          Orv::make<Stage::InstanceStatus>("boot"),
                          Orv::make<Stage::AgentStatusLocal>()};

    expectRefusals(
        [&](const auto&... args) { return statusSm().instStatusSmIs(args...); }, same, other,
        {"config", "enabledConfig", "status", "completionStatus", "progress", "log",
         "stageGlobalConfig", "fatalErrorRequest", "instanceStatus", "agentStatusLocal"},
        {"/stage/app/config/config", "/enable/app", "/stage/app/status",
         "/stage/app/completionstatus/status/boot", "/stage/app/progress/progress/boot",
         "/stage/app/log", "/global", "/fatalerror", "/stage/app/status/instStatus/boot",
         "/sm/stageMgr/app/agentStatusLocal"},
        {"Stage::Config", "Stage::EnabledConfig", "Stage::Status", "Stage::CompletionStatus",
         "Stage::Progress", "Stage::Log", "Stage::StageGlobalConfig", "null",
         "Stage::InstanceStatus", "Stage::AgentStatusLocal"});
    EXPECT_EQ(world.instance("boot"), &instance);
}

TEST_F(ChildRules, AStageWithOtherArgumentsIsRefused) {
    Stage::InstanceStatusSm& instance = *world.instance("boot");
    using Arguments = decltype(world.stageSm("boot", "early")->arguments());
    const Arguments same = world.stageSm("boot", "early")->arguments();
    const Arguments other{Orv::make<Stage::StageStatus>("early"), "other",
                          Orv::make<Stage::LogSm>(world.logs(), "boot"),
                          Orv::make<Stage::AgentStatusLocal>()};

    expectRefusals([&](const auto&... args) { return instance.stageSmIs(args...); }, same, other,
                   {"stage", "instanceName", "logSm", "agentStatusLocal"},
                   {"/stage/app/status/stage/early", "boot", "Stage::LogSm",
                    "/sm/stageMgr/app/agentStatusLocal"},
                   {"Stage::StageStatus", "other", "Stage::LogSm", "Stage::AgentStatusLocal"});
}

TEST_F(ChildRules, AnAutoCompletionWithOtherArgumentsIsRefused) {
    Stage::StageSm& stage = *world.stageSm("boot", "early");
    using Arguments = decltype(world.autoCompleteSm("boot", "early", "fan")->arguments());
    const Arguments same = world.autoCompleteSm("boot", "early", "fan")->arguments();
    const Arguments other{Orv::make<Stage::EventConfig>("early", "fan"), nullptr, "other",
                          Orv::make<Stage::AgentStatusLocal>()};

    expectRefusals(
        [&](const auto&... args) { return stage.autoCompleteSmIs(args...); }, same, other,
        {"eventConfig", "logSm", "instanceName", "agentStatusLocal"},
        {"/input/app/fan/event/early", "Stage::LogSm", "boot", "/sm/stageMgr/app/agentStatusLocal"},
        {"Stage::EventConfig", "null", "other", "Stage::AgentStatusLocal"});
}

TEST_F(ChildRules, AnAgentsStatusReactorWithOtherArgumentsIsRefused) {
    world.agent("fan").report("other", "boot");
    using Arguments = decltype(configSm().agentStatusSm().find("fan")->arguments());
    const Arguments same = configSm().agentStatusSm().find("fan")->arguments();
    const Arguments other{Orv::make<Orv::Dir>("d"), Orv::make<Stage::AgentStatus>("fan"),
                          Orv::make<Stage::AgentStatusLocal>()};

    expectRefusals([&](const auto&... args) { return configSm().agentStatusSmIs(args...); }, same,
                   other, {"agentConfigDir", "agentStatus", "agentStatusLocal"},
                   {"/input/app", "/agentstatus/app/fan", "/sm/stageMgr/app/agentStatusLocal"},
                   {"Orv::Dir", "Stage::AgentStatus", "Stage::AgentStatusLocal"});
}

TEST_F(ChildRules, AWatcherWithOtherArgumentsIsRefused) {
    Stage::StageMgrStageClassDirSm& top = *world.manager();
    const auto published = Orv::make<Stage::AvailableStageSubPaths>();
    const Ptr<const Orv::Dir> dir = world.root()->subdirIs("classes")->subdirIs("new");
    using Arguments =
        std::tuple<Orv::Name, Ptr<const Orv::Dir>, Ptr<Stage::AvailableStageSubPaths>>;
    const Arguments same{"new", dir, published};
    const Ptr<Stage::StageSubPathSm> held =
        std::apply([&](const auto&... args) { return top.stageSubPathSmIs(args...); }, same);

    EXPECT_EQ(top.stageSubPathSmIs("new", dir, published), held);
    EXPECT_EQ(refusal([&] { top.stageSubPathSmIs("new", world.stageDir(), published); }),
              refused("stageClassDir", "/stage", "/classes/new"));
    EXPECT_EQ(refusal([&] { top.stageSubPathSmIs("new", world.stageDir(), nullptr); }),
              refused("stageClassDir", "/stage", "/classes/new"));
    EXPECT_EQ(refusal([&] { top.stageSubPathSmIs("new", dir, nullptr); }),
              refused("availableStageSubPath", "null", "Stage::AvailableStageSubPaths"));
    EXPECT_EQ(top.stageSubPathSm().find("new"), held.get());
    EXPECT_FALSE(held->retired());

    top.stageSubPathSmDel("new");
    EXPECT_TRUE(held->retired());
    EXPECT_NE(top.stageSubPathSmIs("new", world.stageDir(), nullptr), nullptr);
}

TEST_F(ChildRules, AWaitingStageIsKeptWhateverStageItIsAskedFor) {
    Stage::InstanceStatusSm& instance = *world.instance("boot");
    const auto stage = Orv::make<Stage::StageStatus>("new");
    const Ptr<Stage::StageEnableSm> held = instance.stageEnableSmIs(stage);

    EXPECT_EQ(instance.stageEnableSmIs(stage), held);
    EXPECT_EQ(instance.stageEnableSmIs(Orv::make<Stage::StageStatus>("new")), held);
    EXPECT_EQ(held->stage(), stage.get());
    EXPECT_EQ(held->mainSm(), &instance);

    instance.stageEnableSmDel("new");
    EXPECT_EQ(held->mainSm(), nullptr);
    EXPECT_NE(instance.stageEnableSmIs(stage), held);
}

TEST_F(ChildRules, AManagerIsKept) {
    Stage::StageMgrStageClassDirSm& top = *world.manager();
    const Ptr<Stage::StageMgr> held = top.stageMgrIs("new");

    EXPECT_EQ(top.stageMgrIs("new"), held);
    EXPECT_NE(top.stageMgrIs("app"), held);
    EXPECT_EQ(held->path(), "/sm/stageMgr/new");
}

// For each argument: another one there alone replaces the child, and then the same keeps it.
template <class Arguments, class Is>
void expectReplacements(Is&& is, const Arguments& first, const Arguments& other) {
    constexpr std::size_t count = std::tuple_size_v<Arguments>;
    const auto expectAt = [&]<std::size_t At>(std::integral_constant<std::size_t, At>) {
        const auto held = std::apply(is, first);
        EXPECT_EQ(std::apply(is, first), held);
        EXPECT_FALSE(held->retired());

        const auto fresh = callAt<At>(is, first, other, std::make_index_sequence<count>());
        EXPECT_NE(fresh, held);
        EXPECT_TRUE(held->retired());
        EXPECT_EQ(callAt<At>(is, first, other, std::make_index_sequence<count>()), fresh);
        EXPECT_FALSE(fresh->retired());
    };
    [&]<std::size_t... At>(std::index_sequence<At...>) {
        (expectAt(std::integral_constant<std::size_t, At>()), ...);
    }
    (std::make_index_sequence<count>());
}

TEST_F(ChildRules, AConfigurationSideWithAnyOtherArgumentIsReplaced) {
    const auto manager = Stage::stageMgrFactory("other");
    using Arguments = decltype(configSm().arguments());
    const Arguments other{Orv::make<Stage::Config>("c"), Orv::make<Stage::Status>("s"),
                          Orv::make<Orv::Dir>("d"), Orv::make<Orv::Dir>("d"),
                          Orv::make<Stage::AgentStatusLocal>()};

    expectReplacements([&](const auto&... args) { return manager->configSmIs(args...); },
                       configSm().arguments(), other);
}

TEST_F(ChildRules, AStatusSideWithAnyOtherArgumentIsReplaced) {
    const auto manager = Stage::stageMgrFactory("other");
    using Arguments = decltype(statusSm().arguments());
    const Arguments other{Orv::make<Stage::Config>("c"),
                          Orv::make<Stage::EnabledConfig>("e"),
                          Orv::make<Stage::Status>("s"),
                          Orv::make<Stage::CompletionStatusDir>("d"),
                          Orv::make<Stage::ProgressDir>("p"),
                          Orv::make<Stage::Log>("l"),
                          Orv::make<Stage::StageGlobalConfig>("g"),
                          nullptr,
                          Orv::make<Stage::AgentStatusLocal>()};

    expectReplacements([&](const auto&... args) { return manager->statusSmIs(args...); },
                       statusSm().arguments(), other);
}

TEST_F(ChildRules, ALogWriterWithAnyOtherArgumentIsReplaced) {
    Stage::InstanceStatusSm& instance = *world.instance("boot");
    const std::tuple<Ptr<Stage::Log>, Orv::String> other{Orv::make<Stage::Log>("l"), "other"};

    expectReplacements([&](const auto&... args) { return instance.logSmIs(args...); },
                       instance.logSm()->arguments(), other);
}

TEST_F(ChildRules, ANestedReactorOnTheSameEntityIsKeptAndOneOnAnotherIsReplaced) {
    Stage::ConfigSm::OrvStageStatus* const stage = configSm().stageStatus("early");
    configSm().stageStatusIs(world.stage("early"));
    EXPECT_EQ(configSm().stageStatus("early"), stage);
    const Ptr<Stage::ConfigSm::OrvStageStatus> old(stage);
    const auto another = Orv::make<Stage::StageStatus>("early");
    configSm().stageStatusIs(another);
    EXPECT_NE(configSm().stageStatus("early"), old.get());
    EXPECT_EQ(configSm().stageStatus("early")->entity(), another.get());
    EXPECT_TRUE(old->retired());

    const Ptr<Stage::ConfigSm::OrvAgentConfig> agent(configSm().agentConfig("fan"));
    configSm().agentConfigIs(world.agent("fan").config());
    EXPECT_EQ(configSm().agentConfig("fan"), agent.get());
    configSm().agentConfigIs(Orv::make<Stage::AgentConfig>("fan"));
    EXPECT_NE(configSm().agentConfig("fan"), agent.get());
    EXPECT_TRUE(agent->retired());
}

TEST_F(ChildRules, AChildIsSwitchedOnOnlyOnceItIsStored) {
    // The stage's reactor does not hear of an event that joins while it is made: it looks for it
    // when it is switched on.
    Stage::InstanceStatusSm& instance = *world.instance("boot");
    const auto stage = Orv::make<Stage::StageStatus>("new");
    const Ptr<Stage::StageSm> byHand =
        Stage::stageSmFactory(stage, "boot", instance.logSm(), world.agentStatusLocal(), &instance);
    byHand->notificationActiveIs(false);
    stage->eventIs(Orv::make<Stage::EventConfig>("new", "fan"));
    EXPECT_TRUE(byHand->pendingEvent().empty());

    byHand->notificationActiveIs(true);
    EXPECT_EQ(byHand->pendingEvent().size(), 1u);
    stage->eventIs(Orv::make<Stage::EventConfig>("new", "disk"));
    EXPECT_EQ(byHand->pendingEvent().size(), 2u);
}

TEST(RetiredReactors, WatchNothingAlsoWhileSomebodyHoldsThem) {
    World world;
    world.agent("fan").event("early", {.critical = true, .autoComplete = 60});
    world.agent("fan").event("late", {.dependsOn = {"early"}});
    world.agent("net").request("early");
    world.enable("boot");
    world.settle();
    const Ptr<Stage::StageSm> running(world.stageSm("boot", "early"));
    const Ptr<Stage::AutoCompleteSm> autoCompletes(world.autoCompleteSm("boot", "early", "fan"));
    const std::vector<Ptr<Orv::PtrInterface>> others{
        Ptr<Orv::PtrInterface>(world.manager().get()),
        Ptr<Orv::PtrInterface>(world.stageMgr()),
        Ptr<Orv::PtrInterface>(world.configSm()),
        Ptr<Orv::PtrInterface>(world.configSm()->agentConfig("fan")),
        Ptr<Orv::PtrInterface>(world.configSm()->stageStatus("early")),
        Ptr<Orv::PtrInterface>(world.configSm()->agentStatusSm().find("net")),
        Ptr<Orv::PtrInterface>(world.statusSm()),
        Ptr<Orv::PtrInterface>(world.instance("boot")),
        Ptr<Orv::PtrInterface>(world.stageEnableSm("boot", "late"))};
    const Ptr<Stage::AgentStatusLocal> record = world.agentStatusLocal();
    const Ptr<Stage::InstanceStatus> instance = world.instanceStatus("boot");

    world.stop();  // the directory reactor is held, too, and is retired by hand
    dynamic_cast<Orv::Reactor&>(*others.front()).retire();
    world.trace(9);
    // Something of everything that they watched.
    for (const auto& dir : {world.stageDir(), world.System::inputDir(),
                            world.System::agentStatusDir(), world.enableDir()})
        dir->subdirIs("other");
    world.agent("disk").event("early");
    world.agent("disk").request("late");
    world.agent("fan").event("early", {.timeout = 5, .critical = false, .dependsOn = {"late"}});
    world.agent("fan").registered("early")->completeIs("boot", true);
    world.agent("net").request("late").report("early", "boot");
    record->completeIs({"net", "early", "boot"}, true);
    world.status()->stageIs("new");
    world.stage("early")->criticalIs(false);
    world.stage("early")->dependencyIs("new", true);
    world.stage("early")->eventDel("fan");
    world.stage("late")->criticalIs(true);
    world.stage("late")->dependencyDel("early");
    instance->activeStageIs(world.stage("late"));
    world.suspend("boot");
    world.disable("boot");
    world.hold("late");
    world.config()->globalStageCompletionTimeoutIs(1);
    world.advance(anHour);

    EXPECT_EQ(world.traced().size(), 0u)
        << world.traced().front().signature << world.traced().front().text;
    EXPECT_EQ(world.armedTimers(), 0u);
    EXPECT_TRUE(running->retired());
    EXPECT_TRUE(autoCompletes->retired());
}

}  // namespace
