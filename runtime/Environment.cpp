#include "runtime/Environment.h"

#include <cstdio>

#include "runtime/Halbe.h"
#include "runtime/LogHandle.h"

namespace Orv {

Environment::~Environment() = default;

bool Environment::okToLog(const LogHandle&) { return true; }

void Environment::operatorMessage(const LogHandle& message, const String& text) {
    std::fprintf(stderr, "%s: %s\n", message.identifier(), text.c_str());
}

void Environment::notificationException(const char* what) noexcept {
    std::fprintf(stderr, "exception in a notification: %s\n", what);
}

Ptr<Halbe::HalbeInfo> Environment::halbeInfo(const String& name, unsigned slot, bool flag) {
    return make<Halbe::HalbeInfo>(name, slot, flag);
}

void Environment::print(const String& line) {
    std::fwrite(line.c_str(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void Environment::assertionFailed(const char*) noexcept {}

}  // namespace Orv
