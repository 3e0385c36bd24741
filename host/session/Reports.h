// Reports for external participants, as lines of a descriptor: "AGENT STAGE" or
// "AGENT STAGE INSTANCE".
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/session/Loop.h"
#include "host/session/Session.h"

namespace Host {

// The parts that a line reports. Words are separated by blanks; a line that starts with "[" is a
// JSON array of them, for names with blanks. Without an instance it is all that take part. Nothing
// when the line is empty. Raises invalid_argument, with why the line means nothing.
std::vector<Part> reportedParts(const Plan& plan, std::string_view line);

class Reports {
  public:
    // A longer line is refused.
    static constexpr std::size_t longestLine = std::size_t{16} * 1024;

    // The descriptor stays its owner's. What cannot be taken is said, and nothing else follows from
    // it.
    Reports(const Plan& plan, Loop& loop, int descriptor,
            std::function<void(const std::string&)> say);

    // What has come since the last call. What can always be read and is no file, such as a device,
    // is read by this, a little at a time.
    std::vector<Part> taken();
    // When to call that, apart from when something has happened.
    double next() const;
    // Nothing more can come.
    bool ended() const { return ended_; }

  private:
    void read();
    void line(std::string_view text);

    const Plan& plan_;
    int descriptor_;
    std::function<void(const std::string&)> say_;
    std::string begun_;
    bool skipping_ = false;  // the rest of a line that is too long
    bool ended_ = false;
    std::vector<Part> parts_;
    std::unique_ptr<Loop::Watch> watch_;
};

}  // namespace Host
