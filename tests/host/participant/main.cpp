// A participant that does what its arguments say, one after the other, for tests of how others are
// treated that do the like. Every act that fails ends it with status 99.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

[[noreturn]] void fail(const std::string& act) {
    dprintf(STDERR_FILENO, "%s: %s\n", act.c_str(), std::strerror(errno));
    _exit(99);
}

[[noreturn]] void pauseForEver() {
    for (;;) pause();
}

// Looks again and again: whoever tests has nothing to tell it with.
template <class Ready>
void until(Ready ready) {
    while (!ready()) usleep(2000);
}

class Participant {
  public:
    explicit Participant(std::vector<std::string> acts) : acts_(std::move(acts)) {
        const char* const socket = std::getenv("NOTIFY_SOCKET");
        if (socket != nullptr) socket_ = socket;
    }

    void run() {
        while (at_ < acts_.size()) act(next());
    }

  private:
    const std::string& next() {
        if (at_ == acts_.size()) fail("an act lacks its argument");
        return acts_[at_++];
    }
    int number() { return std::stoi(next()); }

    void act(const std::string& what) {
        // What it says to the socket.
        if (what == "ready") return send("READY=1");
        if (what == "say") return send(next());
        if (what == "say-zero") return send(std::string("READY=1\0", 8));
        if (what == "say-nothing") return send("");
        if (what == "say-bytes") return send(std::string(static_cast<std::size_t>(number()), 'x'));
        if (what == "say-long-ready") return send("READY=1\n" + std::string(5000, 'x'));
        if (what == "say-times") return sayTimes();
        if (what == "ready-connected") return readyConnected();
        if (what == "ready-with-descriptors") return readyWithDescriptors();
        if (what == "to") return to(next());
        if (what == "unlink-socket") return (void)unlink(socket_.c_str());

        // What it writes.
        if (what == "out") return write(STDOUT_FILENO, next());
        if (what == "err") return write(STDERR_FILENO, next());
        if (what == "flood") return flood();
        if (what == "bytes") return bytes();
        if (what == "variable") return variable();

        // Files, which tell others how far it is.
        if (what == "touch") return file(next(), "");
        if (what == "tell-socket") return file(next(), socket_);
        if (what == "until") return untilFile(next());

        // What it does to itself.
        if (what == "exit") _exit(number());
        if (what == "raise") return (void)raise(number());
        if (what == "ignore") return (void)signal(number(), SIG_IGN);
        if (what == "pause") pauseForEver();
        if (what == "close") return (void)close(number());
        if (what == "close-all") return closeAll();
        if (what == "want-descriptors") return wantDescriptors();
        if (what == "read-input") return readInput();
        if (what == "setsid") return need(setsid() >= 0, what);
        if (what == "setpgid") return need(setpgid(0, 0) == 0, what);

        // Others. Up to "end" it is done by a child, or by a grandchild whose parent has ended.
        if (what == "fork") return forked();
        if (what == "fork-away") return forkedAway();
        if (what == "forks") return forks();
        if (what == "wait") return need(wait(nullptr) > 0, what);
        if (what == "until-zombie") return untilZombie();
        errno = EINVAL;
        fail(what);
    }

    static void need(bool done, const std::string& what) {
        if (!done) fail(what);
    }

    sockaddr_un address() const {
        sockaddr_un made{};
        made.sun_family = AF_UNIX;
        if (socket_.empty() || socket_.size() >= sizeof made.sun_path) {
            errno = EDESTADDRREQ;
            fail("no socket");
        }
        socket_.copy(made.sun_path, socket_.size());
        return made;
    }

    static int datagrams() {
        const int made = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        need(made >= 0, "socket");
        const int large = 1 << 20;
        setsockopt(made, SOL_SOCKET, SO_SNDBUF, &large, sizeof large);
        return made;
    }

    void send(const std::string& message) const {
        const sockaddr_un address = this->address();
        const int from = datagrams();
        need(sendto(from, message.data(), message.size(), 0,
                    reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0,
             "sendto");
        close(from);
    }

    void sayTimes() {
        const int times = number();
        const std::string message = next();
        for (int i = 0; i < times; ++i) send(message);
    }

    void readyConnected() const {
        const sockaddr_un address = this->address();
        const int from = datagrams();
        need(connect(from, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
             "connect");
        need(::write(from, "READY=1", 7) == 7, "write");
        close(from);
    }

    void readyWithDescriptors() const {
        sockaddr_un address = this->address();
        const int from = datagrams();
        const std::array<int, 3> passed{0, 1, from};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof passed)> control{};
        std::string text = "READY=1";
        iovec part{text.data(), text.size()};
        msghdr message{};
        message.msg_name = &address;
        message.msg_namelen = sizeof address;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* const item = CMSG_FIRSTHDR(&message);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(sizeof passed);
        std::memcpy(CMSG_DATA(item), passed.data(), sizeof passed);
        need(sendmsg(from, &message, 0) >= 0, "sendmsg");
        close(from);
    }

    void to(const std::string& name) {
        std::ifstream file(name);
        std::getline(file, socket_);
    }

    static void write(int descriptor, const std::string& text) {
        for (std::size_t at = 0; at < text.size();) {
            const ssize_t length = ::write(descriptor, text.data() + at, text.size() - at);
            need(length >= 0, "write");
            at += static_cast<std::size_t>(length);
        }
    }

    void flood() {
        const int kibibytes = number();
        std::string block;
        while (block.size() < 1024) block += "all work and no play\n";
        block.resize(1024);
        for (int i = 0; i < kibibytes; ++i) write(STDOUT_FILENO, block);
    }

    static void bytes() {
        std::string all;
        for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
        write(STDOUT_FILENO, all);
    }

    void variable() {
        const std::string name = next();
        const char* const value = std::getenv(name.c_str());
        write(STDOUT_FILENO, name + "=" + (value != nullptr ? value : "(none)") + "\n");
    }

    static void file(const std::string& name, const std::string& content) {
        const std::string begun = name + ".begun";
        std::ofstream(begun) << content;
        need(std::rename(begun.c_str(), name.c_str()) == 0, name);
    }

    static void untilFile(const std::string& name) {
        until([&] { return access(name.c_str(), F_OK) == 0; });
    }

    static void closeAll() {
        for (int descriptor = 0; descriptor < 64; ++descriptor) close(descriptor);
    }

    static void wantDescriptors() {
        for (int descriptor = 0; descriptor < 1024; ++descriptor) {
            const bool open = fcntl(descriptor, F_GETFD) >= 0;
            if (open == (descriptor <= STDERR_FILENO)) continue;
            errno = EBADF;
            fail("descriptor " + std::to_string(descriptor));
        }
    }

    static void readInput() {
        char c = 0;
        need(read(STDIN_FILENO, &c, 1) == 0, "standard input is not empty");
    }

    // Goes on behind the "end" that belongs to the act.
    void skip() {
        for (int depth = 1; depth > 0;) {
            const std::string& word = next();
            if (word == "fork" || word == "fork-away") ++depth;
            if (word == "end") --depth;
        }
    }
    [[noreturn]] void runToEnd() {
        while (acts_[at_] != "end") act(next());
        _exit(0);
    }

    void forked() {
        const pid_t child = fork();
        need(child >= 0, "fork");
        if (child == 0) runToEnd();
        skip();
    }

    void forkedAway() {
        int away[2];
        need(pipe(away) == 0, "fork-away");
        const pid_t middle = fork();
        need(middle >= 0, "fork");
        if (middle == 0) {
            const pid_t parent = getpid();
            if (fork() != 0) _exit(0);
            setsid();
            until([&] { return getppid() != parent; });
            close(away[0]);
            close(away[1]);
            runToEnd();
        }
        waitpid(middle, nullptr, 0);
        // It ends when the other is in a session of its own: until then it would go with ours.
        close(away[1]);
        char byte = 0;
        need(read(away[0], &byte, 1) == 0, "fork-away");
        close(away[0]);
        skip();
    }

    // So many children, each with one of its own in a session of its own, that do nothing.
    void forks() {
        const int count = number();
        std::array<int, 2> there{};
        need(pipe(there.data()) == 0, "pipe");
        for (int i = 0; i < count; ++i)
            if (fork() == 0) {
                if (fork() != 0) pauseForEver();
                setsid();
                write(there[1], "x");
                pauseForEver();
            }
        char c = 0;
        for (int i = 0; i < count; ++i) need(read(there[0], &c, 1) == 1, "read");
    }

    // Until the last child has ended, which it does not wait for.
    static void untilZombie() {
        siginfo_t info{};
        need(waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) == 0, "waitid");
    }

    std::vector<std::string> acts_;
    std::size_t at_ = 0;
    std::string socket_;
};

}  // namespace

int main(int argc, char** argv) {
    Participant({argv + 1, argv + argc}).run();
    return 0;
}
