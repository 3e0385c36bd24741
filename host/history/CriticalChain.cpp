#include "host/history/CriticalChain.h"

#include <fmt/format.h>

#include <set>

#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

// One instance's tree. `stage` is null for a name that no stage has.
struct Node {
    std::string name;
    const StageHistory* stage = nullptr;
    std::size_t depth = 0;
    std::vector<std::size_t> below{};  // numbers of nodes
};

// Deep chains are walked by hand: as deep as a run has stages is too deep for calls.
std::vector<Node> treeOf(const InstanceHistory& instance, const StageHistory& top, double fuzz) {
    std::vector<Node> nodes{{top.name, &top}};
    std::set<std::string_view> met{top.name};
    std::vector<std::size_t> open{0};
    while (!open.empty()) {
        const std::size_t at = open.back();
        open.pop_back();
        const StageHistory* const stage = nodes[at].stage;
        if (stage == nullptr) continue;
        const std::vector<const StageHistory*> latest = latestDependencies(instance, *stage);
        std::vector<std::size_t> below;
        const auto add = [&](const std::string& name, const StageHistory* other) {
            if (!met.insert(name).second) return;
            below.push_back(nodes.size());
            nodes.push_back({name, other, nodes[at].depth + 1});
        };
        if (!stage->start)
            for (const std::string& name : stage->dependencies)
                if (instance.stage(name) == nullptr) add(name, nullptr);
        std::optional<double> newest;
        for (const StageHistory* const other : latest) {
            // What has not ended holds back for longer than anything that has.
            if (other->end && newest && *other->end < *newest - fuzz) break;
            if (other->end && !newest && other != latest.front() && !stage->start) break;
            if (other->end && !newest) newest = other->end;
            add(other->name, other);
        }
        // The first is shown first, with all that is below it.
        for (auto number = below.rbegin(); number != below.rend(); ++number)
            open.push_back(*number);
        nodes[at].below = std::move(below);
    }
    return nodes;
}

std::string timesOf(const InstanceHistory& instance, const Node& node, double until) {
    if (node.stage == nullptr) return "(no such stage)";
    const StageHistory& stage = *node.stage;
    const StageTimes times = stageTimes(instance, stage, until);
    std::string text;
    if (stage.start) {
        text = "@" + timeText(*stage.start - instance.enabled) + " +" + timeText(times.own);
        if (times.held > 0.0)
            text += fmt::format(" (held {}{})", timeText(times.held),
                                heldFor(instance, stage) != nullptr ? " for critical stages" : "");
    }
    const std::string mark = markText(instance, stage);
    if (!mark.empty()) text += fmt::format("{}({})", text.empty() ? "" : " ", mark);
    return text;
}

std::string drawn(const InstanceHistory& instance, const std::vector<Node>& nodes, double until,
                  bool colour) {
    struct Open {
        std::size_t node;
        std::string lead;   // of its own line
        std::string below;  // of the lines below it
    };
    std::string text;
    std::vector<Open> open{{0, "", ""}};
    while (!open.empty()) {
        const Open here = std::move(open.back());
        open.pop_back();
        const Node& node = nodes[here.node];
        const std::string times = timesOf(instance, node, until);
        const bool marked = node.stage == nullptr || !marks(instance, *node.stage).empty();
        text += here.lead + printable(node.name) + ' ' +
                (colour ? fmt::format("\033[{}m{}\033[0m", marked ? "33" : "2", times) : times) +
                '\n';
        for (std::size_t i = node.below.size(); i-- > 0;) {
            const bool last = i + 1 == node.below.size();
            // Very deep chains go on at one indentation, lest they grow with the square of their
            // depth.
            const bool deep = node.depth >= 60;
            open.push_back({node.below[i], (deep ? here.lead : here.below + (last ? "└─" : "├─")),
                            deep ? here.below : here.below + (last ? "  " : "│ ")});
        }
    }
    return text;
}

// What is not complete and does not stand in the tree.
std::string othersIncomplete(const InstanceHistory& instance, const std::vector<Node>& nodes) {
    constexpr std::size_t most = 10;
    std::set<std::string_view> shown;
    for (const Node& node : nodes) shown.insert(node.name);
    std::vector<std::string> others;
    for (const StageHistory& stage : instance.stages)
        if (!stage.end && !shown.contains(stage.name)) others.push_back(printable(stage.name));
    if (others.empty()) return {};
    const std::size_t more = others.size() > most ? others.size() - most : 0;
    others.resize(others.size() - more);
    return fmt::format("Not complete either: {}{}.\n", fmt::join(others, ", "),
                       more == 0 ? "" : fmt::format(", and {} more", more));
}

const StageHistory* wanted(const InstanceHistory& instance, const ChainOptions& options) {
    return options.stage.empty() ? lastStage(instance) : instance.stage(options.stage);
}

}  // namespace

std::optional<std::string> criticalChain(const RunHistory& run, const ChainOptions& options) {
    const std::vector<std::string> labels = instanceLabels(run);
    std::string text =
        "The time when a stage started, counted from when its instance was enabled, is printed "
        "after\nthe \"@\" character. The time that the stage took itself is printed after the "
        "\"+\" character.\n";
    bool some = false;
    for (std::size_t i = 0; i < run.instances.size(); ++i) {
        const InstanceHistory& instance = run.instances[i];
        const StageHistory* const top = wanted(instance, options);
        if (top == nullptr) continue;
        some = true;
        const double end = until(run, instance);
        text += '\n';
        if (run.instances.size() > 1) text += labels[i] + "\n";
        const std::vector<Node> nodes = treeOf(instance, *top, options.fuzz);
        text += drawn(instance, nodes, end, options.colour);
        if (options.stage.empty()) text += othersIncomplete(instance, nodes);
    }
    return some ? std::optional(text) : std::nullopt;
}

std::optional<Json> criticalChainJson(const RunHistory& run, const ChainOptions& options) {
    Json::Array instances;
    for (const InstanceHistory& instance : run.instances) {
        const StageHistory* const top = wanted(instance, options);
        if (top == nullptr) continue;
        const double end = until(run, instance);
        Json::Array chain;
        for (const Node& node : treeOf(instance, *top, options.fuzz)) {
            Json::Array below;
            for (const std::size_t number : node.below) below.emplace_back(double(number));
            Json::Object object{{"name", node.name},
                                {"exists", node.stage != nullptr},
                                {"below", std::move(below)}};
            if (node.stage != nullptr)
                object.emplace_back("stage", stageJson(instance, *node.stage, end));
            chain.emplace_back(std::move(object));
        }
        Json::Object object = instanceJson(instance, end);
        object.emplace_back("chain", std::move(chain));
        instances.emplace_back(std::move(object));
    }
    if (instances.empty()) return std::nullopt;
    return Json(
        Json::Object{{"schema", "stagemgr.critical-chain/1"}, {"instances", std::move(instances)}});
}

}  // namespace Host
