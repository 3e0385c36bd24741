#include "StageMgr/Types.h"

#include "StageMgr/AgentStatusSm.h"
#include "StageMgr/AutoCompleteSm.h"
#include "StageMgr/AvailablePaths.h"
#include "StageMgr/AvailableStageSubPaths.h"
#include "StageMgr/ConfigSm.h"
#include "StageMgr/InstanceStatusSm.h"
#include "StageMgr/LogSm.h"
#include "StageMgr/StageEnableSm.h"
#include "StageMgr/StageMgr.h"
#include "StageMgr/StageMgrStageClassDirSm.h"
#include "StageMgr/StageSm.h"
#include "StageMgr/StageSubPathSm.h"
#include "StageMgr/StatusSm.h"
#include "model/Types.h"
#include "runtime/Type.h"

namespace Stage {

namespace {

// The source unit `StageMgr`.
void registerStageMgr(Orv::TypeRegistry& registry) {
    registry.typeIs(StageSm::type());
    registry.typeIs(LogSm::type());
    registry.typeIs(AutoCompleteSm::type());
    registry.typeIs(InstanceStatusSm::type());
    registry.typeIs(StageEnableSm::type());
    registry.typeIs(StatusSm::type());
    registry.typeIs(StageMgr::type());
    registry.typeIs(AgentStatusSm::type());
    registry.typeIs(ConfigSm::type());
}

// The source unit `StageMgrStageClassDirSm`.
void registerStageMgrStageClassDirSm(Orv::TypeRegistry& registry) {
    registry.typeIs(AvailableStageSubPaths::type());
    registry.typeIs(StageMgrStageClassDirSm::type());
    registry.typeIs(StageSubPathSm::type());
    registry.typeIs(AvailablePaths::type());
}

[[maybe_unused]] const bool registeredAtLoad = (registerTypes(), true);

}  // namespace

void registerTypes() {
    registerModelTypes();
    registerStageMgr(Orv::TypeRegistry::instance());
    registerStageMgrStageClassDirSm(Orv::TypeRegistry::instance());
}

}  // namespace Stage
