#include "host/history/Svg.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/Utf8.h"

namespace Host {

namespace {

// In parts of the letters' size.
double letterWidth(std::string_view letter) {
    const auto first = static_cast<unsigned char>(letter.front());
    if (first < 0x80) {
        if (std::string_view("ijlI.,:;'|! ").find(letter.front()) != std::string_view::npos)
            return 0.36;
        if (std::string_view("mwMW@%").find(letter.front()) != std::string_view::npos) return 1.0;
        return letter.front() >= 'A' && letter.front() <= 'Z' ? 0.75 : 0.64;
    }
    // Letters of the East, and pictures, fill a square.
    return first >= 0xe1 ? 1.05 : 0.7;
}

}  // namespace

std::string xmlText(std::string_view text) {
    const std::string shown = printable(text);
    std::string escaped;
    for (std::size_t at = 0; at < shown.size(); ++at) {
        switch (shown[at]) {
            case '&': escaped += "&amp;"; break;
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            case '"': escaped += "&quot;"; break;
            case '\'': escaped += "&#39;"; break;
            default:
                // U+FFFE and U+FFFF, which no document may hold.
                if (shown.compare(at, 3, "\xef\xbf\xbe") == 0 ||
                    shown.compare(at, 3, "\xef\xbf\xbf") == 0) {
                    escaped += "\xef\xbf\xbd";
                    at += 2;
                } else {
                    escaped += shown[at];
                }
        }
    }
    return escaped;
}

double textWidth(std::string_view text, double size) {
    double width = 0.0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = std::max<std::size_t>(1, utf8Length(text, at));
        width += letterWidth(text.substr(at, length)) * size;
        at += length;
    }
    return width;
}

std::string fittingText(std::string_view text, double width, double size) {
    std::string shown = printable(text);
    if (textWidth(shown, size) <= width) return shown;
    const double room = width - textWidth("…", size);
    double used = 0.0;
    std::size_t end = 0;
    while (end < shown.size()) {
        const std::size_t length = std::max<std::size_t>(1, utf8Length(shown, end));
        used += letterWidth(std::string_view(shown).substr(end, length)) * size;
        if (used > room) break;
        end += length;
    }
    return shown.substr(0, end) + "…";
}

std::string svgNumber(double number) {
    const double rounded = std::round(number * 100.0) / 100.0;
    return fmt::format("{:g}", rounded == 0.0 ? 0.0 : rounded).find('e') == std::string::npos
               ? fmt::format("{:.10g}", rounded == 0.0 ? 0.0 : rounded)
               : fmt::format("{:.2f}", rounded);
}

std::string svgBegin(double width, double height, std::string_view title) {
    return fmt::format(
        R"(<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" width="{0}" height="{1}" viewBox="0 0 {0} {1}" )"
        R"(font-family="system-ui, 'Segoe UI', Roboto, Helvetica, Arial, 'DejaVu Sans', sans-serif" )"
        R"(font-size="12" fill="{2}">
<title>{3}</title>
<rect width="100%" height="100%" fill="#ffffff"/>
)",
        svgNumber(std::ceil(width)), svgNumber(std::ceil(height)), Ink::text, xmlText(title));
}

}  // namespace Host
