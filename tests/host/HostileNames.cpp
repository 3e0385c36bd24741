#include "tests/host/HostileNames.h"

namespace Host {

namespace {

std::string times(std::size_t count, const std::string& text) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

}  // namespace

const std::vector<HostileName>& hostileNames() {
    using namespace std::string_literals;
    static const std::vector<HostileName> names{
        // Paths and files.
        {"empty", "", false},
        {"one dot", "."},
        {"two dots", ".."},
        {"a slash", "/"},
        {"a path", "a/b"},
        {"a path upwards", "../../etc/passwd"},
        {"an absolute path", "/etc/passwd"},
        {"a path's escape", "~1"},
        {"a path's escape of an escape", "~01"},
        {"a tilde", "~"},
        {"a home", "~root"},
        {"a backslash", "\\"},
        {"a drive", "C:\\x"},
        {"a file of the shell", "*?[a-z]"},
        // Blanks and ends of lines.
        {"a blank", " "},
        {"blanks around", "  x  "},
        {"a tab", "a\tb", false},
        {"an end of line", "a\nb", false},
        {"a carriage return", "a\rb", false},
        {"both", "a\r\nb", false},
        {"NUL", "a\0b"s, false},
        {"a vertical tab", "a\vb", false},
        {"a form feed", "a\fb", false},
        {"DEL", "a\x7f", false},
        {"next line", "a\u0085b", false},
        {"a line separator", "a\u2028b"},
        {"a paragraph separator", "a\u2029b"},
        {"a blank that does not break", "a\u00a0b"},
        {"a blank of no width", "a\u200bb"},
        {"a byte order mark", "\ufeffa"},
        // Terminals.
        {"red", "\x1b[31mred\x1b[0m", false},
        {"a cleared screen", "\x1b[2J\x1b[H", false},
        {"a title", "\x1b]0;owned\x07", false},
        {"a single character's CSI", "\u009b31m", false},
        {"a bell", "a\x07", false},
        {"backspaces", "secret\b\b\b", false},
        // Directions and looks.
        {"right to left override", "a\u202egnp.exe"},
        {"right to left mark", "a\u200fb"},
        {"isolates", "\u2066a\u2069"},
        {"Hebrew", "\u05e9\u05dc\u05d1"},
        {"Arabic", "\u0645\u0631\u062d\u0644\u0629"},
        {"combining marks", "z\u0351\u036f\u0322"},
        {"wide characters", "\u6bb5\u968e"},
        {"an emoji of several", "\U0001f468\u200d\U0001f469\u200d\U0001f467"},
        {"a flag", "\U0001f1e9\U0001f1ea"},
        {"beyond the first plane", "\U0001d518"},
        {"the last character", "\U0010ffff"},
        {"a decomposed letter", "e\u0301"},
        {"a look-alike", "\u0430dmin"},
        // Formats and languages.
        {"a number's format", "%d"},
        {"a string's format", "%s%s%s"},
        {"a writing format", "%n"},
        {"braces", "{}"},
        {"numbered braces", "{0}{1}"},
        {"a single quote", "'"},
        {"a double quote", "\""},
        {"both quotes", "\"'`"},
        {"a shell's substitution", "$(reboot)"},
        {"a shell's backquotes", "`reboot`"},
        {"a shell's list", "a; reboot #"},
        {"a shell's variable", "$HOME"},
        {"an option", "--help"},
        {"a short option", "-"},
        {"markup", "<b>x</b>"},
        {"a script", "<script>alert(1)</script>"},
        {"the end of an attribute", "\" onload=\"alert(1)"},
        {"the end of a comment", "-->"},
        {"the end of character data", "]]>"},
        {"an entity", "&amp;"},
        {"a numbered entity", "&#x41;"},
        {"the end of a DOT text", "\"]; x [label=\""},
        {"a DOT escape", "a\\nb\\N"},
        {"the end of a Mermaid text", "\"] --> x[\""},
        {"Mermaid's code", "#quot;"},
        {"a JSON text", "{\"a\":1}"},
        {"a JSON escape", "\\u0000"},
        {"a YAML mapping", "a: b"},
        {"a YAML comment", "a #b"},
        {"a YAML anchor", "&a"},
        {"a YAML alias", "*a"},
        {"a YAML tag", "!!python/object"},
        {"a YAML nothing", "null"},
        {"a YAML truth", "true"},
        {"a number", "1e3"},
        {"an SQL text", "'; DROP TABLE stage; --"},
        // Lengths.
        {"255 bytes", std::string(255, 'x')},
        {"256 bytes", std::string(256, 'x'), false},
        {"4,096 bytes", std::string(4096, 'x'), false},
        {"85 wide characters", times(85, "\u6bb5")},
        // What our own texts look like.
        {"an event's name", "mount:disk"},
        {"a log line", "stage x is complete"},
        {"a message", "STAGEMGR_STAGE_SLOW"},
        {"a class and instance", "boot/main"},
        {"an arrow", "a -> b"},
        {"a time", "+2.000s @1.000s"},
        // Not UTF-8.
        {"a lone continuation", "a\x80", false},
        {"a cut sequence", "\xe6\xae", false},
        {"an overlong slash", "\xc0\xaf", false},
        {"a surrogate", "\xed\xa0\x80", false},
        {"beyond the last character", "\xf4\x90\x80\x80", false},
        {"no byte of UTF-8", "\xff\xfe", false},
        {"Latin 1", "caf\xe9", false},
    };
    return names;
}

}  // namespace Host
