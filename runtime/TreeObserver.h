// Sees every change of every directory, entity and member, by path.
#pragma once

#include "runtime/Export.h"
#include "runtime/Notifiee.h"
#include "runtime/String.h"
#include "runtime/Type.h"
#include "runtime/Value.h"

namespace Orv {

class Dir;
class Entity;

// Watches the trees of its thread from construction to destruction. It is told right after a change
// is stored and before any notifiee is, in the order in which changes happen. Where no observer
// lives, a change costs one predictable branch. What an observer throws goes to the environment's
// notification-exception hook. In a call it may end itself, but no other observer.
//
// What goes with a directory entry or a member that is removed is not told separately. An entity
// that has left its tree keeps the path under which it stood.
class ORV_API TreeObserver {
  public:
    TreeObserver();
    virtual ~TreeObserver();
    TreeObserver(const TreeObserver&) = delete;
    TreeObserver& operator=(const TreeObserver&) = delete;

    // A scalar has changed; the entity holds the new value.
    virtual void onScalar(const Entity& entity, const Attribute& attribute) = 0;
    // A member was added or changed (the entity holds it) or removed (it does not).
    virtual void onMember(const Entity& entity, const Attribute& attribute, const Value& key) = 0;
    // An entry was appended to a queue; it is the last.
    virtual void onEnqueued(const Entity& entity, const Attribute& attribute) = 0;
    // An entity or sub-directory came to the directory or left it.
    virtual void onEntry(const Dir& dir, const Entity& entry, bool present) = 0;

    static bool observed() { return first != nullptr; }

    // For entities.
    template <class Tell>
    static void tell(Tell&& tell) {
        for (TreeObserver* o = first; o != nullptr;) {
            TreeObserver* const next = o->next_;
            try {
                tell(*o);
            } catch (...) {
                DeliveryScope::reportException();
            }
            o = next;
        }
    }

  private:
    [[gnu::tls_model("initial-exec")]] static thread_local constinit TreeObserver* first;
    TreeObserver* next_;
};

}  // namespace Orv
