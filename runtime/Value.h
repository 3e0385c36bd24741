// A value of any attribute, key or member, for whatever works with types by name.
#pragma once

#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "runtime/Export.h"
#include "runtime/Ptr.h"
#include "runtime/String.h"

namespace Orv {

class Value;

// The fields of a composite key or value, in declaration order.
using ValueFields = std::vector<std::pair<String, Value>>;

// Nothing (absent), a bool, a number, a string (enumerations go by name), a reference to an entity
// (null for none), or the fields of a composite.
class ORV_API Value {
  public:
    using Reference = Ptr<PtrInterface>;

    Value() = default;
    Value(bool b) : held_(b) {}
    Value(double d) : held_(d) {}
    Value(String s) : held_(std::move(s)) {}
    Value(const char* s) : held_(String(s)) {}
    Value(Reference r) : held_(std::move(r)) {}
    Value(ValueFields f) : held_(std::move(f)) {}

    bool absent() const { return std::holds_alternative<std::monostate>(held_); }
    const bool* boolean() const { return std::get_if<bool>(&held_); }
    const double* number() const { return std::get_if<double>(&held_); }
    const String* string() const { return std::get_if<String>(&held_); }
    const Reference* reference() const { return std::get_if<Reference>(&held_); }
    const ValueFields* fields() const { return std::get_if<ValueFields>(&held_); }

    // Field-wise; numbers as ==, references by identity.
    friend bool operator==(const Value& a, const Value& b) { return a.held_ == b.held_; }

  private:
    std::variant<std::monostate, bool, double, String, Reference, ValueFields> held_;
};

// How a C++ type becomes a Value and back: of(t), and read(value, t), which returns false when the
// value is of another kind; `expected` says in words what read takes. A composite type T offers
// `static constexpr auto fields = std::tuple{Field{"agent", &T::agent}, ...}`.
template <class T, class Member>
struct Field {
    const char* name;
    Member T::*member;
};
template <class T, class Member>
Field(const char*, Member T::*) -> Field<T, Member>;

template <class T>
struct ValueTraits {  // composites
    static constexpr bool composite = true;
    static Value of(const T& t) {
        ValueFields fields;
        fields.reserve(std::tuple_size_v<decltype(T::fields)>);
        std::apply(
            [&](const auto&... field) {
                (fields.emplace_back(
                     field.name, ValueTraits<std::remove_cvref_t<decltype(t.*field.member)>>::of(
                                     t.*field.member)),
                 ...);
            },
            T::fields);
        return fields;
    }
    static bool read(const Value& value, T& t) {
        const ValueFields* const fields = value.fields();
        if (fields == nullptr || fields->size() != std::tuple_size_v<decltype(T::fields)>)
            return false;
        return std::apply(
            [&](const auto&... field) { return (readField(*fields, field, t) && ...); }, T::fields);
    }
    static std::string expected() {
        std::string text = "an object of";
        const char* separator = " ";
        std::apply(
            [&](const auto&... field) {
                ((text += separator, text += field.name, separator = ", "), ...);
            },
            T::fields);
        return text;
    }

  private:
    template <class Member>
    static bool readField(const ValueFields& fields, const Field<T, Member>& field, T& t) {
        for (const auto& [name, value] : fields)
            if (name == field.name) return ValueTraits<Member>::read(value, t.*field.member);
        return false;
    }
};

template <>
struct ValueTraits<bool> {
    static constexpr bool composite = false;
    static Value of(bool b) { return b; }
    static bool read(const Value& value, bool& b) {
        if (value.boolean() == nullptr) return false;
        b = *value.boolean();
        return true;
    }
    static std::string expected() { return "true or false"; }
};

template <>
struct ValueTraits<double> {
    static constexpr bool composite = false;
    static Value of(double d) { return d; }
    static bool read(const Value& value, double& d) {
        if (value.number() == nullptr) return false;
        d = *value.number();
        return true;
    }
    static std::string expected() { return "a number"; }
};

template <class S>
struct StringValueTraits {
    static constexpr bool composite = false;
    static Value of(const S& s) { return String(s); }
    static bool read(const Value& value, S& s) {
        if (value.string() == nullptr) return false;
        s = S(*value.string());
        return true;
    }
    static std::string expected() { return "a string"; }
};
template <>
struct ValueTraits<String> : StringValueTraits<String> {};
template <>
struct ValueTraits<Name> : StringValueTraits<Name> {};

// A reference is read only when the entity is of the wanted type; null always is.
template <class E>
struct ValueTraits<Ptr<E>> {
    using Entity = std::remove_const_t<E>;
    static constexpr bool composite = false;
    static Value of(const Ptr<E>& p) { return Value::Reference(const_cast<Entity*>(p.get())); }
    static bool read(const Value& value, Ptr<E>& p) {
        if (value.reference() == nullptr) return false;
        Entity* const entity = dynamic_cast<Entity*>(value.reference()->get());
        if (entity == nullptr && *value.reference()) return false;
        p = Ptr<E>(entity);
        return true;
    }
    static std::string expected();  // in Type.h, which knows the type's name
};

// An enumeration goes by name: specialise EnumNames<E> with an array `names` of pairs {value,
// name}.
template <class E>
struct EnumNames;

template <class E>
requires std::is_enum_v<E>
struct ValueTraits<E> {
    static constexpr bool composite = false;
    static const char* nameOf(E e) {
        for (const auto& [value, name] : EnumNames<E>::names)
            if (value == e) return name;
        return "?";
    }
    static Value of(E e) { return nameOf(e); }
    static bool read(const Value& value, E& e) {
        if (value.string() == nullptr) return false;
        for (const auto& [candidate, name] : EnumNames<E>::names)
            if (*value.string() == name) return e = candidate, true;
        return false;
    }
    static std::string expected() {
        std::string text = "one of";
        for (const auto& [value, name] : EnumNames<E>::names)
            text += std::string(text == "one of" ? " \"" : ", \"") + name + "\"";
        return text;
    }
};

}  // namespace Orv
