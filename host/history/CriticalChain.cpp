#include "host/history/CriticalChain.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

#include "host/Utf8.h"
#include "host/history/StageTimes.h"
#include "host/plan/Duration.h"

namespace Host {

namespace {

// One instance's tree. `stage` is null for a name that no stage has.
struct ChainNode {
    std::string name;
    const StageHistory* stage = nullptr;
    std::size_t depth = 0;
    std::vector<std::size_t> below{};  // numbers of nodes
};

// What stands below what.
class Chain {
  public:
    Chain(const InstanceHistory& instance, const StageHistory& top, double fuzz)
        : instance_(instance), fuzz_(fuzz), nodes_{{top.name, &top}}, met_{top.name} {
        grow(0);
        growCritical();
    }

    std::vector<ChainNode> nodes() && { return std::move(nodes_); }

  private:
    // Deep chains are walked by hand: as deep as a run has stages is too deep for calls.
    void grow(std::size_t from) {
        std::vector<std::size_t> open{from};
        while (!open.empty()) {
            const std::size_t at = open.back();
            open.pop_back();
            const StageHistory* const stage = nodes_[at].stage;
            if (stage == nullptr) continue;
            const std::size_t first = nodes_[at].below.size();
            if (stage->start)
                addWaitedFor(at, *stage);
            else
                addAwaited(at, *stage);
            // The first is shown first, with all that is below it.
            const std::vector<std::size_t>& below = nodes_[at].below;
            for (std::size_t i = below.size(); i-- > first;) open.push_back(below[i]);
        }
    }

    void add(std::size_t to, const std::string& name, const StageHistory* stage) {
        if (!met_.insert(stage != nullptr ? std::string_view(stage->name) : name).second) return;
        nodes_[to].below.push_back(nodes_.size());
        nodes_.push_back({name, stage, nodes_[to].depth + 1});
    }

    // What let it start, and what was hardly earlier.
    void addWaitedFor(std::size_t at, const StageHistory& stage) {
        std::vector<const StageHistory*> latest = latestDependencies(instance_, stage);
        if (const auto wait = criticalWait(instance_, stage); wait && wait->opener != nullptr) {
            std::erase(latest, wait->opener);
            latest.insert(latest.begin(), wait->opener);
        }
        std::optional<double> newest;
        for (const StageHistory* const other : latest) {
            // What has not ended holds back for longer than anything that has.
            if (other->end && newest && *other->end < *newest - fuzz_) break;
            if (other->end && !newest) newest = other->end;
            add(at, other->name, other);
        }
    }

    // What one that has not started still waits for, except that critical stages start first.
    void addAwaited(std::size_t at, const StageHistory& stage) {
        for (const std::string& name : stage.dependencies)
            if (instance_.stage(name) == nullptr) add(at, name, nullptr);
        for (const StageHistory* const other : latestDependencies(instance_, stage))
            if (!other->end) add(at, other->name, other);
        if (!waitsForNextCompletion(instance_, stage)) return;
        for (const StageHistory& other : instance_.stages)
            if (other.start && !other.end) add(at, other.name, &other);
    }

    static bool heldForCritical(const ChainNode& node) {
        return node.stage != nullptr && !node.stage->start && node.stage->outcome.heldByCritical;
    }

    // Critical stages that have not started stand below what is held for them, once, and as far
    // down as it goes. Which of them come after others is seen below them.
    void growCritical() {
        const auto held = std::find_if(nodes_.begin(), nodes_.end(), heldForCritical);
        if (held == nodes_.end()) return;
        auto at = static_cast<std::size_t>(held - nodes_.begin());
        for (bool deeper = true; deeper;) {
            deeper = false;
            for (const std::size_t below : nodes_[at].below) {
                if (!heldForCritical(nodes_[below])) continue;
                at = below;
                deeper = true;
                break;
            }
        }
        std::set<std::string_view> needed;
        for (const StageHistory& stage : instance_.stages)
            if (!stage.start && stage.outcome.critical)
                needed.insert(stage.dependencies.begin(), stage.dependencies.end());
        // In a circle each is needed.
        for (const bool alsoNeeded : {false, true})
            for (const StageHistory& stage : instance_.stages) {
                if (stage.start || !stage.outcome.critical || met_.contains(stage.name) ||
                    (!alsoNeeded && needed.contains(stage.name)))
                    continue;
                add(at, stage.name, &stage);
                grow(nodes_.size() - 1);
            }
    }

    const InstanceHistory& instance_;
    double fuzz_;
    std::vector<ChainNode> nodes_;
    std::set<std::string_view> met_;
};

std::vector<ChainNode> treeOf(const InstanceHistory& instance, const StageHistory& top,
                              double fuzz) {
    return Chain(instance, top, fuzz).nodes();
}

// Whom a stage was held for, behind "held 5s".
std::string heldBy(const InstanceHistory& instance, const StageHistory& stage) {
    const std::optional<CriticalWait> wait = criticalWait(instance, stage);
    if (!wait) return {};
    return wait->until < *stage.start ? " for critical stages and by the operator"
                                      : " for critical stages";
}

std::string timesOf(const InstanceHistory& instance, const ChainNode& node, double until) {
    if (node.stage == nullptr) return "(no such stage)";
    const StageHistory& stage = *node.stage;
    const StageTimes times = stageTimes(instance, stage, until);
    std::string text;
    if (stage.start) {
        text = "@" + timeText(*stage.start - instance.enabled) + " +" + timeText(times.own);
        if (times.held > 0.0)
            text += fmt::format(" (held {}{})", timeText(times.held), heldBy(instance, stage));
    }
    const std::string mark = markText(instance, stage);
    if (!mark.empty()) text += fmt::format("{}({})", text.empty() ? "" : " ", mark);
    return text;
}

std::string drawn(const InstanceHistory& instance, const std::vector<ChainNode>& nodes,
                  double until, bool colour) {
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
        const ChainNode& node = nodes[here.node];
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
std::string othersIncomplete(const InstanceHistory& instance, const std::vector<ChainNode>& nodes) {
    constexpr std::size_t most = 10;
    std::set<std::string_view> shown;
    for (const ChainNode& node : nodes) shown.insert(node.name);
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
        const std::vector<ChainNode> nodes = treeOf(instance, *top, options.fuzz);
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
        for (const ChainNode& node : treeOf(instance, *top, options.fuzz)) {
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
