#include "StageMgr/StageSubPathSm.h"

#include "StageMgr/ClassDirTraceUnit.h"
#include "model/CompletionStatusDir.h"
#include "model/Log.h"
#include "model/ProgressDir.h"
#include "model/Status.h"

namespace Stage {

StageSubPathSm::StageSubPathSm(Orv::Name name, Orv::Ptr<const Orv::Dir> stageClassDir,
                               Orv::Ptr<AvailableStageSubPaths> availableStageSubPath)
    : name_(std::move(name)), availableStageSubPath_(std::move(availableStageSubPath)) {
    stageClassDir_.is(*this, std::move(stageClassDir));
    handleInitialized();
}

void StageSubPathSm::handleInitialized() {
    TRACE(6, " ", name_);
    initialized_ = true;
    handleStageClassDir();
}

void StageSubPathSm::stageClassDirIs(Orv::Ptr<const Orv::Dir> stageClassDir) {
    if (stageClassDir_.is(*this, std::move(stageClassDir)) && stageClassDir_)
        stageClassDir_.watch()->onEntityPtr(Orv::Immediate());
}

void StageSubPathSm::handleStageClassDir() {
    TRACE(6, " ", name_);
    if (!initialized_ || !stageClassDir_) return;
    const Orv::Ptr<const Orv::Dir> dir = stageClassDir_.ptr();
    dir->entries().walk([this](Orv::Name entry) { handleStageClassDir(entry); });
}

void StageSubPathSm::handleStageClassDir(Orv::Name entry) {
    TRACE(6, " Orv::Dir name: ", entry);
    if (!initialized_ || retired() || !stageClassDir_ || !availableStageSubPath_) return;
    const Orv::Dir& dir = *stageClassDir_.get();
    // Whether "config" holds a Config is not asked here, on purpose: it is when the class is made.
    if (dir.entityPtr<Orv::Dir>("config") && dir.entityPtr<Status>("status") &&
        dir.entityPtr<CompletionStatusDir>("completionstatus") &&
        dir.entityPtr<ProgressDir>("progress") && dir.entityPtr<Log>("log"))
        availableStageSubPath_->stageSubPathIs(name_, true);
}

Orv::Ptr<StageSubPathSm> stageSubPathSmFactory(
    Orv::Name name, Orv::Ptr<const Orv::Dir> stageClassDir,
    Orv::Ptr<AvailableStageSubPaths> availableStageSubPath) {
    return Orv::validPtr(Orv::make<StageSubPathSm>(std::move(name), std::move(stageClassDir),
                                                   std::move(availableStageSubPath)));
}

const Orv::TypeInfo& StageSubPathSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageSubPathSm>("Stage::StageSubPathSm")
            .scalar("name", &StageSubPathSm::name_)
            .detail()
            .scalar("stageClassDir", [](const StageSubPathSm& s) { return s.stageClassDir_.ptr(); })
            .detail()
            .scalar("availableStageSubPath", &StageSubPathSm::availableStageSubPath_)
            .detail()
            .scalar("initialized", &StageSubPathSm::initialized_)
            .done();
    return info;
}

}  // namespace Stage
