#include "tests/conformance/JournalText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>
#include <variant>

namespace conformance {
namespace {

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }

// --- Writing

void appendQuoted(std::string& out, std::string_view text) {
    out += '"';
    for (const char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    constexpr std::string_view digits = "0123456789abcdef";
                    out += "\\u00";
                    out += digits[static_cast<unsigned char>(c) >> 4];
                    out += digits[static_cast<unsigned char>(c) & 15];
                } else {
                    out += c;
                }
        }
    }
    out += '"';
}

// The shortest digits that read back as the same number, always with a point or an exponent.
std::string numberText(double value) {
    if (std::isnan(value)) return "\"nan\"";
    if (std::isinf(value)) return value > 0 ? "\"inf\"" : "\"-inf\"";
    std::array<char, 64> buffer{};
    const double size = std::abs(value);
    const bool plain = size == 0 || (size >= 1e-4 && size < 1e16);
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                   plain ? std::chars_format::fixed : std::chars_format::scientific)
                         .ptr;
    std::string text(buffer.data(), end);
    if (plain && text.find('.') == std::string::npos) text += ".0";
    return text;
}

void append(std::string& out, const Key& key) {
    if (key.form == Key::Form::name) return appendQuoted(out, key.first);
    out += key.form == Key::Form::report ? "{\"agent\": " : "{\"stageClass\": ";
    appendQuoted(out, key.first);
    out += ", \"stage\": ";
    appendQuoted(out, key.second);
    if (key.form == Key::Form::report) {
        out += ", \"instance\": ";
        appendQuoted(out, key.third);
    }
    out += '}';
}

void append(std::string& out, const Value& value) {
    if (const auto* flag = std::get_if<bool>(&value)) {
        out += *flag ? "true" : "false";
    } else if (const auto* number = std::get_if<double>(&value)) {
        out += numberText(*number);
    } else if (const auto* text = std::get_if<std::string>(&value)) {
        appendQuoted(out, *text);
    } else if (const auto* request = std::get_if<Request>(&value)) {
        out += "{\"agent\": ";
        appendQuoted(out, request->agent);
        out += ", \"stage\": ";
        appendQuoted(out, request->stage);
        out += ", \"timeout\": " + numberText(request->timeout) + '}';
    } else {
        out += "null";
    }
}

void appendField(std::string& out, std::string_view name, std::string_view text) {
    out += ", \"";
    out += name;
    out += "\": ";
    appendQuoted(out, text);
}

void append(std::string& out, const Shown& shown) {
    if (const auto* value = std::get_if<Value>(&shown.value)) return append(out, *value);
    std::string_view separator;
    const auto next = [&] {
        out += separator;
        separator = ", ";
    };
    if (const auto* names = std::get_if<Names>(&shown.value)) {
        out += '[';
        for (const std::string& name : *names) {
            next();
            appendQuoted(out, name);
        }
        out += ']';
    } else if (const auto* lines = std::get_if<std::vector<LogLine>>(&shown.value)) {
        out += '[';
        for (const LogLine& line : *lines) {
            next();
            out += "{\"time\": " + numberText(line.time);
            appendField(out, "message", line.message);
            out += '}';
        }
        out += ']';
    } else {
        out += shown.composite ? '[' : '{';
        for (const auto& [key, value] : std::get<Members>(shown.value)) {
            next();
            if (shown.composite) out += "{\"key\": ";
            append(out, key);
            out += shown.composite ? ", \"value\": " : ": ";
            append(out, value);
            if (shown.composite) out += '}';
        }
        out += shown.composite ? ']' : '}';
    }
}

std::string_view nameOf(Op op) {
    switch (op) {
        case Op::create: return "create";
        case Op::remove: return "delete";
        case Op::set: return "set";
        case Op::unset: return "unset";
        case Op::clear: return "clear";
        case Op::settle: return "settle";
        case Op::end: return "end";
    }
    return "";
}

std::string_view nameOf(Observation::Kind kind) {
    switch (kind) {
        case Observation::Kind::set: return "set";
        case Observation::Kind::unset: return "unset";
        case Observation::Kind::create: return "create";
        case Observation::Kind::remove: return "delete";
        case Observation::Kind::log: return "log";
        case Observation::Kind::message: return "message";
        case Observation::Kind::watchdog: return "watchdog";
        case Observation::Kind::print: return "print";
        case Observation::Kind::error: return "error";
    }
    return "";
}

// --- Reading

// Read here by hand: a journal must lose nothing on its way through text, and the JSON library at
// hand rounds one double in eleven to a neighbour.
struct Json {
    using Array = std::vector<Json>;
    struct Object {
        std::vector<std::string> names;
        std::vector<Json> values;
    };
    std::variant<std::monostate, bool, double, std::string, Array, Object> value;

    template <class T>
    const T* as() const {
        return std::get_if<T>(&value);
    }
};

class Reader {
  public:
    explicit Reader(std::string_view text) : text_(text) {}

    Json whole() {
        Json result = value(0);
        blanks();
        if (!text_.empty()) fail("something follows the value");
        return result;
    }

  private:
    static constexpr int deepest = 64;

    void blanks() {
        const auto start = text_.find_first_not_of(" \t\r\n");
        text_.remove_prefix(std::min(start, text_.size()));
    }

    bool accept(std::string_view token) {
        blanks();
        if (!text_.starts_with(token)) return false;
        text_.remove_prefix(token.size());
        return true;
    }

    void expect(std::string_view token) {
        if (!accept(token)) fail("no " + std::string(token) + " where one belongs");
    }

    Json value(int depth) {
        if (depth > deepest) fail("nested too deeply");
        blanks();
        if (text_.empty()) fail("ends too early");
        if (text_.front() == '"') return {string()};
        if (accept("null")) return {};
        if (accept("true")) return {true};
        if (accept("false")) return {false};
        if (accept("[")) {
            Json::Array array;
            if (accept("]")) return {std::move(array)};
            do array.push_back(value(depth + 1));
            while (accept(","));
            expect("]");
            return {std::move(array)};
        }
        if (accept("{")) {
            Json::Object object;
            if (accept("}")) return {std::move(object)};
            do {
                blanks();
                object.names.push_back(string());
                expect(":");
                object.values.push_back(value(depth + 1));
            } while (accept(","));
            expect("}");
            return {std::move(object)};
        }
        double number = 0;
        const auto [end, error] =
            std::from_chars(text_.data(), text_.data() + text_.size(), number);
        if (error != std::errc() || !std::isfinite(number)) fail("no JSON value");
        text_.remove_prefix(static_cast<std::size_t>(end - text_.data()));
        return {number};
    }

    unsigned hexadecimal() {
        unsigned code = 0;
        if (text_.size() < 4) fail("a short \\u");
        const auto end = std::from_chars(text_.data(), text_.data() + 4, code, 16).ptr;
        if (end != text_.data() + 4) fail("a wrong \\u");
        text_.remove_prefix(4);
        return code;
    }

    void appendCodePoint(std::string& out, unsigned code) {
        const auto tail = [&](unsigned shift) {
            out += static_cast<char>(0x80 | ((code >> shift) & 0x3f));
        };
        if (code >= 0xd800 && code < 0xdc00 && text_.starts_with("\\u")) {
            text_.remove_prefix(2);
            code = 0x10000 + ((code & 0x3ff) << 10) + (hexadecimal() & 0x3ff);
        }
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xc0 | (code >> 6));
            tail(0);
        } else if (code < 0x10000) {
            out += static_cast<char>(0xe0 | (code >> 12));
            tail(6);
            tail(0);
        } else {
            out += static_cast<char>(0xf0 | (code >> 18));
            tail(12);
            tail(6);
            tail(0);
        }
    }

    std::string string() {
        expect("\"");
        std::string out;
        for (;;) {
            const std::size_t plain = std::min(text_.find_first_of("\"\\"), text_.size());
            out += text_.substr(0, plain);
            text_.remove_prefix(plain);
            if (text_.size() < 2 && !text_.starts_with('"')) fail("a string without end");
            if (text_.front() == '"') {
                text_.remove_prefix(1);
                return out;
            }
            const char escape = text_[1];
            text_.remove_prefix(2);
            switch (escape) {
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': appendCodePoint(out, hexadecimal()); break;
                case '"':
                case '\\':
                case '/': out += escape; break;
                default: fail("a wrong escape");
            }
        }
    }

    std::string_view text_;
};

const Json* member(const Json::Object& object, std::string_view name) {
    for (std::size_t i = 0; i < object.names.size(); ++i)
        if (object.names[i] == name) return &object.values[i];
    return nullptr;
}

std::string field(const Json::Object& object, std::string_view name) {
    const Json* value = member(object, name);
    const auto* text = value ? value->as<std::string>() : nullptr;
    if (!text) fail("lacks the string " + std::string(name));
    return *text;
}

std::optional<double> numberOf(const Json& value) {
    if (const auto* number = value.as<double>()) return *number;
    const auto* text = value.as<std::string>();
    if (text && *text == "inf") return std::numeric_limits<double>::infinity();
    if (text && *text == "-inf") return -std::numeric_limits<double>::infinity();
    if (text && *text == "nan") return std::numeric_limits<double>::quiet_NaN();
    return std::nullopt;
}

bool isNumberAttribute(std::string_view attr) {
    for (int type = 0; type <= static_cast<int>(Type::FatalError); ++type)
        for (const Attribute& each : attributesOf(static_cast<Type>(type)))
            if (each.holds == Holds::number && each.name == attr) return true;
    return false;
}

Key keyOf(const Json& value) {
    if (const auto* name = value.as<std::string>()) return nameKey(*name);
    const auto* object = value.as<Json::Object>();
    if (!object) fail("no key");
    if (member(*object, "stageClass"))
        return placeKey(field(*object, "stageClass"), field(*object, "stage"));
    return reportKey(field(*object, "agent"), field(*object, "stage"), field(*object, "instance"));
}

Value valueOf(const Json& value, std::string_view attr) {
    if (isNumberAttribute(attr)) {
        if (const auto number = numberOf(value)) return *number;
        fail("not a number");
    }
    if (value.as<std::monostate>()) return std::monostate{};
    if (const auto* flag = value.as<bool>()) return *flag;
    if (const auto* text = value.as<std::string>()) return *text;
    const auto* object = value.as<Json::Object>();
    if (!object) fail("no value");
    const Json* timeout = member(*object, "timeout");
    const auto seconds = timeout ? numberOf(*timeout) : std::nullopt;
    if (!seconds) fail("lacks timeout");
    return Request{field(*object, "agent"), field(*object, "stage"), *seconds};
}

void appendCanonical(std::string& out, const Json& value) {
    std::string_view separator;
    const auto next = [&] {
        out += separator;
        separator = ",";
    };
    if (const auto* object = value.as<Json::Object>()) {
        std::vector<std::pair<std::string_view, const Json*>> members;
        for (std::size_t i = 0; i < object->names.size(); ++i)
            members.emplace_back(object->names[i], &object->values[i]);
        std::sort(members.begin(), members.end());
        out += '{';
        for (const auto& [name, each] : members) {
            next();
            appendQuoted(out, name);
            out += ':';
            appendCanonical(out, *each);
        }
        out += '}';
    } else if (const auto* array = value.as<Json::Array>()) {
        out += '[';
        for (const Json& each : *array) {
            next();
            appendCanonical(out, each);
        }
        out += ']';
    } else if (const auto* number = value.as<double>()) {
        out += numberText(*number == 0 ? 0 : *number);
    } else if (const auto* text = value.as<std::string>()) {
        appendQuoted(out, *text);
    } else if (const auto* flag = value.as<bool>()) {
        out += *flag ? "true" : "false";
    } else {
        out += "null";
    }
}

}  // namespace

Line parseLine(std::string_view text) {
    const Json parsed = Reader(text).whole();
    const auto* object = parsed.as<Json::Object>();
    if (!object) fail("not a JSON object");

    Line line;
    line.at = std::numeric_limits<double>::quiet_NaN();
    if (const Json* at = member(*object, "at")) {
        if (!at->as<double>()) fail("at is not a number");
        line.at = *at->as<double>();
    }
    const std::string op = field(*object, "op");
    bool known = false;
    for (int i = 0; i <= static_cast<int>(Op::end); ++i)
        if (nameOf(static_cast<Op>(i)) == op) {
            line.op = static_cast<Op>(i);
            known = true;
        }
    if (!known) fail("unknown op " + op);
    if (line.op == Op::settle || line.op == Op::end) return line;
    line.path = field(*object, "path");
    if (line.op == Op::create) line.type = field(*object, "type");
    if (line.op == Op::create || line.op == Op::remove) return line;
    line.attr = field(*object, "attr");
    if (const Json* key = member(*object, "key")) line.key = keyOf(*key);
    if (const Json* value = member(*object, "value")) line.value = valueOf(*value, line.attr);
    return line;
}

std::vector<Line> parseJournal(std::string_view text) {
    std::vector<Line> lines;
    double at = 0;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.find_first_not_of(" \t\r") == std::string_view::npos || line.front() == '#')
            continue;
        try {
            lines.push_back(parseLine(line));
        } catch (const std::runtime_error& error) {
            fail("line " + std::to_string(number) + ": " + error.what());
        }
        if (std::isnan(lines.back().at)) lines.back().at = at;
        at = lines.back().at;
    }
    return lines;
}

std::string textOf(const Line& line) {
    std::string out = "{\"at\": " + numberText(line.at);
    appendField(out, "op", nameOf(line.op));
    if (line.op != Op::settle && line.op != Op::end) appendField(out, "path", line.path);
    if (line.op == Op::create) appendField(out, "type", line.type);
    if (!line.attr.empty()) appendField(out, "attr", line.attr);
    if (line.key) {
        out += ", \"key\": ";
        append(out, *line.key);
    }
    if (line.value) {
        out += ", \"value\": ";
        append(out, *line.value);
    }
    return out + '}';
}

std::string textOf(const std::vector<Line>& lines) {
    std::string out;
    for (const Line& line : lines) out += textOf(line) + '\n';
    return out;
}

std::string textOf(const Observation& observation) {
    std::string out = "{\"t\": " + numberText(observation.t);
    appendField(out, "event", nameOf(observation.kind));
    switch (observation.kind) {
        case Observation::Kind::set:
        case Observation::Kind::unset:
            appendField(out, "path", observation.path);
            appendField(out, "attr", observation.attr);
            break;
        case Observation::Kind::create:
        case Observation::Kind::remove:
            appendField(out, "path", observation.path);
            appendField(out, "type", observation.type);
            break;
        case Observation::Kind::log:
            appendField(out, "path", observation.path);
            appendField(out, "message", observation.text);
            break;
        case Observation::Kind::message:
            appendField(out, "id", observation.id);
            out += ", \"severity\": " + std::to_string(observation.severity);
            appendField(out, "text", observation.text);
            break;
        case Observation::Kind::watchdog:
            out += ", \"name\": \"StageMgrConfigSm\", \"slot\": 1, \"flag\": false";
            appendField(out, "timeout", observation.text);
            break;
        case Observation::Kind::print:
        case Observation::Kind::error: appendField(out, "text", observation.text); break;
    }
    if (observation.key) {
        out += ", \"key\": ";
        append(out, *observation.key);
    }
    if (observation.value) {
        out += ", \"value\": ";
        append(out, *observation.value);
    }
    return out + '}';
}

std::string textOf(double t, const Tree& tree) {
    std::string out = "{\"t\": " + numberText(t) + ", \"event\": \"state\", \"tree\": {";
    std::string_view separator;
    for (const Node& node : tree) {
        out += separator;
        separator = ", ";
        appendQuoted(out, node.path);
        out += ": {\"type\": ";
        appendQuoted(out, node.type);
        for (const Shown& shown : node.attributes) {
            out += ", \"" + shown.attr + "\": ";
            append(out, shown);
        }
        out += '}';
    }
    return out + "}}";
}

std::string outcomeOf(const std::vector<Line>& lines) {
    State state = initialState();
    for (const Line& line : lines) feed(state, line);
    finish(state);
    std::string out;
    for (const Observation& each : state.observed) out += textOf(each) + '\n';
    if (!state.aborted) out += textOf(state.now, treeOf(state)) + '\n';
    return out;
}

namespace {

// Of two states, only what differs.
std::string differenceOf(std::string_view expected, std::string_view actual) {
    const auto treeIn = [](const Json& whole) -> const Json::Object* {
        const auto* object = whole.as<Json::Object>();
        const Json* tree = object ? member(*object, "tree") : nullptr;
        return tree ? tree->as<Json::Object>() : nullptr;
    };
    const auto said = [](const Json::Object& tree, const std::string& path) {
        const Json* node = member(tree, path);
        std::string out;
        if (node) appendCanonical(out, *node);
        return node ? out : "nothing";
    };
    const std::string whole =
        "expected " + std::string(expected) + "\nbut was  " + std::string(actual) + '\n';
    if (!expected.starts_with('{') || !actual.starts_with('{')) return whole;
    std::string difference;
    const Json one = Reader(expected).whole();
    const Json other = Reader(actual).whole();
    const Json::Object* oneTree = treeIn(one);
    const Json::Object* otherTree = treeIn(other);
    if (oneTree && otherTree) {
        std::vector<std::string> paths = oneTree->names;
        paths.insert(paths.end(), otherTree->names.begin(), otherTree->names.end());
        std::sort(paths.begin(), paths.end());
        paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
        for (const std::string& path : paths)
            if (said(*oneTree, path) != said(*otherTree, path))
                difference += path + "\n  expected " + said(*oneTree, path) + "\n  but was  " +
                              said(*otherTree, path) + '\n';
    }
    return difference.empty() ? whole : difference;
}

}  // namespace

std::string firstDifference(std::string_view expected, std::string_view actual) {
    const auto nextLine = [](std::string_view& text) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        return line;
    };
    for (std::size_t number = 1; !expected.empty() || !actual.empty(); ++number) {
        const bool oneEnds = expected.empty();
        const bool otherEnds = actual.empty();
        const std::string_view one = nextLine(expected);
        const std::string_view other = nextLine(actual);
        if (one == other) continue;
        const std::string where = "observation " + std::to_string(number) + ":\n";
        if (oneEnds) return where + "expected nothing more\nbut was  " + std::string(other) + '\n';
        if (otherEnds) return where + "expected " + std::string(one) + "\nbut was nothing more\n";
        if (canonical(one) != canonical(other)) return where + differenceOf(one, other);
    }
    return "";
}

std::string canonical(std::string_view text) {
    if (!text.starts_with('{')) return std::string(text);
    std::string out;
    appendCanonical(out, Reader(text).whole());
    return out;
}

}  // namespace conformance
