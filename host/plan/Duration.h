// Durations as people write and read them: "90", "1min 30s", "500ms", "infinity".
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Host {

// Why a text is no duration, with the remedy; names the text. One sentence without the full stop.
class DurationError final : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Seconds. Numbers, each with its unit, add up: "1min 30s", "2h30min", "1.5s". One number alone is
// seconds. The units: us (usec, µs), ms (msec), s (sec, second, seconds), m (min, minute, minutes),
// h (hr, hour, hours), d (day, days), w (week, weeks). "infinity" is infinity. Never negative;
// exact to the microsecond, and never 0 unless 0 was written. Raises DurationError.
double parseDuration(std::string_view text);

// Whether it is a word for a time without end: "infinity", or what parseDuration refuses with the
// remedy to write that, such as "forever".
bool meansEndless(std::string_view text);

// For people, the way parseDuration reads it: "1min 30s", "2.5s", "500ms", "1.5ms", "3d 4h", "0s",
// "infinity". `accuracy`, in seconds, is what the last digit counts, and no finer than 1e-6; a view
// that is drawn ten times a second wants 0.1. A difference may be negative, and has a "-" before
// it; no number at all is "unknown".
std::string durationText(double seconds, double accuracy = 1e-6);

// As views show times: to the millisecond.
std::string timeText(double seconds);

}  // namespace Host
