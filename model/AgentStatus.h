// What an agent reports and asks for.
#pragma once

#include "model/AgentStatusKey.h"
#include "model/StageRequest.h"
#include "runtime/Entity.h"

namespace Stage {

// One per agent, an entry of the class's agent-status directory; written by the agent.
class ORV_API AgentStatus final : public Orv::Notifier<AgentStatus> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<AgentStatus> {
      public:
        virtual void onComplete(AgentStatusKey /*key*/) {}
        virtual void onComplete() {}
        virtual void onComplete(Orv::Immediate) {}
        virtual void onStageRequest(Orv::String /*stage*/) {}
        virtual void onStageRequest() {}
        virtual void onStageRequest(Orv::Immediate) {}
    };

    explicit AgentStatus(Orv::Name agent) : Notifier(std::move(agent)) {}

    // Completion reports. Absent reads as false.
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

    // Stage requests, each under its stage's name. Absent reads as the empty request.
    const Orv::OrderedMap<Orv::String, StageRequest>& stageRequest() const {
        return stageRequest_.map();
    }
    StageRequest stageRequest(const Orv::String& stage) const {
        return stageRequest().value(stage);
    }
    void stageRequestIs(Orv::String stage, StageRequest request) {
        if (stageRequest_.set(stage, std::move(request)))
            changed("stageRequest", stage, [&](auto& n) { n.onStageRequest(stage); });
    }
    void stageRequestDel(Orv::String stage) {
        if (stageRequest_.del(stage))
            changed("stageRequest", stage, [&](auto& n) { n.onStageRequest(stage); });
    }
    void stageRequestDelAll() {
        stageRequest().walk([this](Orv::String stage) { stageRequestDel(stage); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<AgentStatusKey, bool> complete_;
    Orv::Collection<Orv::String, StageRequest> stageRequest_;
};

}  // namespace Stage
