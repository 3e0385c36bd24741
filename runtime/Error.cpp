#include "runtime/Error.h"

#include <cstdio>
#include <cstdlib>

#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"

namespace Orv {

Error::~Error() = default;
RangeError::~RangeError() = default;
NameInUseError::~NameInUseError() = default;
NullParameterError::~NullParameterError() = default;
ReflectionError::~ReflectionError() = default;

NameInUseError::NameInUseError(const std::string& parameter, const std::string& newValue,
                               const std::string& currentValue)
    : Error("Reinstantiating the pointer interface where constructor parameter attribute _" +
            parameter + " has a different value of " + newValue + " than the current value of " +
            currentValue + " not allowed") {}

// The text ends with a double-quote character that nothing opens, on purpose: whoever searches the
// logs of fielded systems searches for it as it always was.
NullParameterError::NullParameterError(const std::string& parameter, const std::string& mutator)
    : Error("null " + parameter + " parameter to mutator for " + mutator + " not allowed\"") {}

void assertionFailed(const char* expression) {
    activityManager().environment().assertionFailed(expression);
    std::fflush(stdout);
    std::fprintf(stderr, "Assertion failed: %s\n", expression);
    std::fflush(stderr);
    std::abort();
}

}  // namespace Orv
