#include "runtime/Entity.h"

#include <new>
#include <string>

namespace Orv {

Entity::~Entity() = default;

namespace {

std::string escaped(std::string_view name) {
    std::string text;
    for (const char c : name) {
        if (c == '~')
            text += "~0";
        else if (c == '/')
            text += "~1";
        else
            text += c;
    }
    return text;
}

}  // namespace

void Entity::parentIs(const PtrInterface* parent, const char* attribute, bool single) {
    if (parent == nullptr && parent_ != nullptr) {
        try {
            stoodAt_ = path();
        } catch (const std::bad_alloc&) {
            // It goes all the same, and has forgotten where it stood.
        }
    }
    stood_ = stood_ || parent_ != nullptr;
    parent_ = parent;
    attribute_ = attribute;
    single_ = single;
}

String Entity::path() const {
    if (parent_ == nullptr) return stoodAt_;
    std::string text = parent_->path().str();
    if (attribute_ != nullptr) (text += '/') += attribute_;
    if (!single_) (text += '/') += escaped(key_);
    return text;
}

void Entity::leave() {
    parentIs(nullptr);
    leaving_ = true;
    membersDel();
    leaving_ = false;
}

void Entity::observeScalar(const char* attribute) const {
    if (leaving_) return;
    const Attribute* const row = info().attribute(attribute);
    assertThat(row != nullptr, "row != nullptr");
    TreeObserver::tell([&](TreeObserver& o) { o.onScalar(*this, *row); });
}

void Entity::observeMember(const char* attribute, const Value& key) const {
    if (leaving_) return;
    const Attribute* const row = info().attribute(attribute);
    assertThat(row != nullptr, "row != nullptr");
    TreeObserver::tell([&](TreeObserver& o) { o.onMember(*this, *row, key); });
}

void Entity::observeEnqueued(const char* attribute) const {
    if (leaving_) return;
    const Attribute* const row = info().attribute(attribute);
    assertThat(row != nullptr, "row != nullptr");
    TreeObserver::tell([&](TreeObserver& o) { o.onEnqueued(*this, *row); });
}

}  // namespace Orv
