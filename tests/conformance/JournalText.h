// The journal as text: lines in, observations and the state out.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/conformance/Model.h"

namespace conformance {

// Throws std::runtime_error with what is wrong. parseJournal names the line and skips what is no
// input line.
Line parseLine(std::string_view text);
std::vector<Line> parseJournal(std::string_view text);

std::string textOf(const Line& line);
std::string textOf(const std::vector<Line>& lines);
std::string textOf(const Observation& observation);
std::string textOf(double t, const Tree& tree);

// Everything that a journal leads to, one JSON object a line. An aborted run has no state line.
std::string outcomeOf(const std::vector<Line>& lines);

// The same JSON value in one form: members sorted by name, every number a double. Two observations
// say the same when this is equal. A line that is no object stands as it is.
std::string canonical(std::string_view json);

// Where two outcomes first say something different, for a person to read; empty where they say the
// same.
std::string firstDifference(std::string_view expected, std::string_view actual);

}  // namespace conformance
