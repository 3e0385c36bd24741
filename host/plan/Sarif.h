// What was found in plans, for programs that show such things beside the source.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/Json.h"
#include "host/plan/Diagnostic.h"

namespace Host {

// A SARIF 2.1.0 log with one run, of stagemgr. Columns count code points. Diagnostics without a
// place stand for their whole file.
Json sarif(const std::vector<Diagnostic>& diagnostics);

// A file's name as a URI reference: relative as it is, or "file:" for one that begins with "/".
// What URIs do not take is escaped, byte by byte.
std::string fileUri(std::string_view name);

}  // namespace Host
