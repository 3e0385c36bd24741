#include "runtime/LogHandle.h"

#include <string>

#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"

namespace Orv {

namespace {

// Never destroyed, since a library's messages may go later than anything else.
std::vector<const LogHandle*>& defined() {
    static auto& handles = *new std::vector<const LogHandle*>;
    return handles;
}

}  // namespace

LogHandle::LogHandle(const char* identifier, int severity, const char* format,
                     const char* explanation, const char* recommendedAction, double first,
                     double second, std::uint8_t flag)
    : identifier_(identifier),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      first_(first),
      second_(second),
      flag_(flag) {
    defined().push_back(this);
}

LogHandle::~LogHandle() { std::erase(defined(), this); }

const std::vector<const LogHandle*>& LogHandle::definitions() { return defined(); }

String LogHandle::formatted(std::string_view format, std::initializer_list<String> args) {
    std::string text;
    auto arg = args.begin();
    for (std::size_t i = 0; i < format.size(); ++i) {
        const bool conversion = format[i] == '%' && i + 1 < format.size();
        if (conversion && format[i + 1] == 's') {
            if (arg != args.end()) text += (arg++)->view();
            ++i;
        } else if (conversion && format[i + 1] == '%') {
            text += '%';
            ++i;
        } else {
            text += format[i];
        }
    }
    return text;
}

void LogHandle::raise(std::initializer_list<String> args) const {
    Environment& environment = activityManager().environment();
    if (environment.okToLog(*this)) environment.operatorMessage(*this, formatted(format_, args));
}

}  // namespace Orv
