// A run as it stands, drawn again and again at the foot of a terminal.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "host/history/Timeline.h"

namespace Host {

// Of the terminal.
struct LiveStyle {
    std::size_t columns = 80;
    std::size_t rows = 24;
    bool colour = false;
};

// How the run stands at `now`, the clock's time in seconds: for each instance a line with its time,
// its deadline's countdown and its counts, then what runs, with how much of its limit is used and
// who has not reported, what is held and why, and what was complete last. No line needs more than
// `columns`, and there are fewer than `rows`, since the cursor stands below them; what does not fit
// is counted. Names are shown so that they cannot move the cursor.
std::vector<std::string> liveLines(const RunHistory& run, double now, const LiveStyle& style);

// Redraws lines in place. The cursor stands below them; other text is written above them, and goes
// on into the scrollback. To be used for a terminal only.
class LiveView {
  public:
    // Redrawn no more often than that; in seconds.
    static constexpr double interval = 0.1;

    explicit LiveView(std::ostream& terminal) : out_(terminal) {}
    // Takes what is drawn away; what was written above stays.
    ~LiveView() { clear(); }
    LiveView(const LiveView&) = delete;
    LiveView& operator=(const LiveView&) = delete;

    // Whether the interval has passed since the last drawing.
    bool due(double now) const { return now >= drawn_ + interval; }
    // In the place of what was drawn before. No line is wider than the terminal, which has so many
    // columns; what was drawn in a wider one has been broken into more rows by it meanwhile.
    void draw(double now, const std::vector<std::string>& lines, std::size_t columns);
    // Writes whole lines above what is drawn, and draws it again.
    void above(std::string_view lines);
    // Takes what is drawn away, and leaves the cursor there.
    void clear();

  private:
    // Takes what is drawn away.
    std::string erasing() const;
    std::string drawing() const;

    std::ostream& out_;
    double drawn_ = -1.0;
    std::size_t columns_ = 80;
    std::vector<std::string> lines_;  // as they stand on the terminal
};

}  // namespace Host
