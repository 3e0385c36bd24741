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

    // A notifiee for which a completion matters only when it is true, and of this stage in this
    // instance: others need not reach it.
    class ORV_API SubscriberConst : public NotifieeConst {
      public:
        SubscriberConst(Orv::Ptr<const AgentStatusLocal> record, Orv::String stage,
                        Orv::String instance);
        ~SubscriberConst() override;

      private:
        friend class AgentStatusLocal;
        const Orv::String stage_;
        const Orv::String instance_;
    };

    AgentStatusLocal() = default;

    // Absent reads as false.
    const Orv::OrderedMap<AgentStatusKey, bool>& complete() const { return complete_.map(); }
    bool complete(const AgentStatusKey& key) const { return complete().value(key); }
    void completeIs(AgentStatusKey key, bool complete);
    void completeDel(AgentStatusKey key);
    void completeDelAll() {
        complete().walk([this](AgentStatusKey key) { completeDel(key); });
    }

    // How many members of `complete` are of the stage in the instance, with whatever value.
    std::size_t reports(const Orv::String& stage, const Orv::String& instance) const {
        const Topic* const topic = topics_.find({stage, instance});
        return topic != nullptr ? topic->reports : 0;
    }

    static const Orv::TypeInfo& type();

  private:
    struct TopicKey {
        Orv::String stage;
        Orv::String instance;
        std::uint32_t hash() const { return Orv::mixHash(stage.hash(), instance.hash()); }
        friend bool operator==(const TopicKey&, const TopicKey&) = default;
    };
    struct Topic {
        SubscriberConst* subscriber = nullptr;  // null when it is not clear which
        std::uint32_t subscribers = 0;
        std::uint32_t reports = 0;
    };

    void tellComplete(const AgentStatusKey& key, bool complete, const Topic* topic);
    void subscriberIs(SubscriberConst& subscriber, bool present);
    void tidy(const TopicKey& key, const Topic& topic);

    Orv::Collection<AgentStatusKey, bool> complete_;
    Orv::OrderedMap<TopicKey, Topic> topics_;
    std::size_t subscriptions_ = 0;
};

}  // namespace Stage
