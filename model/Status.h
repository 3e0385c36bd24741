// The stages of a class, and its instances.
#pragma once

#include "model/InstanceStatus.h"
#include "model/StageStatus.h"
#include "runtime/Entity.h"

namespace Stage {

// One per stage class; its members are made and written by the manager.
class ORV_API Status final : public Orv::Notifier<Status> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<Status> {
      public:
        virtual void onStage(Orv::Name /*stage*/) {}
        virtual void onStage() {}
        virtual void onStage(Orv::Immediate) {}
        virtual void onInstStatus(Orv::Name /*instance*/) {}
        virtual void onInstStatus() {}
        virtual void onInstStatus(Orv::Immediate) {}
        virtual void onSorted() {}
    };

    explicit Status(Orv::Name name = {}) : Notifier(std::move(name)) {}
    ~Status() override {
        orphan(stage_);
        orphan(instStatus_);
    }

    // Per stage name. A stage without events stays.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<StageStatus>>& stage() const { return stage_; }
    Orv::Ptr<StageStatus> stage(const Orv::Name& stage) const { return stage_.value(stage); }
    // Returns the one that is there, or makes one.
    Orv::Ptr<StageStatus> stageIs(Orv::Name stage) {
        return memberIs(
            stage_, "stage", stage, [&] { return Orv::make<StageStatus>(stage); },
            [&](auto& n) { n.onStage(stage); });
    }
    void stageDel(Orv::Name stage) {
        memberDel(stage_, "stage", stage, [&](auto& n) { n.onStage(stage); });
    }
    void stageDelAll() {
        stage_.walk([this](Orv::Name stage) { stageDel(stage); });
    }

    // Per instance name.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<InstanceStatus>>& instStatus() const {
        return instStatus_;
    }
    Orv::Ptr<InstanceStatus> instStatus(const Orv::Name& instance) const {
        return instStatus_.value(instance);
    }
    // Returns the one that is there, or makes one.
    Orv::Ptr<InstanceStatus> instStatusIs(Orv::Name instance) {
        return memberIs(
            instStatus_, "instStatus", instance,
            [&] { return Orv::make<InstanceStatus>(instance); },
            [&](auto& n) { n.onInstStatus(instance); });
    }
    void instStatusDel(Orv::Name instance) {
        memberDel(instStatus_, "instStatus", instance, [&](auto& n) { n.onInstStatus(instance); });
    }
    void instStatusDelAll() {
        instStatus_.walk([this](Orv::Name instance) { instStatusDel(instance); });
    }

    // The manager does not act on it.
    bool sorted() const { return sorted_; }
    void sortedIs(bool sorted) {
        if (Orv::assign(sorted_, sorted)) changed("sorted", [](auto& n) { n.onSorted(); });
    }

    static const Orv::TypeInfo& type();

  private:
    void membersDel() override {
        stageDelAll();
        instStatusDelAll();
    }

    Orv::OrderedMap<Orv::Name, Orv::Ptr<StageStatus>> stage_;
    Orv::OrderedMap<Orv::Name, Orv::Ptr<InstanceStatus>> instStatus_;
    bool sorted_ = false;
};

}  // namespace Stage
