#include "tests/conformance/Model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <set>

namespace conformance {
namespace {

// Escapes a callback; the delivery that called it goes on with the next watcher.
struct CallbackError {
    std::string text;
};

// A failed assertion; nothing goes on.
struct Abort {
    std::string text;
};

enum class Who { manager, input };

// Positions in the table of attributes.
namespace config {
enum : std::size_t {
    stageClass,
    application,
    agentDir,
    stageTimeoutIsFatal,
    continueOnTimeout,
    globalLimit,
    resetMode,
    reloadCauseDesc
};
}
namespace eventConfig {
enum : std::size_t {
    name,
    stage,
    agent,
    complete,
    error,
    dependency,
    timeout,
    critical,
    autoCompleteTimeout,
    enableAutoComplete,
    completeNotRunnable
};
}
namespace agentConfig {
enum : std::size_t { event, createdOnStageRequest };
}
namespace agentStatus {
enum : std::size_t { complete, stageRequest };
}
namespace agentStatusLocal {
enum : std::size_t { complete };
}
namespace enabledConfig {
enum : std::size_t { enabled, suspended };
}
namespace globalConfig {
enum : std::size_t { doNotStartStage };
}
namespace status {
enum : std::size_t { stage, instStatus };
}
namespace stageStatus {
enum : std::size_t { event, dependency, timeout, critical };
}
namespace instanceStatus {
enum : std::size_t { activeStage, progress, complete, suspended };
}
namespace completionDir {
enum : std::size_t { status };
}
namespace completionStatus {
enum : std::size_t { complete };
}
namespace progressDir {
enum : std::size_t { progress };
}
namespace progress {
enum : std::size_t { stage };
}
namespace log {
enum : std::size_t { instanceLog };
}
namespace fatalError {
enum : std::size_t { requestReboot, rebootReason, reloadCauseDesc };
}
constexpr std::size_t entries = 0;

bool isScalar(Holds holds) {
    return holds == Holds::flag || holds == Holds::number || holds == Holds::text ||
           holds == Holds::mode || holds == Holds::reference;
}

Value initialOf(Holds holds) {
    switch (holds) {
        case Holds::flag: return false;
        case Holds::number: return 0.0;
        case Holds::text: return std::string();
        case Holds::mode: return std::string("none");
        case Holds::reference: return Ref{};
        default: return std::monostate{};
    }
}

std::size_t indexOf(Type type, std::string_view attr) {
    const auto& attributes = attributesOf(type);
    for (std::size_t i = 0; i < attributes.size(); ++i)
        if (attributes[i].name == attr) return i;
    return attributes.size();
}

// --- Reading entities

Entity& at(State& s, Id id) { return s.entities[id]; }
const Entity& at(const State& s, Id id) { return s.entities[id]; }

bool flag(const State& s, Id id, std::size_t attr) {
    return std::get<bool>(at(s, id).scalars[attr]);
}
double number(const State& s, Id id, std::size_t attr) {
    return std::get<double>(at(s, id).scalars[attr]);
}
std::string text(const State& s, Id id, std::size_t attr) {
    return std::get<std::string>(at(s, id).scalars[attr]);
}

const Value* member(const State& s, Id id, std::size_t attr, const Key& key) {
    for (const auto& [k, v] : at(s, id).collections[attr])
        if (k == key) return &v;
    return nullptr;
}
bool memberIsTrue(const State& s, Id id, std::size_t attr, const Key& key) {
    const Value* value = member(s, id, attr, key);
    return value && std::get<bool>(*value);
}
Id memberRef(const State& s, Id id, std::size_t attr, const std::string& name) {
    const Value* value = member(s, id, attr, nameKey(name));
    return value ? std::get<Ref>(*value).id : 0;
}
std::vector<Key> keys(const State& s, Id id, std::size_t attr) {
    std::vector<Key> result;
    for (const auto& each : at(s, id).collections[attr]) result.push_back(each.first);
    return result;
}
Id entry(const State& s, Id dir, const std::string& name, Type type) {
    const Id found = memberRef(s, dir, entries, name);
    return found && at(s, found).type == type ? found : 0;
}

Value shown(const State& s, const Value& value) {
    if (const Ref* ref = std::get_if<Ref>(&value))
        return ref->id ? Value(at(s, ref->id).path) : Value(std::monostate{});
    return value;
}

// --- Observing

void observe(State& s, Observation what) {
    what.t = s.now;
    s.observed.push_back(std::move(what));
}

void observeWrite(State& s, Who who, Observation::Kind kind, Id entity, std::size_t attr,
                  std::optional<Key> key, std::optional<Value> value) {
    if (who == Who::input) return;
    Observation what;
    what.kind = kind;
    what.path = at(s, entity).path;
    what.attr = attributesOf(at(s, entity).type)[attr].name;
    what.key = std::move(key);
    if (value) what.value = shown(s, *value);
    observe(s, std::move(what));
}

void observeEntry(State& s, Who who, Observation::Kind kind, Id entity) {
    if (who == Who::input) return;
    Observation what;
    what.kind = kind;
    what.path = at(s, entity).path;
    what.type = nameOf(at(s, entity).type);
    observe(s, std::move(what));
}

void observeText(State& s, Observation::Kind kind, std::string text) {
    Observation what;
    what.kind = kind;
    what.text = std::move(text);
    observe(s, std::move(what));
}

void raise(State& s, const char* id, int severity, std::string text) {
    Observation what;
    what.kind = Observation::Kind::message;
    what.id = id;
    what.severity = severity;
    what.text = std::move(text);
    observe(s, std::move(what));
}

// --- Telling

void watch(State& s, Id entity, Watcher kind, Id reactor, bool on) {
    at(s, entity).watches.push_back({++s.serial, kind, reactor, on});
}

void switchOn(State& s, Id entity, Watcher kind, Id reactor) {
    for (Watch& each : at(s, entity).watches)
        if (each.kind == kind && each.reactor == reactor) each.on = true;
}

void unwatch(State& s, Id entity, Watcher kind, Id reactor) {
    auto& watches = at(s, entity).watches;
    watches.erase(
        std::remove_if(watches.begin(), watches.end(),
                       [&](const Watch& w) { return w.kind == kind && w.reactor == reactor; }),
        watches.end());
}

void deliver(State& s, const Watch& watch, std::size_t attr, const Key& key);

// Who joins during the delivery has read the state already; who leaves is told no more.
void tell(State& s, Id entity, std::size_t attr, const Key& key) {
    std::vector<std::uint64_t> serials;
    for (const Watch& each : at(s, entity).watches) serials.push_back(each.serial);

    for (const std::uint64_t serial : serials) {
        const auto& watches = at(s, entity).watches;
        const auto found = std::find_if(watches.begin(), watches.end(),
                                        [&](const Watch& w) { return w.serial == serial; });
        if (found == watches.end() || !found->on) continue;
        const Watch told = *found;
        try {
            deliver(s, told, attr, key);
        } catch (const CallbackError& error) {
            observeText(s, Observation::Kind::error, error.text);
        }
    }
}

// --- Writing entities

Id makeEntity(State& s, Type type, std::string name, std::string path, Id owner) {
    Entity made;
    made.type = type;
    made.name = std::move(name);
    made.path = std::move(path);
    made.owner = owner;
    const auto& attributes = attributesOf(type);
    for (const Attribute& each : attributes) made.scalars.push_back(initialOf(each.holds));
    made.collections.resize(attributes.size());
    s.entities.push_back(std::move(made));
    return static_cast<Id>(s.entities.size() - 1);
}

void put(State& s, Id id, std::size_t attr, Value value, Who who = Who::manager) {
    Value& held = at(s, id).scalars[attr];
    if (held == value) return;  // a NaN never is
    held = value;
    observeWrite(s, who, Observation::Kind::set, id, attr, std::nullopt, value);
    tell(s, id, attr, Key{});
}

void putMember(State& s, Id id, std::size_t attr, const Key& key, const Value& value,
               Who who = Who::manager) {
    Members& members = at(s, id).collections[attr];
    const auto held = std::find_if(members.begin(), members.end(),
                                   [&](const auto& each) { return each.first == key; });
    if (held == members.end())
        members.emplace_back(key, value);
    else if (held->second == value)
        return;
    else
        held->second = value;
    observeWrite(s, who, Observation::Kind::set, id, attr, key, value);
    tell(s, id, attr, key);
}

bool eraseMember(State& s, Id id, std::size_t attr, const Key& key) {
    Members& members = at(s, id).collections[attr];
    const auto held = std::find_if(members.begin(), members.end(),
                                   [&](const auto& each) { return each.first == key; });
    if (held == members.end()) return false;
    members.erase(held);
    return true;
}

void dropMember(State& s, Id id, std::size_t attr, const Key& key, Who who = Who::manager) {
    if (!eraseMember(s, id, attr, key)) return;
    observeWrite(s, who, Observation::Kind::unset, id, attr, key, std::nullopt);
    tell(s, id, attr, key);
}

void dropMembers(State& s, Id id, std::size_t attr, Who who = Who::manager) {
    for (const Key& key : keys(s, id, attr)) dropMember(s, id, attr, key, who);
}

// The member of a collection that makes its members.
Id makeMember(State& s, Id id, std::size_t attr, const std::string& name, Who who = Who::manager) {
    if (const Id held = memberRef(s, id, attr, name)) return held;
    const Attribute& attribute = attributesOf(at(s, id).type)[attr];
    const std::string path =
        at(s, id).path + '/' + std::string(attribute.name) + '/' + escaped(name);
    const Id made = makeEntity(s, attribute.target, name, path, id);
    if (attribute.target == Type::EventConfig) {
        at(s, made).scalars[eventConfig::name] = name + ':' + at(s, id).name;
        at(s, made).scalars[eventConfig::stage] = name;
        at(s, made).scalars[eventConfig::agent] = at(s, id).name;
    }
    at(s, id).collections[attr].emplace_back(nameKey(name), Ref{made});
    observeWrite(s, who, Observation::Kind::set, id, attr, nameKey(name), std::nullopt);
    tell(s, id, attr, nameKey(name));
    return made;
}

// Leaves whatever stands under the name as it is.
void makeEntry(State& s, Id dir, const std::string& name, Type type, Who who = Who::manager) {
    if (memberRef(s, dir, entries, name)) return;
    const Id made = makeEntity(s, type, name, at(s, dir).path + '/' + escaped(name), dir);
    at(s, dir).collections[entries].emplace_back(nameKey(name), Ref{made});
    observeEntry(s, who, Observation::Kind::create, made);
    tell(s, dir, entries, nameKey(name));
}

// What goes with an entry is told of, but not observed: it is no write of its own.
void dropEntry(State& s, Id dir, const std::string& name, Who who = Who::manager) {
    const Id gone = memberRef(s, dir, entries, name);
    if (!gone) return;
    eraseMember(s, dir, entries, nameKey(name));
    observeEntry(s, who, Observation::Kind::remove, gone);

    if (at(s, gone).type == Type::Dir) {
        for (const Key& key : keys(s, gone, entries)) dropEntry(s, gone, key.first, Who::input);
    } else {
        const auto& attributes = attributesOf(at(s, gone).type);
        for (std::size_t attr = 0; attr < attributes.size(); ++attr)
            if (attributes[attr].holds == Holds::owned) dropMembers(s, gone, attr, Who::input);
    }
    tell(s, dir, entries, nameKey(name));
}

// --- Timers

Timer* timerOf(State& s, Alarm alarm, Id reactor) {
    switch (alarm) {
        case Alarm::pass: return &s.instance.at(reactor).pass;
        case Alarm::deadline: return &s.instance.at(reactor).deadline;
        case Alarm::stage: return &s.running.at(reactor).timer;
        case Alarm::autoComplete: return &s.autoCompletion.at(reactor).timer;
    }
    return nullptr;
}

void disarm(State& s, const Timer& timer) { s.armed.erase({timer.wake, timer.serial}); }

void arm(State& s, Alarm alarm, Id reactor, double wake) {
    Timer& timer = *timerOf(s, alarm, reactor);
    if (timer.wake == wake) return;  // keeps its place
    if (!std::isnan(timer.wake)) disarm(s, timer);
    timer.wake = wake;
    timer.serial = ++s.serial;
    if (wake < never) s.armed[{wake, timer.serial}] = {alarm, reactor};
}

void stopped(State& s, Timer& timer) {
    if (!std::isnan(timer.wake)) disarm(s, timer);
    timer.wake = never;
}

// --- Children

Id child(const Children& children, const std::string& name) {
    for (const auto& [key, id] : children)
        if (key == name) return id;
    return 0;
}
void putChild(Children& children, const std::string& name, Id id) {
    for (auto& [key, held] : children)
        if (key == name) {
            held = id;
            return;
        }
    children.emplace_back(name, id);
}
Id takeChild(Children& children, const std::string& name) {
    for (auto each = children.begin(); each != children.end(); ++each)
        if (each->first == name) {
            const Id id = each->second;
            children.erase(each);
            return id;
        }
    return 0;
}
Names namesOf(const Children& children) {
    Names names;
    for (const auto& each : children) names.push_back(each.first);
    return names;
}
Names sortedNamesOf(const Children& children) {
    Names names = namesOf(children);
    std::sort(names.begin(), names.end());
    return names;
}

CallbackError differs(const State& s, const char* argument, Id given, Id held) {
    const auto textOf = [&](Id id) { return id ? at(s, id).path : std::string("null"); };
    return {"Reinstantiating the pointer interface where constructor parameter attribute _" +
            std::string(argument) + " has a different value of " + textOf(given) +
            " than the current value of " + textOf(held) + " not allowed"};
}

Id nextReactor(State& s) { return ++s.lastReactor; }

// --- Small questions

bool rebootPending(const State& s) { return text(s, s.fatal, fatalError::requestReboot) != "none"; }

std::string applicationOf(const State& s, const Instance& instance) {
    return text(s, s.manager.at(instance.manager).config, config::application);
}

std::string formatted(const char* format, double value) {
    std::array<char, 64> buffer{};
    std::snprintf(buffer.data(), buffer.size(), format, value);
    return buffer.data();
}

std::string wholeSeconds(double seconds) {
    if (std::isnan(seconds) || seconds <= 0) return "0";
    if (seconds >= 4294967295.0) return "4294967295";
    return std::to_string(static_cast<std::uint32_t>(seconds));
}

// --- Criticality, dependencies and limits of a stage

void recomputeCritical(State& s, Id r);

void addAncestor(State& s, Id r, const std::string& ancestor) {
    auto& ancestors = s.stage.at(r).criticalAncestors;
    if (std::find(ancestors.begin(), ancestors.end(), ancestor) != ancestors.end()) return;
    ancestors.push_back(ancestor);
    recomputeCritical(s, r);
}

void dropAncestor(State& s, Id r, const std::string& ancestor) {
    auto& ancestors = s.stage.at(r).criticalAncestors;
    const auto found = std::find(ancestors.begin(), ancestors.end(), ancestor);
    if (found == ancestors.end()) return;
    ancestors.erase(found);
    recomputeCritical(s, r);
}

void recomputeCritical(State& s, Id r) {
    const StageRecord& stage = s.stage.at(r);
    bool critical = !stage.criticalAncestors.empty();
    for (const auto& [agent, ec] : at(s, stage.status).collections[stageStatus::event])
        critical = critical || flag(s, std::get<Ref>(ec).id, eventConfig::critical);
    put(s, stage.status, stageStatus::critical, critical);

    for (const Key& dependency : keys(s, stage.status, stageStatus::dependency)) {
        const Id d = child(s.manager.at(stage.manager).stages, dependency.first);
        if (!d) continue;
        if (flag(s, stage.status, stageStatus::critical))
            addAncestor(s, d, stage.name);
        else
            dropAncestor(s, d, stage.name);
    }
}

void stageDependencyChanged(State& s, Id r, const std::string& dependency) {
    const StageRecord& stage = s.stage.at(r);
    const Manager& m = s.manager.at(stage.manager);
    if (!memberRef(s, m.status, status::stage, dependency)) return;
    const Id d = child(m.stages, dependency);
    if (!d) return;
    if (memberIsTrue(s, stage.status, stageStatus::dependency, nameKey(dependency)) &&
        flag(s, stage.status, stageStatus::critical))
        addAncestor(s, d, stage.name);
    else
        dropAncestor(s, d, stage.name);
}

void maybeDropDependency(State& s, Id r, const std::string& dependency) {
    const Id ss = s.stage.at(r).status;
    for (const auto& [agent, ec] : at(s, ss).collections[stageStatus::event])
        if (memberIsTrue(s, std::get<Ref>(ec).id, eventConfig::dependency, nameKey(dependency)))
            return;
    dropMember(s, ss, stageStatus::dependency, nameKey(dependency));
}

void eventDependencyChanged(State& s, Id e, const std::string& dependency) {
    const EventRecord& event = s.event.at(e);
    const Id ss = s.stage.at(event.stage).status;
    const bool held = memberIsTrue(s, ss, stageStatus::dependency, nameKey(dependency));
    if (!held && memberIsTrue(s, event.config, eventConfig::dependency, nameKey(dependency)))
        putMember(s, ss, stageStatus::dependency, nameKey(dependency), true);
    else if (held)
        maybeDropDependency(s, event.stage, dependency);
}

void recomputeLimit(State& s, Id r) {
    const Id ss = s.stage.at(r).status;
    float largest = 0;
    for (const auto& [agent, ec] : at(s, ss).collections[stageStatus::event]) {
        const double limit = number(s, std::get<Ref>(ec).id, eventConfig::timeout);
        if (!(static_cast<double>(largest) > limit)) largest = static_cast<float>(limit);
    }
    put(s, ss, stageStatus::timeout, static_cast<double>(largest));
}

void withdrawEvent(State& s, Id r, const std::string& agent) {
    const Id ss = s.stage.at(r).status;
    const Id ec = memberRef(s, ss, stageStatus::event, agent);
    const double stageLimit = number(s, ss, stageStatus::timeout);
    const double eventLimit = number(s, ec, eventConfig::timeout);
    const std::size_t before = at(s, ec).collections[eventConfig::dependency].size();

    dropMember(s, ss, stageStatus::event, nameKey(agent));
    if (at(s, ec).collections[eventConfig::dependency].size() != before)
        throw Abort{"ec->dependencys() == before"};

    for (const Key& dependency : keys(s, ec, eventConfig::dependency))
        maybeDropDependency(s, r, dependency.first);
    recomputeCritical(s, r);
    if (stageLimit == eventLimit) recomputeLimit(s, r);
}

// --- The records of stages and of their events

void forgetEvent(State& s, Id e) {
    if (!e) return;
    unwatch(s, s.event.at(e).config, Watcher::event, e);
    s.event.erase(e);
}

void forgetStage(State& s, Id r) {
    if (!r) return;
    unwatch(s, s.stage.at(r).status, Watcher::stage, r);
    for (const auto& each : s.stage.at(r).events) forgetEvent(s, each.second);
    s.stage.erase(r);
}

void followEvent(State& s, Id r, const std::string& agent, Id ec) {
    const Id held = child(s.stage.at(r).events, agent);
    if (held && s.event.at(held).config == ec) return;

    const Id e = nextReactor(s);
    s.event[e] = {r, agent, ec};
    watch(s, ec, Watcher::event, e, false);
    for (const Key& dependency : keys(s, ec, eventConfig::dependency))
        eventDependencyChanged(s, e, dependency.first);
    recomputeLimit(s, r);
    recomputeCritical(s, r);

    putChild(s.stage.at(r).events, agent, e);
    switchOn(s, ec, Watcher::event, e);
    forgetEvent(s, held);
}

void stageEventChanged(State& s, Id r, const std::string& agent) {
    if (const Id ec = memberRef(s, s.stage.at(r).status, stageStatus::event, agent))
        followEvent(s, r, agent, ec);
    else
        forgetEvent(s, takeChild(s.stage.at(r).events, agent));
}

void followStage(State& s, Id m, const std::string& name, Id ss) {
    const Id held = child(s.manager.at(m).stages, name);
    if (held && s.stage.at(held).status == ss) return;

    const Id r = nextReactor(s);
    s.stage[r] = {m, name, ss, {}, {}};
    watch(s, ss, Watcher::stage, r, false);
    for (const Key& agent : keys(s, ss, stageStatus::event))
        if (const Id ec = memberRef(s, ss, stageStatus::event, agent.first))
            followEvent(s, r, agent.first, ec);
    recomputeCritical(s, r);

    putChild(s.manager.at(m).stages, name, r);
    switchOn(s, ss, Watcher::stage, r);
    forgetStage(s, held);
}

void classStageChanged(State& s, Id m, const std::string& name) {
    if (const Id ss = memberRef(s, s.manager.at(m).status, status::stage, name))
        followStage(s, m, name, ss);
    else
        forgetStage(s, takeChild(s.manager.at(m).stages, name));

    // A stage that comes after those that depend on it receives their criticality now.
    for (const std::string& other : namesOf(s.manager.at(m).stages)) {
        const Id r = child(s.manager.at(m).stages, other);
        if (r && memberIsTrue(s, s.stage.at(r).status, stageStatus::dependency, nameKey(name)))
            stageDependencyChanged(s, r, name);
    }
}

// --- Registrations

void registrationChanged(State& s, Id m, const std::string& agent, const std::string& stage) {
    const Manager& manager = s.manager.at(m);
    Id ss = memberRef(s, manager.status, status::stage, stage);
    const Id ac = entry(s, manager.agentDir, agent, Type::AgentConfig);
    const Id ec = ac ? memberRef(s, ac, agentConfig::event, stage) : 0;
    const bool listed = ss && member(s, ss, stageStatus::event, nameKey(agent));

    if (listed) {
        const Id r = child(manager.stages, stage);
        if (!ec && r) withdrawEvent(s, r, agent);
        return;
    }
    if (!ec) return;

    ss = makeMember(s, manager.status, status::stage, stage);
    putMember(s, ss, stageStatus::event, nameKey(text(s, ec, eventConfig::agent)), Ref{ec});
    if (number(s, ss, stageStatus::timeout) <= number(s, ec, eventConfig::timeout))
        put(s, ss, stageStatus::timeout, number(s, ec, eventConfig::timeout));
}

void forgetAgent(State& s, Id a) {
    if (!a) return;
    unwatch(s, s.agent.at(a).config, Watcher::agent, a);
    s.agent.erase(a);
}

void agentChanged(State& s, Id m, const std::string& name) {
    Manager& manager = s.manager.at(m);
    const Id ac = entry(s, manager.agentDir, name, Type::AgentConfig);
    if (ac && flag(s, ac, agentConfig::createdOnStageRequest) &&
        !entry(s, manager.reportDir, name, Type::AgentStatus)) {
        dropEntry(s, manager.agentDir, name);
        forgetAgent(s, takeChild(manager.agents, name));
        return;
    }
    if (!ac) {
        forgetAgent(s, takeChild(manager.agents, name));
        return;
    }
    if (child(manager.agents, name)) return;

    const Id a = nextReactor(s);
    s.agent[a] = {m, name, ac};
    watch(s, ac, Watcher::agent, a, false);
    for (const Key& stage : keys(s, ac, agentConfig::event))
        registrationChanged(s, m, name, stage.first);
    for (const Key& stage : keys(s, manager.status, status::stage)) {
        const Id ss = memberRef(s, manager.status, status::stage, stage.first);
        if (ss && member(s, ss, stageStatus::event, nameKey(name)))
            registrationChanged(s, m, name, stage.first);
    }
    putChild(manager.agents, name, a);
    switchOn(s, ac, Watcher::agent, a);
}

// --- Reports and requests of agents

void requestChanged(State& s, Id p, const std::string& stage) {
    const Reporter& reporter = s.reporter.at(p);
    if (!reporter.ready) return;
    const Manager& manager = s.manager.at(reporter.manager);
    const Value* value = member(s, reporter.status, agentStatus::stageRequest, nameKey(stage));
    const Request request = value ? std::get<Request>(*value) : Request{};

    if (request == Request{}) {
        if (const Id ac = entry(s, manager.agentDir, reporter.name, Type::AgentConfig))
            dropMember(s, ac, agentConfig::event, nameKey(stage));
        return;
    }
    if (request.agent != reporter.name) throw Abort{"agentName() == agent"};

    Id ac = entry(s, manager.agentDir, request.agent, Type::AgentConfig);
    if (!ac) {
        makeEntry(s, manager.agentDir, request.agent, Type::AgentConfig);
        ac = entry(s, manager.agentDir, request.agent, Type::AgentConfig);
        if (!ac) throw Abort{"ac"};
        put(s, ac, agentConfig::createdOnStageRequest, true);
    }
    const Id ec = makeMember(s, ac, agentConfig::event, request.stage);
    put(s, ec, eventConfig::timeout, request.timeout);
}

void reportChanged(State& s, Id p, const Key& key) {
    const Reporter& reporter = s.reporter.at(p);
    if (!reporter.ready) return;
    const Manager& manager = s.manager.at(reporter.manager);
    const Value* value = member(s, reporter.status, agentStatus::complete, key);

    if (!value) {
        dropMember(s, manager.local, agentStatusLocal::complete, key);
    } else if (!std::get<bool>(*value)) {
        putMember(s, manager.local, agentStatusLocal::complete, key, false);
    } else {
        const Id ac = entry(s, manager.agentDir, reporter.name, Type::AgentConfig);
        if (ac && memberRef(s, ac, agentConfig::event, key.second))
            putMember(s, manager.local, agentStatusLocal::complete, key, true);
    }
}

void forgetReporter(State& s, Id p) {
    if (!p) return;
    unwatch(s, s.reporter.at(p).status, Watcher::agentReports, p);
    s.reporter.erase(p);
}

void reporterChanged(State& s, Id m, const std::string& name) {
    Manager& manager = s.manager.at(m);
    const Id as = entry(s, manager.reportDir, name, Type::AgentStatus);
    const Id ac = entry(s, manager.agentDir, name, Type::AgentConfig);
    const bool dynamic = ac && flag(s, ac, agentConfig::createdOnStageRequest);

    if (!as) {
        forgetReporter(s, takeChild(manager.reporters, name));
        if (dynamic) {
            dropMembers(s, ac, agentConfig::event);
            dropEntry(s, manager.agentDir, name);
            forgetAgent(s, takeChild(manager.agents, name));
        }
        return;
    }
    if (dynamic)
        for (const Key& stage : keys(s, ac, agentConfig::event)) {
            const Value* value = member(s, as, agentStatus::stageRequest, stage);
            if (!value || std::get<Request>(*value) == Request{})
                dropMember(s, ac, agentConfig::event, stage);
        }

    if (const Id held = child(manager.reporters, name)) {
        if (s.reporter.at(held).status != as)
            throw differs(s, "agentStatus", as, s.reporter.at(held).status);
        return;
    }
    const Id p = nextReactor(s);
    s.reporter[p] = {m, name, as, true};
    watch(s, as, Watcher::agentReports, p, true);
    for (const Key& stage : keys(s, as, agentStatus::stageRequest))
        if (member(s, as, agentStatus::stageRequest, stage)) requestChanged(s, p, stage.first);
    for (const Key& key : keys(s, as, agentStatus::complete))
        if (member(s, as, agentStatus::complete, key)) reportChanged(s, p, key);
    putChild(manager.reporters, name, p);
}

// --- Instances: the log, reboots, requests for a pass

void logLine(State& s, const Instance& instance, const std::string& message) {
    const Id entity =
        makeMember(s, s.manager.at(instance.manager).log, log::instanceLog, instance.name);
    at(s, entity).lines.push_back({s.now, message});
    Observation what;
    what.kind = Observation::Kind::log;
    what.path = at(s, entity).path;
    what.text = message;
    observe(s, std::move(what));
}

void requestReboot(State& s, const Instance& instance, const std::string& reason) {
    const Id c = s.manager.at(instance.manager).config;
    std::string cause = text(s, c, config::reloadCauseDesc);
    if (!cause.empty()) cause.pop_back();  // whatever it is, on purpose
    cause += " during " + text(s, c, config::application) + ".";
    put(s, s.fatal, fatalError::rebootReason, reason);
    put(s, s.fatal, fatalError::reloadCauseDesc, cause);
    put(s, s.fatal, fatalError::requestReboot, text(s, c, config::resetMode));
}

void requestPass(State& s, Id i) {
    Instance& instance = s.instance.at(i);
    const Id enabled = s.manager.at(instance.manager).enabled;
    if (!memberIsTrue(s, enabled, enabledConfig::enabled, nameKey(instance.name))) return;
    if (memberIsTrue(s, enabled, enabledConfig::suspended, nameKey(instance.name))) {
        put(s, instance.status, instanceStatus::suspended, true);
        return;
    }
    instance.passNeeded = true;
    if (instance.ready) arm(s, Alarm::pass, i, s.now);
}

// --- A running stage

void stopAutoCompletion(State& s, Id c) {
    if (!c) return;
    stopped(s, s.autoCompletion.at(c).timer);
    s.autoCompletion.erase(c);
}

void forgetPart(State& s, Id e) {
    if (!e) return;
    unwatch(s, s.part.at(e).config, Watcher::part, e);
    s.part.erase(e);
}

void stopStage(State& s, Id r) {
    if (!r) return;
    RunningStage& stage = s.running.at(r);
    unwatch(s, stage.status, Watcher::running, r);
    unwatch(s, s.manager.at(s.instance.at(stage.instance).manager).local, Watcher::local, r);
    for (const auto& each : stage.parts) forgetPart(s, each.second);
    for (const auto& each : stage.autoCompletions) stopAutoCompletion(s, each.second);
    stopped(s, stage.timer);
    s.running.erase(r);
}

Key localKey(const State& s, Id ec, const std::string& instance) {
    return reportKey(text(s, ec, eventConfig::agent), text(s, ec, eventConfig::stage), instance);
}

void pendingChanged(State& s, Id r) {
    RunningStage& stage = s.running.at(r);
    if (!stage.ready || !stage.pending.empty() || stage.complete) return;
    const Instance& instance = s.instance.at(stage.instance);

    if (stage.timedOut && flag(s, stage.status, stageStatus::critical))
        raise(s, "STAGEMGR_STAGE_COMPLETE_AFTER_TIMEOUT", 4,
              applicationOf(s, instance) + " resumed after stage " + stage.name +
                  " completed after timeout.");
    if (stage.hasTimer) arm(s, Alarm::stage, r, never);
    stage.completionTime = s.now;
    stage.complete = true;
    logLine(s, instance, "stage " + stage.name + " is complete");
    requestPass(s, stage.instance);
}

void putPending(State& s, Id r, Id ec) {
    auto& pending = s.running.at(r).pending;
    const std::string name = text(s, ec, eventConfig::name);
    const auto held = std::find_if(pending.begin(), pending.end(),
                                   [&](const auto& each) { return each.first == name; });
    if (held == pending.end())
        pending.emplace_back(name, ec);
    else if (held->second == ec)
        return;
    else
        held->second = ec;
    pendingChanged(s, r);
}

void dropPending(State& s, Id r, const std::string& name) {
    if (takeChild(s.running.at(r).pending, name)) pendingChanged(s, r);
}

void maybeAutoComplete(State& s, Id r, Id ec) {
    if (!flag(s, ec, eventConfig::enableAutoComplete)) return;
    const std::string agent = text(s, ec, eventConfig::agent);
    if (const Id held = child(s.running.at(r).autoCompletions, agent)) {
        if (s.autoCompletion.at(held).config != ec)
            throw differs(s, "eventConfig", ec, s.autoCompletion.at(held).config);
        return;
    }
    const Id c = nextReactor(s);
    s.autoCompletion[c] = {r, ec, {}};
    arm(s, Alarm::autoComplete, c, s.now + number(s, ec, eventConfig::autoCompleteTimeout));
    putChild(s.running.at(r).autoCompletions, agent, c);
}

void startEvent(State& s, Id r, Id ec) {
    if (rebootPending(s)) return;
    logLine(s, s.instance.at(s.running.at(r).instance),
            "  event " + text(s, ec, eventConfig::name) + " started");
    putPending(s, r, ec);
    maybeAutoComplete(s, r, ec);
}

void partChanged(State& s, Id e, const std::string& instanceName) {
    const Part part = s.part.at(e);
    const Instance& instance = s.instance.at(s.running.at(part.stage).instance);
    if (instanceName != instance.name) return;
    if (memberIsTrue(s, part.config, eventConfig::complete, nameKey(instanceName)))
        putMember(s, s.manager.at(instance.manager).local, agentStatusLocal::complete,
                  localKey(s, part.config, instanceName), true);
    else
        startEvent(s, part.stage, part.config);
}

// Built before it is stored: what it reports about itself does not find it yet.
void takePart(State& s, Id r, const std::string& agent, Id ec) {
    const Id held = child(s.running.at(r).parts, agent);
    if (held && s.part.at(held).config == ec) return;

    const Id e = nextReactor(s);
    s.part[e] = {r, ec};
    watch(s, ec, Watcher::part, e, false);
    try {
        partChanged(s, e, s.instance.at(s.running.at(r).instance).name);
    } catch (...) {
        forgetPart(s, e);
        throw;
    }
    putChild(s.running.at(r).parts, agent, e);
    switchOn(s, ec, Watcher::part, e);
    forgetPart(s, held);
}

bool eventComplete(const State& s, const Instance& instance, Id ec) {
    return memberIsTrue(s, ec, eventConfig::complete, nameKey(instance.name)) ||
           memberIsTrue(s, s.manager.at(instance.manager).local, agentStatusLocal::complete,
                        localKey(s, ec, instance.name));
}

void runningEventChanged(State& s, Id r, const std::string& agent) {
    const RunningStage& stage = s.running.at(r);
    const Instance& instance = s.instance.at(stage.instance);
    const std::string pendingName = stage.name + ':' + agent;

    if (const Id ec = memberRef(s, stage.status, stageStatus::event, agent)) {
        if (!eventComplete(s, instance, ec) && !child(stage.pending, pendingName) &&
            !rebootPending(s)) {
            putPending(s, r, ec);
            maybeAutoComplete(s, r, ec);
        }
        takePart(s, r, agent, ec);
    } else {
        dropPending(s, r, pendingName);
        stopAutoCompletion(s, takeChild(s.running.at(r).autoCompletions, agent));
        forgetPart(s, takeChild(s.running.at(r).parts, agent));
    }
}

void localChanged(State& s, Id r, const Key& key) {
    const RunningStage& stage = s.running.at(r);
    if (!stage.ready) return;
    const Instance& instance = s.instance.at(stage.instance);
    const Id local = s.manager.at(instance.manager).local;
    if (!memberIsTrue(s, local, agentStatusLocal::complete, key)) return;
    if (key.second != stage.name || key.third != instance.name) return;
    const Id e = child(stage.parts, key.first);
    if (!e || rebootPending(s)) return;

    const Id ec = s.part.at(e).config;
    logLine(s, instance, "  event " + text(s, ec, eventConfig::name) + " completed");
    dropPending(s, r, text(s, ec, eventConfig::name));
    stopAutoCompletion(s,
                       takeChild(s.running.at(r).autoCompletions, text(s, ec, eventConfig::agent)));
}

void beginStage(State& s, Id r) {
    RunningStage& stage = s.running.at(r);
    const Instance& instance = s.instance.at(stage.instance);
    const Id local = s.manager.at(instance.manager).local;

    stage.hasTimer = !stage.pending.empty();
    stage.complete = false;
    stage.ready = true;
    for (const Key& key : keys(s, local, agentStatusLocal::complete)) localChanged(s, r, key);
    pendingChanged(s, r);
    if (!stage.pending.empty()) {
        arm(s, Alarm::stage, r, s.now + number(s, stage.status, stageStatus::timeout));
    } else {
        stopped(s, stage.timer);
        stage.hasTimer = false;
    }
}

void startStage(State& s, Id i, const std::string& name, Id ss) {
    const Id r = nextReactor(s);
    RunningStage& stage = s.running[r];
    stage.instance = i;
    stage.name = at(s, ss).name;
    stage.status = ss;
    watch(s, ss, Watcher::running, r, false);
    watch(s, s.manager.at(s.instance.at(i).manager).local, Watcher::local, r, true);
    try {
        for (const Key& agent : keys(s, ss, stageStatus::event))
            if (const Id ec = memberRef(s, ss, stageStatus::event, agent.first))
                takePart(s, r, agent.first, ec);
        beginStage(s, r);
    } catch (...) {
        stopStage(s, r);
        throw;
    }
    putChild(s.instance.at(i).running, name, r);
    switchOn(s, ss, Watcher::running, r);
}

void stageTimedOut(State& s, Id r) {
    RunningStage& stage = s.running.at(r);
    if (!stage.ready || rebootPending(s)) return;
    const Instance& instance = s.instance.at(stage.instance);
    const Id c = s.manager.at(instance.manager).config;

    logLine(s, instance, "stage " + stage.name + " is complete (timeout)");
    if (!flag(s, stage.status, stageStatus::critical) || flag(s, c, config::continueOnTimeout)) {
        logLine(s, instance, "stage " + stage.name + " timed out but will continue on");
        stage.completionTime = s.now;
        stage.timedOut = true;
        stage.complete = true;
        requestPass(s, stage.instance);
        return;
    }
    const std::string application = applicationOf(s, instance);
    raise(s, "STAGEMGR_STAGE_SLOW", 4, application + " stage " + stage.name + " timed out");
    stage.timedOut = true;
    if (flag(s, c, config::stageTimeoutIsFatal))
        requestReboot(s, instance, stage.name + " timed out");
    else
        observeText(s, Observation::Kind::print,
                    " Critical stage " + stage.name + " timed out! " + application +
                        " suspended for debugging.");
}

void autoComplete(State& s, Id c) {
    const AutoCompletion completion = s.autoCompletion.at(c);
    const Instance& instance = s.instance.at(s.running.at(completion.stage).instance);
    logLine(s, instance,
            "  event " + text(s, completion.config, eventConfig::name) + " autocompleted");
    putMember(s, s.manager.at(instance.manager).local, agentStatusLocal::complete,
              localKey(s, completion.config, instance.name), true);
}

// --- Instances: passes

void stopWaiting(State& s, Id w) {
    if (!w) return;
    unwatch(s, s.waiting.at(w).status, Watcher::waiting, w);
    s.waiting.erase(w);
}

bool stageComplete(const State& s, const Instance& instance, const std::string& name) {
    const Id r = child(instance.running, name);
    return r && s.running.at(r).complete;
}

bool isActive(const State& s, const Instance& instance, const std::string& name) {
    return member(s, instance.status, instanceStatus::activeStage, nameKey(name));
}

bool heldByOperator(const State& s, const Instance& instance, const std::string& name) {
    const std::string stageClass =
        text(s, s.manager.at(instance.manager).config, config::stageClass);
    return memberIsTrue(s, s.global, globalConfig::doNotStartStage, placeKey(stageClass, name));
}

void pass(State& s, Id i) {
    Instance& instance = s.instance.at(i);
    if (!instance.ready || rebootPending(s) || !instance.passNeeded) return;
    instance.passNeeded = false;
    const Id st = s.manager.at(instance.manager).status;

    bool criticalNotStarted = false;
    for (const auto& [key, ref] : at(s, st).collections[status::stage])
        criticalNotStarted =
            criticalNotStarted || (!isActive(s, instance, key.first) &&
                                   flag(s, std::get<Ref>(ref).id, stageStatus::critical));

    bool inactive = false;
    bool incomplete = false;
    for (const Key& key : keys(s, st, status::stage)) {
        const std::string& name = key.first;
        const Id ss = memberRef(s, st, status::stage, name);
        if (!ss) continue;
        if (isActive(s, instance, name)) {
            incomplete = incomplete || !stageComplete(s, instance, name);
            continue;
        }
        inactive = true;
        if (criticalNotStarted && !flag(s, ss, stageStatus::critical)) continue;
        const auto dependencies = keys(s, ss, stageStatus::dependency);
        const bool ready =
            std::all_of(dependencies.begin(), dependencies.end(), [&](const Key& dependency) {
                return isActive(s, instance, dependency.first) &&
                       stageComplete(s, instance, dependency.first);
            });
        if (!ready || heldByOperator(s, instance, name)) continue;
        logLine(s, instance, "stage " + name + " started");
        putMember(s, instance.status, instanceStatus::activeStage, nameKey(name), Ref{ss});
    }
    if (inactive || incomplete) return;

    if (const Id own = memberRef(s, st, status::instStatus, instance.name))
        put(s, own, instanceStatus::complete, true);
    put(s, instance.completion, completionStatus::complete, true);
    arm(s, Alarm::deadline, i, never);
    logLine(s, instance, applicationOf(s, instance) + " stages complete");
}

void activeStageChanged(State& s, Id i, const std::string& name) {
    Instance& instance = s.instance.at(i);
    if (!instance.ready) return;
    const Id ss = memberRef(s, instance.status, instanceStatus::activeStage, name);
    if (!ss || child(instance.running, name)) return;
    stopWaiting(s, takeChild(instance.waiting, name));
    startStage(s, i, name, ss);
    putMember(s, instance.progress, progress::stage, nameKey(name), true);
}

void waitingCriticalChanged(State& s, Id w) {
    const WaitingStage waiting = s.waiting.at(w);
    if (flag(s, waiting.status, stageStatus::critical)) requestPass(s, waiting.instance);
}

void waitingDependencyChanged(State& s, Id w, const Key& key) {
    const WaitingStage waiting = s.waiting.at(w);
    if (member(s, waiting.status, stageStatus::dependency, key)) return;
    for (const Key& each : keys(s, waiting.status, stageStatus::dependency))
        if (!stageComplete(s, s.instance.at(waiting.instance), each.first)) return;
    requestPass(s, waiting.instance);
}

void heldChanged(State& s, Id i, const Key& place) {
    const Instance& instance = s.instance.at(i);
    if (!instance.ready) return;
    const Id c = s.manager.at(instance.manager).config;
    if (place.first != text(s, c, config::stageClass)) return;
    if (isActive(s, instance, place.second)) return;
    if (memberIsTrue(s, s.global, globalConfig::doNotStartStage, place)) return;
    requestPass(s, i);
}

void deadlinePassed(State& s, Id i) {
    const Instance& instance = s.instance.at(i);
    if (!instance.ready) return;
    if (flag(s, instance.completion, completionStatus::complete)) {
        arm(s, Alarm::deadline, i, never);
        return;
    }
    if (rebootPending(s)) return;
    const std::string seconds =
        wholeSeconds(number(s, s.manager.at(instance.manager).config, config::globalLimit));
    raise(s, "STAGEMGR_GLOBAL_STAGE_COMPLETION_TIMEOUT", 3,
          "Global stage progression did not complete after " + seconds + " secs.");
    requestReboot(s, instance, "Global stage progression timed out after " + seconds + " secs");
}

void stopInstance(State& s, Id i) {
    if (!i) return;
    Instance& instance = s.instance.at(i);
    unwatch(s, s.global, Watcher::held, i);
    unwatch(s, instance.status, Watcher::active, i);
    for (const auto& each : instance.waiting) stopWaiting(s, each.second);
    for (const auto& each : instance.running) stopStage(s, each.second);
    stopped(s, instance.pass);
    stopped(s, instance.deadline);
    s.instance.erase(i);
}

void beginInstance(State& s, Id i) {
    Instance& instance = s.instance.at(i);
    const Manager& manager = s.manager.at(instance.manager);
    instance.ready = true;

    const Id own = memberRef(s, manager.status, status::instStatus, instance.name);
    const bool resumed = own && !at(s, own).collections[instanceStatus::activeStage].empty();
    if (!resumed) {
        for (const Key& key : keys(s, manager.status, status::stage)) {
            const Id ss = memberRef(s, manager.status, status::stage, key.first);
            const Id w = nextReactor(s);
            s.waiting[w] = {i, ss};
            watch(s, ss, Watcher::waiting, w, true);
            putChild(instance.waiting, key.first, w);
        }
        if (!flag(s, instance.completion, completionStatus::complete)) {
            logLine(s, instance, applicationOf(s, instance) + " stages started");
            const double limit = number(s, manager.config, config::globalLimit);
            arm(s, Alarm::deadline, i, limit == 0.0 ? never : s.now + limit);
            requestPass(s, i);
        }
    }
    if (instance.passNeeded) requestPass(s, i);
}

void enabledChanged(State& s, Id m, const std::string& name) {
    Manager& manager = s.manager.at(m);
    if (!memberIsTrue(s, manager.enabled, enabledConfig::enabled, nameKey(name))) {
        dropMember(s, manager.completionDir, completionDir::status, nameKey(name));
        stopInstance(s, takeChild(manager.instances, name));
        dropMember(s, manager.status, status::instStatus, nameKey(name));
        dropMember(s, manager.progressDir, progressDir::progress, nameKey(name));
        dropMember(s, manager.log, log::instanceLog, nameKey(name));
        return;
    }
    const Id prog = makeMember(s, manager.progressDir, progressDir::progress, name);
    const Id completion = makeMember(s, manager.completionDir, completionDir::status, name);
    const Id own = makeMember(s, manager.status, status::instStatus, name);
    put(s, own, instanceStatus::progress, Ref{prog});

    if (const Id held = child(manager.instances, name)) {
        const Instance& instance = s.instance.at(held);
        if (instance.completion != completion)
            throw differs(s, "completionStatus", completion, instance.completion);
        if (instance.progress != prog) throw differs(s, "progress", prog, instance.progress);
        if (instance.status != own) throw differs(s, "instanceStatus", own, instance.status);
        return;
    }
    const Id i = nextReactor(s);
    Instance& instance = s.instance[i];
    instance.manager = m;
    instance.name = name;
    instance.status = own;
    instance.completion = completion;
    instance.progress = prog;
    watch(s, s.global, Watcher::held, i, true);
    watch(s, own, Watcher::active, i, true);
    beginInstance(s, i);
    putChild(manager.instances, name, i);
}

// --- A class comes into being

void beginConfigSide(State& s, Id m) {
    Manager& manager = s.manager.at(m);
    watch(s, manager.config, Watcher::classConfig, m, false);
    watch(s, manager.status, Watcher::classStages, m, true);
    watch(s, manager.agentDir, Watcher::agentDir, m, true);
    watch(s, manager.reportDir, Watcher::reportDir, m, true);
    for (const Key& name : keys(s, manager.agentDir, entries))
        if (memberRef(s, manager.agentDir, entries, name.first)) agentChanged(s, m, name.first);
    for (const std::string& name : namesOf(manager.agents)) agentChanged(s, m, name);
    for (const Key& name : keys(s, manager.status, status::stage))
        followStage(s, m, name.first, memberRef(s, manager.status, status::stage, name.first));
    manager.configReady = true;
    for (const Key& name : keys(s, manager.reportDir, entries)) reporterChanged(s, m, name.first);
    manager.hasConfigSide = true;
    switchOn(s, manager.config, Watcher::classConfig, m);
}

void beginStatusSide(State& s, Id m) {
    Manager& manager = s.manager.at(m);
    const auto enabled = [&](const Key& name) {
        return memberIsTrue(s, manager.enabled, enabledConfig::enabled, name);
    };
    watch(s, manager.enabled, Watcher::enabled, m, true);
    for (const Key& name : keys(s, manager.enabled, enabledConfig::enabled))
        enabledChanged(s, m, name.first);
    for (const Key& name : keys(s, manager.status, status::instStatus))
        if (!enabled(name)) dropMember(s, manager.status, status::instStatus, name);
    for (const Key& name : keys(s, manager.progressDir, progressDir::progress))
        if (!enabled(name)) dropMember(s, manager.progressDir, progressDir::progress, name);
    manager.statusReady = true;
    manager.hasStatusSide = true;
}

struct TopPlaces {
    Id stage = 0;
    Id input = 0;
    Id reports = 0;
    Id enabled = 0;
    bool complete() const { return stage && input && reports && enabled; }
};

TopPlaces topPlaces(const State& s, const std::string& stageClass) {
    const auto in = [&](const char* dir, Type type) {
        return entry(s, entry(s, s.root, dir, Type::Dir), stageClass, type);
    };
    return {in("stage", Type::Dir), in("input", Type::Dir), in("agentstatus", Type::Dir),
            in("enable", Type::EnabledConfig)};
}

void classPublished(State& s, const std::string& stageClass) {
    const TopPlaces top = topPlaces(s, stageClass);
    if (!top.complete()) return;
    const Id configDir = entry(s, top.stage, "config", Type::Dir);
    Manager made;
    made.name = stageClass;
    made.config = configDir ? entry(s, configDir, "config", Type::Config) : 0;
    made.status = entry(s, top.stage, "status", Type::Status);
    made.completionDir = entry(s, top.stage, "completionstatus", Type::CompletionStatusDir);
    made.progressDir = entry(s, top.stage, "progress", Type::ProgressDir);
    made.log = entry(s, top.stage, "log", Type::Log);
    made.agentDir = top.input;
    made.reportDir = top.reports;
    made.enabled = top.enabled;
    if (!made.config || !made.status || !made.completionDir || !made.progressDir || !made.log)
        return;

    // Nothing to remove while the watcher is still being made: it stays, on purpose.
    if (const Id w = takeChild(s.placeWatchers, stageClass)) {
        unwatch(s, s.placeWatcher.at(w).dir, Watcher::classDir, w);
        s.placeWatcher.erase(w);
    }
    made.local = makeEntity(s, Type::AgentStatusLocal, "",
                            "/sm/stageMgr/" + escaped(stageClass) + "/agentStatusLocal", 0);
    const Id m = nextReactor(s);
    s.manager[m] = made;
    putChild(s.managers, stageClass, m);
    beginConfigSide(s, m);
    beginStatusSide(s, m);
}

void classPlaceChanged(State& s, Id w) {
    const std::string stageClass = s.placeWatcher.at(w).stageClass;
    const Id dir = s.placeWatcher.at(w).dir;
    if (!entry(s, dir, "config", Type::Dir) || !entry(s, dir, "status", Type::Status) ||
        !entry(s, dir, "completionstatus", Type::CompletionStatusDir) ||
        !entry(s, dir, "progress", Type::ProgressDir) || !entry(s, dir, "log", Type::Log))
        return;
    if (std::find(s.published.begin(), s.published.end(), stageClass) != s.published.end()) return;
    s.published.push_back(stageClass);
    classPublished(s, stageClass);
}

void topPlaceChanged(State& s, const std::string& stageClass) {
    const TopPlaces top = topPlaces(s, stageClass);
    if (!top.complete()) return;
    if (const Id held = child(s.placeWatchers, stageClass)) {
        if (s.placeWatcher.at(held).dir != top.stage)
            throw differs(s, "stageClassDir", top.stage, s.placeWatcher.at(held).dir);
        return;
    }
    const Id w = nextReactor(s);
    s.placeWatcher[w] = {stageClass, top.stage};
    watch(s, top.stage, Watcher::classDir, w, true);
    if (!keys(s, top.stage, entries).empty()) classPlaceChanged(s, w);
    putChild(s.placeWatchers, stageClass, w);
}

void classLimitChanged(State& s, Id m) {
    const Id c = s.manager.at(m).config;
    if (text(s, c, config::stageClass) != "switchover") return;
    const double limit = number(s, c, config::globalLimit);
    observeText(s, Observation::Kind::watchdog,
                std::isnan(limit) ? std::string("nan") : formatted("%g", limit));
}

// --- Who is told what

void deliver(State& s, const Watch& watch, std::size_t attr, const Key& key) {
    const Id r = watch.reactor;
    switch (watch.kind) {
        case Watcher::topPlaces: topPlaceChanged(s, key.first); break;
        case Watcher::classDir: classPlaceChanged(s, r); break;
        case Watcher::classConfig:
            if (attr == config::globalLimit) classLimitChanged(s, r);
            break;
        case Watcher::classStages:
            if (attr == status::stage) classStageChanged(s, r, key.first);
            break;
        case Watcher::agentDir: agentChanged(s, r, key.first); break;
        case Watcher::reportDir: reporterChanged(s, r, key.first); break;
        case Watcher::agent:
            if (attr == agentConfig::event)
                registrationChanged(s, s.agent.at(r).manager, s.agent.at(r).name, key.first);
            break;
        case Watcher::agentReports:
            if (attr == agentStatus::complete) reportChanged(s, r, key);
            if (attr == agentStatus::stageRequest) requestChanged(s, r, key.first);
            break;
        case Watcher::stage:
            if (attr == stageStatus::event) stageEventChanged(s, r, key.first);
            if (attr == stageStatus::dependency) stageDependencyChanged(s, r, key.first);
            break;
        case Watcher::event:
            if (attr == eventConfig::dependency) eventDependencyChanged(s, r, key.first);
            if (attr == eventConfig::timeout) recomputeLimit(s, s.event.at(r).stage);
            if (attr == eventConfig::critical) recomputeCritical(s, s.event.at(r).stage);
            break;
        case Watcher::enabled:
            if (attr == enabledConfig::enabled) enabledChanged(s, r, key.first);
            break;
        case Watcher::active:
            if (attr == instanceStatus::activeStage) activeStageChanged(s, r, key.first);
            break;
        case Watcher::held:
            if (attr == globalConfig::doNotStartStage) heldChanged(s, r, key);
            break;
        case Watcher::waiting:
            if (attr == stageStatus::critical) waitingCriticalChanged(s, r);
            if (attr == stageStatus::dependency) waitingDependencyChanged(s, r, key);
            break;
        case Watcher::running:
            if (attr == stageStatus::event) runningEventChanged(s, r, key.first);
            break;
        case Watcher::part:
            if (attr == eventConfig::complete) partChanged(s, r, key.first);
            break;
        case Watcher::local: localChanged(s, r, key); break;
    }
}

void fireFirst(State& s) {
    const auto [when, what] = *s.armed.begin();
    s.armed.erase(s.armed.begin());
    s.now = std::max(s.now, when.first);
    timerOf(s, what.first, what.second)->wake = never;
    try {
        switch (what.first) {
            case Alarm::pass: pass(s, what.second); break;
            case Alarm::deadline: deadlinePassed(s, what.second); break;
            case Alarm::stage: stageTimedOut(s, what.second); break;
            case Alarm::autoComplete: autoComplete(s, what.second); break;
        }
    } catch (const CallbackError& error) {
        observeText(s, Observation::Kind::error, error.text);
    }
}

void fireUntil(State& s, double limit) {
    while (!s.armed.empty() && s.armed.begin()->first.first <= limit) fireFirst(s);
}

std::vector<std::string> componentsOf(std::string_view path) {
    std::vector<std::string> components;
    if (path.empty() || path[0] != '/') return components;
    std::string component;
    for (std::size_t i = 1; i <= path.size(); ++i) {
        if (i == path.size() || path[i] == '/') {
            components.push_back(component);
            component.clear();
        } else if (path[i] == '~' && i + 1 < path.size() &&
                   (path[i + 1] == '0' || path[i + 1] == '1')) {
            component += path[++i] == '0' ? '~' : '/';
        } else {
            component += path[i];
        }
    }
    return components;
}

std::optional<Id> walk(const State& s, const std::vector<std::string>& components,
                       std::size_t count) {
    if (components.empty()) return std::nullopt;
    Id id = s.root;
    for (std::size_t i = 0; i < count;) {
        const Entity& entity = at(s, id);
        std::size_t attr = entries;
        if (entity.type != Type::Dir) {
            attr = indexOf(entity.type, components[i]);
            const auto& attributes = attributesOf(entity.type);
            if (attr == attributes.size() || attributes[attr].holds != Holds::owned) return {};
            if (++i == count) return {};
        }
        id = memberRef(s, id, attr, components[i++]);
        if (!id) return std::nullopt;
    }
    return id;
}

// The directory that a created or deleted path lies in, and the name in it.
std::optional<std::pair<Id, std::string>> placeOf(const State& s, std::string_view path) {
    const auto components = componentsOf(path);
    if (components.size() < 2) return std::nullopt;
    const auto dir = walk(s, components, components.size() - 1);
    if (!dir || at(s, *dir).type != Type::Dir) return std::nullopt;
    return std::pair(*dir, components.back());
}

const std::set<Type>& creatable() {
    static const std::set<Type> types = {Type::Dir,
                                         Type::Config,
                                         Type::AgentConfig,
                                         Type::AgentStatus,
                                         Type::EnabledConfig,
                                         Type::Status,
                                         Type::CompletionStatusDir,
                                         Type::ProgressDir,
                                         Type::Log};
    return types;
}

std::string problemOfValue(const State& s, const Attribute& attribute, const Line& line) {
    const Value& value = *line.value;
    switch (attribute.holds) {
        case Holds::flag:
        case Holds::flags:
        case Holds::reports:
        case Holds::places: return std::holds_alternative<bool>(value) ? "" : "not a bool";
        case Holds::number: return std::holds_alternative<double>(value) ? "" : "not a number";
        case Holds::text: return std::holds_alternative<std::string>(value) ? "" : "not a string";
        case Holds::mode: {
            static const std::set<std::string> modes = {"none", "cold", "warm", "powerCycle"};
            const auto* mode = std::get_if<std::string>(&value);
            return mode && modes.contains(*mode) ? "" : "not a reset mode";
        }
        case Holds::requests: return std::holds_alternative<Request>(value) ? "" : "not a request";
        case Holds::reference:
        case Holds::references: {
            if (std::holds_alternative<std::monostate>(value))
                return attribute.holds == Holds::reference ? "" : "null";
            const auto* path = std::get_if<std::string>(&value);
            const auto target = path ? find(s, *path) : std::nullopt;
            if (!target || at(s, *target).type != attribute.target) return "no such entity";
            if (attribute.holds == Holds::reference) return "";
            // A referring collection takes the key from the entity.
            const std::string own = attribute.target == Type::EventConfig
                                        ? text(s, *target, eventConfig::agent)
                                        : at(s, *target).name;
            return own == line.key->first ? "" : "not the entity's own key";
        }
        case Holds::owned:
        case Holds::entries: return "takes no value";
    }
    return "";
}

Value storedValue(const State& s, const Attribute& attribute, const Value& value) {
    if (attribute.holds != Holds::reference && attribute.holds != Holds::references) return value;
    const auto* path = std::get_if<std::string>(&value);
    return Ref{path ? *find(s, *path) : 0};
}

void applySet(State& s, const Line& line) {
    const Id id = *find(s, line.path);
    const std::size_t attr = indexOf(at(s, id).type, line.attr);
    const Attribute& attribute = attributesOf(at(s, id).type)[attr];
    if (attribute.holds == Holds::owned)
        makeMember(s, id, attr, line.key->first, Who::input);
    else if (isScalar(attribute.holds))
        put(s, id, attr, storedValue(s, attribute, *line.value), Who::input);
    else
        putMember(s, id, attr, *line.key, storedValue(s, attribute, *line.value), Who::input);
}

void apply(State& s, const Line& line) {
    switch (line.op) {
        case Op::create: {
            const auto [dir, name] = *placeOf(s, line.path);
            makeEntry(s, dir, name, *typeNamed(line.type), Who::input);
            break;
        }
        case Op::remove: {
            const auto [dir, name] = *placeOf(s, line.path);
            dropEntry(s, dir, name, Who::input);
            break;
        }
        case Op::set: applySet(s, line); break;
        case Op::unset: {
            const Id id = *find(s, line.path);
            dropMember(s, id, indexOf(at(s, id).type, line.attr), *line.key, Who::input);
            break;
        }
        case Op::clear: {
            const Id id = *find(s, line.path);
            dropMembers(s, id, indexOf(at(s, id).type, line.attr), Who::input);
            break;
        }
        case Op::settle: fireUntil(s, line.at); break;
        case Op::end:
            fireUntil(s, line.at);
            s.ended = true;
            break;
    }
}

Key::Form formOf(Holds holds) {
    if (holds == Holds::reports) return Key::Form::report;
    if (holds == Holds::places) return Key::Form::place;
    return Key::Form::name;
}

// --- The tree

Names sortedKeys(const State& s, Id id, std::size_t attr) {
    Names names;
    for (const Key& key : keys(s, id, attr)) names.push_back(key.first);
    std::sort(names.begin(), names.end());
    return names;
}

void show(const State& s, Id id, Tree& tree) {
    const Entity& entity = at(s, id);
    Node node{entity.path, std::string(nameOf(entity.type)), {}};
    const auto& attributes = attributesOf(entity.type);
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        const Holds holds = attributes[i].holds;
        Shown shownHere{std::string(attributes[i].name), false, Value{}};
        if (holds == Holds::entries) continue;
        if (isScalar(holds)) {
            shownHere.value = shown(s, entity.scalars[i]);
        } else if (holds == Holds::owned) {
            shownHere.value = sortedKeys(s, id, i);
        } else {
            Members members = entity.collections[i];
            for (auto& each : members) each.second = shown(s, each.second);
            shownHere.composite = formOf(holds) != Key::Form::name;
            if (shownHere.composite)
                std::sort(members.begin(), members.end(),
                          [](const auto& a, const auto& b) { return a.first < b.first; });
            shownHere.value = std::move(members);
        }
        node.attributes.push_back(std::move(shownHere));
    }
    if (entity.type == Type::InstanceLog) node.attributes.push_back({"log", false, entity.lines});
    tree.push_back(std::move(node));

    for (std::size_t i = 0; i < attributes.size(); ++i)
        if (attributes[i].holds == Holds::owned || attributes[i].holds == Holds::entries)
            for (const auto& each : entity.collections[i])
                show(s, std::get<Ref>(each.second).id, tree);
}

double wakeOf(const Timer& timer) { return std::isnan(timer.wake) ? never : timer.wake; }

void showInstance(const State& s, Id i, const std::string& path, Tree& tree) {
    const Instance& instance = s.instance.at(i);
    tree.push_back({path,
                    "Stage::InstanceStatusSm",
                    {{"initialized", false, Value(instance.ready)},
                     {"stageEnableSm", false, sortedNamesOf(instance.waiting)},
                     {"stageSm", false, sortedNamesOf(instance.running)},
                     {"needRecalculateNextStage", false, Value(instance.passNeeded)},
                     {"recalculateNextStage", false, Value(wakeOf(instance.pass))},
                     {"globalStageClock", false, Value(wakeOf(instance.deadline))}}});
    for (const auto& each : instance.waiting)
        tree.push_back(
            {path + "/stageEnableSm/" + escaped(each.first), "Stage::StageEnableSm", {}});
    for (const auto& [name, r] : instance.running) {
        const RunningStage& stage = s.running.at(r);
        const std::string stagePath = path + "/stageSm/" + escaped(name);
        Members pending;
        for (const auto& [event, ec] : stage.pending)
            pending.emplace_back(nameKey(event), at(s, ec).path);
        tree.push_back({stagePath,
                        "Stage::StageSm",
                        {{"initialized", false, Value(stage.ready)},
                         {"complete", false, Value(stage.complete)},
                         {"timedOut", false, Value(stage.timedOut)},
                         {"completionTime", false, Value(stage.completionTime)},
                         {"pendingEvent", false, std::move(pending)},
                         {"event", false, sortedNamesOf(stage.parts)},
                         {"autoCompleteSm", false, sortedNamesOf(stage.autoCompletions)}}});
        for (const auto& [agent, c] : stage.autoCompletions)
            tree.push_back({stagePath + "/autoCompleteSm/" + escaped(agent),
                            "Stage::AutoCompleteSm",
                            {{"clock", false, Value(wakeOf(s.autoCompletion.at(c).timer))}}});
    }
}

void showManager(const State& s, const Manager& manager, Tree& tree) {
    const std::string path = "/sm/stageMgr/" + escaped(manager.name);
    tree.push_back({path, "Stage::StageMgr", {{"initialized", false, Value(true)}}});
    show(s, manager.local, tree);
    if (manager.hasConfigSide) {
        const std::string side = path + "/configSm";
        tree.push_back({side,
                        "Stage::ConfigSm",
                        {{"initialized", false, Value(manager.configReady)},
                         {"agentStatusSm", false, sortedNamesOf(manager.reporters)},
                         {"agentConfig", false, sortedNamesOf(manager.agents)},
                         {"stageStatus", false, sortedNamesOf(manager.stages)}}});
        for (const auto& [name, p] : manager.reporters)
            tree.push_back({side + "/agentStatusSm/" + escaped(name),
                            "Stage::AgentStatusSm",
                            {{"initialized", false, Value(s.reporter.at(p).ready)}}});
        for (const auto& [name, r] : manager.stages) {
            Members ancestors;
            for (const std::string& each : s.stage.at(r).criticalAncestors)
                ancestors.emplace_back(nameKey(each), true);
            tree.push_back({side + "/stageStatus/" + escaped(name),
                            "Stage::ConfigSm::OrvStageStatus",
                            {{"criticalAncestor", false, std::move(ancestors)},
                             {"eventConfig", false, sortedNamesOf(s.stage.at(r).events)}}});
        }
    }
    if (manager.hasStatusSide) {
        const std::string side = path + "/statusSm";
        tree.push_back({side,
                        "Stage::StatusSm",
                        {{"initialized", false, Value(manager.statusReady)},
                         {"instStatusSm", false, sortedNamesOf(manager.instances)}}});
        for (const auto& [name, i] : manager.instances)
            showInstance(s, i, side + "/instStatusSm/" + escaped(name), tree);
    }
}

}  // namespace

// --- What a driver uses

Key nameKey(std::string name) { return {Key::Form::name, std::move(name), "", ""}; }

Key reportKey(std::string agent, std::string stage, std::string instance) {
    return {Key::Form::report, std::move(agent), std::move(stage), std::move(instance)};
}

Key placeKey(std::string stageClass, std::string stage) {
    return {Key::Form::place, std::move(stageClass), std::move(stage), ""};
}

const std::vector<Attribute>& attributesOf(Type type) {
    using Table = std::map<Type, std::vector<Attribute>>;
    static const Table table = {
        {Type::Dir, {{"entries", Holds::entries}}},
        {Type::Config,
         {{"stageClass", Holds::text},
          {"application", Holds::text},
          {"agentDir", Holds::reference, Type::Dir},
          {"stageTimeoutIsFatal", Holds::flag},
          {"continueOnTimeout", Holds::flag},
          {"globalStageCompletionTimeout", Holds::number},
          {"resetMode", Holds::mode},
          {"reloadCauseDesc", Holds::text}}},
        {Type::EventConfig,
         {{"name", Holds::text},
          {"stage", Holds::text},
          {"agent", Holds::text},
          {"complete", Holds::flags},
          {"error", Holds::flags},
          {"dependency", Holds::flags},
          {"timeout", Holds::number},
          {"critical", Holds::flag},
          {"autoCompleteTimeout", Holds::number},
          {"enableAutoComplete", Holds::flag},
          {"completeNotRunnable", Holds::flag}}},
        {Type::AgentConfig,
         {{"event", Holds::owned, Type::EventConfig}, {"createdOnStageRequest", Holds::flag}}},
        {Type::AgentStatus, {{"complete", Holds::reports}, {"stageRequest", Holds::requests}}},
        {Type::AgentStatusLocal, {{"complete", Holds::reports}}},
        {Type::EnabledConfig, {{"enabled", Holds::flags}, {"suspended", Holds::flags}}},
        {Type::StageGlobalConfig, {{"doNotStartStage", Holds::places}}},
        {Type::Status,
         {{"stage", Holds::owned, Type::StageStatus},
          {"instStatus", Holds::owned, Type::InstanceStatus}}},
        {Type::StageStatus,
         {{"event", Holds::references, Type::EventConfig},
          {"dependency", Holds::flags},
          {"timeout", Holds::number},
          {"critical", Holds::flag}}},
        {Type::InstanceStatus,
         {{"activeStage", Holds::references, Type::StageStatus},
          {"progress", Holds::reference, Type::Progress},
          {"complete", Holds::flag},
          {"suspended", Holds::flag}}},
        {Type::CompletionStatusDir, {{"status", Holds::owned, Type::CompletionStatus}}},
        {Type::CompletionStatus, {{"complete", Holds::flag}}},
        {Type::ProgressDir, {{"progress", Holds::owned, Type::Progress}}},
        {Type::Progress, {{"stage", Holds::flags}}},
        {Type::Log, {{"instanceLog", Holds::owned, Type::InstanceLog}}},
        {Type::InstanceLog, {}},
        {Type::FatalError,
         {{"requestReboot", Holds::mode},
          {"rebootReason", Holds::text},
          {"reloadCauseDesc", Holds::text}}},
    };
    return table.at(type);
}

std::string_view nameOf(Type type) {
    switch (type) {
        case Type::Dir: return "Orv::Dir";
        case Type::Config: return "Stage::Config";
        case Type::EventConfig: return "Stage::EventConfig";
        case Type::AgentConfig: return "Stage::AgentConfig";
        case Type::AgentStatus: return "Stage::AgentStatus";
        case Type::AgentStatusLocal: return "Stage::AgentStatusLocal";
        case Type::EnabledConfig: return "Stage::EnabledConfig";
        case Type::StageGlobalConfig: return "Stage::StageGlobalConfig";
        case Type::Status: return "Stage::Status";
        case Type::StageStatus: return "Stage::StageStatus";
        case Type::InstanceStatus: return "Stage::InstanceStatus";
        case Type::CompletionStatusDir: return "Stage::CompletionStatusDir";
        case Type::CompletionStatus: return "Stage::CompletionStatus";
        case Type::ProgressDir: return "Stage::ProgressDir";
        case Type::Progress: return "Stage::Progress";
        case Type::Log: return "Stage::Log";
        case Type::InstanceLog: return "Stage::InstanceLog";
        case Type::FatalError: return "Stage::FatalError";
    }
    return "";
}

std::optional<Type> typeNamed(std::string_view name) {
    for (int i = 0; i <= static_cast<int>(Type::FatalError); ++i)
        if (nameOf(static_cast<Type>(i)) == name) return static_cast<Type>(i);
    return std::nullopt;
}

State initialState() {
    State s;
    makeEntity(s, Type::Dir, "", "", 0);  // id 0 is none
    s.root = makeEntity(s, Type::Dir, "", "", 0);
    for (const char* dir : {"stage", "input", "agentstatus", "enable"}) {
        makeEntry(s, s.root, dir, Type::Dir, Who::input);
        watch(s, memberRef(s, s.root, entries, dir), Watcher::topPlaces, 0, true);
    }
    makeEntry(s, s.root, "global", Type::StageGlobalConfig, Who::input);
    makeEntry(s, s.root, "fatalerror", Type::FatalError, Who::input);
    s.global = memberRef(s, s.root, entries, "global");
    s.fatal = memberRef(s, s.root, entries, "fatalerror");
    return s;
}

std::string escaped(std::string_view name) {
    std::string result;
    for (const char c : name) {
        if (c == '~')
            result += "~0";
        else if (c == '/')
            result += "~1";
        else
            result += c;
    }
    return result;
}

std::optional<Id> find(const State& state, std::string_view path) {
    const auto components = componentsOf(path);
    return walk(state, components, components.size());
}

std::vector<Key> keysOf(const State& state, Id entity, std::string_view attr) {
    const std::size_t index = indexOf(at(state, entity).type, attr);
    if (index == attributesOf(at(state, entity).type).size()) return {};
    return keys(state, entity, index);
}

std::string problem(const State& state, const Line& line) {
    if (!(line.at >= state.lineTime)) return "time goes back";
    switch (line.op) {
        case Op::settle:
        case Op::end: return "";
        case Op::create: {
            const auto place = placeOf(state, line.path);
            const auto type = typeNamed(line.type);
            if (!place || place->first == state.root) return "no such directory";
            if (!type || !creatable().contains(*type)) return "not a type of an entry";
            const Id held = memberRef(state, place->first, entries, place->second);
            return held && at(state, held).type != *type ? "another type stands there" : "";
        }
        case Op::remove: {
            const auto place = placeOf(state, line.path);
            return place && place->first != state.root ? "" : "no such directory";
        }
        case Op::set:
        case Op::unset:
        case Op::clear: break;
    }
    const auto id = find(state, line.path);
    if (!id) return "no such entity";
    const std::size_t attr = indexOf(at(state, *id).type, line.attr);
    const auto& attributes = attributesOf(at(state, *id).type);
    if (attr == attributes.size() || attributes[attr].holds == Holds::entries)
        return "no such attribute";
    const Attribute& attribute = attributes[attr];
    const bool scalar = isScalar(attribute.holds);
    if (line.op == Op::clear)
        return scalar || line.key || line.value ? "not a collection alone" : "";
    if (scalar == line.key.has_value()) return "a key too many or too few";
    if (line.key && line.key->form != formOf(attribute.holds)) return "a key of another form";
    if (line.op == Op::unset) return scalar || line.value ? "not a member alone" : "";
    if (line.value.has_value() == (attribute.holds == Holds::owned))
        return "a value too many or too few";
    return line.value ? problemOfValue(state, attribute, line) : "";
}

void advanceBefore(State& state, double at) {
    if (state.aborted || state.ended || !(at > state.lineTime)) return;
    try {
        while (!state.armed.empty() && state.armed.begin()->first.first < at) fireFirst(state);
    } catch (const Abort& abort) {
        state.aborted = abort.text;
        return;
    }
    state.now = std::max(state.now, at);
    state.lineTime = at;
}

void feed(State& state, const Line& line) {
    advanceBefore(state, line.at);
    if (state.aborted || state.ended) return;
    try {
        apply(state, line);
    } catch (const Abort& abort) {
        state.aborted = abort.text;
    }
}

void finish(State& state) {
    if (state.aborted || state.ended) return;
    try {
        fireUntil(state, never);
    } catch (const Abort& abort) {
        state.aborted = abort.text;
        return;
    }
    state.ended = true;
}

std::optional<double> nextDue(const State& state) {
    if (state.armed.empty()) return std::nullopt;
    return state.armed.begin()->first.first;
}

Tree treeOf(const State& state) {
    Tree tree;
    for (const auto& each : at(state, state.root).collections[entries])
        show(state, std::get<Ref>(each.second).id, tree);
    tree.push_back({"/sm",
                    "Stage::StageMgrStageClassDirSm",
                    {{"initialized", false, Value(true)},
                     {"stageSubPathSm", false, sortedNamesOf(state.placeWatchers)},
                     {"stageMgr", false, sortedNamesOf(state.managers)}}});
    Members published;
    for (const std::string& each : state.published) published.emplace_back(nameKey(each), true);
    tree.push_back({"/sm/availableStageSubPath",
                    "Stage::AvailableStageSubPaths",
                    {{"stageSubPath", false, std::move(published)}}});
    for (const auto& each : state.placeWatchers)
        tree.push_back({"/sm/stageSubPathSm/" + escaped(each.first),
                        "Stage::StageSubPathSm",
                        {{"initialized", false, Value(true)}}});
    for (const auto& each : state.managers) showManager(state, state.manager.at(each.second), tree);
    return tree;
}

std::vector<Line> applicable(const std::vector<Line>& lines) {
    State state = initialState();
    std::vector<Line> result;
    for (const Line& line : lines) {
        if (state.ended || state.aborted || line.at < state.lineTime) continue;
        advanceBefore(state, line.at);
        if (!problem(state, line).empty()) continue;
        feed(state, line);
        result.push_back(line);
    }
    return result;
}

}  // namespace conformance
