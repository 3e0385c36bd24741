// What the program has of the process that it runs in, and what it leaves to it.
#pragma once

#include <cstddef>
#include <istream>
#include <ostream>

namespace Host {

// What a process has and a test replaces.
struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    // For people: whether `out` is a terminal that takes colours, and how wide it is (0: no
    // terminal).
    bool colour = false;
    std::size_t columns = 0;
};

// What the program's exit status means.
enum ExitStatus : int {
    exitDone = 0,
    exitFailed = 1,     // the progression failed, or the check found errors
    exitUsage = 2,      // of the command line, and for input that cannot be taken
    exitRefused = 3,    // the plan cannot be taken
    exitWaiting = 6,    // what was expected did not come in time
    exitInternal = 70,  // our own fault, or the output could not be written
    exitSignal = 128,   // and the signal's number
};

}  // namespace Host
