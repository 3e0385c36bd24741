#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string_view>

#include "host/CommandLine.h"

namespace {

bool set(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

std::size_t terminalColumns() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
    return size.ws_col;
}

// Whoever closed one of the three gets an error where it is used: otherwise the next file that is
// opened, a record say, would take its place.
void occupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) == -1)
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    std::ios::sync_with_stdio(false);
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    const char* const kind = std::getenv("TERM");
    const bool dumb = kind == nullptr || std::string_view(kind) == "dumb";
    const Host::Console console{std::cin, std::cout, std::cerr,
                                terminal && !dumb && !set("NO_COLOR"),
                                terminal ? terminalColumns() : 0};
    return Host::commandLine({argv + 1, argv + argc}, console);
}
