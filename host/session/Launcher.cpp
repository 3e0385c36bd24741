#include "host/session/Launcher.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/Utf8.h"
#include "host/plan/Duration.h"
#include "host/session/Descriptor.h"
#include "host/session/OutputLog.h"

namespace Host {

namespace {

// How many of the last lines of a participant's output are shown when something is wrong with it.
constexpr std::size_t linesShown = 10;
// How much is read at once, and how much at most of what an ended process has left in its pipe:
// others may hold the pipe, and write on and on.
constexpr std::size_t readAtOnce = std::size_t{64} * 1024;
constexpr std::size_t readAtEnd = 16 * readAtOnce;
// How many messages of one participant are read before others have their turn.
constexpr int messagesAtOnce = 32;
// How often we look whether the last processes have gone, and for how long, in seconds.
constexpr double lookEvery = 0.02;
constexpr double killFor = 10.0;

double limitOf(const PlanStage& stage) {
    double limit = 0.0;
    for (const PlanParticipant& participant : stage.participants)
        limit = std::max(limit, participant.limit);
    return limit;
}

bool sameStage(const Part& a, const Part& b) {
    return a.stage == b.stage && a.instance == b.instance;
}

// Whose message it is.
enum class Sender { own, stranger, gone };

Sender whose(pid_t sender, pid_t child, const std::string& socketPath) {
    if (sender == child) return Sender::own;
    // A parent that ends meanwhile leaves its child to another; then we look again.
    for (int attempt = 0; attempt < 3; ++attempt) {
        pid_t at = sender;
        for (auto facts = processFacts(at); facts; facts = processFacts(at)) {
            if (facts->session == child || facts->parent == child) return Sender::own;
            // It descends from us, but its way to the child is cut: a process that forked away and
            // began a session of its own. It still knows the socket by its environment.
            if (facts->parent == getpid())
                return environmentHolds(sender, "NOTIFY_SOCKET=" + socketPath) ? Sender::own
                                                                               : Sender::stranger;
            if (facts->parent <= 1) return Sender::stranger;
            at = facts->parent;
        }
        if (at == sender) return Sender::gone;
    }
    return Sender::gone;
}

using Variables = std::vector<std::pair<std::string, std::string>>;

// Ours, with these added or replaced.
std::vector<std::string> environmentWith(const Variables& added) {
    std::vector<std::string> all;
    for (char** line = environ; *line != nullptr; ++line) {
        const std::string_view held(*line);
        const std::string_view name = held.substr(0, held.find('='));
        // What our own manager told us is not for those below.
        const bool ours = name == "NOTIFY_SOCKET" || name == "WATCHDOG_USEC" ||
                          name == "WATCHDOG_PID" || name == "LISTEN_FDS" || name == "LISTEN_PID" ||
                          name == "LISTEN_FDNAMES";
        const bool replaced = std::any_of(added.begin(), added.end(),
                                          [&](const auto& other) { return other.first == name; });
        if (!ours && !replaced) all.emplace_back(held);
    }
    for (const auto& [name, value] : added) all.push_back(fmt::format("{}={}", name, value));
    return all;
}

std::vector<std::string> environmentOf(const Part& part, const NotifySocket* socket) {
    Variables added = part.participant->environment;
    added.emplace_back("STAGEMGR_CLASS", part.stageClass->name);
    added.emplace_back("STAGEMGR_INSTANCE", part.instance);
    added.emplace_back("STAGEMGR_STAGE", part.stage->name);
    added.emplace_back("STAGEMGR_AGENT", part.participant->name);
    if (socket != nullptr) added.emplace_back("NOTIFY_SOCKET", socket->path());
    return environmentWith(added);
}

}  // namespace

class Launcher::Child {
  public:
    Child(Part of, std::string name) : part(std::move(of)), label(std::move(name)) {}

    Part part;
    std::string label;
    pid_t process = 0;
    double started = 0.0;  // by the loop's clock
    bool running = false;
    bool ready = false;
    bool told = false;    // to stop
    bool killed = false;  // since it did not
    double killAt = Loop::never;

    bool toldOfStranger = false;
    bool toldOfCut = false;
    std::string status;  // what it said of itself
    std::optional<int> error;

    OutputLog log;
    Descriptor output;
    std::unique_ptr<NotifySocket> socket;
    // Watches go before what they watch.
    std::unique_ptr<Loop::Watch> outputWatch;
    std::unique_ptr<Loop::Watch> socketWatch;

    bool notifies() const { return part.participant->ready == PlanParticipant::Ready::notify; }
};

Launcher::Launcher(const Plan& plan, Loop& loop, LaunchOptions options)
    : plan_(plan), loop_(loop), options_(std::move(options)), random_{std::random_device{}()} {
    std::size_t instances = 0;
    for (const PlanClass& stageClass : plan.classes) instances += stageClass.instances.size();
    severalInstances_ = instances > 1;
    for (const pid_t other : childrenOf(getpid())) others_.insert(other);
    prctl(PR_GET_CHILD_SUBREAPER, &subreaperBefore_);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    ends_ = loop_.signals({SIGCHLD}, [this](int) { reap(); });
}

Launcher::~Launcher() {
    // Whoever went without stopping, by an exception, leaves nothing behind all the same.
    if (phase_ != Phase::stopped) {
        options_.say = [](const std::string&) {};
        kill();
        while (!stopped()) {
            look(loop_.now());
            loop_.wait(next());
        }
    }
    prctl(PR_SET_CHILD_SUBREAPER, subreaperBefore_);
}

std::string Launcher::label(const Part& part) const {
    std::string name = printable(part.stage->name);
    if (part.participant->name != part.stage->name) name += ":" + printable(part.participant->name);
    if (!severalInstances_) return name;
    return fmt::format("{} ({}/{})", name, printable(part.stageClass->name),
                       printable(part.instance));
}

void Launcher::start(Session& session, const Part& part) {
    switch (part.participant->kind) {
        case PlanParticipant::Kind::command: launchCommand(session.time(), part); break;
        case PlanParticipant::Kind::simulated: {
            const double takes = sample(part.participant->takes.value_or(assumedTakes), random_);
            if (takes != Session::never) session.scheduleReport(session.time() + takes, part);
            break;
        }
        case PlanParticipant::Kind::external:
            if (!options_.reports)
                say(
                    fmt::format("{} is external, and nobody can report for it: there is no "
                                "--reports",
                                label(part)));
            break;
    }
}

void Launcher::launchCommand(double now, const Part& part) {
    children_.push_back(std::make_unique<Child>(part, label(part)));
    Child& child = *children_.back();
    const auto failed = [&](const std::string& why) {
        say(fmt::format("{} cannot be started: {}", child.label, why));
    };
    Descriptor write;
    Launch what;
    try {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "no pipe for its output");
        child.output = Descriptor(ends[0]);
        write = Descriptor(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        if (child.notifies()) {
            if (!sockets_) sockets_ = std::make_unique<PrivateFolder>();
            child.socket = std::make_unique<NotifySocket>(
                fmt::format("{}/{}", sockets_->path(), children_.size()));
        }
        if (!options_.outputFolder.empty())
            child.log.writeTo(options_.outputFolder + "/" +
                              outputFileName({part.stageClass->name, part.instance,
                                              part.stage->name, part.participant->name},
                                             children_.size()));
    } catch (const std::system_error& e) {
        const bool many = e.code().value() == EMFILE;
        return failed(printable(e.what()) +
                      (many ? "; raise the hard limit of open files (ulimit -H -n)" : ""));
    }
    if (options_.showOutput)
        child.log.passOn([this, &child](const std::string& line) {
            say(fmt::format("{} | {}", child.label, line));
        });

    what.command = part.participant->command;
    what.environment = environmentOf(part, child.socket.get());
    what.output = write.get();
    if (!part.participant->directory.empty())
        what.directory =
            std::filesystem::path(plan_.file).parent_path() / part.participant->directory;
    const Launched launched = launch(what);
    write.close();
    if (launched.process == 0) {
        child.output.close();
        child.socket.reset();
        return failed(launched.failure);
    }

    child.process = launched.process;
    child.started = loop_.now();
    child.running = true;
    processes_[child.process] = &child;
    ++running_;
    ++unready_;
    const double limit = limitOf(*part.stage);
    if (limit != Session::never) limits_.emplace(now + limit, &child);
    child.outputWatch =
        loop_.readable(child.output.get(), [this, &child] { readOutput(child, false); });
    if (child.socket)
        child.socketWatch = loop_.readable(child.socket->descriptor(),
                                           [this, &child] { readNotifications(child, false); });
}

void Launcher::readOutput(Child& child, bool all) {
    std::array<char, readAtOnce> buffer;
    for (std::size_t done = 0; child.output && done < (all ? readAtEnd : 1);) {
        const ssize_t length = read(child.output.get(), buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) continue;
        if (length < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (length > 0) {
            const bool whole = child.log.fileFailure().empty();
            child.log.add({buffer.data(), static_cast<std::size_t>(length)});
            if (whole && !child.log.fileFailure().empty())
                say(fmt::format("{}: its output is written to its file no more: {}", child.label,
                                child.log.fileFailure()));
            done += static_cast<std::size_t>(length);
            continue;
        }
        child.outputWatch.reset();
        child.output.close();
        child.log.end();
    }
}

void Launcher::readNotifications(Child& child, bool all) {
    // The socket's queue is short; whoever is alive could fill it without end.
    for (int messages = 0; messages < (all ? 16 : 1) * messagesAtOnce; ++messages) {
        const auto message = child.socket->next();
        if (!message) return;
        heed(child, *message);
    }
}

void Launcher::heed(Child& child, const NotifySocket::Message& message) {
    if (phase_ != Phase::running) return;
    if (message.cut && !std::exchange(child.toldOfCut, true))
        say(fmt::format("{}: a message of more than {} bytes to its NOTIFY_SOCKET is ignored",
                        child.label, NotifySocket::longestMessage));
    const Notification said = notification(message.text);
    if (!said.ready && !said.status && !said.error) return;
    const Sender sender = whose(message.sender, child.process, child.socket->path());
    if (sender != Sender::own) {
        if (std::exchange(child.toldOfStranger, true)) return;
        say(sender == Sender::stranger
                ? fmt::format("{}: a message from process {}, which does not belong to it, is "
                              "ignored",
                              child.label, message.sender)
                : fmt::format(
                      "{}: a message from process {} is ignored: it has ended already, so "
                      "nobody can tell whether it belongs to it; a helper that says READY=1 "
                      "has to stay until that is read, as systemd-notify does",
                      child.label, message.sender));
        return;
    }
    if (said.status) child.status = *said.status;
    if (said.error) child.error = said.error;
    if (said.ready) ready(child);
}

void Launcher::ready(Child& child) {
    if (std::exchange(child.ready, true)) return;
    --unready_;
    done_.push_back(child.part);
}

std::vector<Part> Launcher::taken() { return std::exchange(done_, {}); }

std::vector<std::string> Launcher::names(bool ready) const {
    std::vector<std::string> names;
    for (const auto& child : children_)
        if (child->running && child->ready == ready) names.push_back(child->label);
    return names;
}

void Launcher::reap() {
    for (;;) {
        // Looked at first and waited for later: as long as it was not, its number is its own, and
        // what it said before it ended can be told from what others say.
        siginfo_t info{};
        if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0) return;
        const auto found = processes_.find(info.si_pid);
        Child* const child = found != processes_.end() ? found->second : nullptr;
        if (child != nullptr) {
            if (child->socket) readNotifications(*child, true);
            readOutput(*child, true);
        }
        int status = 0;
        if (waitpid(info.si_pid, &status, 0) != info.si_pid) return;
        others_.erase(info.si_pid);
        told_.erase(info.si_pid);
        if (info.si_pid == last_) {
            lastStatus_ = status;
            kill();  // whatever it left behind
        }
        if (child == nullptr) continue;
        processes_.erase(found);
        ended(*child, status);
    }
}

void Launcher::ended(Child& child, int status) {
    child.running = false;
    child.socketWatch.reset();
    child.socket.reset();
    --running_;
    if (child.ready) {
        if (phase_ != Phase::running) return;
        const std::string what =
            fmt::format("{} ended after it was ready: {}", child.label, endText(status));
        ++endedDaemons_;
        endedDaemon_ = what;
        if (status != 0 && failedDaemon_.empty()) failedDaemon_ = what;
        say(what);
        if (status != 0) sayLastLines(child);
        return;
    }
    --unready_;
    if (phase_ != Phase::running) return;
    const bool well = status == 0;
    if (well && !child.notifies()) {
        done_.push_back(child.part);
        return;
    }
    say(fmt::format("{} failed after {}: {}{}", child.label,
                    timeText(std::max(0.0, loop_.now() - child.started)), endText(status),
                    child.notifies() ? " before it said READY=1" : ""));
    sayLastLines(child);
}

void Launcher::sayLastLines(const Child& child) const {
    if (!child.status.empty()) say(fmt::format("    its status: {}", inQuotes(child.status)));
    if (child.error) say(fmt::format("    its error: {}", std::strerror(*child.error)));
    // Everybody has seen it.
    if (options_.showOutput) return;
    for (const std::string& line : child.log.lastLines(linesShown)) say("    | " + line);
}

double Launcher::next() const {
    if (phase_ == Phase::stopped || phase_ == Phase::last) return Loop::never;
    if (phase_ != Phase::running || limits_.empty()) return nextLook_;
    return limits_.begin()->first;
}

void Launcher::look(double now) {
    switch (phase_) {
        case Phase::running: overdue(now); break;
        case Phase::stopping:
            nextLook_ = Loop::never;
            while (groupStopped(now)) {
                if (unstopped_ == 0) {
                    phase_ = Phase::sweeping;
                    return sweep(now);
                }
                nextGroup(now);
            }
            break;
        case Phase::sweeping: sweep(now); break;
        case Phase::stopped:
        case Phase::last: break;
    }
}

void Launcher::overdue(double now) {
    while (!limits_.empty() && limits_.begin()->first <= now) {
        const Child& child = *limits_.begin()->second;
        const double limit = limitOf(*child.part.stage);
        limits_.erase(limits_.begin());
        if (!child.running || child.ready) continue;
        const auto facts = processFacts(child.process);
        say(fmt::format("{} is not ready within its stage's limit of {}{}", child.label,
                        durationText(limit),
                        facts && facts->state == 'T' ? "; it has been stopped by a signal" : ""));
        sayLastLines(child);
    }
}

void Launcher::stop() {
    if (phase_ != Phase::running) return;
    phase_ = Phase::stopping;
    unstopped_ = children_.size();
    nextLook_ = 0.0;
}

void Launcher::kill() {
    if (phase_ == Phase::stopped) return;
    killing_ = true;
    phase_ = Phase::sweeping;
    nextLook_ = 0.0;
    giveUp_ = Loop::never;
}

std::string Launcher::startLast(std::vector<std::string> command, Variables environment) {
    const Launched launched =
        launch({std::move(command), environmentWith(environment), {}, STDERR_FILENO});
    if (launched.process == 0) return launched.failure;
    last_ = launched.process;
    phase_ = Phase::last;
    return {};
}

void Launcher::nextGroup(double now) {
    group_.clear();
    do {
        group_.push_back(children_[--unstopped_].get());
    } while (unstopped_ != 0 && sameStage(children_[unstopped_ - 1]->part, group_.front()->part));
    for (Child* const child : group_) {
        child->killAt = now + child->part.participant->stopLimit;
        if (!child->running) continue;
        child->told = true;
        ::kill(-child->process, SIGTERM);
        // One that is stopped would not notice.
        ::kill(-child->process, SIGCONT);
    }
}

bool Launcher::groupStopped(double now) {
    bool running = false;
    double killAt = 0.0;
    for (Child* const child : group_) {
        killAt = std::max(killAt, child->killAt);
        if (!child->running) continue;
        running = true;
        if (!child->killed && now >= child->killAt) {
            child->killed = true;
            ::kill(-child->process, SIGKILL);
            say(fmt::format("{} did not stop within {}, and was killed", child->label,
                            durationText(child->part.participant->stopLimit)));
        }
        if (!child->killed) nextLook_ = std::min(nextLook_, child->killAt);
    }
    if (running) return false;
    // What a participant started goes on in its session for a while, as when a shell ends before
    // the program that it runs. It gets as much time.
    const std::vector<ProcessFacts> left = leftBehind();
    for (const ProcessFacts& process : left) {
        const auto leader = std::find_if(group_.begin(), group_.end(), [&](const Child* child) {
            return child->process == process.session;
        });
        const bool knows = (*leader)->told && process.group == process.session;
        if (now >= killAt)
            signalProcess(process, SIGKILL);
        else if (!knows && told_.insert(process.process).second)
            signalProcess(process, SIGTERM);
    }
    if (!left.empty()) nextLook_ = std::min(nextLook_, now + lookEvery);
    return left.empty();
}

std::vector<ProcessFacts> Launcher::leftBehind() const {
    // Nobody was left behind if nobody became our child in addition.
    if (childrenOf(getpid()).size() <= running_ + others_.size()) return {};
    std::vector<ProcessFacts> left = descendants(getpid());
    std::erase_if(left, [&](const ProcessFacts& process) {
        return process.state == 'Z' || processes_.contains(process.session) ||
               std::none_of(group_.begin(), group_.end(), [&](const Child* child) {
                   return child->process != 0 && child->process == process.session;
               });
    });
    return left;
}

void Launcher::sweep(double now) {
    reap();
    if (giveUp_ == Loop::never) giveUp_ = now + killFor;
    std::vector<ProcessFacts> left = descendants(getpid());
    std::set<pid_t> spared = others_;
    std::erase_if(left, [&](const ProcessFacts& process) {
        const bool other = spared.contains(process.process) || spared.contains(process.parent);
        if (other) spared.insert(process.process);
        return other;
    });
    if (left.empty()) {
        phase_ = Phase::stopped;
        return;
    }
    std::size_t killed = 0;
    std::string why;
    for (const ProcessFacts& process : left) {
        if (process.state == 'Z') continue;
        ++killed;
        const int error = signalProcess(process, SIGKILL);
        if (error != 0 && error != ESRCH) why = std::strerror(error);
    }
    if (killed != 0 && !std::exchange(killing_, true))
        say(fmt::format("{} process{} that participants left behind {} killed", killed,
                        killed == 1 ? "" : "es", killed == 1 ? "was" : "were"));
    if (now >= giveUp_) {
        unkillable_ = left.size();
        phase_ = Phase::stopped;
        say(fmt::format("{} process{} cannot be killed{}{}", left.size(),
                        left.size() == 1 ? "" : "es", why.empty() ? "" : ": ", why));
        for (const ProcessFacts& process : left)
            say(fmt::format("    process {}", process.process));
        return;
    }
    nextLook_ = now + lookEvery;
}

}  // namespace Host
