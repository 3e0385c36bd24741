#include "model/CompletionStatus.h"

namespace Stage {

const Orv::TypeInfo& CompletionStatus::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<CompletionStatus>("Stage::CompletionStatus")
            .scalar("complete", &CompletionStatus::complete_, &CompletionStatus::completeIs)
            .done();
    return info;
}

}  // namespace Stage
