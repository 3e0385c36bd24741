// The manager's own record of what is complete.
#pragma once

#include "model/AgentStatusKey.h"
#include "runtime/Entity.h"

namespace Stage {

// One per stage class, made and written by the manager alone: every completion, wherever it was
// reported, goes through here to the stage reactors.
class ORV_API AgentStatusLocal final : public Orv::Notifier<AgentStatusLocal> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<AgentStatusLocal> {
      public:
        virtual void onComplete(AgentStatusKey /*key*/) {}
        virtual void onComplete() {}
        virtual void onComplete(Orv::Immediate) {}
    };

    AgentStatusLocal() = default;

    // Absent reads as false.
    const Orv::OrderedMap<AgentStatusKey, bool>& complete() const { return complete_.map(); }
    bool complete(const AgentStatusKey& key) const { return complete().value(key); }
    void completeIs(AgentStatusKey key, bool complete) {
        if (complete_.set(key, complete))
            changed("complete", key, [&](auto& n) { n.onComplete(key); });
    }
    void completeDel(AgentStatusKey key) {
        if (complete_.del(key)) changed("complete", key, [&](auto& n) { n.onComplete(key); });
    }
    void completeDelAll() {
        complete().walk([this](AgentStatusKey key) { completeDel(key); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<AgentStatusKey, bool> complete_;
};

}  // namespace Stage
