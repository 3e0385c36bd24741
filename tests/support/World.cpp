#include "tests/support/World.h"

#include <charconv>
#include <cstdlib>
#include <stdexcept>

#include "StageMgr/Types.h"
#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "runtime/Halbe.h"
#include "runtime/LogHandle.h"
#include "runtime/TreeObserver.h"

namespace StageTest {

namespace {

// As short as it is exact.
std::string text(double number) {
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
}

std::string text(const Orv::Value& value) {
    if (value.boolean()) return *value.boolean() ? "true" : "false";
    if (value.number()) return text(*value.number());
    if (value.string()) return value.string()->str();
    if (value.reference()) return *value.reference() ? (*value.reference())->path().str() : "null";
    std::string fields;
    if (value.fields())
        for (const auto& [name, field] : *value.fields())
            fields += (fields.empty() ? "" : ":") + text(field);
    return fields;
}

bool contains(const std::string& line, const std::string& part) {
    return line.find(part) != std::string::npos;
}

template <class Map>
Lines keys(const Map& map) {
    Lines names;
    for (const auto& [key, value] : map) names.push_back(key.str());
    return names;
}

// Hands every change on as a line.
class Observer final : public Orv::TreeObserver {
  public:
    explicit Observer(std::function<void(std::string)> saw) : saw_(std::move(saw)) {}

    void onScalar(const Orv::Entity& entity, const Orv::Attribute& attribute) override {
        saw_(path(entity, attribute) + " = " + text(attribute.value(entity)));
    }
    void onMember(const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override {
        const std::string member = path(entity, attribute) + "[" + text(key) + "]";
        const Orv::Value value = attribute.member(entity, key);
        const bool made = attribute.shape() == Orv::Attribute::Shape::instantiating;
        saw_(value.absent() ? member + " -" : made ? member + " +" : member + " = " + text(value));
    }
    void onEnqueued(const Orv::Entity& entity, const Orv::Attribute& attribute) override {
        const auto& log = dynamic_cast<const Stage::InstanceLog&>(entity).log();
        saw_(path(entity, attribute) + " << " + log.back().message.str());
    }
    void onEntry(const Orv::Dir&, const Orv::Entity& entry, bool present) override {
        saw_((present ? "+ " : "- ") + entry.path().str());
    }

  private:
    static std::string path(const Orv::Entity& entity, const Orv::Attribute& attribute) {
        return entity.path().str() + "/" + std::string(attribute.name());
    }

    std::function<void(std::string)> saw_;
};

class Sink final : public Orv::TraceSink {
  public:
    std::vector<TraceLine> lines;

    void line(const Orv::TraceSite& site, const std::string& text) override {
        lines.push_back({site.level, site.unit, site.handler, site.signature, text});
    }
};

Orv::TraceHandle& handle() { return Orv::TraceHandle::named("StageMgr"); }

void write(Stage::EventConfig& event, const EventOptions& options) {
    event.timeoutIs(options.timeout);
    event.criticalIs(options.critical);
    for (const std::string& stage : options.dependsOn) event.dependencyIs(stage, true);
    if (options.autoComplete) {
        event.autoCompleteTimeoutIs(*options.autoComplete);
        event.enableAutoCompleteIs(true);
    }
    for (const std::string& instance : options.completeIn) event.completeIs(instance, true);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Reboot& reboot) {
    return out << "{" << reboot.mode << ", \"" << reboot.reason << "\", \"" << reboot.cause
               << "\"}";
}

struct System::Outside final : public Orv::Environment {
    Messages messages;
    Lines identifiers;
    Lines refused;
    Lines watchdog;
    Lines watchdogRecords;
    int watchdogRecordsHeld = 0;
    Lines printed;
    Lines errors;
    Lines observed;
    bool messagesAreOk = true;
    bool watchdogIsThere = true;
    Sink sink;
    std::unique_ptr<Observer> observer;
    bool observes = false;
    std::vector<std::pair<std::string, std::function<void()>>> hooks;

    Orv::VirtualTime time;
    Orv::ActivityManager manager{time, *this};
    Orv::ActivityScope scope{manager};

    class Record final : public Halbe::HalbeInfo {
      public:
        Record(Outside& outside, const Orv::String& name, unsigned slot, bool flag)
            : HalbeInfo(name, slot, flag), outside_(outside) {
            ++outside_.watchdogRecordsHeld;
        }
        ~Record() override { --outside_.watchdogRecordsHeld; }
        void watchdogTimeoutIs(Orv::String seconds) override {
            outside_.watchdog.push_back(seconds.str());
            outside_.saw("watchdog: " + seconds.str());
        }

      private:
        Outside& outside_;
    };

    void watch() {
        if (!observer)
            observer = std::make_unique<Observer>([this](std::string line) { saw(line); });
    }
    void saw(const std::string& line) {
        if (observes) observed.push_back(line);
        std::vector<std::function<void()>> due;
        std::erase_if(hooks, [&](auto& hook) {
            if (!contains(line, hook.first)) return false;
            due.push_back(std::move(hook.second));
            return true;
        });
        for (const auto& act : due) act();
    }

    bool okToLog(const Orv::LogHandle& message) override {
        if (!messagesAreOk) refused.push_back(message.identifier());
        return messagesAreOk;
    }
    void operatorMessage(const Orv::LogHandle& message, const Orv::String& text) override {
        identifiers.push_back(message.identifier());
        messages.push_back(text.str());
        saw("message: " + text.str());
    }
    void notificationException(const char* what) noexcept override { errors.push_back(what); }
    Orv::Ptr<Halbe::HalbeInfo> halbeInfo(const Orv::String& name, unsigned slot,
                                         bool flag) override {
        watchdogRecords.push_back(name.str() + " " + std::to_string(slot) +
                                  (flag ? " true" : " false"));
        if (!watchdogIsThere) return nullptr;
        return Orv::make<Record>(*this, name, slot, flag);
    }
    void print(const Orv::String& line) override {
        printed.push_back(line.str());
        saw("print: " + line.str());
    }
};

System::System(Manager manager) : outside_(std::make_unique<Outside>()) {
    if (std::getenv("STAGEMGR_TRACED") != nullptr) trace();
    Stage::registerTypes();
    root_ = Orv::make<Orv::Dir>();
    stageDir_ = root_->subdirIs("stage");
    inputDir_ = root_->subdirIs("input");
    agentStatusDir_ = root_->subdirIs("agentstatus");
    enableDir_ = root_->subdirIs("enable");
    globalConfig_ = Orv::make<Stage::StageGlobalConfig>("global");
    root_->entryIs(globalConfig_);
    fatalError_ = Orv::make<Stage::FatalError>("fatalerror");
    root_->entryIs(fatalError_);
    if (manager == Manager::runs) start();
}

System::~System() {
    stop();
    handle().levelIs(Orv::TraceHandle::off);
    handle().sinkIs(nullptr);
}

void System::start() {
    manager_ = Stage::stageMgrStageClassDirSmFactory(stageDir_, inputDir_, agentStatusDir_,
                                                     enableDir_, globalConfig_, fatalError_);
}

void System::stop() { manager_ = nullptr; }

StageClass& System::stageClass(const std::string& name, const ClassOptions& options) {
    std::unique_ptr<StageClass>& stageClass = classes_[name];
    if (!stageClass) stageClass = std::make_unique<StageClass>(*this, name, options);
    return *stageClass;
}

double System::now() const { return outside_->manager.currentTime(); }

void System::settle() { outside_->manager.settle(); }

void System::advance(double seconds) {
    reach(seconds);
    settle();
}

void System::reach(double seconds) {
    settle();
    outside_->manager.runUntil(now() + seconds);
}

void System::doNotStart(const std::string& stageClass, const std::string& stage, bool held) {
    globalConfig_->doNotStartStageIs({stageClass, stage}, held);
}

void System::doNotStartDel(const std::string& stageClass, const std::string& stage) {
    globalConfig_->doNotStartStageDel({stageClass, stage});
}

void System::rebootIs(Stage::FatalError::ResetMode mode) { fatalError_->requestRebootIs(mode); }

const Messages& System::messages() const { return outside_->messages; }
const Lines& System::identifiers() const { return outside_->identifiers; }
const Lines& System::refused() const { return outside_->refused; }
const Lines& System::watchdog() const { return outside_->watchdog; }
const Lines& System::watchdogRecords() const { return outside_->watchdogRecords; }
int System::watchdogRecordsHeld() const { return outside_->watchdogRecordsHeld; }
const Lines& System::printed() const { return outside_->printed; }
const Lines& System::errors() const { return outside_->errors; }

Reboot System::reboot() const {
    return {fatalError_->requestReboot(), fatalError_->rebootReason().str(),
            fatalError_->reloadCauseDesc().str()};
}

void System::messagesAreOk(bool ok) { outside_->messagesAreOk = ok; }
void System::watchdogIsThere(bool there) { outside_->watchdogIsThere = there; }

void System::observe() {
    outside_->watch();
    outside_->observes = true;
}

const Lines& System::observed() const { return outside_->observed; }

Lines System::observed(const std::string& part) const {
    Lines lines;
    for (const std::string& line : outside_->observed)
        if (contains(line, part)) lines.push_back(line);
    return lines;
}

void System::forgetObserved() { outside_->observed.clear(); }

void System::when(const std::string& part, std::function<void()> act) {
    outside_->watch();
    outside_->hooks.emplace_back(part, std::move(act));
}

void System::trace(int level) {
    forgetTraced();
    handle().sinkIs(&outside_->sink);
    handle().levelIs(level);
}

const std::vector<TraceLine>& System::traced() const { return outside_->sink.lines; }

Lines System::traced(int level, const std::string& part) const {
    Lines lines;
    for (const TraceLine& line : traced())
        if (line.level == level && contains(line.text, part)) lines.push_back(line.text);
    return lines;
}

void System::forgetTraced() { outside_->sink.lines.clear(); }

std::size_t System::armedTimers() const { return outside_->manager.clock()->armedTimers(); }

Agent& Agent::event(const std::string& stage, const EventOptions& options) {
    const Orv::Ptr<Orv::Dir> dir = stageClass_.inputDir();
    dir->entryIs(name_, "Stage::AgentConfig");
    write(*config()->eventIs(stage, name_), options);
    return *this;
}

Agent& Agent::appears(const std::map<std::string, EventOptions>& events) {
    const auto config = Orv::make<Stage::AgentConfig>(name_);
    for (const auto& [stage, options] : events) write(*config->eventIs(stage, name_), options);
    if (!stageClass_.inputDir()->entryIs(config))
        throw std::logic_error(name_ + " has a registration already; add to it with event()");
    return *this;
}

Agent& Agent::withdraw(const std::string& stage) {
    config()->eventDel(stage);
    return *this;
}

Agent& Agent::leave() {
    stageClass_.inputDir()->entryDel(name_);
    return *this;
}

Agent& Agent::report(const std::string& stage, const std::string& instance, bool complete) {
    if (const auto status = statusIs()) status->completeIs({name_, stage, instance}, complete);
    return *this;
}

Agent& Agent::withdrawReport(const std::string& stage, const std::string& instance) {
    if (const auto status = statusIs()) status->completeDel({name_, stage, instance});
    return *this;
}

Agent& Agent::request(const std::string& stage, double timeout) {
    if (const auto status = statusIs()) status->stageRequestIs(stage, {name_, stage, timeout});
    return *this;
}

Agent& Agent::withdrawRequest(const std::string& stage) {
    if (const auto status = statusIs()) status->stageRequestDel(stage);
    return *this;
}

Agent& Agent::fallSilent() {
    stageClass_.agentStatusDir()->entryDel(name_);
    return *this;
}

Orv::Ptr<Stage::AgentConfig> Agent::config() const {
    return stageClass_.inputDir()->entityPtr<Stage::AgentConfig>(name_);
}

Orv::Ptr<Stage::AgentStatus> Agent::status() const {
    return stageClass_.agentStatusDir()->entityPtr<Stage::AgentStatus>(name_);
}

Orv::Ptr<Stage::EventConfig> Agent::registered(const std::string& stage) const {
    const Orv::Ptr<Stage::AgentConfig> registration = config();
    return registration ? registration->event(stage) : nullptr;
}

Orv::Ptr<Stage::AgentStatus> Agent::statusIs() {
    stageClass_.agentStatusDir()->entryIs(name_, "Stage::AgentStatus");
    return status();
}

StageClass::StageClass(System& system, std::string name, const ClassOptions& options)
    : system_(system), name_(std::move(name)) {
    const auto config = Orv::make<Stage::Config>("config");
    config->stageClassIs(name_);
    config->applicationIs(options.application.value_or(name_));
    config->globalStageCompletionTimeoutIs(options.deadline);
    config->stageTimeoutIsFatalIs(options.timeoutIsFatal);
    config->continueOnTimeoutIs(options.continueOnTimeout);
    config->resetModeIs(options.resetMode);
    config->reloadCauseDescIs(options.reloadCause);

    system_.inputDir()->subdirIs(name_);
    system_.agentStatusDir()->subdirIs(name_);
    system_.enableDir()->entryIs(name_, "Stage::EnabledConfig");
    const Orv::Ptr<Orv::Dir> dir = system_.stageDir()->subdirIs(name_);
    dir->subdirIs("config")->entryIs(config);
    dir->entryIs("status", "Stage::Status");
    dir->entryIs("completionstatus", "Stage::CompletionStatusDir");
    dir->entryIs("progress", "Stage::ProgressDir");
    dir->entryIs("log", "Stage::Log");
}

void StageClass::enable(const std::string& instance, bool enabled) {
    enabledConfig()->enabledIs(instance, enabled);
}

void StageClass::disable(const std::string& instance) { enabledConfig()->enabledDel(instance); }

void StageClass::suspend(const std::string& instance, bool suspended) {
    enabledConfig()->suspendedIs(instance, suspended);
}

void StageClass::suspendDel(const std::string& instance) {
    enabledConfig()->suspendedDel(instance);
}

void StageClass::hold(const std::string& stage, bool held) {
    system_.doNotStart(name_, stage, held);
}

void StageClass::holdDel(const std::string& stage) { system_.doNotStartDel(name_, stage); }

Lines StageClass::log(const std::string& instance) const {
    Lines lines;
    if (const Orv::Ptr<Stage::InstanceLog> log = instanceLog(instance))
        for (const Stage::LogEntry& entry : log->log()) lines.push_back(entry.message.str());
    return lines;
}

Lines StageClass::timedLog(const std::string& instance) const {
    Lines lines;
    if (const Orv::Ptr<Stage::InstanceLog> log = instanceLog(instance))
        for (const Stage::LogEntry& entry : log->log())
            lines.push_back(text(entry.time) + " " + entry.message.str());
    return lines;
}

bool StageClass::instanceComplete(const std::string& instance) const {
    const Orv::Ptr<Stage::CompletionStatus> record = completionStatus(instance);
    return record && record->complete();
}

Lines StageClass::activeStages(const std::string& instance) const {
    const Orv::Ptr<Stage::InstanceStatus> status = instanceStatus(instance);
    return status ? keys(status->activeStage()) : Lines();
}

Lines StageClass::pendingEvents(const std::string& instance, const std::string& stage) const {
    const Stage::StageSm* const running = stageSm(instance, stage);
    return running != nullptr ? keys(running->pendingEvent()) : Lines();
}

Orv::Ptr<Orv::Dir> StageClass::inputDir() const {
    return system_.inputDir()->entityPtr<Orv::Dir>(name_);
}

Orv::Ptr<Orv::Dir> StageClass::agentStatusDir() const {
    return system_.agentStatusDir()->entityPtr<Orv::Dir>(name_);
}

Orv::Ptr<Stage::Config> StageClass::config() const {
    const Orv::Ptr<Orv::Dir> dir = entry<Orv::Dir>("config");
    return dir ? dir->entityPtr<Stage::Config>("config") : nullptr;
}

Orv::Ptr<Stage::EnabledConfig> StageClass::enabledConfig() const {
    return system_.enableDir()->entityPtr<Stage::EnabledConfig>(name_);
}

template <class T>
Orv::Ptr<T> StageClass::entry(const char* name) const {
    const Orv::Ptr<Orv::Dir> dir = system_.stageDir()->entityPtr<Orv::Dir>(name_);
    return dir ? dir->entityPtr<T>(name) : nullptr;
}

Orv::Ptr<Stage::Status> StageClass::status() const { return entry<Stage::Status>("status"); }

Orv::Ptr<Stage::CompletionStatusDir> StageClass::completionStatusDir() const {
    return entry<Stage::CompletionStatusDir>("completionstatus");
}

Orv::Ptr<Stage::ProgressDir> StageClass::progressDir() const {
    return entry<Stage::ProgressDir>("progress");
}

Orv::Ptr<Stage::Log> StageClass::logs() const { return entry<Stage::Log>("log"); }

Orv::Ptr<Stage::StageStatus> StageClass::stage(const std::string& name) const {
    return status()->stage(name);
}

Orv::Ptr<Stage::EventConfig> StageClass::event(const std::string& stage,
                                               const std::string& agent) const {
    const Orv::Ptr<Stage::StageStatus> found = this->stage(stage);
    return found ? found->event(agent) : nullptr;
}

Orv::Ptr<Stage::InstanceStatus> StageClass::instanceStatus(const std::string& instance) const {
    return status()->instStatus(instance);
}

Orv::Ptr<Stage::CompletionStatus> StageClass::completionStatus(const std::string& instance) const {
    return completionStatusDir()->status(instance);
}

Orv::Ptr<Stage::Progress> StageClass::progress(const std::string& instance) const {
    return progressDir()->progress(instance);
}

Orv::Ptr<Stage::InstanceLog> StageClass::instanceLog(const std::string& instance) const {
    return logs()->instanceLog(instance);
}

Orv::Ptr<Stage::AgentStatusLocal> StageClass::agentStatusLocal() const {
    return stageMgr() != nullptr ? stageMgr()->agentStatusLocal() : nullptr;
}

Stage::StageMgr* StageClass::stageMgr() const {
    return system_.manager() ? system_.manager()->stageMgr().find(name_) : nullptr;
}

Stage::ConfigSm* StageClass::configSm() const {
    return stageMgr() != nullptr ? stageMgr()->configSm().get() : nullptr;
}

Stage::StatusSm* StageClass::statusSm() const {
    return stageMgr() != nullptr ? stageMgr()->statusSm().get() : nullptr;
}

Stage::InstanceStatusSm* StageClass::instance(const std::string& instance) const {
    return statusSm() != nullptr ? statusSm()->instStatusSm().find(instance) : nullptr;
}

Stage::StageEnableSm* StageClass::stageEnableSm(const std::string& instance,
                                                const std::string& stage) const {
    const Stage::InstanceStatusSm* const sm = this->instance(instance);
    return sm != nullptr ? sm->stageEnableSm().find(stage) : nullptr;
}

Stage::StageSm* StageClass::stageSm(const std::string& instance, const std::string& stage) const {
    const Stage::InstanceStatusSm* const sm = this->instance(instance);
    return sm != nullptr ? sm->stageSm().find(stage) : nullptr;
}

Stage::AutoCompleteSm* StageClass::autoCompleteSm(const std::string& instance,
                                                  const std::string& stage,
                                                  const std::string& agent) const {
    const Stage::StageSm* const running = stageSm(instance, stage);
    if (running == nullptr) return nullptr;
    const Orv::Value child =
        Stage::StageSm::type().attribute("autoCompleteSm")->member(*running, Orv::String(agent));
    return child.reference() != nullptr
               ? dynamic_cast<Stage::AutoCompleteSm*>(child.reference()->get())
               : nullptr;
}

}  // namespace StageTest
