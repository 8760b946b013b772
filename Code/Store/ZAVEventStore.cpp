#include <ZAVEventRepository/ZAVEventStore.h>

#include <sqlite3.h>

#include <limits>
#include <mutex>
#include <optional>
#include <utility>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVReadingHandles.h"
#include "Store/Internal/ZAVStoreHandle.h"
#include "Store/Internal/ZAVTurns.h"
#include "Store/Internal/ZAVWorkOnThread.h"

namespace zav {
namespace {

ZAVError storeError(ZAVEventStoreErrorCode code, const std::string& message) {
    return {ZAVErrorDomainEventStore, code, message};
}

/// Why a store cannot be opened so, if there is a reason that is known before.
ZAVError objectionTo(const std::string& path, const ZAVEventStoreOptions& options) {
    constexpr std::size_t mostReaders = 1000;
    if (path == ":memory:") {
        return storeError(ZAVEventStoreErrorNoFile,
                          "a database in memory is seen by one handle alone, and a store has several");
    }
    if (options.readers < 1 || options.readers > mostReaders) {
        return storeError(ZAVEventStoreErrorBadOption,
                          "the option readers is " + std::to_string(options.readers) + ", but must be 1 to " +
                              std::to_string(mostReaders));
    }
    if (options.readerPageCacheKiB < 0) {
        return storeError(ZAVEventStoreErrorBadOption, "the option readerPageCacheKiB is " +
                                                           std::to_string(options.readerPageCacheKiB) +
                                                           ", but may not be negative");
    }
    return {};
}

/// Whether the handle has a write-ahead log: false, with the reason, when the file has to do without.
bool hasWriteAheadLog(FMDatabase& database, const std::string& path, ZAVError* error) {
    auto mode = runQuery(database, error, "PRAGMA journal_mode");
    if (!mode || !mode->nextWithError(error)) {
        return false;
    }
    if (mode->stringForColumnIndex(0) == "wal") {
        return true;
    }
    ZAVStoreError(error,
                  storeError(ZAVEventStoreErrorNoWriteAheadLog,
                             path + " can have no write-ahead log where it is: its readers and its writer "
                                    "would wait for each other"));
    return false;
}

}  // namespace

/// The handles of a store, and who may use them.
class ZAVEventStore::Handles {
public:
    Handles(const std::shared_ptr<FMDatabase>& writing, const FMDatabaseOptions& readingOptions,
            std::size_t readers)
        : writing_(writing),
          reading_(sqlite3_db_filename(writing->connection().engine(), "main"), readingOptions, readers) {}

    ZAVStoreHandle& writing() noexcept { return writing_; }
    ZAVReadingHandles& reading() noexcept { return reading_; }
    ZAVTurns& turns() noexcept { return turns_; }

private:
    ZAVStoreHandle writing_;
    ZAVReadingHandles
        reading_;  ///< closed first: the last handle to go folds the log, and must be one that can
    ZAVTurns turns_;
};

std::unique_ptr<ZAVEventStore> ZAVEventStore::open(const std::string& path,
                                                   const ZAVEventStoreOptions& options, ZAVError* error) {
    if (const ZAVError objection = objectionTo(path, options)) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    FMDatabaseOptions writing = options.database;
    writing.access = FMDatabaseOptions::Access::readWriteCreate;
    writing.writeAheadLog = true;
    const auto database = ZAVDatabaseSchema::openDatabase(path, writing, error);
    if (database == nullptr || !hasWriteAheadLog(*database, path, error)) {
        return nullptr;
    }
    FMDatabaseOptions reading = options.database;
    reading.access = FMDatabaseOptions::Access::readOnly;
    reading.pageCacheKiB = options.readerPageCacheKiB;
    reading.newestUserVersion = ZAVDatabaseSchema::currentVersion();
    return std::unique_ptr<ZAVEventStore>(
        new ZAVEventStore(std::make_unique<Handles>(database, reading, options.readers)));
}

ZAVEventStore::ZAVEventStore(std::unique_ptr<Handles> handles) noexcept : handles_(std::move(handles)) {}

ZAVEventStore::~ZAVEventStore() = default;

bool ZAVEventStore::read(const ReadingWork& work, ZAVError* error) {
    if (const auto* const around = ZAVWorkOnThread::innermostOf(handles_.get())) {
        work(around->handle().repositories());
        return true;
    }
    const ZAVReadingHandles::Loan loan(handles_->reading(), error);
    if (loan.handle() == nullptr) {
        return false;
    }
    const ZAVSnapshot snapshot(*loan.handle(), error);
    if (!snapshot.isTaken()) {
        return false;
    }
    const ZAVWorkOnThread running(handles_.get(), ZAVWorkOnThread::Kind::reading, *loan.handle());
    work(loan.handle()->repositories());
    return true;
}

bool ZAVEventStore::write(const WritingWork& work, ZAVError* error) {
    const auto* const around = ZAVWorkOnThread::innermostOf(handles_.get());
    if (around != nullptr && around->kind() == ZAVWorkOnThread::Kind::reading) {
        ZAVStoreError(error, storeError(ZAVEventStoreErrorWriteInRead,
                                        "a write within a read of the same store would wait for itself"));
        return false;
    }
    ZAVStoreHandle& handle = handles_->writing();
    if (around != nullptr) {
        ZAVWorkSavepoint savepoint(handle, error);
        return savepoint.isSet() && work(handle.repositories()) && savepoint.keep(error);
    }
    const std::lock_guard turn(handles_->turns());
    ZAVWorkTransaction transaction(handle, error);
    if (!transaction.isBegun()) {
        return false;
    }
    const ZAVWorkOnThread running(handles_.get(), ZAVWorkOnThread::Kind::writing, handle);
    const bool isWanted = work(handle.repositories());
    return transaction.isStillOpen(error) && isWanted && transaction.commit(error);
}

}  // namespace zav
