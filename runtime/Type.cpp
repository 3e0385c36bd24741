#include "runtime/Type.h"

namespace Orv {

Attribute::~Attribute() = default;

Value Attribute::value(const PtrInterface&) const { unfit("be read as one value"); }
void Attribute::valueIs(PtrInterface&, const Value&) const {
    unfit(keyed() ? "be set without a key" : "be set");
}
std::vector<Value> Attribute::keys(const PtrInterface&) const { unfit("have keys"); }
Value Attribute::member(const PtrInterface&, const Value&) const { unfit("have members"); }
void Attribute::memberIs(PtrInterface&, const Value&, const Value&) const {
    unfit("be set with a key");
}
void Attribute::memberDel(PtrInterface&, const Value&) const { unfit("lose members"); }

void Attribute::refuse(const char* what, const std::string& expected) const {
    throw ReflectionError(std::string("attribute \"") + name_ + "\": the " + what + " must be " +
                          expected);
}

void Attribute::unfit(const char* operation) const {
    throw ReflectionError(std::string("attribute \"") + name_ + "\" cannot " + operation);
}

const Attribute* TypeInfo::attribute(std::string_view name) const {
    for (const auto& attribute : attributes_)
        if (name == attribute->name()) return attribute.get();
    return nullptr;
}

TypeRegistry& TypeRegistry::instance() {
    static TypeRegistry registry;
    return registry;
}

void TypeRegistry::typeIs(const TypeInfo& type) {
    if (this->type(type.name()) == nullptr) types_.push_back(&type);
}

const TypeInfo* TypeRegistry::type(std::string_view name) const {
    for (const TypeInfo* type : types_)
        if (name == type->name()) return type;
    return nullptr;
}

}  // namespace Orv
