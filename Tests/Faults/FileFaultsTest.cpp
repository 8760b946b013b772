#include <gtest/gtest.h>

#include "Faults/FaultSweep.h"
#include "Operations/Catalogue.h"
#include "Operations/TestWithOperation.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

class FileFaults : public TestWithOperation {};

TEST_P(FileFaults, AreReportedOrWithoutEffectAndNothingStoredIsLost) {
    const SweepTally tally =
        sweepEveryFileCall([](const auto& injector, const auto& options, bool fromThenOn, int step) {
            return sweep(operation(), injector, options, fromThenOn, step);
        });
    reportSweep("file faults in " + operation().name + ": " + tally.description());
}

INSTANTIATE_TEST_SUITE_P(In, FileFaults, testing::ValuesIn(entriesOf(everyOperation())), nameOfParameter);

TEST(FileFaultsInOpening, LeaveAStoreThatCanBeOpenedAndHoldsWhatItHeld) {
    const SweepTally tally =
        sweepEveryFileCall([](const auto& injector, const auto& options, bool fromThenOn, int step) {
            return sweepOpening(true, injector, options, fromThenOn, step);
        });
    reportSweep("file faults in opening a store: " + tally.description());
}

TEST(FileFaultsInOpening, LeaveAFileInWhichAStoreCanBeMade) {
    const SweepTally tally =
        sweepEveryFileCall([](const auto& injector, const auto& options, bool fromThenOn, int step) {
            return sweepOpening(false, injector, options, fromThenOn, step);
        });
    reportSweep("file faults in making a store: " + tally.description());
}

}  // namespace
}  // namespace zav::test
