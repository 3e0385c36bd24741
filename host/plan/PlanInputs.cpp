#include "host/plan/PlanInputs.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "host/Tree.h"
#include "host/plan/Schedule.h"

namespace Host {

namespace {

// Writes one class's inputs.
class ClassInputs {
  public:
    ClassInputs(std::vector<Input>& inputs, const PlanClass& stageClass)
        : inputs_(inputs), class_(stageClass), name_(pathName(stageClass.name)) {}

    void places() {
        create("/stage/" + name_, "Orv::Dir");
        create("/stage/" + name_ + "/config", "Orv::Dir");
        create(config(), "Stage::Config");
        create("/stage/" + name_ + "/status", "Stage::Status");
        create("/stage/" + name_ + "/completionstatus", "Stage::CompletionStatusDir");
        create("/stage/" + name_ + "/progress", "Stage::ProgressDir");
        create("/stage/" + name_ + "/log", "Stage::Log");
        create("/input/" + name_, "Orv::Dir");
        create("/agentstatus/" + name_, "Orv::Dir");
        create("/enable/" + name_, "Stage::EnabledConfig");
    }

    void settings() {
        set(config(), "stageClass", class_.name);
        set(config(), "application", class_.application);
        // The manager reads exactly 0 as "no deadline".
        const bool endless = std::isinf(class_.deadline);
        set(config(), "globalStageCompletionTimeout", endless ? 0.0 : class_.deadline);
        set(config(), "stageTimeoutIsFatal", class_.onTimeout == OnTimeout::reboot);
        set(config(), "continueOnTimeout", class_.onTimeout == OnTimeout::proceed);
        set(config(), "resetMode", class_.reset);
        set(config(), "reloadCauseDesc", class_.reloadCause);
        for (const StageReference& held : class_.doNotStart)
            setMember("/global", "doNotStartStage",
                      Json::Object{{"stageClass", class_.name}, {"stage", held.stage}}, true);
    }

    void participants() {
        for (const PlanStage& stage : class_.stages)
            for (const PlanParticipant& participant : stage.participants)
                this->participant(stage, participant);
    }

    void enable() {
        for (const PlanInstance& instance : class_.instances) {
            at_ = instance.start;
            const std::string path = "/enable/" + name_;
            if (instance.suspended) setMember(path, "suspended", instance.name, true);
            setMember(path, "enabled", instance.name, true);
        }
        at_ = 0.0;
    }

  private:
    std::string config() const { return "/stage/" + name_ + "/config/config"; }

    void participant(const PlanStage& stage, const PlanParticipant& participant) {
        const std::string agent = pathName(participant.name);
        const std::string path = "/input/" + name_ + "/" + agent;
        if (agents_.insert(participant.name).second) {
            create(path, "Stage::AgentConfig");
            create("/agentstatus/" + name_ + "/" + agent, "Stage::AgentStatus");
        }
        Input member = input(Input::Op::set, path);
        member.attr = "event";
        member.key = stage.name;
        inputs_.push_back(member);

        const std::string event = path + "/event/" + pathName(stage.name);
        set(event, "timeout", givenLimit(participant.limit));
        if (participant.critical) set(event, "critical", true);
        for (const StageReference& dependency : stage.after)
            setMember(event, "dependency", dependency.stage, true);
        for (const StageReference& dependency : participant.after)
            setMember(event, "dependency", dependency.stage, true);
        if (participant.autoComplete) {
            set(event, "autoCompleteTimeout", *participant.autoComplete);
            set(event, "enableAutoComplete", true);
        }
    }

    Input input(Input::Op op, std::string path) const {
        Input made;
        made.at = at_;
        made.op = op;
        made.path = std::move(path);
        return made;
    }
    void create(std::string path, std::string type) {
        Input made = input(Input::Op::create, std::move(path));
        made.type = std::move(type);
        inputs_.push_back(std::move(made));
    }
    void set(std::string path, std::string attribute, Json value) {
        Input made = input(Input::Op::set, std::move(path));
        made.attr = std::move(attribute);
        made.value = std::move(value);
        inputs_.push_back(std::move(made));
    }
    void setMember(std::string path, std::string attribute, Json key, Json value) {
        set(std::move(path), std::move(attribute), std::move(value));
        inputs_.back().key = std::move(key);
    }

    std::vector<Input>& inputs_;
    const PlanClass& class_;
    std::string name_;
    double at_ = 0.0;
    std::set<std::string> agents_;
};

}  // namespace

std::vector<Input> planInputs(const Plan& plan) {
    std::vector<Input> inputs;
    // Who may take part stands there before anybody is enabled, in every class: they may start at
    // one time.
    for (const PlanClass& stageClass : plan.classes) {
        ClassInputs made(inputs, stageClass);
        made.places();
        made.settings();
        made.participants();
    }
    for (const PlanClass& stageClass : plan.classes) ClassInputs(inputs, stageClass).enable();
    std::stable_sort(inputs.begin(), inputs.end(),
                     [](const Input& a, const Input& b) { return a.at < b.at; });
    return inputs;
}

Input reportInput(double at, const std::string& stageClass, const std::string& agent,
                  const std::string& stage, const std::string& instance) {
    Input report;
    report.at = at;
    report.op = Input::Op::set;
    report.path = "/agentstatus/" + pathName(stageClass) + "/" + pathName(agent);
    report.attr = "complete";
    report.key = Json::Object{{"agent", agent}, {"stage", stage}, {"instance", instance}};
    report.value = true;
    return report;
}

}  // namespace Host
