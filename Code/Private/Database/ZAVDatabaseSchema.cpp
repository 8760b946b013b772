#include <ZAVEventRepository/ZAVDatabaseSchema.h>

#include <sqlite3.h>

#include <set>
#include <string_view>
#include <utility>

#include <ZAVEventRepository/ZAVTransaction.h>

#include "Private/Database/Internal/ZAVDatabaseOpening.h"
#include "Private/Database/Internal/ZAVSchemaMigrations.h"
#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

bool fail(ZAVError* error, const ZAVError& reason) {
    ZAVStoreError(error, reason);
    return false;
}

ZAVError foreignSchema(const std::string& objection) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorForeignSchema, "the database " + objection};
}

ZAVError olderSchema(std::int32_t version) {
    const std::string message = version == 0
                                    ? std::string("the database has no schema of the event store yet")
                                    : "the database has schema version " + std::to_string(version) + " of " +
                                          std::to_string(ZAVDatabaseSchema::currentVersion());
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorOlderSchema, message};
}

/// The version of a database that can be brought up to date: it is the library's own, of a version that is
/// known, or empty. None for any other.
std::optional<std::int32_t> migratableVersion(FMDatabase& database, ZAVError* error) {
    // The tables before the version: whoever makes the tables meanwhile writes the version with them.
    const auto hasTables = readNumber(database, error, "SELECT EXISTS (SELECT 1 FROM sqlite_master)");
    if (!hasTables) {
        return std::nullopt;
    }
    const auto version = ZAVDatabaseSchema::versionOfDatabase(database, error);
    if (version && *version > ZAVDatabaseSchema::currentVersion()) {
        ZAVStoreError(error, ZAVErrorOfNewerSchema(*version, ZAVDatabaseSchema::currentVersion()));
        return std::nullopt;
    }
    if (version && (*version < 0 || (*version == 0 && *hasTables != 0))) {
        ZAVStoreError(error, foreignSchema("has tables, but no schema version of the event store"));
        return std::nullopt;
    }
    return version;
}

using Names = std::set<std::string, std::less<>>;

constexpr std::string_view makesTableOnItsLine = "\nCREATE TABLE ";
constexpr std::string_view makesTable = makesTableOnItsLine.substr(1);
constexpr std::string_view makesVirtualTable = "CREATE VIRTUAL TABLE ";

/// The engine's own table beside tables that never use a row identifier twice. Old engines crash where it is
/// missing or another.
constexpr std::string_view sequenceTable = "sqlite_sequence";
constexpr std::string_view makesSequenceTable = "CREATE TABLE sqlite_sequence(name,seq)";

/// The tables that the first `version` migrations make.
Names tablesOfVersion(std::int32_t version) {
    Names names;
    for (const ZAVSchemaMigration& migration :
         ZAVSchemaMigrations().first(static_cast<std::size_t>(version))) {
        const std::string_view sql = migration.sql;
        for (auto at = sql.find(makesTableOnItsLine); at != std::string_view::npos;
             at = sql.find(makesTableOnItsLine, at)) {
            at += makesTableOnItsLine.size();
            names.emplace(sql.substr(at, sql.find(' ', at) - at));
        }
    }
    return names;
}

/// One row of the schema table.
struct SchemaRow {
    std::string type;
    std::string name;
    std::string sql;  ///< empty for an index that the engine made by itself
};

/// Whether a row makes a table or an index. Its statement tells, which the engine writes in this form and
/// acts upon; the other columns of a file from hostile hands may say anything.
bool isTableOrIndex(const SchemaRow& row) {
    return row.sql.empty() || row.sql.starts_with(makesTable) || row.sql.starts_with(makesVirtualTable) ||
           row.sql.starts_with("CREATE INDEX ") || row.sql.starts_with("CREATE UNIQUE INDEX ");
}

/// Whether a row makes a table that needs `sequenceTable`.
bool needsSequenceTable(const SchemaRow& row) {
    return sqlite3_strlike("%AUTOINCREMENT%", row.sql.c_str(), 0) == 0;
}

/// What makes a row unacceptable beside the event store's `tables`; empty when nothing does. Tables and
/// indexes of other names belong to the application.
ZAVError objectionTo(const SchemaRow& row, const Names& tables) {
    if (!isTableOrIndex(row)) {
        return foreignSchema("has the " + row.type + " " + row.name +
                             ", which the event store does not make");
    }
    if (row.sql.starts_with(makesVirtualTable) && tables.contains(row.name)) {
        return foreignSchema("has the virtual table " + row.name + " in place of the event store's table");
    }
    if (row.name == sequenceTable && row.sql != makesSequenceTable) {
        return foreignSchema("has another table " + row.name + " than the engine makes");
    }
    return {};
}

/// Whether the tables of a database are those of the event store, and no trigger or view stands in between:
/// what an operation reads and writes is then what its description says.
bool hasTablesOfVersion(FMDatabase& database, std::int32_t version, ZAVError* error) {
    const Names tables = tablesOfVersion(version);
    Names missing = tables;
    bool needsSequences = false;
    bool hasSequences = false;
    ZAVError objection;
    ZAVError failure;
    auto rows = runQuery(database, error,
                         "SELECT substr(type, 1, 100), substr(name, 1, 100), sql FROM sqlite_master");
    if (!rows) {
        return false;
    }
    while (!objection && rows->nextWithError(&failure)) {
        const SchemaRow row{rows->stringForColumnIndex(0).value_or(""),
                            rows->stringForColumnIndex(1).value_or(""),
                            rows->stringForColumnIndex(2).value_or("")};
        objection = objectionTo(row, tables);
        if (row.sql.starts_with(makesTable)) {
            missing.erase(row.name);
        }
        needsSequences = needsSequences || needsSequenceTable(row);
        hasSequences = hasSequences || row.name == sequenceTable;
    }
    if (failure || !rows->closeWithError(&failure)) {
        return fail(error, failure);
    }
    if (needsSequences && !hasSequences) {
        missing.emplace(sequenceTable);
    }
    if (!objection && !missing.empty()) {
        objection = foreignSchema("lacks the table " + *missing.begin() + " of the event store");
    }
    return !objection || fail(error, objection);
}

}  // namespace

std::int32_t ZAVDatabaseSchema::currentVersion() noexcept {
    return static_cast<std::int32_t>(ZAVSchemaMigrations().size());
}

std::shared_ptr<FMDatabase> ZAVDatabaseSchema::openDatabase(const std::string& path,
                                                            FMDatabaseOptions options, ZAVError* error) {
    auto database = openVerified(path, std::move(options), 0, error);
    return database && migrateDatabase(*database, error) ? database : nullptr;
}

std::shared_ptr<FMDatabase> ZAVDatabaseSchema::openCurrentDatabase(const std::string& path,
                                                                   FMDatabaseOptions options,
                                                                   ZAVError* error) {
    if (options.access == FMDatabaseOptions::Access::readWriteCreate) {
        options.access = FMDatabaseOptions::Access::readWrite;
    }
    return openVerified(path, std::move(options), currentVersion(), error);
}

std::shared_ptr<FMDatabase> ZAVDatabaseSchema::openVerified(const std::string& path,
                                                            FMDatabaseOptions options,
                                                            std::int32_t oldestVersion, ZAVError* error) {
    options.newestUserVersion = currentVersion();
    // A database that is refused keeps its journal mode too, so the log waits until it is known to be ours.
    const bool writeAheadLog = options.writeAheadLog && options.access != FMDatabaseOptions::Access::readOnly;
    options.writeAheadLog = false;
    auto database = FMDatabase::databaseWithPath(path, options, error);
    if (!database) {
        return nullptr;
    }
    const auto version = verifyDatabase(*database, error);
    if (!version || *version < oldestVersion) {
        if (version) {
            ZAVStoreError(error, olderSchema(*version));
        }
        ZAVCloseUntouched(database->connection());
        return nullptr;
    }
    if (writeAheadLog && !database->useWriteAheadLog()) {
        ZAVStoreError(error, database->lastError());
        return nullptr;
    }
    return database;
}

std::optional<std::int32_t> ZAVDatabaseSchema::verifyDatabase(FMDatabase& database, ZAVError* error) {
    const auto version = migratableVersion(database, error);
    const bool isTaken = version && (*version == 0 || hasTablesOfVersion(database, *version, error));
    return isTaken ? version : std::nullopt;
}

std::optional<std::int32_t> ZAVDatabaseSchema::versionOfDatabase(FMDatabase& database, ZAVError* error) {
    const auto version = readNumber(database, error, "PRAGMA user_version");
    return version ? std::optional(static_cast<std::int32_t>(*version)) : std::nullopt;
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
