#include "tests/fuzz/Target.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace fuzz {
namespace {

bool variableIs(const char* name, std::string_view value) {
    const char* const held = std::getenv(name);
    return held != nullptr && held == value;
}

}  // namespace

bool shown() {
    static const bool is = variableIs("FUZZ_SHOW", "1");
    return is;
}

void show(const std::string& line) {
    if (shown()) std::fprintf(stderr, "%s\n", line.c_str());
}

bool insideAllowed() {
    static const bool is = !variableIs("FUZZ_INSIDE", "0");
    return is;
}

void fail(const std::string& what) {
    std::fflush(stdout);
    constexpr std::size_t enough = 4000;
    const bool whole = shown() || what.size() <= enough;
    std::fprintf(
        stderr, "found: %s\n",
        whole ? what.c_str() : (what.substr(0, enough) + "... (whole with FUZZ_SHOW=1)").c_str());
    std::fflush(stderr);
    std::abort();
}

}  // namespace fuzz
