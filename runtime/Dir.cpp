#include "runtime/Dir.h"

#include <string>

namespace Orv {

Dir::~Dir() { orphan(entries_); }

Ptr<Entity> Dir::entryIs(Name name, std::string_view typeName) {
    const TypeInfo* const wanted = TypeRegistry::instance().type(typeName);
    if (wanted == nullptr || wanted->maker() == nullptr)
        throw RangeError("no entity of type \"" + std::string(typeName) + "\" can be made");
    if (const Ptr<Entity>* const held = entries_.find(name))
        return &(*held)->info() == wanted ? *held : nullptr;
    Ptr<Entity> entity = validPtr(wanted->maker()(name));
    entryIs(entity);
    return entity;
}

bool Dir::entryIs(Ptr<Entity> entity) {
    const Name name = entity->key();
    if (entries_.contains(name)) return false;
    entries_.set(name, entity);
    entity->parentIs(this);
    TreeObserver::tell([&](TreeObserver& o) { o.onEntry(*this, *entity, true); });
    told(name);
    return true;
}

Ptr<Dir> Dir::subdirIs(Name name) {
    if (entries_.contains(name)) return entityPtr<Dir>(name);
    Ptr<Dir> dir = make<Dir>(std::move(name));
    entryIs(dir);
    return dir;
}

void Dir::entryDel(Name name) { entityDel(name, false); }
void Dir::subdirDel(Name name) { entityDel(name, true); }

void Dir::entityDel(const Name& name, bool subdir) {
    const DeliveryScope scope;  // what is told first may release this directory
    const Ptr<Entity> entity = entityRef(name);
    if (!entity || (dynamic_cast<Dir*>(entity.get()) != nullptr) != subdir) return;
    entries_.del(name);
    if (!leaving()) TreeObserver::tell([&](TreeObserver& o) { o.onEntry(*this, *entity, false); });
    entity->leave();
    told(name);
}

void Dir::membersDel() {
    entries_.walk([this](Name name) {
        const bool subdir = entityPtr<Dir>(name).operator bool();
        entityDel(name, subdir);
    });
}

void Dir::told(const Name& name) {
    auto tell = [&](NotifieeConst& n) { n.onEntityPtr(name); };
    notify<Dir>(tell);
}

const TypeInfo& Dir::type() {
    static const TypeInfo info =
        TypeBuilder<Dir>("Orv::Dir")
            .entry([](const Name& name) -> Ptr<Entity> { return make<Dir>(name); })
            .done();
    return info;
}

}  // namespace Orv
