// Intrusive counted pointers, and the list of notifiees that every counted object carries.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "runtime/Error.h"
#include "runtime/Export.h"

namespace Orv {

class NotifieeBase;
class String;
class TypeInfo;

// The process-wide switch. While it is on, counts change by atomic add and may change on any
// thread; while it is off, by plain arithmetic on the activity thread alone. Objects may live
// through a switch, which is made while one thread runs. Off at start.
ORV_API extern std::atomic<bool> threadSafePtrSwitch;
inline bool threadSafePtrs() { return threadSafePtrSwitch.load(std::memory_order_relaxed); }
inline void threadSafePtrsIs(bool on) { threadSafePtrSwitch.store(on, std::memory_order_relaxed); }

// One reference count, as the switch says.
class Count {
  public:
    explicit Count(std::uint32_t initial) : word_(initial) {}
    [[gnu::always_inline]] std::uint32_t word() const {
        return word_.load(std::memory_order_relaxed);
    }
    [[gnu::always_inline]] void add() {
        if (threadSafePtrs()) [[unlikely]]
            word_.fetch_add(1, std::memory_order_relaxed);
        else
            word_.store(word() + 1, std::memory_order_relaxed);
    }
    // Returns the word as it is after the decrement.
    [[gnu::always_inline]] std::uint32_t remove() {
        if (threadSafePtrs()) [[unlikely]]
            return word_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        const std::uint32_t left = word() - 1;
        word_.store(left, std::memory_order_relaxed);
        return left;
    }
    void set(std::uint32_t bits) { word_.fetch_or(bits, std::memory_order_relaxed); }
    void clear(std::uint32_t bits) { word_.fetch_and(~bits, std::memory_order_relaxed); }

  private:
    std::atomic<std::uint32_t> word_;
};

// Base of every reactor and entity: a reference count, a list of notifiees, and a flag that says
// that deletion is pending.
//
// Whatever is on the stack of a notification stays alive until the outermost notification of the
// thread returns: an object that loses its last reference meanwhile is retired at once (see
// lastReferenceGone) and deleted then.
class ORV_API PtrInterface {
  public:
    PtrInterface(const PtrInterface&) = delete;
    PtrInterface& operator=(const PtrInterface&) = delete;

    std::uint32_t references() const { return count_.word() & countMask; }
    bool deletionPending() const { return (count_.word() & deletionPendingFlag) != 0; }
    // How many stand in its list, switched on or off.
    std::uint32_t notifiees() const { return notifiees_; }

    [[gnu::always_inline]] void addReference() const { count_.add(); }
    [[gnu::always_inline]] void removeReference() const {
        if (count_.remove() == 0) [[unlikely]]
            const_cast<PtrInterface*>(this)->lastReference();
    }

    // The type's row in the registry, or null for a type without one.
    virtual const TypeInfo* typeInfo() const { return nullptr; }
    // Where it stands, when it stands in a tree; else empty.
    virtual String path() const;

  protected:
    // An object is born with one reference, its maker's, so that its constructor may hand out
    // pointers to it. Make objects with make<T>(...) only.
    PtrInterface() = default;
    virtual ~PtrInterface();

    // Called when the last reference has gone, before any member goes: the place to disconnect.
    // Nothing may be written to an entity from here. Called again only for an object that was taken
    // back since.
    virtual void lastReferenceGone() {}

    // Calls `tell` with every notifiee that is connected now, switched on, and still connected when
    // its turn comes, in the order in which they connected. An exception that leaves `tell` goes to
    // the environment's notification-exception hook, and the next notifiee is told.
    template <class Tell>
    void deliver(Tell&& tell);
    // Calls `tell` with this one of its notifiees alone, in the same way.
    template <class Tell>
    void deliverTo(NotifieeBase& notifiee, Tell&& tell);

  private:
    friend class NotifieeBase;
    friend class Delivery;
    friend class DeliveryScope;

    static constexpr std::uint32_t countMask = 0x7fffffff;
    static constexpr std::uint32_t deletionPendingFlag = 0x80000000;

    void lastReference();
    void deleteUnlessTakenBack();

    mutable Count count_{1};
    std::uint32_t notifiees_ = 0;
    NotifieeBase* firstNotifiee_ = nullptr;
    NotifieeBase* lastNotifiee_ = nullptr;
    class Delivery* deliveries_ = nullptr;  // those under way, innermost first
    PtrInterface* nextBuried_ = nullptr;
};

// The owning pointer. Ptr<const T> gives read-only access. Null by default.
template <class T>
class Ptr {
  public:
    Ptr() = default;
    Ptr(std::nullptr_t) {}
    explicit Ptr(T* object) : object_(object) { add(); }
    Ptr(const Ptr& other) : object_(other.object_) { add(); }
    Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other) : object_(other.get()) {
        add();
    }
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
    noexcept : object_(other.release()) {}
    ~Ptr() {
        if (object_) object_->removeReference();
    }

    Ptr& operator=(Ptr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

    // Entity references compare by identity.
    friend bool operator==(const Ptr& a, const Ptr& b) { return a.object_ == b.object_; }
    friend bool operator==(const Ptr& a, const T* b) { return a.object_ == b; }

    // Takes over the reference that `object` was born with.
    static Ptr adopt(T* object) {
        Ptr p;
        p.object_ = object;
        return p;
    }
    // Gives the reference up to the caller.
    T* release() { return std::exchange(object_, nullptr); }

  private:
    void add() {
        if (object_) object_->addReference();
    }

    T* object_ = nullptr;
};

template <class T, class... Args>
Ptr<T> make(Args&&... args) {
    return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

// What every factory returns through: raises RangeError "null ValidPtr" for a null pointer.
template <class T>
Ptr<T> validPtr(Ptr<T> p) {
    if (!p) throw RangeError("null ValidPtr");
    return p;
}

}  // namespace Orv
