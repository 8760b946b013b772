#include "Faults/FaultyAllocator.h"

#include <sqlite3.h>

#include <stdexcept>

namespace zav::test {
namespace {

sqlite3_mem_methods underlying;

struct Plan {
    bool armed = false;
    int countdown = 0;
    bool fromThenOn = false;
    int failures = 0;
};

// The faults are for the thread that asks for them: tests of other threads' memory are not disturbed.
thread_local Plan plan;

bool fails() {
    if (!plan.armed || --plan.countdown > 0 || (plan.countdown < 0 && !plan.fromThenOn)) {
        return false;
    }
    ++plan.failures;
    return true;
}

void* allocate(int size) {
    return fails() ? nullptr : underlying.xMalloc(size);
}

void* reallocate(void* memory, int size) {
    return fails() ? nullptr : underlying.xRealloc(memory, size);
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
    plan = {true, number, fromThenOn, 0};
}

void FaultyAllocator::heal() {
    plan.armed = false;
}

int FaultyAllocator::failures() {
    return plan.failures;
}

}  // namespace zav::test
