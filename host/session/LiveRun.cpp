#include "host/session/LiveRun.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace Host {

LiveRun::LiveRun(std::ostream& terminal, const HumanStyle& style)
    : Views({&timeline_, &human_}), style_(style), human_(happened_, style), live_(terminal) {}

void LiveRun::flush() {
    const std::string text = happened_.str();
    if (text.empty()) return;
    happened_.str({});
    live_.above(text);
}

void LiveRun::draw(double now, const Tree& tree) {
    if (now < next()) return;
    drawn_ = now;
    LiveStyle style{style_.columns, 24, style_.colour};
    // It may have another size than a moment ago.
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        if (size.ws_col != 0) style.columns = size.ws_col;
        if (size.ws_row != 0) style.rows = size.ws_row;
    }
    human_.columnsAre(style.columns);
    live_.draw(now, liveLines(timeline_.history(tree), now, style), style.columns);
}

void LiveRun::clear() { live_.clear(); }

}  // namespace Host
