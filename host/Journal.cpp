#include "host/Journal.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "host/Suggest.h"
#include "host/Utf8.h"

namespace Host {

namespace {

using Op = Input::Op;

struct OpName {
    Op op;
    std::string_view name;
    std::string_view fields;  // besides at and op
};
constexpr std::array<OpName, 7> ops = {{{Op::create, "create", "path, type"},
                                        {Op::del, "delete", "path"},
                                        {Op::set, "set", "path, attr, key, value"},
                                        {Op::unset, "unset", "path, attr, key"},
                                        {Op::clear, "clear", "path, attr"},
                                        {Op::settle, "settle", ""},
                                        {Op::end, "end", ""}}};

const OpName& nameOf(Op op) {
    return *std::find_if(ops.begin(), ops.end(), [&](const OpName& o) { return o.op == op; });
}

const OpName& opNamed(const std::string& name) {
    std::vector<std::string_view> names;
    for (const OpName& op : ops) {
        if (op.name == name) return op;
        names.push_back(op.name);
    }
    const std::string nearest = suggestion(name, names);
    throw MalformedInput(fmt::format(
        "no op {}{}", inQuotes(name),
        nearest.empty() ? fmt::format("; there are {}", fmt::join(names, ", ")) : nearest));
}

// A line's fields, which are taken out one by one; what is left at the end is superfluous.
class Fields {
  public:
    explicit Fields(Json::Object& object) : object_(object), taken_(object.size(), false) {}

    Json* take(std::string_view name) {
        for (std::size_t i = 0; i < object_.size(); ++i)
            if (object_[i].first == name) return taken_[i] = true, &object_[i].second;
        return nullptr;
    }
    std::string string(std::string_view op, std::string_view name) {
        Json* const field = take(name);
        if (field == nullptr) throw MalformedInput(fmt::format("\"{}\" needs \"{}\"", op, name));
        std::string* const text = field->string();
        if (text == nullptr) throw MalformedInput(fmt::format("\"{}\" must be a string", name));
        return std::move(*text);
    }
    std::optional<Json> any(std::string_view name) {
        Json* const field = take(name);
        return field != nullptr ? std::optional(std::move(*field)) : std::nullopt;
    }
    // The first one that nobody took, or null.
    const std::string* left() const {
        for (std::size_t i = 0; i < object_.size(); ++i)
            if (!taken_[i]) return &object_[i].first;
        return nullptr;
    }

  private:
    Json::Object& object_;
    std::vector<bool> taken_;
};

std::string numberText(double number) {
    std::string text;
    appendNumber(text, number);
    return text;
}

double readAt(Json* field, double previousAt) {
    if (field == nullptr) return previousAt;
    const double* const at = field->number();
    if (at == nullptr) throw MalformedInput("\"at\" must be a number of seconds");
    if (*at < previousAt)
        throw MalformedInput(
            fmt::format("\"at\" goes back from {} to {}; lines stand in the order of "
                        "their time",
                        numberText(previousAt), numberText(*at)));
    return *at;
}

}  // namespace

Input parseInput(std::string_view line, double previousAt) {
    Json json;
    try {
        json = parseJson(line);
    } catch (const JsonError& e) {
        throw MalformedInput(e.what());
    }
    if (json.object() == nullptr)
        throw MalformedInput(
            "not an object; a line is one JSON object, {\"at\": ..., \"op\": ...}");
    Fields fields(*json.object());

    const Json* const opField = fields.take("op");
    if (opField == nullptr) throw MalformedInput("the line needs \"op\"");
    if (opField->string() == nullptr) throw MalformedInput("\"op\" must be a string");
    const OpName& op = opNamed(*opField->string());

    Input input;
    input.op = op.op;
    input.at = readAt(fields.take("at"), previousAt);
    if (op.op != Op::settle && op.op != Op::end) input.path = fields.string(op.name, "path");
    if (op.op == Op::create) input.type = fields.string(op.name, "type");
    if (op.op == Op::set || op.op == Op::unset || op.op == Op::clear)
        input.attr = fields.string(op.name, "attr");
    if (op.op == Op::set || op.op == Op::unset) input.key = fields.any("key");
    if (op.op == Op::set) input.value = fields.any("value");
    if (op.op == Op::unset && !input.key) throw MalformedInput("\"unset\" needs \"key\"");
    if (op.op == Op::set && !input.key && !input.value)
        throw MalformedInput("\"set\" needs \"value\"");
    if (const std::string* const left = fields.left())
        throw MalformedInput(fmt::format("\"{}\" has no field {}; it takes at{}{}", op.name,
                                         inQuotes(*left), op.fields.empty() ? "" : ", ",
                                         op.fields));
    return input;
}

std::string inputLine(const Input& input) {
    std::string line = "{\"at\": ";
    appendNumber(line, input.at);
    const auto text = [&](std::string_view name, std::string_view value) {
        line += fmt::format(", \"{}\": ", name);
        appendText(line, value);
    };
    const auto json = [&](std::string_view name, const std::optional<Json>& value) {
        if (!value) return;
        line += fmt::format(", \"{}\": ", name);
        appendJson(line, *value);
    };
    const OpName& op = nameOf(input.op);
    text("op", op.name);
    if (op.fields.starts_with("path")) text("path", input.path);
    if (input.op == Op::create) text("type", input.type);
    if (op.fields.starts_with("path, attr")) text("attr", input.attr);
    json("key", input.key);
    json("value", input.value);
    return line += '}';
}

std::optional<Input> JournalReader::next() {
    while (readLine()) {
        if (text_.starts_with('#') || text_.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        try {
            Input input = parseInput(text_, at_);
            at_ = input.at;
            return input;
        } catch (const MalformedInput& e) {
            throw JournalError(line_, e.what());
        }
    }
    if (in_.bad()) throw JournalError(line_ + 1, "cannot be read any further");
    return std::nullopt;
}

bool JournalReader::readLine() {
    text_.clear();
    std::array<char, 1 << 16> part;
    for (bool first = true;; first = false) {
        in_.getline(part.data(), part.size());
        const auto count = static_cast<std::size_t>(in_.gcount());
        if (in_.bad() || (in_.eof() && count == 0)) {
            if (!first) ++line_;
            return !first && !in_.bad();
        }
        // gcount includes the line's end, which is not stored; a full part ends with no line's end.
        const bool full = in_.fail() && !in_.eof();
        text_.append(part.data(), in_.eof() || full ? count : count - 1);
        if (!full) break;
        in_.clear(in_.rdstate() & ~std::ios::failbit);
        if (text_.size() > longestLine) {
            ++line_;
            throw JournalError(line_, fmt::format("the line is longer than {} bytes", longestLine));
        }
    }
    ++line_;
    return true;
}

}  // namespace Host
