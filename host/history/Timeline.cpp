#include "host/history/Timeline.h"

#include <algorithm>
#include <map>
#include <utility>

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/StageMgr.h"
#include "StageMgr/StageMgrStageClassDirSm.h"
#include "StageMgr/StageSm.h"
#include "StageMgr/StatusSm.h"
#include "host/Tree.h"
#include "model/AgentStatusLocal.h"
#include "model/CompletionStatusDir.h"
#include "model/Config.h"
#include "model/Status.h"
#include "runtime/ActivityManager.h"

namespace Host {

namespace {

std::string text(const Orv::String& name) { return std::string(name.view()); }

// The entity that holds it, or the one that holds that.
const Orv::Entity* holder(const Orv::Entity& entity) {
    return dynamic_cast<const Orv::Entity*>(entity.parent());
}
// The stage class in whose directory the entity stands; null when it has left the tree.
const Orv::Name* classOf(const Orv::Entity& entity) {
    const Orv::Entity* const dir = holder(entity);
    return dir != nullptr ? &dir->key() : nullptr;
}
const Orv::Name* classOfMember(const Orv::Entity& member) {
    const Orv::Entity* const collection = holder(member);
    return collection != nullptr ? classOf(*collection) : nullptr;
}

// The manager's reactors, or null.
const Stage::StageMgr* managerOf(const Tree& tree, const Orv::Name& stageClass) {
    const auto* const all =
        dynamic_cast<const Stage::StageMgrStageClassDirSm*>(tree.manager().get());
    return all != nullptr ? all->stageMgr().find(stageClass) : nullptr;
}
const Stage::InstanceStatusSm* instanceSmOf(const Tree& tree, const Orv::Name& stageClass,
                                            const Orv::Name& instance) {
    const Stage::StageMgr* const manager = managerOf(tree, stageClass);
    return manager != nullptr && manager->statusSm()
               ? manager->statusSm()->instStatusSm().find(instance)
               : nullptr;
}

EventHistory eventHistory(const Stage::EventConfig& event) {
    EventHistory made;
    made.agent = text(event.agent());
    made.critical = event.critical();
    made.limit = event.timeout();
    if (event.enableAutoComplete()) made.autoComplete = event.autoCompleteTimeout();
    return made;
}

std::vector<std::string> dependencyNames(const Stage::StageStatus& stage) {
    std::vector<std::string> names;
    for (const auto& [name, depends] : stage.dependency()) names.push_back(text(name));
    return names;
}

}  // namespace

const StageHistory* InstanceHistory::stage(std::string_view name) const {
    const auto found = std::find_if(stages.begin(), stages.end(),
                                    [&](const StageHistory& stage) { return stage.name == name; });
    return found == stages.end() ? nullptr : &*found;
}

// Nobody tells when a stage's reactor has been made, nor when an event has joined it. So what makes
// them leaves a note with its time, and the reactor is looked at with the feed's next call: until
// then nothing else has happened.
class Timeline::State {
  public:
    void begin(const Tree& tree) { tree_ = &tree; }

    void scalar(double t, const Orv::Entity& entity, std::string_view attribute);
    void member(double t, const Orv::Entity& entity, std::string_view attribute,
                const Orv::Value& key);
    void log(double t, const Stage::InstanceLog& log);
    void message(double t, const Orv::LogHandle& message, const Orv::String& text);

    RunHistory history(const Tree& tree);

  private:
    // A stage that has started.
    struct Started {
        Orv::Name name;
        double start;
        double limit;
        std::vector<std::string> dependencies;
        std::vector<EventHistory> events;
        std::map<std::string, std::size_t, std::less<>> places;  // of the events, by agent
    };
    // One instance, from its enabling to its end.
    struct Record {
        Orv::Name stageClass;
        Orv::Name instance;
        InstanceHistory history;  // without stages as long as it is there
        std::vector<Started> started;
        std::map<std::string, std::size_t, std::less<>> places;  // of those, by name
    };
    // To be looked at: a stage whose reactor is being made, or one event of one that has started.
    struct Note {
        double t;
        std::size_t record;
        std::size_t stage;
        Orv::String agent;
        bool opening;
    };
    using Who = std::pair<std::string, std::string>;

    // The record of an instance that is there, made when there is none yet.
    std::size_t recordOf(double t, const Orv::Name& stageClass, const Orv::Name& instance);
    void close(double t, const Orv::Name& stageClass, const Orv::Name& instance);
    void start(double t, std::size_t record, const Stage::StageStatus& stage);
    void reported(double t, const Stage::AgentStatusLocal& local, const Stage::AgentStatusKey& key);
    void reported(double t, Record& record, std::size_t stage, const Orv::String& agent);
    void eventChanged(double t, const Stage::StageStatus& stage, const Orv::String& agent);

    const Stage::StageSm* stageSmOf(const Record& record, const Started& started) const;
    void lookAtNotes(double t);
    bool look(const Note& note);
    void lookAtEvent(const Record& record, Started& started, const Stage::StageSm& stageSm,
                     const Orv::String& agent, double t);
    EventHistory::End howCompleted(const Record& record, const Stage::StageSm& stageSm,
                                   const Stage::EventConfig& event) const;

    void fill(InstanceHistory& history, const Record& record, const Tree& tree) const;
    StageHistory stageHistory(const Tree& tree, const Record& record, const StageOutcome& outcome,
                              const Stage::Status* status,
                              const Stage::InstanceStatusSm* instanceSm) const;

    const Tree* tree_ = nullptr;
    double now_ = 0.0;
    std::vector<Record> records_;
    std::map<Who, std::size_t> there_;  // those that are not gone
    std::vector<Note> notes_;
    std::vector<RunHistory::Message> messages_;
    std::optional<RunHistory::Reboot> reboot_;
};

void Timeline::State::scalar(double t, const Orv::Entity& entity, std::string_view attribute) {
    lookAtNotes(t);
    if (const auto* const instance = dynamic_cast<const Stage::InstanceStatus*>(&entity)) {
        const Orv::Name* const stageClass = classOfMember(*instance);
        if (stageClass == nullptr) return;
        if (attribute == "complete" && instance->complete()) {
            auto& complete = records_[recordOf(t, *stageClass, instance->key())].history.complete;
            if (!complete) complete = t;
        } else if (attribute == "suspended" && instance->suspended()) {
            auto& suspended = records_[recordOf(t, *stageClass, instance->key())].history.suspended;
            if (!suspended) suspended = t;
        }
    } else if (const auto* const fatal = dynamic_cast<const Stage::FatalError*>(&entity)) {
        if (attribute != "requestReboot" || reboot_) return;
        reboot_ = {t,
                   Orv::ValueTraits<Stage::FatalError::ResetMode>::nameOf(fatal->requestReboot()),
                   text(fatal->rebootReason()), text(fatal->reloadCauseDesc())};
    }
}

void Timeline::State::member(double t, const Orv::Entity& entity, std::string_view attribute,
                             const Orv::Value& key) {
    lookAtNotes(t);
    if (const auto* const local = dynamic_cast<const Stage::AgentStatusLocal*>(&entity)) {
        Stage::AgentStatusKey read;
        if (Orv::ValueTraits<Stage::AgentStatusKey>::read(key, read) && local->complete(read))
            reported(t, *local, read);
        return;
    }
    if (key.string() == nullptr) return;
    const Orv::Name& name = *key.string();
    if (const auto* const instance = dynamic_cast<const Stage::InstanceStatus*>(&entity)) {
        const Orv::Name* const stageClass = classOfMember(*instance);
        const auto stage = attribute == "activeStage" ? instance->activeStage(name) : nullptr;
        if (stageClass != nullptr && stage)
            start(t, recordOf(t, *stageClass, instance->key()), *stage);
    } else if (const auto* const stage = dynamic_cast<const Stage::StageStatus*>(&entity)) {
        if (attribute == "event") eventChanged(t, *stage, name);
    } else if (const auto* const status = dynamic_cast<const Stage::Status*>(&entity)) {
        const Orv::Name* const stageClass = classOf(*status);
        if (attribute != "instStatus" || stageClass == nullptr) return;
        if (status->instStatus(name))
            recordOf(t, *stageClass, name);
        else
            close(t, *stageClass, name);
    } else if (const auto* const dir = dynamic_cast<const Stage::CompletionStatusDir*>(&entity)) {
        // The first of an instance's records to go, while its reactors are still there.
        const Orv::Name* const stageClass = classOf(*dir);
        if (stageClass != nullptr && !dir->status(name)) close(t, *stageClass, name);
    }
}

void Timeline::State::log(double t, const Stage::InstanceLog& log) {
    lookAtNotes(t);
    if (const Orv::Name* const stageClass = classOfMember(log)) recordOf(t, *stageClass, log.key());
}

void Timeline::State::message(double t, const Orv::LogHandle& message, const Orv::String& words) {
    lookAtNotes(t);
    messages_.push_back({t, message.severity(), message.identifier(), text(words)});
}

std::size_t Timeline::State::recordOf(double t, const Orv::Name& stageClass,
                                      const Orv::Name& instance) {
    const auto [place, made] =
        there_.try_emplace({text(stageClass), text(instance)}, records_.size());
    if (!made) return place->second;
    const std::size_t number = place->second;
    Record& record = records_.emplace_back();
    record.stageClass = stageClass;
    record.instance = instance;
    record.history.stageClass = text(stageClass);
    record.history.instance = text(instance);
    record.history.enabled = t;
    const auto dir =
        tree_ != nullptr ? tree_->stageDir()->entityPtr<Orv::Dir>(stageClass) : nullptr;
    const auto configDir = dir ? dir->entityPtr<Orv::Dir>("config") : nullptr;
    if (const auto config = configDir ? configDir->entityPtr<Stage::Config>("config") : nullptr) {
        record.history.application = text(config->application());
        if (config->globalStageCompletionTimeout() != 0.0)
            record.history.deadline = config->globalStageCompletionTimeout();
    }
    // It may have come so far under a manager that was replaced.
    const auto status = dir ? dir->entityPtr<Stage::Status>("status") : nullptr;
    if (const auto held = status ? status->instStatus(instance) : nullptr)
        for (const auto& [name, stage] : held->activeStage()) start(t, number, *stage);
    return number;
}

void Timeline::State::close(double t, const Orv::Name& stageClass, const Orv::Name& instance) {
    const auto place = there_.find({text(stageClass), text(instance)});
    if (place == there_.end()) return;
    Record& record = records_[place->second];
    std::erase_if(notes_, [&](const Note& note) { return note.record == place->second; });
    there_.erase(place);
    if (tree_ != nullptr) fill(record.history, record, *tree_);
    if (record.history.complete) record.history.state = InstanceOutcome::State::complete;
    record.history.disabled = t;
    record.started.clear();
}

void Timeline::State::start(double t, std::size_t number, const Stage::StageStatus& stage) {
    Record& record = records_[number];
    const auto [place, made] = record.places.try_emplace(text(stage.key()), record.started.size());
    if (!made) return;  // what was started stays so
    Started& started = record.started.emplace_back();
    started.name = stage.key();
    started.start = t;
    started.limit = stage.timeout();
    started.dependencies = dependencyNames(stage);
    notes_.push_back({t, number, place->second, {}, true});
}

void Timeline::State::reported(double t, const Stage::AgentStatusLocal& local,
                               const Stage::AgentStatusKey& key) {
    const auto* const all =
        tree_ != nullptr
            ? dynamic_cast<const Stage::StageMgrStageClassDirSm*>(tree_->manager().get())
            : nullptr;
    if (all == nullptr || rebootRequested(*tree_)) return;
    for (const auto& [stageClass, manager] : all->stageMgr().map()) {
        if (manager->agentStatusLocal().get() != &local) continue;
        const auto place = there_.find({text(stageClass), text(key.instance)});
        if (place == there_.end()) continue;
        const auto stage = records_[place->second].places.find(key.stage.view());
        if (stage != records_[place->second].places.end())
            reported(t, records_[place->second], stage->second, key.agent);
    }
}

// What is pending now is taken from the pending ones in answer to this report.
void Timeline::State::reported(double t, Record& record, std::size_t stage,
                               const Orv::String& agent) {
    Started& started = record.started[stage];
    const Stage::StageSm* const stageSm = stageSmOf(record, started);
    const auto event = stageSm != nullptr ? stageSm->event(agent) : nullptr;
    const auto known = started.places.find(agent.view());
    if (!event || known == started.places.end() || !stageSm->pendingEvent().contains(event->name()))
        return;
    started.events[known->second].how = howCompleted(record, *stageSm, *event);
    started.events[known->second].end = t;
}

void Timeline::State::eventChanged(double t, const Stage::StageStatus& stage,
                                   const Orv::String& agent) {
    const Orv::Name* const stageClass = classOfMember(stage);
    if (stageClass == nullptr) return;
    const std::string name = text(*stageClass);
    for (auto place = there_.lower_bound({name, {}});
         place != there_.end() && place->first.first == name; ++place) {
        Record& record = records_[place->second];
        const auto found = record.places.find(stage.key().view());
        if (found == record.places.end()) continue;
        if (stage.event(agent)) {
            notes_.push_back({t, place->second, found->second, agent, false});
            continue;
        }
        Started& started = record.started[found->second];
        const auto known = started.places.find(agent.view());
        if (known == started.places.end()) continue;
        EventHistory& history = started.events[known->second];
        if (history.how != EventHistory::End::pending) continue;
        history.how = EventHistory::End::withdrawn;
        history.end = t;
    }
}

void Timeline::State::lookAtNotes(double t) {
    now_ = std::max(now_, t);
    if (notes_.empty() || tree_ == nullptr) return;
    std::erase_if(notes_, [&](const Note& note) { return look(note) || t > note.t; });
}

const Stage::StageSm* Timeline::State::stageSmOf(const Record& record,
                                                 const Started& started) const {
    const Stage::InstanceStatusSm* const instanceSm =
        instanceSmOf(*tree_, record.stageClass, record.instance);
    return instanceSm != nullptr ? instanceSm->stageSm().find(started.name) : nullptr;
}

// Whether there is nothing more to wait for.
bool Timeline::State::look(const Note& note) {
    const Record& record = records_[note.record];
    Started& started = records_[note.record].started[note.stage];
    const Stage::StageSm* const stageSm = stageSmOf(record, started);
    if (stageSm == nullptr) return false;
    if (!note.opening) {
        lookAtEvent(record, started, *stageSm, note.agent, note.t);
        return false;
    }
    for (const auto& [agent, event] : stageSm->stage()->event())
        lookAtEvent(record, started, *stageSm, agent, note.t);
    return true;
}

void Timeline::State::lookAtEvent(const Record& record, Started& started,
                                  const Stage::StageSm& stageSm, const Orv::String& agent,
                                  double t) {
    using End = EventHistory::End;
    const auto event = stageSm.stage()->event(agent);
    if (!event) return;
    const auto [place, joined] = started.places.try_emplace(text(agent), started.events.size());
    if (joined) started.events.push_back(eventHistory(*event));
    EventHistory& history = started.events[place->second];
    if (history.how == End::reported || history.how == End::assumed) return;
    if (stageSm.pendingEvent().contains(event->name())) {
        history = eventHistory(*event);  // perhaps it has come back
    } else if (stageSm.eventComplete(*event)) {
        history.how = howCompleted(record, stageSm, *event);
        history.end = t;
    }
}

// The agent's own word, or its registration's, counts more than the manager's.
EventHistory::End Timeline::State::howCompleted(const Record& record, const Stage::StageSm& stageSm,
                                                const Stage::EventConfig& event) const {
    using End = EventHistory::End;
    const Stage::AgentStatusKey key{event.agent(), event.stage(), stageSm.instanceName()};
    return event.complete(key.instance) || tree_->reported(record.stageClass, key) ? End::reported
                                                                                   : End::assumed;
}

void Timeline::State::fill(InstanceHistory& history, const Record& record, const Tree& tree) const {
    const InstanceOutcome outcome = Host::outcome(tree, record.stageClass, record.instance);
    const Stage::InstanceStatusSm* const instanceSm =
        instanceSmOf(tree, record.stageClass, record.instance);
    const Orv::Ptr<Stage::Status> status =
        instanceSm != nullptr ? std::get<Orv::Ptr<Stage::Status>>(instanceSm->arguments())
                              : nullptr;
    history.state = outcome.state;
    history.missing = outcome.missing;
    history.stages.clear();
    for (const StageOutcome& stage : outcome.stages)
        history.stages.push_back(stageHistory(tree, record, stage, status.get(), instanceSm));
    // What it was made of has gone before it: that something ran is still true.
    for (const Started& started : record.started) {
        if (history.stage(started.name.view()) != nullptr) continue;
        StageOutcome stage;
        stage.stage = started.name;
        stage.state = StageOutcome::State::running;
        history.stages.push_back(stageHistory(tree, record, stage, nullptr, nullptr));
    }
    std::map<std::string_view, const StageHistory*> byName;
    for (const StageHistory& stage : history.stages) byName.emplace(stage.name, &stage);
    for (StageHistory& stage : history.stages) {
        std::optional<double> ready = history.enabled;
        for (const std::string& name : stage.dependencies) {
            const auto found = byName.find(name);
            const StageHistory* const other = found != byName.end() ? found->second : nullptr;
            const bool complete =
                other != nullptr && other->end && (!stage.start || *other->end <= *stage.start);
            if (complete && ready)
                ready = std::max(*ready, *other->end);
            else if (!complete && !stage.start)
                ready.reset();
        }
        stage.ready = ready;
    }
}

StageHistory Timeline::State::stageHistory(const Tree& tree, const Record& record,
                                           const StageOutcome& outcome, const Stage::Status* status,
                                           const Stage::InstanceStatusSm* instanceSm) const {
    StageHistory made;
    made.name = text(outcome.stage);
    made.outcome = outcome;
    const auto stage = status != nullptr ? status->stage(outcome.stage) : nullptr;
    const auto place = record.places.find(outcome.stage.view());
    if (place == record.places.end()) {
        if (!stage) return made;
        made.dependencies = dependencyNames(*stage);
        made.limit = stage->timeout();
        for (const auto& [agent, event] : stage->event())
            made.events.push_back(eventHistory(*event));
        return made;
    }
    const Started& started = record.started[place->second];
    made.dependencies = started.dependencies;
    made.limit = started.limit;
    made.start = started.start;
    if (stage)
        for (const auto& [agent, event] : stage->event())
            if (const auto known = started.places.find(agent.view());
                known != started.places.end()) {
                made.events.push_back(started.events[known->second]);
                if (made.events.back().how == EventHistory::End::assumed)
                    made.events.back().reportedLate = tree.reportedLate(
                        record.stageClass, {agent, outcome.stage, record.instance});
            }
    for (const auto& [agent, known] : started.places)
        if (!stage || !stage->event(agent)) made.events.push_back(started.events[known]);
    const Stage::StageSm* const stageSm =
        instanceSm != nullptr ? instanceSm->stageSm().find(outcome.stage) : nullptr;
    if (stageSm == nullptr) return made;
    // A limit that had passed before it was armed counts from the start.
    if (stageSm->timedOut()) made.timedOut = started.start + std::max(0.0, started.limit);
    if (stageSm->complete()) made.end = stageSm->completionTime();
    return made;
}

RunHistory Timeline::State::history(const Tree& tree) {
    tree_ = &tree;
    now_ = std::max(now_, Orv::System::currentTime());
    // Whatever was noted has happened by now.
    lookAtNotes(now_);
    RunHistory made;
    made.end = now_;
    made.messages = messages_;
    made.reboot = reboot_;
    for (std::size_t i = 0; i < records_.size(); ++i) {
        const Record& record = records_[i];
        made.instances.push_back(record.history);
        if (!record.history.disabled) fill(made.instances.back(), record, tree);
    }
    for (const InstanceOutcome& outcome : outcomes(tree)) {
        if (there_.contains({text(outcome.stageClass), text(outcome.instance)})) continue;
        InstanceHistory& unmanaged = made.instances.emplace_back();
        unmanaged.stageClass = text(outcome.stageClass);
        unmanaged.instance = text(outcome.instance);
        unmanaged.state = outcome.state;
        unmanaged.missing = outcome.missing;
    }
    const Stage::FatalError& fatal = *tree.fatalError();
    if (!made.reboot && rebootRequested(tree))
        made.reboot = {
            now_, Orv::ValueTraits<Stage::FatalError::ResetMode>::nameOf(fatal.requestReboot()),
            text(fatal.rebootReason()), text(fatal.reloadCauseDesc())};
    return made;
}

Timeline::Timeline() : state_(std::make_unique<State>()) {}
Timeline::~Timeline() = default;

void Timeline::onBegin(const Tree& tree) { state_->begin(tree); }
void Timeline::onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) {
    state_->scalar(t, entity, attribute.name());
}
void Timeline::onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                        const Orv::Value& key) {
    state_->member(t, entity, attribute.name(), key);
}
void Timeline::onLog(double t, const Stage::InstanceLog& log) { state_->log(t, log); }
void Timeline::onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) {
    state_->message(t, message, text);
}

RunHistory Timeline::history(const Tree& tree) const { return state_->history(tree); }

}  // namespace Host
