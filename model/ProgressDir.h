// The progress records of a stage class's instances.
#pragma once

#include "model/Progress.h"
#include "runtime/Entity.h"

namespace Stage {

// One per stage class; its members are written by the manager.
class ORV_API ProgressDir final : public Orv::Notifier<ProgressDir> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<ProgressDir> {
      public:
        virtual void onProgress(Orv::Name /*instance*/) {}
        virtual void onProgress() {}
        virtual void onProgress(Orv::Immediate) {}
    };

    explicit ProgressDir(Orv::Name name = {}) : Notifier(std::move(name)) {}
    ~ProgressDir() override { orphan(progress_); }

    // Per instance name.
    const Orv::OrderedMap<Orv::Name, Orv::Ptr<Progress>>& progress() const { return progress_; }
    Orv::Ptr<Progress> progress(const Orv::Name& instance) const {
        return progress_.value(instance);
    }
    // Returns the one that is there, or makes one.
    Orv::Ptr<Progress> progressIs(Orv::Name instance) {
        return memberIs(
            progress_, "progress", instance, [&] { return Orv::make<Progress>(instance); },
            [&](auto& n) { n.onProgress(instance); });
    }
    void progressDel(Orv::Name instance) {
        memberDel(progress_, "progress", instance, [&](auto& n) { n.onProgress(instance); });
    }
    void progressDelAll() {
        progress_.walk([this](Orv::Name instance) { progressDel(instance); });
    }

    static const Orv::TypeInfo& type();

  private:
    void membersDel() override { progressDelAll(); }

    Orv::OrderedMap<Orv::Name, Orv::Ptr<Progress>> progress_;
};

}  // namespace Stage
