// A set of small numbers that is walked in their order.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Stage {

// A bit per number, and a bit per word of those, so that a walk skips 4096 absent ones at a time.
class PlaceSet {
  public:
    static constexpr std::uint32_t none = 0xffffffff;

    // Makes room for the numbers below `end`; may throw std::bad_alloc, and then holds what it
    // held.
    void roomFor(std::size_t end) {
        const std::size_t words = (end + 63) / 64;
        if (words <= words_.size()) return;
        summary_.resize((words + 63) / 64);
        words_.resize(words);
    }
    void clear() {
        words_.clear();
        summary_.clear();
    }
    void is(std::uint32_t number, bool present) noexcept {
        std::uint64_t& word = words_[number / 64];
        std::uint64_t& summary = summary_[number / 4096];
        const std::uint64_t bit = std::uint64_t{1} << (number % 64);
        const std::uint64_t wordBit = std::uint64_t{1} << (number / 64 % 64);
        word = present ? word | bit : word & ~bit;
        summary = word != 0 ? summary | wordBit : summary & ~wordBit;
    }
    // The least member that is not below `from`, or none.
    std::uint32_t next(std::uint32_t from) const noexcept {
        std::size_t word = from / 64;
        if (word >= words_.size()) return none;
        const std::uint64_t rest = words_[word] >> (from % 64) << (from % 64);
        if (rest != 0) return number(word, rest);
        word = nextWord(word + 1);
        return word == words_.size() ? none : number(word, words_[word]);
    }

  private:
    static std::uint32_t number(std::size_t word, std::uint64_t bits) {
        return static_cast<std::uint32_t>(word * 64) +
               static_cast<std::uint32_t>(std::countr_zero(bits));
    }
    // The first word from there on that is not empty.
    std::size_t nextWord(std::size_t from) const {
        for (std::size_t at = from / 64, skip = from % 64; at < summary_.size(); ++at, skip = 0)
            if (const std::uint64_t rest = summary_[at] >> skip << skip; rest != 0)
                return number(at, rest);
        return words_.size();
    }

    std::vector<std::uint64_t> words_;
    std::vector<std::uint64_t> summary_;
};

}  // namespace Stage
