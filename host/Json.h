// JSON as journals need it: strict when read, in one fixed form when written.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Host {

// Why a text is not a JSON value that we take.
class JsonError final : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Json {
  public:
    using Array = std::vector<Json>;
    // In the order of the text.
    using Object = std::vector<std::pair<std::string, Json>>;

    Json() = default;  // null
    Json(bool b) : held_(b) {}
    Json(double d) : held_(d) {}
    Json(std::string s) : held_(std::move(s)) {}
    Json(const char* s) : held_(std::string(s)) {}
    Json(Array a) : held_(std::move(a)) {}
    Json(Object o) : held_(std::move(o)) {}

    bool null() const { return std::holds_alternative<std::monostate>(held_); }
    const bool* boolean() const { return std::get_if<bool>(&held_); }
    const double* number() const { return std::get_if<double>(&held_); }
    const std::string* string() const { return std::get_if<std::string>(&held_); }
    const Array* array() const { return std::get_if<Array>(&held_); }
    const Object* object() const { return std::get_if<Object>(&held_); }
    std::string* string() { return std::get_if<std::string>(&held_); }
    Array* array() { return std::get_if<Array>(&held_); }
    Object* object() { return std::get_if<Object>(&held_); }
    // The object's member, or null; null as well when this is no object.
    const Json* member(std::string_view key) const;

    friend bool operator==(const Json&, const Json&) = default;

  private:
    std::variant<std::monostate, bool, double, std::string, Array, Object> held_;
};

// The one value that `text` consists of. Raises JsonError, with the column, for anything else, and
// also for what the grammar allows but no journal means: a key that stands twice in an object, and
// a number that no double holds. Numbers are read exactly.
Json parseJson(std::string_view text);

// Each appends the written form. Numbers are the shortest text that reads back as the same double,
// with ".0" when it is integral; infinities and NaN, for which JSON has nothing, become the strings
// "inf", "-inf" and "nan". Strings keep their UTF-8; control characters are escaped, and a byte
// that is not UTF-8 becomes U+FFFD. ", " and ": " separate.
void appendNumber(std::string& to, double number);
void appendText(std::string& to, std::string_view text);
void appendJson(std::string& to, const Json& value);

}  // namespace Host
