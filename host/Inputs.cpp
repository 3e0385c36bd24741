#include "host/Inputs.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "host/Suggest.h"
#include "host/Utf8.h"
#include "runtime/Error.h"

namespace Host {

namespace {

using Shape = Orv::Attribute::Shape;

// Marks the change that is about to be made as the host's own, for as long as it lives.
class OwnChange {
  public:
    OwnChange(FeedObserver& observer, const Orv::Entity& entity, const Orv::Attribute* attribute)
        : observer_(observer) {
        observer_.ownChangeIs(&entity, attribute);
    }
    ~OwnChange() { observer_.ownChangeIs(nullptr, nullptr); }
    OwnChange(const OwnChange&) = delete;
    OwnChange& operator=(const OwnChange&) = delete;

  private:
    FeedObserver& observer_;
};

const Orv::Attribute& attributeOf(const Orv::Entity& entity, const std::string& name) {
    const Orv::TypeInfo& type = entity.info();
    if (const Orv::Attribute* const attribute = type.attribute(name)) return *attribute;
    std::vector<std::string_view> names;
    for (const auto& attribute : type.attributes()) names.push_back(attribute->name());
    std::string remedy = suggestion(name, names);
    if (remedy.empty())
        remedy =
            names.empty() ? "; it has none" : fmt::format("; it has {}", fmt::join(names, ", "));
    throw MalformedInput(
        fmt::format("{} has no attribute {}{}", type.name(), inQuotes(name), remedy));
}

const Orv::TypeInfo& entryType(const std::string& name) {
    const std::vector<const Orv::TypeInfo*>& types = Orv::TypeRegistry::instance().types();
    std::vector<std::string_view> names;
    for (const Orv::TypeInfo* type : types) {
        if (type->maker() != nullptr && name == type->name()) return *type;
        if (type->maker() != nullptr) names.push_back(type->name());
    }
    if (Orv::TypeRegistry::instance().type(name) != nullptr)
        throw MalformedInput(fmt::format("a {} cannot be a directory's entry; there are {}", name,
                                         fmt::join(names, ", ")));
    const std::string nearest = suggestion(name, names);
    throw MalformedInput(fmt::format(
        "no type {}{}", inQuotes(name),
        nearest.empty() ? fmt::format("; there are {}", fmt::join(names, ", ")) : nearest));
}

bool readNumber(const Json& json, double& number) {
    if (json.number() != nullptr) return number = *json.number(), true;
    if (json.string() == nullptr) return false;
    constexpr double infinity = std::numeric_limits<double>::infinity();
    if (*json.string() == "inf") return number = infinity, true;
    if (*json.string() == "-inf") return number = -infinity, true;
    if (*json.string() == "nan") return number = std::numeric_limits<double>::quiet_NaN(), true;
    return false;
}

}  // namespace

void Inputs::apply(const Input& input) try {
    switch (input.op) {
        case Input::Op::create: return create(input);
        case Input::Op::del: return del(input);
        case Input::Op::set: return set(input);
        case Input::Op::unset: return unset(input);
        case Input::Op::clear: return clear(input);
        case Input::Op::settle:
        case Input::Op::end: return;
    }
} catch (const PathError& e) {
    throw MalformedInput(e.what());
} catch (const Orv::ReflectionError& e) {
    throw MalformedInput(e.what());
}

Orv::Ptr<Orv::Entity> Inputs::entityAt(const std::string& path) {
    // An entity without a parent has left the tree, and perhaps another stands there now.
    if (lastEntity_ && lastEntity_->parent() != nullptr && path == lastPath_) return lastEntity_;
    lastEntity_ = tree_.entity(path);
    lastPath_ = path;
    return lastEntity_;
}

void Inputs::create(const Input& input) {
    const Tree::Place place = tree_.place(input.path);
    const Orv::TypeInfo& type = entryType(input.type);
    if (const Orv::Ptr<Orv::Entity> held = place.dir->entityRef(place.name)) {
        if (&held->info() == &type) return;
        throw MalformedInput(fmt::format("{} is a {} already; delete it first",
                                         inQuotes(input.path), held->info().name()));
    }
    const OwnChange own(observer_, *place.dir, nullptr);
    place.dir->entryIs(place.name, type.name());
}

void Inputs::del(const Input& input) {
    const Tree::Place place = tree_.entry(input.path);
    if (!place.dir) return;
    const OwnChange own(observer_, *place.dir, nullptr);
    if (place.dir->entityPtr<Orv::Dir>(place.name))
        place.dir->subdirDel(place.name);
    else
        place.dir->entryDel(place.name);
}

void Inputs::set(const Input& input) {
    const Orv::Ptr<Orv::Entity> entity = entityAt(input.path);
    const Orv::Attribute& attribute = attributeOf(*entity, input.attr);
    const auto refuse = [&](const char* why) {
        throw MalformedInput(
            fmt::format("\"{}\" of {} {}", attribute.name(), entity->info().name(), why));
    };
    if (attribute.shape() == Shape::queue) refuse("is appended to by the manager alone");
    if (attribute.keyed() && !input.key) refuse("is a collection: \"set\" needs \"key\"");
    if (!attribute.keyed() && input.key) refuse("is no collection: leave out \"key\"");
    if (attribute.shape() == Shape::instantiating && input.value)
        refuse("makes its members itself: leave out \"value\"");
    if (attribute.shape() != Shape::instantiating && !input.value) refuse("needs \"value\"");

    const Orv::Value key =
        input.key ? read(*input.key, attribute.keyKind(), {"the key"}) : Orv::Value();
    const Orv::Value value =
        input.value ? read(*input.value, attribute.valueKind(), {"the value"}) : Orv::Value();
    const OwnChange own(observer_, *entity, &attribute);
    if (attribute.keyed())
        attribute.memberIs(*entity, key, value);
    else
        attribute.valueIs(*entity, value);
}

void Inputs::unset(const Input& input) {
    const Orv::Ptr<Orv::Entity> entity = entityAt(input.path);
    const Orv::Attribute& attribute = attributeOf(*entity, input.attr);
    if (!attribute.keyed())
        throw MalformedInput(fmt::format("\"{}\" of {} is no collection; \"unset\" removes members",
                                         attribute.name(), entity->info().name()));
    const Orv::Value key = read(*input.key, attribute.keyKind(), {"the key"});
    const OwnChange own(observer_, *entity, &attribute);
    attribute.memberDel(*entity, key);
}

void Inputs::clear(const Input& input) {
    const Orv::Ptr<Orv::Entity> entity = entityAt(input.path);
    const Orv::Attribute& attribute = attributeOf(*entity, input.attr);
    if (!attribute.keyed())
        throw MalformedInput(fmt::format("\"{}\" of {} is no collection; \"clear\" removes members",
                                         attribute.name(), entity->info().name()));
    // The keys as they are now: what the manager adds in answer stays.
    for (const Orv::Value& key : attribute.keys(*entity)) {
        const OwnChange own(observer_, *entity, &attribute);
        attribute.memberDel(*entity, key);
    }
}

std::string Inputs::Part::text() const {
    return field.empty() ? std::string(whole) : fmt::format("\"{}\" of {}", field, whole);
}

// The value of the same kind as `kind`.
Orv::Value Inputs::read(const Json& json, const Orv::Value& kind, const Part& part) const {
    const auto must = [&](const char* be) -> MalformedInput {
        return MalformedInput(part.text() + " must be " + be);
    };
    if (kind.boolean() != nullptr) {
        if (json.boolean() == nullptr) throw must("true or false");
        return *json.boolean();
    }
    if (kind.number() != nullptr) {
        double number = 0;
        if (!readNumber(json, number)) throw must(R"(a number, or "inf", "-inf" or "nan")");
        return number;
    }
    if (kind.reference() != nullptr) {
        if (json.null()) return Orv::Value::Reference();
        if (json.string() == nullptr) throw must("the path of an entity, or null");
        return Orv::Value::Reference(tree_.entity(*json.string()));
    }
    if (kind.fields() != nullptr) return readFields(json, *kind.fields(), part);
    if (json.string() == nullptr) throw must("a string");
    return Orv::String(*json.string());
}

Orv::Value Inputs::readFields(const Json& json, const Orv::ValueFields& kinds,
                              const Part& part) const {
    const auto refuse = [&](const std::string& why) {
        std::vector<std::string_view> names;
        for (const auto& [name, kind] : kinds) names.push_back(name);
        throw MalformedInput(
            fmt::format("{} {}; it is an object of {}", part.text(), why, fmt::join(names, ", ")));
    };
    if (json.object() == nullptr) refuse("is no object");
    Orv::ValueFields fields;
    fields.reserve(kinds.size());
    for (const auto& [name, kind] : kinds) {
        const Json* const field = json.member(name);
        if (field == nullptr) refuse(fmt::format("needs \"{}\"", name.view()));
        fields.emplace_back(name, read(*field, kind, {part.whole, name}));
    }
    if (json.object()->size() > kinds.size())
        for (const auto& [given, value] : *json.object())
            if (std::none_of(kinds.begin(), kinds.end(), [&field = given](const auto& kind) {
                    return kind.first.view() == field;
                }))
                refuse("has no field " + inQuotes(given));
    return fields;
}

}  // namespace Host
