// The host's entity tree, with the manager at work on it, and how things in it are found by path.
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "model/AgentStatusKey.h"
#include "model/FatalError.h"
#include "model/StageGlobalConfig.h"
#include "runtime/Dir.h"
#include "runtime/Ptr.h"

namespace Host {

// A path that leads nowhere, or not to what was asked for. The text names the remedy.
class PathError final : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The names between a path's slashes, with "~1" and "~0" read as '/' and '~'. Raises PathError.
std::vector<Orv::Name> pathNames(std::string_view path);

// A name as it is written in a path.
std::string pathName(std::string_view name);

// /stage, /input, /agentstatus and /enable are directories, /global and /fatalerror entities; all
// are made here, and given to the manager, which is made last. Its reactors are found, but never
// changed, below /sm. To be made, used and destroyed in the scope of one activity manager.
class Tree {
  public:
    Tree();
    ~Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    // Drops the manager, and leaves the entities as they are; makes another one on what is there.
    void stop();
    void start();

    const Orv::Ptr<Orv::Dir>& root() const { return root_; }
    const Orv::Ptr<Orv::Dir>& stageDir() const { return stageDir_; }
    const Orv::Ptr<Orv::Dir>& enableDir() const { return enableDir_; }
    const Orv::Ptr<Orv::Dir>& agentStatusDir() const { return agentStatusDir_; }
    const Orv::Ptr<Stage::StageGlobalConfig>& globalConfig() const { return globalConfig_; }
    const Orv::Ptr<Stage::FatalError>& fatalError() const { return fatalError_; }
    // What stands at /sm; null while stopped.
    const Orv::Ptr<Orv::PtrInterface>& manager() const { return manager_; }

    // The entity, directory or reactor that stands there, or null. Raises PathError for what cannot
    // be a path.
    Orv::Ptr<Orv::PtrInterface> find(std::string_view path) const;

    // The entity or directory that stands there, for somebody who wants to write. Raises PathError
    // when there is none, and for everything below /sm.
    Orv::Ptr<Orv::Entity> entity(std::string_view path) const;

    // Whether its agent says that the event is complete.
    bool reported(const Orv::Name& stageClass, const Stage::AgentStatusKey& event) const;
    // Whether the manager has completed that event on its agent's behalf. The entities tell it only
    // until the agent reports after all, and what was assumed is never to be shown as reported.
    bool assumed(const Orv::Name& stageClass, const Stage::AgentStatusKey& event) const;
    // When the agent of such an event reported after all, in seconds; absent: it has not.
    std::optional<double> reportedLate(const Orv::Name& stageClass,
                                       const Stage::AgentStatusKey& event) const;

    // A place in a directory.
    struct Place {
        Orv::Ptr<Orv::Dir> dir;
        Orv::Name name;
    };
    // Whether or not something stands there. Raises PathError when the path's parent is no
    // directory of the tree.
    Place place(std::string_view path) const;
    // The place of what stands there; no directory when nothing does. Raises PathError when it is
    // something else than a directory's entry, and for everything below /sm.
    Place entry(std::string_view path) const;

  private:
    class Assumptions;
    using Names = std::vector<Orv::Name>;
    Orv::Ptr<Orv::PtrInterface> find(const Names& names) const;
    Place place(const Names& names) const;

    Orv::Ptr<Orv::Dir> root_;
    Orv::Ptr<Orv::Dir> stageDir_;
    Orv::Ptr<Orv::Dir> inputDir_;
    Orv::Ptr<Orv::Dir> enableDir_;
    Orv::Ptr<Orv::Dir> agentStatusDir_;
    Orv::Ptr<Stage::StageGlobalConfig> globalConfig_;
    Orv::Ptr<Stage::FatalError> fatalError_;
    std::unique_ptr<Assumptions> assumptions_;
    Orv::Ptr<Orv::PtrInterface> manager_;
};

}  // namespace Host
