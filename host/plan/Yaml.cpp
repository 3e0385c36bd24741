#include "host/plan/Yaml.h"

#include <fmt/format.h>
#include <yaml.h>

#include <algorithm>
#include <new>
#include <unordered_map>
#include <utility>

#include "host/Utf8.h"

namespace Host {

namespace {

constexpr std::size_t deepest = 64;
// How many characters before its ":" libyaml lets a key begin.
constexpr std::size_t longestKey = 1024;

// From how libyaml counts to how editors do: only "\n" ends a line.
class Places {
  public:
    explicit Places(std::string_view text) {
        starts_.push_back(0);
        std::size_t index = 0;
        for (const char c : text) {
            if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) ++index;
            if (c == '\n') starts_.push_back(index);
        }
        end_ = index;
    }

    // The characters at `at` and at the one after it are one character in what libyaml reads.
    void shortened(std::size_t at, std::size_t by) { shortened_.emplace_back(at, by); }

    // `index` counts characters of what libyaml reads, from 0.
    Place at(std::size_t index) const {
        for (const auto& [from, by] : shortened_) {
            if (index <= from) break;
            index += by;
        }
        index = std::min(index, end_);
        const auto next = std::upper_bound(starts_.begin(), starts_.end(), index);
        return {static_cast<std::size_t>(next - starts_.begin()), index - *(next - 1) + 1};
    }

  private:
    std::vector<std::size_t> starts_;
    std::size_t end_ = 0;
    std::vector<std::pair<std::size_t, std::size_t>> shortened_;
};

bool hexDigits(std::string_view text) {
    return text.size() == 4 && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

// JSON escapes what lies above U+FFFF as two surrogates, which YAML does not know. They become the
// one escape that YAML has for it.
std::string withoutSurrogates(std::string_view text, Places& places) {
    std::string joined;
    joined.reserve(text.size());
    bool quoted = false;
    std::size_t index = 0;  // of characters
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool escape = quoted && c == '\\' && at + 1 < text.size();
        if (c == '"') quoted = !quoted;
        if (escape && at + 12 <= text.size() && text[at + 1] == 'u' &&
            hexDigits(text.substr(at + 2, 4)) && text.substr(at + 6, 2) == "\\u" &&
            hexDigits(text.substr(at + 8, 4))) {
            const unsigned long high = std::stoul(std::string(text.substr(at + 2, 4)), nullptr, 16);
            const unsigned long low = std::stoul(std::string(text.substr(at + 8, 4)), nullptr, 16);
            if (high >= 0xd800 && high < 0xdc00 && low >= 0xdc00 && low < 0xe000) {
                joined +=
                    fmt::format("\\U{:08x}", 0x10000 + ((high - 0xd800) << 10) + (low - 0xdc00));
                index += 10;
                places.shortened(index - 1, 2);
                at += 11;
                continue;
            }
        }
        joined += c;
        if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) ++index;
        if (escape) {
            joined += text[++at];
            if ((static_cast<unsigned char>(text[at]) & 0xc0) != 0x80) ++index;
        }
    }
    return joined;
}

bool looksLikeJson(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != text.npos && (text[first] == '{' || text[first] == '[');
}

// What libyaml says of broken syntax, and what we say.
struct Remedy {
    std::string_view problem;
    std::string_view text;
    bool atContext = false;  // the remedy is where the construct begins
    std::size_t back = 0;    // how many characters before where libyaml noticed it
};

constexpr Remedy remedies[] = {
    {"found unexpected end of stream", "the quotes that open here are never closed", true},
    {"found unexpected document indicator", "the quotes that open here are never closed", true},
    {"found unknown escape character",
     "there is no such escape; write \\\\ for a backslash, or put the text into single quotes"},
    {"did not find expected hexdecimal number",
     "an escape of a character wants hexadecimal digits here, as many as \\x41, \\u0041 and "
     "\\U00000041 have",
     false, 2},
    {"found invalid Unicode character escape code", "this escape stands for no character", false,
     2},
    {"mapping values are not allowed in this context",
     "no \":\" can stand here; put a text that holds one into quotes, or look at how far the lines "
     "are indented"},
    {"block sequence entries are not allowed in this context",
     "no list can begin here; write it on lines of its own, or as [a, b]"},
    {"mapping keys are not allowed in this context", "no key can stand here"},
    {"could not find expected ':'", "this has no \": \" after it, which a key has", true},
    {"did not find expected key",
     "a key is expected here; look at how far the lines are indented, and at quotes within a text"},
    {"did not find expected '-' indicator",
     "an entry of the list is expected here; look at how far the lines are indented"},
    {"did not find expected ',' or '}'", "a \",\" or \"}\" is missing before this"},
    {"did not find expected ',' or ']'", "a \",\" or \"]\" is missing before this"},
    {"did not find expected node content", "a value is expected here"},
    {"did not find expected <document start>", "the plan has ended before this"},
    {"did not find expected alphabetic or numeric character",
     "a text that begins with & or * is put into quotes"},
    {"did not find expected whitespace or line break",
     "this is not closed; put a text that begins like that into quotes"},
    {"did not find expected comment or line break",
     "the text begins on the line after | or >; put one that begins with those into quotes"},
    {"found a tab character where an indentation space is expected",
     "a tab cannot indent; use spaces"},
    {"found a tab character that violates indentation", "a tab cannot indent; use spaces"},
    {"found incompatible YAML document", "only %YAML 1.1 and 1.2 are known; leave this line out"},
    {"found duplicate %YAML directive", "%YAML stands twice; leave this line out"},
};

class Composer {
  public:
    Composer(std::string_view text, Findings& findings)
        : places_(text),
          text_(looksLikeJson(text) ? withoutSurrogates(text, places_) : std::string(text)),
          findings_(findings) {
        if (yaml_parser_initialize(&parser_) == 0) throw std::bad_alloc();
        yaml_parser_set_encoding(&parser_, YAML_UTF8_ENCODING);
        yaml_parser_set_input_string(&parser_, reinterpret_cast<const unsigned char*>(text_.data()),
                                     text_.size());
    }
    Composer(const Composer&) = delete;
    Composer& operator=(const Composer&) = delete;
    ~Composer() { yaml_parser_delete(&parser_); }

    std::optional<YamlNode> compose() {
        for (;;) {
            Event event;
            if (yaml_parser_parse(&parser_, &event.held) == 0) {
                refuseSyntax();
                return std::nullopt;
            }
            const Place place = places_.at(event.held.start_mark.index);
            switch (event.held.type) {
                case YAML_STREAM_END_EVENT:
                    if (!root_)
                        findings_.error({1, 1}, "syntax",
                                        "the file is empty; a plan begins with \"version: 1\"");
                    return std::move(root_);
                case YAML_DOCUMENT_START_EVENT:
                    if (!root_) break;
                    findings_.error(place, "unsupported-yaml",
                                    "a second document begins here; a file holds one plan");
                    return std::nullopt;
                case YAML_ALIAS_EVENT:
                    findings_.error(
                        place, "unsupported-yaml",
                        "an alias is not taken; write out what it stands for, and put a text that "
                        "begins with * into quotes");
                    put(refused(place));
                    break;
                case YAML_SCALAR_EVENT:
                    if (event.held.end_mark.index > event.held.start_mark.index)
                        lastScalar_ = event.held.start_mark.index;
                    scalar(event.held, place);
                    break;
                case YAML_SEQUENCE_START_EVENT:
                    refuseProperties(event.held.data.sequence_start.anchor,
                                     event.held.data.sequence_start.tag, place);
                    if (!open(YamlNode::Kind::list, place)) return std::nullopt;
                    break;
                case YAML_MAPPING_START_EVENT:
                    refuseProperties(event.held.data.mapping_start.anchor,
                                     event.held.data.mapping_start.tag, place);
                    if (!open(YamlNode::Kind::mapping, place)) return std::nullopt;
                    break;
                case YAML_SEQUENCE_END_EVENT:
                case YAML_MAPPING_END_EVENT: close(); break;
                default: break;
            }
        }
    }

  private:
    struct Event {
        Event() = default;
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;
        ~Event() { yaml_event_delete(&held); }
        yaml_event_t held{};
    };

    // A list or mapping that has begun and not ended.
    struct Open {
        YamlNode node;
        // A mapping's key that waits for its value.
        std::optional<YamlMember> key{};
        bool keyRefused = false;
        std::unordered_map<std::string, Place> keys{};
    };

    static YamlNode refused(Place place) {
        YamlNode node;
        node.place = place;
        return node;
    }

    void scalar(const yaml_event_t& event, Place place) {
        const auto& held = event.data.scalar;
        refuseProperties(held.anchor, held.tag, place);
        if (held.tag != nullptr) {
            put(refused(place));  // what it would be is not known
            return;
        }
        YamlNode node;
        node.kind = YamlNode::Kind::scalar;
        node.place = place;
        node.text.assign(reinterpret_cast<const char*>(held.value), held.length);
        node.quoted = held.style != YAML_PLAIN_SCALAR_STYLE;
        put(std::move(node));
    }

    void refuseProperties(const yaml_char_t* anchor, const yaml_char_t* tag, Place place) {
        if (anchor != nullptr)
            findings_.error(
                place, "unsupported-yaml",
                "an anchor is not taken; leave it out, and put a text that begins with & into "
                "quotes");
        if (tag != nullptr)
            findings_.error(place, "unsupported-yaml",
                            "a tag is not taken; leave it out, and put a text that begins with ! "
                            "into quotes");
    }

    bool open(YamlNode::Kind kind, Place place) {
        if (open_.size() == deepest) {
            findings_.error(
                place, "unsupported-yaml",
                fmt::format("this is more than {} levels deep, which no plan is", deepest));
            return false;
        }
        Open opened;
        opened.node.kind = kind;
        opened.node.place = place;
        open_.push_back(std::move(opened));
        return true;
    }

    void close() {
        YamlNode node = std::move(open_.back().node);
        open_.pop_back();
        put(std::move(node));
    }

    // A whole node, to where it belongs.
    void put(YamlNode node) {
        if (open_.empty()) {
            root_ = std::move(node);
            return;
        }
        Open& parent = open_.back();
        if (parent.node.kind == YamlNode::Kind::list) {
            parent.node.items.push_back(std::move(node));
        } else if (!parent.key) {
            putKey(parent, std::move(node));
        } else {
            YamlMember member = std::move(*parent.key);
            parent.key.reset();
            if (parent.keyRefused) return;
            if (node.kind == YamlNode::Kind::scalar && !node.quoted && node.text.empty())
                node.place = member.place;
            member.value = std::move(node);
            parent.node.members.push_back(std::move(member));
        }
    }

    void putKey(Open& parent, YamlNode node) {
        parent.key = YamlMember{node.text, node.place, {}};
        parent.keyRefused = true;
        if (node.kind == YamlNode::Kind::refused) return;
        if (node.kind != YamlNode::Kind::scalar) {
            findings_.error(node.place, "wrong-type", "a key is a text, not " + describe(node));
            return;
        }
        if (node.text == "<<" && !node.quoted) {
            findings_.error(node.place, "unsupported-yaml",
                            "the merge key << is not taken; write out the keys that it stands for");
            return;
        }
        const auto [first, isNew] = parent.keys.emplace(node.text, node.place);
        if (!isNew) {
            findings_.error(node.place, "duplicate-key",
                            "the key " + inQuotes(node.text) + " stands twice; leave one out",
                            {{first->second, "it stands first here"}});
            return;
        }
        parent.keyRefused = false;
    }

    void refuseSyntax() {
        if (parser_.error == YAML_MEMORY_ERROR) throw std::bad_alloc();
        if (parser_.error == YAML_READER_ERROR) {
            const std::string_view before =
                std::string_view(text_).substr(0, parser_.problem_offset);
            const int value = parser_.problem_value;
            const std::string remedy =
                value == 0 ? "no text of a plan can hold it; leave it out"
                           : fmt::format("in double quotes, write {} for it",
                                         value <= 0xff ? fmt::format("\\x{:02X}", value)
                                                       : fmt::format("\\u{:04X}", value));
            findings_.error(
                places_.at(utf8Columns(before)), "syntax",
                fmt::format("the control character U+{:04X} cannot stand here; {}", value, remedy));
            return;
        }
        const std::string_view problem = parser_.problem != nullptr ? parser_.problem : "";
        const std::size_t index = parser_.problem_mark.index;
        const Place at = places_.at(index);
        const Place context = places_.at(parser_.context_mark.index);
        if (problem == "found character that cannot start any token") {
            const char c = characterAt(index);
            findings_.error(at, "syntax",
                            c == '\t' ? std::string("a tab cannot indent; use spaces")
                                      : fmt::format("no value begins with {}; put the text into "
                                                    "quotes",
                                                    inQuotes(std::string_view(&c, 1))));
            return;
        }
        const bool inKey = problem == "could not find expected ':'";
        if (const std::size_t begin = inKey ? parser_.context_mark.index : lastScalar_;
            isLongKey(begin, index)) {
            findings_.error(places_.at(begin), "syntax",
                            fmt::format("a key has at most {} characters, and this one has more; "
                                        "shorten it",
                                        longestKey));
            return;
        }
        for (const Remedy& remedy : remedies) {
            if (remedy.problem != problem) continue;
            std::vector<Diagnostic::Related> related;
            std::string text(remedy.text);
            if (problem.starts_with("did not find expected ',' or")) {
                related.push_back({context, "what is not closed begins here"});
                if (characterAt(index) == ':')
                    text = "no \":\" can stand here; a \",\" may be missing on the line before";
            }
            findings_.error(remedy.atContext ? context : places_.at(index - remedy.back), "syntax",
                            std::move(text), std::move(related));
            return;
        }
        std::string text = "this is not YAML: " + std::string(problem);
        if (parser_.context != nullptr) text += ", " + std::string(parser_.context);
        findings_.error(at, "syntax", text);
    }

    // Whether what begins at `begin` would be a key, with its ":" at `end`, were it not too long.
    bool isLongKey(std::size_t begin, std::size_t end) const {
        return end > begin + longestKey && places_.at(begin).line == places_.at(end).line &&
               characterAt(end, " \t") == ':';
    }

    // The ASCII character at that index of characters, or after what is to be skipped there.
    char characterAt(std::size_t index, std::string_view skipped = {}) const {
        std::size_t at = 0;
        for (; index > 0 && at < text_.size(); --index)
            at += std::max<std::size_t>(utf8Length(text_, at), 1);
        at = std::min(text_.find_first_not_of(skipped, at), text_.size());
        return at < text_.size() ? text_[at] : '\0';
    }

    Places places_;
    const std::string text_;
    Findings& findings_;
    yaml_parser_t parser_{};
    std::vector<Open> open_;
    std::optional<YamlNode> root_;
    std::size_t lastScalar_ = 0;  // where the last one that is written begins
};

bool numeric(std::string_view text) {
    const auto digits = [&text](std::string_view of) {
        const std::size_t end = std::min(text.find_first_not_of(of), text.size());
        text.remove_prefix(end);
        return end;
    };
    if (text == ".nan" || text == ".NaN" || text == ".NAN") return true;
    const bool octal = text.starts_with("0o");
    if (octal || text.starts_with("0x")) {
        text.remove_prefix(2);
        return digits(octal ? "01234567" : "0123456789abcdefABCDEF") > 0 && text.empty();
    }
    if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
    if (text == ".inf" || text == ".Inf" || text == ".INF") return true;
    constexpr std::string_view decimal = "0123456789";
    std::size_t mantissa = digits(decimal);
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        mantissa += digits(decimal);
    }
    if (mantissa == 0) return false;
    if (text.starts_with('e') || text.starts_with('E')) {
        text.remove_prefix(1);
        if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
        if (digits(decimal) == 0) return false;
    }
    return text.empty();
}

}  // namespace

void Findings::error(Place place, std::string rule, std::string text,
                     std::vector<Diagnostic::Related> related) {
    if (++errors_ > most + 1) return;
    if (errors_ > most) {
        to_.back().related.push_back(
            {place,
             fmt::format("there are more than {} errors; from here on, they are not told", most)});
        return;
    }
    to_.push_back({Diagnostic::Severity::error, file_, place, std::move(rule), std::move(text),
                   std::move(related)});
}

YamlNode::Scalar YamlNode::scalar() const {
    if (quoted) return Scalar::text;
    for (const std::string_view word : {"", "~", "null", "Null", "NULL"})
        if (text == word) return Scalar::null;
    for (const std::string_view word : {"true", "True", "TRUE", "false", "False", "FALSE"})
        if (text == word) return Scalar::boolean;
    return numeric(text) ? Scalar::number : Scalar::text;
}

const YamlMember* YamlNode::member(std::string_view key) const {
    for (const YamlMember& member : members)
        if (member.key == key) return &member;
    return nullptr;
}

std::string describe(const YamlNode& node) {
    switch (node.kind) {
        case YamlNode::Kind::list: return "a list";
        case YamlNode::Kind::mapping: return "a mapping";
        case YamlNode::Kind::refused: return "what is not taken";
        case YamlNode::Kind::scalar: break;
    }
    switch (node.scalar()) {
        case YamlNode::Scalar::null: return "nothing";
        case YamlNode::Scalar::boolean: return node.text;
        case YamlNode::Scalar::number: return "the number " + printable(node.text.substr(0, 40));
        case YamlNode::Scalar::text: break;
    }
    return node.text.empty() ? "an empty text" : "the text " + inQuotes(node.text);
}

std::optional<YamlNode> readYaml(std::string_view text, Findings& findings) {
    if (const std::size_t fault = utf8Fault(text); fault != text.npos) {
        const std::string_view bom = text.substr(0, 2);
        const bool utf16 = bom == "\xff\xfe" || bom == "\xfe\xff";
        std::string_view before = text.substr(0, fault);
        if (before.starts_with("\xef\xbb\xbf")) before.remove_prefix(3);
        findings.error(Places(before).at(utf8Columns(before)), "syntax",
                       utf16 ? std::string("the file is UTF-16; save it as UTF-8")
                             : fmt::format("the byte {} is not UTF-8; save the file as UTF-8",
                                           printable(text.substr(fault, 1))));
        return std::nullopt;
    }
    if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
    return Composer(text, findings).compose();
}

}  // namespace Host
