// What the model and the library each make of a journal, as text: the observations, one JSON object
// a line, then the state. The two agree when the lines say the same one by one.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/conformance/Model.h"

namespace conformance {

enum class States {
    last,       // where the journal ends
    everyLine,  // after every line of it as well
};

// Why a run ends early stands at the end, as lines that are no JSON.
struct Behaviour {
    std::string text;
    std::size_t observations = 0;
    bool aborted = false;  // an assertion failed
};

Behaviour modelBehaviour(const std::vector<Line>& lines, States states);

// In this process: what ends the library ends it. A broken invariant stands in the text, where it
// was broken.
std::string libraryBehaviour(const std::vector<Line>& lines, States states);

// The same in a process of its own: how that ended, if not well, stands at the end, with what it
// wrote to standard error. It is ended after `patience` seconds of processor time.
std::string libraryBehaviourApart(const std::vector<Line>& lines, States states,
                                  unsigned patience = 10);

}  // namespace conformance
