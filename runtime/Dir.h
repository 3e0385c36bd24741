// Directories of named entries: entities and sub-directories.
#pragma once

#include <type_traits>

#include "runtime/Entity.h"
#include "runtime/Export.h"

namespace Orv {

// Sub-directories and entities share one set of names. An entry is never replaced in place.
class ORV_API Dir final : public Notifier<Dir> {
  public:
    class ORV_API NotifieeConst : public NotifieeOf<Dir> {
      public:
        // Once for each entity or sub-directory that comes or goes.
        virtual void onEntityPtr(Name /*name*/) {}
        virtual void onEntityPtr(Immediate) {}
    };

    // A root has the empty name, and the empty path.
    explicit Dir(Name name = {}) : Notifier(std::move(name)) {}
    ~Dir() override;

    using Entries = OrderedMap<Name, Ptr<Entity>>;
    const Entries& entries() const { return entries_; }

    // The entry of any type, or null.
    Ptr<Entity> entityRef(const Name& name) const { return entries_.value(name); }
    // The entry when it is a T, else null. Ask for a Dir to get a sub-directory.
    template <class T>
    Ptr<T> entityPtr(const Name& name) const {
        const Ptr<Entity>* const held = entries_.find(name);
        if (held == nullptr) return nullptr;
        if constexpr (std::is_final_v<T>)  // the types tell, and sooner than a cast
            return Ptr<T>(&(*held)->info() == &T::type() ? static_cast<T*>(held->get()) : nullptr);
        else
            return Ptr<T>(dynamic_cast<T*>(held->get()));
    }

    // Makes an entry of the registered type, or returns the one that is there. Null, and nothing
    // changed, when the name is taken by another type. Raises RangeError when no such type can be
    // made. "Orv::Dir" makes a sub-directory.
    Ptr<Entity> entryIs(Name name, std::string_view typeName);
    // Puts a ready entity there; false, and nothing changed, when its name is taken.
    bool entryIs(Ptr<Entity> entity);
    // Makes a sub-directory, or returns the one that is there; null when an entity has the name.
    Ptr<Dir> subdirIs(Name name);

    // Each leaves alone what is not of its kind, and is silent when there is nothing.
    void entryDel(Name name);
    void subdirDel(Name name);

    static const TypeInfo& type();

  private:
    void membersDel() override;
    void entityDel(const Name& name, bool subdir);
    void told(const Name& name);

    Entries entries_;
};

}  // namespace Orv
