#include "model/LogText.h"

#include <ostream>

namespace Stage {

std::ostream& operator<<(std::ostream& out, const LogText& text) { return out << text.text(); }

}  // namespace Stage
