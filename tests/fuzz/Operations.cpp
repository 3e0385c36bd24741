#include "tests/fuzz/Operations.h"

#include <array>
#include <limits>
#include <string_view>
#include <utility>

#include "runtime/Dir.h"
#include "runtime/Type.h"

namespace fuzz {
namespace {

using Host::Input;
using Host::Json;
using Inputs = std::vector<Input>;
using Shape = Orv::Attribute::Shape;

constexpr std::array<const char*, 2> classes = {"boot", "switchover"};
constexpr std::array<const char*, 5> stages = {"A", "B", "C", "D", "a/b~"};
constexpr std::array<const char*, 4> agents = {"x", "y", "z", "A"};
constexpr std::array<const char*, 2> instances = {"main", "alt"};
constexpr std::array<const char*, 9> types = {
    "Orv::Dir",           "Stage::AgentConfig",   "Stage::AgentStatus",
    "Stage::Config",      "Stage::EnabledConfig", "Stage::Status",
    "Stage::ProgressDir", "Stage::Log",           "Stage::CompletionStatusDir"};
constexpr std::array<const char*, 20> texts = {
    "A",    "B",   "C",    "D",    "a/b~",       "x",      "y",     "z", "boot", "switchover",
    "main", "alt", "none", "cold", "powerCycle", "config", "%s %n", "",  "A:x",  "status"};
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr std::array<double, 24> limits = {
    0,        0.5,    1,       2,        3,         5,
    8,        10,     30,      90.9,     0.1,       1,
    16777217, -1,     -0.5,    1e-320,   1e9,       1e300,
    3.5e38,   3.4e38, -3.5e38, infinity, -infinity, std::numeric_limits<double>::quiet_NaN()};
constexpr std::array<double, 8> delays = {0.25, 0.5, 1, 1, 2, 5, 30, 1e6};

struct Place {
    const char* above;
    const char* below;
    const char* type;
};
// What a class needs, in an order in which it can be made.
constexpr std::array<Place, 11> places = {
    {{"/stage/", "", "Orv::Dir"},
     {"/stage/", "/config", "Orv::Dir"},
     {"/stage/", "/config/config", "Stage::Config"},
     {"/stage/", "/status", "Stage::Status"},
     {"/stage/", "/completionstatus", "Stage::CompletionStatusDir"},
     {"/stage/", "/progress", "Stage::ProgressDir"},
     {"/stage/", "/log", "Stage::Log"},
     {"/input/", "", "Orv::Dir"},
     {"/agentstatus/", "", "Orv::Dir"},
     {"/enable/", "", "Stage::EnabledConfig"},
     {"/stage/", "/config", "Orv::Dir"}}};

std::string pathOf(const Place& place, const std::string& c) {
    return place.above + c + place.below;
}

Input create(std::string path, std::string type) {
    Input input;
    input.op = Input::Op::create;
    input.path = std::move(path);
    input.type = std::move(type);
    return input;
}

Input del(std::string path) {
    Input input;
    input.op = Input::Op::del;
    input.path = std::move(path);
    return input;
}

Input set(std::string path, std::string attr, Json value) {
    Input input;
    input.op = Input::Op::set;
    input.path = std::move(path);
    input.attr = std::move(attr);
    input.value = std::move(value);
    return input;
}

Input setMember(std::string path, std::string attr, Json key) {
    Input input;
    input.op = Input::Op::set;
    input.path = std::move(path);
    input.attr = std::move(attr);
    input.key = std::move(key);
    return input;
}

Input setMember(std::string path, std::string attr, Json key, Json value) {
    Input input = setMember(std::move(path), std::move(attr), std::move(key));
    input.value = std::move(value);
    return input;
}

Input unset(std::string path, std::string attr, Json key) {
    Input input = setMember(std::move(path), std::move(attr), std::move(key));
    input.op = Input::Op::unset;
    return input;
}

Input clear(std::string path, std::string attr) {
    Input input;
    input.op = Input::Op::clear;
    input.path = std::move(path);
    input.attr = std::move(attr);
    return input;
}

// JSON has no number for these; its text is what a journal has.
Json number(double value) {
    if (value != value) return "nan";
    if (value == infinity) return "inf";
    if (value == -infinity) return "-inf";
    return value;
}

// A member set to true or to false, or taken out, or all of them.
Input changed(Bytes& bytes, std::string path, std::string attr, Json key) {
    switch (bytes.below(8)) {
        case 5: return setMember(std::move(path), std::move(attr), std::move(key), false);
        case 6: return unset(std::move(path), std::move(attr), std::move(key));
        case 7: return clear(std::move(path), std::move(attr));
        default: return setMember(std::move(path), std::move(attr), std::move(key), true);
    }
}

std::string below(const std::string& path, const char* name) {
    return path + '/' + Host::pathName(name);
}

Json reportKey(const char* agent, const char* stage, const char* instance) {
    return Json::Object{{"agent", agent}, {"stage", stage}, {"instance", instance}};
}

Json placeKey(const char* stageClass, const char* stage) {
    return Json::Object{{"stageClass", stageClass}, {"stage", stage}};
}

// One byte: a class, and something else.
std::string aClass(Bytes& bytes) {
    // The second is the rarer.
    return classes[bytes.below(4) == 3 ? 1 : 0];
}

Inputs registration(Bytes& bytes, const std::string& c) {
    const char* const a = bytes.of(agents);
    const char* const s = bytes.of(stages);
    const std::string agent = below("/input/" + c, a);
    const std::string event = below(agent + "/event", s);
    const unsigned how = bytes.take();
    Inputs inputs = {create(agent, "Stage::AgentConfig"), setMember(agent, "event", s)};
    inputs.push_back(set(event, "timeout", number(limits[how % 8])));
    if ((how & 8) != 0) inputs.push_back(set(event, "critical", true));
    if ((how & 16) != 0) inputs.push_back(setMember(event, "dependency", bytes.of(stages), true));
    if ((how & 32) != 0) inputs.push_back(setMember(event, "dependency", bytes.of(stages), true));
    if ((how & 64) != 0) {
        inputs.push_back(set(event, "autoCompleteTimeout", number(bytes.of(limits))));
        inputs.push_back(set(event, "enableAutoComplete", true));
    }
    return inputs;
}

Inputs report(Bytes& bytes) {
    const std::string c = aClass(bytes);
    const char* const a = bytes.of(agents);
    const char* const s = bytes.of(stages);
    const char* const i = bytes.of(instances);
    const std::string status = below("/agentstatus/" + c, a);
    return {create(status, "Stage::AgentStatus"),
            changed(bytes, status, "complete", reportKey(a, s, i))};
}

Inputs reportStage(Bytes& bytes) {
    const std::string c = aClass(bytes);
    const char* const s = bytes.of(stages);
    const char* const i = bytes.of(instances);
    Inputs inputs;
    for (const char* a : agents) {
        const std::string status = below("/agentstatus/" + c, a);
        inputs.push_back(create(status, "Stage::AgentStatus"));
        inputs.push_back(setMember(status, "complete", reportKey(a, s, i), true));
    }
    return inputs;
}

Inputs request(Bytes& bytes) {
    const std::string c = aClass(bytes);
    const char* const a = bytes.of(agents);
    const char* const s = bytes.of(stages);
    const std::string status = below("/agentstatus/" + c, a);
    const unsigned how = bytes.take();
    Inputs inputs = {create(status, "Stage::AgentStatus")};
    if (how % 4 == 3)
        inputs.push_back(unset(status, "stageRequest", s));
    else
        inputs.push_back(setMember(status, "stageRequest", s,
                                   Json::Object{{"agent", how == 254 ? agents[0] : a},
                                                {"stage", how == 253 ? stages[0] : s},
                                                {"timeout", number(limits[how % limits.size()])}}));
    return inputs;
}

Inputs agentEntries(Bytes& bytes) {
    const std::string c = aClass(bytes);
    const char* const a = bytes.of(agents);
    const unsigned how = bytes.take();
    const std::string config = below("/input/" + c, a);
    const std::string status = below("/agentstatus/" + c, a);
    switch (how % 8) {
        case 0: return {del(config)};
        case 1: return {del(status)};
        case 2: return {create(config, "Stage::AgentConfig")};
        case 3: return {create(status, "Stage::AgentStatus")};
        case 4: return {del(config), create(config, types[how / 8 % types.size()])};
        case 5: return {del(status), create(status, types[how / 8 % types.size()])};
        case 6: return {unset(config, "event", bytes.of(stages))};
        default: return {set(config, "createdOnStageRequest", (how & 8) != 0)};
    }
}

Inputs eventChange(Bytes& bytes) {
    const std::string c = aClass(bytes);
    const char* const a = bytes.of(agents);
    const char* const s = bytes.of(stages);
    const std::string event = below(below("/input/" + c, a) + "/event", s);
    switch (bytes.below(8)) {
        case 0: return {set(event, "timeout", number(bytes.of(limits)))};
        case 1: return {set(event, "critical", bytes.below(2) != 0)};
        case 2:
        case 3: {
            const char* const dependency = bytes.of(stages);
            return {changed(bytes, event, "dependency", dependency)};
        }
        case 4: {
            const char* const i = bytes.of(instances);
            return {changed(bytes, event, "complete", i)};
        }
        case 5: return {set(event, "enableAutoComplete", bytes.below(4) != 0)};
        case 6: return {set(event, "autoCompleteTimeout", number(bytes.of(limits)))};
        default: {
            static constexpr std::array<const char*, 3> names = {"name", "stage", "agent"};
            const char* const attr = bytes.of(names);
            return {set(event, attr, bytes.of(texts))};
        }
    }
}

Inputs operators(Bytes& bytes) {
    const std::string c = aClass(bytes);
    const std::string enable = "/enable/" + c;
    const std::string config = "/stage/" + c + "/config/config";
    const char* const i = bytes.of(instances);
    switch (bytes.below(12)) {
        case 0:
        case 1:
        case 2: return {changed(bytes, enable, "enabled", i)};
        case 3: return {changed(bytes, enable, "suspended", i)};
        case 4:
        case 5: {
            const char* const s = bytes.of(stages);
            return {changed(bytes, "/global", "doNotStartStage", placeKey(c.c_str(), s))};
        }
        case 6: return {set(config, "globalStageCompletionTimeout", number(bytes.of(limits)))};
        case 7: return {set(config, "stageTimeoutIsFatal", bytes.below(2) != 0)};
        case 8: return {set(config, "continueOnTimeout", bytes.below(2) != 0)};
        case 9: return {set("/fatalerror", "requestReboot", bytes.below(2) != 0 ? "warm" : "none")};
        case 10: return {set(config, "stageClass", bytes.of(texts))};
        default: return {set(config, "resetMode", bytes.below(2) != 0 ? "cold" : "none")};
    }
}

Inputs changedPlaces(Bytes& bytes) {
    const std::string c = aClass(bytes);
    const Place& place = bytes.of(places);
    const std::string path = pathOf(place, c);
    const unsigned how = bytes.take();
    switch (how % 4) {
        case 0: return {del(path)};
        case 1: return {create(path, place.type)};
        case 2: return {del(path), create(path, place.type)};
        default: return {del(path), create(path, types[how / 4 % types.size()])};
    }
}

// --- Anything

using Found = std::vector<std::pair<std::string, Orv::Ptr<Orv::Entity>>>;

void collect(const Orv::Ptr<Orv::Entity>& entity, const std::string& path, Found& found) {
    found.emplace_back(path, entity);
    if (const auto* const dir = dynamic_cast<const Orv::Dir*>(entity.get())) {
        for (const auto& [name, entry] : dir->entries())
            collect(entry, path + '/' + Host::pathName(name), found);
        return;
    }
    for (const auto& attribute : entity->info().attributes()) {
        if (attribute->shape() != Shape::instantiating) continue;
        for (const Orv::Value& key : attribute->keys(*entity)) {
            const Orv::Value member = attribute->member(*entity, key);
            if (auto* const held = dynamic_cast<Orv::Entity*>(member.reference()->get()))
                collect(Orv::Ptr<Orv::Entity>(held),
                        path + '/' + attribute->name() + '/' + Host::pathName(*key.string()),
                        found);
        }
    }
}

// A value of the kind, of whatever fits the attribute most often.
Json valueOf(Bytes& bytes, const Orv::Value& kind, std::string_view attr, const Found& found) {
    if (kind.boolean() != nullptr) return bytes.below(2) != 0;
    if (kind.number() != nullptr) return number(bytes.of(limits));
    if (kind.fields() != nullptr) {
        Json::Object fields;
        for (const auto& [name, field] : *kind.fields())
            fields.emplace_back(name.str(), valueOf(bytes, field, attr, found));
        return fields;
    }
    if (kind.reference() == nullptr) return bytes.of(texts);
    const std::string_view wanted = attr == "event"         ? "Stage::EventConfig"
                                    : attr == "activeStage" ? "Stage::StageStatus"
                                    : attr == "progress"    ? "Stage::Progress"
                                                            : "Orv::Dir";
    std::vector<const std::string*> fitting;
    for (const auto& [path, entity] : found)
        if (entity->info().name() == wanted) fitting.push_back(&path);
    const unsigned which = bytes.below(fitting.size() + 1);
    return which == fitting.size() ? Json() : Json(*fitting[which]);
}

// Any attribute of any entity that is there, what the manager writes included.
Inputs anything(Bytes& bytes, const Host::Tree& tree) {
    Found found;
    for (const auto& [name, entry] : tree.root()->entries())
        collect(entry, '/' + Host::pathName(name), found);
    const auto& [path, entity] = bytes.of(found);
    if (dynamic_cast<const Orv::Dir*>(entity.get()) != nullptr) {
        const std::string entry = below(path, bytes.of(texts));
        const unsigned how = bytes.take();
        if (how % 4 == 0) return {del(path)};
        if (how % 4 == 1) return {del(entry)};
        return {create(entry, types[how / 4 % types.size()])};
    }
    const auto& attributes = entity->info().attributes();
    if (attributes.empty()) return {};
    const Orv::Attribute& attribute = *bytes.of(attributes);
    const char* const attr = attribute.name();
    if (attribute.shape() == Shape::queue) return {};
    if (!attribute.keyed())
        return {set(path, attr, valueOf(bytes, attribute.valueKind(), attr, found))};
    const unsigned how = bytes.below(8);
    if (how == 7) return {clear(path, attr)};
    const std::vector<Orv::Value> held = attribute.keys(*entity);
    Json key = valueOf(bytes, attribute.keyKind(), attr, found);
    // One that is there, rather.
    if (how % 2 == 1 && !held.empty() && !attribute.compositeKeys())
        key = held[bytes.below(held.size())].string()->str();
    if (how == 5 || how == 6) return {unset(path, attr, std::move(key))};
    if (attribute.shape() == Shape::instantiating) return {setMember(path, attr, std::move(key))};
    Json value = valueOf(bytes, attribute.valueKind(), attr, found);
    return {setMember(path, attr, std::move(key), std::move(value))};
}

}  // namespace

Operation setUp(Bytes& bytes) {
    const unsigned how = bytes.take();
    Operation operation;
    Inputs& inputs = operation.inputs;
    const std::string c = classes[how % 4 == 3 ? 1 : 0];
    // All but the last, which stands in the list for being changed more often.
    for (std::size_t n = 0; n + 1 < places.size(); ++n)
        inputs.push_back(create(pathOf(places[n], c), places[n].type));
    const std::string config = "/stage/" + c + "/config/config";
    inputs.push_back(set(config, "stageClass", c));
    inputs.push_back(set(config, "application", "App"));
    inputs.push_back(set(config, "resetMode", "cold"));
    inputs.push_back(set(config, "reloadCauseDesc", "It was slow."));
    for (unsigned n = how / 4 % 8; n > 0; --n)
        for (Input& input : registration(bytes, c)) inputs.push_back(std::move(input));
    inputs.push_back(setMember("/enable/" + c, "enabled", instances[0], true));
    return operation;
}

Operation next(Bytes& bytes, const Host::Tree& tree) {
    using Kind = Operation::Kind;
    Operation operation;
    switch (bytes.below(32)) {
        case 0:
        case 1:
        case 2: operation.inputs = registration(bytes, aClass(bytes)); break;
        case 3:
        case 4: operation.inputs = report(bytes); break;
        case 5:
        case 6: operation.inputs = reportStage(bytes); break;
        case 7: operation.inputs = request(bytes); break;
        case 8:
        case 9: operation.inputs = agentEntries(bytes); break;
        case 10:
        case 11: operation.inputs = eventChange(bytes); break;
        case 12:
        case 13:
        case 14: operation.inputs = operators(bytes); break;
        case 15: operation.inputs = changedPlaces(bytes); break;
        case 16: return setUp(bytes);
        case 17:
        case 18:
            operation.kind = Kind::pass;
            operation.seconds = bytes.of(delays);
            break;
        case 19:
        case 20:
            operation.kind = Kind::passDue;
            operation.seconds = 0.5 * bytes.below(4);
            break;
        case 21:
        case 22: operation.kind = Kind::settle; break;
        case 23: operation.kind = Kind::restart; break;
        case 24:
        case 25:
        case 26:
            operation.kind = Kind::inside;
            operation.change = static_cast<Operation::Change>(bytes.below(6));
            operation.count = 1 + bytes.below(operation.change == Operation::Change::any ? 24 : 4);
            break;
        default: operation.inputs = anything(bytes, tree); break;
    }
    return operation;
}

Operation nextInside(Bytes& bytes, const Host::Tree& tree) {
    const unsigned how = bytes.take();
    const std::string c = classes[0];
    const auto one = [](Input input) { return Operation{.inputs = {std::move(input)}}; };
    switch (how % 16) {
        case 0: return {.kind = Operation::Kind::restart};
        case 1: return one(unset("/enable/" + c, "enabled", instances[0]));
        case 2: return one(unset("/enable/" + c, "enabled", instances[1]));
        case 3: return one(del(below("/input/" + c, bytes.of(agents))));
        case 4: return one(del(below("/agentstatus/" + c, bytes.of(agents))));
        case 5: {
            const char* const a = bytes.of(agents);
            return one(unset(below("/input/" + c, a), "event", bytes.of(stages)));
        }
        case 6: return one(unset("/stage/" + c + "/status", "stage", bytes.of(stages)));
        case 7: return one(unset("/stage/" + c + "/status", "instStatus", bytes.of(instances)));
        case 8: return one(clear("/stage/" + c + "/log", "instanceLog"));
        case 9: return one(del(pathOf(bytes.of(places), c)));
        default: return next(bytes, tree);
    }
}

}  // namespace fuzz
