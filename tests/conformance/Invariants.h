// What is true of a manager whatever is done to it. Looked at in the library itself, by its public
// headers, so that a mistake which the model shares is seen as well.
#pragma once

#include <functional>
#include <string>

#include "StageMgr/StageMgrStageClassDirSm.h"
#include "host/Tree.h"
#include "model/InstanceLog.h"

namespace conformance {

class Invariants {
  public:
    using Report = std::function<void(const std::string& broken)>;

    // The tree must outlive this; its manager may be made anew meanwhile.
    Invariants(const Host::Tree& tree, Report report);

    // The manager has written a line to an instance's log; its handler is still running. A stage
    // starts only after everything it depends on is complete, and the stages are complete only when
    // all are.
    void onLog(const Stage::InstanceLog& log);
    // The manager has written an attribute. Nobody asks for a reboot while one is asked for.
    void onScalar(const Orv::Entity& entity, const Orv::Attribute& attribute);
    // An input has been applied, with all that it led to.
    void onInput();
    // No handler is running. Whatever stands under a name bears it, and knows where it stands; a
    // stage of an instance has the reactor that waits for it, or the one that runs it, and never
    // both.
    void onStanding();
    // The same after a handler was cut off: what it should have made may be missing.
    void onStandingCutOff();

  private:
    void expect(bool holds, const std::string& broken) {
        if (!holds) report_(broken);
    }
    void onEntity(const Orv::Entity& entity);
    void onStageMgr(const Orv::Name& stageClass, const Stage::StageMgr& manager);
    void onConfigSm(const std::string& path, const Stage::ConfigSm& configSm);
    void onInstance(const std::string& path, const Orv::Name& name,
                    const Stage::InstanceStatusSm& instance, const Stage::StageMgr& manager);

    // Null while there is none.
    const Stage::StageMgrStageClassDirSm* top() const;

    const Host::Tree& tree_;
    Report report_;
    bool rebootAsked_ = false;
    bool cutOff_ = false;
};

}  // namespace conformance
