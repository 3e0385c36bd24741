// Which paths exist.
#pragma once

#include "runtime/Entity.h"

namespace Stage {

// Part of the registered model of the class directory; no reactor reads or writes it.
class ORV_API AvailablePaths final : public Orv::Notifier<AvailablePaths> {
  public:
    class ORV_API NotifieeConst : public Orv::NotifieeOf<AvailablePaths> {
      public:
        virtual void onPath(Orv::String /*path*/) {}
        virtual void onPath() {}
        virtual void onPath(Orv::Immediate) {}
    };

    explicit AvailablePaths(Orv::Name name) : Notifier(std::move(name)) {}

    const Orv::OrderedMap<Orv::String, bool>& paths() const { return path_.map(); }
    void pathIs(Orv::String path, bool available) {
        if (path_.set(path, available)) changed("path", path, [&](auto& n) { n.onPath(path); });
    }
    void pathDel(Orv::String path) {
        if (path_.del(path)) changed("path", path, [&](auto& n) { n.onPath(path); });
    }
    void pathDelAll() {
        path_.map().walk([this](Orv::String path) { pathDel(path); });
    }

    static const Orv::TypeInfo& type();

  private:
    Orv::Collection<Orv::String, bool> path_;
};

}  // namespace Stage
