// Makes a failing journal small: the fewest lines, then the plainest times and values, that still
// fail.
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>
#include <variant>
#include <vector>

#include "tests/conformance/Model.h"

namespace conformance {

namespace shrinking {

// Plainer stand-ins for a line, the plainest first. `before` is the time of the line before it.
inline std::vector<Line> plainer(const Line& line, double before) {
    std::vector<Line> result;
    const auto earlier = [&](double at) {
        if (!(at < line.at)) return;
        result.push_back(line);
        result.back().at = at;
    };
    const auto valued = [&](Value value) {
        if (line.value == value) return;
        result.push_back(line);
        result.back().value = std::move(value);
    };
    earlier(before);
    earlier(before + 1);
    if (!line.value) return result;
    if (std::holds_alternative<double>(*line.value))
        for (const double number : {0.0, 1.0, 10.0, 100.0}) valued(number);
    if (const auto* request = std::get_if<Request>(&*line.value))
        for (const double number : {1.0, 10.0})
            valued(Request{request->agent, request->stage, number});
    return result;
}

// Every time at which a line stands becomes a whole number, in the same order.
inline std::vector<Line> withWholeTimes(std::vector<Line> lines) {
    std::map<double, double> times;
    for (const Line& line : lines) times[line.at] = 0;
    double next = 0;
    for (auto& each : times) each.second = next++;
    for (Line& line : lines) line.at = times[line.at];
    return lines;
}

}  // namespace shrinking

// `fails(lines)` is asked only about journals whose every line is applicable. The given journal
// must fail.
template <class Predicate>
std::vector<Line> shrink(std::vector<Line> lines, Predicate fails) {
    // Lines that are no longer applicable without those that were removed go with them.
    const auto acceptFewer = [&](const std::vector<Line>& candidate) {
        std::vector<Line> rest = applicable(candidate);
        if (rest.size() >= lines.size() || !fails(std::as_const(rest))) return false;
        lines = std::move(rest);
        return true;
    };
    const auto acceptPlainer = [&](const std::vector<Line>& candidate) {
        if (applicable(candidate).size() != candidate.size() || !fails(candidate)) return false;
        lines = candidate;
        return true;
    };
    const auto removeLines = [&] {
        bool removed = false;
        for (std::size_t chunk = lines.size(); chunk > 0; chunk /= 2) {
            for (std::size_t end = lines.size(); end > 0;) {
                const std::size_t start = end > chunk ? end - chunk : 0;
                std::vector<Line> candidate = lines;
                candidate.erase(candidate.begin() + static_cast<std::ptrdiff_t>(start),
                                candidate.begin() + static_cast<std::ptrdiff_t>(end));
                removed = acceptFewer(candidate) || removed;
                end = std::min(start, lines.size());
            }
        }
        return removed;
    };

    while (removeLines()) {
    }
    acceptPlainer(shrinking::withWholeTimes(lines));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        for (const Line& line : shrinking::plainer(lines[i], i ? lines[i - 1].at : 0.0)) {
            std::vector<Line> candidate = lines;
            candidate[i] = line;
            if (acceptPlainer(candidate)) break;
        }
    }
    while (removeLines()) {
    }
    return lines;
}

}  // namespace conformance
