#include "host/plan/Diagnostic.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/Terminal.h"
#include "host/Utf8.h"

namespace Host {

namespace {

// Of a line that goes on and on: how many columns are shown, up to which column from its beginning,
// and how many characters are shown before the place otherwise.
constexpr std::size_t widest = 140;
constexpr std::size_t beforeCaret = 100;
constexpr std::size_t fewBeforeCaret = 60;
constexpr std::size_t tabStop = 8;

// What a character looks like, and how many columns that takes.
struct Shown {
    std::string text;
    std::size_t columns;
};

Shown shown(std::string_view character, std::size_t column) {
    if (character == "\t") {
        const std::size_t columns = tabStop - column % tabStop;
        return {std::string(columns, ' '), columns};
    }
    std::string text = printable(character);
    const bool asItIs = text == character && utf8Length(character, 0) != 0;
    const std::size_t columns = asItIs ? terminalColumns(character) : text.size();
    return {std::move(text), columns};
}

// The lines of a file, found without reading it again for each.
class Lines {
  public:
    explicit Lines(std::string_view text) : text_(text) {
        if (text_.starts_with("\xef\xbb\xbf")) text_.remove_prefix(3);
        starts_.push_back(0);
        for (std::size_t at = text_.find('\n'); at != std::string_view::npos;
             at = text_.find('\n', at + 1))
            starts_.push_back(at + 1);
    }

    // Without its end; counts from 1.
    bool has(std::size_t line) const { return line >= 1 && line <= starts_.size(); }
    std::string_view line(std::size_t number) const {
        std::string_view line = text_.substr(starts_[number - 1]);
        line = line.substr(0, line.find('\n'));
        if (line.ends_with('\r')) line.remove_suffix(1);
        return line;
    }
    // Where in the line the character stands before which there are as many. Asked in the order of
    // the places, it passes over each character once: a file may be one line of many megabytes.
    std::size_t offset(std::size_t number, std::size_t characters) {
        if (number != number_ || characters < characters_) {
            number_ = number;
            characters_ = 0;
            offset_ = 0;
        }
        const std::string_view here = line(number);
        for (; characters_ < characters && offset_ < here.size(); ++characters_)
            offset_ += std::max<std::size_t>(utf8Length(here, offset_), 1);
        return offset_;
    }

  private:
    std::string_view text_;
    std::vector<std::size_t> starts_;
    // The last answer.
    std::size_t number_ = 0;
    std::size_t characters_ = 0;
    std::size_t offset_ = 0;
};

class Writer {
  public:
    Writer(std::string_view text, bool colour) : lines_(text), colour_(colour) {}

    void write(const std::string& file, Place place, Diagnostic::Severity severity,
               std::string_view text) {
        std::string where = printable(file);
        if (place.line > 0) where += fmt::format(":{}:{}", place.line, place.column);
        const auto [word, code] = wordOf(severity);
        text_ += coloured(where + ":", "1") + " " + coloured(fmt::format("{}:", word), code) + " ";
        text_ += text;
        text_ += '\n';
        if (lines_.has(place.line)) writeLine(place);
    }

    std::string take() { return std::move(text_); }

  private:
    struct Word {
        const char* word;
        const char* code;
    };
    static Word wordOf(Diagnostic::Severity severity) {
        switch (severity) {
            case Diagnostic::Severity::error: return {"error", "1;31"};
            case Diagnostic::Severity::warning: return {"warning", "1;33"};
            case Diagnostic::Severity::note: break;
        }
        return {"note", "36"};
    }

    std::string coloured(const std::string& text, const char* code) const {
        return colour_ ? fmt::format("\033[{}m{}\033[0m", code, text) : text;
    }

    void writeLine(Place place) {
        const std::string_view line = lines_.line(place.line);
        const std::size_t wanted = std::max<std::size_t>(place.column, 1) - 1;
        const std::size_t skipped = wanted > beforeCaret ? wanted - fewBeforeCaret : 0;
        std::string text = skipped > 0 ? "..." : "";
        std::size_t width = text.size();
        std::size_t indent = std::string::npos;
        std::size_t index = skipped;
        for (std::size_t at = lines_.offset(place.line, skipped); at < line.size(); ++index) {
            if (index == wanted) indent = width;
            if (indent != std::string::npos && width > widest) {
                text += "...";
                break;
            }
            const std::size_t length = std::max<std::size_t>(utf8Length(line, at), 1);
            const Shown character = shown(line.substr(at, length), width);
            text += character.text;
            width += character.columns;
            at += length;
        }
        indent = std::min(indent, width);  // behind the line's end
        text.erase(text.find_last_not_of(' ') + 1);
        text_ += fmt::format("{:>5} | {}\n", place.line, text);
        if (place.column > 0)
            text_ += fmt::format("      | {}{}\n", std::string(indent, ' '), coloured("^", "1;32"));
    }

    Lines lines_;
    bool colour_;
    std::string text_;
};

}  // namespace

std::string diagnosticsText(const std::vector<Diagnostic>& diagnostics, std::string_view text,
                            bool colour) {
    std::vector<const Diagnostic*> ordered(diagnostics.size());
    std::transform(diagnostics.begin(), diagnostics.end(), ordered.begin(),
                   [](const Diagnostic& diagnostic) { return &diagnostic; });
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const Diagnostic* a, const Diagnostic* b) { return a->place < b->place; });
    Writer writer(text, colour);
    for (const Diagnostic* const diagnostic : ordered) {
        writer.write(diagnostic->file, diagnostic->place, diagnostic->severity, diagnostic->text);
        for (const Diagnostic::Related& related : diagnostic->related)
            writer.write(diagnostic->file, related.place, Diagnostic::Severity::note, related.text);
    }
    return writer.take();
}

}  // namespace Host
