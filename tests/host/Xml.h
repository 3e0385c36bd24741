// Whether a text is a document of XML, as far as our pictures need it.
#pragma once

#include <string>
#include <string_view>

namespace Host {

// Empty: it is one. Otherwise what is wrong, and where.
std::string xmlFault(std::string_view document);

}  // namespace Host
