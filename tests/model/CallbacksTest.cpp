// A notifiee takes over the callbacks that it wants. The others do nothing: what changes is stored
// all the same, whoever stands behind it in the list is told, and nothing is raised.
#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "model/AgentStatusLocal.h"
#include "model/CompletionStatusDir.h"
#include "model/Config.h"
#include "model/EnabledConfig.h"
#include "model/FatalError.h"
#include "model/Log.h"
#include "model/ProgressDir.h"
#include "model/StageGlobalConfig.h"
#include "model/Status.h"
#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Orv::Immediate;
using Orv::make;
using Orv::Ptr;

struct Recorder final : public Orv::Environment {
    Lines exceptions;
    void notificationException(const char* what) noexcept override { exceptions.push_back(what); }
};

// The one that takes nothing over.
template <class E>
struct Idle final : E::NotifieeConst {};

// Counts what changes, of whatever.
struct Counter final : Orv::TreeObserver {
    int changes = 0;
    void onScalar(const Orv::Entity&, const Orv::Attribute&) override { ++changes; }
    void onMember(const Orv::Entity&, const Orv::Attribute&, const Orv::Value&) override {
        ++changes;
    }
    void onEnqueued(const Orv::Entity&, const Orv::Attribute&) override { ++changes; }
    void onEntry(const Orv::Dir&, const Orv::Entity&, bool) override {}
};

// change: changes every attribute once. call: calls those forms of the callbacks that are for the
// notifiee's owner, who has a collection looked at as a whole. attributes: how many there are.
template <class E, class Change, class Call>
void expectSilence(const Ptr<E>& entity, int attributes, Change change, Call call) {
    Recorder environment;
    Orv::VirtualTime time;
    Orv::ActivityManager manager(time, environment);
    const Orv::ActivityScope scope(manager);
    Idle<E> idle;
    idle.notifierIs(entity);
    Counter counter;

    change(*entity);
    EXPECT_EQ(counter.changes, attributes);
    call(idle);

    EXPECT_EQ(counter.changes, attributes) << "a callback changed something";
    EXPECT_EQ(environment.exceptions, Lines());
    EXPECT_TRUE(idle.isRegisteredNotifiee());
    EXPECT_EQ(idle.notifier(), entity);
}

const auto nothing = [](auto&) {};

TEST(CallbacksNotTakenOver, OfAnAgentsRegistrationDoNothing) {
    expectSilence(
        make<Stage::AgentConfig>("disk"), 2,
        [](Stage::AgentConfig& e) {
            e.eventIs("mount", "disk");
            e.createdOnStageRequestIs(true);
        },
        [](auto& n) {
            n.onEvent();
            n.onEvent(Immediate());
        });
}

TEST(CallbacksNotTakenOver, OfAnEventDoNothing) {
    expectSilence(
        make<Stage::EventConfig>("mount", "disk"), 11,
        [](Stage::EventConfig& e) {
            e.nameIs("another");
            e.stageIs("another");
            e.agentIs("another");
            e.completeIs("boot", true);
            e.errorIs("boot", true);
            e.dependencyIs("power", true);
            e.timeoutIs(30);
            e.criticalIs(true);
            e.autoCompleteTimeoutIs(5);
            e.enableAutoCompleteIs(true);
            e.completeNotRunnableIs(true);
        },
        [](auto& n) {
            n.onComplete();
            n.onComplete(Immediate());
            n.onError();
            n.onError(Immediate());
            n.onDependency();
            n.onDependency(Immediate());
        });
}

TEST(CallbacksNotTakenOver, OfAnAgentsStatusDoNothing) {
    expectSilence(
        make<Stage::AgentStatus>("disk"), 2,
        [](Stage::AgentStatus& e) {
            e.completeIs({"disk", "mount", "boot"}, true);
            e.stageRequestIs("mount", {"disk", "mount", 30});
        },
        [](auto& n) {
            n.onComplete();
            n.onComplete(Immediate());
            n.onStageRequest();
            n.onStageRequest(Immediate());
        });
}

TEST(CallbacksNotTakenOver, OfTheRecordOfCompletionsDoNothing) {
    expectSilence(
        make<Stage::AgentStatusLocal>(), 1,
        [](Stage::AgentStatusLocal& e) {
            e.completeIs({"disk", "mount", "boot"}, true);
        },
        [](auto& n) {
            n.onComplete();
            n.onComplete(Immediate());
        });
}

TEST(CallbacksNotTakenOver, OfCompletionRecordsDoNothing) {
    expectSilence(
        make<Stage::CompletionStatusDir>("completionstatus"), 1,
        [](Stage::CompletionStatusDir& e) { e.statusIs("boot"); },
        [](auto& n) {
            n.onStatus();
            n.onStatus(Immediate());
        });
    expectSilence(
        make<Stage::CompletionStatus>("boot"), 1,
        [](Stage::CompletionStatus& e) { e.completeIs(true); }, nothing);
}

TEST(CallbacksNotTakenOver, OfAClasssConfigurationDoNothing) {
    expectSilence(
        make<Stage::Config>("config"), 8,
        [](Stage::Config& e) {
            e.stageClassIs("app");
            e.applicationIs("app");
            e.agentDirIs(make<Orv::Dir>("app"));
            e.stageTimeoutIsFatalIs(true);
            e.continueOnTimeoutIs(true);
            e.globalStageCompletionTimeoutIs(30);
            e.resetModeIs(Stage::FatalError::ResetMode::cold);
            e.reloadCauseDescIs("Stage progression failed.");
        },
        nothing);
}

TEST(CallbacksNotTakenOver, OfWhatIsEnabledDoNothing) {
    expectSilence(
        make<Stage::EnabledConfig>("app"), 2,
        [](Stage::EnabledConfig& e) {
            e.enabledIs("boot", true);
            e.suspendedIs("boot", true);
        },
        [](auto& n) {
            n.onEnabled();
            n.onEnabled(Immediate());
            n.onSuspended();
            n.onSuspended(Immediate());
        });
}

TEST(CallbacksNotTakenOver, OfARebootRequestDoNothing) {
    expectSilence(
        make<Stage::FatalError>("fatalerror"), 3,
        [](Stage::FatalError& e) {
            e.requestRebootIs(Stage::FatalError::ResetMode::cold);
            e.rebootReasonIs("early timed out");
            e.reloadCauseDescIs("Stage progression failed.");
        },
        nothing);
}

TEST(CallbacksNotTakenOver, OfLogsDoNothing) {
    expectSilence(
        make<Stage::Log>("log"), 1, [](Stage::Log& e) { e.instanceLogIs("boot"); },
        [](auto& n) {
            n.onInstanceLog();
            n.onInstanceLog(Immediate());
        });
    expectSilence(
        make<Stage::InstanceLog>("boot"), 1,
        [](Stage::InstanceLog& e) {
            e.logEnq({0, "app stages started"});
        },
        nothing);
}

TEST(CallbacksNotTakenOver, OfProgressDoNothing) {
    expectSilence(
        make<Stage::ProgressDir>("progress"), 1,
        [](Stage::ProgressDir& e) { e.progressIs("boot"); },
        [](auto& n) {
            n.onProgress();
            n.onProgress(Immediate());
        });
    expectSilence(
        make<Stage::Progress>("boot"), 1, [](Stage::Progress& e) { e.stageIs("early", true); },
        [](auto& n) {
            n.onStage();
            n.onStage(Immediate());
        });
}

TEST(CallbacksNotTakenOver, OfTheDoNotStartListDoNothing) {
    expectSilence(
        make<Stage::StageGlobalConfig>("global"), 1,
        [](Stage::StageGlobalConfig& e) {
            e.doNotStartStageIs({"app", "early"}, true);
        },
        [](auto& n) {
            n.onDoNotStartStage();
            n.onDoNotStartStage(Immediate());
        });
}

TEST(CallbacksNotTakenOver, OfStatusesDoNothing) {
    expectSilence(
        make<Stage::Status>("status"), 3,
        [](Stage::Status& e) {
            e.stageIs("early");
            e.instStatusIs("boot");
            e.sortedIs(true);
        },
        [](auto& n) {
            n.onStage();
            n.onStage(Immediate());
            n.onInstStatus();
            n.onInstStatus(Immediate());
        });
    expectSilence(
        make<Stage::StageStatus>("early"), 4,
        [](Stage::StageStatus& e) {
            e.eventIs(make<Stage::EventConfig>("early", "disk"));
            e.dependencyIs("power", true);
            e.timeoutIs(30);
            e.criticalIs(true);
        },
        [](auto& n) {
            n.onEvent();
            n.onEvent(Immediate());
            n.onDependency();
            n.onDependency(Immediate());
        });
    expectSilence(
        make<Stage::InstanceStatus>("boot"), 4,
        [](Stage::InstanceStatus& e) {
            e.activeStageIs(make<Stage::StageStatus>("early"));
            e.progressIs(make<Stage::Progress>("boot"));
            e.completeIs(true);
            e.suspendedIs(true);
        },
        [](auto& n) {
            n.onActiveStage();
            n.onActiveStage(Immediate());
        });
}

}  // namespace
