#include "StoredRows.h"

#include <ZAVEventRepository/ZAVPrintable.h>

#include "Rows.h"

namespace zavevents {

using namespace zav;

namespace {

CountsByValue countBy(FMDatabase& database, const std::string& column, const std::string& table,
                      const std::string& what) {
    CountsByValue counts;
    forEachRow(database, what,
               // More than is shown of a value is not read either.
               "SELECT substr(" + column + ", 1, " + std::to_string(ZAVPrintableSize + 1) +
                   "), COUNT(*) FROM " + table + " GROUP BY " + column + " ORDER BY " + column,
               [&counts](const FMResultSet& row) {
                   counts.emplace_back(row.stringForColumnIndex(0).value_or("null"),
                                       row.longLongIntForColumnIndex(1));
               });
    return counts;
}

}  // namespace

ZAVDatabaseIdentifier newestEventRow(FMDatabase& database) {
    return queryNumber(database, "cannot look for the newest event",
                       "SELECT IFNULL(MAX(database_identifier), 0) FROM events");
}

StoredAssignment assignmentOfEvent(FMDatabase& database, ZAVDatabaseIdentifier event) {
    std::optional<StoredAssignment> assignment;
    forEachRow(
        database, "cannot read a stored event",
        "SELECT seq, creator_id, timestamp FROM events WHERE database_identifier = ?",
        [&assignment](const FMResultSet& row) {
            assignment = {row.stringForColumnIndex(1),
                          row.columnIndexIsNull(0) ? std::nullopt : std::optional(row.intForColumnIndex(0)),
                          row.longLongIntForColumnIndex(2)};
        },
        event);
    if (!assignment) {
        throw ToolError("cannot read a stored event", {});
    }
    return *std::move(assignment);
}

void forEachContentOfEvent(FMDatabase& database, ZAVDatabaseIdentifier event,
                           const std::function<void(const StoredContent&)>& take) {
    forEachRow(
        database, "cannot read stored content",
        "SELECT event_content_part_id, type, value, url FROM event_content_parts"
        " WHERE event_database_identifier = ? ORDER BY event_content_part_id",
        [&take](const FMResultSet& row) {
            take({row.unsignedLongLongIntForColumnIndex(0), row.stringForColumnIndex(1),
                  row.dataForColumnIndex(2), row.stringForColumnIndex(3)});
        },
        event);
}

CountsByValue countEventsByType(FMDatabase& database) {
    return countBy(database, "type", "events", "cannot count the events by type");
}

CountsByValue countPartsByTransferStatus(FMDatabase& database) {
    return countBy(database, "transfer_status", "event_content_parts",
                   "cannot count the content parts by transfer status");
}

std::int64_t countPostedEvents(FMDatabase& database) {
    return queryNumber(database, "cannot count the posted events",
                       "SELECT COUNT(*) FROM events WHERE seq IS NOT NULL");
}

std::int64_t countStreams(FMDatabase& database) {
    // The condition has the engine walk from row to row.
    return queryNumber(database, "cannot count the streams",
                       "SELECT COUNT(*) FROM streams WHERE database_identifier IS NOT NULL");
}

std::int64_t countPartsWithoutEvent(FMDatabase& database) {
    return queryNumber(database, "cannot count the parts without an event",
                       "SELECT COUNT(*) FROM event_content_parts WHERE NOT EXISTS (SELECT 1 FROM events"
                       " WHERE events.database_identifier = event_content_parts.event_database_identifier)");
}

std::int64_t countEventsWithoutStream(FMDatabase& database) {
    return queryNumber(database, "cannot count the events without a stream",
                       "SELECT COUNT(*) FROM events WHERE NOT EXISTS (SELECT 1 FROM streams"
                       " WHERE streams.database_identifier = events.stream_database_identifier)");
}

std::optional<ZAVDatabaseIdentifier> rowOfPart(FMDatabase& database, ZAVDatabaseIdentifier event,
                                               std::int64_t index) {
    std::optional<ZAVDatabaseIdentifier> row;
    forEachRow(
        database, "cannot read the content part",
        "SELECT database_identifier FROM event_content_parts"
        " WHERE event_database_identifier = ? AND event_content_part_id = ?",
        [&row](const FMResultSet& found) { row = found.longLongIntForColumnIndex(0); }, event, index);
    return row;
}

bool isAllOfItsRow(FMDatabase& database, const ZAVEventContent& part, ZAVDatabaseIdentifier row) {
    return queryNumber(database, "cannot read the content part",
                       "SELECT access_expiration IS ? AND url IS ? AND size IS ? AND transfer_status IS ?"
                       " AND file_path IS ? AND last_accessed IS ? AND purged IS ? FROM event_content_parts"
                       " WHERE database_identifier = ?",
                       part.externalContentURLExpiration(), part.external_url(), part.size(),
                       part.transferStatus(),
                       part.fileURL() ? std::optional(part.fileURL()->relativePath()) : std::nullopt,
                       part.lastAccessed(), part.isPurged(), row) != 0;
}

void updatePart(FMDatabase& database, ZAVDatabaseIdentifier row, const std::string& assignments,
                std::vector<ZAVValue> values) {
    values.emplace_back(row);
    if (!database.executeBoundedUpdateWithArgumentsInArray(
            "UPDATE event_content_parts SET " + assignments + " WHERE database_identifier = ?", values)) {
        throw ToolError("cannot update the content part", database.lastError());
    }
}

}  // namespace zavevents
