// The ring-buffer trace: which handlers ran last, at the cost of a few stores.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "runtime/Export.h"

namespace Pellum {

// A message's fixed part, made once per site.
struct Descriptor {
    const char* unit;
    const char* handler;
    int line;
};

struct Record {
    std::uint64_t number;  // counts from 1
    const Descriptor* descriptor;
};

// Keeps the last `capacity` records. Any thread may write; a reader sees whole records only.
class ORV_API Ring {
  public:
    static constexpr std::size_t capacity = 4096;

    void record(const Descriptor& descriptor) {
        const std::uint64_t number = next_.fetch_add(1, std::memory_order_relaxed) + 1;
        Slot& slot = slots_[number % capacity];
        slot.number.store(0, std::memory_order_relaxed);
        slot.descriptor.store(&descriptor, std::memory_order_release);
        slot.number.store(number, std::memory_order_release);
    }
    std::uint64_t recorded() const { return next_.load(std::memory_order_relaxed); }
    // The records held, oldest first.
    std::vector<Record> records() const;

  private:
    struct Slot {
        std::atomic<std::uint64_t> number{0};
        std::atomic<const Descriptor*> descriptor{nullptr};
    };
    std::atomic<std::uint64_t> next_{0};
    std::array<Slot, capacity> slots_;
};

// The process's ring.
ORV_API Ring& ring();

}  // namespace Pellum
