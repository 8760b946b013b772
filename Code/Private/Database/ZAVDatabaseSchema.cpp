#include "Private/Database/ZAVDatabaseSchema.h"

#include <utility>

#include "Private/Database/ZAVSchemaMigrations.h"
#include "Private/Database/ZAVTransaction.h"

namespace zav {
namespace {

/// The first column of a query's only row; none on failure.
std::optional<std::int64_t> number(FMDatabase& database, std::string_view sql) {
    auto rows = database.executeQuery(sql);
    if (!rows || !rows->next()) {
        return std::nullopt;
    }
    return rows->longLongIntForColumnIndex(0);
}

bool fail(ZAVError* error, const ZAVError& reason) {
    ZAVStoreError(error, reason);
    return false;
}

/// The version of a database that can be brought up to date: it is the library's own, of a version that is
/// known, or empty. None for any other.
std::optional<std::int32_t> migratableVersion(FMDatabase& database, ZAVError* error) {
    // The tables before the version: whoever makes the tables meanwhile writes the version with them.
    const auto tables = number(database, "SELECT COUNT(*) FROM sqlite_master");
    if (!tables) {
        ZAVStoreError(error, database.lastError());
        return std::nullopt;
    }
    const auto version = ZAVDatabaseSchema::versionOfDatabase(database, error);
    if (version && *version > ZAVDatabaseSchema::currentVersion()) {
        ZAVStoreError(error, {ZAVErrorDomainDatabase, ZAVDatabaseErrorNewerSchema,
                              "the database has schema version " + std::to_string(*version) +
                                  ", but this version of the library knows only versions up to " +
                                  std::to_string(ZAVDatabaseSchema::currentVersion())});
        return std::nullopt;
    }
    if (version && (*version < 0 || (*version == 0 && *tables != 0))) {
        ZAVStoreError(error, {ZAVErrorDomainDatabase, ZAVDatabaseErrorForeignSchema,
                              "the database has tables, but no schema version of the event store"});
        return std::nullopt;
    }
    return version;
}

}  // namespace

std::int32_t ZAVDatabaseSchema::currentVersion() noexcept {
    return static_cast<std::int32_t>(ZAVSchemaMigrations().size());
}

std::shared_ptr<FMDatabase> ZAVDatabaseSchema::openDatabase(const std::string& path,
                                                            FMDatabaseOptions options, ZAVError* error) {
    options.newestUserVersion = currentVersion();
    // A database that is refused keeps its journal mode too, so the log waits until it is known to be ours.
    const bool writeAheadLog = options.writeAheadLog && options.access != FMDatabaseOptions::Access::readOnly;
    options.writeAheadLog = false;
    auto database = FMDatabase::databaseWithPath(path, options, error);
    if (!database) {
        return nullptr;
    }
    if (!migratableVersion(*database, error)) {
        return nullptr;
    }
    if (writeAheadLog && !database->useWriteAheadLog()) {
        ZAVStoreError(error, database->lastError());
        return nullptr;
    }
    return migrateDatabase(*database, error) ? database : nullptr;
}

std::optional<std::int32_t> ZAVDatabaseSchema::versionOfDatabase(FMDatabase& database, ZAVError* error) {
    const auto version = number(database, "PRAGMA user_version");
    if (!version) {
        ZAVStoreError(error, database.lastError());
        return std::nullopt;
    }
    return static_cast<std::int32_t>(*version);
}

bool ZAVDatabaseSchema::migrateDatabase(FMDatabase& database, ZAVError* error) {
    if (const auto version = versionOfDatabase(database, error); !version || *version == currentVersion()) {
        return version.has_value();
    }
    auto transaction = ZAVTransaction::begin(database, error);
    if (!transaction) {
        return false;
    }
    // Read again under the lock: another process may have migrated the file in between.
    const auto version = migratableVersion(database, error);
    if (!version) {
        return false;
    }
    for (const ZAVSchemaMigration& migration :
         ZAVSchemaMigrations().subspan(static_cast<std::size_t>(*version))) {
        if (!database.executeStatements(migration.sql)) {
            const ZAVError& reason = database.lastError();
            return fail(error, {reason.domain(), reason.code(),
                                "migration " + std::string(migration.name) + ": " + reason.message()});
        }
    }
    if (!database.executeStatements("PRAGMA user_version=" + std::to_string(currentVersion()))) {
        return fail(error, database.lastError());
    }
    return transaction->commit(error);
}

}  // namespace zav
