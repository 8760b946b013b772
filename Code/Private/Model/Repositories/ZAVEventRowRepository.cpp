#include <ZAVEventRepository/ZAVEventRowRepository.h>

#include <utility>

#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

std::optional<std::set<ZAVDatabaseIdentifier>> ZAVEventRowRepository::eventsWithoutSeq(
    ZAVError* error) const {
    std::set<ZAVDatabaseIdentifier> events;
    // Left to itself, the engine walks an index of all events.
    const bool areRead =
        visitRows(database(), error,
                  "SELECT database_identifier FROM events INDEXED BY events_without_seq WHERE seq IS NULL",
                  [&](const FMResultSet& event) { events.insert(event.longLongIntForColumnIndex(0)); });
    return areRead ? std::optional(std::move(events)) : std::nullopt;
}

std::optional<std::int64_t> ZAVEventRowRepository::diskUtilization(ZAVError* error) const {
    return readNumber(
        database(), error,
        "SELECT IFNULL(SUM(size), 0) FROM event_content_parts WHERE transfer_status IN (0, 1, 4) AND "
        "file_path IS NOT NULL AND size IS NOT NULL AND (purged = 0 OR purged IS NULL)");
}

}  // namespace zav
