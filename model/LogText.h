// The text of a line of a progress log.
#pragma once

#include <iosfwd>

#include "runtime/Export.h"
#include "runtime/String.h"
#include "runtime/Value.h"

namespace Stage {

// Most lines are a name between fixed words: kept as such, a line takes no memory of its own. The
// text is made when it is read.
class ORV_API LogText {
  public:
    LogText() = default;
    LogText(const char* text) : name_(text) {}
    LogText(Orv::String text) : name_(std::move(text)) {}
    // before, after: they have to outlive everything, as literals do.
    LogText(const char* before, Orv::String name, const char* after)
        : before_(before), name_(std::move(name)), after_(after) {}

    Orv::String text() const { return Orv::concat({before_, name_.view(), after_}); }
    std::string str() const { return text().str(); }

    // As texts.
    friend bool operator==(const LogText& a, const LogText& b) { return a.text() == b.text(); }
    friend bool operator==(const LogText& a, const char* b) { return a.text() == b; }
    friend ORV_API std::ostream& operator<<(std::ostream& out, const LogText& text);

  private:
    const char* before_ = "";
    Orv::String name_;
    const char* after_ = "";
};

}  // namespace Stage

template <>
struct Orv::ValueTraits<Stage::LogText> {
    static constexpr bool composite = false;
    static Value of(const Stage::LogText& text) { return text.text(); }
};
