#pragma once

#include <string_view>

#include "Private/Foundation/ZAVError.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"

namespace zav {

/// Runs one update inside a unit of work. On failure the operation's error cell gets the handle's last error.
template <class... Values>
bool runUpdate(const ZAVEventRepository& repository, ZAVError& outError, std::string_view statement,
               const Values&... values) {
    const bool succeeded = repository.database().executeUpdate(statement, values...);
    if (!succeeded) {
        outError = repository.database().lastError();
    }
    return succeeded;
}

/// The reading body of a single record: maps the first row, if there is one, and closes the cursor.
template <class Result, class Map, class... Values>
bool readFirstRow(const ZAVEventRepository& repository, Result& result, ZAVError& outError, const Map& map,
                  std::string_view statement, const Values&... values) {
    auto rows = repository.database().executeQuery(statement, values...);
    if (!rows) {
        outError = repository.database().lastError();
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

}  // namespace zav
