// One line of an instance's progress log.
#pragma once

#include "model/LogText.h"
#include "runtime/Export.h"
#include "runtime/String.h"
#include "runtime/Value.h"

namespace Stage {

struct ORV_API LogEntry {
    double time = 0.0;  // seconds, of Orv::System
    LogText message;

    friend bool operator==(const LogEntry&, const LogEntry&) = default;

    static constexpr auto fields =
        std::tuple{Orv::Field{"time", &LogEntry::time}, Orv::Field{"message", &LogEntry::message}};
};

}  // namespace Stage
