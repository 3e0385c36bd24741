// Random numbers that are the same with every compiler and library.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "host/plan/Plan.h"

namespace Host {

// SplitMix64 (Steele, Lea, Flood: "Fast splittable pseudorandom number generators", 2014). Started
// from several numbers, so that each run and each part of it has a sequence of its own, and one
// more draw in one part changes nothing in another.
class Random {
  public:
    explicit Random(std::initializer_list<std::uint64_t> seeds) {
        for (const std::uint64_t seed : seeds) state_ = mixed(state_ + seed + step);
    }

    std::uint64_t next() { return mixed(state_ += step); }

    // Between 0 and 1, and neither of them.
    double unit() { return (static_cast<double>(next() >> 11) + 0.5) * 0x1p-53; }

  private:
    static constexpr std::uint64_t step = 0x9e3779b97f4a7c15;

    static std::uint64_t mixed(std::uint64_t z) {
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }

    std::uint64_t state_ = 0;
};

// Seconds, in whole microseconds and never below 0; infinity: no report comes.
double sample(const Takes& takes, Random& random);

}  // namespace Host
