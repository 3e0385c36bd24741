#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "host/Utf8.h"
#include "host/verb/Verbs.h"

namespace Host {

namespace {

int runHelp(const std::string& about, const Verbs& verbs) {
    // The formatter is asked directly: the app would show the help of the verb that was parsed.
    const CLI::App& program = verbs.program();
    verbs.console().out << (about.empty() ? program.get_formatter()->make_help(
                                                &program, "stagemgr", CLI::AppFormatMode::Normal)
                                          : wantedVerb(verbs, about).command->help("stagemgr"));
    return exitDone;
}

// What means something to scdoc is escaped.
std::string plain(const std::string& text) {
    std::string made;
    for (const char c : text) {
        if (c == '*' || c == '_' || c == '\\' || c == '#' || c == '[' || c == '|') made += '\\';
        made += c;
    }
    return made;
}

std::string sentence(std::string text) {
    if (!text.empty() && text.back() != '.' && text.back() != '?') text += '.';
    return plain(text);
}

// "FILE" of "FILE:{...}" and "N:INT in [1 - 9]": what comes after is what CLI11 checks.
std::string valueName(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    std::size_t end = type.size();
    for (const char* const check : {":{", ":INT", ":UINT", ":FLOAT"})
        end = std::min(end, type.find(check));
    return type.substr(0, end);
}

// The verbs as a part of a manual page: it is made of this, so that it cannot forget one.
int runManual(const Verbs& verbs) {
    std::string page;
    for (const Verbs::Verb& verb : verbs.all()) {
        const CLI::App& command = *verb.command;
        page += "## stagemgr " + command.get_name();
        for (const CLI::Option* const option : command.get_options())
            if (option->get_positional())
                page += (option->get_required() ? " " : " [") + option->get_name(true) +
                        (option->get_required() ? "" : "]") +
                        (option->get_items_expected_max() > 1 ? "..." : "");
        page += "\n\n" + sentence(command.get_description()) + "\n\n";
        for (const CLI::Option* const option : command.get_options()) {
            if (option->get_positional() || option->get_lnames().empty() ||
                option->get_group().empty() || option->get_lnames().front() == "help")
                continue;
            page += "*--" + option->get_lnames().front() + "*";
            if (option->get_items_expected_max() > 0)
                page += " _" + plain(valueName(*option)) + "_";
            page += "\n\t" + sentence(option->get_description()) + "\n\n";
        }
    }
    verbs.console().out << page;
    return exitDone;
}

}  // namespace

void addHelp(Verbs& verbs) {
    const auto about = std::make_shared<std::string>();
    const auto manual = std::make_shared<bool>(false);
    CLI::App& command = verbs.add("help", "Show how the program is used", [&verbs, about, manual] {
        return *manual ? runManual(verbs) : runHelp(*about, verbs);
    });
    command.add_option("VERB", *about, "Show how that verb is used");
    command.add_flag("--scdoc", *manual, "Write the verbs as a part of a manual page")->group("");
}

}  // namespace Host
