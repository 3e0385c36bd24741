#include "StageMgr/LogSm.h"

#include "StageMgr/TraceUnit.h"
#include "runtime/ActivityManager.h"

namespace Stage {

void LogSm::logIs(Orv::String message) {
    TRACE(8, " instanceName ", instanceName_, ": ", message);
    append(std::move(message));
}

void LogSm::lineIs(LogText line) {
    if (traceUnit().handle.enabled(8)) return logIs(line.text());
    append(std::move(line));
}

void LogSm::append(LogText message) {
    if (retired() || !log_) return;
    if (!instanceLog_ || instanceLog_->left()) {
        instanceLog_ = log_->instanceLogIs(instanceName_);
        // Whoever is told of the new log may disable the instance, and the log is gone again.
        if (retired() || instanceLog_->left()) return;
    }
    const Orv::Ptr<InstanceLog> instanceLog = instanceLog_;
    instanceLog->logEnq({Orv::System::currentTime(), std::move(message)});
}

Orv::Ptr<LogSm> logSmFactory(Orv::Ptr<Log> log, Orv::String instanceName, const Orv::Owner* owner) {
    return Orv::validPtr(Orv::make<LogSm>(std::move(log), std::move(instanceName), owner));
}

const Orv::TypeInfo& LogSm::type() {
    static const Orv::TypeInfo info = Orv::TypeBuilder<LogSm>("Stage::LogSm")
                                          .scalar("log", &LogSm::log_)
                                          .detail()
                                          .scalar("instanceName", &LogSm::instanceName_)
                                          .detail()
                                          .done();
    return info;
}

}  // namespace Stage
