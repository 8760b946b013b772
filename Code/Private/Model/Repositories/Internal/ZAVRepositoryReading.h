#pragma once

#include <optional>
#include <utility>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVSet.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryOperation.h"

namespace zav {

/// A query for the functions below, which run it inside the unit of work. It refers to its values, and is for
/// the expression that it stands in.
template <class... Values>
[[nodiscard]] auto selecting(const ZAVEventRepository& repository, ZAVSQL statement,
                             const Values&... values) {
    return [&repository, statement, &values...](ZAVError& outError) {
        return runQuery(repository.database(), &outError, statement, values...);
    };
}

/// An operation that reads a set of records: `append` adds the record of each row, and answers false when
/// there is none, which fails the operation. A failure hands out no set.
template <class Record, class Query, class Append, class... LogArguments>
[[nodiscard]] std::optional<ZAVSet<Record>> readSet(const ZAVRepositoryOperation<LogArguments...>& operation,
                                                    const ZAVEventRepository& repository, ZAVError* error,
                                                    const Query& query, const Append& append,
                                                    const LogArguments&... logArguments) {
    std::optional<ZAVSet<Record>> result;
    operation.run(
        repository, error,
        [&](ZAVError& outError) {
            auto rows = query(outError);
            if (!rows) {
                return false;
            }
            ZAVSet<Record> records;
            while (rows->nextWithError(&outError)) {
                if (!append(records, *rows)) {
                    return false;
                }
            }
            if (outError) {
                return false;
            }
            result = std::move(records);
            return true;
        },
        logArguments...);
    return result;
}

/// An operation that reads one record: what `map` makes of the first row; an empty result when there is no
/// row, and on failure.
template <class Query, class Map, class... LogArguments>
[[nodiscard]] auto readFirst(const ZAVRepositoryOperation<LogArguments...>& operation,
                             const ZAVEventRepository& repository, ZAVError* error, const Query& query,
                             const Map& map, const LogArguments&... logArguments) {
    decltype(map(std::declval<const FMResultSet&>())) result{};
    operation.run(
        repository, error,
        [&](ZAVError& outError) {
            auto rows = query(outError);
            if (!rows) {
                return false;
            }
            if (rows->nextWithError(&outError)) {
                result = map(*rows);
                if (!rows->closeWithError(&outError)) {
                    result = {};
                }
            }
            return !outError;
        },
        logArguments...);
    return result;
}

}  // namespace zav
