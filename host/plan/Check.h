// What can be known of a plan before it runs.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "host/plan/Diagnostic.h"
#include "host/plan/Plan.h"
#include "host/plan/Schedule.h"
#include "host/plan/StageGraph.h"

namespace Host {

// One class, as it would run.
struct CheckedClass {
    explicit CheckedClass(const PlanClass& stageClass);

    StageGraph graph;
    Schedule typical;  // if everybody takes what they typically take
    Schedule longest;  // if everybody takes as long as limits and auto-completion allow
};

struct CheckedPlan {
    // In the order of their places.
    std::vector<Diagnostic> diagnostics;
    std::vector<CheckedClass> classes;
};

// The plan has been read without errors, and outlives what is made of it.
CheckedPlan check(const Plan& plan);

// A kind of thing that the check finds. docs/check.md says more of each.
struct CheckRule {
    std::string_view name;
    Diagnostic::Severity severity;  // the worst that it has
    std::string_view summary;
};

// All of them, by name.
const std::vector<CheckRule>& checkRules();

std::string_view severityName(Diagnostic::Severity severity);

// How many of them are of that severity.
std::size_t count(const std::vector<Diagnostic>& diagnostics, Diagnostic::Severity severity);

}  // namespace Host
