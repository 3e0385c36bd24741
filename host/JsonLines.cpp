#include "host/JsonLines.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/Json.h"
#include "host/Tree.h"
#include "runtime/Type.h"

namespace Host {

namespace {

using Shape = Orv::Attribute::Shape;

// So much is gathered before it is handed on.
constexpr std::size_t enough = std::size_t{1} << 16;

// Strings by their bytes, composites field by field.
bool before(const Orv::Value& a, const Orv::Value& b) {
    if (a.fields() != nullptr && b.fields() != nullptr)
        return std::lexicographical_compare(
            a.fields()->begin(), a.fields()->end(), b.fields()->begin(), b.fields()->end(),
            [](const auto& x, const auto& y) { return before(x.second, y.second); });
    return a.string() != nullptr && b.string() != nullptr && *a.string() < *b.string();
}

// Everything that stands in a tree, as the members of one flat object.
class State {
  public:
    explicit State(std::string& to) : to_(to) {}

    void object(const Orv::PtrInterface& object, const std::string& path) {
        const Orv::TypeInfo* const type = object.typeInfo();
        if (type == nullptr) return;
        to_ += std::exchange(separator_, ", ");
        appendText(to_, path);
        to_ += ": {\"type\": ";
        appendText(to_, type->name());
        for (const auto& attribute : type->attributes())
            if (!attribute->detail()) this->attribute(object, *attribute);
        to_ += '}';
        below(object, *type, path);
    }

    void below(const Orv::PtrInterface& object, const Orv::TypeInfo& type,
               const std::string& path) {
        if (const auto* const dir = dynamic_cast<const Orv::Dir*>(&object))
            for (const auto& [name, entry] : dir->entries())
                this->object(*entry, path + "/" + pathName(name));
        for (const auto& attribute : type.attributes()) {
            if (attribute->detail()) continue;
            const std::string place = path + "/" + attribute->name();
            if (attribute->shape() == Shape::child) {
                held(attribute->value(object), place);
            } else if (attribute->shape() == Shape::instantiating ||
                       attribute->shape() == Shape::children) {
                if (attribute->compositeKeys()) continue;
                for (const Orv::Value& key : attribute->keys(object))
                    held(attribute->member(object, key), place + "/" + pathName(*key.string()));
            }
        }
    }

  private:
    void held(const Orv::Value& value, const std::string& path) {
        if (value.reference() != nullptr && *value.reference()) object(**value.reference(), path);
    }

    void attribute(const Orv::PtrInterface& object, const Orv::Attribute& attribute) {
        if (attribute.shape() == Shape::child) return;  // shown where it stands, if at all
        to_ += ", ";
        appendText(to_, attribute.name());
        to_ += ": ";
        if (attribute.shape() == Shape::scalar) return appendValue(to_, attribute.value(object));

        std::vector<Orv::Value> keys = attribute.keys(object);
        if (attribute.shape() == Shape::queue) return list(keys);
        if (attribute.shape() != Shape::collection) {
            std::sort(keys.begin(), keys.end(), before);
            return list(keys);
        }
        const bool composite = attribute.compositeKeys();
        if (composite) std::sort(keys.begin(), keys.end(), before);
        to_ += composite ? '[' : '{';
        const char* separator = "";
        for (const Orv::Value& key : keys) {
            to_ += std::exchange(separator, ", ");
            if (composite) to_ += "{\"key\": ";
            appendValue(to_, key);
            to_ += composite ? ", \"value\": " : ": ";
            appendValue(to_, attribute.member(object, key));
            if (composite) to_ += '}';
        }
        to_ += composite ? ']' : '}';
    }

    void list(const std::vector<Orv::Value>& values) {
        to_ += '[';
        const char* separator = "";
        for (const Orv::Value& value : values) {
            to_ += std::exchange(separator, ", ");
            appendValue(to_, value);
        }
        to_ += ']';
    }

    std::string& to_;
    const char* separator_ = "";
};

}  // namespace

void appendValue(std::string& to, const Orv::Value& value) {
    if (const bool* const boolean = value.boolean()) {
        to += *boolean ? "true" : "false";
    } else if (const double* const number = value.number()) {
        appendNumber(to, *number);
    } else if (const Orv::String* const string = value.string()) {
        appendText(to, *string);
    } else if (value.reference() != nullptr && *value.reference()) {
        appendText(to, (*value.reference())->path());
    } else if (const Orv::ValueFields* const fields = value.fields()) {
        to += '{';
        const char* separator = "";
        for (const auto& [name, field] : *fields) {
            to += std::exchange(separator, ", ");
            appendText(to, name);
            to += ": ";
            appendValue(to, field);
        }
        to += '}';
    } else {
        to += "null";
    }
}

JsonLines::~JsonLines() { out_.write(text_.data(), static_cast<std::streamsize>(text_.size())); }

void JsonLines::begin(double t, std::string_view event) {
    if (t != time_) {
        timeText_ = "{\"t\": ";
        appendNumber(timeText_, t);
        time_ = t;
    }
    text_ += timeText_;
    field("event", event);
}

void JsonLines::field(std::string_view name, std::string_view text) {
    ((text_ += ", \"") += name) += "\": ";
    appendText(text_, text);
}

void JsonLines::valueField(std::string_view name, const Orv::Value& value) {
    ((text_ += ", \"") += name) += "\": ";
    appendValue(text_, value);
}

void JsonLines::end() {
    text_ += "}\n";
    if (text_.size() < enough) return;
    out_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
    text_.clear();
}

void JsonLines::flush() {
    out_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
    text_.clear();
    out_.flush();
}

void JsonLines::onScalar(double t, const Orv::Entity& entity, const Orv::Attribute& attribute) {
    begin(t, "set");
    field("path", entity.path());
    field("attr", attribute.name());
    valueField("value", attribute.value(entity));
    end();
}

void JsonLines::onMember(double t, const Orv::Entity& entity, const Orv::Attribute& attribute,
                         const Orv::Value& key) {
    const Orv::Value member = attribute.member(entity, key);
    begin(t, member.absent() ? "unset" : "set");
    field("path", entity.path());
    field("attr", attribute.name());
    valueField("key", key);
    if (!member.absent() && attribute.shape() == Shape::collection) valueField("value", member);
    end();
}

void JsonLines::onEntry(double t, const Orv::Entity& entry, bool present) {
    begin(t, present ? "create" : "delete");
    field("path", entry.path());
    field("type", entry.info().name());
    end();
}

void JsonLines::onLog(double t, const Stage::InstanceLog& log) {
    begin(t, "log");
    field("path", log.path());
    field("message", log.log().back().message.text());
    end();
}

void JsonLines::onMessage(double t, const Orv::LogHandle& message, const Orv::String& text) {
    begin(t, "message");
    field("id", message.identifier());
    text_ += ", \"severity\": " + std::to_string(message.severity());
    field("text", text);
    end();
}

void JsonLines::onWatchdog(double t, const Halbe::HalbeInfo& watchdog) {
    begin(t, "watchdog");
    field("name", watchdog.name());
    text_ += ", \"slot\": " + std::to_string(watchdog.slot());
    valueField("flag", watchdog.flag());
    field("timeout", watchdog.watchdogTimeout());
    end();
}

void JsonLines::onPrint(double t, const Orv::String& line) {
    begin(t, "print");
    field("text", line);
    end();
    if (printed_ == nullptr) return;
    flush();  // whole lines, in order, when both go to the same place
    *printed_ << line.view() << '\n' << std::flush;
}

void JsonLines::onError(double t, const char* what) {
    begin(t, "error");
    field("text", std::string_view(what));
    end();
}

void JsonLines::onEnd(double t, const Tree& tree) {
    begin(t, "state");
    text_ += ", \"tree\": {";
    State state(text_);
    // The root itself has no path.
    state.below(*tree.root(), tree.root()->info(), "");
    if (tree.manager()) state.object(*tree.manager(), "/sm");
    text_ += '}';
    end();
    flush();
}

}  // namespace Host
