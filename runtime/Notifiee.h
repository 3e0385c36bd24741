// Notifiees: who is told when an attribute changes, and how a change is delivered.
#pragma once

#include <optional>
#include <utility>

#include "runtime/Export.h"
#include "runtime/Ptr.h"

namespace Orv {

// Marks the immediate form of a callback: the collection as a whole has to be looked at now.
struct Immediate {};

// One place in a notifier's list. Connecting and disconnecting take constant time, also while the
// list is being told.
class ORV_API NotifieeBase {
  public:
    NotifieeBase(const NotifieeBase&) = delete;
    NotifieeBase& operator=(const NotifieeBase&) = delete;

    // While off, changes are not delivered, and are lost to this notifiee.
    bool notificationActive() const { return active_; }
    void notificationActiveIs(bool active) { active_ = active; }

    // Whether it stands in its notifier's list.
    bool isRegisteredNotifiee() const { return list_ != nullptr; }

    // Whether onZeroReferences is wanted. Only a notifiee that does not count its notifier can
    // ever get it.
    void wantsZeroReferencesIs(bool wanted) { wantsZeroReferences_ = wanted; }
    virtual void onZeroReferences() {}

  protected:
    NotifieeBase() = default;
    virtual ~NotifieeBase() { unlink(); }

    void link(const PtrInterface* notifier);
    void unlink();

  private:
    friend class PtrInterface;
    friend class Delivery;

    NotifieeBase* previous_ = nullptr;
    NotifieeBase* next_ = nullptr;
    PtrInterface* list_ = nullptr;
    bool active_ = true;
    bool wantsZeroReferences_ = false;
};

// Keeps what loses its last reference alive until the outermost scope of the thread ends. Every
// notification and every timer runs in one.
class ORV_API DeliveryScope {
  public:
    DeliveryScope() { ++depth; }
    ~DeliveryScope() {
        if (--depth == 0 && buried != nullptr) [[unlikely]]
            deleteBuried();
    }
    DeliveryScope(const DeliveryScope&) = delete;
    DeliveryScope& operator=(const DeliveryScope&) = delete;

    // To be called inside a catch block: hands the exception to the notification-exception hook.
    static void reportException() noexcept;

  private:
    friend class PtrInterface;
    static void deleteBuried();

    [[gnu::tls_model("initial-exec")]] static thread_local constinit int depth;
    [[gnu::tls_model("initial-exec")]] static thread_local constinit PtrInterface* buried;
};

// One walk over a notifier's list, from its first to what was its last at the start: who joins
// meanwhile stands behind that one. Who leaves is passed over by every walk under way.
class Delivery {
  public:
    explicit Delivery(PtrInterface& notifier)
        : held_(threadSafePtrs() ? &notifier : nullptr),
          notifier_(notifier),
          outer_(notifier.deliveries_),
          next_(notifier.firstNotifiee_),
          last_(notifier.lastNotifiee_) {
        notifier.deliveries_ = this;
    }
    ~Delivery() { notifier_.deliveries_ = outer_; }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    bool done() const { return next_ == nullptr; }

    // Tells those that are left, from where it stopped if `tell` threw.
    template <class Tell>
    void goOn(Tell& tell) {
        NotifieeBase* notifiee = next_;
        while (notifiee != nullptr) {
            NotifieeBase* const following = after(*notifiee);
            next_ = following;
            if (notifiee->active_) tell(*notifiee);
            // Reading next_ back each time would take longer than to tell does.
            notifiee = following;
            if (disturbed_) [[unlikely]]
                notifiee = next_;
        }
    }

  private:
    friend class NotifieeBase;

    NotifieeBase* after(const NotifieeBase& notifiee) const {
        return &notifiee == last_ ? nullptr : notifiee.next_;
    }
    // `leaving` is about to leave the list.
    void passOver(const NotifieeBase& leaving) {
        disturbed_ = true;
        if (next_ == &leaving) next_ = after(leaving);
        if (last_ == &leaving) last_ = leaving.previous_;
    }

    DeliveryScope scope_;  // first, so that it ends after the notifier was used the last time
    // The scope keeps what this thread lets go of; another thread may let go of the notifier too.
    const Ptr<PtrInterface> held_;
    PtrInterface& notifier_;
    Delivery* outer_;
    NotifieeBase* next_;  // null when everyone was told
    NotifieeBase* last_;
    bool disturbed_ = false;  // somebody has left
};

template <class Tell>
void PtrInterface::deliver(Tell&& tell) {
    if (firstNotifiee_ == nullptr) return;
    // Nothing that becomes of the list matters to a walk over one.
    if (firstNotifiee_ == lastNotifiee_) return deliverTo(*firstNotifiee_, tell);
    Delivery delivery(*this);
    while (!delivery.done()) {
        try {
            delivery.goOn(tell);
        } catch (...) {
            DeliveryScope::reportException();
        }
    }
}

template <class Tell>
void PtrInterface::deliverTo(NotifieeBase& notifiee, Tell&& tell) {
    if (!notifiee.notificationActive()) return;
    const DeliveryScope scope;
    const Ptr<PtrInterface> held(threadSafePtrs() ? this : nullptr);
    try {
        tell(notifiee);
    } catch (...) {
        DeliveryScope::reportException();
    }
}

// The base of E::NotifieeConst: it counts its notifier, which therefore lives while it is watched.
template <class E>
class NotifieeOf : public NotifieeBase {
  public:
    const Ptr<const E>& notifier() const { return notifier_; }

    // Connects to another notifier; null disconnects.
    void notifierIs(Ptr<const E> notifier) {
        unlink();
        // Released last, since whatever goes with it may destroy this notifiee.
        const Ptr<const E> old = std::exchange(notifier_, std::move(notifier));
        if (notifier_) link(notifier_.get());
    }
    // Leaves the list, or goes back to its end, and keeps the notifier.
    void isRegisteredNotifieeIs(bool registered) {
        if (registered == isRegisteredNotifiee()) return;
        if (registered && notifier_)
            link(notifier_.get());
        else
            unlink();
    }

  protected:
    NotifieeOf() = default;
    // Disconnects before the notifier is released.
    ~NotifieeOf() override { unlink(); }

  private:
    Ptr<const E> notifier_;
};

// A nested notifiee: it stands in a reactor, watches one entity, and forwards to the reactor's
// handlers. A forwarding callback does nothing after the handler, which may destroy it.
template <class E, class Sm>
class Watch : public E::NotifieeConst {
  public:
    Watch(Sm& sm, Ptr<const E> entity) : sm_(sm) { this->notifierIs(std::move(entity)); }

  protected:
    Sm& sm() const { return sm_; }

  private:
    Sm& sm_;
};

// The slot of a nested notifiee: a watched pointer attribute of a reactor. Empty reads as null.
template <class W, class E>
class WatchSlot {
  public:
    E* get() const { return entity_.get(); }
    E* operator->() const { return entity_.get(); }
    explicit operator bool() const { return static_cast<bool>(entity_); }
    const Ptr<E>& ptr() const { return entity_; }

    // Watches `entity` instead: the old notifiee is disconnected and destroyed, a new one is built.
    // Returns whether it is a different entity. Null empties the slot.
    template <class Sm>
    bool is(Sm& sm, Ptr<E> entity) {
        if (entity_ == entity) return false;
        watch_.reset();
        const Ptr<E> old = std::exchange(entity_, std::move(entity));
        if (entity_) watch_.emplace(sm, entity_);
        return true;
    }
    void del() {
        watch_.reset();
        const Ptr<E> old = std::exchange(entity_, nullptr);
    }
    // Switches the notifiee's callbacks on or off.
    void activeIs(bool active) {
        if (watch_) watch_->notificationActiveIs(active);
    }
    // Disconnects, but keeps the entity readable for handlers that are still on the stack.
    void disconnect() { watch_.reset(); }

    W* watch() { return watch_ ? &*watch_ : nullptr; }
    const W* watch() const { return watch_ ? &*watch_ : nullptr; }

  private:
    Ptr<E> entity_;
    std::optional<W> watch_;
};

}  // namespace Orv
