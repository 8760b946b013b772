#include <ZAVEventRepository/ZAVEventStore.h>

#include <algorithm>
#include <utility>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVStoreCore.h"
#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {
namespace {

ZAVError badOption(const std::string& message) {
    return ZAVErrorOfStore(ZAVEventStoreErrorBadOption, message);
}

/// Why a store cannot be opened so, if there is a reason that is known before.
ZAVError objectionTo(const std::string& path, const ZAVEventStoreOptions& options) {
    constexpr std::size_t mostReaders = 1000;
    if (path == ":memory:") {
        return ZAVErrorOfStore(ZAVEventStoreErrorNoFile,
                               "a database in memory is seen by one handle alone, and a store has several");
    }
    if (options.readers < 1 || options.readers > mostReaders) {
        return badOption("the option readers is " + std::to_string(options.readers) + ", but must be 1 to " +
                         std::to_string(mostReaders));
    }
    if (options.pageCacheKiB < 0) {
        return badOption("the option pageCacheKiB is " + std::to_string(options.pageCacheKiB) +
                         ", but may not be negative");
    }
    if (options.readerPageCacheKiB < 0) {
        return badOption("the option readerPageCacheKiB is " + std::to_string(options.readerPageCacheKiB) +
                         ", but may not be negative");
    }
    if (options.lookForCommitsOfOthersEvery.count() < 0) {
        return badOption("the option lookForCommitsOfOthersEvery is " +
                         std::to_string(options.lookForCommitsOfOthersEvery.count()) +
                         " ms, but may not be negative");
    }
    if (options.database.key) {
        return badOption("the option database.key would have to be kept: database.keyProvider gives it");
    }
    return {};
}

std::int32_t cacheOfReader(const ZAVEventStoreOptions& options) {
    return std::min(options.readerPageCacheKiB,
                    options.pageCacheKiB / 2 / static_cast<std::int32_t>(options.readers));
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
    ZAVStoreError(
        error, ZAVErrorOfStore(ZAVEventStoreErrorNoWriteAheadLog,
                               path + " can have no write-ahead log where it is: its readers and its writer "
                                      "would wait for each other"));
    return false;
}

/// Answers whether the outcome is what was wanted; if not, its error is stored.
bool isDone(const ZAVWorkOutcome& outcome, ZAVError* error) {
    if (outcome.error) {
        ZAVStoreError(error, outcome.error);
    }
    return outcome.state == ZAVWorkOutcome::State::done;
}

}  // namespace

std::unique_ptr<ZAVEventStore> ZAVEventStore::open(const std::string& path,
                                                   const ZAVEventStoreOptions& options, ZAVError* error) {
    if (const ZAVError objection = objectionTo(path, options)) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    const std::int32_t readerCache = cacheOfReader(options);
    FMDatabaseOptions writing = options.database;
    writing.access = FMDatabaseOptions::Access::readWriteCreate;
    writing.writeAheadLog = true;
    writing.pageCacheKiB = options.pageCacheKiB - readerCache * static_cast<std::int32_t>(options.readers);
    const auto database = ZAVDatabaseSchema::openDatabase(path, writing, error);
    if (database == nullptr || !hasWriteAheadLog(*database, path, error)) {
        return nullptr;
    }
    FMDatabaseOptions reading = options.database;
    reading.access = FMDatabaseOptions::Access::readOnly;
    reading.pageCacheKiB = readerCache;
    reading.newestUserVersion = ZAVDatabaseSchema::currentVersion();
    return std::unique_ptr<ZAVEventStore>(
        new ZAVEventStore(std::make_unique<ZAVStoreCore>(database, reading, options)));
}

ZAVEventStore::ZAVEventStore(std::unique_ptr<ZAVStoreCore> core)
    : content_(new ZAVContentCache(*core)), core_(std::move(core)) {}

ZAVEventStore::~ZAVEventStore() {
    content_->recordAccesses();
}

bool ZAVEventStore::read(const ReadingWork& work, ZAVError* error) {
    return isDone(core_->read(work), error);
}

bool ZAVEventStore::write(const WritingWork& work, ZAVError* error) {
    return isDone(core_->write(work), error);
}

std::optional<ZAVPendingWork> ZAVEventStore::readAsync(ReadingWork work, ZAVWorkCompletion completion,
                                                       const ZAVWorkOptions& options, ZAVError* error) {
    return core_->readAsync(std::move(work), std::move(completion), options, error);
}

std::optional<ZAVPendingWork> ZAVEventStore::writeAsync(WritingWork work, ZAVWorkCompletion completion,
                                                        const ZAVWorkOptions& options, ZAVError* error) {
    return core_->writeAsync(std::move(work), std::move(completion), options, error);
}

ZAVStoreSubscription ZAVEventStore::subscribe(ZAVStoreObserver observer, ZAVError* error) {
    return core_->subscribe(std::move(observer), error);
}

std::optional<bool> ZAVEventStore::lookForCommitsOfOthers(ZAVError* error) {
    return core_->lookForCommitsOfOthers(error);
}

bool ZAVEventStore::close(QueuedWorks queued, ZAVError* error) {
    content_->recordAccesses();
    return core_->close(queued, error);
}

}  // namespace zav
