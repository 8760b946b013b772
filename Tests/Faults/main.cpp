#include <gtest/gtest.h>

#include "Faults/FaultyAllocator.h"

int main(int argc, char** argv) {
    zav::test::FaultyAllocator::install();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
