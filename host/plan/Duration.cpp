#include "host/plan/Duration.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

#include "host/Suggest.h"
#include "host/Utf8.h"

namespace Host {

namespace {

struct Unit {
    std::string_view name;
    std::int64_t microseconds;
};

constexpr std::int64_t second = 1'000'000;
constexpr std::int64_t minute = 60 * second;
constexpr std::int64_t hour = 60 * minute;
constexpr std::int64_t day = 24 * hour;

constexpr Unit units[] = {
    {"us", 1},       {"usec", 1},     {"\u00b5s", 1},     {"\u03bcs", 1},      {"ms", 1'000},
    {"msec", 1'000}, {"s", second},   {"sec", second},    {"second", second},  {"seconds", second},
    {"m", minute},   {"min", minute}, {"minute", minute}, {"minutes", minute}, {"h", hour},
    {"hr", hour},    {"hour", hour},  {"hours", hour},    {"d", day},          {"day", day},
    {"days", day},   {"w", 7 * day},  {"week", 7 * day},  {"weeks", 7 * day},
};

// Up to here a double of seconds tells microseconds apart.
constexpr std::int64_t longest = 9'000'000'000 * second;

bool digit(char c) { return c >= '0' && c <= '9'; }
bool blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
// Of a word: anything but what divides the parts.
bool letter(char c) { return !digit(c) && !blank(c) && c != '.' && c != ','; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

constexpr std::string_view endless = "infinity";

class Reading {
  public:
    explicit Reading(std::string_view text) : text_(text) {}

    double seconds() {
        skipBlanks();
        if (ended()) fail("an empty text is no duration; write one such as 30s");
        if (infinity()) return std::numeric_limits<double>::infinity();
        std::int64_t sum = 0;
        while (!ended()) {
            sum += part();
            if (sum > longest) refuse("it is longer than 285 years; write infinity for no end");
            skipBlanks();
        }
        return static_cast<double>(sum) / static_cast<double>(second);
    }

  private:
    [[noreturn]] static void fail(const std::string& why) { throw DurationError(why); }
    [[noreturn]] void refuse(const std::string& why) const {
        fail(inQuotes(text_) + " is no duration: " + why);
    }

    bool ended() const { return at_ == text_.size(); }
    char next() const { return ended() ? '\0' : text_[at_]; }
    void skipBlanks() {
        while (!ended() && blank(next())) ++at_;
    }
    std::string_view take(bool (*belongs)(char)) {
        const std::size_t from = at_;
        while (!ended() && belongs(next())) ++at_;
        return text_.substr(from, at_ - from);
    }

    bool infinity() const {
        if (!meansEndless(text_)) return false;
        if (trimmed(text_) != endless) refuse("write infinity for a time without end");
        return true;
    }

    // A number and its unit, in microseconds.
    std::int64_t part() {
        if (next() == '-') refuse("it is never negative");
        const std::string_view number = readNumber();
        skipBlanks();
        if (next() == ':') refuse("write its parts with units, such as 1min 30s");
        const std::string_view unit = take(letter);
        if (unit.empty() && (!ended() || !first_))
            refuse(fmt::format("{} has no unit; write such as {}s", shown(number), shown(number)));
        first_ = false;
        return microseconds(number, unit.empty() ? second : lengthOf(unit));
    }

    std::string_view readNumber() {
        const std::size_t from = at_;
        const std::size_t whole = take(digit).size();
        if (next() == ',') refuse("the decimal mark is a point, such as 1.5s");
        if (next() == '.') {
            ++at_;
            if (take(digit).empty()) refuse("a digit follows the point, such as 1.5s");
        } else if (whole == 0) {
            refuse("each part begins with a number, such as 1min 30s");
        }
        return text_.substr(from, at_ - from);
    }

    std::int64_t lengthOf(std::string_view unit) const {
        std::vector<std::string_view> names;
        for (const Unit& known : units) {
            if (known.name == unit) return known.microseconds;
            names.push_back(known.name);
        }
        std::string why = "there is no unit " + inQuotes(unit);
        const std::string near = unit.size() > 1 ? suggestion(unit, names) : std::string();
        why += near.empty() ? "; the units are us, ms, s, min, h, d and w" : near;
        refuse(why);
    }

    std::int64_t microseconds(std::string_view number, std::int64_t unit) const {
        long double value = 0;
        const auto read = std::from_chars(number.data(), number.data() + number.size(), value,
                                          std::chars_format::fixed);
        const bool zero = number.find_first_not_of("0.") == std::string_view::npos;
        if (zero) return 0;
        if (read.ec == std::errc::result_out_of_range && value >= 1) return longest + 1;
        value *= static_cast<long double>(unit);
        if (value > static_cast<long double>(longest) || std::isinf(value)) return longest + 1;
        const std::int64_t rounded = std::llround(value);
        if (rounded == 0) refuse("it is shorter than 1us, the shortest there is");
        return rounded;
    }

    static std::string shown(std::string_view number) { return std::string(number.substr(0, 20)); }

    std::string_view text_;
    std::size_t at_ = 0;
    bool first_ = true;
};

}  // namespace

bool meansEndless(std::string_view text) {
    constexpr std::string_view words[] = {endless,   "inf",  ".inf",      "infinite", "Infinity",
                                          "forever", "none", "unlimited", "never"};
    return std::find(std::begin(words), std::end(words), trimmed(text)) != std::end(words);
}

double parseDuration(std::string_view text) { return Reading(text).seconds(); }

std::string durationText(double seconds, double accuracy) {
    if (std::isnan(seconds)) return "unknown";
    if (seconds < 0) {
        const std::string size = durationText(-seconds, accuracy);
        return size == "0s" ? size : "-" + size;
    }
    if (std::isinf(seconds)) return "infinity";
    constexpr std::int64_t most = longest / second;
    if (seconds > static_cast<double>(most)) return fmt::format("{:g}s", seconds);

    const std::int64_t step =
        std::clamp<std::int64_t>(std::llround(std::min(accuracy, 86400.0) * 1e6), 1, day);
    std::int64_t left = std::llround(static_cast<long double>(seconds) * 1e6L);
    left = (left + step / 2) / step * step;
    if (left == 0) return "0s";

    const auto withFraction = [](std::int64_t microseconds, std::int64_t unit, const char* name) {
        std::string number = std::to_string(microseconds / unit);
        if (const std::int64_t rest = microseconds % unit; rest != 0) {
            number += fmt::format(".{:0{}}", rest, unit == second ? 6 : 3);
            number.erase(number.find_last_not_of('0') + 1);
        }
        return number + name;
    };
    if (left < 1'000) return fmt::format("{}us", left);
    if (left < second) return withFraction(left, 1'000, "ms");

    std::string text;
    for (const Unit& unit : {Unit{"d", day}, Unit{"h", hour}, Unit{"min", minute}}) {
        if (left >= unit.microseconds)
            text += fmt::format("{}{} ", left / unit.microseconds, unit.name);
        left %= unit.microseconds;
    }
    if (left > 0) return text + withFraction(left, second, "s");
    text.pop_back();
    return text;
}

std::string timeText(double seconds) { return durationText(seconds, 1e-3); }

}  // namespace Host
