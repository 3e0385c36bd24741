#include "tests/support/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

thread_local constinit std::size_t made = 0;
thread_local constinit std::size_t firstRefused = none;
thread_local constinit std::size_t lastRefused = none;
constinit std::atomic<std::size_t> held = 0;

void* allocate(std::size_t size) noexcept {
    if (++made >= firstRefused && made <= lastRefused) return nullptr;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) held.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void release(void* memory) noexcept {
    if (memory != nullptr) held.fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
}

void* allocateOrThrow(std::size_t size) {
    if (void* const memory = allocate(size)) return memory;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return allocateOrThrow(size); }
void* operator new[](std::size_t size) { return allocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }

namespace RuntimeTest {

std::size_t allocations() { return made; }
std::size_t allocationsHeld() { return held; }

FailingAllocation::FailingAllocation(std::size_t which, Refused refused) {
    firstRefused = made + which;
    lastRefused = refused == Refused::one ? firstRefused : none;
}
FailingAllocation::~FailingAllocation() { firstRefused = lastRefused = none; }

bool FailingAllocation::failed() const { return made >= firstRefused; }

bool doneWithout(std::size_t which, const std::vector<std::function<void()>>& acts) {
    const FailingAllocation failing(which, Refused::one);
    for (const auto& act : acts) {
        try {
            act();
        } catch (const std::bad_alloc&) {
        }
    }
    return failing.failed();
}

}  // namespace RuntimeTest
