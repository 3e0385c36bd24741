// A picture of a run over time.
#pragma once

#include <string>

#include "host/Json.h"
#include "host/history/Timeline.h"

namespace Host {

struct PlotOptions {
    std::string title{};
    bool participants = false;  // their events too, below their stages
};

// SVG.
std::string plot(const RunHistory& run, const PlotOptions& options);
// "stagemgr.plot/1": what the picture shows.
Json plotJson(const RunHistory& run);

// Seconds between the marks of an axis, so that there are no more than `most` in `span` seconds.
double axisStep(double span, double most);

}  // namespace Host
