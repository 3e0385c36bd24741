// The top of the stage manager: finds the stage classes, and makes a StageMgr for each.
//
// This is what a host starts with: it makes the six arguments of stageMgrStageClassDirSmFactory,
// calls it once, and keeps the pointer for as long as stages are to progress.
#pragma once

#include "StageMgr/AvailableStageSubPaths.h"
#include "StageMgr/StageMgr.h"
#include "StageMgr/StageSubPathSm.h"
#include "model/EnabledConfig.h"
#include "model/FatalError.h"
#include "model/StageGlobalConfig.h"
#include "runtime/Dir.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

// A stage class C is managed once these exist, in whatever order they come:
//
//     stageDir/C/config/config      Config                  stageInputDir/C         directory
//     stageDir/C/status             Status                  stageAgentStatusDir/C   directory
//     stageDir/C/completionstatus   CompletionStatusDir     stageEnableConfigDir/C  EnabledConfig
//     stageDir/C/progress           ProgressDir
//     stageDir/C/log                Log
//
// An entry of another type counts as missing. A class that is managed stays so while this reactor
// lives, whatever becomes of its entries.
class ORV_API StageMgrStageClassDirSm final : public Orv::Reactor {
  public:
    StageMgrStageClassDirSm(Orv::Ptr<Orv::Dir> stageDir, Orv::Ptr<Orv::Dir> stageInputDir,
                            Orv::Ptr<const Orv::Dir> stageAgentStatusDir,
                            Orv::Ptr<const Orv::Dir> stageEnableConfigDir,
                            Orv::Ptr<const StageGlobalConfig> stageGlobalConfig,
                            Orv::Ptr<FatalError> fatalErrorRequest);

    bool initialized() const { return initialized_; }
    // While false, the handlers that need what the constructor sets up return at once.
    void initializedIs(bool initialized) { initialized_ = initialized; }
    const Orv::Ptr<AvailableStageSubPaths>& availableStageSubPath() const {
        return availableStageSubPath_.ptr();
    }
    const Orv::Children<Orv::Name, StageSubPathSm>& stageSubPathSm() const {
        return stageSubPathSm_;
    }
    const Orv::Children<Orv::Name, StageMgr>& stageMgr() const { return stageMgr_; }

    // Each watches another entity instead; what is there is looked at at once.
    void stageDirIs(Orv::Ptr<Orv::Dir> stageDir);
    void stageInputDirIs(Orv::Ptr<Orv::Dir> stageInputDir);
    void stageAgentStatusDirIs(Orv::Ptr<const Orv::Dir> stageAgentStatusDir);
    void stageEnableConfigDirIs(Orv::Ptr<const Orv::Dir> stageEnableConfigDir);
    // Except this, on purpose: only a class that is published from now on is made.
    void availableStageSubPathIs(Orv::Ptr<AvailableStageSubPaths> availableStageSubPath);

    // Refused with NameInUseError when one exists with other arguments.
    Orv::Ptr<StageSubPathSm> stageSubPathSmIs(
        Orv::Name name, Orv::Ptr<const Orv::Dir> stageClassDir,
        Orv::Ptr<AvailableStageSubPaths> availableStageSubPath);
    void stageSubPathSmDel(Orv::Name name) { stageSubPathSm_.del(name); }
    // Returns the one that is there, or makes one.
    Orv::Ptr<StageMgr> stageMgrIs(Orv::Name name);

    void handleInitialized();
    void handleStage();
    void handleStageInput();
    void handleStageAgentStatus();
    void handleStageEnableConfig();
    void handleStageClass(Orv::Name stageClass);
    void handleStageSubPath(Orv::Name stageClass);

    // Where reactors stand in paths.
    Orv::String path() const override { return "/sm"; }

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvStageDir final : public Orv::Watch<Orv::Dir, StageMgrStageClassDirSm> {
      public:
        using Watch::Watch;
        void onEntityPtr(Orv::Name name) override { sm().handleStageClass(name); }
        void onEntityPtr(Orv::Immediate) override { sm().handleStage(); }
    };
    class OrvStageInputDir final : public Orv::Watch<Orv::Dir, StageMgrStageClassDirSm> {
      public:
        using Watch::Watch;
        void onEntityPtr(Orv::Name name) override { sm().handleStageClass(name); }
        void onEntityPtr(Orv::Immediate) override { sm().handleStageInput(); }
    };
    class OrvStageAgentStatusDir final : public Orv::Watch<Orv::Dir, StageMgrStageClassDirSm> {
      public:
        using Watch::Watch;
        void onEntityPtr(Orv::Name name) override { sm().handleStageClass(name); }
        void onEntityPtr(Orv::Immediate) override { sm().handleStageAgentStatus(); }
    };
    class OrvStageEnableConfigDir final : public Orv::Watch<Orv::Dir, StageMgrStageClassDirSm> {
      public:
        using Watch::Watch;
        void onEntityPtr(Orv::Name name) override { sm().handleStageClass(name); }
        void onEntityPtr(Orv::Immediate) override { sm().handleStageEnableConfig(); }
    };
    class OrvAvailableStageSubPath final
        : public Orv::Watch<AvailableStageSubPaths, StageMgrStageClassDirSm> {
      public:
        using Watch::Watch;
        void onStageSubPath(Orv::Name name) override { sm().handleStageSubPath(name); }
    };

    // The top-level places of a class; those that are missing are null.
    struct TopLevel {
        Orv::Ptr<Orv::Dir> stage;
        Orv::Ptr<Orv::Dir> input;
        Orv::Ptr<const Orv::Dir> agentStatus;
        Orv::Ptr<const EnabledConfig> enabled;
        bool complete() const { return stage && input && agentStatus && enabled; }
    };
    TopLevel topLevel(const Orv::Name& stageClass) const;
    void handleStageClasses(Orv::Ptr<const Orv::Dir> dir);

    void dismantle() override;

    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig_;
    Orv::Ptr<FatalError> fatalErrorRequest_;
    Orv::Children<Orv::Name, StageSubPathSm> stageSubPathSm_;
    Orv::Children<Orv::Name, StageMgr> stageMgr_;
    bool initialized_ = false;
    Orv::WatchSlot<OrvAvailableStageSubPath, AvailableStageSubPaths> availableStageSubPath_;
    Orv::WatchSlot<OrvStageEnableConfigDir, const Orv::Dir> stageEnableConfigDir_;
    Orv::WatchSlot<OrvStageAgentStatusDir, const Orv::Dir> stageAgentStatusDir_;
    Orv::WatchSlot<OrvStageInputDir, Orv::Dir> stageInputDir_;
    Orv::WatchSlot<OrvStageDir, Orv::Dir> stageDir_;
};

// The library's entry point. It registers the library's types, too.
ORV_API Orv::Ptr<StageMgrStageClassDirSm> stageMgrStageClassDirSmFactory(
    Orv::Ptr<Orv::Dir> stageDir, Orv::Ptr<Orv::Dir> stageInputDir,
    Orv::Ptr<const Orv::Dir> stageAgentStatusDir, Orv::Ptr<const Orv::Dir> stageEnableConfigDir,
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest);

}  // namespace Stage
