#include "host/session/Process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>

#include "host/Utf8.h"
#include "host/session/Descriptor.h"

namespace Host {

namespace {

// The limit that we had before somebody wanted many descriptors; absent while nobody does.
std::optional<rlimit> limitBefore;

// The children's limit, while it lives.
class ChildrensLimit {
  public:
    ChildrensLimit() {
        if (!limitBefore || getrlimit(RLIMIT_NOFILE, &ours_) != 0) return;
        setrlimit(RLIMIT_NOFILE, &*limitBefore);
        changed_ = true;
    }
    ~ChildrensLimit() {
        if (changed_) setrlimit(RLIMIT_NOFILE, &ours_);
    }
    ChildrensLimit(const ChildrensLimit&) = delete;
    ChildrensLimit& operator=(const ChildrensLimit&) = delete;

  private:
    rlimit ours_{};
    bool changed_ = false;
};

// What posix_spawn is told beside the program.
class SpawnSettings {
  public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSettings() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> made;
    made.reserve(texts.size() + 1);
    // It is not written to.
    for (const std::string& text : texts) made.push_back(const_cast<char*>(text.c_str()));
    made.push_back(nullptr);
    return made;
}

std::string failureText(const Launch& what, int error) {
    std::error_code ignored;
    if (!what.directory.empty() && !std::filesystem::is_directory(what.directory, ignored))
        return fmt::format("its directory {} {}", inQuotes(what.directory),
                           std::filesystem::exists(what.directory, ignored) ? "is no directory"
                                                                            : "does not exist");
    if (!what.directory.empty() && access(what.directory.c_str(), X_OK) != 0)
        return fmt::format("its directory {} cannot be entered: {}", inQuotes(what.directory),
                           std::strerror(errno));
    const std::string& program = what.command.front();
    if (error == ENOENT && program.find('/') == std::string::npos)
        return fmt::format("there is no program {} in PATH", inQuotes(program));
    if (error == ENOEXEC)
        return fmt::format("{} is no program that can be executed; a script starts with \"#!\"",
                           inQuotes(program));
    if (error == E2BIG)
        return fmt::format("its arguments and environment are larger than the system takes");
    return fmt::format("{} cannot be executed: {}", inQuotes(program), std::strerror(error));
}

// A text of a C function ends at a zero byte; what stands behind it must not get lost.
bool hasZero(const std::vector<std::string>& texts) {
    return std::any_of(texts.begin(), texts.end(), [](const std::string& text) {
        return text.find('\0') != std::string::npos;
    });
}

std::string whole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

Launched launch(const Launch& what) {
    if (what.command.empty() || what.command.front().empty()) return {0, "its command is empty"};
    if (hasZero(what.command) || hasZero(what.environment) || hasZero({what.directory}))
        return {0, "a text of its command, environment or directory has a zero byte in it"};

    SpawnSettings settings;
    posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&settings.actions, what.output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&settings.actions, what.output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&settings.actions, STDERR_FILENO + 1);
    if (!what.directory.empty())
        posix_spawn_file_actions_addchdir_np(&settings.actions, what.directory.c_str());
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&settings.attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&settings.attributes, &signals);
    posix_spawnattr_setflags(&settings.attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t process = 0;
    const std::vector<char*> command = pointers(what.command);
    const std::vector<char*> environment = pointers(what.environment);
    const ChildrensLimit limit;
    const int error = posix_spawnp(&process, command.front(), &settings.actions,
                                   &settings.attributes, command.data(), environment.data());
    if (error != 0) return {0, failureText(what, error)};
    return {process, {}};
}

ManyDescriptors::ManyDescriptors() {
    rlimit limit{};
    if (limitBefore || getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limitBefore = limit;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

ManyDescriptors::~ManyDescriptors() {
    if (limitBefore) setrlimit(RLIMIT_NOFILE, &*limitBefore);
    limitBefore.reset();
}

std::optional<ProcessFacts> processFacts(pid_t process) {
    const std::string text = whole(fmt::format("/proc/{}/stat", process));
    // The name stands in parentheses, and may hold some itself.
    const std::size_t name = text.rfind(')');
    if (name == std::string::npos) return std::nullopt;
    std::istringstream rest(text.substr(name + 1));
    ProcessFacts facts;
    facts.process = process;
    rest >> facts.state >> facts.parent >> facts.group >> facts.session;
    std::string skipped;
    for (int field = 7; field < 22; ++field) rest >> skipped;
    rest >> facts.started;
    if (!rest) return std::nullopt;
    return facts;
}

std::vector<pid_t> childrenOf(pid_t process) {
    std::vector<pid_t> found;
    std::error_code error;
    const std::string tasks = fmt::format("/proc/{}/task", process);
    for (std::filesystem::directory_iterator task(tasks, error), end; !error && task != end;
         task.increment(error)) {
        std::istringstream children(whole(task->path() / "children"));
        for (pid_t child = 0; children >> child;) found.push_back(child);
    }
    return found;
}

std::vector<ProcessFacts> descendants(pid_t process) {
    std::vector<ProcessFacts> found;
    // A process that moves while we look may be seen twice.
    std::set<pid_t> seen{process};
    std::vector<pid_t> front{process};
    while (!front.empty()) {
        std::vector<pid_t> next;
        for (const pid_t parent : front)
            for (const pid_t child : childrenOf(parent)) {
                if (!seen.insert(child).second) continue;
                next.push_back(child);
                if (const auto facts = processFacts(child)) found.push_back(*facts);
            }
        front = std::move(next);
    }
    return found;
}

int signalProcess(const ProcessFacts& process, int number) {
    const Descriptor held(static_cast<int>(syscall(SYS_pidfd_open, process.process, 0)));
    if (!held) return errno;
    // The number is its own from here on, so it is the same process if it is as old.
    const auto now = processFacts(process.process);
    if (!now || now->started != process.started) return ESRCH;
    if (syscall(SYS_pidfd_send_signal, held.get(), number, nullptr, 0) != 0) return errno;
    return 0;
}

bool environmentHolds(pid_t process, const std::string& line) {
    const std::string all = '\0' + whole(fmt::format("/proc/{}/environ", process));
    return all.find('\0' + line + '\0') != std::string::npos;
}

std::string endText(int status) {
    if (WIFEXITED(status)) return fmt::format("exit status {}", WEXITSTATUS(status));
    const int number = WTERMSIG(status);
    const char* const name = sigabbrev_np(number);
    return name != nullptr ? fmt::format("killed by SIG{}", name)
                           : fmt::format("killed by signal {}", number);
}

}  // namespace Host
