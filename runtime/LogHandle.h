// Operator messages: each is defined once, with everything that an operator needs to know of it.
#pragma once

#include <charconv>
#include <cstdint>
#include <initializer_list>
#include <type_traits>
#include <vector>

#include "runtime/Export.h"
#include "runtime/String.h"

namespace Orv {

// The standard recommended action for a message that asks nothing of the operator.
inline constexpr const char* NoActionRequired = "No action is required.";

// The definition of one operator message.
class ORV_API LogHandle {
  public:
    // severity: as syslog's (3 error, 4 warning). format: text with "%s" conversions only. The two
    // doubles and the flag are the framework's own and mean nothing to the library.
    LogHandle(const char* identifier, int severity, const char* format, const char* explanation,
              const char* recommendedAction, double first, double second, std::uint8_t flag);
    ~LogHandle();
    LogHandle(const LogHandle&) = delete;
    LogHandle& operator=(const LogHandle&) = delete;

    // Those that there are, in the order in which they were defined, for whoever lists them. They
    // are defined while the program and its libraries are loaded.
    static const std::vector<const LogHandle*>& definitions();

    const char* identifier() const { return identifier_; }
    int severity() const { return severity_; }
    const char* format() const { return format_; }
    const char* explanation() const { return explanation_; }
    const char* recommendedAction() const { return recommendedAction_; }
    double first() const { return first_; }
    double second() const { return second_; }
    std::uint8_t flag() const { return flag_; }

    // Raises the message unless the environment's okToLog refuses: each argument is turned into
    // text and stands for one "%s", in order. Missing arguments read as empty.
    template <class... Args>
    void log(const Args&... args) const {
        raise({text(args)...});
    }

    // `format` with its conversions replaced; "%%" stands for "%".
    static String formatted(std::string_view format, std::initializer_list<String> args);

  private:
    static String text(const String& s) { return s; }
    static String text(const char* s) { return s; }
    template <class T>
    requires std::is_integral_v<T>
    static String text(T number) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        return std::string_view(digits, static_cast<std::size_t>(end - digits));
    }
    void raise(std::initializer_list<String> args) const;

    const char* identifier_;
    int severity_;
    const char* format_;
    const char* explanation_;
    const char* recommendedAction_;
    double first_;
    double second_;
    std::uint8_t flag_;
};

}  // namespace Orv
