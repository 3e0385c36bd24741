#include "host/Tree.h"

#include <fmt/format.h>

#include <unordered_map>

#include "StageMgr/StageMgrStageClassDirSm.h"
#include "host/Suggest.h"
#include "host/Utf8.h"
#include "model/AgentStatus.h"
#include "model/AgentStatusLocal.h"
#include "model/Types.h"
#include "runtime/ActivityManager.h"
#include "runtime/TreeObserver.h"
#include "runtime/Type.h"

namespace Host {

namespace {

using Object = Orv::Ptr<Orv::PtrInterface>;

// Deeper paths are no start-up's, and what walks the tree would need a stack as deep.
constexpr std::size_t deepest = 64;

constexpr std::string_view managerName = "sm";

Orv::Name readName(std::string_view path, std::string_view written) {
    if (written.find('~') == std::string_view::npos) return written;
    std::string name;
    for (std::size_t i = 0; i < written.size(); ++i) {
        if (written[i] != '~') {
            name += written[i];
            continue;
        }
        const char code = ++i < written.size() ? written[i] : ' ';
        if (code != '0' && code != '1')
            throw PathError(
                "the path " + inQuotes(path) +
                " has a '~' by itself; '~' is written \"~0\", and '/' in a name \"~1\"");
        name += code == '0' ? '~' : '/';
    }
    return name;
}

std::string joined(const std::vector<Orv::Name>& names, std::size_t count) {
    std::string path;
    for (std::size_t i = 0; i < count; ++i) path += "/" + pathName(names[i]);
    return path;
}

void refuseManagers(const std::vector<Orv::Name>& names) {
    if (names.front() == managerName)
        throw PathError(inQuotes(joined(names, names.size())) +
                        " is the manager's own; what stands at and below \"/sm\" is read-only");
}

// What `from` holds under names[at], and under names[at + 1] where that is an attribute's key; `at`
// moves on. Null when it holds nothing there, and `at` stays.
Object step(const Orv::PtrInterface& from, const std::vector<Orv::Name>& names, std::size_t& at) {
    using Shape = Orv::Attribute::Shape;
    if (const auto* const dir = dynamic_cast<const Orv::Dir*>(&from)) {
        Object entry = dir->entityRef(names[at]);
        if (entry) ++at;
        return entry;
    }
    const Orv::TypeInfo* const type = from.typeInfo();
    const Orv::Attribute* const attribute = type != nullptr ? type->attribute(names[at]) : nullptr;
    if (attribute == nullptr) return nullptr;
    Orv::Value held;
    std::size_t length = 0;
    if (attribute->shape() == Shape::child) {
        held = attribute->value(from);
        length = 1;
    } else if (attribute->shape() == Shape::instantiating ||
               attribute->shape() == Shape::children) {
        if (at + 1 >= names.size() || attribute->compositeKeys()) return nullptr;
        held = attribute->member(from, names[at + 1]);
        length = 2;
    }
    if (held.reference() == nullptr || !*held.reference()) return nullptr;
    at += length;
    return *held.reference();
}

// Why the way ends at names[at], below `last`.
std::string nothingThere(const Orv::PtrInterface& last, const std::vector<Orv::Name>& names,
                         std::size_t at) {
    const std::string whole = inQuotes(joined(names, names.size()));
    const std::string here = at == 0 ? "the tree" : inQuotes(joined(names, at));
    std::vector<std::string_view> near;
    if (const auto* const dir = dynamic_cast<const Orv::Dir*>(&last)) {
        for (const auto& [name, entry] : dir->entries()) near.push_back(name);
        const std::string nearest = suggestion(names[at], near);
        return fmt::format("no {} in the tree: {} has no entry {}{}", whole, here,
                           inQuotes(names[at]), nearest.empty() ? "; create it first" : nearest);
    }
    const Orv::TypeInfo* const type = last.typeInfo();
    if (type == nullptr) return fmt::format("no {} in the tree", whole);
    if (const Orv::Attribute* const attribute = type->attribute(names[at]);
        attribute != nullptr && attribute->shape() == Orv::Attribute::Shape::instantiating &&
        at + 1 < names.size())
        return fmt::format("no {} in the tree: the {} of {} has no member {}; set it first", whole,
                           attribute->name(), here, inQuotes(names[at + 1]));
    for (const auto& attribute : type->attributes())
        if (attribute->shape() == Orv::Attribute::Shape::instantiating)
            near.push_back(attribute->name());
    return fmt::format(
        "no {} in the tree: {} is a {}, and {}", whole, here, type->name(),
        near.empty() ? std::string("nothing stands below it")
                     : fmt::format("below it stand the members of its {}", fmt::join(near, ", ")));
}

}  // namespace

// Looks at the manager's record of what is complete as it changes: right then it is known whether
// the agent has said so.
class Tree::Assumptions final : public Orv::TreeObserver {
  public:
    explicit Assumptions(const Tree& tree) : tree_(tree) {}

    bool contains(const Orv::Name& stageClass, const Stage::AgentStatusKey& event) const {
        return find(stageClass, event) != nullptr;
    }
    std::optional<double> reportedLate(const Orv::Name& stageClass,
                                       const Stage::AgentStatusKey& event) const {
        const std::optional<double>* const found = find(stageClass, event);
        return found != nullptr ? *found : std::nullopt;
    }

    void onScalar(const Orv::Entity&, const Orv::Attribute&) override {}
    void onEnqueued(const Orv::Entity&, const Orv::Attribute&) override {}
    void onEntry(const Orv::Dir&, const Orv::Entity&, bool) override {}
    void onMember(const Orv::Entity& entity, const Orv::Attribute&,
                  const Orv::Value& key) override {
        const bool managers = entity.typeInfo() == &Stage::AgentStatusLocal::type();
        const bool agents = entity.typeInfo() == &Stage::AgentStatus::type();
        if (!managers && !agents) return;
        Stage::AgentStatusKey event;
        if (!Orv::ValueTraits<Stage::AgentStatusKey>::read(key, event)) return;
        // Both stand below their class.
        const auto* const parent = dynamic_cast<const Orv::Entity*>(entity.parent());
        if (parent == nullptr) return;
        const Orv::Name stageClass = parent->key();
        if (agents) {
            if (static_cast<const Stage::AgentStatus&>(entity).complete(event))
                reported(stageClass, event);
            return;
        }
        const auto& local = static_cast<const Stage::AgentStatusLocal&>(entity);
        if (local.complete(event) && !tree_.reported(stageClass, event))
            events_[stageClass].try_emplace(event);
        else if (!local.complete().contains(event))
            events_[stageClass].erase(event);
    }

  private:
    const std::optional<double>* find(const Orv::Name& stageClass,
                                      const Stage::AgentStatusKey& event) const {
        const auto events = events_.find(stageClass);
        if (events == events_.end()) return nullptr;
        const auto found = events->second.find(event);
        return found != events->second.end() ? &found->second : nullptr;
    }
    void reported(const Orv::Name& stageClass, const Stage::AgentStatusKey& event) {
        const auto events = events_.find(stageClass);
        if (events == events_.end()) return;
        const auto found = events->second.find(event);
        if (found != events->second.end() && !found->second)
            found->second = Orv::System::currentTime();
    }

    struct Hash {
        std::size_t operator()(const Stage::AgentStatusKey& key) const { return key.hash(); }
        std::size_t operator()(const Orv::Name& name) const { return name.hash(); }
    };
    const Tree& tree_;
    // By class; with the time when the agent reported after all.
    using Events = std::unordered_map<Stage::AgentStatusKey, std::optional<double>, Hash>;
    std::unordered_map<Orv::Name, Events, Hash> events_;
};

bool Tree::reported(const Orv::Name& stageClass, const Stage::AgentStatusKey& event) const {
    const auto agents = agentStatusDir_->entityPtr<Orv::Dir>(stageClass);
    const auto agent = agents ? agents->entityPtr<Stage::AgentStatus>(event.agent) : nullptr;
    return agent && agent->complete(event);
}

bool Tree::assumed(const Orv::Name& stageClass, const Stage::AgentStatusKey& event) const {
    return assumptions_->contains(stageClass, event);
}

std::optional<double> Tree::reportedLate(const Orv::Name& stageClass,
                                         const Stage::AgentStatusKey& event) const {
    return assumptions_->reportedLate(stageClass, event);
}

std::string pathName(std::string_view name) {
    std::string written;
    for (const char c : name) {
        if (c == '~')
            written += "~0";
        else if (c == '/')
            written += "~1";
        else
            written += c;
    }
    return written;
}

std::vector<Orv::Name> pathNames(std::string_view path) {
    if (!path.starts_with('/'))
        throw PathError("the path " + inQuotes(path) + " must begin with '/'");
    std::vector<Orv::Name> names;
    for (std::size_t at = 0; at != std::string_view::npos;) {
        const std::size_t end = path.find('/', at + 1);
        if (names.size() == deepest)
            throw PathError(
                fmt::format("the path {} has more than {} names", inQuotes(path), deepest));
        names.push_back(readName(path, path.substr(at + 1, end - at - 1)));
        at = end;
    }
    return names;
}

Tree::Tree() {
    Stage::registerModelTypes();
    root_ = Orv::make<Orv::Dir>();
    stageDir_ = root_->subdirIs("stage");
    inputDir_ = root_->subdirIs("input");
    agentStatusDir_ = root_->subdirIs("agentstatus");
    enableDir_ = root_->subdirIs("enable");
    globalConfig_ = Orv::make<Stage::StageGlobalConfig>("global");
    root_->entryIs(globalConfig_);
    fatalError_ = Orv::make<Stage::FatalError>("fatalerror");
    root_->entryIs(fatalError_);
    assumptions_ = std::make_unique<Assumptions>(*this);
    start();
}

Tree::~Tree() {
    stop();
    // An entity may refer to a directory that it stands in, and each would keep the other.
    for (const Orv::Name name : root_->entries().walked()) {
        root_->subdirDel(name);
        root_->entryDel(name);
    }
}

void Tree::stop() { manager_ = nullptr; }

void Tree::start() {
    if (manager_) return;
    manager_ = Stage::stageMgrStageClassDirSmFactory(stageDir_, inputDir_, agentStatusDir_,
                                                     enableDir_, globalConfig_, fatalError_);
}

Object Tree::find(std::string_view path) const { return find(pathNames(path)); }

Object Tree::find(const Names& names) const {
    const bool managers = names.front() == managerName;
    Object object = managers ? manager_ : Object(root_);
    for (std::size_t at = managers ? 1 : 0; object && at < names.size();)
        object = step(*object, names, at);
    return object;
}

Orv::Ptr<Orv::Entity> Tree::entity(std::string_view path) const {
    const Names names = pathNames(path);
    refuseManagers(names);
    Orv::Ptr<Orv::Entity> entity = root_;
    for (std::size_t at = 0; at < names.size();) {
        const std::size_t here = at;
        const Object next = step(*entity, names, at);
        auto* const below = dynamic_cast<Orv::Entity*>(next.get());
        if (below == nullptr) throw PathError(nothingThere(*entity, names, here));
        entity = Orv::Ptr<Orv::Entity>(below);
    }
    return entity;
}

Tree::Place Tree::place(std::string_view path) const { return place(pathNames(path)); }

Tree::Place Tree::place(const Names& names) const {
    refuseManagers(names);
    const Names above(names.begin(), names.end() - 1);
    Orv::Ptr<Orv::Dir> dir = root_;
    for (std::size_t at = 0; at < above.size(); ++at) {
        const Orv::Ptr<Orv::Entity> entry = dir->entityRef(above[at]);
        if (!entry) throw PathError(nothingThere(*dir, above, at));
        dir = Orv::Ptr<Orv::Dir>(dynamic_cast<Orv::Dir*>(entry.get()));
        if (!dir)
            throw PathError(
                fmt::format("{} is a {}, not a directory; its members are made by \"set\" and "
                            "removed by \"unset\"",
                            inQuotes(joined(above, at + 1)), entry->info().name()));
    }
    return {dir, names.back()};
}

Tree::Place Tree::entry(std::string_view path) const {
    const Names names = pathNames(path);
    refuseManagers(names);
    return find(names) ? place(names) : Place();
}

}  // namespace Host
