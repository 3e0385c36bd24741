// Which stage classes have all their own entries.
#pragma once

#include "runtime/Entity.h"

namespace Stage {

// The class directory's reactor owns one, in which the watchers of the classes publish.
class ORV_API AvailableStageSubPaths final : public Orv::Notifier<AvailableStageSubPaths> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<AvailableStageSubPaths> {
      public:
        virtual void onStageSubPath(Orv::Name /*stageClass*/) {}
        virtual void onStageSubPath() {}
        virtual void onStageSubPath(Orv::Immediate) {}
    };

    AvailableStageSubPaths() = default;

    // Per stage class. Published once, and never withdrawn.
    const Orv::OrderedMap<Orv::Name, bool>& stageSubPath() const { return stageSubPath_.map(); }
    void stageSubPathIs(Orv::Name stageClass, bool available) {
        if (stageSubPath_.set(stageClass, available))
            notifyOf([&](NotifieeConst& n) { n.onStageSubPath(stageClass); });
    }
    void stageSubPathDel(Orv::Name stageClass) {
        if (stageSubPath_.del(stageClass))
            notifyOf([&](NotifieeConst& n) { n.onStageSubPath(stageClass); });
    }

    static const Orv::TypeInfo& type();

  private:
    // An attribute of a reactor: its changes are not told to the observers of the tree.
    template <class Tell>
    void notifyOf(Tell&& tell) {
        this->template notify<AvailableStageSubPaths>(tell);
    }

    Orv::Collection<Orv::Name, bool> stageSubPath_;
};

}  // namespace Stage
