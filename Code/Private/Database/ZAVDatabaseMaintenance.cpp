#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>

#include <sqlite3.h>

#include <string>
#include <utility>

#include <ZAVEventRepository/ZAVTransaction.h>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVOpenFiles.h"
#include "Private/Database/Internal/ZAVPatience.h"
#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

using Outcome = ZAVCheckpointGuard::Outcome;

bool isBusy(std::int64_t status) noexcept {
    return (status & 0xFF) == SQLITE_BUSY;
}

bool isCopied(const Outcome& outcome) noexcept {
    return outcome.status == SQLITE_OK && outcome.copied == outcome.frames;
}

ZAVError errorOf(const Outcome& outcome) {
    return {ZAVErrorDomainSQLite, outcome.status,
            outcome.status == SQLITE_LOCKED ? "this handle has an open cursor or transaction"
                                            : sqlite3_errstr(outcome.status)};
}

/// Whether the log's file takes more than the header and a page: what a transaction that did not come to its
/// end has written is in no count of pages.
bool hasRestOfLog(FMDatabase& database) {
    constexpr std::uint64_t headers = 32 + 24;
    const auto pageSize = readNumber(database, nullptr, "PRAGMA page_size");
    const auto size = ZAVSizeOfLog(database.connection().engine());
    return pageSize && size > headers + static_cast<std::uint64_t>(*pageSize);
}

/// With a limit on what stays of a log that is begun anew.
class NoRestOfTheLog {
public:
    explicit NoRestOfTheLog(FMDatabase& database, ZAVError* error)
        : database_(database), before_(readNumber(database, error, "PRAGMA journal_size_limit")) {
        set(0);
    }
    ~NoRestOfTheLog() {
        if (before_) {
            set(*before_);
        }
    }
    NoRestOfTheLog(const NoRestOfTheLog&) = delete;
    NoRestOfTheLog& operator=(const NoRestOfTheLog&) = delete;

private:
    void set(std::int64_t limit) const {
        database_.executeStatements("PRAGMA journal_size_limit=" + std::to_string(limit));
    }

    FMDatabase& database_;
    std::optional<std::int64_t> before_;
};

/// Begins a log anew that was copied whole, which the engine does when somebody writes and nobody reads from
/// it.
bool writeAnew(FMDatabase& database, ZAVError* error) {
    const NoRestOfTheLog limit(database, error);
    auto transaction = ZAVTransaction::begin(database, error);
    if (!transaction) {
        return false;
    }
    const auto version = readNumber(database, error, "PRAGMA user_version");
    return version && runUpdate(database, error, "PRAGMA user_version=" + std::to_string(*version)) &&
           transaction->commit(error);
}

}  // namespace

ZAVDatabaseMaintenance::ZAVDatabaseMaintenance(std::shared_ptr<FMDatabase> database)
    : database_(std::move(database)) {}

std::optional<ZAVCheckpoint> ZAVDatabaseMaintenance::checkpoint(ZAVCheckpointMode mode,
                                                                ZAVError* error) const {
    return checkpoint(mode, database_->connection().settings().busyTimeout, error);
}

/// Goes on for so long while somebody is in the way; 0 to try once.
std::optional<ZAVCheckpoint> ZAVDatabaseMaintenance::checkpoint(ZAVCheckpointMode mode,
                                                                std::chrono::milliseconds longest,
                                                                ZAVError* error) const {
    // A look into the file has the engine open its log.
    const auto version = readNumber(*database_, error, "PRAGMA schema_version");
    const auto usesLog = version ? usesWriteAheadLog(*database_, error) : std::nullopt;
    if (!usesLog || !*usesLog) {
        return usesLog ? std::optional(ZAVCheckpoint{}) : std::nullopt;
    }
    ZAVPatience patience(longest);
    std::optional<std::int64_t> framesBeforeWriting;
    for (bool mayGoOn = mode != ZAVCheckpointMode::passive;; mayGoOn = patience.pause()) {
        const Outcome outcome = database_->connection().checkpoints().copy("main");
        if (outcome.status != SQLITE_OK && !isBusy(outcome.status)) {
            failWith(*database_, errorOf(outcome), error);
            return std::nullopt;
        }
        const bool isBegunAnew =
            outcome.frames <= 1 ? !hasRestOfLog(*database_) : outcome.frames < framesBeforeWriting;
        const bool isDone = isCopied(outcome) && (mode != ZAVCheckpointMode::truncate || isBegunAnew);
        if (isDone || !mayGoOn) {
            return ZAVCheckpoint{outcome.frames, outcome.copied, !isDone};
        }
        if (isCopied(outcome)) {
            framesBeforeWriting = outcome.frames;
            ZAVError failure;
            if (!writeAnew(*database_, &failure) && !isBusy(failure.code())) {
                ZAVStoreError(error, failure);
                return std::nullopt;
            }
        }
    }
}

}  // namespace zav
