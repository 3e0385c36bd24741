// The part of YAML that plans are written in, JSON included: mappings, lists and scalars, each with
// its place.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/plan/Diagnostic.h"

namespace Host {

// Appends what is wrong with one file. The first thousand errors are kept, and the last of them
// notes that there are more: a file may consist of nothing else.
class Findings {
  public:
    Findings(std::string file, std::vector<Diagnostic>& to) : file_(std::move(file)), to_(to) {}

    // `text` as Diagnostic has it.
    void error(Place place, std::string rule, std::string text,
               std::vector<Diagnostic::Related> related = {});

  private:
    static constexpr std::size_t most = 1000;

    std::string file_;
    std::vector<Diagnostic>& to_;
    std::size_t errors_ = 0;
};

struct YamlMember;

struct YamlNode {
    enum class Kind {
        scalar,
        list,
        mapping,
        refused,  // something that we do not take, such as an alias; it has been reported
    };
    // What a scalar is by the core rules of YAML 1.2: `yes` and `on` are texts, and whatever is
    // quoted is.
    enum class Scalar { null, boolean, number, text };

    Kind kind = Kind::refused;
    Place place{};  // where it begins; a value of a mapping that is not written stands at its key
    std::string text{};               // a scalar's, without quotes and escapes
    bool quoted = false;              // or a block of text
    std::vector<YamlNode> items;      // a list's
    std::vector<YamlMember> members;  // a mapping's, in the order of the text, each key once

    bool is(Scalar wanted) const { return kind == Kind::scalar && scalar() == wanted; }
    bool null() const { return is(Scalar::null); }
    Scalar scalar() const;

    // The mapping's member, or null.
    const YamlMember* member(std::string_view key) const;
};

struct YamlMember {
    std::string key;
    Place place{};
    YamlNode value{};
};

// What a node is, for messages: "a list", "the number 12", "the text \"x\"", "nothing".
std::string describe(const YamlNode& node);

// The one document that `text` holds, or none when its syntax is broken, which is one error. What
// is well-formed but not ours is left out and reported: anchors, aliases, tags, merge keys, keys
// that are no scalars or that stand twice, a second document, more than 64 levels. A text without
// anything is an error too.
std::optional<YamlNode> readYaml(std::string_view text, Findings& findings);

}  // namespace Host
