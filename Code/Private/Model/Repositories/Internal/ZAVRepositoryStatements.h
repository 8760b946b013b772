#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

inline void storeUnusableRow(ZAVError* error) {
    ZAVStoreError(error, {ZAVErrorDomainDatabase, ZAVDatabaseErrorUnusableRow,
                          "the row identifier 9223372036854775807 means that there is no row: the table has "
                          "used up its row identifiers"});
}

/// Whether a row can be named: the identifier that means "not set" names none. If not, the reason goes to
/// `error`. The engine hands that row out after the greatest one that a caller can choose.
[[nodiscard]] inline bool isUsableRow(ZAVDatabaseIdentifier row, ZAVError* error) {
    if (row == ZAVDatabaseIdentifierNotSet) {
        storeUnusableRow(error);
        return false;
    }
    return true;
}

/// Runs an update; the reason of a failure goes to `error`.
template <class... Values>
bool runUpdate(FMDatabase& database, ZAVError* error, std::string_view statement, const Values&... values) {
    const bool succeeded = database.executeBoundedUpdate(statement, values...);
    if (!succeeded) {
        ZAVStoreError(error, database.lastError());
    }
    return succeeded;
}

/// The reading body of a single record: maps the first row, if there is one, and closes the cursor.
template <class Result, class Map, class... Values>
bool readFirstRow(FMDatabase& database, Result& result, ZAVError& outError, const Map& map,
                  std::string_view statement, const Values&... values) {
    auto rows = database.executeBoundedQuery(statement, values...);
    if (!rows) {
        outError = database.lastError();
        return false;
    }
    if (rows->nextWithError(&outError)) {
        result = map(*rows);
        if (!rows->closeWithError(&outError)) {
            result = {};
        }
    }
    return !outError;
}

/// The number in the first column of a query's first row; none when there is no row, when the column is NULL,
/// and on failure, with the reason in `error`.
template <class... Values>
std::optional<std::int64_t> readNumber(FMDatabase& database, ZAVError* error, std::string_view statement,
                                       const Values&... values) {
    auto rows = database.executeBoundedQuery(statement, values...);
    if (!rows) {
        ZAVStoreError(error, database.lastError());
        return std::nullopt;
    }
    if (!rows->nextWithError(error) || rows->columnIndexIsNull(0)) {
        return std::nullopt;
    }
    return rows->longLongIntForColumnIndex(0);
}

/// The row that a query finds; none when there is none, and on failure, with the reason in `error`.
template <class... Values>
std::optional<ZAVDatabaseIdentifier> readRow(FMDatabase& database, ZAVError* error,
                                             std::string_view statement, const Values&... values) {
    const auto row = readNumber(database, error, statement, values...);
    return row && isUsableRow(*row, error) ? row : std::nullopt;
}

/// The row that an insertion makes; `ZAVDatabaseIdentifierNotSet` on failure, with the reason in `error`.
template <class... Values>
ZAVDatabaseIdentifier insertRow(FMDatabase& database, ZAVError* error, std::string_view statement,
                                const Values&... values) {
    return runUpdate(database, error, statement, values...) && isUsableRow(database.lastInsertRowId(), error)
               ? database.lastInsertRowId()
               : ZAVDatabaseIdentifierNotSet;
}

/// Row of what `select` finds by `key`, or else of what `insert` makes of it; `ZAVDatabaseIdentifierNotSet`
/// on failure, with the reason in `error`.
template <class Key>
ZAVDatabaseIdentifier findOrInsert(FMDatabase& database, ZAVError* error, std::string_view select,
                                   std::string_view insert, Key key) {
    ZAVError lookupError;
    if (const auto row = readRow(database, &lookupError, select, key)) {
        return *row;
    }
    if (lookupError) {
        ZAVStoreError(error, lookupError);
        return ZAVDatabaseIdentifierNotSet;
    }
    ZAVError insertionError;
    const auto inserted = insertRow(database, &insertionError, insert, key);
    if (inserted != ZAVDatabaseIdentifierNotSet) {
        return inserted;
    }
    // Another connection may have made the row since it was looked for.
    if (const auto row = readRow(database, nullptr, select, key)) {
        return *row;
    }
    ZAVStoreError(error, insertionError);
    return ZAVDatabaseIdentifierNotSet;
}

}  // namespace zav
