#include <ZAVEventRepository/ZAVEventRowRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {

std::optional<std::set<ZAVDatabaseIdentifier>> ZAVEventRowRepository::eventsWithoutSeq(
    ZAVError* error) const {
    // Left to itself, the engine walks an index of all events.
    auto rows =
        runQuery(database(), error,
                 "SELECT database_identifier FROM events INDEXED BY events_without_seq WHERE seq IS NULL");
    if (!rows) {
        return std::nullopt;
    }
    ZAVError failure;
    std::set<ZAVDatabaseIdentifier> events;
    while (rows->nextWithError(&failure)) {
        events.insert(rows->longLongIntForColumnIndex(0));
    }
    if (failure) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return events;
}

std::optional<std::int64_t> ZAVEventRowRepository::diskUtilization(ZAVError* error) const {
    return readNumber(
        database(), error,
        "SELECT IFNULL(SUM(size), 0) FROM event_content_parts WHERE transfer_status IN (0, 1, 4) AND "
        "file_path IS NOT NULL AND size IS NOT NULL AND (purged = 0 OR purged IS NULL)");
}

}  // namespace zav
