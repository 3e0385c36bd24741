#include "tests/host/Xml.h"

#include <vector>

#include "host/Utf8.h"

namespace Host {

namespace {

bool letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == ':';
}

class Document {
  public:
    explicit Document(std::string_view text) : text_(text) {}

    std::string fault() {
        if (utf8Fault(text_) != std::string_view::npos) return "not UTF-8";
        for (const char c : text_)
            if (static_cast<unsigned char>(c) < 0x20 && c != '\n') return "a control character";
        if (text_.find("\xef\xbf\xbe") != std::string_view::npos ||
            text_.find("\xef\xbf\xbf") != std::string_view::npos)
            return "a character that no document may hold";
        if (text_.starts_with("<?xml")) at_ = text_.find("?>") + 2;
        while (at_ < text_.size()) {
            if (text_[at_] == '<') {
                if (const std::string wrong = tag(); !wrong.empty()) return here(wrong);
            } else if (text_[at_] == '&') {
                if (!reference()) return here("a bare &");
            } else {
                if (text_[at_] == '>') return here("a bare >");
                ++at_;
            }
        }
        return open_.empty() ? "" : "<" + open_.back() + "> is not closed";
    }

  private:
    std::string here(const std::string& what) const {
        return what + " at: " + std::string(text_.substr(at_, 60));
    }

    std::string name() {
        const std::size_t begin = at_;
        while (at_ < text_.size() && letter(text_[at_])) ++at_;
        return std::string(text_.substr(begin, at_ - begin));
    }

    bool reference() {
        for (const char* const known : {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"})
            if (text_.substr(at_).starts_with(known)) {
                at_ += std::string_view(known).size();
                return true;
            }
        return false;
    }

    std::string tag() {
        ++at_;
        if (text_[at_] == '/') {
            ++at_;
            const std::string closed = name();
            if (open_.empty() || open_.back() != closed) return "</" + closed + "> closes nothing";
            open_.pop_back();
            return text_[at_++] == '>' ? "" : "a bad closing tag";
        }
        const std::string opened = name();
        if (opened.empty()) return "a bare <";
        for (;;) {
            while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\n')) ++at_;
            if (at_ >= text_.size()) return "an unfinished tag";
            if (text_.substr(at_).starts_with("/>")) return at_ += 2, "";
            if (text_[at_] == '>') return ++at_, open_.push_back(opened), "";
            if (name().empty() || text_.substr(at_, 2) != "=\"") return "a bad attribute";
            at_ += 2;
            while (at_ < text_.size() && text_[at_] != '"') {
                if (text_[at_] == '<') return "a < in an attribute";
                if (text_[at_] != '&')
                    ++at_;
                else if (!reference())
                    return "a bare & in an attribute";
            }
            ++at_;
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<std::string> open_;
};

}  // namespace

std::string xmlFault(std::string_view document) { return Document(document).fault(); }

}  // namespace Host
