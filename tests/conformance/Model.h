// What a manager does with a journal, said a second time: plain values, plain functions that change
// them, and one table of what each type of entity holds. It shares nothing with the library, so
// that where the two agree on a journal, a mistake would have to be made twice.
//
//     State state = initialState();
//     for (const Line& line : lines) feed(state, line);
//     finish(state);
//     state.observed, treeOf(state) or state.aborted is what comes out
//
// A state is a value: copy it to look ahead or to go back.
#pragma once

#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace conformance {

// --- What goes in and comes out

// An entity, by its place in State::entities. 0 is none. Ids are never used twice, so an entity
// that has left the tree can still be referred to.
using Id = std::uint32_t;

struct Ref {
    Id id = 0;
    bool operator==(const Ref&) const = default;
};

struct Request {
    std::string agent;
    std::string stage;
    double timeout = 0;
    bool operator==(const Request&) const = default;
};

// Reset modes are their names; in lines and observations references are paths, with monostate for
// none. Only the entities hold Refs.
using Value = std::variant<std::monostate, bool, double, std::string, Request, Ref>;

struct Key {
    enum class Form { name, report, place };

    Form form = Form::name;
    std::string first;   // the name; the agent of a report; the stage class of a place
    std::string second;  // the stage
    std::string third;   // the instance

    auto operator<=>(const Key&) const = default;
};

Key nameKey(std::string name);
Key reportKey(std::string agent, std::string stage, std::string instance);
Key placeKey(std::string stageClass, std::string stage);

enum class Op { create, remove, set, unset, clear, settle, end };

struct Line {
    double at = 0;
    Op op = Op::settle;
    std::string path;
    std::string type;
    std::string attr;
    std::optional<Key> key;
    std::optional<Value> value;

    bool operator==(const Line&) const = default;
};

struct Observation {
    enum class Kind { set, unset, create, remove, log, message, watchdog, print, error };

    double t = 0;
    Kind kind = Kind::set;
    std::string path;
    std::string attr;
    std::string type;
    std::optional<Key> key;
    std::optional<Value> value;
    std::string text;  // of a log line, a message, a print, an error; the limit of a watchdog
    std::string id;    // of a message
    int severity = 0;  // of a message
};

struct LogLine {
    double time = 0;
    std::string message;
};

// What `state` shows of one attribute.
using Names = std::vector<std::string>;
using Members = std::vector<std::pair<Key, Value>>;
struct Shown {
    std::string attr;
    bool composite = false;  // the members' keys are reports or places
    std::variant<Value, Names, Members, std::vector<LogLine>> value;
};

struct Node {
    std::string path;
    std::string type;
    std::vector<Shown> attributes;
};

using Tree = std::vector<Node>;

// --- Entities

enum class Type {
    Dir,
    Config,
    EventConfig,
    AgentConfig,
    AgentStatus,
    AgentStatusLocal,
    EnabledConfig,
    StageGlobalConfig,
    Status,
    StageStatus,
    InstanceStatus,
    CompletionStatusDir,
    CompletionStatus,
    ProgressDir,
    Progress,
    Log,
    InstanceLog,
    FatalError,
};

enum class Holds {
    flag,
    number,
    text,
    mode,
    reference,   // to an entity of the target type
    flags,       // name to bool
    reports,     // (agent, stage, instance) to bool
    places,      // (stage class, stage) to bool
    requests,    // name to request
    references,  // name to an entity of the target type
    owned,       // name to an entity of the target type that the collection makes itself
    entries,     // of a directory
};

struct Attribute {
    std::string_view name;
    Holds holds;
    Type target = Type::Dir;
};

// What the entities of a type hold, in the order in which `state` shows it.
const std::vector<Attribute>& attributesOf(Type type);
std::string_view nameOf(Type type);
std::optional<Type> typeNamed(std::string_view name);

// Who is told of an entity's changes. A reactor is named by its kind and its id in that kind's map.
enum class Watcher {
    topPlaces,
    classDir,
    classConfig,
    classStages,
    agentDir,
    reportDir,
    agent,
    agentReports,
    stage,
    event,
    enabled,
    active,
    held,
    waiting,
    running,
    part,
    local,
};

struct Watch {
    std::uint64_t serial = 0;
    Watcher kind = Watcher::topPlaces;
    Id reactor = 0;
    bool on = true;
};

struct Entity {
    Type type = Type::Dir;
    std::string name;
    std::string path;
    Id owner = 0;
    std::vector<Value> scalars;        // by attribute; monostate where it is a collection
    std::vector<Members> collections;  // by attribute; empty where it is a scalar
    std::vector<LogLine> lines;
    std::vector<Watch> watches;  // in the order in which they joined
};

// --- Reactors

using Children = std::vector<std::pair<std::string, Id>>;

constexpr double never = std::numeric_limits<double>::infinity();

struct Timer {
    double wake = never;
    std::uint64_t serial = 0;  // of the last arming
};

enum class Alarm { pass, deadline, stage, autoComplete };

// Waits for the places below a class's own directory.
struct PlaceWatcher {
    std::string stageClass;
    Id dir = 0;
};

// Everything that exists once per stage class.
struct Manager {
    std::string name;
    Id local = 0;
    bool hasConfigSide = false;
    bool hasStatusSide = false;
    bool configReady = false;
    bool statusReady = false;
    Id config = 0;
    Id status = 0;
    Id agentDir = 0;
    Id reportDir = 0;
    Id enabled = 0;
    Id completionDir = 0;
    Id progressDir = 0;
    Id log = 0;
    Children reporters;
    Children agents;
    Children stages;
    Children instances;
};

struct Agent {
    Id manager = 0;
    std::string name;
    Id config = 0;
};

struct Reporter {
    Id manager = 0;
    std::string name;
    Id status = 0;
    bool ready = false;
};

struct StageRecord {
    Id manager = 0;
    std::string name;
    Id status = 0;
    Children events;
    std::vector<std::string> criticalAncestors;
};

struct EventRecord {
    Id stage = 0;
    std::string agent;
    Id config = 0;
};

struct Instance {
    Id manager = 0;
    std::string name;
    Id status = 0;
    Id completion = 0;
    Id progress = 0;
    bool ready = false;
    bool passNeeded = false;
    Timer pass;
    Timer deadline;
    Children waiting;
    Children running;
};

struct WaitingStage {
    Id instance = 0;
    Id status = 0;
};

struct RunningStage {
    Id instance = 0;
    std::string name;
    Id status = 0;
    bool ready = false;
    bool complete = false;
    bool timedOut = false;
    double completionTime = 0;
    bool hasTimer = false;
    Timer timer;
    Children parts;
    Children autoCompletions;
    std::vector<std::pair<std::string, Id>> pending;
};

struct Part {
    Id stage = 0;
    Id config = 0;
};

struct AutoCompletion {
    Id stage = 0;
    Id config = 0;
    Timer timer;
};

// --- The whole

struct State {
    double now = 0;
    double lineTime = 0;
    bool ended = false;
    // The failed assertion's text. Nothing happens after it.
    std::optional<std::string> aborted;
    std::vector<Observation> observed;

    std::deque<Entity> entities;
    Id root = 0;
    Id global = 0;
    Id fatal = 0;

    std::uint64_t serial = 0;
    Id lastReactor = 0;
    std::map<std::pair<double, std::uint64_t>, std::pair<Alarm, Id>> armed;

    std::vector<std::string> published;
    Children placeWatchers;
    Children managers;
    std::map<Id, PlaceWatcher> placeWatcher;
    std::map<Id, Manager> manager;
    std::map<Id, Agent> agent;
    std::map<Id, Reporter> reporter;
    std::map<Id, StageRecord> stage;
    std::map<Id, EventRecord> event;
    std::map<Id, Instance> instance;
    std::map<Id, WaitingStage> waiting;
    std::map<Id, RunningStage> running;
    std::map<Id, Part> part;
    std::map<Id, AutoCompletion> autoCompletion;
};

State initialState();

// Why the line cannot be applied; empty when it can. The path must exist once the timers that are
// due before the line have fired, so ask after advanceBefore().
std::string problem(const State& state, const Line& line);

// Fires every timer due before a line at that time, and sets the clock to it. feed() does so
// itself.
void advanceBefore(State& state, double at);

// Applies one line. It must have no problem.
void feed(State& state, const Line& line);

// What follows the last line: every timer that is still armed fires.
void finish(State& state);

// The earliest wake-up time, if any timer is armed.
std::optional<double> nextDue(const State& state);

Tree treeOf(const State& state);

// The lines that can be applied, one after another; those with a problem are left out.
std::vector<Line> applicable(const std::vector<Line>& lines);

// --- Questions about the tree

std::optional<Id> find(const State& state, std::string_view path);
std::string escaped(std::string_view name);
// The keys of a collection, or of a directory's entries under the attribute "entries".
std::vector<Key> keysOf(const State& state, Id entity, std::string_view attr);

}  // namespace conformance
