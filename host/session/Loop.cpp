#include "host/session/Loop.h"

#include <signal.h>
#include <sys/epoll.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/signal_set.hpp>
#include <cerrno>
#include <chrono>
#include <utility>

#include "host/session/Descriptor.h"

namespace Host {

namespace asio = boost::asio;
using Clock = std::chrono::steady_clock;

namespace {

// The most that is called back before the one who waits gets to look at the time again.
constexpr int callsPerWait = 64;
// A wait that is longer than this is done again by whoever wants it.
constexpr double longestWait = 3600.0;

// What calls back holds this, and asks it whether its watch still lives.
template <class Source, class Call>
struct Watched {
    Watched(asio::io_context& context, Call called) : source(context), call(std::move(called)) {}
    Source source;
    Call call;
    bool live = true;
};

using WatchedDescriptor = Watched<asio::posix::stream_descriptor, std::function<void()>>;
using WatchedSignals = Watched<asio::signal_set, std::function<void(int)>>;

void next(const std::shared_ptr<WatchedDescriptor>& watched) {
    watched->source.async_wait(asio::posix::stream_descriptor::wait_read,
                               [watched](const boost::system::error_code& error) {
                                   if (!watched->live || error == asio::error::operation_aborted)
                                       return;
                                   watched->call();
                                   if (watched->live) next(watched);
                               });
}

void next(const std::shared_ptr<WatchedSignals>& watched) {
    watched->source.async_wait([watched](const boost::system::error_code& error, int number) {
        if (!watched->live || error) return;
        watched->call(number);
        if (watched->live) next(watched);
    });
}

class DescriptorWatch final : public Loop::Watch {
  public:
    explicit DescriptorWatch(std::shared_ptr<WatchedDescriptor> watched)
        : watched_(std::move(watched)) {
        next(watched_);
    }
    ~DescriptorWatch() override {
        watched_->live = false;
        watched_->source.release();
    }

  private:
    std::shared_ptr<WatchedDescriptor> watched_;
};

class SignalsWatch final : public Loop::Watch {
  public:
    explicit SignalsWatch(std::shared_ptr<WatchedSignals> watched) : watched_(std::move(watched)) {
        next(watched_);
    }
    ~SignalsWatch() override {
        watched_->live = false;
        boost::system::error_code ignored;
        watched_->source.clear(ignored);
        // What waits would keep what it waits for, which keeps it.
        watched_->source.cancel(ignored);
    }

  private:
    std::shared_ptr<WatchedSignals> watched_;
};

// The loop would take any descriptor, and fail only when it waits.
bool canBeWaitedFor(int descriptor) {
    const Descriptor trial(epoll_create1(EPOLL_CLOEXEC));
    epoll_event event{};
    return epoll_ctl(trial.get(), EPOLL_CTL_ADD, descriptor, &event) == 0 || errno != EPERM;
}

}  // namespace

Loop::Watch::~Watch() = default;

class Loop::State {
  public:
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
    Clock::time_point start = Clock::now();
};

Loop::Loop() : state_(std::make_unique<State>()) {}

Loop::~Loop() = default;

double Loop::now() const {
    return std::chrono::duration<double>(Clock::now() - state_->start).count();
}

std::unique_ptr<Loop::Watch> Loop::readable(int descriptor, std::function<void()> call) {
    if (!canBeWaitedFor(descriptor)) return nullptr;
    auto watched = std::make_shared<WatchedDescriptor>(state_->context, std::move(call));
    watched->source.assign(descriptor);
    return std::make_unique<DescriptorWatch>(std::move(watched));
}

std::unique_ptr<Loop::Watch> Loop::signals(const std::vector<int>& numbers,
                                           std::function<void(int)> call) {
    auto watched = std::make_shared<WatchedSignals>(state_->context, std::move(call));
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : numbers) {
        watched->source.add(number);
        sigaddset(&wanted, number);
    }
    // Whoever started us may have blocked them.
    pthread_sigmask(SIG_UNBLOCK, &wanted, nullptr);
    return std::make_unique<SignalsWatch>(std::move(watched));
}

void Loop::wait(double until) {
    const double rest = std::clamp(until - now(), 0.0, longestWait);
    asio::io_context& context = state_->context;
    const auto for_ =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(rest));
    if (context.run_one_until(Clock::now() + for_) == 0) return;
    for (int calls = 1; calls < callsPerWait && context.poll_one() != 0; ++calls) {
    }
}

}  // namespace Host
