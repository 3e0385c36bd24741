// The feed as a person wants to read it.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "host/Observations.h"

namespace Host {

struct InstanceOutcome;
struct StageOutcome;

struct HumanStyle {
    bool colour = false;
    // Longer rows are continued below; 0 never breaks.
    std::size_t columns = 0;
};

// A row for each line of a progress log, each operator message, reboot request and watchdog
// setting: time, instance, text. At the end, how each instance stands.
class HumanView final : public View {
  public:
    explicit HumanView(std::ostream& out, HumanStyle style = {}) : out_(out), style_(style) {}

    // The terminal has another width than before.
    void columnsAre(std::size_t columns) { style_.columns = columns; }

    void onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) override;
    void onLog(double t, const Stage::InstanceLog& log) override;
    void onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) override;
    void onWatchdog(double t, const Halbe::HalbeInfo& watchdog) override;
    void onPrint(double t, const Orv::String& line) override;
    void onError(double t, const char* what) override;
    void onEnd(double t, const Tree& tree) override;
    void flush() override { out_.flush(); }

  private:
    enum class Colour { plain, dim, good, notice, warning, bad };

    void heading();
    // Makes room for a name in the second column.
    void widen(std::string_view who);
    void row(double t, std::string_view who, std::string_view text, Colour colour = Colour::plain);
    void instance(const InstanceOutcome& outcome);
    void stage(const StageOutcome& outcome, std::size_t nameWidth);
    // `first` and then `text`, which is broken where the row is full and goes on below itself.
    void wrapped(const std::string& first, std::string_view text, Colour colour);
    std::string coloured(std::string_view text, Colour colour) const;

    std::ostream& out_;
    HumanStyle style_;
    std::size_t whoWidth_ = 20;  // grows when it must
    bool headed_ = false;
};

}  // namespace Host
