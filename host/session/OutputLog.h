// What one participant wrote: its last lines are kept, all of it goes to a file if somebody wants
// that, and lines are passed on as they come.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/session/Descriptor.h"

namespace Host {

class OutputLog {
  public:
    // What is kept, in bytes; up to twice as much is held for a while.
    static constexpr std::size_t kept = std::size_t{32} * 1024;
    // A line that is longer is passed on in pieces.
    static constexpr std::size_t longestLine = 4096;

    // All of it is also written to the file, which is made anew. Raises system_error.
    void writeTo(const std::string& path);
    // Each line is passed on as soon as it is whole, printable.
    void passOn(std::function<void(const std::string&)> line) { line_ = std::move(line); }

    void add(std::string_view bytes);
    // There is no more: a line that was begun is whole.
    void end();

    // The last lines, printable, at most so many and each cut after some 200 bytes; one that was
    // begun counts.
    std::vector<std::string> lastLines(std::size_t most) const;
    std::uint64_t bytes() const { return bytes_; }
    // Why the file is not whole; empty: it is.
    const std::string& fileFailure() const { return fileFailure_; }

  private:
    void passOn(std::string_view bytes);

    std::string last_;
    std::string begun_;  // the line that is not whole yet
    std::uint64_t bytes_ = 0;
    std::function<void(const std::string&)> line_;
    Descriptor file_;
    std::string fileFailure_;
};

// A file name for a text: letters, digits, "-" and "_" stand for themselves, everything else is
// written as "%NN". A long one is cut, and `number` then keeps it apart from others.
std::string outputFileName(const std::vector<std::string>& names, std::size_t number);

}  // namespace Host
