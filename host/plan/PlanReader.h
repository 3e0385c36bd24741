// Reads plans: YAML or JSON that a person wrote, checked as far as a single file can be.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "host/plan/Diagnostic.h"
#include "host/plan/Plan.h"

namespace Host {

// Reads a plan. `file` is its name, for messages. Everything that is wrong is appended to
// `diagnostics`, all in one go; the plan is then whatever could be understood, and must not be run.
// That a stage comes after one that does not exist is left to the check: the library waits for
// such a stage, and it may be what is meant.
Plan readPlan(const std::string& file, std::string text, std::vector<Diagnostic>& diagnostics);

// The plan was refused; the text is for people, whole, and shows the lines.
class PlanRefused final : public std::runtime_error {
  public:
    PlanRefused(const std::string& text, std::vector<Diagnostic> found)
        : runtime_error(text), diagnostics(std::move(found)) {}
    std::vector<Diagnostic> diagnostics;
};

// The same, for whoever wants a plan or nothing. Raises PlanRefused, with colours if `colour`.
Plan wantedPlan(const std::string& file, std::string text, bool colour);

}  // namespace Host
