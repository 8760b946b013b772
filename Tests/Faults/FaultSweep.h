#pragma once

#include <ZAVEventRepository/FMDatabase.h>

#include <functional>
#include <string>

#include "Operations/Operation.h"

namespace zav::test {

/// Something that can be made to fail.
struct FaultInjector {
    std::string name;

    /// Makes the `number`th call from now on fail, counted from 1, or all of them from that one on.
    std::function<void(int number, bool fromThenOn)> fail;
    std::function<void()> heal;

    /// How many calls have failed since `fail`.
    std::function<int()> failures;
};

/// Calls `runRound` with 1, and on by `step`, until it answers that the fault was not met, or a test fails.
/// `subject` is what test failures name.
void forEachFault(const std::string& subject, const FaultInjector& injector, const FMDatabaseOptions& options,
                  bool fromThenOn, int step, const std::function<bool(int number)>& runRound);

/// What became of the faults.
struct SweepTally {
    int faults = 0;    ///< rounds in which the fault was met
    int reported = 0;  ///< of these, those that the operation reported
    int absorbed = 0;  ///< those after which it answered as if nothing had happened
    int partial = 0;   ///< those after which it answered events without some of their parts or metadata

    SweepTally& operator+=(const SweepTally& other);
    [[nodiscard]] std::string description() const;
};

/// Runs an operation again and again, each time on a fresh copy of one filled store, with the first, the
/// second, the third call failing, and so on by `step`, until it is through without meeting the fault.
/// After each round it checks, and reports as test failures, that
///  - answer, error, handle and log agree about what happened,
///  - nothing is left open,
///  - each row is as it was or as the operation makes it,
///  - the handle does the operation when the fault is gone,
///  - the database passes the engine's own check.
SweepTally sweep(const Operation& operation, const FaultInjector& injector, const FMDatabaseOptions& options,
                 bool fromThenOn, int step);

/// The same for opening: a store that is there and filled, or a file that is still to be made. A store that
/// could not be opened can be opened when the fault is gone, and holds what it held.
SweepTally sweepOpening(bool exists, const FaultInjector& injector, const FMDatabaseOptions& options,
                        bool fromThenOn, int step);

/// One of the sweeps above, or another.
using Sweep =
    std::function<SweepTally(const FaultInjector&, const FMDatabaseOptions&, bool fromThenOn, int step)>;

/// Sweeps over every kind of call to the file system, with each way of writing: through the log, through a
/// log that is folded into the file at every commit, and with a journal.
SweepTally sweepEveryFileCall(const Sweep& sweep);

/// Sweeps over the engine's requests for memory: over all of them at length, over some of them ordinarily.
SweepTally sweepEveryRequestForMemory(const Sweep& sweep);

}  // namespace zav::test
