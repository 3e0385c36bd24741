// How an instance spends its time: what each stage waited for, what it took itself, and which
// stages the whole had to wait for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

// A time as views show it, with its sign, "+" included.
std::string changeText(double seconds);

// "class/instance", for people.
std::string instanceLabel(const InstanceHistory& instance);
// The same of one that was enabled several times, with the number of its time: "boot/main#2".
std::vector<std::string> instanceLabels(const RunHistory& run);

const char* stateName(InstanceOutcome::State state);
const char* stateName(StageOutcome::State state);
const char* endName(EventHistory::End how);

// Up to when the instance's history goes: it was complete, taken away, stopped by a reboot, or the
// run ended. Then it is `until`.
double until(const RunHistory& run, const InstanceHistory& instance);

// Seconds. Of what is under way, up to `until`.
struct StageTimes {
    double waited = 0.0;  // for the stages that it depends on, from the enabling
    double held = 0.0;    // nothing that it depends on was missing any more
    double own = 0.0;     // from its start to its end
};
StageTimes stageTimes(const InstanceHistory& instance, const StageHistory& stage, double until);

// That a stage which has started had to wait for critical ones: as long as one of them has not
// started no other stage does, and then not before the manager looks again, for which it waits
// until some stage is complete.
struct CriticalWait {
    const StageHistory* last;  // of the critical stages that started meanwhile, the last one
    // The stage whose completion made the manager look again; null: it had another reason to.
    const StageHistory* opener;
    // When that was. From then to its start, if that is later, the operator held the stage.
    double until;
};
// Absent when it did not have to.
std::optional<CriticalWait> criticalWait(const InstanceHistory& instance,
                                         const StageHistory& stage);

// The stage whose completion let a started stage start: the one that ended its wait for critical
// stages, or else the last of those that it depends on. Null when no completion did.
const StageHistory* startedAfter(const InstanceHistory& instance, const StageHistory& stage);

// That nothing holds one that has not started any more: it starts as soon as some stage is
// complete, for then the manager looks again. When a reboot was requested that comes too late.
bool waitsForNextCompletion(const InstanceHistory& instance, const StageHistory& stage);

// What of a started stage's events the manager completed on the agents' behalf.
std::vector<std::string> assumedAgents(const StageHistory& stage);
// What is not as it should be, each as a few words for people: "timed out, passed over",
// "auto-completed for fans", "not started: needs power". Empty for a stage that is just complete.
std::vector<std::string> marks(const InstanceHistory& instance, const StageHistory& stage);
// The same in one text, joined by "; ".
std::string markText(const InstanceHistory& instance, const StageHistory& stage);

// The stage that became complete last, or what an instance that is not complete waits for: the
// stage under way that started last, or the last one of those that have not started on which no
// other of them depends. Null when it has no stage.
const StageHistory* lastStage(const InstanceHistory& instance);
// The stages that it depends on and that exist, the one that it waited for longest first: those
// that are not complete, then by their ends.
std::vector<const StageHistory*> latestDependencies(const InstanceHistory& instance,
                                                    const StageHistory& stage);

// A stretch of the time that the whole had to wait for.
struct Stretch {
    enum class Kind {
        work,        // a stage until its last report
        timedOut,    // a stage that timed out and was passed over
        assumed,     // a stage whose last event was completed on its agent's behalf
        unfinished,  // a stage that is under way
        held,        // no stage: the next one was held, or nothing could start
    };
    Kind kind;
    const StageHistory* stage;  // held: the one that was held, null at the end
    double start;
    double end;
};
const char* kindName(Stretch::Kind kind);
// From the enabling to `until`, without gaps: back from what is under way, or else from the stage
// that ended last, always to the stage whose completion let it start.
std::vector<Stretch> criticalPath(const InstanceHistory& instance, double until);

// As the documentation of views says.
Json stageJson(const InstanceHistory& instance, const StageHistory& stage, double until);
// Its names, state and times, without stages.
Json::Object instanceJson(const InstanceHistory& instance, double until);
Json jsonTime(const std::optional<double>& time);
Json jsonTexts(const std::vector<std::string>& texts);

}  // namespace Host
