// fuzz-journal: the bytes are a journal's text. It is replayed whole, or refused by one plain line
// that names the line; what was read reads the same when it is written again, and does the same.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "host/HumanView.h"
#include "host/Journal.h"
#include "host/JsonLines.h"
#include "host/Replay.h"
#include "host/Utf8.h"
#include "tests/fuzz/Assertions.h"
#include "tests/fuzz/Target.h"

namespace {

using fuzz::expect;

// More than this says nothing that less would not, and takes long.
constexpr std::size_t longest = std::size_t{1} << 16;

// A text, which ends where an assertion that it may fail has failed.
class Source final : public std::streambuf {
  public:
    Source(std::string_view text, const fuzz::Assertions& assertions)
        : text_(text), assertions_(assertions) {}

  protected:
    // Piece by piece, as from a pipe.
    int_type underflow() override {
        const std::size_t count = std::min<std::size_t>(text_.size(), 61);
        if (count == 0 || assertions_.failed()) return traits_type::eof();
        std::copy_n(text_.begin(), count, piece_);
        text_.remove_prefix(count);
        setg(piece_, piece_, piece_ + count);
        return traits_type::to_int_type(*piece_);
    }

  private:
    std::string_view text_;
    const fuzz::Assertions& assertions_;
    char piece_[61] = {};
};

// Keeps what is written.
class Sink final : public std::streambuf {
  public:
    const std::string& text() const { return text_; }

  protected:
    int_type overflow(int_type c) override {
        if (c != traits_type::eof()) text_ += traits_type::to_char_type(c);
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        text_.append(data, static_cast<std::size_t>(count));
        return count;
    }

  private:
    std::string text_;
};

struct Refusal {
    std::size_t line = 0;
    std::string what;
};

std::optional<Refusal> refusal(const Host::JournalError& error, std::string_view journal) {
    const Refusal result{error.line(), error.what()};
    const auto lines =
        static_cast<std::size_t>(std::count(journal.begin(), journal.end(), '\n')) + 1;
    expect(result.line >= 1 && result.line <= lines,
           "line " + std::to_string(result.line) + " of " + std::to_string(lines) + " is refused");
    expect(!result.what.empty(), "a line is refused without a word");
    expect(Host::utf8Fault(result.what) == std::string::npos, "a refusal is not UTF-8");
    expect(std::none_of(result.what.begin(), result.what.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20; }),
           "a refusal is not one plain line: " + result.what);
    fuzz::show("refused: " + std::to_string(result.line) + ": " + result.what);
    return result;
}

// What the reader makes of a journal: its lines in the one form that we write, and where each
// stood.
struct Reading {
    std::string written;
    std::vector<std::size_t> lineOf;
    std::optional<Refusal> refused;
};

Reading readWhole(std::string_view journal, fuzz::Assertions& assertions) {
    Reading reading;
    Source source(journal, assertions);
    std::istream in(&source);
    Host::JournalReader reader(in);
    double before = 0;
    try {
        while (const std::optional<Host::Input> input = reader.next()) {
            const std::string line = Host::inputLine(*input);
            fuzz::show(line);
            expect(input->at >= before, "time goes back");
            expect(Host::parseInput(line, before) == *input, "reads otherwise: " + line);
            expect(Host::inputLine(Host::parseInput(line, before)) == line,
                   "is written otherwise: " + line);
            before = input->at;
            assertions.excuse(*input);
            reading.written += line + '\n';
            reading.lineOf.push_back(reader.line());
        }
    } catch (const Host::JournalError& error) {
        reading.refused = refusal(error, journal);
    }
    return reading;
}

struct Replayed {
    std::string observed;
    std::optional<Refusal> refused;
};

template <class View, class... Options>
Replayed replayed(std::string_view journal, const fuzz::Assertions& assertions,
                  const Options&... options) {
    Source source(journal, assertions);
    std::istream in(&source);
    Sink sink;
    std::ostream out(&sink);
    Replayed result;
    try {
        View view(out, options...);
        Host::replay(in, view);
    } catch (const Host::JournalError& error) {
        result.refused = refusal(error, journal);
    }
    result.observed = sink.text();
    expect(Host::utf8Fault(result.observed) == std::string::npos, "what is observed is not UTF-8");
    return result;
}

void tryOut(std::string_view journal) {
    fuzz::Assertions assertions;
    const Reading reading = readWhole(journal, assertions);
    const Replayed first = replayed<Host::JsonLines>(journal, assertions);
    if (assertions.failed()) return;
    if (reading.refused && first.refused)
        expect(first.refused->line <= reading.refused->line, "a line is refused twice");

    // For people. Nothing in it moves the cursor.
    if (journal.size() % 2 == 0) {
        const Host::HumanStyle style{.colour = false, .columns = journal.size() % 120};
        const Replayed human = replayed<Host::HumanView>(journal, assertions, style);
        expect(
            std::none_of(human.observed.begin(), human.observed.end(),
                         [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\n'; }),
            "what people see has control characters in it");
    }

    const Replayed again = replayed<Host::JsonLines>(reading.written, assertions);
    expect(!assertions.failed(), "fails an assertion when it is written again");
    if (first.refused && again.refused) {
        expect(again.refused->line <= reading.lineOf.size() &&
                   reading.lineOf[again.refused->line - 1] == first.refused->line &&
                   again.refused->what == first.refused->what,
               "is refused otherwise when it is written again");
        expect(again.observed == first.observed, "does something else when it is written again");
    } else if (first.refused) {
        // What is not read is not written either, and the manager runs on instead.
        expect(reading.refused && reading.refused->line == first.refused->line,
               "is not refused when it is written again");
        expect(again.observed.starts_with(first.observed),
               "does something else when it is written again");
    } else {
        expect(!again.refused, "is refused when it is written again");
        expect(again.observed == first.observed, "does something else when it is written again");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size <= longest) tryOut({reinterpret_cast<const char*>(data), size});
    return 0;
}
