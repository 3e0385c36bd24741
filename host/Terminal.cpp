#include "host/Terminal.h"

#include <algorithm>
#include <iterator>

#include "host/Utf8.h"

namespace Host {

namespace {

std::size_t columnsOf(char32_t code) {
    struct Range {
        char32_t first, last;
    };
    static constexpr Range marks[] = {
        {0x0300, 0x036f}, {0x0483, 0x0489}, {0x0591, 0x05bd}, {0x0610, 0x061a}, {0x064b, 0x065f},
        {0x0900, 0x0902}, {0x093c, 0x093c}, {0x0941, 0x0948}, {0x094d, 0x094d}, {0x0e31, 0x0e31},
        {0x0e34, 0x0e3a}, {0x0e47, 0x0e4e}, {0x1ab0, 0x1aff}, {0x1dc0, 0x1dff}, {0x200b, 0x200d},
        {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f}};
    static constexpr Range wide[] = {{0x1100, 0x115f},   {0x231a, 0x231b},   {0x23e9, 0x23ec},
                                     {0x2614, 0x2615},   {0x2e80, 0x303e},   {0x3041, 0x33ff},
                                     {0x3400, 0x4dbf},   {0x4e00, 0xa4cf},   {0xa960, 0xa97f},
                                     {0xac00, 0xd7a3},   {0xf900, 0xfaff},   {0xfe30, 0xfe6f},
                                     {0xff00, 0xff60},   {0xffe0, 0xffe6},   {0x1f300, 0x1f64f},
                                     {0x1f680, 0x1f6ff}, {0x1f900, 0x1f9ff}, {0x20000, 0x3fffd}};
    const auto within = [code](const Range& range) {
        return code >= range.first && code <= range.last;
    };
    if (std::any_of(std::begin(marks), std::end(marks), within)) return 0;
    return std::any_of(std::begin(wide), std::end(wide), within) ? 2 : 1;
}

// A byte that is part of no character has a column, as if it were one.
std::size_t lengthAt(std::string_view text, std::size_t at) {
    return std::max<std::size_t>(utf8Length(text, at), 1);
}

}  // namespace

std::size_t terminalColumns(std::string_view text) {
    std::size_t columns = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = lengthAt(text, at);
        columns += columnsOf(codePoint(text.substr(at, length)));
        at += length;
    }
    return columns;
}

std::string cutToColumns(std::string_view text, std::size_t columns, bool padded) {
    const std::size_t whole = terminalColumns(text);
    std::string kept;
    if (whole <= columns) {
        kept = text;
        if (padded) kept.append(columns - whole, ' ');
        return kept;
    }
    if (columns == 0) return kept;
    std::size_t used = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = lengthAt(text, at);
        const std::string_view character = text.substr(at, length);
        const std::size_t more = columnsOf(codePoint(character));
        if (used + more > columns - 1) break;
        kept += character;
        used += more;
        at += length;
    }
    kept += "\u2026";
    if (padded) kept.append(columns - 1 - used, ' ');
    return kept;
}

}  // namespace Host
