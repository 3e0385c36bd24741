// What happened in a run, and when: collected from the feed and the entities, of a plan that runs,
// of a simulation, or of a journal that is replayed. Every picture and report of a run is made of
// it.
#pragma once

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/Observations.h"
#include "host/Outcome.h"

namespace Host {

// All times are the clock's, in seconds. Absent: it has not happened.

struct EventHistory {
    enum class End {
        pending,    // nobody has completed it
        reported,   // its agent did, or the agent's registration says so
        assumed,    // the manager did, on the agent's behalf
        withdrawn,  // it left its stage
    };

    std::string agent;
    bool critical = false;
    double limit = 0.0;                  // infinity: none
    std::optional<double> autoComplete;  // seconds after the start
    End how = End::pending;
    std::optional<double> end;
    // assumed: when its agent reported after all.
    std::optional<double> reportedLate;
};

struct StageHistory {
    std::string name;
    std::vector<std::string> dependencies;
    double limit = 0.0;  // infinity: none
    // How it stands at last: complete, late, passed over, running, overdue, not started, and then
    // why not.
    StageOutcome outcome;
    // When the last stage that it depends on became complete, or its instance was enabled. From
    // then to its start it was held, by a critical stage or by the operator.
    std::optional<double> ready;
    std::optional<double> start;
    std::optional<double> timedOut;
    std::optional<double> end;
    // In the order of the stage; of one that has started, those that have left it stand behind.
    std::vector<EventHistory> events;
};

struct InstanceHistory {
    std::string stageClass;
    std::string instance;
    std::string application;
    double enabled = 0.0;  // unmanaged: 0, for nobody took notice
    double deadline = std::numeric_limits<double>::infinity();  // seconds after that
    InstanceOutcome::State state = InstanceOutcome::State::unmanaged;
    std::string missing;  // unmanaged: what its class lacks
    std::optional<double> complete;
    std::optional<double> suspended;
    std::optional<double> disabled;    // it was taken away; what stands here is as it was then
    std::vector<StageHistory> stages;  // in the order of the class

    const StageHistory* stage(std::string_view name) const;
};

struct RunHistory {
    struct Message {
        double time;
        int severity;  // 3: error, 4: warning
        std::string identifier;
        std::string text;
    };
    struct Reboot {
        double time;
        std::string mode;  // as journals spell reset modes
        std::string reason;
        std::string description;
    };

    double end = 0.0;  // the time of the run's last moment
    std::vector<InstanceHistory> instances;
    std::vector<Message> messages;
    std::optional<Reboot> reboot;
};

// Watches a run from its beginning. The tree is looked at in the midst of the feed, and never
// changed.
class Timeline final : public View {
  public:
    Timeline();
    ~Timeline() override;

    // Everything until now, the instances in the order of their beginnings. The tree is that of the
    // run.
    RunHistory history(const Tree& tree) const;

    void onBegin(const Tree& tree) override;
    void onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) override;
    void onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override;
    void onLog(double t, const Stage::InstanceLog& log) override;
    void onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) override;

  private:
    class State;
    std::unique_ptr<State> state_;
};

}  // namespace Host
