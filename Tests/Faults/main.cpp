#include <gtest/gtest.h>
#include <sqlite3.h>

#include "Faults/FaultyAllocator.h"

int main(int argc, char** argv) {
    zav::test::FaultyAllocator::install();
    // As some systems build it: what begins with "file:" is a URI, also where nobody asks for one.
    sqlite3_config(SQLITE_CONFIG_URI, 1);
    // Tests compare what memory the engine holds, which one that is compiled in does not count by itself.
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
