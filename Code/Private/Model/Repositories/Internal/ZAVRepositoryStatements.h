#pragma once

#include <ZAVEventRepository/ZAVIdentifiers.h>

#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

/// Whether a row can be named: the identifier that means "not set" names none. If not, the reason goes to
/// `error`. The engine hands that row out after the greatest one that a caller can choose.
[[nodiscard]] inline bool isUsableRow(ZAVDatabaseIdentifier row, ZAVError* error) {
    if (row == ZAVDatabaseIdentifierNotSet) {
        ZAVStoreError(error,
                      {ZAVErrorDomainDatabase, ZAVDatabaseErrorUnusableRow,
                       "the row identifier 9223372036854775807 means that there is no row: the table has "
                       "used up its row identifiers"});
        return false;
    }
    return true;
}

/// The row that a query finds; `ZAVDatabaseIdentifierNotSet` when there is none, and on failure, with the
/// reason in `error`.
template <class... Values>
ZAVDatabaseIdentifier readRow(FMDatabase& database, ZAVError* error, ZAVSQL statement,
                              const Values&... values) {
    const auto row = readNumber(database, error, statement, values...);
    return row && isUsableRow(*row, error) ? *row : ZAVDatabaseIdentifierNotSet;
}

/// The row that an insertion makes; `ZAVDatabaseIdentifierNotSet` on failure, with the reason in `error`.
template <class... Values>
ZAVDatabaseIdentifier insertRow(FMDatabase& database, ZAVError* error, ZAVSQL statement,
                                const Values&... values) {
    const bool succeeded =
        runUpdate(database, error, statement, values...) && isUsableRow(database.lastInsertRowId(), error);
    return succeeded ? database.lastInsertRowId() : ZAVDatabaseIdentifierNotSet;
}

/// The row that `select` finds by `key`, or else the one that `insert` makes of it;
/// `ZAVDatabaseIdentifierNotSet` on failure, with the reason in `error`.
template <class Key>
ZAVDatabaseIdentifier findOrInsert(FMDatabase& database, ZAVError* error, ZAVSQL select, ZAVSQL insert,
                                   Key key) {
    ZAVError failure;
    ZAVDatabaseIdentifier row = readRow(database, &failure, select, key);
    if (row == ZAVDatabaseIdentifierNotSet && !failure) {
        row = insertRow(database, &failure, insert, key);
        if (failure) {
            // Another connection may have made the row since it was looked for.
            row = readRow(database, nullptr, select, key);
        }
    }
    if (row == ZAVDatabaseIdentifierNotSet) {
        ZAVStoreError(error, failure);
    }
    return row;
}

}  // namespace zav
