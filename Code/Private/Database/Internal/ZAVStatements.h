#pragma once

#include <cstdint>
#include <optional>

#include <ZAVEventRepository/FMDatabase.h>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVSQL.h"

namespace zav {

/// Stores why a call fails, as the last error of the handle too. Answers false.
bool failWith(FMDatabase& database, const ZAVError& reason, ZAVError* error);

/// Whether a database has a write-ahead log; none on failure, with the reason in `error`.
[[nodiscard]] std::optional<bool> usesWriteAheadLog(FMDatabase& database, ZAVError* error);

/// Runs a bounded query.
/// @return a cursor before the first row; none on failure, with the reason in `error`.
template <class... Values>
[[nodiscard]] inline std::optional<FMResultSet> runQuery(FMDatabase& database, ZAVError* error,
                                                         ZAVSQL statement, const Values&... values) {
    ZAVConnection& connection = database.connection();
    auto rows =
        connection.query(connection.lendWithValues(statement, ZAVConnection::Bytes::copied, values...),
                         ZAVConnection::Reach::bounded);
    if (!rows) [[unlikely]] {
        ZAVStoreError(error, connection.lastError());
    }
    return rows;
}

/// Runs a bounded update.
/// @return whether it succeeded; if not, the reason is in `error`.
template <class... Values>
inline bool runUpdate(FMDatabase& database, ZAVError* error, ZAVSQL statement, const Values&... values) {
    ZAVConnection& connection = database.connection();
    const bool succeeded =
        connection.update(connection.lendWithValues(statement, ZAVConnection::Bytes::referredTo, values...),
                          ZAVConnection::Reach::bounded);
    if (!succeeded) [[unlikely]] {
        ZAVStoreError(error, connection.lastError());
    }
    return succeeded;
}

/// The number in the first column of a query's first row; none when there is no row, when the column is NULL,
/// and on failure, with the reason in `error`.
template <class Number = std::int64_t, class... Values>
[[nodiscard]] std::optional<Number> readNumber(FMDatabase& database, ZAVError* error, ZAVSQL statement,
                                               const Values&... values) {
    auto rows = runQuery(database, error, statement, values...);
    if (!rows || !rows->nextWithError(error) || rows->columnIndexIsNull(0)) {
        return std::nullopt;
    }
    return static_cast<Number>(rows->longLongIntForColumnIndex(0));
}

/// The same for a number that need not be there.
/// @return whether it could be looked for; if not, the reason is in `error`.
template <class... Values>
[[nodiscard]] bool findNumber(FMDatabase& database, std::optional<std::int64_t>& number, ZAVError* error,
                              ZAVSQL statement, const Values&... values) {
    ZAVError failure;
    number = readNumber(database, &failure, statement, values...);
    if (failure) {
        ZAVStoreError(error, failure);
    }
    return !failure;
}

/// Calls `visit` with each row of a query.
/// @return whether all could be read; if not, the reason is in `error`.
template <class Visit, class... Values>
[[nodiscard]] bool visitRows(FMDatabase& database, ZAVError* error, ZAVSQL statement, const Visit& visit,
                             const Values&... values) {
    ZAVError failure;
    auto rows = runQuery(database, &failure, statement, values...);
    while (rows && rows->nextWithError(&failure)) {
        visit(*rows);
    }
    if (failure) {
        ZAVStoreError(error, failure);
    }
    return !failure;
}

}  // namespace zav
