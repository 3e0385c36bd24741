// How the instances stand, as the entities and reactors tell it.
#pragma once

#include <string>
#include <vector>

#include "runtime/String.h"

namespace Host {

class Tree;

// One stage of one instance.
struct StageOutcome {
    enum class State {
        complete,
        late,        // a critical stage that timed out, and was completed by its events afterwards
        passedOver,  // timed out, and progression went on without it
        running,
        overdue,  // a critical stage that timed out and is waited for
        notStarted,
    };

    Orv::Name stage;
    State state = State::notStarted;
    bool critical = false;
    // When it became complete, in seconds; meaningful for the first three states.
    double completionTime = 0.0;
    // The agents whose events are outstanding.
    std::vector<Orv::String> pendingAgents;
    // The agents that did not report: their events were completed on their behalf.
    std::vector<Orv::String> assumedAgents;
    // What keeps it from starting: stages that are not complete (or do not exist), the operator's
    // do-not-start list, or a critical stage that has not started.
    std::vector<Orv::String> incompleteDependencies;
    bool heldByOperator = false;
    bool heldByCritical = false;

    bool isComplete() const { return state <= State::passedOver; }
};

// One instance that is enabled, or runs.
struct InstanceOutcome {
    enum class State {
        complete,
        running,    // some stage is under way
        held,       // no stage is under way, and not all are complete
        overdue,    // a critical stage timed out and is waited for
        suspended,  // by the operator
        rebooting,  // a reboot was requested before it was complete
        unmanaged,  // its class lacks something that it needs
    };

    Orv::Name stageClass;
    Orv::Name instance;
    State state = State::unmanaged;
    // When its last stage became complete, in seconds.
    double lastCompletion = 0.0;
    // In the order of the class.
    std::vector<StageOutcome> stages;
    // unmanaged: the path of the first thing that is missing.
    std::string missing;

    std::size_t completeStages() const;
};

// Nothing starts any more then.
bool rebootRequested(const Tree& tree);

// By class, in the order of /enable.
std::vector<InstanceOutcome> outcomes(const Tree& tree);

// One of them, whether or not it is enabled; unmanaged when nothing runs it.
InstanceOutcome outcome(const Tree& tree, const Orv::Name& stageClass, const Orv::Name& instance);

}  // namespace Host
