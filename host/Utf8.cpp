#include "host/Utf8.h"

#include <fmt/format.h>

#include <iterator>

namespace Host {

namespace {

unsigned char byteAt(std::string_view text, std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

bool continues(unsigned char byte) { return (byte & 0xc0) == 0x80; }

// Control characters, line and paragraph separators, and what changes the reading direction.
bool disturbs(char32_t code) {
    return code < 0x20 || (code >= 0x7f && code < 0xa0) || code == 0x061c || code == 0x200e ||
           code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069) || code == 0xfeff;
}

}  // namespace

char32_t codePoint(std::string_view sequence) {
    static constexpr unsigned char lead[] = {0, 0x7f, 0x1f, 0x0f, 0x07};
    char32_t code = byteAt(sequence, 0) & lead[sequence.size()];
    for (std::size_t i = 1; i < sequence.size(); ++i)
        code = (code << 6) | (byteAt(sequence, i) & 0x3f);
    return code;
}

std::size_t utf8Length(std::string_view text, std::size_t at) {
    const unsigned char first = byteAt(text, at);
    if (first < 0x80) return at < text.size() ? 1 : 0;
    const unsigned char second = byteAt(text, at + 1);
    if (first < 0xc2 || !continues(second)) return 0;
    if (first < 0xe0) return 2;
    if (first < 0xf0) {
        if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second >= 0xa0)) return 0;
        return continues(byteAt(text, at + 2)) ? 3 : 0;
    }
    if (first > 0xf4 || (first == 0xf0 && second < 0x90) || (first == 0xf4 && second >= 0x90))
        return 0;
    return continues(byteAt(text, at + 2)) && continues(byteAt(text, at + 3)) ? 4 : 0;
}

std::size_t utf8Fault(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = utf8Length(text, at);
        if (length == 0) return at;
        at += length;
    }
    return std::string_view::npos;
}

std::size_t utf8Columns(std::string_view text) {
    std::size_t columns = 0;
    for (const char c : text)
        if (!continues(static_cast<unsigned char>(c))) ++columns;
    return columns;
}

std::string printable(std::string_view text) {
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = utf8Length(text, at);
        const auto out = std::back_inserter(shown);
        if (length == 0) {
            fmt::format_to(out, "\\x{:02x}", byteAt(text, at++));
            continue;
        }
        const std::string_view sequence = text.substr(at, length);
        const char32_t code = codePoint(sequence);
        if (code == '\n')
            shown += "\\n";
        else if (code == '\t')
            shown += "\\t";
        else if (disturbs(code))
            fmt::format_to(out, "\\u{:04x}", static_cast<unsigned>(code));
        else
            shown += sequence;
        at += length;
    }
    return shown;
}

std::string inQuotes(std::string_view text) {
    constexpr std::size_t most = 200;
    if (text.size() <= most) return "\"" + printable(text) + "\"";
    std::size_t end = most;
    while (end > 0 && continues(byteAt(text, end))) --end;
    return "\"" + printable(text.substr(0, end)) + "...\"";
}

}  // namespace Host
