// The progress log of one instance.
#pragma once

#include <vector>

#include "model/LogEntry.h"
#include "runtime/Entity.h"

namespace Stage {

// A member of Log; the manager only appends.
class ORV_API InstanceLog final : public Orv::Notifier<InstanceLog> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<InstanceLog> {
      public:
        // A line was appended; it is the last.
        virtual void onLog() {}
    };

    explicit InstanceLog(Orv::Name instance) : Notifier(std::move(instance)) {}

    // The oldest first.
    const std::vector<LogEntry>& log() const { return log_; }
    void logEnq(LogEntry entry) {
        log_.push_back(std::move(entry));
        Entity::enqueued<InstanceLog>("log", [](auto& n) { n.onLog(); });
    }

    static const Orv::TypeInfo& type();

  private:
    std::vector<LogEntry> log_;
};

}  // namespace Stage
