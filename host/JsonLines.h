// The feed as JSON Lines.
#pragma once

#include <limits>
#include <ostream>
#include <string>
#include <string_view>

#include "host/Observations.h"
#include "runtime/Value.h"

namespace Host {

// One line for each thing that happens, and at the end one with everything that is in the tree. A
// byte-exact function of what happened.
class JsonLines final : public View {
  public:
    // printed: where lines for standard output go as well; may be null, or `out` itself.
    explicit JsonLines(std::ostream& out, std::ostream* printed = nullptr)
        : out_(out), printed_(printed) {}
    ~JsonLines() override;

    void onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) override;
    void onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override;
    void onEntry(double t, const Orv::Entity& entry, bool present) override;
    void onLog(double t, const Stage::InstanceLog& log) override;
    void onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) override;
    void onWatchdog(double t, const Halbe::HalbeInfo& watchdog) override;
    void onPrint(double t, const Orv::String& line) override;
    void onError(double t, const char* what) override;
    void onEnd(double t, const Tree& tree) override;
    void flush() override;

  private:
    void begin(double t, std::string_view event);
    // `, "name": ` and the value.
    void field(std::string_view name, std::string_view text);
    void valueField(std::string_view name, const Orv::Value& value);
    void end();

    std::ostream& out_;
    std::ostream* printed_;
    std::string text_;
    // How a line at `time_` begins: many have the same time.
    double time_ = std::numeric_limits<double>::quiet_NaN();  // none yet: equals no time
    std::string timeText_;
};

// A value as observations show it: an entity as its path, or null.
void appendValue(std::string& to, const Orv::Value& value);

}  // namespace Host
