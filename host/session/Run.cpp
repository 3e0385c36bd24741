#include "host/session/Run.h"

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "host/Console.h"
#include "host/Outcome.h"
#include "host/Words.h"
#include "host/plan/Duration.h"
#include "host/session/Launcher.h"
#include "host/session/LiveRun.h"
#include "host/session/Loop.h"
#include "host/session/Reports.h"
#include "host/session/RunOutcome.h"
#include "host/session/ServiceNotifier.h"
#include "host/session/Session.h"
#include "model/CompletionStatus.h"
#include "model/FatalError.h"
#include "runtime/Type.h"

namespace Host {

namespace {

// Notes what could change how the run stands.
class Changes final : public View {
  public:
    void onScalar(double, const Orv::Entity& entity, const Orv::Attribute& attribute) override {
        const std::string_view name = attribute.name();
        if (dynamic_cast<const Stage::CompletionStatus*>(&entity) != nullptr) completion = true;
        if (name == "requestReboot" && dynamic_cast<const Stage::FatalError*>(&entity) != nullptr)
            reboot = true;
    }

    bool completion = false;  // since somebody looked last
    bool reboot = false;
};

// A signal is for us again when this goes.
class Ignored {
  public:
    explicit Ignored(int number) : number_(number), before_(::signal(number, SIG_IGN)) {}
    ~Ignored() { ::signal(number_, before_); }
    Ignored(const Ignored&) = delete;
    Ignored& operator=(const Ignored&) = delete;

  private:
    int number_;
    void (*before_)(int);
};

// Whoever started us wants us to outlive the terminal, say.
bool ignored(int number) {
    struct sigaction action {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

constexpr std::size_t mostNames = 5;

std::string list(const std::vector<Orv::String>& all) {
    return firstOf(all, mostNames, [](const Orv::String& text) { return inQuotes(text.view()); });
}

// Why a stage that is not complete will not become so; empty: nothing holds it but its instance.
std::string reason(const StageOutcome& stage) {
    const std::string name = inQuotes(stage.stage.view());
    if (stage.state != StageOutcome::State::notStarted)
        return fmt::format("stage {} waits for {}, which cannot report any more", name,
                           list(stage.pendingAgents));
    if (stage.heldByOperator) return fmt::format("stage {} is held by the do-not-start list", name);
    if (!stage.incompleteDependencies.empty())
        return fmt::format("stage {} needs {}", name, list(stage.incompleteDependencies));
    if (stage.heldByCritical)
        return fmt::format("stage {} waits until the critical stages have started", name);
    return {};
}

class Run {
  public:
    Run(const Plan& plan, const RunOptions& options, View& view, std::ostream& err)
        : plan_(plan),
          options_(options),
          view_(view),
          err_(err),
          views_({&changes_, &view}),
          launcher_(plan, loop_,
                    {[this](const std::string& line) { say(line); }, options.outputFolder,
                     options.showOutput, options.reports >= 0}),
          session_(plan, launcher_, views_, options.record) {
        std::vector<int> wanted{SIGINT, SIGTERM};
        if (!ignored(SIGHUP)) wanted.push_back(SIGHUP);
        signals_ = loop_.signals(wanted, [this](int number) { signal(number); });
        if (options.live != nullptr && !ignored(SIGTSTP))
            suspensions_ = loop_.signals({SIGTSTP}, [this](int) { suspend(); });
        if (options.reports >= 0)
            reports_ = std::make_unique<Reports>(plan, loop_, options.reports,
                                                 [this](const std::string& line) { say(line); });
    }

    int run() {
        service_.say("STATUS=Bringing the stages up");
        while (!status_) {
            turn();
            if (!status_) loop_.wait(next());
        }
        service_.say("STOPPING=1");
        if (options_.live != nullptr) options_.live->clear();
        session_.finish();
        keepRecord();
        view_.flush();
        if (!why_.empty()) say(why_);
        stop();
        if (changes_.reboot && !options_.onReboot.empty() && !signal_) reboot();
        if (launcher_.unkillable() != 0 || recordFailed_) return exitInternal;
        return *status_;
    }

  private:
    bool drawn() const { return options_.live != nullptr && !complete_; }

    double next() const {
        const double within = complete_ ? Session::never : options_.within;
        const double drawing = drawn() ? options_.live->next() : Session::never;
        const double reports = reports_ ? reports_->next() : Session::never;
        return std::min({session_.next(), launcher_.next(), within, drawing, reports});
    }

    // Each thing at its own time first, then what came meanwhile.
    void turn() {
        const double now = loop_.now();
        session_.advance(now);
        for (const Part& part : launcher_.taken()) session_.report(part);
        if (reports_)
            for (const Part& part : reports_->taken()) session_.report(part);
        launcher_.look(now);
        keepRecord();
        view_.flush();
        keepOutput();
        judge(now);
        if (drawn() && !status_) options_.live->draw(now, session_.tree());
    }

    void keepRecord() {
        if (options_.record == nullptr || recordFailed_ || options_.record->flush()) return;
        recordFailed_ = true;
        say("the record could not be written, and is not whole");
    }

    // The exit status says so at the end, which may be far.
    void keepOutput() {
        if (options_.output == nullptr || *options_.output || std::exchange(outputFailed_, true))
            return;
        say("standard output cannot be written; the run goes on without");
    }

    void judge(double now) {
        if (signal_) {
            end(exitSignal + *signal_, fmt::format("stopping after SIG{}", sigabbrev_np(*signal_)));
            return;
        }
        if (changes_.reboot) {
            end(exitFailed, "stopping, since a reboot was requested");
            return;
        }
        if (std::exchange(changes_.completion, false) && !complete_ && allComplete()) {
            complete_ = true;
            if (options_.live != nullptr) options_.live->clear();
            service_.say("READY=1\nSTATUS=Complete");
            const RunOutcome outcome = runOutcome(outcomes(session_.tree()));
            if (outcome != RunOutcome::complete)
                say(fmt::format("the run {}", outcomeText(outcome)));
            endedBefore_ = launcher_.endedDaemons();
            if (!options_.untilComplete && daemons() != 0 && launcher_.failedDaemon().empty())
                say(fmt::format("complete; running until a signal comes or one of them ends: {}",
                                firstOf(launcher_.names(true), mostNames, std::identity())));
        }
        if (complete_) {
            if (!launcher_.failedDaemon().empty())
                end(exitFailed, "stopping, since " + launcher_.failedDaemon());
            else if (options_.untilComplete || launcher_.running() == 0)
                end(exitDone, "");
            else if (launcher_.endedDaemons() != endedBefore_)
                end(exitDone, "stopping, since " + launcher_.endedDaemon());
            else if (daemons() == 0)
                end(exitDone,
                    fmt::format("complete; stopping what was not ready in time, and still runs: {}",
                                firstOf(launcher_.names(false), mostNames, std::identity())));
            return;
        }
        if (now >= options_.within) {
            end(exitWaiting,
                fmt::format("stopping: not complete within {}", durationText(options_.within)));
            return;
        }
        const bool reportsCome = reports_ && !reports_->ended();
        if (session_.next() == Session::never && launcher_.unready() == 0 && !reportsCome)
            end(exitFailed, stuck());
    }

    std::size_t daemons() const { return launcher_.running() - launcher_.unready(); }

    void end(int status, std::string why) {
        status_ = status;
        why_ = std::move(why);
    }

    bool allComplete() const {
        std::size_t wanted = 0;
        for (const PlanClass& stageClass : plan_.classes) wanted += stageClass.instances.size();
        const std::vector<InstanceOutcome> all = outcomes(session_.tree());
        return wanted != 0 && all.size() == wanted &&
               std::all_of(all.begin(), all.end(), [](const InstanceOutcome& instance) {
                   return instance.state == InstanceOutcome::State::complete;
               });
    }

    std::string stuck() const {
        constexpr std::size_t most = 20;
        const std::vector<InstanceOutcome> all = outcomes(session_.tree());
        if (all.empty()) return "the plan enables no instance, so there is nothing to do";
        std::vector<std::string> reasons;
        for (const InstanceOutcome& instance : all) {
            const std::string where =
                all.size() == 1 ? ""
                                : fmt::format("{}/{}: ", printable(instance.stageClass.view()),
                                              printable(instance.instance.view()));
            if (instance.state == InstanceOutcome::State::suspended)
                reasons.push_back(where + "it is suspended, so no further stage starts");
            for (const StageOutcome& stage : instance.stages)
                if (const std::string why = reason(stage); !stage.isComplete() && !why.empty())
                    reasons.push_back(where + why);
        }
        std::string text = "the progression can go no further:";
        for (std::size_t i = 0; i < reasons.size() && i < most; ++i) text += "\n    " + reasons[i];
        if (reasons.size() > most) text += fmt::format("\n    and {} more", reasons.size() - most);
        return text;
    }

    void signal(int number) {
        if (stopping_) {
            if (signalsSeen_++ == 0 && !signal_) {
                say("stopping already; one more signal kills what still runs");
                return;
            }
            say("killing what still runs");
            launcher_.kill();
            return;
        }
        // Between two turns several may come.
        if (!signal_) signal_ = number;
        ++signalsSeen_;
    }

    // What is drawn would stand in the way of the shell, and be taken for our own afterwards.
    void suspend() {
        options_.live->clear();
        struct sigaction ours {};
        struct sigaction effect {};
        effect.sa_handler = SIG_DFL;
        sigaction(SIGTSTP, &effect, &ours);
        ::raise(SIGTSTP);
        sigaction(SIGTSTP, &ours, nullptr);
    }

    void stop() {
        stopping_ = true;
        launcher_.stop();
        if (signalsSeen_ > 1) launcher_.kill();
        untilStopped();
    }

    void untilStopped() {
        while (!launcher_.stopped()) {
            launcher_.look(loop_.now());
            if (!launcher_.stopped()) loop_.wait(launcher_.next());
        }
    }

    // What the user wants done when a reboot is requested.
    void reboot() {
        const Stage::FatalError& request = *session_.tree().fatalError();
        const std::string mode(
            Orv::ValueTraits<Stage::FatalError::ResetMode>::nameOf(request.requestReboot()));
        say("running what was asked for at a reboot: " + printable(options_.onReboot));
        const std::string failure = launcher_.startLast(
            {"/bin/sh", "-c", options_.onReboot},
            {{"STAGEMGR_REBOOT_MODE", mode},
             {"STAGEMGR_REBOOT_REASON", std::string(request.rebootReason().view())},
             {"STAGEMGR_REBOOT_DESCRIPTION", std::string(request.reloadCauseDesc().view())}});
        if (!failure.empty()) return say("it cannot be started: " + failure);
        untilStopped();
        if (launcher_.lastStatus().value_or(0) != 0)
            say("what was asked for at a reboot failed: " + endText(*launcher_.lastStatus()));
    }

    void say(const std::string& line) {
        view_.flush();
        if (options_.live != nullptr) options_.live->clear();
        err_ << "stagemgr: " << line << '\n' << std::flush;
    }

    const Plan& plan_;
    const RunOptions& options_;
    View& view_;
    std::ostream& err_;
    Changes changes_;
    Views views_;
    Loop loop_;
    ServiceNotifier service_;
    Ignored pipe_{SIGPIPE};
    Launcher launcher_;
    Session session_;
    std::unique_ptr<Reports> reports_;
    bool complete_ = false;
    std::size_t endedBefore_ = 0;  // so many daemons had ended when it became complete
    bool stopping_ = false;
    bool recordFailed_ = false;
    bool outputFailed_ = false;
    std::optional<int> signal_;
    int signalsSeen_ = 0;
    std::optional<int> status_;
    std::string why_;
    std::unique_ptr<Loop::Watch> signals_;
    std::unique_ptr<Loop::Watch> suspensions_;
};

}  // namespace

int runPlan(const Plan& plan, const RunOptions& options, View& view, std::ostream& err) {
    return Run(plan, options, view, err).run();
}

}  // namespace Host
