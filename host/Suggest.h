// "did you mean ...?" for mistyped words.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Host {

// "; did you mean \"x\"?" for the candidate nearest to `word`, or nothing when none is near.
std::string suggestion(std::string_view word, const std::vector<std::string_view>& candidates);

}  // namespace Host
