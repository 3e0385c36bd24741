// Entities: named objects with attributes that stand in a tree and tell of their changes.
#pragma once

#include <type_traits>
#include <utility>

#include "runtime/Export.h"
#include "runtime/Notifiee.h"
#include "runtime/OrderedMap.h"
#include "runtime/Ptr.h"
#include "runtime/String.h"
#include "runtime/TreeObserver.h"
#include "runtime/Type.h"

namespace Orv {

// Stores `value` and returns whether that changed anything. A NaN always is a change.
template <class T>
bool assign(T& stored, T value) {
    if (stored == value) return false;
    stored = std::move(value);
    return true;
}

// A collection attribute: what an OrderedMap does, and whether it changed anything.
template <class K, class V>
class Collection {
  public:
    const OrderedMap<K, V>& map() const { return map_; }

    // Returns whether the member is new or has changed its value (by ==, references by identity).
    bool set(const K& key, V value) {
        const std::size_t before = map_.size();
        V& held = map_.member(key);
        if (map_.size() == before) return assign(held, std::move(value));
        held = std::move(value);
        return true;
    }
    bool del(const K& key, V* removed = nullptr) { return map_.del(key, removed); }

  private:
    OrderedMap<K, V> map_;
};

class ORV_API Entity : public PtrInterface {
  public:
    // The name under which it stands in its directory or collection.
    const Name& key() const { return key_; }
    // The entity's own name: the key, unless the type has a name attribute of its own.
    virtual Name name() const { return key_; }
    // For an entity that is rebuilt from a backup.
    virtual void nameIsFromBackup(Name name) { key_ = std::move(name); }
    // Rebuilds from a backup what the attributes do not hold. By default there is nothing.
    virtual void reconstruct() {}

    virtual const TypeInfo& info() const = 0;
    const TypeInfo* typeInfo() const final { return &info(); }

    // What holds it; null while it stands nowhere. Not counted.
    const PtrInterface* parent() const { return parent_; }
    // Whether it stood somewhere, and stands nowhere any more.
    bool left() const { return parent_ == nullptr && stood_; }
    // attribute: the parent's attribute that holds it, or null for a directory's entry. single: the
    // attribute holds this one entity rather than members by name. A null parent takes it out of
    // the tree; it keeps the path under which it stood.
    void parentIs(const PtrInterface* parent, const char* attribute = nullptr, bool single = false);

    // For example "/input/boot/disk/event/mount"; in a name, '~' reads "~0" and '/' reads "~1".
    // Empty for an entity that never stood anywhere, and for a root.
    String path() const override;

    // Takes it out of its tree: it loses its parent, and then its instantiating collections are
    // cleared, member by member. Notifiees are told, observers are not.
    void leave();

  protected:
    explicit Entity(Name key) : key_(std::move(key)) {}
    ~Entity() override;

    // Deletes the members of every instantiating collection.
    virtual void membersDel() {}

    // Every mutator that changed something calls one of these, once the change is stored: observers
    // are told, then `tell` is called for each notifiee.
    template <class E, class Tell>
    void scalarChanged(const char* attribute, Tell&& tell) {
        if (TreeObserver::observed()) [[unlikely]]
            observeScalar(attribute);
        notify<E>(tell);
    }
    template <class E, class K, class Tell>
    void memberChanged(const char* attribute, const K& key, Tell&& tell) {
        observed(attribute, key);
        notify<E>(tell);
    }
    template <class E, class Tell>
    void enqueued(const char* attribute, Tell&& tell) {
        if (TreeObserver::observed()) [[unlikely]]
            observeEnqueued(attribute);
        notify<E>(tell);
    }
    // The two halves of that, for a mutator that knows which notifiees need not be told.
    template <class K>
    void observed(const char* attribute, const K& key) {
        if (TreeObserver::observed()) [[unlikely]]
            observeMember(attribute, ValueTraits<K>::of(key));
    }
    template <class E, class Tell>
    void notify(Tell&& tell) {
        deliver([&](NotifieeBase& n) { tell(static_cast<typename E::NotifieeConst&>(n)); });
    }

    // Whether its collections are being cleared because it left its tree.
    bool leaving() const { return leaving_; }

  private:
    void observeScalar(const char* attribute) const;
    void observeMember(const char* attribute, const Value& key) const;
    void observeEnqueued(const char* attribute) const;

    Name key_;
    const PtrInterface* parent_ = nullptr;
    const char* attribute_ = nullptr;
    bool single_ = false;
    bool stood_ = false;
    bool leaving_ = false;
    String stoodAt_;
};

struct NothingMore {
    void operator()(const Entity&) const {}
};

// The base of a model's entity E, which offers E::NotifieeConst and a static E::type().
template <class E>
class Notifier : public Entity {
  public:
    const TypeInfo& info() const override { return E::type(); }

  protected:
    explicit Notifier(Name name = {}) : Entity(std::move(name)) {}

    template <class Tell>
    void changed(const char* attribute, Tell&& tell) {
        this->template scalarChanged<E>(attribute, tell);
    }
    template <class K, class Tell>
    void changed(const char* attribute, const K& key, Tell&& tell) {
        this->template memberChanged<E>(attribute, key, tell);
    }

    // The mutators of an instantiating collection: an existing member is returned silently; a new
    // one is told of once it is in place. stored(member): called before anybody is told.
    template <class M, class Make, class Tell, class Stored = NothingMore>
    Ptr<M> memberIs(OrderedMap<Name, Ptr<M>>& members, const char* attribute, const Name& name,
                    Make&& makeMember, Tell&& tell, Stored&& stored = {}) {
        if (const Ptr<M>* const held = members.find(name)) return *held;
        Ptr<M> member = makeMember();
        members.set(name, member);
        member->parentIs(this, attribute);
        stored(*member);
        changed(attribute, name, tell);
        return member;
    }
    template <class M, class Tell, class Stored = NothingMore>
    void memberDel(OrderedMap<Name, Ptr<M>>& members, const char* attribute, const Name& name,
                   Tell&& tell, Stored&& stored = {}) {
        Ptr<M> member;
        if (!members.del(name, &member)) return;
        stored(*member);
        const DeliveryScope scope;  // what is told first may release this entity
        member->leave();
        changed(attribute, name, tell);
    }
    // For a destructor: the members stand nowhere from now on.
    template <class M>
    static void orphan(const OrderedMap<Name, Ptr<M>>& members) {
        for (const auto& [name, member] : members) member->parentIs(nullptr);
    }
};

}  // namespace Orv
