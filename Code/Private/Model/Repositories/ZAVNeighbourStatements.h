#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Private/Database/FMDatabase.h"
#include "Private/Foundation/ZAVIdentifiers.h"

namespace zav {

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

/// Runs an update; the reason of a failure goes to `error`.
template <class... Values>
bool update(FMDatabase& database, ZAVError* error, std::string_view statement, const Values&... values) {
    if (!database.executeUpdate(statement, values...)) {
        ZAVStoreError(error, database.lastError());
        return false;
    }
    return true;
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
    if (update(database, &insertionError, insert, key)) {
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
