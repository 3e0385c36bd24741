#include "host/plan/PlanReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "host/Suggest.h"
#include "host/Utf8.h"
#include "host/plan/Duration.h"
#include "host/plan/Yaml.h"

namespace Host {

namespace {

using Key = std::string_view;
using Keys = std::vector<Key>;

// A thing that has keys of its own, as messages call it: "a stage has no key ...".
struct Level {
    Key what;
    Keys keys;
};

const Keys classKeys{"application", "deadline",  "on-timeout",   "reset", "reload-cause",
                     "limit",       "instances", "do-not-start", "stages"};
const Keys participantKeys{"command",     "external",      "takes",      "ready",
                           "environment", "directory",     "stop-limit", "limit",
                           "critical",    "auto-complete", "after"};
// Those that a stage with participants does not have: they say what one participant does.
const Keys workKeys{"command",     "external",  "takes",     "ready",
                    "environment", "directory", "stop-limit"};

Keys joined(Keys some, const Keys& more) {
    some.insert(some.end(), more.begin(), more.end());
    return some;
}

const Level planLevel{"a plan", joined({"version", "class", "classes"}, classKeys)};
const Level classLevel{"a class", classKeys};
const Level stageLevel{"a stage", joined({"participants"}, participantKeys)};
const Level participantLevel{"a participant", participantKeys};
const Level takesLevel{"\"takes\"", {"fixed", "uniform", "normal", "exponential", "lost"}};
const Level instanceLevel{"an instance", {"start", "suspended"}};
const Level* const levels[] = {&planLevel,        &classLevel, &stageLevel,
                               &participantLevel, &takesLevel, &instanceLevel};

// What other tools call our keys.
constexpr std::pair<Key, Key> otherWords[] = {{"depends", "after"},
                                              {"depends-on", "after"},
                                              {"depends_on", "after"},
                                              {"dependencies", "after"},
                                              {"requires", "after"},
                                              {"needs", "after"},
                                              {"wants", "after"},
                                              {"timeout", "limit"},
                                              {"env", "environment"},
                                              {"cwd", "directory"},
                                              {"working-directory", "directory"},
                                              {"working_dir", "directory"},
                                              {"cmd", "command"},
                                              {"run", "command"},
                                              {"exec", "command"},
                                              {"duration", "takes"},
                                              {"agents", "participants"},
                                              {"services", "stages"},
                                              {"name", "class"},
                                              {"stop-timeout", "stop-limit"}};

bool has(const Keys& keys, Key key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

std::string quoted(Key key) { return "\"" + std::string(key) + "\""; }

std::string listed(const Keys& words, Key last) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0) text += i + 1 == words.size() ? " " + std::string(last) + " " : ", ";
        text += words[i];
    }
    return text;
}

bool holdsControls(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x20 || byte == 0x7f) return true;
        if (byte == 0xc2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xa0)
            return true;
    }
    return false;
}

bool isDuration(std::string_view text) {
    try {
        parseDuration(text);
        return true;
    } catch (const DurationError&) {
        return false;
    }
}

// What is true of every participant that does not say otherwise.
struct Defaults {
    double limit = 90.0;
    Place limitPlace{};
    bool critical = false;
    std::optional<double> autoComplete{};
    Place autoCompletePlace{};
};

class Reader {
  public:
    Reader(Plan& plan, Findings& findings) : plan_(plan), findings_(findings) {}

    void read(const YamlNode& root) {
        if (root.kind == YamlNode::Kind::refused) return;
        if (root.kind != YamlNode::Kind::mapping) {
            if (root.null())
                error({1, 1}, "missing-key", "the plan is empty; it begins with \"version: 1\"");
            else
                error(root.place, "wrong-type",
                      "a plan is a mapping that begins with \"version: 1\", not " + describe(root));
            return;
        }
        refuseUnknownKeys(root, planLevel);
        readVersion(root);
        if (const YamlMember* const classes = root.member("classes"))
            readClasses(root, *classes);
        else
            readOnlyClass(root);
    }

  private:
    using Kind = YamlNode::Kind;
    using Scalar = YamlNode::Scalar;

    // What to write where a text may be empty.
    static constexpr Key emptyText = "\"\" is an empty text";

    void error(Place place, const char* rule, std::string text,
               std::vector<Diagnostic::Related> related = {}) {
        findings_.error(place, rule, std::move(text), std::move(related));
    }

    // "; did you mean ...?", as long as there was not too much to compare: that takes a while.
    std::string near(std::string_view word, const Keys& candidates) {
        if (candidates.size() > comparisonsLeft_) return {};
        comparisonsLeft_ -= candidates.size();
        return suggestion(word, candidates);
    }

    // Keys.

    void refuseUnknownKeys(const YamlNode& mapping, const Level& level) {
        for (const YamlMember& member : mapping.members)
            if (!has(level.keys, member.key))
                error(member.place, "unknown-key",
                      fmt::format("{} has no key {}{}", level.what, inQuotes(member.key),
                                  keyRemedy(member.key, level)));
    }

    std::string keyRemedy(std::string_view key, const Level& level) {
        for (const auto& [other, ours] : otherWords)
            if (other == key && has(level.keys, ours))
                return "; did you mean " + quoted(ours) + "?";
        if (std::string text = near(key, level.keys); !text.empty()) return text;
        for (const Level* const elsewhere : levels)
            if (has(elsewhere->keys, key))
                return fmt::format("; it is a key of {}", elsewhere->what);
        return "; its keys are " + listed(level.keys, "and");
    }

    bool wantMapping(const YamlNode& node, const std::string& what, Key of) {
        if (node.kind == Kind::mapping) return true;
        if (node.kind != Kind::refused)
            error(node.place, "wrong-type",
                  fmt::format("{} wants a mapping of {}, not {}", what, of, describe(node)));
        return false;
    }

    // Values. Each reports what is wrong with `node`, the value of `key`, and is absent then.

    // `nothing` says what to do where nothing is written.
    std::optional<std::string> text(const YamlNode& node, Key key, Key wanted = "a text",
                                    Key nothing = "write one, or leave the key out") {
        if (node.is(Scalar::text) || node.is(Scalar::number)) {
            if (node.text.find('\0') == std::string::npos) return node.text;
            error(node.place, "bad-value", quoted(key) + " cannot hold a NUL character");
            return std::nullopt;
        }
        if (node.kind == Kind::refused) return std::nullopt;
        const std::string remedy = node.null()                ? "; " + std::string(nothing)
                                   : node.is(Scalar::boolean) ? "; put it into quotes"
                                                              : "";
        error(node.place, "wrong-type",
              fmt::format("{} wants {}, not {}{}", quoted(key), wanted, describe(node), remedy));
        return std::nullopt;
    }

    std::optional<bool> truth(const YamlNode& node, Key key) {
        if (node.kind == Kind::refused) return std::nullopt;
        if (node.is(Scalar::boolean)) return node.text[0] == 't' || node.text[0] == 'T';
        std::string remedy;
        if (node.kind == Kind::scalar) {
            std::string word = node.text;
            for (char& c : word) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            for (const Key yes : {"yes", "on", "y", "1", "true"})
                if (word == yes) remedy = "; write true";
            for (const Key no : {"no", "off", "n", "0", "false"})
                if (word == no) remedy = "; write false";
            if (!remedy.empty() && node.quoted) remedy += ", without quotes";
        }
        error(node.place, "wrong-type",
              fmt::format("{} wants true or false, not {}{}", quoted(key), describe(node), remedy));
        return std::nullopt;
    }

    // Seconds. `zero` says what 0 would mean and what to write instead; empty: 0 is fine.
    std::optional<double> duration(const YamlNode& node, Key key, Key zero = {},
                                   Key wanted = "a duration such as 30s") {
        if (node.kind == Kind::refused) return std::nullopt;
        if (!node.is(Scalar::text) && !node.is(Scalar::number)) {
            error(node.place, "wrong-type",
                  fmt::format("{} wants {}, not {}", quoted(key), wanted, describe(node)));
            return std::nullopt;
        }
        try {
            const double seconds = parseDuration(node.text);
            if (seconds > 0 || zero.empty()) return seconds;
            error(node.place, "zero", fmt::format("\"{}: 0\" {}", key, zero));
        } catch (const DurationError& fault) {
            error(node.place, "bad-value",
                  fmt::format("{} wants {}; {}", quoted(key), wanted, fault.what()));
        }
        return std::nullopt;
    }

    // Whether it is an infinity, or a word for one.
    static bool isEndless(const YamlNode& node) {
        return (node.is(Scalar::text) || node.is(Scalar::number)) && meansEndless(node.text);
    }

    // A duration with an end.
    std::optional<double> finite(const YamlNode& node, Key key) {
        if (!isEndless(node)) return duration(node, key);
        error(node.place, "bad-value",
              fmt::format("{} is never {}; \"takes: never\" is for one that does not report",
                          quoted(key), node.text == "infinity" ? node.text : "without end"));
        return std::nullopt;
    }

    // Which of the words it is.
    std::optional<std::size_t> choice(const YamlNode& node, Key key, const Keys& words) {
        if (node.kind == Kind::refused) return std::nullopt;
        if (node.is(Scalar::text))
            for (std::size_t i = 0; i < words.size(); ++i)
                if (node.text == words[i]) return i;
        const std::string remedy = node.is(Scalar::text) ? near(node.text, words) : std::string();
        error(node.place, node.kind == Kind::scalar ? "bad-value" : "wrong-type",
              fmt::format("{} is {}, not {}{}", quoted(key), listed(words, "or"), describe(node),
                          remedy));
        return std::nullopt;
    }

    // `whose`: "a stage".
    bool checkName(const std::string& name, Place place, Key whose) {
        constexpr std::size_t longest = 255;
        std::string fault;
        if (name.empty())
            fault = "is empty";
        else if (name.size() > longest)
            fault = fmt::format("has {} bytes; {} are the most", name.size(), longest);
        else if (holdsControls(name))
            fault = "holds a control character: " + inQuotes(name);
        if (fault.empty()) return true;
        error(place, "bad-name", fmt::format("the name of {} {}", whose, fault));
        return false;
    }

    // One name or a list of them.
    std::vector<StageReference> stageNames(const YamlNode& node, Key key) {
        constexpr Key wanted = "a stage's name or a list of them";
        std::vector<StageReference> names;
        std::unordered_map<std::string, Place> seen;
        const auto add = [&](const YamlNode& item) {
            const std::optional<std::string> name =
                text(item, key, wanted,
                     &item == &node ? "name a stage, or leave the key out"
                                    : "name a stage, or leave the entry out");
            if (!name || !checkName(*name, item.place, "a stage")) return;
            const auto [first, isNew] = seen.emplace(*name, item.place);
            if (isNew)
                names.push_back({*name, item.place});
            else
                error(item.place, "twice",
                      fmt::format("{} names stage {} twice; leave one out", quoted(key),
                                  inQuotes(*name)),
                      {{first->second, "it stands first here"}});
        };
        if (node.kind == Kind::list)
            for (const YamlNode& item : node.items) add(item);
        else
            add(node);
        return names;
    }

    // The plan and its classes.

    void readVersion(const YamlNode& root) {
        const YamlMember* const version = root.member("version");
        if (version == nullptr) {
            error(root.place, "missing-key",
                  "the key \"version\" is missing; a plan begins with \"version: 1\"");
            return;
        }
        const YamlNode& node = version->value;
        if (node.kind == Kind::refused) return;
        if (!node.is(Scalar::number))
            error(node.place, "wrong-type",
                  "\"version\" wants the number 1, not " + describe(node));
        else if (node.text != "1")
            error(node.place, "bad-value",
                  fmt::format("version {} of plans is not known; this program reads version 1",
                              printable(node.text.substr(0, 40))));
    }

    void readOnlyClass(const YamlNode& root) {
        std::string name = "system";
        Place place = root.place;
        if (const YamlMember* const member = root.member("class")) {
            place = member->value.place;
            if (std::optional<std::string> given = text(member->value, "class"))
                if (checkName(*given, place, "a class")) name = std::move(*given);
        }
        readClass(std::move(name), place, root);
    }

    void readClasses(const YamlNode& root, const YamlMember& classes) {
        for (const YamlMember& member : root.members)
            if (member.key == "class" || has(classKeys, member.key))
                error(member.place, "conflict",
                      quoted(member.key) +
                          " stands beside \"classes\"; put it into the class that it is for",
                      {{classes.place, "the classes are here"}});
        if (!wantMapping(classes.value, "\"classes\"", "names and classes")) return;
        if (classes.value.members.empty())
            error(classes.value.place, "missing-key",
                  "\"classes\" has no class; name at least one");
        for (const YamlMember& member : classes.value.members) {
            checkName(member.key, member.place, "a class");
            if (!wantMapping(member.value, "class " + inQuotes(member.key), "its keys")) continue;
            refuseUnknownKeys(member.value, classLevel);
            readClass(member.key, member.place, member.value);
        }
    }

    void readClass(std::string name, Place place, const YamlNode& node) {
        PlanClass& made = plan_.classes.emplace_back();
        made.name = std::move(name);
        made.place = place;
        made.application = made.name;
        made.deadline = std::numeric_limits<double>::infinity();
        made.reloadCause = "Stage progression timeout.";
        if (const YamlMember* const member = node.member("application"))
            if (std::optional<std::string> given = text(member->value, "application"))
                if (checkName(*given, member->value.place, "an application"))
                    made.application = std::move(*given);
        if (const YamlMember* const member = node.member("deadline")) {
            made.deadlinePlace = member->value.place;
            if (const auto given =
                    duration(member->value, "deadline",
                             "would mean no deadline: write infinity for that, or leave it out"))
                made.deadline = *given;
        }
        readReboot(made, node);
        readReloadCause(made, node);

        Defaults defaults;
        readDefaults(defaults, node);
        readInstances(made, node);
        readStages(made, node, defaults);
        if (const YamlMember* const member = node.member("do-not-start"))
            readDoNotStart(made, member->value);
    }

    // What time-outs and the deadline lead to.
    void readReboot(PlanClass& made, const YamlNode& node) {
        bool understood = true;
        const YamlMember* const onTimeout = node.member("on-timeout");
        if (onTimeout != nullptr) {
            const auto given =
                choice(onTimeout->value, "on-timeout", {"reboot", "continue", "wait"});
            constexpr OnTimeout meanings[] = {OnTimeout::reboot, OnTimeout::proceed,
                                              OnTimeout::wait};
            understood = given.has_value();
            if (given) made.onTimeout = meanings[*given];
        }
        const YamlMember* const reset = node.member("reset");
        if (reset == nullptr) return;
        const auto given = choice(reset->value, "reset", {"cold", "warm", "power-cycle", "none"});
        constexpr const char* spelled[] = {"cold", "warm", "powerCycle", "none"};
        if (!given) return;
        made.reset = spelled[*given];
        if (made.reset != "none" || !understood) return;
        constexpr Key nobody =
            "\"reset: none\" makes a reboot request that nobody sees, and {}; write cold, warm or "
            "power-cycle{}";
        if (made.onTimeout == OnTimeout::reboot)
            error(reset->value.place, "conflict",
                  fmt::format(fmt::runtime(nobody),
                              onTimeout != nullptr ? "\"on-timeout\" is reboot"
                                                   : "\"on-timeout\" is reboot unless it is said",
                              ", or \"on-timeout: continue\""));
        else if (!std::isinf(made.deadline))
            error(reset->value.place, "conflict",
                  fmt::format(fmt::runtime(nobody), "a deadline that passes requests one",
                              ", or leave the deadline out"),
                  {{made.deadlinePlace, "the deadline is here"}});
    }

    void readReloadCause(PlanClass& made, const YamlNode& node) {
        const YamlMember* const member = node.member("reload-cause");
        if (member == nullptr) return;
        const std::optional<std::string> given = text(member->value, "reload-cause");
        if (!given) return;
        if (holdsControls(*given))
            error(member->value.place, "bad-value",
                  "\"reload-cause\" holds a control character; it is one line of text");
        else if (!given->ends_with('.') || given->size() < 2)
            error(member->value.place, "bad-value",
                  "\"reload-cause\" ends with a full stop: its last character is left out when a "
                  "reboot is requested");
        else
            made.reloadCause = *given;
    }

    void readInstances(PlanClass& made, const YamlNode& node) {
        const YamlMember* const member = node.member("instances");
        if (member == nullptr) {
            made.instances.push_back({"main", made.place});
            return;
        }
        const YamlNode& instances = member->value;
        if (instances.kind == Kind::list)
            readInstanceList(made, instances);
        else if (instances.kind == Kind::mapping)
            for (const YamlMember& instance : instances.members) readInstance(made, instance);
        else if (instances.kind != Kind::refused)
            error(instances.place, "wrong-type",
                  fmt::format("\"instances\" wants a list of names, or a mapping of names and "
                              "starts, not {}",
                              describe(instances)));
        if (instances.kind != Kind::scalar && instances.items.empty() &&
            instances.members.empty() && instances.kind != Kind::refused)
            error(instances.place, "missing-key",
                  "\"instances\" has no instance; name at least one, or leave it out");
    }

    void readInstanceList(PlanClass& made, const YamlNode& list) {
        std::unordered_map<std::string, Place> seen;
        for (const YamlNode& item : list.items) {
            const auto name = text(item, "instances", "a list of names",
                                   "name an instance, or leave the entry out");
            if (!name || !checkName(*name, item.place, "an instance")) continue;
            const auto [first, isNew] = seen.emplace(*name, item.place);
            if (isNew)
                made.instances.push_back({*name, item.place});
            else
                error(item.place, "twice",
                      "\"instances\" names " + inQuotes(*name) + " twice; leave one out",
                      {{first->second, "it stands first here"}});
        }
    }

    void readInstance(PlanClass& made, const YamlMember& member) {
        checkName(member.key, member.place, "an instance");
        PlanInstance instance{member.key, member.place};
        if (!member.value.null()) {
            if (!wantMapping(member.value, "instance " + inQuotes(member.key),
                             "\"start\" and \"suspended\""))
                return;
            refuseUnknownKeys(member.value, instanceLevel);
            if (const YamlMember* const start = member.value.member("start"))
                readStart(instance, start->value);
            if (const YamlMember* const suspended = member.value.member("suspended"))
                instance.suspended = truth(suspended->value, "suspended").value_or(false);
        }
        made.instances.push_back(std::move(instance));
    }

    void readStart(PlanInstance& instance, const YamlNode& node) {
        if (isEndless(node))
            error(node.place, "bad-value",
                  "\"start\" is never infinity; leave out an instance that never starts");
        else
            instance.start = duration(node, "start").value_or(0.0);
    }

    void readDoNotStart(PlanClass& made, const YamlNode& node) {
        made.doNotStart = stageNames(node, "do-not-start");
        Keys names;
        for (const PlanStage& stage : made.stages) names.push_back(stage.name);
        const std::set<Key> known(names.begin(), names.end());
        for (const StageReference& held : made.doNotStart)
            if (!known.contains(held.stage))
                error(held.place, "bad-reference",
                      fmt::format("no stage is called {}{}", inQuotes(held.stage),
                                  near(held.stage, names)));
    }

    // Stages and who takes part in them.

    void readStages(PlanClass& made, const YamlNode& node, const Defaults& defaults) {
        const YamlMember* const stages = node.member("stages");
        if (stages == nullptr) {
            error(made.place, "missing-key",
                  "the key \"stages\" is missing; it is a mapping of names and stages");
            return;
        }
        if (!wantMapping(stages->value, "\"stages\"", "names and stages")) return;
        if (stages->value.members.empty())
            error(stages->value.place, "missing-key", "\"stages\" has no stage; name at least one");
        for (const YamlMember& member : stages->value.members) {
            checkName(member.key, member.place, "a stage");
            made.stages.push_back(readStage(member, defaults));
        }
    }

    PlanStage readStage(const YamlMember& member, Defaults defaults) {
        PlanStage stage{member.key, member.place};
        const YamlNode& node = member.value;
        const YamlMember* const participants = node.member("participants");
        if (participants == nullptr) {
            stage.participants.push_back(readOnlyParticipant(member, stage, defaults));
            return stage;
        }
        refuseUnknownKeys(node, stageLevel);
        for (const YamlMember& key : node.members)
            if (has(workKeys, key.key))
                error(key.place, "conflict",
                      quoted(key.key) +
                          " is for one participant; put it to the participant that "
                          "it is for",
                      {{participants->place, "the participants are here"}});
        readDefaults(defaults, node);
        stage.after = readAfter(node, stage.name);
        if (!wantMapping(participants->value, "\"participants\"", "names and participants"))
            return stage;
        if (participants->value.members.empty())
            error(participants->value.place, "missing-key",
                  "\"participants\" has no participant; leave it out when nobody takes part");
        for (const YamlMember& participant : participants->value.members) {
            checkName(participant.key, participant.place, "a participant");
            stage.participants.push_back(readParticipant(participant, stage, defaults));
        }
        return stage;
    }

    // A stage's that has one of its own name, or nobody.
    PlanParticipant readOnlyParticipant(const YamlMember& member, PlanStage& stage,
                                        Defaults defaults) {
        const YamlNode& node = member.value;
        if (node.kind != Kind::mapping) {
            PlanParticipant made = started(member, defaults);
            if (node.null())
                made.takes = Takes{};
            else
                readShorthand(made, node, "stage");
            return made;
        }
        refuseUnknownKeys(node, stageLevel);
        readDefaults(defaults, node);
        stage.after = readAfter(node, stage.name);
        PlanParticipant made = started(member, defaults);
        const bool works = std::any_of(workKeys.begin(), workKeys.end(),
                                       [&](Key key) { return node.member(key) != nullptr; });
        if (works)
            readWork(made, node);
        else
            made.takes = Takes{};
        return made;
    }

    PlanParticipant readParticipant(const YamlMember& member, const PlanStage& stage,
                                    Defaults defaults) {
        const YamlNode& node = member.value;
        if (node.kind != Kind::mapping) {
            PlanParticipant made = started(member, defaults);
            if (node.null())
                made.takes = assumedTakes;
            else
                readShorthand(made, node, "participant");
            return made;
        }
        refuseUnknownKeys(node, participantLevel);
        readDefaults(defaults, node);
        PlanParticipant made = started(member, defaults);
        made.after = readAfter(node, stage.name);
        readWork(made, node);
        return made;
    }

    static PlanParticipant started(const YamlMember& member, const Defaults& defaults) {
        PlanParticipant made;
        made.name = member.key;
        made.place = member.place;
        made.limit = defaults.limit;
        made.limitPlace = defaults.limitPlace;
        made.critical = defaults.critical;
        made.autoComplete = defaults.autoComplete;
        made.autoCompletePlace = defaults.autoCompletePlace;
        return made;
    }

    // What a class, a stage and a participant may all say; the innermost wins.
    void readDefaults(Defaults& defaults, const YamlNode& node) {
        if (const YamlMember* const limit = node.member("limit")) {
            defaults.limitPlace = limit->value.place;
            if (const auto given = duration(limit->value, "limit",
                                            "would time the stage out at once: write infinity for "
                                            "no limit, or 1us for at once"))
                defaults.limit = *given;
        }
        if (const YamlMember* const critical = node.member("critical"))
            if (const auto given = truth(critical->value, "critical")) defaults.critical = *given;
        if (const YamlMember* const autoComplete = node.member("auto-complete")) {
            defaults.autoCompletePlace = autoComplete->value.place;
            const auto given = duration(autoComplete->value, "auto-complete",
                                        "would complete it on its behalf at once: write infinity "
                                        "for never, or 1us for at once");
            if (given) defaults.autoComplete = given;
            if (given && std::isinf(*given)) defaults.autoComplete.reset();
        }
    }

    std::vector<StageReference> readAfter(const YamlNode& node, const std::string& stage) {
        const YamlMember* const after = node.member("after");
        if (after == nullptr) return {};
        std::vector<StageReference> names = stageNames(after->value, "after");
        for (const StageReference& name : names)
            if (name.stage == stage)
                error(name.place, "self-dependency",
                      "stage " + inQuotes(stage) + " comes after itself; it would never start");
        return names;
    }

    // A text alone is a command.
    void readShorthand(PlanParticipant& made, const YamlNode& node, Key what) {
        if (node.kind == Kind::refused) return;
        const std::string whose = fmt::format("{} {}", what, inQuotes(made.name));
        const bool plain = node.kind == Kind::scalar && !node.quoted;
        if (plain && !node.is(Scalar::boolean) && (node.text == "never" || isDuration(node.text)))
            error(node.place, "wrong-type",
                  fmt::format("{} would run the command {}; write {{takes: {}}} for how long it "
                              "takes, or put the command into quotes",
                              whose, inQuotes(node.text), printable(node.text)));
        else if (plain && node.text == "external")
            error(node.place, "wrong-type",
                  whose +
                      " would run the command \"external\"; write {external: true} for one "
                      "whose reports come from outside");
        else if (!node.is(Scalar::text))
            error(node.place, "wrong-type",
                  fmt::format("{} wants a command, or a mapping of its keys, not {}{}", whose,
                              describe(node),
                              node.is(Scalar::boolean)  ? "; put a command into quotes"
                              : node.kind == Kind::list ? "; write {command: [...]} for a program "
                                                          "and its arguments"
                                                        : ""));
        else
            readCommand(made, node);
    }

    // What a participant does: a mapping's keys.
    void readWork(PlanParticipant& made, const YamlNode& node) {
        const YamlMember* const command = node.member("command");
        const YamlMember* const external = node.member("external");
        if (external != nullptr) {
            made.kind = PlanParticipant::Kind::external;
            const auto given = truth(external->value, "external");
            if (given && !*given)
                error(external->value.place, "bad-value",
                      "\"external: false\" says nothing; leave it out");
        }
        if (command != nullptr) readCommand(made, command->value);
        if (command != nullptr && external != nullptr)
            error(external->place, "conflict",
                  "a participant is external or has a command, not both; leave one out",
                  {{command->place, "the command is here"}});
        if (command == nullptr)
            for (const Key key : {"ready", "environment", "directory", "stop-limit"})
                if (const YamlMember* const member = node.member(key))
                    error(member->place, "conflict",
                          quoted(key) +
                              " is for a participant with a command, which this one does "
                              "not have");

        if (const YamlMember* const ready = node.member("ready"))
            if (const auto given = choice(ready->value, "ready", {"exit", "notify"}))
                made.ready =
                    *given == 0 ? PlanParticipant::Ready::exit : PlanParticipant::Ready::notify;
        if (const YamlMember* const environment = node.member("environment"))
            readEnvironment(made, environment->value);
        if (const YamlMember* const directory = node.member("directory"))
            readDirectory(made, directory->value);
        if (const YamlMember* const stopLimit = node.member("stop-limit"))
            if (const auto given = duration(stopLimit->value, "stop-limit",
                                            "would kill it at once: write 1us for that, or "
                                            "infinity to wait for its end"))
                made.stopLimit = *given;
        if (const YamlMember* const takes = node.member("takes"))
            made.takes = readTakes(takes->value);
        else if (made.kind == PlanParticipant::Kind::simulated)
            made.takes = assumedTakes;
    }

    void readCommand(PlanParticipant& made, const YamlNode& node) {
        made.kind = PlanParticipant::Kind::command;
        if (node.kind == Kind::list) {
            for (const YamlNode& item : node.items)
                if (auto given =
                        text(item, "command", "a list of texts",
                             &item == &node.items.front() ? "name the program" : emptyText))
                    made.command.push_back(std::move(*given));
            if (node.items.empty() || (!made.command.empty() && made.command[0].empty()))
                error(node.place, "bad-value",
                      "\"command\" names no program; the list begins with it");
            return;
        }
        constexpr Key wanted = "a text for the shell, or a list: a program and its arguments";
        if (node.is(Scalar::number)) {
            error(node.place, "wrong-type",
                  fmt::format("\"command\" wants {}, not {}", wanted, describe(node)));
            return;
        }
        const std::optional<std::string> given =
            text(node, "command", wanted, "write what is to be run, or leave the key out");
        if (!given) return;
        if (given->find_first_not_of(" \t\r\n") == std::string::npos)
            error(node.place, "bad-value", "\"command\" is empty; write what is to be run");
        made.command = {"/bin/sh", "-c", *given};
    }

    void readEnvironment(PlanParticipant& made, const YamlNode& node) {
        if (!wantMapping(node, "\"environment\"", "names and texts")) return;
        for (const YamlMember& member : node.members) {
            if (member.key.empty() ||
                member.key.find_first_of(std::string_view("=\0", 2)) != std::string::npos)
                error(member.place, "bad-name",
                      fmt::format("no environment variable can be called {}: a name is not empty "
                                  "and holds no \"=\"",
                                  inQuotes(member.key)));
            if (auto given =
                    text(member.value, "environment", "a mapping of names and texts", emptyText))
                made.environment.emplace_back(member.key, std::move(*given));
        }
    }

    void readDirectory(PlanParticipant& made, const YamlNode& node) {
        std::optional<std::string> given = text(node, "directory");
        if (given && given->empty())
            error(node.place, "bad-value", "\"directory\" is empty; leave it out, or write \".\"");
        if (given) made.directory = std::move(*given);
    }

    // How long it takes.

    std::optional<Takes> readTakes(const YamlNode& node) {
        using Law = Takes::Kind;
        constexpr Key wanted =
            "a duration such as 30s, never, or a mapping with one of fixed, uniform, normal and "
            "exponential";
        if (node.kind == YamlNode::Kind::mapping) return readDistribution(node);
        if (node.is(Scalar::text) && node.text == "never") return Takes{Law::never};
        if (isEndless(node)) {
            error(node.place, "bad-value",
                  fmt::format("\"takes: {}\" is written never: it does not report at all",
                              printable(node.text)));
            return std::nullopt;
        }
        const std::optional<double> given = duration(node, "takes", {}, wanted);
        if (!given) return std::nullopt;
        return Takes{Law::fixed, *given};
    }

    std::optional<Takes> readDistribution(const YamlNode& node) {
        using Law = Takes::Kind;
        refuseUnknownKeys(node, takesLevel);
        Takes takes;
        const YamlMember* found = nullptr;
        for (const YamlMember& member : node.members) {
            if (member.key == "lost") {
                takes.lost = readProbability(member.value).value_or(0.0);
                continue;
            }
            if (!has(takesLevel.keys, member.key)) continue;
            if (found != nullptr) {
                error(member.place, "conflict",
                      fmt::format("\"takes\" has {} already; leave one out", quoted(found->key)),
                      {{found->place, "it stands here"}});
                continue;
            }
            found = &member;
            if (member.key == "fixed" || member.key == "exponential") {
                takes.kind = member.key == "fixed" ? Law::fixed : Law::exponential;
                takes.a = finite(member.value, member.key).value_or(0.0);
            } else {
                takes.kind = member.key == "uniform" ? Law::uniform : Law::normal;
                readPair(takes, member);
            }
        }
        if (found == nullptr)
            error(node.place, "missing-key",
                  "\"takes\" has one of fixed, uniform, normal and exponential");
        return takes;
    }

    void readPair(Takes& takes, const YamlMember& member) {
        const YamlNode& node = member.value;
        const bool uniform = takes.kind == Takes::Kind::uniform;
        const char* const wanted =
            uniform ? "[LOW, HIGH], such as [1s, 5s]" : "[MEAN, DEVIATION], such as [5s, 500ms]";
        if (node.kind == Kind::refused) return;
        if (node.kind != Kind::list || node.items.size() != 2) {
            const std::string found = node.kind == Kind::list
                                          ? fmt::format("a list of {}", node.items.size())
                                          : describe(node);
            error(node.place, "wrong-type",
                  fmt::format("{} wants two durations {}, not {}", quoted(member.key), wanted,
                              found));
            return;
        }
        const std::optional<double> a = finite(node.items[0], member.key);
        const std::optional<double> b = finite(node.items[1], member.key);
        if (!a || !b) return;
        if (uniform && *a > *b)
            error(node.items[0].place, "bad-value",
                  fmt::format("\"uniform\" is [LOW, HIGH], and {} is above {}; swap them",
                              durationText(*a), durationText(*b)));
        takes.a = *a;
        takes.b = *b;
    }

    std::optional<double> readProbability(const YamlNode& node) {
        if (node.kind == Kind::refused) return std::nullopt;
        std::string_view number = node.text;
        const bool percent = node.is(Scalar::text) && number.ends_with('%');
        if (percent) number.remove_suffix(1);
        double value = -1.0;
        const char* const end = number.data() + number.size();
        const auto read = std::from_chars(number.data(), end, value, std::chars_format::fixed);
        const bool whole = read.ec == std::errc() && read.ptr == end;
        if (percent) value /= 100.0;
        if ((percent || node.is(Scalar::number)) && whole && value >= 0.0 && value <= 1.0)
            return value;
        error(node.place, "bad-value",
              "\"lost\" is a probability from 0 to 1, or a percentage such as 2%, not " +
                  describe(node));
        return std::nullopt;
    }

    Plan& plan_;
    Findings& findings_;
    std::size_t comparisonsLeft_ = 20'000;
};

}  // namespace

Plan readPlan(const std::string& file, std::string text, std::vector<Diagnostic>& diagnostics) {
    Plan plan;
    plan.file = file;
    plan.text = std::move(text);
    Findings findings(file, diagnostics);
    if (const std::optional<YamlNode> root = readYaml(plan.text, findings))
        Reader(plan, findings).read(*root);
    return plan;
}

Plan wantedPlan(const std::string& file, std::string text, bool colour) {
    std::vector<Diagnostic> diagnostics;
    Plan plan = readPlan(file, std::move(text), diagnostics);
    if (diagnostics.empty()) return plan;
    const std::string shown = diagnosticsText(diagnostics, plan.text, colour);
    throw PlanRefused(shown, std::move(diagnostics));
}

}  // namespace Host
