// Whatever is taken away, from inside whatever callback: nothing is used after it is gone, what is
// gone writes nothing more, and the rules that tie entities and reactors together hold afterwards.
//
// One progression, in which everything happens that can, runs again and again; each time something
// is taken away from inside the next of its callbacks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "runtime/TreeObserver.h"
#include "tests/support/World.h"

namespace {

using namespace StageTest;
using ::testing::IsEmpty;

using Orv::Name;
using Orv::Ptr;
using Orv::String;

using Tick = std::function<void()>;

// A notifiee per type of entity, which ticks in every callback.
class OnDir final : public Orv::Dir::NotifieeConst {
  public:
    explicit OnDir(const Tick& tick) : tick_(tick) {}
    void onEntityPtr(Name) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnAgentConfig final : public Stage::AgentConfig::NotifieeConst {
  public:
    explicit OnAgentConfig(const Tick& tick) : tick_(tick) {}
    void onEvent(Name) override { tick_(); }
    void onCreatedOnStageRequest() override { tick_(); }

  private:
    const Tick& tick_;
};
class OnEventConfig final : public Stage::EventConfig::NotifieeConst {
  public:
    explicit OnEventConfig(const Tick& tick) : tick_(tick) {}
    void onComplete(String) override { tick_(); }
    void onDependency(String) override { tick_(); }
    void onTimeout() override { tick_(); }
    void onCritical() override { tick_(); }

  private:
    const Tick& tick_;
};
class OnAgentStatus final : public Stage::AgentStatus::NotifieeConst {
  public:
    explicit OnAgentStatus(const Tick& tick) : tick_(tick) {}
    void onComplete(Stage::AgentStatusKey) override { tick_(); }
    void onStageRequest(String) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnAgentStatusLocal final : public Stage::AgentStatusLocal::NotifieeConst {
  public:
    explicit OnAgentStatusLocal(const Tick& tick) : tick_(tick) {}
    void onComplete(Stage::AgentStatusKey) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnEnabledConfig final : public Stage::EnabledConfig::NotifieeConst {
  public:
    explicit OnEnabledConfig(const Tick& tick) : tick_(tick) {}
    void onEnabled(String) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnStatus final : public Stage::Status::NotifieeConst {
  public:
    explicit OnStatus(const Tick& tick) : tick_(tick) {}
    void onStage(Name) override { tick_(); }
    void onInstStatus(Name) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnStageStatus final : public Stage::StageStatus::NotifieeConst {
  public:
    explicit OnStageStatus(const Tick& tick) : tick_(tick) {}
    void onEvent(String) override { tick_(); }
    void onDependency(String) override { tick_(); }
    void onTimeout() override { tick_(); }
    void onCritical() override { tick_(); }

  private:
    const Tick& tick_;
};
class OnInstanceStatus final : public Stage::InstanceStatus::NotifieeConst {
  public:
    explicit OnInstanceStatus(const Tick& tick) : tick_(tick) {}
    void onActiveStage(Name) override { tick_(); }
    void onProgress() override { tick_(); }
    void onComplete() override { tick_(); }
    void onSuspended() override { tick_(); }

  private:
    const Tick& tick_;
};
class OnCompletionStatusDir final : public Stage::CompletionStatusDir::NotifieeConst {
  public:
    explicit OnCompletionStatusDir(const Tick& tick) : tick_(tick) {}
    void onStatus(Name) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnCompletionStatus final : public Stage::CompletionStatus::NotifieeConst {
  public:
    explicit OnCompletionStatus(const Tick& tick) : tick_(tick) {}
    void onComplete() override { tick_(); }

  private:
    const Tick& tick_;
};
class OnProgressDir final : public Stage::ProgressDir::NotifieeConst {
  public:
    explicit OnProgressDir(const Tick& tick) : tick_(tick) {}
    void onProgress(Name) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnProgress final : public Stage::Progress::NotifieeConst {
  public:
    explicit OnProgress(const Tick& tick) : tick_(tick) {}
    void onStage(String) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnLog final : public Stage::Log::NotifieeConst {
  public:
    explicit OnLog(const Tick& tick) : tick_(tick) {}
    void onInstanceLog(Name) override { tick_(); }

  private:
    const Tick& tick_;
};
class OnInstanceLog final : public Stage::InstanceLog::NotifieeConst {
  public:
    explicit OnInstanceLog(const Tick& tick) : tick_(tick) {}
    void onLog() override { tick_(); }

  private:
    const Tick& tick_;
};
class OnFatalError final : public Stage::FatalError::NotifieeConst {
  public:
    explicit OnFatalError(const Tick& tick) : tick_(tick) {}
    void onRequestReboot() override { tick_(); }
    void onRebootReason() override { tick_(); }
    void onReloadCauseDesc() override { tick_(); }

  private:
    const Tick& tick_;
};

// Where the callbacks come from.
enum class From {
    observer,        // the tree's observer, before any notifiee
    firstNotifiees,  // notifiees that stand before the manager's, as far as they can
    lastNotifiees,   // notifiees that stand behind the manager's, as far as they can
};

// Watches everything: the tree, and each entity of it from the moment at which it is seen.
class Everywhere final : public Orv::TreeObserver {
  public:
    // seen: every change that the observer is told of, as "/path/attribute". tick: every callback
    // of the kind.
    Everywhere(From from, std::function<void(const std::string&)> seen, Tick tick)
        : from_(from), seen_(std::move(seen)), tick_(std::move(tick)) {}

    void watchAll(const Orv::Dir& dir) {
        watch(dir);
        for (const auto& [name, entity] : dir.entries()) watchEntity(*entity);
    }
    // Moves the notifiees behind those that came meanwhile.
    void stepDone() {
        if (from_ != From::lastNotifiees) return;
        for (const auto& again : again_) again();
    }

    void onScalar(const Orv::Entity& entity, const Orv::Attribute& attribute) override {
        saw(entity.path().str() + "/" + attribute.name());
    }
    void onMember(const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override {
        if (attribute.shape() == Orv::Attribute::Shape::instantiating)
            if (const Orv::Value member = attribute.member(entity, key); !member.absent())
                watchEntity(dynamic_cast<const Orv::Entity&>(**member.reference()));
        saw(entity.path().str() + "/" + attribute.name() +
            (key.string() != nullptr ? "[" + key.string()->str() + "]" : ""));
    }
    void onEnqueued(const Orv::Entity& entity, const Orv::Attribute& attribute) override {
        saw(entity.path().str() + "/" + attribute.name());
    }
    void onEntry(const Orv::Dir&, const Orv::Entity& entry, bool present) override {
        if (present) watchEntity(entry);
        saw(entry.path().str());
    }

  private:
    void saw(const std::string& path) {
        seen_(path);
        if (from_ == From::observer) tick_();
    }

    template <class On, class E>
    void connect(const E& entity) {
        auto notifiee = std::make_shared<On>(tick_);
        notifiee->notifierIs(Ptr<const E>(&entity));
        again_.push_back([notifiee] {
            notifiee->isRegisteredNotifieeIs(false);
            notifiee->isRegisteredNotifieeIs(true);
        });
    }
    template <class On, class E>
    bool connectIf(const Orv::Entity& entity) {
        const E* const found = dynamic_cast<const E*>(&entity);
        if (found != nullptr) connect<On>(*found);
        return found != nullptr;
    }

    void watch(const Orv::Entity& entity) {
        if (from_ == From::observer) return;
        connectIf<OnDir, Orv::Dir>(entity) ||
            connectIf<OnAgentConfig, Stage::AgentConfig>(entity) ||
            connectIf<OnEventConfig, Stage::EventConfig>(entity) ||
            connectIf<OnAgentStatus, Stage::AgentStatus>(entity) ||
            connectIf<OnAgentStatusLocal, Stage::AgentStatusLocal>(entity) ||
            connectIf<OnEnabledConfig, Stage::EnabledConfig>(entity) ||
            connectIf<OnStatus, Stage::Status>(entity) ||
            connectIf<OnStageStatus, Stage::StageStatus>(entity) ||
            connectIf<OnInstanceStatus, Stage::InstanceStatus>(entity) ||
            connectIf<OnCompletionStatusDir, Stage::CompletionStatusDir>(entity) ||
            connectIf<OnCompletionStatus, Stage::CompletionStatus>(entity) ||
            connectIf<OnProgressDir, Stage::ProgressDir>(entity) ||
            connectIf<OnProgress, Stage::Progress>(entity) ||
            connectIf<OnLog, Stage::Log>(entity) ||
            connectIf<OnInstanceLog, Stage::InstanceLog>(entity) ||
            connectIf<OnFatalError, Stage::FatalError>(entity);
    }
    // With all that stands below it.
    void watchEntity(const Orv::Entity& entity) {
        watch(entity);
        if (const auto* const dir = dynamic_cast<const Orv::Dir*>(&entity))
            for (const auto& [name, entry] : dir->entries()) watchEntity(*entry);
        for (const auto& attribute : entity.info().attributes()) {
            if (attribute->shape() != Orv::Attribute::Shape::instantiating) continue;
            for (const Orv::Value& key : attribute->keys(entity))
                watchEntity(
                    dynamic_cast<const Orv::Entity&>(**attribute->member(entity, key).reference()));
        }
    }

    From from_;
    std::function<void(const std::string&)> seen_;
    Tick tick_;
    std::vector<std::function<void()>> again_;
};

// What is taken away.
struct Loss {
    const char* name;
    std::function<void(World&)> take;
};

const Loss theInstance{"the instance is disabled", [](World& w) { w.enable("boot", false); }};
const Loss theInstancesMember{"the instance's member goes", [](World& w) { w.disable("boot"); }};
const Loss theInstanceForAMoment{"the instance is disabled and enabled again", [](World& w) {
                                     const bool was = w.enabledConfig()->enabled("boot");
                                     w.disable("boot");
                                     if (was) w.enable("boot");
                                 }};
const Loss theAgentsEntry{"an agent's registration goes",
                          [](World& w) { w.inputDir()->entryDel("fan"); }};
const Loss theRequestersEntry{"a registration by request goes",
                              [](World& w) { w.inputDir()->entryDel("net"); }};
const Loss theRequestersStatus{"a requesting agent's status goes",
                               [](World& w) { w.agentStatusDir()->entryDel("net"); }};
const Loss theStagesEvent{"a stage loses an event", [](World& w) {
                              if (w.stage("early")) w.stage("early")->eventDel("fan");
                          }};
const Loss theStage{"a stage goes", [](World& w) { w.status()->stageDel("late"); }};
const Loss theManager{"the manager is dropped", [](World& w) { w.stop(); }};

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// One run of it.
class Progression {
  public:
    // Takes the loss away inside the `at`-th callback.
    Progression(const Loss& loss, From from, std::size_t at)
        : loss_(loss),
          at_(at),
          everywhere_(
              from, [this](const std::string& path) { saw(path); }, [this] { tick(); }) {
        everywhere_.watchAll(*world.root());
    }

    bool lost() const { return lost_; }
    // The change that was being told of then.
    const std::string& lostAt() const { return lostAt_; }
    std::size_t ticks() const { return ticks_; }
    // What was written although its writer was gone.
    const Lines& lateWrites() const { return lateWrites_; }

    void go() {
        const auto step = [this](auto&& act) {
            act();
            everywhere_.stepDone();
        };
        step([&] { world.status()->stageIs("void"); });
        step([&] {
            world.agent("fan").appears(
                {{"early", {.timeout = 30, .critical = true, .dependsOn = {"void"}}},
                 {"late", {.timeout = 20, .dependsOn = {"early"}}}});
        });
        step([&] {
            world.agent("disk").appears({{"done", {.dependsOn = {"late"}, .completeIn = {"boot"}}},
                                         {"early", {.timeout = 40, .autoComplete = 5}}});
        });
        step([&] { world.agent("net").request("late", 25).request("early", 35); });
        step([&] { world.enable("boot"); });
        step([&] { world.settle(); });
        step([&] { world.advance(5); });
        step([&] { world.agent("net").report("early", "boot"); });
        step([&] { world.agent("fan").report("early", "boot"); });
        step([&] { world.settle(); });
        step([&] {
            if (!world.agent("usb").config())
                world.agent("usb").appears({{"late", {.timeout = 10, .critical = true}}});
        });
        step([&] {
            if (world.agent("usb").config()) world.agent("usb").withdraw("late");
        });
        step([&] {
            if (const auto event = world.agent("fan").registered("late"))
                event->completeIs("boot", true);
        });
        step([&] {
            if (const auto event = world.agent("net").registered("late"))
                event->dependencyIs("void", true);
        });
        step([&] { world.advance(anHour); });
        step([&] { world.agent("net").fallSilent(); });
        step([&] { world.agent("fan").leave(); });
        step([&] { world.advance(anHour); });
        over_ = true;
    }

    World world{ClassOptions{.deadline = 10 * anHour}};

  private:
    void tick() {
        if (over_ || ++ticks_ != at_) return;
        lostAt_ = seen_;
        loss_.take(world);
        lost_ = true;
    }

    void saw(const std::string& path) {
        seen_ = path;
        if (!lost_ || over_) return;
        const bool ofTheManager = startsWith(path, "/stage/app/") ||
                                  startsWith(path, "/fatalerror") || startsWith(path, "/sm");
        const bool ofTheInstance = startsWith(path, "/stage/app/log/instanceLog") ||
                                   startsWith(path, "/stage/app/status/instStatus") ||
                                   startsWith(path, "/stage/app/progress") ||
                                   startsWith(path, "/stage/app/completionstatus");
        if (world.manager() == nullptr ? ofTheManager
                                       : ofTheInstance && !world.enabledConfig()->enabled("boot"))
            lateWrites_.push_back(path);
    }

    const Loss& loss_;
    const std::size_t at_;
    std::size_t ticks_ = 0;
    bool lost_ = false;
    bool over_ = false;
    std::string seen_;
    std::string lostAt_;
    Lines lateWrites_;
    Everywhere everywhere_;
};

// An instance exists exactly while it is enabled.
void expectInstanceAsEnabled(const World& world) {
    const bool enabled = world.enabledConfig()->enabled("boot");
    EXPECT_EQ(world.instance("boot") != nullptr, enabled);
    EXPECT_EQ(world.instanceStatus("boot") != nullptr, enabled);
    EXPECT_EQ(world.completionStatus("boot") != nullptr, enabled);
    EXPECT_EQ(world.progress("boot") != nullptr, enabled);
    EXPECT_EQ(world.instanceLog("boot") != nullptr, enabled);
    if (!enabled) return;
    EXPECT_EQ(world.instance("boot")->instanceStatus(), world.instanceStatus("boot"));
    EXPECT_EQ(world.instanceStatus("boot")->progress(), world.progress("boot"));
    EXPECT_FALSE(world.instance("boot")->retired());
    for (const auto& [stage, status] : world.status()->stage()) {
        const bool active = world.instanceStatus("boot")->activeStage().contains(stage);
        EXPECT_EQ(world.stageSm("boot", stage.str()) != nullptr, active) << stage;
        EXPECT_EQ(world.progress("boot")->stage(stage), active) << stage;
        if (active) {
            EXPECT_EQ(world.stageEnableSm("boot", stage.str()), nullptr) << stage;
        }
    }
}

// Every registration has its reactor, and no reactor is left without.
void expectReactorsAsEntities(const World& world) {
    for (const char* const agent : {"fan", "disk", "net", "usb"}) {
        const Ptr<Stage::AgentConfig> config =
            world.inputDir()->entityPtr<Stage::AgentConfig>(agent);
        const Ptr<Stage::AgentStatus> status =
            world.agentStatusDir()->entityPtr<Stage::AgentStatus>(agent);
        const auto* const configReactor = world.configSm()->agentConfig(agent);
        const Stage::AgentStatusSm* const statusReactor =
            world.configSm()->agentStatusSm().find(agent);
        EXPECT_EQ(configReactor != nullptr ? configReactor->entity() : nullptr, config.get())
            << agent;
        EXPECT_EQ(statusReactor != nullptr ? statusReactor->agentStatus().get() : nullptr,
                  status.get())
            << agent;
        if (config && config->createdOnStageRequest()) {
            EXPECT_NE(status, nullptr) << agent;
        }
    }
    for (const auto& [stage, status] : world.status()->stage()) {
        Stage::ConfigSm::OrvStageStatus* const reactor = world.configSm()->stageStatus(stage);
        ASSERT_NE(reactor, nullptr) << stage;
        EXPECT_EQ(reactor->entity(), status.get());
        const std::vector<Orv::Value> agents =
            Stage::ConfigSm::OrvStageStatus::type().attribute("eventConfig")->keys(*reactor);
        EXPECT_EQ(agents.size(), status->event().size()) << stage;
        for (const Orv::Value& agent : agents)
            EXPECT_TRUE(status->event().contains(*agent.string())) << stage;
        // What runs waits for nothing that is not its own.
        const Stage::StageSm* const running = world.stageSm("boot", stage.str());
        if (running == nullptr || running->stage() != status.get()) continue;
        for (const auto& [name, event] : running->pendingEvent())
            EXPECT_EQ(status->event(event->agent()), event.get()) << name;
    }
}

// What a stage has is what its agents list.
void expectStagesAsRegistered(const World& world) {
    for (const auto& [stage, status] : world.status()->stage()) {
        Lines wanted;
        for (const auto& [agent, event] : status->event()) {
            const Ptr<Stage::AgentConfig> config =
                world.inputDir()->entityPtr<Stage::AgentConfig>(agent);
            EXPECT_TRUE(config && config->event(stage) == event) << stage << " " << agent;
            for (const auto& [dependency, depends] : event->dependency())
                if (depends) wanted.push_back(dependency.str());
        }
        // And it depends on what they depend on.
        for (const auto& [dependency, depends] : status->dependency())
            EXPECT_THAT(wanted, ::testing::Contains(dependency.str())) << stage;
        for (const std::string& dependency : wanted)
            EXPECT_TRUE(status->dependency(dependency)) << stage << " on " << dependency;
    }
}

class DeletionSafety : public ::testing::TestWithParam<From> {
  protected:
    // Calls `check` after each run, once with nothing lost.
    void runAll(const Loss& loss, const std::function<void(Progression&)>& check) {
        for (std::size_t at = 1;; ++at) {
            SCOPED_TRACE(std::string(loss.name) + ", in callback " + std::to_string(at));
            Progression run(loss, GetParam(), at);
            run.go();
            SCOPED_TRACE("told of " + run.lostAt());
            EXPECT_THAT(run.world.errors(), IsEmpty());
            EXPECT_THAT(run.lateWrites(), IsEmpty());
            check(run);
            if (HasFailure() || !run.lost()) {
                EXPECT_GT(at, 60u) << "too little happens";
                return;
            }
        }
    }
};

TEST_P(DeletionSafety, AnInstanceThatIsDisabledLeavesNothingBehind) {
    for (const Loss* const loss : {&theInstance, &theInstancesMember})
        runAll(*loss, [](Progression& run) {
            expectInstanceAsEnabled(run.world);
            expectReactorsAsEntities(run.world);
            expectStagesAsRegistered(run.world);
        });
}

TEST_P(DeletionSafety, AnInstanceThatIsDisabledAndEnabledAgainRunsToItsEnd) {
    runAll(theInstanceForAMoment, [](Progression& run) {
        expectInstanceAsEnabled(run.world);
        EXPECT_TRUE(run.world.instanceComplete("boot"));
        const Lines log = run.world.log("boot");
        EXPECT_EQ(log.empty() ? "" : log.front(), "app stages started");
        EXPECT_EQ(std::count(log.begin(), log.end(), "app stages started"), 1);
        EXPECT_EQ(std::count(log.begin(), log.end(), "app stages complete"), 1);
    });
}

TEST_P(DeletionSafety, AnAgentsRegistrationIsWithdrawnFromAllItsStages) {
    for (const Loss* const loss : {&theAgentsEntry, &theRequestersEntry, &theRequestersStatus})
        runAll(*loss, [](Progression& run) {
            expectInstanceAsEnabled(run.world);
            expectReactorsAsEntities(run.world);
            expectStagesAsRegistered(run.world);
        });
}

TEST_P(DeletionSafety, AStageDoesNotWaitForAnEventThatItHasLost) {
    runAll(theStagesEvent, [](Progression& run) {
        expectInstanceAsEnabled(run.world);
        expectReactorsAsEntities(run.world);
        EXPECT_TRUE(run.world.instanceComplete("boot"));
    });
}

TEST_P(DeletionSafety, AStageThatGoesTakesItsReactorAlong) {
    runAll(theStage, [](Progression& run) { expectReactorsAsEntities(run.world); });
}

TEST_P(DeletionSafety, AManagerThatIsDroppedWritesNothingMore) {
    runAll(theManager, [](Progression& run) {
        EXPECT_EQ(run.world.manager() == nullptr, run.lost());
        if (run.lost()) {
            EXPECT_EQ(run.world.armedTimers(), 0u);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(InsideEveryCallback, DeletionSafety,
                         ::testing::Values(From::observer, From::firstNotifiees,
                                           From::lastNotifiees),
                         [](const ::testing::TestParamInfo<From>& from) {
                             switch (from.param) {
                                 case From::observer: return "OfTheObserver";
                                 case From::firstNotifiees: return "OfTheFirstNotifiees";
                                 default: return "OfTheLastNotifiees";
                             }
                         });

}  // namespace
