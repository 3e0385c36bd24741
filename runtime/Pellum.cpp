#include "runtime/Pellum.h"

#include <algorithm>

namespace Pellum {

std::vector<Record> Ring::records() const {
    std::vector<Record> held;
    for (const Slot& slot : slots_) {
        const std::uint64_t number = slot.number.load(std::memory_order_acquire);
        const Descriptor* const descriptor = slot.descriptor.load(std::memory_order_acquire);
        if (number != 0 && slot.number.load(std::memory_order_acquire) == number)
            held.push_back({number, descriptor});
    }
    std::sort(held.begin(), held.end(),
              [](const Record& a, const Record& b) { return a.number < b.number; });
    return held;
}

Ring& ring() {
    static Ring ring;
    return ring;
}

}  // namespace Pellum
