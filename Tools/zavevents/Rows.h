#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

#include "ToolError.h"

namespace zavevents {

/// Calls `take` with each row of a query.
/// @param what what cannot be done when it fails.
/// @throws ToolError when the database cannot be read to the end.
template <class Take, class... Values>
void forEachRow(zav::FMDatabase& database, const std::string& what, std::string_view sql, const Take& take,
                const Values&... values) {
    auto rows = database.executeBoundedQuery(sql, values...);
    zav::ZAVError error = rows ? zav::ZAVError() : database.lastError();
    while (rows && rows->nextWithError(&error)) {
        take(*rows);
    }
    require(rows && !error, what, error);
}

/// The number in the first column of a query's row; 0 when it is NULL.
/// @throws ToolError like `forEachRow`, also when there is no row.
template <class... Values>
[[nodiscard]] std::int64_t queryNumber(zav::FMDatabase& database, const std::string& what,
                                       std::string_view sql, const Values&... values) {
    std::optional<std::int64_t> number;
    forEachRow(
        database, what, sql,
        [&number](const zav::FMResultSet& row) { number = row.longLongIntForColumnIndex(0); }, values...);
    return required(number, what, {});
}

/// The greatest row of an event; 0 when there is none.
[[nodiscard]] inline zav::ZAVDatabaseIdentifier newestEventRow(zav::FMDatabase& database) {
    return queryNumber(database, "cannot look for the newest event",
                       "SELECT IFNULL(MAX(database_identifier), 0) FROM events");
}

}  // namespace zavevents
