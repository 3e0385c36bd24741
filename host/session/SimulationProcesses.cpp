#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <utility>

#include "host/plan/Schedule.h"
#include "host/session/Simulation.h"

namespace Host {

namespace {

[[noreturn]] void failed(const char* what) {
    throw std::runtime_error(fmt::format("cannot {}: {}", what, std::strerror(errno)));
}

// One end of a pipe.
class End {
  public:
    explicit End(int fd) : fd_(fd) {}
    End(End&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    End& operator=(End&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~End() { close(); }

    void close() {
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }
    void write(const void* data, std::size_t size) const {
        const auto* at = static_cast<const char*>(data);
        while (size != 0) {
            const ssize_t written = ::write(fd_, at, size);
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) failed("write to a pipe");
            at += written;
            size -= static_cast<std::size_t>(written);
        }
    }
    // False when the other end was closed before.
    bool read(void* data, std::size_t size) const {
        auto* at = static_cast<char*>(data);
        while (size != 0) {
            const ssize_t got = ::read(fd_, at, size);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) failed("read from a pipe");
            if (got == 0) return false;
            at += got;
            size -= static_cast<std::size_t>(got);
        }
        return true;
    }
    template <class Number>
    void write(const std::vector<Number>& numbers) const {
        const std::uint64_t size = numbers.size();
        write(&size, sizeof size);
        write(numbers.data(), size * sizeof(Number));
    }
    template <class Number>
    bool read(std::vector<Number>& numbers) const {
        std::uint64_t size = 0;
        if (!read(&size, sizeof size)) return false;
        numbers.resize(size);
        return read(numbers.data(), size * sizeof(Number));
    }

  private:
    int fd_;
};

// A process that does some of the runs.
class Worker {
  public:
    // What `work` writes to the end that it is given can be read from here.
    template <class Work>
    explicit Worker(const Work& work) : results_(-1) {
        int ends[2];
        if (::pipe(ends) != 0) failed("make a pipe");
        End in(ends[0]);
        End out(ends[1]);
        const pid_t parent = ::getpid();
        process_ = ::fork();
        if (process_ < 0) failed("make a process");
        if (process_ == 0) {
            // Whoever ends this program, however that is done, ends its workers.
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent) ::_exit(EXIT_FAILURE);
            in.close();
            int status = EXIT_SUCCESS;
            try {
                work(out);
            } catch (...) {
                status = EXIT_FAILURE;
            }
            ::_exit(status);  // what the streams hold is the parent's
        }
        results_ = std::move(in);
    }
    Worker(Worker&& other) noexcept
        : process_(std::exchange(other.process_, -1)), results_(std::move(other.results_)) {}
    Worker& operator=(Worker&&) = delete;
    ~Worker() {
        results_.close();  // whoever still writes ends by that
        if (process_ > 0) wait();
    }

    // Everything that it wrote, in that order.
    template <class... Results>
    void read(Results&... results) {
        const bool whole = (results_.read(results) && ...);
        const int status = wait();
        if (!whole || status != 0)
            throw std::runtime_error("a process that simulates runs ended before it was done");
    }

  private:
    int wait() {
        int status = -1;
        while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        process_ = -1;
        return status;
    }

    pid_t process_ = -1;
    End results_;
};

// Which of so many things a process does: as many as every other, or one more.
struct Share {
    std::uint64_t first;
    std::uint64_t last;
};
std::vector<Share> shares(std::uint64_t things, unsigned processes) {
    const std::uint64_t count = std::clamp<std::uint64_t>(things, 1, std::max(processes, 1U));
    std::vector<Share> made;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t first = things / count * i + std::min(i, things % count);
        made.push_back({first, first + things / count + (i < things % count ? 1 : 0)});
    }
    return made;
}

void add(std::vector<std::uint64_t>& sums, const std::vector<std::uint64_t>& more) {
    sums.resize(std::max(sums.size(), more.size()));
    std::transform(more.begin(), more.end(), sums.begin(), sums.begin(), std::plus<>());
}

}  // namespace

Runs simulateRunsIn(unsigned processes, const Plan& plan, const Durations& durations,
                    std::uint64_t seed, std::uint64_t runs,
                    const std::optional<Expectation>& expected) {
    const std::vector<Share> all = shares(runs, processes);
    if (all.size() == 1) return simulateRuns(plan, durations, seed, 0, runs, expected);
    std::vector<Worker> workers;
    workers.reserve(all.size());
    for (const Share& share : all)
        workers.emplace_back([&](const End& out) {
            const Runs some =
                simulateRuns(plan, durations, seed, share.first, share.last, expected);
            out.write(some.outcomes);
            out.write(some.completions);
            out.write(some.timeouts);
            out.write(std::vector{some.met});
        });
    Runs made;
    for (Worker& worker : workers) {
        Runs some;
        std::vector<std::uint64_t> met;
        worker.read(some.outcomes, some.completions, some.timeouts, met);
        add(made.outcomes, some.outcomes);
        add(made.timeouts, some.timeouts);
        made.completions.insert(made.completions.end(), some.completions.begin(),
                                some.completions.end());
        made.met += met.at(0);
    }
    return made;
}

std::vector<Missing> eachMissing(unsigned processes, const Plan& plan, const Durations& durations) {
    std::vector<Missing> made;
    for (const PlanClass& stageClass : plan.classes)
        for (const PlanStage& stage : stageClass.stages)
            for (const PlanParticipant& participant : stage.participants)
                if (!takesNoTime(participant)) made.push_back({&stageClass, &stage, &participant});

    const std::vector<Share> all = shares(made.size(), processes);
    const auto own = [&](const Share& share) {
        return std::span(made).subspan(share.first, share.last - share.first);
    };
    if (all.size() == 1) {
        simulateMissing(plan, durations, made);
        return made;
    }
    std::vector<Worker> workers;
    workers.reserve(all.size());
    for (const Share& share : all)
        workers.emplace_back([&](const End& out) {
            simulateMissing(plan, durations, own(share));
            std::vector<std::uint64_t> outcomes;
            std::vector<double> times;
            for (const Missing& missing : own(share)) {
                outcomes.push_back(static_cast<std::uint64_t>(missing.outcome));
                times.push_back(missing.time);
            }
            out.write(outcomes);
            out.write(times);
        });
    for (std::size_t i = 0; i < all.size(); ++i) {
        std::vector<std::uint64_t> outcomes;
        std::vector<double> times;
        workers[i].read(outcomes, times);
        for (std::size_t k = 0; Missing & missing : own(all[i])) {
            missing.outcome = static_cast<RunOutcome>(outcomes.at(k));
            missing.time = times.at(k++);
        }
    }
    return made;
}

}  // namespace Host
