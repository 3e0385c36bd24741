// The one way into the entity tree.
#pragma once

#include "host/Journal.h"
#include "host/Observations.h"
#include "host/Tree.h"
#include "runtime/Type.h"
#include "runtime/Value.h"

namespace Host {

// Applies input lines to a tree, and tells the observer which changes are theirs. The manager
// answers inside the call.
class Inputs {
  public:
    Inputs(const Tree& tree, FeedObserver& observer) : tree_(tree), observer_(observer) {}

    // Everything but time: settle and end do nothing here. Raises MalformedInput; nothing has
    // changed then.
    void apply(const Input& input);

  private:
    void create(const Input& input);
    void del(const Input& input);
    void set(const Input& input);
    void unset(const Input& input);
    void clear(const Input& input);

    // What stands at `path`; lines often come several for one entity.
    Orv::Ptr<Orv::Entity> entityAt(const std::string& path);

    // What is being read: a key or a value, or one field of it. For errors.
    struct Part {
        std::string_view whole;
        std::string_view field{};
        std::string text() const;
    };
    Orv::Value read(const Json& json, const Orv::Value& kind, const Part& part) const;
    Orv::Value readFields(const Json& json, const Orv::ValueFields& kinds, const Part& part) const;

    const Tree& tree_;
    FeedObserver& observer_;
    std::string lastPath_;
    Orv::Ptr<Orv::Entity> lastEntity_;
};

}  // namespace Host
