// The program `stagemgr`, apart from the process that it runs in.
#pragma once

#include <string>
#include <vector>

#include "host/Console.h"

namespace Host {

// Runs one command, without the program's name, and returns its exit status.
int commandLine(std::vector<std::string> arguments, const Console& console);

}  // namespace Host
