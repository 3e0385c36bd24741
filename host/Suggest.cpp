#include "host/Suggest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

#include "host/Utf8.h"

namespace Host {

namespace {

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// How many characters have to be put in, left out, changed or swapped with their neighbour.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) &&
                lower(a[i - 2]) == lower(b[j - 1]))
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        beforeLast = std::exchange(last, std::move(row));
    }
    return last[b.size()];
}

}  // namespace

std::string suggestion(std::string_view word, const std::vector<std::string_view>& candidates) {
    constexpr std::size_t longest = 64;  // beyond, it is no slip of the fingers
    if (word.size() > longest) return {};
    std::string_view nearest;
    std::size_t least = 0;
    for (const std::string_view candidate : candidates) {
        const std::size_t d = distance(word, candidate);
        if (d > std::max<std::size_t>(1, candidate.size() / 3)) continue;
        if (d >= std::max(word.size(), candidate.size())) continue;  // they share nothing
        if (nearest.empty() || d < least) {
            nearest = candidate;
            least = d;
        }
    }
    return nearest.empty() ? std::string() : "; did you mean " + inQuotes(nearest) + "?";
}

}  // namespace Host
