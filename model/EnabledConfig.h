// Which instances of a stage class run.
#pragma once

#include "runtime/Entity.h"

namespace Stage {

// One per stage class; written by the operator.
class ORV_API EnabledConfig final : public Orv::Notifier<EnabledConfig> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<EnabledConfig> {
      public:
        virtual void onEnabled(Orv::String /*instance*/) {}
        virtual void onEnabled() {}
        virtual void onEnabled(Orv::Immediate) {}
        virtual void onSuspended(Orv::String /*instance*/) {}
        virtual void onSuspended() {}
        virtual void onSuspended(Orv::Immediate) {}
    };

    explicit EnabledConfig(Orv::Name stageClass = {}) : Notifier(std::move(stageClass)) {}

    // Per instance name. False counts as absent: the instance is not enabled, and loses all its
    // state.
    const Orv::OrderedMap<Orv::String, bool>& enabled() const { return enabled_.map(); }
    bool enabled(const Orv::String& instance) const { return enabled().value(instance); }
    void enabledIs(Orv::String instance, bool enabled) {
        if (enabled_.set(instance, enabled))
            changed("enabled", instance, [&](auto& n) { n.onEnabled(instance); });
    }
    void enabledDel(Orv::String instance) {
        if (enabled_.del(instance))
            changed("enabled", instance, [&](auto& n) { n.onEnabled(instance); });
    }
    void enabledDelAll() {
        enabled().walk([this](Orv::String instance) { enabledDel(instance); });
    }

    // Per instance name: while true, no further stage of the instance starts.
    const Orv::OrderedMap<Orv::String, bool>& suspended() const { return suspended_.map(); }
    bool suspended(const Orv::String& instance) const { return suspended().value(instance); }
    void suspendedIs(Orv::String instance, bool suspended) {
        if (suspended_.set(instance, suspended))
            changed("suspended", instance, [&](auto& n) { n.onSuspended(instance); });
    }
    void suspendedDel(Orv::String instance) {
        if (suspended_.del(instance))
            changed("suspended", instance, [&](auto& n) { n.onSuspended(instance); });
    }
    void suspendedDelAll() {
        suspended().walk([this](Orv::String instance) { suspendedDel(instance); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<Orv::String, bool> enabled_;
    Orv::Collection<Orv::String, bool> suspended_;
};

}  // namespace Stage
