#include "Store/Internal/ZAVEventRemover.h"

#include <algorithm>
#include <array>
#include <memory>
#include <span>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVContentParts.h"
#include "Store/Internal/ZAVStreamRecency.h"

namespace zav {
namespace {

/// Runs statements that each take one row, until one fails.
bool runAll(FMDatabase& database, std::span<const ZAVSQL> statements, ZAVDatabaseIdentifier row,
            ZAVError* error) {
    return std::all_of(statements.begin(), statements.end(),
                       [&](const ZAVSQL& statement) { return runUpdate(database, error, statement, row); });
}

}  // namespace

/// Has the files that a query answers removed when the transaction is committed.
bool ZAVEventRemover::noteFiles(ZAVSQL statement, ZAVDatabaseIdentifier row, ZAVError* error) const {
    const auto note = [&](const FMResultSet& part) {
        handle_.filesWithoutRow().push_back(
            {part.stringForColumnIndex(0).value_or(""),
             ZAVNumberOfPart(part.longLongIntForColumnIndex(1), part.longLongIntForColumnIndex(2))});
    };
    return visitRows(database_, error, statement, note, row);
}

bool ZAVEventRemover::removeBelongings(ZAVDatabaseIdentifier event, ZAVError* error) const {
    static constexpr std::array<ZAVSQL, 5> removals{
        "DELETE FROM event_content_parts WHERE event_database_identifier = ?",
        "DELETE FROM keyed_values_local WHERE object_database_identifier = ? AND object_type = 'event'",
        "DELETE FROM keyed_values_remote WHERE object_database_identifier = ? AND object_type = 'event'",
        "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier = ?",
        "DELETE FROM messages WHERE event_database_identifier = ?"};
    return noteFiles(
               "SELECT file_path, event_database_identifier, event_content_part_id FROM event_content_parts"
               " WHERE event_database_identifier = ? AND file_path IS NOT NULL",
               event, error) &&
           runAll(database_, removals, event, error);
}

std::optional<bool> ZAVEventRemover::remove(ZAVDatabaseIdentifier event, ZAVError* error) const {
    std::optional<std::int64_t> stream;
    if (!findNumber(database_, stream, error,
                    "SELECT stream_database_identifier FROM events WHERE database_identifier = ?", event) ||
        !removeBelongings(event, error) ||
        !repositories_.events.deleteEvents({std::make_shared<ZAVEvent>(event, ZAVDatabaseIdentifierNotSet)},
                                           error)) {
        return std::nullopt;
    }
    const bool wasThere = database_.changes() != 0;
    return !stream || ZAVStreamRecency(repositories_).update(*stream, error) ? std::optional(wasThere)
                                                                             : std::nullopt;
}

bool ZAVEventRemover::removeStream(ZAVDatabaseIdentifier stream, ZAVError* error) const {
    static constexpr std::array<ZAVSQL, 10> removals{
        "DELETE FROM event_content_parts WHERE event_database_identifier IN"
        " (SELECT database_identifier FROM events WHERE stream_database_identifier = ?)",
        "DELETE FROM keyed_values_local WHERE object_type = 'event' AND object_database_identifier IN"
        " (SELECT database_identifier FROM events WHERE stream_database_identifier = ?)",
        "DELETE FROM keyed_values_remote WHERE object_type = 'event' AND object_database_identifier IN"
        " (SELECT database_identifier FROM events WHERE stream_database_identifier = ?)",
        "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN"
        " (SELECT database_identifier FROM events WHERE stream_database_identifier = ?)",
        "DELETE FROM messages WHERE event_database_identifier IN"
        " (SELECT database_identifier FROM events WHERE stream_database_identifier = ?)",
        "DELETE FROM events WHERE stream_database_identifier = ?",
        "DELETE FROM keyed_values_local WHERE object_database_identifier = ? AND object_type = 'stream'",
        "DELETE FROM keyed_values_remote WHERE object_database_identifier = ? AND object_type = 'stream'",
        "DELETE FROM stream_recency WHERE stream_database_identifier = ?",
        "DELETE FROM streams WHERE database_identifier = ?"};
    return noteFiles(
               "SELECT parts.file_path, parts.event_database_identifier, parts.event_content_part_id"
               " FROM events JOIN event_content_parts AS parts"
               " ON parts.event_database_identifier = events.database_identifier"
               " WHERE events.stream_database_identifier = ? AND parts.file_path IS NOT NULL",
               stream, error) &&
           runAll(database_, removals, stream, error);
}

bool ZAVEventRemover::makeTombstone(ZAVDatabaseIdentifier event, ZAVSequence seq,
                                    ZAVDatabaseIdentifier stream, ZAVError* error) const {
    return repositories_.events.persistTombstoneEventWithTargetSeq(seq, stream, error) &&
           removeBelongings(event, error);
}

}  // namespace zav
