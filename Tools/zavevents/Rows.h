#pragma once

#include <string>

#include <ZAVEventRepository/FMDatabase.h>

#include "ToolError.h"

namespace zavevents {

/// Calls `take` with each row of a query.
/// @throws ToolError when the database cannot be read to the end.
template <class Take, class... Values>
void forEachRow(zav::FMDatabase& database, const std::string& sql, Take take, const Values&... values) {
    auto rows = database.executeBoundedQuery(sql, values...);
    zav::ZAVError error;
    while (rows && rows->nextWithError(&error)) {
        take(*rows);
    }
    if (!rows || error) {
        throw ToolError("cannot read the database", database.lastError());
    }
}

}  // namespace zavevents
