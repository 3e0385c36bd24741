// The published answer to whether an instance is done.
#pragma once

#include "runtime/Entity.h"

namespace Stage {

// A member of CompletionStatusDir; written by the manager.
class ORV_API CompletionStatus final : public Orv::Notifier<CompletionStatus> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<CompletionStatus> {
      public:
        virtual void onComplete() {}
    };

    explicit CompletionStatus(Orv::Name instance) : Notifier(std::move(instance)) {}

    // Every stage of the instance has started and is complete.
    bool complete() const { return complete_; }
    void completeIs(bool complete) {
        if (Orv::assign(complete_, complete)) changed("complete", [](auto& n) { n.onComplete(); });
    }

    static const Orv::TypeInfo& type();

  private:
    bool complete_ = false;
};

}  // namespace Stage
