// Journals, and what comes of them, for the tests of the host.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Host {

using Lines = std::vector<std::string>;

std::string text(const Lines& lines);

// The input lines that make everything a class "boot" needs, with the application "Boot".
Lines bootClass();

// The input lines that register `agent` for `stage`, and make its status.
Lines agent(const std::string& agent, const std::string& stage, double timeout);

std::string create(const std::string& path, const std::string& type);
std::string enable(const std::string& instance);
std::string report(double at, const std::string& agent, const std::string& stage,
                   const std::string& instance);

Lines operator+(Lines a, const Lines& b);
Lines operator+(Lines a, const std::string& line);

// The observations, without the state at the end; an error ends them with its line number and text.
Lines replayed(const Lines& journal);

// All observations as they are written.
std::string replayedText(const std::string& journal);

}  // namespace Host
