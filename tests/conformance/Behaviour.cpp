#include "tests/conformance/Behaviour.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

#include "host/Journal.h"
#include "host/JsonLines.h"
#include "host/Replay.h"
#include "tests/conformance/Campaign.h"
#include "tests/conformance/Invariants.h"
#include "tests/conformance/JournalText.h"

namespace conformance {
namespace {

std::string signalText(int signal) {
    return "ended by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")\n";
}

void writeAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

// The library's feed as text, with the invariants looked at on the way.
class Witness final : public Host::View {
  public:
    // file: what is there goes to it when the library asks for that, since it is about to abort; -1
    // for none.
    explicit Witness(int file) : file_(file) {}

    void treeIs(const Host::Tree& tree) {
        invariants_.emplace(tree,
                            [this](const std::string& broken) { say("broken: " + broken + '\n'); });
    }
    void stateIsShown(double t, const Host::Tree& tree) {
        lines_.onEnd(t, tree);
        invariants_->onStanding();
    }
    void lineIsApplied() { invariants_->onInput(); }
    void say(const std::string& text) {
        lines_.flush();
        out_ << text;
    }
    std::string text() {
        lines_.flush();
        return std::move(out_).str();
    }

    void onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) override {
        lines_.onScalar(t, entity, attribute);
        invariants_->onScalar(entity, attribute);
    }
    void onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                  const Orv::Value& key) override {
        lines_.onMember(t, entity, attribute, key);
    }
    void onEntry(double t, const Orv::Entity& entry, bool present) override {
        lines_.onEntry(t, entry, present);
    }
    void onLog(double t, const Stage::InstanceLog& log) override {
        lines_.onLog(t, log);
        invariants_->onLog(log);
    }
    void onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) override {
        lines_.onMessage(t, message, text);
    }
    void onWatchdog(double t, const Halbe::HalbeInfo& watchdog) override {
        lines_.onWatchdog(t, watchdog);
    }
    void onPrint(double t, const Orv::String& line) override { lines_.onPrint(t, line); }
    void onError(double t, const char* what) override { lines_.onError(t, what); }
    void onEnd(double t, const Host::Tree& tree) override { stateIsShown(t, tree); }
    void flush() override {
        if (file_ >= 0) writeAll(file_, text());
    }

  private:
    int file_;
    std::ostringstream out_;
    Host::JsonLines lines_{out_};
    std::optional<Invariants> invariants_;
};

std::string runLibrary(const std::vector<Line>& lines, States states, int file) {
    Witness witness(file);
    try {
        Host::Replay replay(witness);
        witness.treeIs(replay.tree());
        double at = 0;
        for (const Line& line : lines) {
            const Host::Input input = Host::parseInput(textOf(line), at);
            at = input.at;
            const bool more = replay.apply(input);
            witness.lineIsApplied();
            if (states == States::everyLine) witness.stateIsShown(replay.time(), replay.tree());
            if (!more) break;
        }
        replay.finish();
    } catch (const std::exception& error) {
        witness.say(std::string("refused: ") + error.what() + '\n');
    }
    return witness.text();
}

}  // namespace

Behaviour modelBehaviour(const std::vector<Line>& lines, States states) {
    Behaviour result;
    State state = initialState();
    const auto showObserved = [&] {
        for (; result.observations < state.observed.size(); ++result.observations)
            (result.text += textOf(state.observed[result.observations])) += '\n';
    };
    for (const Line& line : lines) {
        feed(state, line);
        if (state.aborted) break;
        if (states == States::everyLine) {
            showObserved();
            (result.text += textOf(state.now, treeOf(state))) += '\n';
        }
        if (state.ended) break;
    }
    finish(state);
    showObserved();
    if (state.aborted) {
        result.aborted = true;
        result.text += "Assertion failed: " + *state.aborted + '\n' + signalText(SIGABRT);
    } else {
        (result.text += textOf(state.now, treeOf(state))) += '\n';
    }
    return result;
}

std::string libraryBehaviour(const std::vector<Line>& lines, States states) {
    return runLibrary(lines, states, -1);
}

std::string libraryBehaviourApart(const std::vector<Line>& lines, States states,
                                  unsigned patience) {
    std::fflush(nullptr);  // or the child writes it again
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        close(ends[0]);
        dup2(ends[1], STDERR_FILENO);
        const rlimit none{};
        setrlimit(RLIMIT_CORE, &none);
        endAfter(patience);
        writeAll(ends[1], runLibrary(lines, states, ends[1]));
        _exit(0);
    }

    close(ends[1]);
    std::string text;
    std::array<char, 1 << 16> part;
    for (;;) {
        const ssize_t count = read(ends[0], part.data(), part.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        text.append(part.data(), static_cast<std::size_t>(count));
    }
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) text += signalText(WTERMSIG(status));
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
        text += "ended with status " + std::to_string(WEXITSTATUS(status)) + '\n';
    return text;
}

}  // namespace conformance
