#include "Faults/FaultyHeap.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#include "Faults/FaultPlan.h"

namespace zav::test {
namespace {

// The faults are for the thread that asks for them: tests of other threads' memory are not disturbed.
thread_local FaultPlan plan;

}  // namespace

void FaultyHeap::fail(int number, bool fromThenOn) noexcept {
    plan.fail(number, fromThenOn);
}

void FaultyHeap::heal() noexcept {
    plan.heal();
}

int FaultyHeap::failures() noexcept {
    return plan.failures();
}

namespace {

void* allocate(std::size_t size) {
    void* const memory = plan.fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace
}  // namespace zav::test

void* operator new(std::size_t size) {
    return zav::test::allocate(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return zav::test::plan.fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
