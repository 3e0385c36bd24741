// The few things that we need to know of UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Host {

// The length of the well-formed sequence that starts at `at` (no overlong form, no surrogate,
// nothing above U+10FFFF); 0 when there is none.
std::size_t utf8Length(std::string_view text, std::size_t at);

// Where the first byte stands that is not part of a well-formed sequence; npos when there is none.
std::size_t utf8Fault(std::string_view text);

// The character that these bytes are: one, whole and valid.
char32_t codePoint(std::string_view sequence);

// The number of code points, which is how many columns a terminal needs for most texts.
std::size_t utf8Columns(std::string_view text);

// A text from outside as it may be shown to people: what could move the cursor, end the line or
// reverse the reading direction is written as an escape, ill-formed bytes as "\xNN".
std::string printable(std::string_view text);

// The same between double quotes, and cut after some 200 bytes.
std::string inQuotes(std::string_view text);

}  // namespace Host
