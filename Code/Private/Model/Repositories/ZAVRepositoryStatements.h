#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Private/Database/FMDatabase.h"
#include "Private/Foundation/ZAVIdentifiers.h"

namespace zav {

/// Runs an update; the reason of a failure goes to `error`.
template <class... Values>
bool runUpdate(FMDatabase& database, ZAVError* error, std::string_view statement, const Values&... values) {
    const bool succeeded = database.executeUpdate(statement, values...);
    if (!succeeded) {
        ZAVStoreError(error, database.lastError());
    }
    return succeeded;
}

/// The reading body of a single record: maps the first row, if there is one, and closes the cursor.
template <class Result, class Map, class... Values>
bool readFirstRow(FMDatabase& database, Result& result, ZAVError& outError, const Map& map,
                  std::string_view statement, const Values&... values) {
    auto rows = database.executeQuery(statement, values...);
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
    auto rows = database.executeQuery(statement, values...);
    if (!rows) {
        ZAVStoreError(error, database.lastError());
        return std::nullopt;
    }
    if (!rows->nextWithError(error) || rows->columnIndexIsNull(0)) {
        return std::nullopt;
    }
    return rows->longLongIntForColumnIndex(0);
}

/// Row of what `select` finds by `key`, or else of what `insert` makes of it; `ZAVDatabaseIdentifierNotSet`
/// on failure, with the reason in `error`.
template <class Key>
ZAVDatabaseIdentifier findOrInsert(FMDatabase& database, ZAVError* error, std::string_view select,
                                   std::string_view insert, const Key& key) {
    ZAVError lookupError;
    if (const auto row = readNumber(database, &lookupError, select, key)) {
        return *row;
    }
    if (lookupError) {
        ZAVStoreError(error, lookupError);
        return ZAVDatabaseIdentifierNotSet;
    }
    ZAVError insertionError;
    if (runUpdate(database, &insertionError, insert, key)) {
        return database.lastInsertRowId();
    }
    // Another connection may have made the row since it was looked for.
    if (const auto row = readNumber(database, nullptr, select, key)) {
        return *row;
    }
    ZAVStoreError(error, insertionError);
    return ZAVDatabaseIdentifierNotSet;
}

}  // namespace zav
