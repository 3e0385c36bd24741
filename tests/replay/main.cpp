// Replays a journal, and nothing else: what the builds of several compilers are compared by.
// Usage: replay-journal JOURNAL OUT [TRACE_LEVEL]

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "host/Replay.h"
#include "runtime/Trace.h"

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4) {
        std::cerr << "usage: replay-journal JOURNAL OUT [TRACE_LEVEL]\n";
        return 2;
    }
    std::ifstream journal(argv[1], std::ios::binary);
    std::ofstream out(argv[2], std::ios::binary);
    if (!journal || !out) {
        std::cerr << "replay-journal: cannot open " << argv[journal ? 2 : 1] << '\n';
        return 2;
    }
    if (argc == 4) Orv::TraceHandle::named("StageMgr").levelIs(std::atoi(argv[3]));
    try {
        Host::replay(journal, out);
    } catch (const Host::JournalError& e) {
        // It is compared up to there.
        std::cerr << argv[1] << ':' << e.line() << ": " << e.what() << '\n';
    }
    return out.flush() ? 0 : 1;
}
