// The stages of a class, and its instances.
#pragma once

#include <vector>

#include "model/Dependents.h"
#include "model/InstanceStatus.h"
#include "model/StageStatus.h"
#include "runtime/Entity.h"

namespace Stage {

// One per stage class; its members are made and written by the manager.
//
// Beside its stages it keeps what would otherwise cost a walk over all of them. These indexes
// follow from the stages' attributes, and are up to date before anybody is told of a change. They
// are given up for good, and `indexed` turns false, when there is no memory for them.
class ORV_API Status final : public Orv::Notifier<Status>, private StageStatus::Holder {
  public:
    // Another index over the stages: it is told while a change is stored, before anybody else, and
    // may read everything, but change nothing.
    class Index {
      public:
        // The stage has joined, behind all others, or has left.
        virtual void stageStored(StageStatus& stage, bool present) noexcept = 0;
        // Every stage has got another place, in the same order.
        virtual void placesStored() noexcept = 0;
        virtual void dependencyStored(StageStatus& stage, const Orv::String& dependency,
                                      bool present) noexcept = 0;
        virtual void criticalStored(StageStatus& stage) noexcept = 0;

      protected:
        ~Index() = default;
    };

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
    ~Status() override;

    // Per stage name. A stage without events stays.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<StageStatus>>& stage() const { return stage_; }
    Orv::Ptr<StageStatus> stage(const Orv::Name& stage) const { return stage_.value(stage); }
    // Returns the one that is there, or makes one.
    Orv::Ptr<StageStatus> stageIs(Orv::Name stage);
    void stageDel(Orv::Name stage);
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

    bool indexed() const { return indexed_; }
    // Calls visit(StageStatus&) with each stage that lists the dependency, with whatever value, in
    // no particular order; nothing may change meanwhile.
    template <class Visit>
    void eachDependent(const Orv::String& dependency, Visit&& visit) const {
        if (const Dependents* const held = dependents_.find(dependency)) held->each(visit);
    }
    // In how many stages the agent has an event.
    std::size_t stagesOf(const Orv::String& agent) const { return agentStages_.value(agent); }
    // Counts the changes of the stages' dependencies.
    std::uint64_t dependencyChanges() const { return dependencyChanges_; }
    // The places of the stages rise along their order, and are below this.
    std::uint32_t places() const { return places_; }
    // Not counted; being indexed does not change it.
    void indexIs(Index& index) const { indexes_.push_back(&index); }
    void indexDel(Index& index) const { std::erase(indexes_, &index); }

    static const Orv::TypeInfo& type();

  private:
    void membersDel() override {
        stageDelAll();
        instStatusDelAll();
    }
    void agentStored(const Orv::String& agent, bool present) noexcept override;
    void dependencyStored(StageStatus& stage, const Orv::String& dependency,
                          bool present) noexcept override;
    void criticalStored(StageStatus& stage) noexcept override;
    void stageStored(StageStatus& stage) noexcept;
    void stageGone(StageStatus& stage) noexcept;
    void dependentIs(StageStatus& stage, const Orv::String& dependency, bool present);

    Orv::OrderedMap<Orv::Name, Orv::Ptr<StageStatus>> stage_;
    Orv::OrderedMap<Orv::Name, Orv::Ptr<InstanceStatus>> instStatus_;
    bool sorted_ = false;

    Orv::OrderedMap<Orv::String, Dependents> dependents_;
    Orv::OrderedMap<Orv::String, std::size_t> agentStages_;
    std::uint64_t dependencyChanges_ = 0;
    std::uint32_t places_ = 0;
    bool indexed_ = true;
    mutable std::vector<Index*> indexes_;
};

}  // namespace Stage
