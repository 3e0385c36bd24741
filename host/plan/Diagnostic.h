// What is wrong with a file that a person wrote, and where.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// A place in a file. Lines and columns count from 1, columns in characters; 0: nowhere.
struct Place {
    std::size_t line = 0;
    std::size_t column = 0;

    friend bool operator==(const Place&, const Place&) = default;
    friend bool operator<(const Place& a, const Place& b) {
        return a.line != b.line ? a.line < b.line : a.column < b.column;
    }
};

struct Diagnostic {
    enum class Severity { error, warning, note };

    Severity severity = Severity::error;
    std::string file{};
    Place place{};
    // What kind of thing is wrong, for programs and for searches: "unknown-key", "cycle".
    std::string rule{};
    // One sentence without the full stop, with the remedy: names in it are in quotes, and
    // printable.
    std::string text{};
    // Other places that belong to it, each with what is there; such as the edges of a cycle.
    struct Related {
        Place place{};
        std::string text{};
    };
    std::vector<Related> related{};
};

// For people, one after the other, in the order of their places:
//
//     boot.yaml:7:12: error: stage "web" comes after "databse", which no stage is called; did you
//     mean "database"?
//         7 |     after: databse
//           |            ^
//
// `text` is what the file holds; a place outside of it shows no line. Colours when `colour`.
std::string diagnosticsText(const std::vector<Diagnostic>& diagnostics, std::string_view text,
                            bool colour);

}  // namespace Host
