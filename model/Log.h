// The progress logs of a stage class's instances.
#pragma once

#include "model/InstanceLog.h"
#include "runtime/Entity.h"

namespace Stage {

// One per stage class; its members are written by the manager.
class ORV_API Log final : public Orv::Notifier<Log> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<Log> {
      public:
        virtual void onInstanceLog(Orv::Name /*instance*/) {}
        virtual void onInstanceLog() {}
        virtual void onInstanceLog(Orv::Immediate) {}
    };

    explicit Log(Orv::Name name = {}) : Notifier(std::move(name)) {}
    ~Log() override { orphan(instanceLog_); }

    // Per instance name.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<InstanceLog>>& instanceLog() const {
        return instanceLog_;
    }
    Orv::Ptr<InstanceLog> instanceLog(const Orv::Name& instance) const {
        return instanceLog_.value(instance);
    }
    // Returns the one that is there, or makes one.
    Orv::Ptr<InstanceLog> instanceLogIs(Orv::Name instance) {
        return memberIs(
            instanceLog_, "instanceLog", instance, [&] { return Orv::make<InstanceLog>(instance); },
            [&](auto& n) { n.onInstanceLog(instance); });
    }
    void instanceLogDel(Orv::Name instance) {
        memberDel(instanceLog_, "instanceLog", instance,
                  [&](auto& n) { n.onInstanceLog(instance); });
    }
    void instanceLogDelAll() {
        instanceLog_.walk([this](Orv::Name instance) { instanceLogDel(instance); });
    }

    static const Orv::TypeInfo& type();

  private:
    void membersDel() override { instanceLogDelAll(); }

    Orv::OrderedMap<Orv::Name, Orv::Ptr<InstanceLog>> instanceLog_;
};

}  // namespace Stage
