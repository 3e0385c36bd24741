// A run on a terminal: what happens goes by, and how the run stands is drawn below it.
#pragma once

#include <ostream>
#include <sstream>

#include "host/HumanView.h"
#include "host/Observations.h"
#include "host/history/Timeline.h"
#include "host/session/LiveView.h"

namespace Host {

class LiveRun final : public Views {
  public:
    LiveRun(std::ostream& terminal, const HumanStyle& style);

    // Writes what has happened since the last time.
    void flush() override;

    // Draws how the run stands, if it is time to. The tree is that of the run.
    void draw(double now, const Tree& tree);
    // When it is time to draw again.
    double next() const { return drawn_ + LiveView::interval; }
    // Nothing is drawn any more, until it is time again: others may write to the terminal.
    void clear();

  private:
    HumanStyle style_;
    std::ostringstream happened_;
    HumanView human_;
    Timeline timeline_;
    LiveView live_;
    double drawn_ = 0.0;
};

}  // namespace Host
