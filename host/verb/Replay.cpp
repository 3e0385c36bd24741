#include "host/Replay.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "host/HumanView.h"
#include "host/JsonLines.h"
#include "host/Utf8.h"
#include "host/verb/Verbs.h"
#include "runtime/Trace.h"

namespace Host {

namespace {

// The manager's trace is on while this lives. Its lines go to the process's standard error.
class Tracing {
  public:
    explicit Tracing(int level) : before_(handle().level()) { handle().levelIs(level); }
    ~Tracing() { handle().levelIs(before_); }
    Tracing(const Tracing&) = delete;
    Tracing& operator=(const Tracing&) = delete;

  private:
    static Orv::TraceHandle& handle() { return Orv::TraceHandle::named("StageMgr"); }
    int before_;
};

struct ReplayOptions {
    std::string journal;
    std::string out = "-";
    int trace = Orv::TraceHandle::off;
    bool human = false;
};

int runReplay(const ReplayOptions& options, const Console& console) {
    keepApart("--out", options.out, options.journal);
    const InFile in(options.journal, console);
    OutFile out(options.out, console);

    std::unique_ptr<View> view;
    if (!options.human)
        view = std::make_unique<JsonLines>(out.stream(), &console.out);
    else if (&out.stream() == &console.out)
        view =
            std::make_unique<HumanView>(out.stream(), HumanStyle{console.colour, console.columns});
    else
        view = std::make_unique<HumanView>(out.stream());

    const Tracing tracing(options.trace);
    try {
        replay(in.stream(), *view);
    } catch (const JournalError& e) {
        throw UsageError(fmt::format("{}:{}: {}", printable(options.journal), e.line(), e.what()));
    }
    out.flush();
    return exitDone;
}

}  // namespace

void addReplay(Verbs& verbs) {
    const auto options = std::make_shared<ReplayOptions>();
    CLI::App& command = verbs.add(
        "replay", "Run the manager on a journal's inputs, in virtual time, and show what it does",
        [&verbs, options] { return runReplay(*options, verbs.console()); });
    command.add_option("FILE", options->journal, "The journal; - is standard input")->required();
    command
        .add_option("--out", options->out, "Write the observations there, not to standard output")
        ->type_name("FILE");
    command
        .add_option("--trace", options->trace,
                    "Write the manager's trace lines, up to that level, to standard error")
        ->type_name("LEVEL")
        ->check(CLI::Range(0, 9));
    command.add_flag("--human", options->human, "Show it for people, not as JSON Lines");
}

}  // namespace Host
