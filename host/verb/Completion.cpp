// The scripts are made from the verbs' own options, so that none is forgotten.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "host/verb/Verbs.h"

namespace Host {

namespace {

struct Switch {
    std::vector<std::string> names;  // with their dashes
    std::string description;
    bool takesValue = false;
    std::vector<std::string> choices;  // for the value; none: whatever it likes
    bool file = false;                 // the value names a file or folder
};

struct VerbSwitches {
    std::string name;
    std::string description;
    std::vector<Switch> switches;
};

// What stands between the braces of a type's name: "WHEN:{auto,always,never}".
std::vector<std::string> choices(const std::string& type) {
    std::vector<std::string> found;
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}', open);
    if (close == std::string::npos) return found;
    std::string word;
    for (const char c : type.substr(open + 1, close - open - 1) + ",") {
        if (c != ',')
            word += c;
        else if (!word.empty())
            found.push_back(std::exchange(word, {}));
    }
    return found;
}

std::vector<Switch> switchesOf(const CLI::App& app) {
    std::vector<Switch> all;
    for (const CLI::Option* const option : app.get_options()) {
        if (!option->nonpositional() || option->get_group().empty()) continue;
        Switch made;
        for (const std::string& name : option->get_snames()) made.names.push_back("-" + name);
        for (const std::string& name : option->get_lnames()) made.names.push_back("--" + name);
        made.description = option->get_description();
        made.takesValue = option->get_items_expected_max() > 0;
        const std::string type = option->get_type_name();
        made.choices = choices(type);
        made.file = type == "FILE" || type == "FOLDER";
        all.push_back(std::move(made));
    }
    return all;
}

std::vector<VerbSwitches> everything(const Verbs& verbs) {
    std::vector<Switch> common;
    for (Switch& one : switchesOf(verbs.program()))
        if (one.names.back() == "--color") common.push_back(std::move(one));
    std::vector<VerbSwitches> all;
    for (const Verbs::Verb& verb : verbs.all()) {
        all.push_back(
            {verb.command->get_name(), verb.command->get_description(), switchesOf(*verb.command)});
        all.back().switches.insert(all.back().switches.end(), common.begin(), common.end());
    }
    return all;
}

template <class Range>
std::string words(const Range& range) {
    return fmt::format("{}", fmt::join(range, " "));
}

std::string verbNames(const std::vector<VerbSwitches>& verbs) {
    std::vector<std::string> names(verbs.size());
    std::transform(verbs.begin(), verbs.end(), names.begin(),
                   [](const VerbSwitches& verb) { return verb.name; });
    return words(names);
}

// Single quotes around a text, for the three shells alike.
std::string quoted(const std::string& text, const char* quote) {
    std::string made = "'";
    for (const char c : text) made += c == '\'' ? std::string(quote) : std::string(1, c);
    return made + "'";
}

std::string bash(const std::vector<VerbSwitches>& verbs) {
    std::string script = fmt::format(
        R"(# Completions of stagemgr for bash: source this, or save it in
# ~/.local/share/bash-completion/completions/stagemgr
_stagemgr() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} verb= word
    local before=
    for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
        case $before:$word in --color:* | *:-*) ;; *) verb=$word; break ;; esac
        before=$word
    done
    local words= files=yes
    case $verb in
    '')
        words='{0} --help --version --color'; files=
        [[ $previous != --color ]] || words='auto always never'
        ;;
    help) words='{0}'; files= ;;
)",
        verbNames(verbs));
    for (const VerbSwitches& verb : verbs) {
        if (verb.name == "help") continue;
        std::vector<std::string> names;
        for (const Switch& one : verb.switches)
            names.insert(names.end(), one.names.begin(), one.names.end());
        script += fmt::format("    {}) words='{}'", verb.name, words(names));
        if (verb.name == "completion")
            script += "; files=; [[ $current == -* ]] || words='bash zsh fish'";
        script += " ;;\n";
    }
    script += "    esac\n    case $verb:$previous in\n";
    for (const VerbSwitches& verb : verbs)
        for (const Switch& one : verb.switches) {
            if (!one.takesValue) continue;
            std::vector<std::string> patterns;
            for (const std::string& name : one.names) patterns.push_back(verb.name + ":" + name);
            script += fmt::format("    {}) words='{}'{} ;;\n", fmt::join(patterns, "|"),
                                  words(one.choices), one.file ? "" : "; files=");
        }
    script += R"(    esac
    COMPREPLY=($(compgen -W "$words" -- "$current"))
    if [[ -n $files && ( $current != -* || -z $words ) ]]; then
        compopt -o filenames 2> /dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$current")
    fi
}
complete -F _stagemgr stagemgr
)";
    return script;
}

std::string zsh(const std::vector<VerbSwitches>& verbs) {
    const auto text = [](std::string description) {
        // What means something to _arguments.
        std::string made;
        for (const char c : description) {
            if (c == '[' || c == ']' || c == ':' || c == '\\') made += '\\';
            made += c;
        }
        return made;
    };
    std::string script =
        "#compdef stagemgr\n"
        "# Completions of stagemgr for zsh: save this as _stagemgr in a folder of $fpath.\n"
        "_stagemgr() {\n    local -a verbs\n    verbs=(\n";
    for (const VerbSwitches& verb : verbs)
        script += "        " + quoted(verb.name + ":" + text(verb.description), "'\\''") + "\n";
    script += R"(    )
    if (( CURRENT == 2 )); then
        _describe verb verbs
        return
    fi
    local verb=$words[2]
    shift words
    (( CURRENT-- ))
    case $verb in
    help) _describe verb verbs ;;
    completion) _values shell bash zsh fish ;;
)";
    for (const VerbSwitches& verb : verbs) {
        if (verb.name == "help" || verb.name == "completion") continue;
        script += fmt::format("    {}) _arguments", verb.name);
        for (const Switch& one : verb.switches)
            for (const std::string& name : one.names) {
                std::string value;
                if (one.takesValue)
                    value = one.file              ? ":file:_files"
                            : one.choices.empty() ? ":value: "
                                                  : fmt::format(":value:({})", words(one.choices));
                script +=
                    " \\\n        " +
                    quoted(fmt::format("{}[{}]{}", name, text(one.description), value), "'\\''");
            }
        script += " \\\n        '*:file:_files' ;;\n";
    }
    return script + "    esac\n}\n_stagemgr \"$@\"\n";
}

std::string fish(const std::vector<VerbSwitches>& verbs) {
    std::string script =
        "# Completions of stagemgr for fish: save this as\n"
        "# ~/.config/fish/completions/stagemgr.fish\n"
        "complete -c stagemgr -n __fish_use_subcommand -f\n";
    for (const VerbSwitches& verb : verbs) {
        script += fmt::format("complete -c stagemgr -n __fish_use_subcommand -a {} -d {}\n",
                              verb.name, quoted(verb.description, "\\'"));
        for (const Switch& one : verb.switches) {
            script +=
                fmt::format("complete -c stagemgr -n '__fish_seen_subcommand_from {}'", verb.name);
            for (const std::string& name : one.names)
                script +=
                    name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            if (one.takesValue)
                script += one.file              ? " -r -F"
                          : one.choices.empty() ? " -x"
                                                : " -x -a " + quoted(words(one.choices), "\\'");
            script += fmt::format(" -d {}\n", quoted(one.description, "\\'"));
        }
    }
    script += fmt::format(
        "complete -c stagemgr -n '__fish_seen_subcommand_from help' -f -a '{}'\n"
        "complete -c stagemgr -n '__fish_seen_subcommand_from completion' -f -a 'bash zsh fish'\n",
        verbNames(verbs));
    return script;
}

}  // namespace

void addCompletion(Verbs& verbs) {
    const auto shell = std::make_shared<std::string>();
    CLI::App& command =
        verbs.add("completion", "Write the script by which a shell completes stagemgr's arguments",
                  [&verbs, shell] {
                      const std::vector<VerbSwitches> all = everything(verbs);
                      verbs.console().out << (*shell == "bash"  ? bash(all)
                                              : *shell == "zsh" ? zsh(all)
                                                                : fish(all));
                      return exitDone;
                  });
    command.add_option("SHELL", *shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
}

}  // namespace Host
