#include "Private/Database/Internal/ZAVStatementBounds.h"

#include <sqlite3.h>

#include <algorithm>

#include <ZAVEventRepository/ZAVDatabaseError.h>

#include "Private/Database/Internal/ZAVOpenFiles.h"

namespace zav {
namespace {

/// How many of its steps the engine takes between two looks: less than a millisecond's.
constexpr int stepsPerLook = 100'000;

/// A cell takes at least four bytes of its page, and two more that point at it.
constexpr std::uint64_t bytesOfSmallestCell = 6;

/// Whether there may be pages that are in no file yet: in memory, and while something is being written.
bool hasUnwrittenPages(sqlite3* connection, std::uint64_t bytesInFiles) noexcept {
    bool isWriting = sqlite3_get_autocommit(connection) == 0;
#ifdef SQLITE_TXN_WRITE
    isWriting = isWriting || sqlite3_txn_state(connection, "main") == SQLITE_TXN_WRITE;
#endif
    return isWriting || bytesInFiles == 0;
}

std::uint64_t sizeOfPageCache(sqlite3* connection) noexcept {
    int size = 0;
    int highest = 0;
    sqlite3_db_status(connection, SQLITE_DBSTATUS_CACHE_USED, &size, &highest, 0);
    return static_cast<std::uint64_t>(std::max(size, 0));
}

}  // namespace

static_assert(SQLITE_ROW == 100 && SQLITE_CORRUPT == 11);

ZAVStatementBounds::ZAVStatementBounds(sqlite3* connection, const std::atomic<bool>& isInterrupted) noexcept
    : connection_(connection), isInterrupted_(isInterrupted) {
    sqlite3_progress_handler(connection, stepsPerLook, lookAtSteps, this);
}

ZAVError ZAVStatementBounds::error() {
    return {ZAVErrorDomainSQLite, SQLITE_CORRUPT,
            "database disk image is malformed: a statement met more than a file of this size can hold"};
}

/// Called by the engine in the middle of a step: it must not be given statements to run.
int ZAVStatementBounds::lookAtSteps(void* bounds) noexcept {
    auto& self = *static_cast<ZAVStatementBounds*>(bounds);
    if (self.isInterrupted_.load(std::memory_order_relaxed)) {
        return 1;
    }
    return self.running_ == nullptr || self.mayTakeMoreSteps(*self.running_) ? 0 : 1;
}

void ZAVStatementBounds::startCounting(ZAVStatementRun& run) noexcept {
    if (run.countedNumber != run.number) {
        run.countedNumber = run.number;
        run.rowsAllowed = firstRows;
        run.steps = 0;
        run.stepsAllowed = 0;
    }
}

bool ZAVStatementBounds::mayTakeMoreSteps(ZAVStatementRun& run) noexcept {
    startCounting(run);
    run.steps += stepsPerLook;
    const std::uint64_t first = firstSteps + stepsPerByteOfText * run.textSize;
    if (run.steps <= std::max(first, run.stepsAllowed)) {
        return true;
    }
    if (!run.reads && run.stepsAllowed != 0) {
        return pass(run);
    }
    // The file may have grown since it was looked at last.
    const auto cells = mostCells();
    run.stepsAllowed = first + (cells ? *cells * stepsPerCell : std::max(first, run.stepsAllowed));
    return run.steps <= run.stepsAllowed || pass(run);
}

bool ZAVStatementBounds::mayHandOutMoreRows(ZAVStatementRun& run) noexcept {
    startCounting(run);
    const std::uint64_t before = run.rowsAllowed;
    const auto cells = mostCells();
    run.rowsAllowed = std::max(before, cells ? *cells : 2 * before);
    run.rowsLeft = static_cast<std::int64_t>(run.rowsAllowed - before) - 1;  // this row is one of them
    return run.rowsAllowed > before || pass(run);
}

/// None when the file does not tell its size: the engine will soon fail at it by itself.
std::optional<std::uint64_t> ZAVStatementBounds::mostCells() const noexcept {
    const auto file = ZAVSizeOfFile(connection_);
    const auto log = ZAVSizeOfLog(connection_);
    if (!file || !log) {
        return std::nullopt;
    }
    const std::uint64_t written = *file + *log;
    const std::uint64_t unwritten =
        hasUnwrittenPages(connection_, written) ? sizeOfPageCache(connection_) : 0;
    return (written + unwritten) / bytesOfSmallestCell;
}

bool ZAVStatementBounds::pass(ZAVStatementRun& run) noexcept {
    lastRunAtBreach_ = lastRun_;
    run.hasPassedBounds = true;
    return false;
}

}  // namespace zav
