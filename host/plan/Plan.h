// A plan, as its reader understood it: every name is checked, every default filled in.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/plan/Diagnostic.h"

namespace Host {

// How long a participant takes when nothing real does its work. Seconds.
struct Takes {
    enum class Kind {
        fixed,        // `a`
        uniform,      // between `a` and `b`
        normal,       // mean `a`, standard deviation `b`; what is below 0 counts as 0
        exponential,  // mean `a`
        never,        // it does not report
    };

    Kind kind = Kind::fixed;
    double a = 0.0;
    double b = 0.0;
    // The probability, from 0 to 1, that it does not report all the same.
    double lost = 0.0;

    friend bool operator==(const Takes&, const Takes&) = default;
};

// A stage that is named as a dependency.
struct StageReference {
    std::string stage;
    Place place{};
};

// Who takes part in one stage, and how: one event.
struct PlanParticipant {
    enum class Kind {
        simulated,  // reports after what it `takes`
        command,    // is launched when its stage starts
        external,   // somebody else reports for it
    };
    enum class Ready {
        exit,    // the command exits with status 0
        notify,  // the command says READY=1 to the socket that it is given
    };

    // The agent's name. One name in several stages is one agent.
    std::string name;
    Place place{};
    Kind kind = Kind::simulated;

    // command: the program and its arguments; a command that was written as one text is a shell's.
    std::vector<std::string> command{};
    Ready ready = Ready::exit;
    std::vector<std::pair<std::string, std::string>> environment{};  // added to what we have
    std::string directory{};  // where it runs; empty: where we do. Relative to the plan's folder.
    double stopLimit = 10.0;  // seconds between being told to stop and being killed

    // How long it takes in virtual time, and how long a simulated one takes in real time. Absent
    // for a command or an external one that does not say; simulations take `assumedTakes` then.
    std::optional<Takes> takes{};

    double limit = 90.0;  // seconds; infinity: none
    Place limitPlace{};   // where it was said, at the participant, the stage or the class
    bool critical = false;
    // Seconds after which the manager completes it on its behalf; absent: it does not.
    std::optional<double> autoComplete{};
    Place autoCompletePlace{};
    // What this one's work depends on, beside what its whole stage comes after.
    std::vector<StageReference> after{};
};

inline constexpr Takes assumedTakes{Takes::Kind::fixed, 1.0};

struct PlanStage {
    std::string name;
    Place place{};
    std::vector<StageReference> after{};
    // At least one: a stage that names nobody is a milestone, and has a simulated participant of
    // its own name that takes no time.
    std::vector<PlanParticipant> participants{};

    bool critical() const;
};

struct PlanInstance {
    std::string name;
    Place place{};
    double start = 0.0;  // seconds after the run began
    bool suspended = false;
};

// What the progression does when a critical stage runs out of its limit.
enum class OnTimeout { reboot, proceed, wait };

struct PlanClass {
    std::string name;
    Place place{};
    std::string application{};
    double deadline = 0.0;  // seconds for the whole progression of an instance; infinity: none
    Place deadlinePlace{};
    OnTimeout onTimeout = OnTimeout::reboot;
    std::string reset = "cold";  // as journals spell reset modes
    std::string reloadCause{};
    std::vector<PlanInstance> instances{};
    std::vector<StageReference> doNotStart{};
    std::vector<PlanStage> stages{};

    const PlanStage* stage(std::string_view name) const;
};

struct Plan {
    std::string file{};  // as it was named
    std::string text{};  // what the file holds, for showing lines of it
    std::vector<PlanClass> classes{};

    const PlanClass* stageClass(std::string_view name) const;
};

}  // namespace Host
