#include "host/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <stdexcept>

#include "host/Utf8.h"
#include "host/plan/PlanReader.h"
#include "host/verb/Verbs.h"

namespace Host {

namespace {

// The program's verbs, and the way from the arguments to one of them.
class Program {
  public:
    explicit Program(const Console& console) : console_(console) {
        app_.set_version_flag("--version", "stagemgr " STAGEMGR_VERSION);
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.get_formatter()->label("SUBCOMMAND", "VERB");
        app_.add_option_function<std::string>(
                "--color",
                [this](const std::string& when) {
                    if (when != "auto") console_.colour = when == "always";
                },
                "Whether to colour what people read: auto, always or never")
            ->type_name("WHEN")
            ->check(CLI::IsMember({"auto", "always", "never"}));
        addCheck(verbs_);
        addSimulate(verbs_);
        addRun(verbs_);
        addExplain(verbs_);
        addTime(verbs_);
        addBlame(verbs_);
        addCriticalChain(verbs_);
        addPlot(verbs_);
        addGraph(verbs_);
        addDiff(verbs_);
        addReplay(verbs_);
        addCompletion(verbs_);
        addHelp(verbs_);
    }

    int run(std::vector<std::string> arguments) {
        if (arguments.empty()) {
            console_.err << app_.help();
            return exitUsage;
        }
        const int status = done(std::move(arguments));
        if (!console_.out.flush()) throw std::runtime_error("the output could not be written");
        return status;
    }

  private:
    int done(std::vector<std::string> arguments) {
        std::string help = "stagemgr help";
        if (!arguments.front().starts_with('-'))
            help += " " + wantedVerb(verbs_, arguments.front()).command->get_name();
        std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
        try {
            app_.parse(arguments);
        } catch (const CLI::Success& e) {  // help or version was asked for, and is shown by this
            return app_.exit(e, console_.out, console_.err);
        } catch (const CLI::ParseError& e) {
            throw UsageError(fmt::format("stagemgr: {}; see {}", printable(e.what()), help));
        }
        const CLI::App& command = *app_.get_subcommands().front();
        for (const CLI::Option* const option : command.get_options())
            if (const auto& values = option->results();
                option->nonpositional() &&
                std::find(values.begin(), values.end(), std::string()) != values.end())
                throw UsageError(fmt::format(
                    "stagemgr: {}: the value is empty; give one, or leave the option out",
                    option->get_name()));
        return wantedVerb(verbs_, command.get_name()).run();
    }

    Console console_;
    CLI::App app_{"Brings the stages of a system up in order.", "stagemgr"};
    Verbs verbs_{app_, console_};
};

}  // namespace

int commandLine(std::vector<std::string> arguments, const Console& console) {
    try {
        return Program(console).run(std::move(arguments));
    } catch (const UsageError& e) {
        console.err << e.what() << '\n' << std::flush;
        return exitUsage;
    } catch (const PlanRefused& e) {
        console.err << e.what() << std::flush;
        return exitRefused;
    } catch (const std::exception& e) {
        console.err << "stagemgr: " << printable(e.what()) << '\n' << std::flush;
        return exitInternal;
    }
}

}  // namespace Host
