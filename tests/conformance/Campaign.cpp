#include "tests/conformance/Campaign.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

namespace conformance {
namespace {

constexpr std::size_t mostJobs = 256;
constexpr std::uint64_t nothing = ~std::uint64_t{0};

// In memory that all processes see.
struct Board {
    std::atomic<std::uint64_t> next{0};  // the number of seeds that were taken
    std::atomic<std::uint64_t> journals{0};
    std::atomic<std::uint64_t> lines{0};
    std::atomic<std::uint64_t> observations{0};
    std::atomic<std::uint64_t> aborted{0};
    std::atomic<std::uint64_t> differences{0};
    std::array<std::atomic<std::uint64_t>, 1000> differing{};
    std::array<std::atomic<std::uint64_t>, mostJobs> underWay{};

    void differs(std::uint64_t seed) {
        const std::uint64_t place = differences++;
        if (place < differing.size()) differing[place] = seed;
    }
    Count count() const { return {journals, lines, observations, aborted, differences}; }
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

struct Unmap {
    void operator()(Board* board) const { munmap(board, sizeof(Board)); }
};
using SharedBoard = std::unique_ptr<Board, Unmap>;

SharedBoard makeBoard() {
    void* const memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    return SharedBoard(new (memory) Board);
}

void work(const Campaign& campaign, Board& board, std::size_t job) {
    for (;;) {
        const std::uint64_t taken = board.next++;
        if (taken >= campaign.seeds || (campaign.stop && board.differences > 0)) return;
        const std::uint64_t seed = campaign.first + taken;
        board.underWay[job] = seed;
        endAfter(campaign.patience);
        const Verdict verdict = campaign.judge(seed);
        endAfter(0);
        board.underWay[job] = nothing;
        if (!verdict.agrees) board.differs(seed);
        board.lines += verdict.lines;
        board.observations += verdict.observations;
        if (verdict.aborted) ++board.aborted;
        ++board.journals;
    }
}

pid_t start(const Campaign& campaign, Board& board, std::size_t job) {
    std::fflush(nullptr);  // or the child writes it again
    board.underWay[job] = nothing;
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child > 0) return child;
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    try {
        work(campaign, board, job);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "seed %llu: %s\n",
                     static_cast<unsigned long long>(board.underWay[job].load()), error.what());
        std::_Exit(EXIT_FAILURE);
    }
    std::exit(EXIT_SUCCESS);  // with what a leak checker does then
}

}  // namespace

void endAfter(unsigned seconds) {
    const itimerval limit{{}, {static_cast<time_t>(seconds), 0}};
    setitimer(ITIMER_PROF, &limit, nullptr);
}

Result run(const Campaign& campaign) {
    const SharedBoard board = makeBoard();
    Result result;
    std::map<pid_t, std::size_t> processes;
    const std::size_t jobs = std::clamp<std::size_t>(campaign.jobs, 1, mostJobs);
    for (std::size_t job = 0; job < jobs; ++job) processes[start(campaign, *board, job)] = job;

    using Clock = std::chrono::steady_clock;
    Clock::time_point told = Clock::now();
    while (!processes.empty()) {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (campaign.progress && Clock::now() - told > std::chrono::seconds(60)) {
                told = Clock::now();
                campaign.progress(board->count());
            }
            continue;
        }
        const auto process = processes.find(ended);
        if (process == processes.end()) continue;
        const std::size_t job = process->second;
        processes.erase(process);
        if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) continue;

        const std::uint64_t seed = board->underWay[job];
        if (seed == nothing) {
            ++result.failedProcesses;
            continue;
        }
        board->differs(seed);
        ++board->journals;
        processes[start(campaign, *board, job)] = job;
    }

    result.count = board->count();
    const std::size_t kept =
        std::min<std::size_t>(result.count.differences, board->differing.size());
    result.differing.assign(board->differing.begin(),
                            board->differing.begin() + static_cast<std::ptrdiff_t>(kept));
    std::sort(result.differing.begin(), result.differing.end());
    return result;
}

}  // namespace conformance
