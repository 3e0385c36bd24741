// How wide texts are on a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Host {

// How many columns a terminal needs for a text that holds no control characters: East Asian
// characters and pictures have two, marks that stand on the character before them none.
std::size_t terminalColumns(std::string_view text);

// As much of the text as needs no more columns; where it is cut, "…" stands at its end. With blanks
// behind it, if it is narrower and `padded`.
std::string cutToColumns(std::string_view text, std::size_t columns, bool padded = false);

}  // namespace Host
