// Waits until a stage class has its own entries.
#pragma once

#include "StageMgr/AvailableStageSubPaths.h"
#include "runtime/Dir.h"
#include "runtime/Notifiee.h"
#include "runtime/Reactor.h"

namespace Stage {

// The class directory's reactor owns one per stage class that has its top-level places. It watches
// the class's directory and publishes the class when the entries are there.
class ORV_API StageSubPathSm final : public Orv::Reactor {
  public:
    StageSubPathSm(Orv::Name name, Orv::Ptr<const Orv::Dir> stageClassDir,
                   Orv::Ptr<AvailableStageSubPaths> availableStageSubPath);

    std::tuple<Orv::Name, Orv::Ptr<const Orv::Dir>, Orv::Ptr<AvailableStageSubPaths>> arguments()
        const {
        return {name_, stageClassDir_.ptr(), availableStageSubPath_};
    }
    static constexpr std::array<const char*, 3> argumentNames{"name", "stageClassDir",
                                                              "availableStageSubPath"};
    const Orv::Name& name() const { return name_; }
    bool initialized() const { return initialized_; }
    // While false, the handlers that need what the constructor sets up return at once.
    void initializedIs(bool initialized) { initialized_ = initialized; }
    // Watches another directory instead; what is there is looked at at once.
    void stageClassDirIs(Orv::Ptr<const Orv::Dir> stageClassDir);

    void handleInitialized();
    void handleStageClassDir();
    void handleStageClassDir(Orv::Name entry);

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    class OrvStageClassDir final : public Orv::Watch<Orv::Dir, StageSubPathSm> {
      public:
        using Watch::Watch;
        void onEntityPtr(Orv::Name entry) override { sm().handleStageClassDir(entry); }
        void onEntityPtr(Orv::Immediate) override { sm().handleStageClassDir(); }
    };

    void dismantle() override { stageClassDir_.disconnect(); }

    Orv::Name name_;
    Orv::Ptr<AvailableStageSubPaths> availableStageSubPath_;
    bool initialized_ = false;
    Orv::WatchSlot<OrvStageClassDir, const Orv::Dir> stageClassDir_;
};

ORV_API Orv::Ptr<StageSubPathSm> stageSubPathSmFactory(
    Orv::Name name, Orv::Ptr<const Orv::Dir> stageClassDir,
    Orv::Ptr<AvailableStageSubPaths> availableStageSubPath);

}  // namespace Stage
