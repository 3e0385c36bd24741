// JSON that a verb prints, for other programs.
#pragma once

#include <string>

#include "host/Json.h"

namespace Host {

// The value over as many lines as it needs, indented by two, with a line's end. Whole numbers are
// written as such, which is what other programs expect of counts and lines; what is no finite
// number is null.
std::string jsonDocument(const Json& value);

}  // namespace Host
