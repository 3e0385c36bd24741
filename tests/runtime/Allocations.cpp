#include "tests/runtime/Allocations.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

thread_local constinit std::size_t made = 0;
thread_local constinit std::size_t firstRefused = none;

void* allocate(std::size_t size) noexcept {
    if (++made >= firstRefused) return nullptr;
    return std::malloc(size == 0 ? 1 : size);
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
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace RuntimeTest {

std::size_t allocations() { return made; }

FailingAllocation::FailingAllocation(std::size_t which) { firstRefused = made + which; }
FailingAllocation::~FailingAllocation() { firstRefused = none; }

}  // namespace RuntimeTest
