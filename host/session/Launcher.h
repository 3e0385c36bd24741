// Does the work of participants in real time: starts commands as processes, learns how they fare,
// and takes them down again.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/session/Loop.h"
#include "host/session/NotifySocket.h"
#include "host/session/Process.h"
#include "host/session/Random.h"
#include "host/session/Session.h"

namespace Host {

struct LaunchOptions {
    // A line for people: what became of a participant.
    std::function<void(const std::string&)> say;
    // The folder where each participant's output goes to a file of its own; empty: nowhere.
    std::string outputFolder{};
    // Each participant's output is shown as it comes, line by line.
    bool showOutput = false;
    // Somebody reports for external participants.
    bool reports = false;
};

// While it lives, every descendant of ours that loses its parent becomes our child.
class Launcher final : public Performer {
  public:
    // All outlive the launcher.
    Launcher(const Plan& plan, Loop& loop, LaunchOptions options);
    ~Launcher() override;

    void start(Session& session, const Part& part) override;

    // The parts that are done, in the order in which we learned of it, since the last call.
    std::vector<Part> taken();

    // How many commands run, and how many of them may still become ready. The others are daemons.
    std::size_t running() const { return running_; }
    std::size_t unready() const { return unready_; }
    // The names of those that run: who was ready, the daemons, or who was not.
    std::vector<std::string> names(bool ready) const;
    // How many daemons ended, and in words the last of them, and the first that failed; empty:
    // none.
    std::size_t endedDaemons() const { return endedDaemons_; }
    const std::string& endedDaemon() const { return endedDaemon_; }
    const std::string& failedDaemon() const { return failedDaemon_; }

    // When it next wants to look at something by itself, and to do so at that time.
    double next() const;
    void look(double now);

    // Takes all down, in the reverse order of the stages' starts; what is left of it is done by
    // look(). Nothing may be started afterwards.
    void stop();
    // The same, at once.
    void kill();
    // After all has stopped: starts one more command, whose output is our standard error, with
    // these lines in its environment. It is done when all has stopped again. Returns why it cannot
    // be started, in words; empty: it was.
    std::string startLast(std::vector<std::string> command,
                          std::vector<std::pair<std::string, std::string>> environment);
    // How it ended, as wait says; absent: it did not by itself.
    const std::optional<int>& lastStatus() const { return lastStatus_; }

    // No process is left that descends from us, or one that is left cannot be killed.
    bool stopped() const { return phase_ == Phase::stopped; }
    // How many cannot.
    std::size_t unkillable() const { return unkillable_; }

  private:
    class Child;
    enum class Phase { running, stopping, sweeping, stopped, last };

    void launchCommand(double now, const Part& part);
    void reap();
    void ended(Child& child, int status);
    void readOutput(Child& child, bool all);
    void readNotifications(Child& child, bool all);
    void heed(Child& child, const NotifySocket::Message& message);
    void ready(Child& child);
    void overdue(double now);
    void nextGroup(double now);
    bool groupStopped(double now);
    std::vector<ProcessFacts> leftBehind() const;
    void sweep(double now);
    std::string label(const Part& part) const;
    void say(const std::string& line) const { options_.say(line); }
    void sayLastLines(const Child& child) const;

    const Plan& plan_;
    Loop& loop_;
    LaunchOptions options_;
    bool severalInstances_ = false;
    int subreaperBefore_ = 0;
    ManyDescriptors descriptors_;
    // Processes that somebody else made our children, before we began; never ours to end.
    std::set<pid_t> others_;
    std::unique_ptr<PrivateFolder> sockets_;
    std::vector<std::unique_ptr<Child>> children_;  // in the order of their starts
    std::map<pid_t, Child*> processes_;             // those that run
    std::multimap<double, Child*> limits_;          // when their stages run out of their limits
    std::vector<Part> done_;
    std::size_t running_ = 0;
    std::size_t unready_ = 0;
    std::size_t endedDaemons_ = 0;
    std::string endedDaemon_;
    std::string failedDaemon_;
    Random random_;

    Phase phase_ = Phase::running;
    std::vector<Child*> group_;  // those that are being stopped together
    std::size_t unstopped_ = 0;  // the first so many children are still to be stopped
    std::set<pid_t> told_;       // of those that were left behind
    bool killing_ = false;
    double nextLook_ = Loop::never;
    double giveUp_ = Loop::never;
    std::size_t unkillable_ = 0;
    pid_t last_ = 0;
    std::optional<int> lastStatus_;
    std::unique_ptr<Loop::Watch> ends_;  // goes first: it calls back
};

}  // namespace Host
