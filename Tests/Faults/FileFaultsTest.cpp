#include <gtest/gtest.h>

#include <functional>

#include "Faults/FaultSweep.h"
#include "Faults/FaultyFileSystem.h"
#include "Operations/Catalogue.h"
#include "Operations/TestWithOperation.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

constexpr FileCall everyFileCall[] = {FileCall::open,     FileCall::read,   FileCall::write,
                                      FileCall::truncate, FileCall::sync,   FileCall::fileSize,
                                      FileCall::lock,     FileCall::remove, FileCall::sharedMemory};

using Sweep =
    std::function<SweepTally(const FaultInjector&, const FMDatabaseOptions&, bool fromThenOn, int step)>;

/// Sweeps over every kind of call, with each way of writing: through the log, through a log that is folded
/// into the file at every commit, and with a journal.
SweepTally sweepEveryCall(const Sweep& sweep) {
    FaultyFileSystem files;
    FMDatabaseOptions withLog;
    withLog.vfs = FaultyFileSystem::name;
    withLog.busyTimeout = std::chrono::milliseconds(0);
    withLog.pageCacheKiB = 16;  // so small that the operations have to come back to the file
    FMDatabaseOptions withCheckpoints = withLog;
    withCheckpoints.writeAheadLogPages = 1;
    FMDatabaseOptions withJournal = withLog;
    withJournal.writeAheadLog = false;

    SweepTally tally;
    for (const FMDatabaseOptions& options : {withLog, withCheckpoints, withJournal}) {
        for (const FileCall call : everyFileCall) {
            const FaultInjector injector{
                std::string(nameOf(call)),
                [&](int number, bool fromThenOn) { files.fail(call, number, fromThenOn); },
                [&] { files.heal(); }, [&] { return files.failures(); }};
            for (const bool fromThenOn : {false, true}) {
                tally += sweep(injector, options, fromThenOn, stride(1, 1));
            }
        }
    }
    EXPECT_GT(tally.faults, 0) << "no fault was ever met";
    return tally;
}

class FileFaults : public TestWithOperation {};

TEST_P(FileFaults, AreReportedOrWithoutEffectAndNothingStoredIsLost) {
    const SweepTally tally =
        sweepEveryCall([](const auto& injector, const auto& options, bool fromThenOn, int step) {
            return sweep(operation(), injector, options, fromThenOn, step);
        });
    reportSweep("file faults in " + operation().name + ": " + tally.description());
}

INSTANTIATE_TEST_SUITE_P(In, FileFaults, testing::ValuesIn(entriesOf(everyOperation())), nameOfParameter);

TEST(FileFaultsInOpening, LeaveAStoreThatCanBeOpenedAndHoldsWhatItHeld) {
    const SweepTally tally =
        sweepEveryCall([](const auto& injector, const auto& options, bool fromThenOn, int step) {
            return sweepOpening(true, injector, options, fromThenOn, step);
        });
    reportSweep("file faults in opening a store: " + tally.description());
}

TEST(FileFaultsInOpening, LeaveAFileInWhichAStoreCanBeMade) {
    const SweepTally tally =
        sweepEveryCall([](const auto& injector, const auto& options, bool fromThenOn, int step) {
            return sweepOpening(false, injector, options, fromThenOn, step);
        });
    reportSweep("file faults in making a store: " + tally.description());
}

}  // namespace
}  // namespace zav::test
