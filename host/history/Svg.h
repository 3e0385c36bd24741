// What our pictures have in common.
#pragma once

#include <string>
#include <string_view>

namespace Host {

// A text from outside for an element or an attribute of XML: printable, with everything escaped
// that means something there or that no document may hold.
std::string xmlText(std::string_view text);

// About how wide a printable text is, rather too much than too little. In the picture's units, for
// letters of that size.
double textWidth(std::string_view printable, double size);

// The text, printable, cut to that width, with "…" at its end if so.
std::string fittingText(std::string_view text, double width, double size);

// A number as pictures need it: two places at most.
std::string svgNumber(double number);

// The beginning of a document of that size, with a white ground and our letters.
std::string svgBegin(double width, double height, std::string_view title);

// Colours that people with any colour vision tell apart.
namespace Ink {
inline constexpr const char* text = "#1a1a1a";
inline constexpr const char* pale = "#6b6b6b";
inline constexpr const char* grid = "#dddddd";
inline constexpr const char* blue = "#0072b2";
inline constexpr const char* sky = "#56b4e9";
inline constexpr const char* orange = "#e69f00";
inline constexpr const char* vermilion = "#d55e00";
}  // namespace Ink

}  // namespace Host
