// What the fuzzed programs have in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The one function of each of them: tries the bytes out, and aborts when they show a fault.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// FUZZ_SHOW=1 in the process's environment: what the bytes stand for is told on standard error as
// it is done, so that the last line before a fault is the one that set it off.
bool shown();
void show(const std::string& line);

// FUZZ_INSIDE=0: nothing is done inside of callbacks.
bool insideAllowed();

// Tells what is wrong and aborts.
[[noreturn]] void fail(const std::string& what);
inline void expect(bool holds, const std::string& otherwise) {
    if (!holds) fail(otherwise);
}

}  // namespace fuzz
