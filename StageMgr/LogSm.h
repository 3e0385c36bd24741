// Writes the progress log of one instance.
#pragma once

#include "model/Log.h"
#include "runtime/Reactor.h"

namespace Stage {

// An InstanceStatusSm owns one, and shares it with its stage and auto-completion reactors.
class ORV_API LogSm final : public Orv::Reactor {
  public:
    LogSm(Orv::Ptr<Log> log, Orv::String instanceName, const Orv::Owner* owner = nullptr)
        : Reactor(owner), log_(std::move(log)), instanceName_(std::move(instanceName)) {}

    const Orv::Ptr<Log>& log() const { return log_; }
    const Orv::String& instanceName() const { return instanceName_; }
    std::tuple<Orv::Ptr<Log>, Orv::String> arguments() const { return {log_, instanceName_}; }
    static constexpr std::array<const char*, 2> argumentNames{"log", "instanceName"};

    // Appends a line with the current time; the instance's log is made by its first line. Writes
    // nothing once the instance is gone.
    void logIs(Orv::String message);
    // The same of a line that is mostly fixed words.
    void lineIs(LogText line);

    static const Orv::TypeInfo& type();
    const Orv::TypeInfo* typeInfo() const override { return &type(); }

  private:
    void dismantle() override { instanceLog_ = nullptr; }
    void append(LogText message);

    Orv::Ptr<Log> log_;
    Orv::String instanceName_;
    Orv::Ptr<InstanceLog> instanceLog_;  // the one written last
};

ORV_API Orv::Ptr<LogSm> logSmFactory(Orv::Ptr<Log> log, Orv::String instanceName,
                                     const Orv::Owner* owner = nullptr);

}  // namespace Stage
