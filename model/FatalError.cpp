#include "model/FatalError.h"

#include <ostream>

namespace Stage {

std::ostream& operator<<(std::ostream& out, FatalError::ResetMode mode) {
    return out << Orv::ValueTraits<FatalError::ResetMode>::nameOf(mode);
}

const Orv::TypeInfo& FatalError::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<FatalError>("Stage::FatalError")
            .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                return Orv::make<FatalError>(name);
            })
            .scalar("requestReboot", &FatalError::requestReboot_, &FatalError::requestRebootIs)
            .scalar("rebootReason", &FatalError::rebootReason_, &FatalError::rebootReasonIs)
            .scalar("reloadCauseDesc", &FatalError::reloadCauseDesc_,
                    &FatalError::reloadCauseDescIs)
            .done();
    return info;
}

}  // namespace Stage
