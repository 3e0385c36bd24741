#include "host/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "host/HumanView.h"
#include "host/Journal.h"
#include "host/JsonLines.h"
#include "host/Replay.h"
#include "host/Suggest.h"
#include "host/Utf8.h"
#include "runtime/Trace.h"

namespace Host {

namespace {

// The command line, or something that it names, cannot be taken.
class UsageError final : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The file of that name, or the stream that "-" stands for.
template <class File, class Stream>
Stream& opened(File& file, const std::string& name, Stream& standard, const char* doing) {
    if (name == "-") return standard;
    errno = 0;
    file.open(name, std::ios::binary);
    const bool folder = std::filesystem::is_directory(name);
    if (folder || !file)
        throw UsageError(fmt::format("stagemgr: cannot {} {}: {}", doing, printable(name),
                                     std::strerror(folder ? EISDIR : errno)));
    return file;
}

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
    std::ifstream inFile;
    std::ofstream outFile;
    std::istream& in = opened(inFile, options.journal, console.in, "read");
    std::ostream& out = opened(outFile, options.out, console.out, "write");

    std::unique_ptr<View> view;
    if (!options.human)
        view = std::make_unique<JsonLines>(out, &console.out);
    else if (&out == &console.out)
        view = std::make_unique<HumanView>(out, HumanStyle{console.colour, console.columns});
    else
        view = std::make_unique<HumanView>(out);

    const Tracing tracing(options.trace);
    try {
        replay(in, *view);
    } catch (const JournalError& e) {
        throw UsageError(fmt::format("{}:{}: {}", printable(options.journal), e.line(), e.what()));
    }
    if (!out.flush()) throw std::runtime_error("the output could not be written");
    return exitDone;
}

// The program's verbs, and the way from the arguments to one of them.
class Program {
  public:
    explicit Program(const Console& console) : console_(console) {
        app_.set_version_flag("--version", "stagemgr " STAGEMGR_VERSION);
        app_.require_subcommand(1);
        app_.get_formatter()->label("SUBCOMMAND", "VERB");
        addReplay();
        addHelp();
    }

    int run(std::vector<std::string> arguments) {
        if (arguments.empty()) {
            console_.err << app_.help();
            return exitUsage;
        }
        if (!arguments.front().starts_with('-')) named(arguments.front());
        std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
        try {
            app_.parse(arguments);
        } catch (const CLI::Success& e) {  // help or version was asked for, and is shown by this
            return app_.exit(e, console_.out, console_.err);
        } catch (const CLI::ParseError& e) {
            throw UsageError(fmt::format("stagemgr: {}; see stagemgr help", printable(e.what())));
        }
        return named(app_.get_subcommands().front()->get_name()).run();
    }

  private:
    struct Verb {
        CLI::App* command;
        std::function<int()> run;
    };

    CLI::App* add(const char* name, const char* description) {
        return app_.add_subcommand(name, description)->group("Verbs");
    }

    const Verb& named(const std::string& name) const {
        std::vector<std::string> names;
        for (const Verb& verb : verbs_) {
            names.push_back(verb.command->get_name());
            if (names.back() == name) return verb;
        }
        const std::string nearest = suggestion(name, {names.begin(), names.end()});
        throw UsageError(fmt::format(
            "stagemgr: no verb {}{}", inQuotes(name),
            nearest.empty() ? fmt::format("; there are {}", fmt::join(names, ", ")) : nearest));
    }

    void addReplay() {
        CLI::App* const command =
            add("replay",
                "Run the manager on a journal's inputs, in virtual time, and show what it does");
        const auto options = std::make_shared<ReplayOptions>();
        command->add_option("FILE", options->journal, "The journal; - is standard input")
            ->required();
        command
            ->add_option("--out", options->out,
                         "Write the observations there, not to standard output")
            ->type_name("FILE");
        command
            ->add_option("--trace", options->trace,
                         "Write the manager's trace lines, up to that level, to standard error")
            ->type_name("LEVEL")
            ->check(CLI::Range(0, 9));
        command->add_flag("--human", options->human, "Show it for people, not as JSON Lines");
        verbs_.push_back({command, [this, options] { return runReplay(*options, console_); }});
    }

    void addHelp() {
        CLI::App* const command = add("help", "Show how the program is used");
        const auto about = std::make_shared<std::string>();
        command->add_option("VERB", *about, "Show how that verb is used");
        verbs_.push_back({command, [this, about] { return runHelp(*about); }});
    }

    int runHelp(const std::string& about) const {
        // The formatter is asked directly: the app would show the help of the verb that was parsed.
        console_.out << (about.empty() ? app_.get_formatter()->make_help(&app_, "stagemgr",
                                                                         CLI::AppFormatMode::Normal)
                                       : named(about).command->help("stagemgr"));
        return exitDone;
    }

    const Console& console_;
    CLI::App app_{"Brings the stages of a system up in order.", "stagemgr"};
    std::vector<Verb> verbs_;
};

}  // namespace

int commandLine(std::vector<std::string> arguments, const Console& console) {
    try {
        return Program(console).run(std::move(arguments));
    } catch (const UsageError& e) {
        console.err << e.what() << '\n' << std::flush;
        return exitUsage;
    } catch (const std::exception& e) {
        console.err << "stagemgr: " << printable(e.what()) << '\n' << std::flush;
        return exitInternal;
    }
}

}  // namespace Host
