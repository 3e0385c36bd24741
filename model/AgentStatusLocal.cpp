#include "model/AgentStatusLocal.h"

#include "runtime/Trace.h"

namespace Stage {

AgentStatusLocal::SubscriberConst::SubscriberConst(Orv::Ptr<const AgentStatusLocal> record,
                                                   Orv::String stage, Orv::String instance)
    : stage_(std::move(stage)), instance_(std::move(instance)) {
    // Being watched does not change what it holds.
    const_cast<AgentStatusLocal&>(*record).subscriberIs(*this, true);
    notifierIs(std::move(record));
}

AgentStatusLocal::SubscriberConst::~SubscriberConst() {
    const_cast<AgentStatusLocal&>(*notifier()).subscriberIs(*this, false);
}

void AgentStatusLocal::subscriberIs(SubscriberConst& subscriber, bool present) {
    const TopicKey key{subscriber.stage_, subscriber.instance_};
    Topic& topic = topics_.member(key);
    if (present) {
        topic.subscriber = topic.subscribers == 0 ? &subscriber : nullptr;
        ++topic.subscribers;
        ++subscriptions_;
    } else {
        topic.subscriber = nullptr;
        --topic.subscribers;
        --subscriptions_;
        tidy(key, topic);
    }
}

void AgentStatusLocal::tidy(const TopicKey& key, const Topic& topic) {
    if (topic.subscribers == 0 && topic.reports == 0) topics_.del(key);
}

void AgentStatusLocal::completeIs(AgentStatusKey key, bool complete) {
    const Topic* const topic = [&] {
        Topic& held = topics_.member({key.stage, key.instance});
        const std::size_t before = complete_.map().size();
        const bool changed = complete_.set(key, complete);
        held.reports += complete_.map().size() != before;
        return changed ? &held : nullptr;
    }();
    if (topic != nullptr) tellComplete(key, complete, topic);
}

void AgentStatusLocal::completeDel(AgentStatusKey key) {
    if (!complete_.del(key)) return;
    const TopicKey topicKey{key.stage, key.instance};
    Topic& topic = *topics_.find(topicKey);
    --topic.reports;
    tidy(topicKey, topic);
    tellComplete(key, false, nullptr);
}

// Everyone is told when the value is false or somebody traces, since then each says why it does
// nothing; when a host watches as well, since its turn comes between theirs; and when it is not
// clear whose the completion is.
void AgentStatusLocal::tellComplete(const AgentStatusKey& key, bool complete, const Topic* topic) {
    if (Orv::TreeObserver::observed()) {
        observed("complete", key);
        topic = topics_.find({key.stage, key.instance});  // whoever was told may have moved it
    }
    const auto tell = [&](NotifieeConst& n) { n.onComplete(key); };
    if (complete && notifiees() == subscriptions_ && !Orv::TraceHandle::someEnabled()) {
        if (topic == nullptr || topic->subscribers == 0) return;
        if (topic->subscriber != nullptr)
            return deliverTo(*topic->subscriber,
                             [&](Orv::NotifieeBase& n) { tell(static_cast<NotifieeConst&>(n)); });
    }
    notify<AgentStatusLocal>(tell);
}

const Orv::TypeInfo& AgentStatusLocal::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<AgentStatusLocal>("Stage::AgentStatusLocal")
            .collection(
                "complete",
                [](const AgentStatusLocal& a) -> const auto& { return a.complete_.map(); },
                &AgentStatusLocal::completeIs, &AgentStatusLocal::completeDel)
            .done();
    return info;
}

}  // namespace Stage
