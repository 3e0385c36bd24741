#include "model/Types.h"

#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "model/AgentStatusLocal.h"
#include "model/CompletionStatusDir.h"
#include "model/Config.h"
#include "model/EnabledConfig.h"
#include "model/FatalError.h"
#include "model/Log.h"
#include "model/ProgressDir.h"
#include "model/StageGlobalConfig.h"
#include "model/Status.h"
#include "runtime/Dir.h"
#include "runtime/Type.h"

namespace Stage {

void registerModelTypes() {
    Orv::TypeRegistry& registry = Orv::TypeRegistry::instance();
    registry.typeIs(Orv::Dir::type());
    registry.typeIs(Config::type());
    registry.typeIs(EventConfig::type());
    registry.typeIs(AgentConfig::type());
    registry.typeIs(AgentStatus::type());
    registry.typeIs(AgentStatusLocal::type());
    registry.typeIs(EnabledConfig::type());
    registry.typeIs(StageGlobalConfig::type());
    registry.typeIs(Status::type());
    registry.typeIs(StageStatus::type());
    registry.typeIs(InstanceStatus::type());
    registry.typeIs(CompletionStatusDir::type());
    registry.typeIs(CompletionStatus::type());
    registry.typeIs(ProgressDir::type());
    registry.typeIs(Progress::type());
    registry.typeIs(Log::type());
    registry.typeIs(InstanceLog::type());
    registry.typeIs(FatalError::type());
}

}  // namespace Stage
