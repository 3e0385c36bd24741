#include "tests/fuzz/Assertions.h"

#include <algorithm>
#include <utility>

#include "host/Tree.h"
#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"

namespace fuzz {

// What the linker puts in the place of Orv::assertionFailed, and that one itself.
void wrapped(const char* expression) asm("__wrap__ZN3Orv15assertionFailedEPKc");
void real(const char* expression) asm("__real__ZN3Orv15assertionFailedEPKc");

namespace {
Assertions* inCharge = nullptr;
}

void wrapped(const char* expression) {
    if (inCharge != nullptr) inCharge->onFailed(expression);
    real(expression);
}

Assertions::Assertions() : outer_(std::exchange(inCharge, this)) {}
Assertions::~Assertions() { inCharge = outer_; }

void Assertions::excuse(const Host::Input& input) {
    using Op = Host::Input::Op;
    std::vector<Orv::Name> names;
    try {
        if (input.op == Op::create || input.op == Op::set) names = Host::pathNames(input.path);
    } catch (const Host::PathError&) {
        return;
    }
    if (names.empty()) return;
    if (input.op == Op::create && names.size() == 3 && names[0] == "input" &&
        input.type != "Stage::AgentConfig")
        excused_.emplace_back("ac");
    if (input.op == Op::set && input.attr == "stageRequest" && input.value) {
        const Host::Json* const agent = input.value->member("agent");
        if (agent != nullptr && agent->string() != nullptr &&
            *agent->string() != names.back().view())
            excused_.emplace_back("agentName() == agent");
    }
}

void Assertions::excuseInside() { excused_.emplace_back("ec->dependencys() == before"); }

void Assertions::onFailed(const char* expression) {
    if (std::find(excused_.begin(), excused_.end(), expression) == excused_.end()) return;
    failed_ = expression;
    Orv::activityManager().environment().assertionFailed(expression);
    throw AssertionFailed();
}

}  // namespace fuzz
