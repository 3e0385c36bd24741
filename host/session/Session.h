// A manager at work on a plan, whose time somebody else moves on: a simulation as fast as it can, a
// real run beside the wall clock. Both do the very same, so that a run can be replayed.
#pragma once

#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "host/Observations.h"
#include "host/Replay.h"
#include "host/plan/Plan.h"

namespace Host {

// One participant's part in one stage of one instance.
struct Part {
    const PlanClass* stageClass;
    const PlanStage* stage;
    const PlanParticipant* participant;
    std::string instance;
};

class Session;

// Does the work of participants.
class Performer {
  public:
    Performer() = default;
    virtual ~Performer();
    Performer(const Performer&) = delete;
    Performer& operator=(const Performer&) = delete;

    // The part's stage has started, at the session's time. Called between the manager's turns, so
    // everything may be done here, reports included.
    virtual void start(Session& session, const Part& part) = 0;
};

class Session {
  public:
    static constexpr double never = std::numeric_limits<double>::infinity();

    // The plan has been read without errors, and outlives the session, as do the others. record:
    // takes the journal of what is applied, from which a replay makes the same observations; null:
    // nobody does. The plan's inputs of time 0 are applied when time first moves.
    Session(const Plan& plan, Performer& performer, View& view, std::ostream* record = nullptr);
    // The same, with the plan's inputs at hand, which outlive the session: for whoever runs one
    // plan many times.
    Session(const Plan& plan, const std::vector<Input>& inputs, Performer& performer, View& view,
            std::ostream* record = nullptr);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // When the next thing is to happen by itself: a timer of the manager, or a scheduled input;
    // `never`: nothing is.
    double next() const;

    // Does everything that happens until `time`, that of `time` included, each thing at its own
    // time. Then it is `time`; `never` goes on until nothing is left.
    void advance(double time);

    // Applies an input at the present time, and everything that follows at that time. Its own `at`
    // is not looked at.
    void apply(Input input);
    // Applies the report of that part.
    void report(const Part& part);

    // The same, at a later time, by itself. Inputs of one time come in the order of scheduling.
    void schedule(double at, Input input);
    void scheduleReport(double at, const Part& part);

    // Ends the feed: the view is told, and the record is complete. Nothing is done afterwards.
    void finish();

    double time() const { return replay_.time(); }
    const Tree& tree() const { return replay_.tree(); }
    const Plan& plan() const { return plan_; }

  private:
    struct Scheduled {
        double at;
        std::size_t number;            // of scheduling
        std::unique_ptr<Input> input;  // light to move about
    };
    // Orders a heap whose top is the first.
    static bool later(const Scheduled& a, const Scheduled& b) {
        return a.at > b.at || (a.at == b.at && a.number > b.number);
    }
    // Passes the feed on, and notes which stages start.
    class Starts;

    Session(const Plan& plan, const std::vector<Input>* inputs, Performer& performer, View& view,
            std::ostream* record);

    // When the next input comes; `never`: none is scheduled.
    double nextInput() const;
    void turn(double time);
    // An input of now, or of before.
    void give(const Input& input);
    void settle();

    const Plan& plan_;
    Performer& performer_;
    std::unique_ptr<Starts> starts_;
    std::ostream* record_;
    Replay replay_;
    std::vector<Input> ownInputs_;
    const std::vector<Input>& planInputs_;  // in the order of time; they come before others
    std::size_t given_ = 0;                 // of these
    std::vector<Scheduled> scheduled_;      // a heap
    std::size_t schedulings_ = 0;
    // When timers fired last: an input of the same time comes after them, which a replay has to be
    // told.
    double settled_ = -1.0;
};

}  // namespace Host
