#include "Support/ScarceMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace zav::test {
namespace {

std::atomic<MemoryScarcity> current = MemoryScarcity::nobody;
thread_local bool isSpared = false;

}  // namespace

void makeMemoryScarceFor(MemoryScarcity scarcity) {
    isSpared = scarcity == MemoryScarcity::otherThreads;
    current = scarcity;
}

static bool memoryIsThere() noexcept {
    const MemoryScarcity scarcity = current.load(std::memory_order_relaxed);
    return scarcity == MemoryScarcity::nobody || (scarcity == MemoryScarcity::otherThreads && isSpared);
}

}  // namespace zav::test

void* operator new(std::size_t size) {
    void* const memory = zav::test::memoryIsThere() ? std::malloc(size == 0 ? 1 : size) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return zav::test::memoryIsThere() ? std::malloc(size == 0 ? 1 : size) : nullptr;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
