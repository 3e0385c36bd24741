// The request for a reboot.
#pragma once

#include <iosfwd>

#include "runtime/Entity.h"

namespace Stage {

// One for the system. The manager only ever sets it; whoever watches it carries the reboot out.
class ORV_API FatalError final : public Orv::Notifier<FatalError> {
  public:
    // `none` means that no reboot is requested. The manager copies modes and never interprets them.
    enum class ResetMode { none, cold, warm, powerCycle };

    class ORV_API NotifieeConst : public Orv::NotifieeOf<FatalError> {
      public:
        virtual void onRequestReboot() {}
        virtual void onRebootReason() {}
        virtual void onReloadCauseDesc() {}
    };

    explicit FatalError(Orv::Name name = {}) : Notifier(std::move(name)) {}

    // Anything but `none`: a reboot is under way, and no stage starts any more.
    ResetMode requestReboot() const { return requestReboot_; }
    void requestRebootIs(ResetMode mode) {
        if (Orv::assign(requestReboot_, mode))
            changed("requestReboot", [](auto& n) { n.onRequestReboot(); });
    }

    // For people: why.
    const Orv::String& rebootReason() const { return rebootReason_; }
    void rebootReasonIs(Orv::String reason) {
        if (Orv::assign(rebootReason_, std::move(reason)))
            changed("rebootReason", [](auto& n) { n.onRebootReason(); });
    }

    // The cause that the system records across the reboot.
    const Orv::String& reloadCauseDesc() const { return reloadCauseDesc_; }
    void reloadCauseDescIs(Orv::String description) {
        if (Orv::assign(reloadCauseDesc_, std::move(description)))
            changed("reloadCauseDesc", [](auto& n) { n.onReloadCauseDesc(); });
    }

    static const Orv::TypeInfo& type();

  private:
    ResetMode requestReboot_ = ResetMode::none;
    Orv::String rebootReason_;
    Orv::String reloadCauseDesc_;
};

// Prints the mode's name.
ORV_API std::ostream& operator<<(std::ostream& out, FatalError::ResetMode mode);

}  // namespace Stage

template <>
struct Orv::EnumNames<Stage::FatalError::ResetMode> {
    using Mode = Stage::FatalError::ResetMode;
    static constexpr std::pair<Mode, const char*> names[] = {{Mode::none, "none"},
                                                             {Mode::cold, "cold"},
                                                             {Mode::warm, "warm"},
                                                             {Mode::powerCycle, "powerCycle"}};
};
