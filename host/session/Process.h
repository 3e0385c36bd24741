// Processes: how one is started, and which of them descend from us.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace Host {

// What is started. Nothing of ours reaches it but what stands here: its standard input is empty, it
// has no other descriptor, no signal is blocked or ignored, and it leads a session of its own.
struct Launch {
    std::vector<std::string> command;      // a program without a slash is searched for in our PATH
    std::vector<std::string> environment;  // "NAME=value", all of it
    std::string directory;                 // empty: ours
    int output = -1;                       // its standard output and standard error
};

// How it ended in being started: the process, or why there is none, for people.
struct Launched {
    pid_t process = 0;
    std::string failure;
};

Launched launch(const Launch& what);

// As many descriptors as we may have at all, for as long as it lives. What is launched meanwhile
// has the limit that we had before: many programs expect it to be small.
class ManyDescriptors {
  public:
    ManyDescriptors();
    ~ManyDescriptors();
    ManyDescriptors(const ManyDescriptors&) = delete;
    ManyDescriptors& operator=(const ManyDescriptors&) = delete;
};

// A process as it is at one moment.
struct ProcessFacts {
    pid_t process = 0;
    pid_t parent = 0;
    pid_t group = 0;
    pid_t session = 0;
    char state = '?';  // as /proc spells it: T is stopped, Z has ended and was not waited for
    unsigned long long started = 0;  // with this a number that is used again is told apart
};

// Absent: there is no such process.
std::optional<ProcessFacts> processFacts(pid_t process);

// All that descend from the process, parents before their children. One that appears or ends
// meanwhile may be missing.
std::vector<ProcessFacts> descendants(pid_t process);

// The processes whose parent it is.
std::vector<pid_t> childrenOf(pid_t process);

// Sends the signal unless the process's number stands for another one by now. Returns 0 or the
// error.
int signalProcess(const ProcessFacts& process, int number);

// Whether the process's environment, as it was when its program started, holds that line.
bool environmentHolds(pid_t process, const std::string& line);

// "exit status 3", "killed by SIGKILL", "killed by signal 64", of what wait says.
std::string endText(int status);

}  // namespace Host
