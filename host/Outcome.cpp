#include "host/Outcome.h"

#include <algorithm>

#include "StageMgr/StatusSm.h"
#include "host/Tree.h"
#include "model/CompletionStatusDir.h"
#include "model/Config.h"
#include "model/EnabledConfig.h"
#include "model/Log.h"
#include "model/ProgressDir.h"
#include "model/Status.h"
#include "runtime/Type.h"

namespace Host {

namespace {

using Object = Orv::Ptr<Orv::PtrInterface>;

// A reactor's attribute by name; absent when it has none of that name.
Orv::Value value(const Object& reactor, const char* attribute) {
    const Orv::Attribute* const row = reactor->typeInfo()->attribute(attribute);
    return row != nullptr ? row->value(*reactor) : Orv::Value();
}
bool flag(const Object& reactor, const char* attribute) {
    const Orv::Value held = value(reactor, attribute);
    return held.boolean() != nullptr && *held.boolean();
}

// One stage class.
class Class {
  public:
    Class(const Tree& tree, Orv::Name name) : tree_(tree), name_(std::move(name)) {
        // What the manager works on; when somebody is told that it left the tree, it still does.
        if (const Object held = reactor("statusSm")) {
            const auto* const statusSm = dynamic_cast<const Stage::StatusSm*>(held.get());
            if (statusSm != nullptr) {
                const auto arguments = statusSm->arguments();
                status_ = std::get<Orv::Ptr<Stage::Status>>(arguments);
                completion_ = std::get<Orv::Ptr<Stage::CompletionStatusDir>>(arguments);
                config_ = std::get<Orv::Ptr<const Stage::Config>>(arguments);
                return;
            }
        }
        dir_ = tree.stageDir()->entityPtr<Orv::Dir>(name_);
        if (!dir_) return;
        status_ = dir_->entityPtr<Stage::Status>("status");
        completion_ = dir_->entityPtr<Stage::CompletionStatusDir>("completionstatus");
        if (const auto configDir = dir_->entityPtr<Orv::Dir>("config"))
            config_ = configDir->entityPtr<Stage::Config>("config");
    }

    InstanceOutcome instance(const Orv::Name& name) const {
        InstanceOutcome outcome;
        outcome.stageClass = name_;
        outcome.instance = name;
        const Object reactor = this->reactor("statusSm/instStatusSm/" + pathName(name));
        const auto instanceStatus = status_ ? status_->instStatus(name) : nullptr;
        if (!reactor || !instanceStatus) {
            outcome.missing = missing();
            return outcome;
        }
        // While a critical stage has not started, no other starts.
        const auto& all = status_->stage();
        const bool criticalFirst = std::any_of(all.begin(), all.end(), [&](const auto& member) {
            return member.second->critical() && !instanceStatus->activeStage(member.first);
        });
        for (const auto& [stageName, stage] : all)
            outcome.stages.push_back(this->stage(*stage, name, criticalFirst));
        for (const StageOutcome& stage : outcome.stages)
            if (stage.isComplete())
                outcome.lastCompletion = std::max(outcome.lastCompletion, stage.completionTime);
        outcome.state = state(outcome, *instanceStatus);
        return outcome;
    }

  private:
    // A reactor of the class's manager, or null.
    Object reactor(const std::string& below) const {
        return tree_.find("/sm/stageMgr/" + pathName(name_) + "/" + below);
    }

    bool complete(const Orv::Name& instance) const {
        const auto record = completion_ ? completion_->status(instance) : nullptr;
        return record && record->complete();
    }

    InstanceOutcome::State state(const InstanceOutcome& outcome,
                                 const Stage::InstanceStatus& status) const {
        using State = InstanceOutcome::State;
        const auto some = [&](StageOutcome::State wanted) {
            return std::any_of(outcome.stages.begin(), outcome.stages.end(),
                               [&](const StageOutcome& s) { return s.state == wanted; });
        };
        if (complete(outcome.instance)) return State::complete;
        if (rebootRequested(tree_)) return State::rebooting;
        if (some(StageOutcome::State::overdue)) return State::overdue;
        if (status.suspended()) return State::suspended;
        return some(StageOutcome::State::running) ? State::running : State::held;
    }

    StageOutcome stage(const Stage::StageStatus& stage, const Orv::Name& instance,
                       bool criticalFirst) const {
        StageOutcome outcome;
        outcome.stage = stage.key();
        outcome.critical = stage.critical();
        const std::string stageSm =
            "statusSm/instStatusSm/" + pathName(instance) + "/stageSm/" + pathName(stage.key());
        if (const Object running = reactor(stageSm)) {
            startedStage(outcome, stage, instance, running);
            return outcome;
        }
        for (const auto& [dependency, depends] : stage.dependency()) {
            const Object other = reactor("statusSm/instStatusSm/" + pathName(instance) +
                                         "/stageSm/" + pathName(dependency));
            if (!other || !flag(other, "complete"))
                outcome.incompleteDependencies.push_back(dependency);
        }
        outcome.heldByOperator = tree_.globalConfig()->doNotStartStage(
            {config_ ? config_->stageClass() : name_, stage.key()});
        outcome.heldByCritical = criticalFirst && !stage.critical();
        return outcome;
    }

    void startedStage(StageOutcome& outcome, const Stage::StageStatus& stage,
                      const Orv::Name& instance, const Object& stageSm) const {
        using State = StageOutcome::State;
        const bool goesOn = !stage.critical() || (config_ && config_->continueOnTimeout());
        const bool timedOut = flag(stageSm, "timedOut");
        const Orv::Attribute& pending = *stageSm->typeInfo()->attribute("pendingEvent");
        for (const auto& [agent, event] : stage.event()) {
            if (!pending.member(*stageSm, Orv::String(event->name())).absent())
                outcome.pendingAgents.push_back(agent);
            else if (assumed(*event, instance))
                outcome.assumedAgents.push_back(agent);
        }
        if (flag(stageSm, "complete")) {
            const Orv::Value time = value(stageSm, "completionTime");
            if (time.number() != nullptr) outcome.completionTime = *time.number();
            // A stage that progression waits for is complete only when nothing is pending.
            const bool waitedFor = !goesOn && outcome.pendingAgents.empty();
            outcome.state = !timedOut   ? State::complete
                            : waitedFor ? State::late
                                        : State::passedOver;
        } else {
            outcome.state = timedOut ? State::overdue : State::running;
        }
    }

    // The manager says that the event is complete, and neither the agent nor its registration did.
    bool assumed(const Stage::EventConfig& event, const Orv::Name& instance) const {
        return !event.complete(instance) &&
               tree_.assumed(name_, {event.agent(), event.stage(), instance});
    }

    std::string missing() const {
        const std::string name = pathName(name_);
        const std::pair<std::string, const Orv::TypeInfo*> needed[] = {
            {"/stage/" + name, &Orv::Dir::type()},
            {"/input/" + name, &Orv::Dir::type()},
            {"/agentstatus/" + name, &Orv::Dir::type()},
            {"/stage/" + name + "/config/config", &Stage::Config::type()},
            {"/stage/" + name + "/status", &Stage::Status::type()},
            {"/stage/" + name + "/completionstatus", &Stage::CompletionStatusDir::type()},
            {"/stage/" + name + "/progress", &Stage::ProgressDir::type()},
            {"/stage/" + name + "/log", &Stage::Log::type()}};
        for (const auto& [path, type] : needed) {
            const Object held = tree_.find(path);
            if (!held || held->typeInfo() != type) return path;
        }
        return {};
    }

    const Tree& tree_;
    Orv::Name name_;
    Orv::Ptr<Orv::Dir> dir_;
    Orv::Ptr<Stage::Status> status_;
    Orv::Ptr<Stage::CompletionStatusDir> completion_;
    Orv::Ptr<const Stage::Config> config_;
};

}  // namespace

std::size_t InstanceOutcome::completeStages() const {
    return static_cast<std::size_t>(std::count_if(
        stages.begin(), stages.end(), [](const StageOutcome& s) { return s.isComplete(); }));
}

InstanceOutcome outcome(const Tree& tree, const Orv::Name& stageClass, const Orv::Name& instance) {
    return Class(tree, stageClass).instance(instance);
}

bool rebootRequested(const Tree& tree) {
    return tree.fatalError()->requestReboot() != Stage::FatalError::ResetMode::none;
}

std::vector<InstanceOutcome> outcomes(const Tree& tree) {
    std::vector<InstanceOutcome> all;
    for (const auto& [name, entry] : tree.enableDir()->entries()) {
        const auto enabled = tree.enableDir()->entityPtr<Stage::EnabledConfig>(name);
        if (!enabled) continue;
        const Class stageClass(tree, name);
        for (const auto& [instance, on] : enabled->enabled())
            if (on) all.push_back(stageClass.instance(instance));
    }
    return all;
}

}  // namespace Host
