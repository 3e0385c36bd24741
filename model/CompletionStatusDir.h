// The completion records of a stage class's instances.
#pragma once

#include "model/CompletionStatus.h"
#include "runtime/Entity.h"

namespace Stage {

// One per stage class; its members are written by the manager.
class ORV_API CompletionStatusDir final : public Orv::Notifier<CompletionStatusDir> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<CompletionStatusDir> {
      public:
        virtual void onStatus(Orv::Name /*instance*/) {}
        virtual void onStatus() {}
        virtual void onStatus(Orv::Immediate) {}
    };

    explicit CompletionStatusDir(Orv::Name name = {}) : Notifier(std::move(name)) {}
    ~CompletionStatusDir() override { orphan(status_); }

    // Per instance name.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<CompletionStatus>>& status() const { return status_; }
    Orv::Ptr<CompletionStatus> status(const Orv::Name& instance) const {
        return status_.value(instance);
    }
    // Returns the one that is there, or makes one.
    Orv::Ptr<CompletionStatus> statusIs(Orv::Name instance) {
        return memberIs(
            status_, "status", instance, [&] { return Orv::make<CompletionStatus>(instance); },
            [&](auto& n) { n.onStatus(instance); });
    }
    void statusDel(Orv::Name instance) {
        memberDel(status_, "status", instance, [&](auto& n) { n.onStatus(instance); });
    }
    void statusDelAll() {
        status_.walk([this](Orv::Name instance) { statusDel(instance); });
    }

    static const Orv::TypeInfo& type();

  private:
    void membersDel() override { statusDelAll(); }

    Orv::OrderedMap<Orv::Name, Orv::Ptr<CompletionStatus>> status_;
};

}  // namespace Stage
