// The errors that the framework raises, and the assertion that stays on in every build.
#pragma once

#include <stdexcept>
#include <string>

#include "runtime/Export.h"

namespace Orv {

// Base of every error of the framework, so that a host can catch them in one place.
class ORV_API Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
    ~Error() override;
};

// A value outside of what the callee accepts; "null ValidPtr" when a factory yields no object.
class ORV_API RangeError final : public Error {
  public:
    using Error::Error;
    ~RangeError() override;
};

// A keyed child exists already and was made from other constructor arguments.
class ORV_API NameInUseError final : public Error {
  public:
    // parameter: the argument's name without an underscore; the values in their text form.
    NameInUseError(const std::string& parameter, const std::string& newValue,
                   const std::string& currentValue);
    ~NameInUseError() override;
};

// A mutator was given a null pointer where it needs an entity.
class ORV_API NullParameterError final : public Error {
  public:
    // parameter: for example "_stageStatus"; mutator: for example "Stage::ConfigSm::stageStatus".
    NullParameterError(const std::string& parameter, const std::string& mutator);
    ~NullParameterError() override;
};

// An attribute, key or value that reflection was asked for does not exist or does not fit.
class ORV_API ReflectionError final : public Error {
  public:
    using Error::Error;
    ~ReflectionError() override;
};

// Aborts with `expression` on standard error unless `holds`. It guards our own mistakes only, never
// input, and so it is compiled into every build.
ORV_API void assertionFailed(const char* expression);
inline void assertThat(bool holds, const char* expression) {
    if (!holds) [[unlikely]]
        assertionFailed(expression);
}

}  // namespace Orv
