// The journal's input lines: what others write into the entity tree, one JSON object a line.
#pragma once

#include <cstddef>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/Json.h"

namespace Host {

// One line's content.
struct Input {
    enum class Op { create, del, set, unset, clear, settle, end };

    double at = 0.0;  // seconds
    Op op = Op::settle;
    std::string path{};           // all but settle and end
    std::string type{};           // create
    std::string attr{};           // set, unset, clear
    std::optional<Json> key{};    // set of a collection's member, unset
    std::optional<Json> value{};  // set, except of an instantiating collection's member

    friend bool operator==(const Input&, const Input&) = default;
};

// What is wrong with a line, for the person who wrote it: one line of text that names the remedy.
class MalformedInput final : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The same, with the number of the line in its journal, from 1.
class JournalError final : public std::runtime_error {
  public:
    JournalError(std::size_t line, const std::string& what) : runtime_error(what), line_(line) {}
    std::size_t line() const { return line_; }

  private:
    std::size_t line_;
};

// Reads one line. Absent `at` reads as `previousAt`, and a smaller one is refused. Raises
// MalformedInput. Whether paths, types and attributes exist is not known here.
Input parseInput(std::string_view line, double previousAt);

// The line that reads back as `input`, without the line's end.
std::string inputLine(const Input& input);

// Reads a journal line by line, and holds no more than one.
class JournalReader {
  public:
    // Longer lines are refused: they are not a journal's.
    static constexpr std::size_t longestLine = std::size_t{16} << 20;

    explicit JournalReader(std::istream& in) : in_(in) {}

    // The next input; none at the end. Lines that are empty, hold only blanks, or begin with '#'
    // are passed over. Raises JournalError.
    std::optional<Input> next();

    // The number of the line read last.
    std::size_t line() const { return line_; }

  private:
    bool readLine();

    std::istream& in_;
    std::string text_;
    std::size_t line_ = 0;
    double at_ = 0.0;
};

}  // namespace Host
