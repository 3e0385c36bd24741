#include "StageMgr/StageMgrStageClassDirSm.h"

#include "StageMgr/ClassDirTraceUnit.h"
#include "StageMgr/Types.h"

namespace Stage {

StageMgrStageClassDirSm::StageMgrStageClassDirSm(
    Orv::Ptr<Orv::Dir> stageDir, Orv::Ptr<Orv::Dir> stageInputDir,
    Orv::Ptr<const Orv::Dir> stageAgentStatusDir, Orv::Ptr<const Orv::Dir> stageEnableConfigDir,
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest)
    : stageGlobalConfig_(std::move(stageGlobalConfig)),
      fatalErrorRequest_(std::move(fatalErrorRequest)) {
    stageDir_.is(*this, std::move(stageDir));
    stageInputDir_.is(*this, std::move(stageInputDir));
    stageAgentStatusDir_.is(*this, std::move(stageAgentStatusDir));
    stageEnableConfigDir_.is(*this, std::move(stageEnableConfigDir));
    handleInitialized();
}

void StageMgrStageClassDirSm::dismantle() {
    stageDir_.disconnect();
    stageInputDir_.disconnect();
    stageAgentStatusDir_.disconnect();
    stageEnableConfigDir_.disconnect();
    availableStageSubPath_.disconnect();
    stageSubPathSm_.delAll();
    stageMgr_.map().walk([this](Orv::Name name) {
        const Orv::Ptr<StageMgr> manager(stageMgr_.find(name));
        stageMgr_.del(name);
        manager->parentIs(nullptr);
    });
}

void StageMgrStageClassDirSm::handleInitialized() {
    TRACE(6);
    // First, so that the handlers that the walks call do their work.
    initialized_ = true;
    availableStageSubPathIs(Orv::make<AvailableStageSubPaths>());
    handleStage();
    handleStageInput();
    handleStageAgentStatus();
    handleStageEnableConfig();
}

void StageMgrStageClassDirSm::stageDirIs(Orv::Ptr<Orv::Dir> stageDir) {
    if (stageDir_.is(*this, std::move(stageDir)) && stageDir_)
        stageDir_.watch()->onEntityPtr(Orv::Immediate());
}

void StageMgrStageClassDirSm::stageInputDirIs(Orv::Ptr<Orv::Dir> stageInputDir) {
    if (stageInputDir_.is(*this, std::move(stageInputDir)) && stageInputDir_)
        stageInputDir_.watch()->onEntityPtr(Orv::Immediate());
}

void StageMgrStageClassDirSm::stageAgentStatusDirIs(Orv::Ptr<const Orv::Dir> stageAgentStatusDir) {
    if (stageAgentStatusDir_.is(*this, std::move(stageAgentStatusDir)) && stageAgentStatusDir_)
        stageAgentStatusDir_.watch()->onEntityPtr(Orv::Immediate());
}

void StageMgrStageClassDirSm::stageEnableConfigDirIs(
    Orv::Ptr<const Orv::Dir> stageEnableConfigDir) {
    if (stageEnableConfigDir_.is(*this, std::move(stageEnableConfigDir)) && stageEnableConfigDir_)
        stageEnableConfigDir_.watch()->onEntityPtr(Orv::Immediate());
}

void StageMgrStageClassDirSm::availableStageSubPathIs(
    Orv::Ptr<AvailableStageSubPaths> availableStageSubPath) {
    availableStageSubPath_.is(*this, std::move(availableStageSubPath));
}

void StageMgrStageClassDirSm::handleStage() {
    TRACE(6);
    handleStageClasses(stageDir_.ptr());
}

void StageMgrStageClassDirSm::handleStageInput() {
    TRACE(6);
    handleStageClasses(stageInputDir_.ptr());
}

void StageMgrStageClassDirSm::handleStageAgentStatus() {
    TRACE(6);
    handleStageClasses(stageAgentStatusDir_.ptr());
}

void StageMgrStageClassDirSm::handleStageEnableConfig() {
    TRACE(6);
    handleStageClasses(stageEnableConfigDir_.ptr());
}

void StageMgrStageClassDirSm::handleStageClasses(Orv::Ptr<const Orv::Dir> dir) {
    if (!initialized_ || !dir) return;
    dir->entries().walk([this](Orv::Name name) { handleStageClass(name); });
}

StageMgrStageClassDirSm::TopLevel StageMgrStageClassDirSm::topLevel(
    const Orv::Name& stageClass) const {
    TopLevel found;
    if (stageDir_) found.stage = stageDir_->entityPtr<Orv::Dir>(stageClass);
    if (stageInputDir_) found.input = stageInputDir_->entityPtr<Orv::Dir>(stageClass);
    if (stageAgentStatusDir_)
        found.agentStatus = stageAgentStatusDir_->entityPtr<Orv::Dir>(stageClass);
    if (stageEnableConfigDir_)
        found.enabled = stageEnableConfigDir_->entityPtr<EnabledConfig>(stageClass);
    return found;
}

void StageMgrStageClassDirSm::handleStageClass(Orv::Name stageClass) {
    TRACE(6, " StageClass: ", stageClass);
    if (!initialized_ || retired()) return;
    const TopLevel top = topLevel(stageClass);
    if (!top.complete()) return;
    TRACE(6, " Top level required paths available.");
    stageSubPathSmIs(stageClass, top.stage, availableStageSubPath());
}

// Runs inside the watcher's own construction when everything is there already; the watcher is then
// stored after its manager was made, and stays, on purpose: publishing the class again tells
// nobody.
void StageMgrStageClassDirSm::handleStageSubPath(Orv::Name stageClass) {
    TRACE(6, " StageClass: ", stageClass);
    if (!initialized_ || retired()) return;
    const TopLevel top = topLevel(stageClass);
    if (!top.complete()) return;
    const Orv::Ptr<Orv::Dir> configDir = top.stage->entityPtr<Orv::Dir>("config");
    const Orv::Ptr<Config> config = configDir ? configDir->entityPtr<Config>("config") : nullptr;
    const Orv::Ptr<Status> status = top.stage->entityPtr<Status>("status");
    const Orv::Ptr<CompletionStatusDir> completionStatusDir =
        top.stage->entityPtr<CompletionStatusDir>("completionstatus");
    const Orv::Ptr<ProgressDir> progressDir = top.stage->entityPtr<ProgressDir>("progress");
    const Orv::Ptr<Log> log = top.stage->entityPtr<Log>("log");
    if (!config || !status || !completionStatusDir || !progressDir || !log) return;

    TRACE(6, " All required paths available. ", "Creating StageMgr.");
    stageSubPathSmDel(stageClass);
    const Orv::Ptr<StageMgr> manager = stageMgrIs(stageClass);
    manager->configSmIs(config, status, top.input, top.agentStatus, manager->agentStatusLocal());
    if (retired()) return;
    manager->statusSmIs(config, top.enabled, status, completionStatusDir, progressDir, log,
                        stageGlobalConfig_, fatalErrorRequest_, manager->agentStatusLocal());
    TRACE(6, " Created StageMgr for StageClass: ", stageClass);
}

Orv::Ptr<StageSubPathSm> StageMgrStageClassDirSm::stageSubPathSmIs(
    Orv::Name name, Orv::Ptr<const Orv::Dir> stageClassDir,
    Orv::Ptr<AvailableStageSubPaths> availableStageSubPath) {
    return stageSubPathSm_.keepOrRefuse(
        *this, name, std::tuple(name, stageClassDir, availableStageSubPath),
        [&] { return stageSubPathSmFactory(name, stageClassDir, availableStageSubPath); });
}

Orv::Ptr<StageMgr> StageMgrStageClassDirSm::stageMgrIs(Orv::Name name) {
    if (StageMgr* const held = stageMgr_.find(name)) return Orv::Ptr<StageMgr>(held);
    Orv::Ptr<StageMgr> manager =
        stageMgr_.keepOrMake(*this, name, [&] { return stageMgrFactory(name); });
    manager->parentIs(this, "stageMgr");
    return manager;
}

Orv::Ptr<StageMgrStageClassDirSm> stageMgrStageClassDirSmFactory(
    Orv::Ptr<Orv::Dir> stageDir, Orv::Ptr<Orv::Dir> stageInputDir,
    Orv::Ptr<const Orv::Dir> stageAgentStatusDir, Orv::Ptr<const Orv::Dir> stageEnableConfigDir,
    Orv::Ptr<const StageGlobalConfig> stageGlobalConfig, Orv::Ptr<FatalError> fatalErrorRequest) {
    registerTypes();
    return Orv::validPtr(Orv::make<StageMgrStageClassDirSm>(
        std::move(stageDir), std::move(stageInputDir), std::move(stageAgentStatusDir),
        std::move(stageEnableConfigDir), std::move(stageGlobalConfig),
        std::move(fatalErrorRequest)));
}

const Orv::TypeInfo& StageMgrStageClassDirSm::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<StageMgrStageClassDirSm>("Stage::StageMgrStageClassDirSm")
            .scalar("stageDir", [](const StageMgrStageClassDirSm& s) { return s.stageDir_.ptr(); })
            .detail()
            .scalar("stageInputDir",
                    [](const StageMgrStageClassDirSm& s) { return s.stageInputDir_.ptr(); })
            .detail()
            .scalar("stageAgentStatusDir",
                    [](const StageMgrStageClassDirSm& s) { return s.stageAgentStatusDir_.ptr(); })
            .detail()
            .scalar("stageEnableConfigDir",
                    [](const StageMgrStageClassDirSm& s) { return s.stageEnableConfigDir_.ptr(); })
            .detail()
            .scalar("stageGlobalConfig", &StageMgrStageClassDirSm::stageGlobalConfig_)
            .detail()
            .scalar("fatalErrorRequest", &StageMgrStageClassDirSm::fatalErrorRequest_)
            .detail()
            .scalar("initialized", &StageMgrStageClassDirSm::initialized_)
            .child("availableStageSubPath", &StageMgrStageClassDirSm::availableStageSubPath)
            .children(
                "stageSubPathSm", [](const StageMgrStageClassDirSm& s) -> const auto& {
                    return s.stageSubPathSm_.map();
                })
            .children(
                "stageMgr",
                [](const StageMgrStageClassDirSm& s) -> const auto& { return s.stageMgr_.map(); })
            .done();
    return info;
}

}  // namespace Stage
