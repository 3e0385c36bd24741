#include "tests/conformance/Invariants.h"

#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/StatusSm.h"
#include "model/EnabledConfig.h"
#include "model/Status.h"
#include "runtime/Type.h"

namespace conformance {
namespace {

using Shape = Orv::Attribute::Shape;

bool completeIn(const Stage::InstanceStatusSm& instance, const Orv::Name& stage) {
    const Stage::StageSm* const running = instance.stageSm().find(stage);
    return instance.instanceStatus()->activeStage().contains(stage) && running != nullptr &&
           running->complete();
}

const Stage::Status& statusOf(const Stage::InstanceStatusSm& instance) {
    return *std::get<2>(instance.arguments());
}

// Keys of children that can be reached by reflection alone.
std::vector<std::string> keysOf(const Orv::PtrInterface& reactor, const char* children) {
    std::vector<std::string> names;
    for (const Orv::Value& key : reactor.typeInfo()->attribute(children)->keys(reactor))
        names.push_back(key.string()->str());
    return names;
}

std::string inQuotes(std::string_view text) { return '"' + std::string(text) + '"'; }

}  // namespace

Invariants::Invariants(const Host::Tree& tree, Report report)
    : tree_(tree), report_(std::move(report)) {}

const Stage::StageMgrStageClassDirSm* Invariants::top() const {
    return dynamic_cast<const Stage::StageMgrStageClassDirSm*>(tree_.manager().get());
}

void Invariants::onLog(const Stage::InstanceLog& log) {
    const std::vector<Orv::Name> names = Host::pathNames(log.path().str());
    const Stage::StageMgr* const manager =
        names.size() == 5 && top() != nullptr ? top()->stageMgr().find(names[1]) : nullptr;
    if (manager == nullptr || !manager->statusSm()) return;
    const Stage::InstanceStatusSm* const instance =
        manager->statusSm()->instStatusSm().find(log.key());
    if (instance == nullptr) return;  // it is in the making

    const std::string application = instance->application().str();
    const std::string line = log.log().back().message.str();
    const std::string where = log.path().str() + ": " + inQuotes(line);
    constexpr std::string_view before = "stage ";
    constexpr std::string_view after = " started";
    if (line == application + " stages complete") {
        for (const auto& [name, stage] : statusOf(*instance).stage())
            expect(completeIn(*instance, name), where + ", but " + inQuotes(name) + " is not");
    } else if (line.starts_with(before) && line.ends_with(after) &&
               line != application + " stages started") {
        const std::string name =
            line.substr(before.size(), line.size() - before.size() - after.size());
        const Orv::Ptr<Stage::StageStatus> stage = statusOf(*instance).stage(name);
        expect(static_cast<bool>(stage), where + ", but there is no such stage");
        if (!stage) return;
        for (const auto& [dependency, depends] : stage->dependency())
            expect(completeIn(*instance, dependency),
                   where + ", but " + inQuotes(dependency) + " is not complete");
    }
}

void Invariants::onScalar(const Orv::Entity& entity, const Orv::Attribute& attribute) {
    if (&entity != tree_.fatalError().get() ||
        attribute.name() != std::string_view("requestReboot"))
        return;
    expect(!rebootAsked_, "a reboot is asked for while one is asked for");
    onInput();
}

void Invariants::onInput() {
    rebootAsked_ = tree_.fatalError()->requestReboot() != Stage::FatalError::ResetMode();
}

void Invariants::onStanding() {
    onEntity(*tree_.root());
    if (top() == nullptr) return;
    for (const auto& [name, watcher] : top()->stageSubPathSm().map())
        expect(watcher->name() == name, "/sm/stageSubPathSm/" + name.str() + " bears another name");
    for (const auto& [name, manager] : top()->stageMgr().map()) onStageMgr(name, *manager);
}

void Invariants::onStandingCutOff() {
    cutOff_ = true;
    onStanding();
    cutOff_ = false;
}

void Invariants::onEntity(const Orv::Entity& entity) {
    const auto held = [&](const Orv::Name& key, const Orv::Entity& member) {
        // The paths only when they are wanted: there are many entities.
        if (member.key() != key) report_(member.path().str() + " stands under another name");
        if (member.parent() != &entity)
            report_(member.path().str() + " does not know where it stands");
        onEntity(member);
    };
    if (const auto* const dir = dynamic_cast<const Orv::Dir*>(&entity)) {
        for (const auto& [name, entry] : dir->entries()) held(name, *entry);
        return;
    }
    for (const auto& attribute : entity.info().attributes()) {
        if (attribute->shape() != Shape::instantiating) continue;
        for (const Orv::Value& key : attribute->keys(entity)) {
            const Orv::Value member = attribute->member(entity, key);
            held(*key.string(), dynamic_cast<const Orv::Entity&>(**member.reference()));
        }
    }
}

void Invariants::onStageMgr(const Orv::Name& stageClass, const Stage::StageMgr& manager) {
    const std::string path = "/sm/stageMgr/" + stageClass.str();
    expect(manager.name() == stageClass, path + " bears another name");
    expect(top()->availableStageSubPath()->stageSubPath().contains(stageClass),
           path + " was not published");
    if (manager.configSm()) onConfigSm(path + "/configSm", *manager.configSm());
    if (!manager.statusSm()) return;
    const auto enabledConfig = std::get<1>(manager.statusSm()->arguments());
    for (const auto& [name, instance] : manager.statusSm()->instStatusSm().map()) {
        const std::string its = path + "/statusSm/instStatusSm/" + name.str();
        expect(cutOff_ || enabledConfig->enabled(name), its + " is not enabled");
        onInstance(its, name, *instance, manager);
    }
}

void Invariants::onConfigSm(const std::string& path, const Stage::ConfigSm& configSm) {
    for (const auto& [name, agent] : configSm.agentStatusSm().map())
        expect(agent->agentName() == name, path + "/agentStatusSm/" + name.str() + " is another's");
    for (const std::string& name : keysOf(configSm, "agentConfig"))
        expect(configSm.agentConfig(name)->agent() == name,
               path + "/agentConfig/" + name + " is another's");

    if (cutOff_) return;
    const auto& stages = configSm.status()->stage();
    expect(keysOf(configSm, "stageStatus").size() == stages.size(),
           path + " has more or fewer stages than its status");
    for (const auto& [name, stage] : stages) {
        const Stage::ConfigSm::OrvStageStatus* const held = configSm.stageStatus(name);
        expect(held != nullptr && held->entity() == stage.get(),
               path + " has not the stage " + inQuotes(name) + " of its status");
        if (held == nullptr) continue;
        for (const auto& [ancestor, value] : held->criticalAncestor())
            expect(value, path + "/stageStatus/" + name.str() + " has a false critical ancestor");
    }
}

void Invariants::onInstance(const std::string& path, const Orv::Name& name,
                            const Stage::InstanceStatusSm& instance,
                            const Stage::StageMgr& manager) {
    expect(instance.instanceName() == name, path + " is another's");
    expect(cutOff_ || instance.logSm(), path + " has no log");
    for (const auto& [stage, waiting] : instance.stageEnableSm().map()) {
        const std::string its = path + "/stageEnableSm/" + stage.str();
        expect(waiting->stage() && waiting->stage()->key() == stage, its + " is another's");
        expect(waiting->mainSm() == &instance, its + " does not know its owner");
        expect(!instance.stageSm().contains(stage), its + " waits for what has started");
    }
    for (const auto& [stage, running] : instance.stageSm().map()) {
        const std::string its = path + "/stageSm/" + stage.str();
        expect(running->stageName() == stage, its + " is another's");
        expect(running->mainSm() == &instance, its + " does not know its owner");
        expect(running->instanceName() == name, its + " is of another instance");
        expect(running->logSm() == instance.logSm(), its + " writes to another log");
        expect(running->agentStatusLocal() == manager.agentStatusLocal(),
               its + " watches another record");
        expect(!running->complete() || running->timeMin() == Orv::never,
               its + " is complete and has a time limit");
    }
}

}  // namespace conformance
