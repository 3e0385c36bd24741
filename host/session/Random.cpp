#include "host/session/Random.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace Host {

namespace {

constexpr double never = std::numeric_limits<double>::infinity();

// Logarithms differ in their last digit between libraries; what is left of that here does not.
double rounded(double seconds) { return std::max(0.0, std::round(seconds * 1e6) / 1e6); }

}  // namespace

double sample(const Takes& takes, Random& random) {
    // Before anything else, and always: the duration of who is lost less often stays the same.
    const bool lost = random.unit() < takes.lost;
    const double first = random.unit();
    const double second = random.unit();
    if (lost) return never;
    switch (takes.kind) {
        case Takes::Kind::fixed: return takes.a;
        case Takes::Kind::uniform: return rounded(takes.a + (takes.b - takes.a) * first);
        case Takes::Kind::normal:
            return rounded(takes.a + takes.b * std::sqrt(-2.0 * std::log(first)) *
                                         std::cos(2.0 * std::numbers::pi * second));
        case Takes::Kind::exponential: return rounded(-takes.a * std::log(first));
        case Takes::Kind::never: break;
    }
    return never;
}

}  // namespace Host
