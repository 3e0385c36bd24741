#include "host/session/Session.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/plan/PlanInputs.h"
#include "model/InstanceStatus.h"
#include "model/Status.h"
#include "runtime/Type.h"

namespace Host {

Performer::~Performer() = default;

class Session::Starts final : public Views {
  public:
    Starts(const Plan& plan, View& view) : Views({&view}), plan_(plan) {}

    // The parts whose stages have started since the last call, in order.
    std::vector<Part> taken() { return std::exchange(parts_, {}); }

    void onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override {
        if (const auto* const instance = dynamic_cast<const Stage::InstanceStatus*>(&entity);
            instance != nullptr && std::string_view(attribute.name()) == "activeStage" &&
            key.string() != nullptr)
            started(*instance, *key.string());
        Views::onMember(t, entity, attribute, key);
    }

  private:
    void started(const Stage::InstanceStatus& instance, const Orv::Name& name) {
        const auto* const status = dynamic_cast<const Orv::Entity*>(instance.parent());
        const auto* const dir =
            status != nullptr ? dynamic_cast<const Orv::Entity*>(status->parent()) : nullptr;
        const PlanClass* const stageClass =
            dir != nullptr ? plan_.stageClass(dir->key().view()) : nullptr;
        const PlanStage* const stage =
            stageClass != nullptr ? stageClass->stage(name.view()) : nullptr;
        if (stage == nullptr || !instance.activeStage(name)) return;
        for (const PlanParticipant& participant : stage->participants)
            parts_.push_back({stageClass, stage, &participant, std::string(instance.key().view())});
    }

    const Plan& plan_;
    std::vector<Part> parts_;
};

Session::Session(const Plan& plan, const std::vector<Input>* inputs, Performer& performer,
                 View& view, std::ostream* record)
    : plan_(plan),
      performer_(performer),
      starts_(std::make_unique<Starts>(plan, view)),
      record_(record),
      replay_(*starts_),
      ownInputs_(inputs == nullptr ? planInputs(plan) : std::vector<Input>()),
      planInputs_(inputs == nullptr ? ownInputs_ : *inputs) {}

Session::Session(const Plan& plan, Performer& performer, View& view, std::ostream* record)
    : Session(plan, nullptr, performer, view, record) {}

Session::Session(const Plan& plan, const std::vector<Input>& inputs, Performer& performer,
                 View& view, std::ostream* record)
    : Session(plan, &inputs, performer, view, record) {}

Session::~Session() = default;

double Session::nextInput() const {
    const double next = scheduled_.empty() ? never : scheduled_.front().at;
    return given_ == planInputs_.size() ? next : std::min(next, planInputs_[given_].at);
}

double Session::next() const { return std::min(replay_.next(), nextInput()); }

void Session::advance(double time) {
    for (;;) {
        const double due = next();
        if (due == never || due > time) break;
        turn(due);
    }
    if (time != never) replay_.runUntil(time);
}

void Session::turn(double due) {
    replay_.runUntil(std::max(due, time()));
    for (;;) {
        const double input = nextInput();
        if (input > time()) break;
        if (given_ < planInputs_.size() && planInputs_[given_].at <= input) {
            give(planInputs_[given_++]);
            continue;
        }
        std::pop_heap(scheduled_.begin(), scheduled_.end(), later);
        const std::unique_ptr<Input> taken = std::move(scheduled_.back().input);
        scheduled_.pop_back();
        give(*taken);
    }
    settle();
}

void Session::apply(Input input) {
    input.at = time();
    give(input);
    settle();
}

void Session::give(const Input& input) {
    if (record_ != nullptr) {
        Input now = input;
        now.at = time();
        if (settled_ == now.at) {
            Input turn;
            turn.at = now.at;
            *record_ << inputLine(turn) << '\n';
            settled_ = -1.0;
        }
        *record_ << inputLine(now) << '\n';
    }
    replay_.apply(input);
}

void Session::settle() {
    replay_.settle();
    settled_ = time();
    for (const Part& part : starts_->taken()) performer_.start(*this, part);
}

void Session::report(const Part& part) {
    apply(reportInput(time(), part.stageClass->name, part.participant->name, part.stage->name,
                      part.instance));
}

void Session::schedule(double at, Input input) {
    input.at = std::max(at, time());
    scheduled_.push_back({input.at, schedulings_++, std::make_unique<Input>(std::move(input))});
    std::push_heap(scheduled_.begin(), scheduled_.end(), later);
}

void Session::scheduleReport(double at, const Part& part) {
    schedule(at, reportInput(at, part.stageClass->name, part.participant->name, part.stage->name,
                             part.instance));
}

void Session::finish() {
    Input end;
    end.op = Input::Op::end;
    end.at = time();
    if (record_ != nullptr) *record_ << inputLine(end) << '\n' << std::flush;
    replay_.apply(end);
    replay_.finish();
}

}  // namespace Host
