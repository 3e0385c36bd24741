// The registry of types, and what reflection tells about each: the one description that tools which
// print, load, observe or compare entities and reactors by name go by.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "runtime/Error.h"
#include "runtime/Export.h"
#include "runtime/OrderedMap.h"
#include "runtime/Ptr.h"
#include "runtime/String.h"
#include "runtime/Value.h"

namespace Orv {

class Entity;

// One attribute of a type. Every operation that does not fit the attribute's shape, a key or value
// of the wrong kind, and every write to a read-only attribute raise ReflectionError.
class ORV_API Attribute {
  public:
    enum class Shape {
        scalar,         // one value; references to entities too
        collection,     // keys to values or references
        instantiating,  // names to entities that the owner makes
        child,          // one object that the owner makes, or none
        children,       // keys to objects that the owner makes; read-only
        queue,          // values in order; read-only
    };

    Attribute(const char* name, Shape shape) : name_(name), shape_(shape) {}
    virtual ~Attribute();
    Attribute(const Attribute&) = delete;
    Attribute& operator=(const Attribute&) = delete;

    const char* name() const { return name_; }
    Shape shape() const { return shape_; }
    bool keyed() const {
        return shape_ == Shape::collection || shape_ == Shape::instantiating ||
               shape_ == Shape::children;
    }
    // True for what a reader of the state need not see: constructor arguments, and what the manager
    // does not act on.
    bool detail() const { return detail_; }
    // Whether keys are composites rather than strings.
    virtual bool compositeKeys() const { return false; }
    // A default key, and a default value of the scalar or of the collection's members: what kind
    // they are of, and which fields a composite has. Absent where there is none.
    virtual Value keyKind() const { return {}; }
    virtual Value valueKind() const { return {}; }

    // scalar: the value. child: the object or null. queue: raises.
    virtual Value value(const PtrInterface& object) const;
    // scalar, by the type's own mutator.
    virtual void valueIs(PtrInterface& object, const Value& value) const;

    // keyed: the keys in the collection's order. queue: the entries.
    virtual std::vector<Value> keys(const PtrInterface& object) const;
    // keyed: the member's value (the object for instantiating and children); absent when none.
    virtual Value member(const PtrInterface& object, const Value& key) const;
    // collection: key and value; instantiating: key alone (`value` absent).
    virtual void memberIs(PtrInterface& object, const Value& key, const Value& value) const;
    virtual void memberDel(PtrInterface& object, const Value& key) const;

  protected:
    template <class T>
    T read(const Value& value, const char* what) const {
        T t{};
        if (!ValueTraits<T>::read(value, t)) refuse(what, ValueTraits<T>::expected());
        return t;
    }
    [[noreturn]] void refuse(const char* what, const std::string& expected) const;
    [[noreturn]] void unfit(const char* operation) const;

  private:
    template <class T>
    friend class TypeBuilder;

    const char* name_;
    Shape shape_;
    bool detail_ = false;
};

// A registered type.
class ORV_API TypeInfo {
  public:
    // Makes an entity of the type, to stand under `name`.
    using Maker = Ptr<Entity> (*)(const Name& name);

    // For example "Stage::ConfigSm".
    const char* name() const { return name_; }
    const std::vector<std::unique_ptr<Attribute>>& attributes() const { return attributes_; }
    // Null when the type has no such attribute.
    const Attribute* attribute(std::string_view name) const;
    // Null unless the type can be made as a directory entry by name.
    Maker maker() const { return maker_; }

  private:
    template <class T>
    friend class TypeBuilder;

    const char* name_ = "";
    std::vector<std::unique_ptr<Attribute>> attributes_;
    Maker maker_ = nullptr;
};

// The types by full name, in the order of registration.
class ORV_API TypeRegistry {
  public:
    static TypeRegistry& instance();

    // Registering a type again changes nothing.
    void typeIs(const TypeInfo& type);
    const TypeInfo* type(std::string_view name) const;
    const std::vector<const TypeInfo*>& types() const { return types_; }

  private:
    std::vector<const TypeInfo*> types_;
};

// --- the rows
// -------------------------------------------------------------------------------------

struct ReadOnly {};  // stands for a mutator that does not exist

template <class T, class Read, class Write>
class ScalarAttribute final : public Attribute {
    using V = std::remove_cvref_t<std::invoke_result_t<Read, const T&>>;

  public:
    ScalarAttribute(const char* name, Shape shape, Read reader, Write writer)
        : Attribute(name, shape), read_(reader), write_(writer) {}
    Value value(const PtrInterface& object) const override {
        return ValueTraits<V>::of(std::invoke(read_, static_cast<const T&>(object)));
    }
    Value valueKind() const override { return ValueTraits<V>::of(V()); }
    void valueIs(PtrInterface& object, const Value& value) const override {
        if constexpr (std::is_same_v<Write, ReadOnly>)
            unfit("be set");
        else
            std::invoke(write_, static_cast<T&>(object), this->template read<V>(value, "value"));
    }

  private:
    Read read_;
    Write write_;
};

template <class T, class K, class V, class Write, class Delete>
class KeyedAttribute final : public Attribute {
    using Map = OrderedMap<K, V>;

  public:
    KeyedAttribute(const char* name, Shape shape, const Map& (*reader)(const T&), Write write,
                   Delete del)
        : Attribute(name, shape), map_(reader), write_(write), delete_(del) {}
    bool compositeKeys() const override { return ValueTraits<K>::composite; }
    Value keyKind() const override { return ValueTraits<K>::of(K()); }
    Value valueKind() const override {
        return shape() == Shape::collection ? ValueTraits<V>::of(V()) : Value();
    }
    std::vector<Value> keys(const PtrInterface& object) const override {
        std::vector<Value> keys;
        for (const auto& [key, value] : map(object)) keys.push_back(ValueTraits<K>::of(key));
        return keys;
    }
    Value member(const PtrInterface& object, const Value& key) const override {
        const V* const held = map(object).find(this->template read<K>(key, "key"));
        return held != nullptr ? ValueTraits<V>::of(*held) : Value();
    }
    void memberIs(PtrInterface& object, const Value& key, const Value& value) const override {
        if constexpr (std::is_same_v<Write, ReadOnly>) {
            unfit("be set");
        } else {
            K k = this->template read<K>(key, "key");
            if constexpr (std::is_invocable_v<Write, T&, K, V>) {
                std::invoke(write_, static_cast<T&>(object), std::move(k),
                            this->template read<V>(value, "value"));
            } else {
                if (!value.absent()) refuse("value", "no value: its owner makes its members");
                std::invoke(write_, static_cast<T&>(object), std::move(k));
            }
        }
    }
    void memberDel(PtrInterface& object, const Value& key) const override {
        if constexpr (std::is_same_v<Delete, ReadOnly>)
            unfit("lose members");
        else
            std::invoke(delete_, static_cast<T&>(object), this->template read<K>(key, "key"));
    }

  private:
    const Map& map(const PtrInterface& object) const { return map_(static_cast<const T&>(object)); }
    const Map& (*map_)(const T&);
    Write write_;
    Delete delete_;
};

template <class T, class Read>
class QueueAttribute final : public Attribute {
  public:
    QueueAttribute(const char* name, Read reader) : Attribute(name, Shape::queue), read_(reader) {}
    std::vector<Value> keys(const PtrInterface& object) const override {
        std::vector<Value> entries;
        for (const auto& entry : std::invoke(read_, static_cast<const T&>(object)))
            entries.push_back(ValueTraits<std::remove_cvref_t<decltype(entry)>>::of(entry));
        return entries;
    }

  private:
    Read read_;
};

// Builds a type's description, one row per attribute. Readers are data members, member functions or
// captureless lambdas; a collection's reader is a lambda that returns its map.
template <class T>
class TypeBuilder {
  public:
    explicit TypeBuilder(const char* name) { info_.name_ = name; }

    // The type can be a directory entry; `maker` makes one to stand under a name.
    TypeBuilder&& entry(TypeInfo::Maker maker) && {
        info_.maker_ = maker;
        return std::move(*this);
    }
    template <class Read, class Write = ReadOnly>
    TypeBuilder&& scalar(const char* name, Read read, Write write = {}) && {
        return add<ScalarAttribute<T, Read, Write>>(name, Attribute::Shape::scalar, read, write);
    }
    template <class Read, class Write = ReadOnly, class Delete = ReadOnly>
    TypeBuilder&& collection(const char* name, Read map, Write write = {}, Delete del = {}) && {
        return keyed(name, Attribute::Shape::collection, +map, write, del);
    }
    template <class Read, class Write, class Delete>
    TypeBuilder&& instantiating(const char* name, Read map, Write write, Delete del) && {
        return keyed(name, Attribute::Shape::instantiating, +map, write, del);
    }
    template <class Read>
    TypeBuilder&& child(const char* name, Read read) && {
        return add<ScalarAttribute<T, Read, ReadOnly>>(name, Attribute::Shape::child, read,
                                                       ReadOnly());
    }
    template <class Read>
    TypeBuilder&& children(const char* name, Read map) && {
        return keyed(name, Attribute::Shape::children, +map, ReadOnly(), ReadOnly());
    }
    template <class Read>
    TypeBuilder&& queue(const char* name, Read read) && {
        return add<QueueAttribute<T, Read>>(name, read);
    }
    // Makes the row before it a detail.
    TypeBuilder&& detail() && {
        info_.attributes_.back()->detail_ = true;
        return std::move(*this);
    }
    TypeInfo done() && { return std::move(info_); }

  private:
    template <class Row, class... Args>
    TypeBuilder&& add(Args&&... args) {
        info_.attributes_.push_back(std::make_unique<Row>(std::forward<Args>(args)...));
        return std::move(*this);
    }
    template <class K, class V, class Write, class Delete>
    TypeBuilder&& keyed(const char* name, Attribute::Shape shape,
                        const OrderedMap<K, V>& (*map)(const T&), Write write, Delete del) {
        return add<KeyedAttribute<T, K, V, Write, Delete>>(name, shape, map, write, del);
    }

    TypeInfo info_;
};

template <class E>
std::string ValueTraits<Ptr<E>>::expected() {
    if constexpr (requires { Entity::type(); })
        return std::string("the path of a ") + Entity::type().name() + ", or null";
    else
        return "the path of an entity, or null";
}

}  // namespace Orv
