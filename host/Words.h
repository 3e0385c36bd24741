// Names in sentences.
#pragma once

#include <cstddef>
#include <string>

#include "host/Utf8.h"

namespace Host {

// All of them as they may be shown, with ", " between.
template <class Names>
std::string printableList(const Names& names) {
    std::string text;
    for (const auto& name : names) text += (text.empty() ? "" : ", ") + printable(name);
    return text;
}

// The first of them, each as `show` writes it, and how many more there are: "a, b and 3 more".
template <class Names, class Show>
std::string firstOf(const Names& names, std::size_t most, const Show& show) {
    std::string text;
    std::size_t count = 0;
    for (const auto& name : names) {
        if (++count > most) continue;
        text += (count == 1 ? "" : ", ") + show(name);
    }
    return count > most ? text + " and " + std::to_string(count - most) + " more" : text;
}

}  // namespace Host
