// Reactors, and the rules for the children that a reactor owns.
#pragma once

#include <array>
#include <cstddef>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>

#include "runtime/Entity.h"
#include "runtime/Error.h"
#include "runtime/Export.h"
#include "runtime/OrderedMap.h"
#include "runtime/Ptr.h"

namespace Orv {

// What owns reactors, and may itself be taken out of service while it makes one.
class ORV_API Owner {
  public:
    // While it is being made, its owner cannot take it out: then it counts as retired once its
    // owner is, or once it is unwanted. The same holds of its owner, and of that one's.
    bool retired() const {
        return retired_ || (owner_ != nullptr && (owner_->retired() || (!kept_ && unwanted())));
    }
    // Whether it stands for itself: it is not being made by an owner that might go meanwhile.
    bool settled() const { return owner_ == nullptr; }

  protected:
    // owner: whoever makes it, or null. Not counted.
    explicit Owner(const Owner* owner = nullptr) : owner_(owner) {}
    virtual ~Owner() = default;

    // Whether what it is made for has gone while it is being made.
    virtual bool unwanted() const { return false; }

    const Owner* owner_;  // null once it need not be asked
    bool kept_ = false;
    bool retired_ = false;
};

// An object that watches entities and runs handlers when they change.
//
// A reactor is retired once: when its owner takes it out of its collection, or when its last
// reference goes. From then on it watches nothing, owns no children, and writes nothing, also when
// one of its handlers is still on the stack: a handler asks retired() after every call that may
// have come back to its owner.
class ORV_API Reactor : public PtrInterface, public Owner {
  public:
    void retire();
    // Its owner has stored it, and takes it along when it goes. One that is still being made itself
    // is asked on.
    void keptBy(const Owner& owner) {
        kept_ = true;
        if (owner.settled()) owner_ = nullptr;
    }

    // Whether the callbacks on the entity that is its notifier are delivered. Off until its owner
    // has stored it.
    virtual void notificationActiveIs(bool /*active*/) {}

  protected:
    explicit Reactor(const Owner* owner = nullptr) : Owner(owner) {}
    ~Reactor() override;

    // Disconnects every nested notifiee, then retires the children. Writes nothing.
    virtual void dismantle() {}

  private:
    void lastReferenceGone() final { retire(); }
};

// The text form of a constructor argument, as errors show it.
template <class T>
std::string argumentText(const T* entity) {
    if (entity == nullptr) return "null";
    const String path = entity->path();
    if (!path.empty()) return path.str();
    const TypeInfo* const type = entity->typeInfo();
    return type != nullptr ? type->name() : "an object";
}
template <class T>
std::string argumentText(const Ptr<T>& entity) {
    return argumentText(entity.get());
}
inline std::string argumentText(const String& text) { return text.str(); }

// --- The rules for children
// -----------------------------------------------------------------------
//
// A child class C that takes constructor arguments offers
//     auto arguments() const;                       // a tuple of Ptr, String, ... in order
//     static constexpr std::array<const char*, N> argumentNames;
// Fresh children come from a callable. A child is constructed whole, then stored, then switched on:
// so while it initialises itself, its parent's handlers run without it. One that is retired by then
// is not stored: whatever took its place meanwhile stays.

// A child held in a single pointer attribute: one with equal arguments stays, one that differs is
// replaced; the old one lives until the new one is built, stored and switched on.
template <class C>
class SingleChild {
  public:
    C* get() const { return child_.get(); }
    C* operator->() const { return child_.get(); }
    explicit operator bool() const { return static_cast<bool>(child_); }
    const Ptr<C>& ptr() const { return child_; }

    template <class Arguments, class Make>
    Ptr<C> is(const Owner& owner, const Arguments& arguments, Make&& makeChild) {
        if (child_ && child_->arguments() == arguments) return child_;
        Ptr<C> fresh = makeChild();
        if (owner.retired() || fresh->retired()) return fresh->retire(), fresh;
        fresh->keptBy(owner);
        const Ptr<C> old = std::exchange(child_, fresh);
        fresh->notificationActiveIs(true);
        if (old) old->retire();
        return fresh;
    }
    void del() {
        if (const Ptr<C> old = std::exchange(child_, nullptr)) old->retire();
    }

  private:
    Ptr<C> child_;
};

// Children in a keyed collection.
template <class K, class C>
class Children {
  public:
    using Map = OrderedMap<K, Ptr<C>>;
    const Map& map() const { return map_; }
    // Borrowed; null when there is none.
    C* find(const K& key) const {
        const Ptr<C>* const held = map_.find(key);
        return held != nullptr ? held->get() : nullptr;
    }
    bool contains(const K& key) const { return map_.contains(key); }
    bool empty() const { return map_.empty(); }
    std::size_t size() const { return map_.size(); }

    // For a child made from its key entity alone: the one held under the key is returned.
    template <class Make>
    Ptr<C> keepOrMake(const Reactor& owner, const K& key, Make&& makeChild) {
        if (C* const held = find(key)) return Ptr<C>(held);
        return store(owner, key, makeChild());
    }
    // For a child with further arguments: one that has equal arguments is returned, one that
    // differs stays, and NameInUseError names the first argument that differs.
    template <class Arguments, class Make>
    Ptr<C> keepOrRefuse(const Reactor& owner, const K& key, const Arguments& arguments,
                        Make&& makeChild) {
        if (C* const held = find(key)) {
            refuseDifference(arguments, held->arguments());
            return Ptr<C>(held);
        }
        return store(owner, key, makeChild());
    }
    // For nested keyed reactors: one on the same entity is returned, one that differs is replaced.
    template <class E, class Make>
    Ptr<C> keepOrReplace(const Reactor& owner, const K& key, const E* entity, Make&& makeChild) {
        if (C* const held = find(key))
            if (held->entity() == entity) return Ptr<C>(held);
        return store(owner, key, makeChild());
    }

    void reserve(std::size_t children) { map_.reserve(children); }

    void del(const K& key) {
        Ptr<C> gone;
        if (map_.del(key, &gone)) gone->retire();
    }
    void delAll() {
        map_.walk([this](K key) { del(key); });
    }

  private:
    Ptr<C> store(const Reactor& owner, const K& key, Ptr<C> fresh) {
        // What the child's construction set off may have taken its owner away.
        if (owner.retired() || fresh->retired()) return fresh->retire(), fresh;
        const Ptr<C> old = std::exchange(map_.member(key), fresh);
        fresh->keptBy(owner);
        fresh->notificationActiveIs(true);
        if (old) old->retire();
        return fresh;
    }

    template <class Arguments>
    static void refuseDifference(const Arguments& wanted, const Arguments& held) {
        [&]<std::size_t... I>(std::index_sequence<I...>) {
            (
                [&] {
                    if (!(std::get<I>(wanted) == std::get<I>(held)))
                        throw NameInUseError(C::argumentNames[I], argumentText(std::get<I>(wanted)),
                                             argumentText(std::get<I>(held)));
                }(),
                ...);
        }
        (std::make_index_sequence<std::tuple_size_v<Arguments>>());
    }

    Map map_;
};

}  // namespace Orv
