#include <sqlite3.h>

#include <optional>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVOpenFiles.h"
#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

/// Tells what the files beside each other take.
bool measureFiles(FMDatabase& database, ZAVDiskUsage& usage, ZAVError* error) {
    const auto usesLog = usesWriteAheadLog(database, error);
    if (!usesLog) {
        return false;
    }
    sqlite3* const engine = database.connection().engine();
    const auto file = ZAVSizeOfFile(engine);
    const auto log = *usesLog ? ZAVSizeOfLog(engine) : 0;
    if (!file || !log) {
        return failWith(
            database, {ZAVErrorDomainSQLite, SQLITE_IOERR_FSTAT, sqlite3_errstr(SQLITE_IOERR_FSTAT)}, error);
    }
    usage.fileBytes = static_cast<std::int64_t>(*file);
    usage.logBytes = static_cast<std::int64_t>(*log);
    return true;
}

bool countPages(FMDatabase& database, ZAVDiskUsage& usage, ZAVError* error) {
    struct Figure {
        ZAVSQL statement;
        std::int64_t ZAVDiskUsage::*number;
    };
    for (const auto& [statement, number] : {Figure{"PRAGMA page_size", &ZAVDiskUsage::pageSize},
                                            Figure{"PRAGMA page_count", &ZAVDiskUsage::pages},
                                            Figure{"PRAGMA freelist_count", &ZAVDiskUsage::freePages}}) {
        const auto value = readNumber(database, error, statement);
        if (!value) {
            return false;
        }
        usage.*number = *value;
    }
    usage.freeBytes = usage.freePages * usage.pageSize;
    return true;
}

/// A table of that name would be read in place of the engine's. None on failure.
std::optional<bool> canTellOfTables(FMDatabase& database, ZAVError* error) {
    if (sqlite3_compileoption_used("ENABLE_DBSTAT_VTAB") == 0) {
        return false;
    }
    const auto count = readNumber(database, error,
                                  "SELECT COUNT(*) FROM sqlite_master WHERE name = 'dbstat' COLLATE NOCASE");
    return count ? std::optional(*count == 0) : std::nullopt;
}

bool measureTables(FMDatabase& database, ZAVDiskUsage& usage, ZAVError* error) {
    const auto canTell = canTellOfTables(database, error);
    if (!canTell || !*canTell) {
        return canTell.has_value();
    }
    auto rows =
        runQuery(database, error,
                 "SELECT s.name, COALESCE(m.tbl_name, s.name), COALESCE(m.type = 'index', 0), s.pages,"
                 " s.bytes, s.unused FROM (SELECT name, COUNT(*) AS pages, SUM(pgsize) AS bytes,"
                 " SUM(unused) AS unused FROM dbstat GROUP BY name) AS s"
                 " LEFT JOIN sqlite_master AS m ON m.name = s.name ORDER BY s.bytes DESC, s.name");
    if (!rows) {
        return false;
    }
    std::vector<ZAVTableDiskUsage> tables;
    ZAVError failure;
    while (rows->nextWithError(&failure)) {
        tables.push_back({rows->stringForColumnIndex(0).value_or(""),
                          rows->stringForColumnIndex(1).value_or(""), rows->boolForColumnIndex(2),
                          rows->longLongIntForColumnIndex(3), rows->longLongIntForColumnIndex(4),
                          rows->longLongIntForColumnIndex(5)});
    }
    if (failure || !rows->closeWithError(&failure)) {
        ZAVStoreError(error, failure);
        return false;
    }
    usage.tables = std::move(tables);
    return true;
}

}  // namespace

std::optional<ZAVDiskUsage> ZAVDatabaseMaintenance::diskUsage(ZAVDiskUsageDetail detail,
                                                              ZAVError* error) const {
    // A cursor that has begun to read keeps what all that follows sees as it is.
    ZAVError failure;
    auto moment = runQuery(*database_, &failure, "SELECT 1 FROM sqlite_master");
    if (!moment || (!moment->nextWithError(&failure) && failure)) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    ZAVDiskUsage usage;
    const bool isKnown = countPages(*database_, usage, error) && measureFiles(*database_, usage, error) &&
                         (detail == ZAVDiskUsageDetail::whole || measureTables(*database_, usage, error));
    return isKnown ? std::optional(std::move(usage)) : std::nullopt;
}

}  // namespace zav
