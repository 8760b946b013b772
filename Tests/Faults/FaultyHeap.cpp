#include "Faults/FaultyHeap.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace zav::test {
namespace {

struct Plan {
    bool armed = false;
    int countdown = 0;
    bool fromThenOn = false;
    int failures = 0;
};

// The faults are for the thread that asks for them: tests of other threads' memory are not disturbed.
thread_local Plan plan;

bool fails() noexcept {
    if (!plan.armed || --plan.countdown > 0 || (plan.countdown < 0 && !plan.fromThenOn)) {
        return false;
    }
    ++plan.failures;
    return true;
}

}  // namespace

void FaultyHeap::fail(int number, bool fromThenOn) noexcept {
    plan = {true, number, fromThenOn, 0};
}

void FaultyHeap::heal() noexcept {
    plan.armed = false;
}

int FaultyHeap::failures() noexcept {
    return plan.failures;
}

namespace {

void* allocate(std::size_t size) {
    void* const memory = fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
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
    return zav::test::fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
