#include "Store/Internal/ZAVStoreOpening.h"

#include <algorithm>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {
namespace {

std::int32_t cacheOfReader(const ZAVEventStoreOptions& options) {
    return std::min(options.readerPageCacheKiB,
                    options.pageCacheKiB / 2 / static_cast<std::int32_t>(options.readers));
}

/// Whether the handle has a write-ahead log: false, with the reason, when the file has to do without.
bool hasWriteAheadLog(FMDatabase& database, const std::string& path, ZAVError* error) {
    const auto isUsed = usesWriteAheadLog(database, error);
    if (isUsed && !*isUsed) {
        ZAVStoreError(error,
                      ZAVErrorOfStore(ZAVEventStoreErrorNoWriteAheadLog,
                                      path + " can have no write-ahead log where it is: its readers and its "
                                             "writer would wait for each other"));
    }
    return isUsed.value_or(false);
}

}  // namespace

FMDatabaseOptions ZAVWritingOptions(const ZAVEventStoreOptions& options) {
    FMDatabaseOptions writing = options.database;
    writing.access = FMDatabaseOptions::Access::readWriteCreate;
    writing.writeAheadLog = true;
    writing.pageCacheKiB =
        options.pageCacheKiB - cacheOfReader(options) * static_cast<std::int32_t>(options.readers);
    return writing;
}

FMDatabaseOptions ZAVReadingOptions(const ZAVEventStoreOptions& options) {
    FMDatabaseOptions reading = options.database;
    reading.access = FMDatabaseOptions::Access::readOnly;
    reading.pageCacheKiB = cacheOfReader(options);
    reading.newestUserVersion = ZAVDatabaseSchema::currentVersion();
    return reading;
}

std::shared_ptr<FMDatabase> ZAVOpenToWrite(const std::string& path, const FMDatabaseOptions& options,
                                           ZAVError* error) {
    const auto database = options.access == FMDatabaseOptions::Access::readWriteCreate
                              ? ZAVDatabaseSchema::openDatabase(path, options, error)
                              : ZAVDatabaseSchema::openCurrentDatabase(path, options, error);
    return database != nullptr && hasWriteAheadLog(*database, path, error) ? database : nullptr;
}

}  // namespace zav
