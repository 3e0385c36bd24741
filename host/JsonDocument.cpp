#include "host/JsonDocument.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>

namespace Host {

namespace {

constexpr double exact = 9007199254740992.0;  // 2^53: up to there doubles are every whole number

void appendScalar(std::string& to, const Json& value) {
    const double* const number = value.number();
    if (number == nullptr)
        appendJson(to, value);
    else if (!std::isfinite(*number))
        to += "null";
    else if (std::abs(*number) <= exact && *number == std::trunc(*number))
        to += fmt::format("{}", static_cast<std::int64_t>(*number));
    else
        appendNumber(to, *number);
}

// As deep as the documents that our verbs make.
void append(std::string& to, const Json& value, std::size_t depth) {
    const auto newLine = [&to](std::size_t indent) { to.append("\n").append(indent * 2, ' '); };
    if (const Json::Array* const array = value.array(); array != nullptr && !array->empty()) {
        to += '[';
        for (std::size_t i = 0; i < array->size(); ++i) {
            if (i > 0) to += ',';
            newLine(depth + 1);
            append(to, (*array)[i], depth + 1);
        }
        newLine(depth);
        to += ']';
    } else if (const Json::Object* const object = value.object();
               object != nullptr && !object->empty()) {
        to += '{';
        for (std::size_t i = 0; i < object->size(); ++i) {
            if (i > 0) to += ',';
            newLine(depth + 1);
            appendText(to, (*object)[i].first);
            to += ": ";
            append(to, (*object)[i].second, depth + 1);
        }
        newLine(depth);
        to += '}';
    } else {
        appendScalar(to, value);
    }
}

}  // namespace

std::string jsonDocument(const Json& value) {
    std::string text;
    append(text, value, 0);
    text += '\n';
    return text;
}

}  // namespace Host
