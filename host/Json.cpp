#include "host/Json.h"

#include <fmt/format.h>
#include <array>

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/src.hpp>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "host/Utf8.h"

namespace Host {

namespace {

// Builds the value from the parser's events.
class Builder {
  public:
    // The search for a key that stands twice is linear; a journal's objects have a few members.
    static constexpr std::size_t max_object_size = 64;
    static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);

    Json result;
    // Why the builder itself stopped the parser.
    std::string refusal;

    using Code = boost::json::error_code;
    using Part = boost::json::string_view;

    bool on_document_begin(Code&) { return true; }
    bool on_document_end(Code&) { return true; }

    bool on_object_begin(Code&) {
        begin(Json::Object());
        open_.back().value.object()->reserve(8);
        return true;
    }
    bool on_object_end(std::size_t, Code&) { return end(); }
    bool on_array_begin(Code&) { return begin(Json::Array()); }
    bool on_array_end(std::size_t, Code&) { return end(); }

    bool on_key_part(Part part, std::size_t, Code&) { return append(part); }
    bool on_key(Part part, std::size_t, Code& code) {
        append(part);
        const Json::Object& object = *open_.back().value.object();
        for (const auto& [key, value] : object)
            if (key == text_) return refuse(code, "the key " + inQuotes(text_) + " stands twice");
        open_.back().key = std::exchange(text_, {});
        return true;
    }
    bool on_string_part(Part part, std::size_t, Code&) { return append(part); }
    bool on_string(Part part, std::size_t, Code&) {
        append(part);
        return put(std::exchange(text_, {}));
    }

    // The parser's own numbers are off by a unit in the last place now and then; the text is exact.
    bool on_number_part(Part part, Code&) { return append(part); }
    bool on_int64(std::int64_t, Part part, Code& code) { return number(part, 1, code); }
    bool on_uint64(std::uint64_t, Part part, Code& code) { return number(part, 1, code); }
    bool on_double(double rough, Part part, Code& code) { return number(part, rough, code); }

    bool on_bool(bool b, Code&) { return put(b); }
    bool on_null(Code&) { return put(Json()); }
    bool on_comment_part(Part, Code&) { return true; }
    bool on_comment(Part, Code&) { return true; }

  private:
    struct Open {
        Json value;
        std::string key;  // of the member under way, in an object
    };

    bool append(Part part) {
        text_.append(part.data(), part.size());
        return true;
    }
    bool number(Part part, double rough, Code& code) {
        append(part);
        double exact = 0;
        const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), exact);
        // What is too small for a double is 0; from_chars says only that it is out of range.
        if (error == std::errc::result_out_of_range && std::abs(rough) < 1)
            exact = std::copysign(0.0, rough);
        else if (error != std::errc())
            return refuse(code, "the number " + inQuotes(text_) + " is beyond what a double holds");
        text_.clear();
        return put(exact);
    }
    bool begin(Json value) {
        open_.push_back({std::move(value), {}});
        return true;
    }
    bool end() {
        Json value = std::move(open_.back().value);
        open_.pop_back();
        return put(std::move(value));
    }
    bool put(Json value) {
        if (open_.empty()) {
            result = std::move(value);
        } else if (Json::Object* const object = open_.back().value.object()) {
            object->emplace_back(std::move(open_.back().key), std::move(value));
        } else {
            open_.back().value.array()->push_back(std::move(value));
        }
        return true;
    }
    bool refuse(Code& code, std::string why) {
        refusal = std::move(why);
        code = boost::json::error::exception;
        return false;
    }

    std::vector<Open> open_;
    std::string text_;
};

[[noreturn]] void fail(std::string_view text, std::size_t at, const std::string& why) {
    if (const std::size_t fault = utf8Fault(text); fault != std::string_view::npos)
        throw JsonError(fmt::format("not UTF-8: the byte 0x{:02x} at column {}",
                                    static_cast<unsigned char>(text[fault]), fault + 1));
    throw JsonError(fmt::format("{} at column {}", why, at + 1));
}

}  // namespace

const Json* Json::member(std::string_view key) const {
    if (object() != nullptr)
        for (const auto& [name, value] : *object())
            if (name == key) return &value;
    return nullptr;
}

Json parseJson(std::string_view text) {
    boost::json::basic_parser<Builder> parser({});
    boost::json::error_code code;
    const std::size_t end = parser.write_some(false, text.data(), text.size(), code);
    Builder& builder = parser.handler();
    if (!builder.refusal.empty()) fail(text, end, builder.refusal);
    if (code == boost::json::error::incomplete) fail(text, end, "not JSON: it ends too early");
    if (code) fail(text, end, "not JSON: " + code.message());
    if (end < text.size()) fail(text, end, "not JSON: something follows the value");
    return std::move(builder.result);
}

void appendNumber(std::string& to, double number) {
    if (std::isnan(number)) {
        to += "\"nan\"";
        return;
    }
    if (std::isinf(number)) {
        to += number > 0 ? "\"inf\"" : "\"-inf\"";
        return;
    }
    // Fixed notation from 1e-4 up to 1e16, else with an exponent of two digits or more.
    char text[40];
    const auto scientific =
        std::to_chars(text, text + sizeof text, number, std::chars_format::scientific).ptr;
    std::string_view digits(text, static_cast<std::size_t>(scientific - text));
    const std::size_t e = digits.find('e');
    int exponent = 0;
    std::from_chars(digits.data() + e + (digits[e + 1] == '+' ? 2 : 1),
                    digits.data() + digits.size(), exponent);
    if (exponent < -4 || exponent >= 16) {
        to += digits;
        return;
    }
    const auto fixed = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed);
    digits = {text, static_cast<std::size_t>(fixed.ptr - text)};
    to += digits;
    if (digits.find('.') == std::string_view::npos) to += ".0";
}

namespace {

// By byte: whether it stands in a JSON text as it is. Most do, and a look here is all they cost.
constexpr std::array<bool, 256> plainBytes = [] {
    std::array<bool, 256> plain{};
    for (std::size_t byte = 0x20; byte < 0x80; ++byte) plain[byte] = byte != '"' && byte != '\\';
    return plain;
}();

}  // namespace

void appendText(std::string& to, std::string_view text) {
    to += '"';
    std::size_t plain = 0;  // what follows here is copied as it is
    const auto replace = [&](std::size_t at, std::string_view by) {
        to += text.substr(plain, at - plain);
        to += by;
        plain = at + 1;
    };
    for (std::size_t at = 0; at < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[at]);
        if (plainBytes[c]) {
            ++at;
            continue;
        }
        if (c >= 0x80) {
            const std::size_t length = utf8Length(text, at);
            if (length == 0) replace(at, "\xef\xbf\xbd");
            at += std::max<std::size_t>(length, 1);
            continue;
        }
        if (c == '"')
            replace(at, "\\\"");
        else if (c == '\\')
            replace(at, "\\\\");
        else if (c == '\n')
            replace(at, "\\n");
        else if (c == '\r')
            replace(at, "\\r");
        else if (c == '\t')
            replace(at, "\\t");
        else if (c == '\b')
            replace(at, "\\b");
        else if (c == '\f')
            replace(at, "\\f");
        else if (c < 0x20)
            replace(at, fmt::format("\\u{:04x}", c));
        ++at;
    }
    to += text.substr(plain);
    to += '"';
}

void appendJson(std::string& to, const Json& value) {
    const char* separator = "";
    if (const bool* const boolean = value.boolean()) {
        to += *boolean ? "true" : "false";
    } else if (const double* const number = value.number()) {
        appendNumber(to, *number);
    } else if (const std::string* const string = value.string()) {
        appendText(to, *string);
    } else if (const Json::Array* const array = value.array()) {
        to += '[';
        for (const Json& element : *array) {
            to += std::exchange(separator, ", ");
            appendJson(to, element);
        }
        to += ']';
    } else if (const Json::Object* const object = value.object()) {
        to += '{';
        for (const auto& [key, member] : *object) {
            to += std::exchange(separator, ", ");
            appendText(to, key);
            to += ": ";
            appendJson(to, member);
        }
        to += '}';
    } else {
        to += "null";
    }
}

}  // namespace Host
