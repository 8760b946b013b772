#pragma once

#include <optional>

#include <ZAVEventRepository/ZAVIdentifiers.h>

#include "Private/Database/Internal/ZAVStatements.h"

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

/// The row that a query finds; none when there is none, and on failure, with the reason in `error`.
template <class... Values>
std::optional<ZAVDatabaseIdentifier> readRow(FMDatabase& database, ZAVError* error, ZAVSQL statement,
                                             const Values&... values) {
    const auto row = readNumber(database, error, statement, values...);
    return row && isUsableRow(*row, error) ? row : std::nullopt;
}

/// The row that an insertion makes; none on failure, with the reason in `error`.
template <class... Values>
std::optional<ZAVDatabaseIdentifier> insertRow(FMDatabase& database, ZAVError* error, ZAVSQL statement,
                                               const Values&... values) {
    const bool succeeded =
        runUpdate(database, error, statement, values...) && isUsableRow(database.lastInsertRowId(), error);
    return succeeded ? std::optional(database.lastInsertRowId()) : std::nullopt;
}

/// The row that `select` finds by `key`, or else the one that `insert` makes of it; none on failure, with the
/// reason in `error`.
template <class Key>
std::optional<ZAVDatabaseIdentifier> findOrInsert(FMDatabase& database, ZAVError* error, ZAVSQL select,
                                                  ZAVSQL insert, Key key) {
    ZAVError failure;
    auto row = readRow(database, &failure, select, key);
    if (!row && !failure) {
        row = insertRow(database, &failure, insert, key);
        if (!row) {
            // Another connection may have made the row since it was looked for.
            row = readRow(database, nullptr, select, key);
        }
    }
    if (!row) {
        ZAVStoreError(error, failure);
    }
    return row;
}

}  // namespace zav
