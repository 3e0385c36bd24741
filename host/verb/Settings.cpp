#include "host/verb/Settings.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/Suggest.h"
#include "host/Utf8.h"
#include "host/Words.h"
#include "host/plan/Duration.h"
#include "host/verb/Verbs.h"

namespace Host {

namespace {

struct Target {
    const PlanClass* stageClass;
    const PlanParticipant* participant;
    std::optional<std::string> instance;
};

// Names are compared as wholes: they may hold any of the characters that stand between them.
class Targets {
  public:
    explicit Targets(const Plan& plan) : plan_(plan) {}

    std::vector<Target> named(std::string_view name) const {
        std::vector<Target> found;
        forEach([&](const PlanClass& stageClass, const PlanStage& stage,
                    const PlanParticipant& participant) {
            const std::string shorter = participant.name + ":" + stage.name;
            for (const std::string& whole : {shorter, stageClass.name + "/" + shorter}) {
                if (name == whole) found.push_back({&stageClass, &participant, {}});
                for (const PlanInstance& instance : stageClass.instances)
                    if (name == whole + "@" + instance.name)
                        found.push_back({&stageClass, &participant, instance.name});
            }
        });
        return found;
    }

    // Why there is nothing of that name.
    std::string remedy(std::string_view name) const {
        const std::size_t at = name.rfind('@');
        if (at != std::string_view::npos && !named(name.substr(0, at)).empty()) {
            std::vector<std::string> instances;
            for (const Target& target : named(name.substr(0, at)))
                for (const PlanInstance& instance : target.stageClass->instances)
                    instances.push_back(printable(instance.name));
            return fmt::format("; its instances are {}", fmt::join(instances, ", "));
        }
        std::vector<std::string> names;
        std::string swapped;
        forEach([&](const PlanClass& stageClass, const PlanStage& stage,
                    const PlanParticipant& participant) {
            const std::string own = participantName(plan_, stageClass, stage, participant);
            names.push_back(own);
            if (name == stage.name + ":" + participant.name) swapped = own;
        });
        if (!swapped.empty())
            return "; the agent stands first: did you mean " + inQuotes(swapped) + "?";
        std::string nearest = suggestion(name, {names.begin(), names.end()});
        if (!nearest.empty() || names.empty()) return nearest;
        return fmt::format("; there {} {}", names.size() == 1 ? "is" : "are",
                           firstOf(names, 8, inQuotes));
    }

  private:
    template <class Visit>
    void forEach(const Visit& visit) const {
        for (const PlanClass& stageClass : plan_.classes)
            for (const PlanStage& stage : stageClass.stages)
                for (const PlanParticipant& participant : stage.participants)
                    visit(stageClass, stage, participant);
    }

    const Plan& plan_;
};

double seconds(const std::string& setting, const std::string& text) {
    if (text == "never") return Session::never;
    try {
        const double given = parseDuration(text);
        if (given != Session::never) return given;
    } catch (const DurationError& e) {
        throw UsageError(
            fmt::format("stagemgr: --set {}: {}; write a duration such as 30s, or never",
                        inQuotes(setting), e.what()));
    }
    throw UsageError(fmt::format("stagemgr: --set {}: one that does not report at all takes never",
                                 inQuotes(setting)));
}

}  // namespace

std::string participantName(const Plan& plan, const PlanClass& stageClass, const PlanStage& stage,
                            const PlanParticipant& participant) {
    return (plan.classes.size() > 1 ? stageClass.name + "/" : std::string()) + participant.name +
           ":" + stage.name;
}

void applySettings(const std::vector<std::string>& settings, const Plan& plan,
                   Durations& durations) {
    const Targets targets(plan);
    for (const std::string& setting : settings) {
        const std::size_t sign = setting.rfind('=');
        if (sign == std::string::npos)
            throw UsageError(fmt::format(
                "stagemgr: --set {}: no \"=\"; write AGENT:STAGE=30s or AGENT:STAGE=never",
                inQuotes(setting)));
        const std::string name = setting.substr(0, sign);
        const double given = seconds(setting, setting.substr(sign + 1));
        const std::vector<Target> found = targets.named(name);
        if (found.empty())
            throw UsageError(fmt::format("stagemgr: --set {}: nobody takes part as {} in {}{}",
                                         inQuotes(setting), inQuotes(name), printable(plan.file),
                                         targets.remedy(name)));
        if (found.size() > 1) {
            std::vector<std::string> classes(found.size());
            std::transform(found.begin(), found.end(), classes.begin(), [&](const Target& target) {
                return inQuotes(target.stageClass->name + "/" + name);
            });
            throw UsageError(fmt::format("stagemgr: --set {}: several are called so; write {}",
                                         inQuotes(setting), fmt::join(classes, " or ")));
        }
        durations.set(*found[0].participant, found[0].instance, given);
    }
}

}  // namespace Host
