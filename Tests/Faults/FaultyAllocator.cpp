#include "Faults/FaultyAllocator.h"

#include <sqlite3.h>

#include <stdexcept>

#include "Faults/FaultPlan.h"

namespace zav::test {
namespace {

sqlite3_mem_methods underlying;

// The faults are for the thread that asks for them: tests of other threads' memory are not disturbed.
thread_local FaultPlan plan;

void* allocate(int size) {
    return plan.fails() ? nullptr : underlying.xMalloc(size);
}

void* reallocate(void* memory, int size) {
    return plan.fails() ? nullptr : underlying.xRealloc(memory, size);
}

void check(int status) {
    if (status != SQLITE_OK) {
        throw std::runtime_error("the engine does not take the allocator");
    }
}

}  // namespace

void FaultyAllocator::install() {
    check(sqlite3_config(SQLITE_CONFIG_GETMALLOC, &underlying));
    sqlite3_mem_methods methods = underlying;
    methods.xMalloc = allocate;
    methods.xRealloc = reallocate;
    check(sqlite3_config(SQLITE_CONFIG_MALLOC, &methods));
    // Memory that the engine sets aside beforehand would hide requests.
    check(sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0));
    check(sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0));
}

void FaultyAllocator::fail(int number, bool fromThenOn) {
    plan.fail(number, fromThenOn);
}

void FaultyAllocator::heal() {
    plan.heal();
}

int FaultyAllocator::failures() {
    return plan.failures();
}

}  // namespace zav::test
