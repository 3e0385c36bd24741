#include "model/InstanceLog.h"

namespace Stage {

const Orv::TypeInfo& InstanceLog::type() {
    static const Orv::TypeInfo info =
        Orv::TypeBuilder<InstanceLog>("Stage::InstanceLog").queue("log", &InstanceLog::log).done();
    return info;
}

}  // namespace Stage
