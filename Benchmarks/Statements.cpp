#include "Statements.h"

#include <string_view>

namespace zav::bench {
namespace {

// The statements are written out, as somebody without the library has them.
constexpr std::string_view selectEvents =
    "SELECT events.client_id, events.client_seq, events.creator_id, events.member_id, events.preceding_seq, "
    "events.stream_database_identifier, events.subtype, events.target_seq, events.timestamp, events.type, "
    "events.seq AS event_seq, events.database_identifier AS event_database_identifier, "
    "streams.stream_id AS event_stream_id, streams.seq AS streams_seq, events.creator_name";
constexpr std::string_view fromEvents =
    " FROM events LEFT JOIN streams ON (events.stream_database_identifier = streams.database_identifier)";
constexpr std::string_view selectParts =
    "SELECT event_content_parts.event_content_part_id, event_content_parts.event_database_identifier, "
    "event_content_parts.type, event_content_parts.value, event_content_parts.access_expiration, "
    "event_content_parts.url, event_content_parts.size, event_content_parts.transfer_status, "
    "event_content_parts.file_path, event_content_parts.last_accessed, event_content_parts.purged, "
    "events.client_id, events.seq, streams.stream_id";
constexpr std::string_view fromParts =
    " FROM event_content_parts"
    " LEFT JOIN events ON (events.database_identifier = event_content_parts.event_database_identifier)"
    " LEFT JOIN streams ON (streams.database_identifier = events.stream_database_identifier)";

constexpr std::string_view eventColumns = "bissiiiiiiiibis";
constexpr std::string_view contentColumns = "iisbdsiisdibib";
constexpr std::string_view rank = ", (streams.seq - events.preceding_seq) AS distance_from_eos";

std::string join(std::string_view a, std::string_view b, std::string_view c, std::string_view d = "") {
    return std::string(a).append(b).append(c).append(d);
}

SqlText events(std::string_view condition) {
    return {join(selectEvents, fromEvents, condition), std::string(eventColumns)};
}

SqlText parts(std::string_view condition) {
    return {join(selectParts, fromParts, condition), std::string(contentColumns)};
}

SqlText rankedParts(std::string_view condition) {
    return {join(selectParts, rank, fromParts, condition), std::string(contentColumns) + "i"};
}

}  // namespace

std::string forgetEventsText(std::size_t events) {
    std::string text = "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (";
    for (std::size_t index = 0; index < events; ++index) {
        text += index == 0 ? "?" : ", ?";
    }
    return text + ")";
}

std::string expiredDownloadsText(const std::set<std::string>& types) {
    std::string list;
    for (const std::string& type : types) {
        list.append(list.empty() ? "'" : ", '").append(type).append("'");
    }
    return rankedParts(
               " WHERE ((url IS NULL) OR (access_expiration IS NULL) OR (access_expiration <= ?)) AND       "
               "file_path IS NOT NULL AND (purged = 0 OR purged IS NULL) AND       "
               "(transfer_status = ? OR (transfer_status = ? AND event_content_parts.type IN (" +
               list +
               ")) OR (transfer_status = ? AND size <= ?))       "
               "ORDER BY distance_from_eos ASC, events.client_seq DESC, events.creator_id DESC       LIMIT ?")
        .text;
}

SqlTexts makeSqlTexts() {
    SqlTexts texts;
    const auto set = [&](Sql sql, SqlText text) { texts[static_cast<std::size_t>(sql)] = std::move(text); };
    set(Sql::streamInRow, {"SELECT * FROM streams WHERE database_identifier = ? LIMIT 1", "ibi"});
    set(Sql::streamWithUUID, {"SELECT * FROM streams WHERE stream_id = ? LIMIT 1", "ibi"});
    set(Sql::insertEvent,
        {"INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, preceding_seq, "
         "client_seq, subtype, member_id, target_seq, stream_database_identifier, client_id, creator_name) "
         "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
         ""});
    set(Sql::eventAtSeq,
        {"SELECT * FROM events WHERE stream_database_identifier = ? AND seq = ? LIMIT 1", "iisiiiiisiibs"});
    set(Sql::updateEvent,
        {"UPDATE events SET type = ?, creator_id = ?, seq = ?, timestamp = ?, preceding_seq = ?, client_seq = ?, "
         "subtype = ?, member_id = ?, target_seq = ?, stream_database_identifier = ?, client_id = ?, "
         "creator_name = ? WHERE database_identifier = ?",
         ""});
    set(Sql::keysOfEvent, {"SELECT key FROM keyed_values_remote WHERE object_database_identifier = ? AND "
                           "object_type = ? AND key_type = ?",
                           "s"});
    set(Sql::insertKey,
        {"INSERT OR REPLACE INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, "
         "value, timestamp) VALUES (?, ?, ?, ?, ?, ?)",
         ""});
    set(Sql::removeKey, {"DELETE FROM keyed_values_remote WHERE object_database_identifier = ? AND "
                         "object_type = ? AND key_type = ? AND key = ?",
                         ""});
    set(Sql::insertPart,
        {"INSERT OR IGNORE INTO event_content_parts (event_content_part_id, event_database_identifier, type, "
         "value, access_expiration, url, size, transfer_status, file_path, last_accessed, purged) "
         "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
         ""});
    set(Sql::updatePart,
        {"UPDATE event_content_parts SET access_expiration = ?, url = ?, size = ?, transfer_status = ?, "
         "file_path = ?, last_accessed = ?, purged = ? WHERE event_content_part_id = ? AND "
         "event_database_identifier = ?",
         ""});
    set(Sql::forgetEvents, {forgetEventsText(forgottenAtOnce), ""});
    set(Sql::deleteEvent, {"DELETE FROM events WHERE database_identifier = ?", ""});
    set(Sql::valuesOfEvent, {"SELECT key, value, typeof(value) = 'blob' FROM keyed_values_remote WHERE "
                             "object_database_identifier = ? AND object_type = ? AND key_type = ?",
                             "ssi"});
    set(Sql::partsOfEvent, parts(" WHERE event_database_identifier = ? "
                                 "ORDER BY event_content_parts.event_content_part_id ASC"));
    set(Sql::allEvents, events(""));
    set(Sql::publishableEvents, events(" WHERE events.seq IS NULL AND event_stream_id IS NOT NULL"));
    set(Sql::unprocessedEvents,
        {join(selectEvents, ", synced_changes.*", fromEvents,
              " LEFT JOIN synced_changes ON (events.database_identifier = row_identifier)"
              " WHERE synced_changes.table_name = ? AND change_type = ?"),
         std::string(eventColumns) + "isii"});
    set(Sql::revivedStream, events(" WHERE events.seq IS NOT NULL AND streams.database_identifier = ?"
                                   " ORDER BY events.preceding_seq, events.creator_id, events.client_seq"));
    set(Sql::eventInRow, events(" WHERE events.database_identifier = ?"));
    set(Sql::eventWithSeq, events(" WHERE events.seq = ? AND event_stream_id = ?"));
    set(Sql::partInRow, parts(" WHERE event_content_parts.database_identifier = ?"));
    set(Sql::partOfEvent, parts(" WHERE event_database_identifier = ? AND event_content_part_id = ?"));
    set(Sql::partOfMessage, parts(" LEFT JOIN messages ON (event_content_parts.event_database_identifier = "
                                  "messages.event_database_identifier)"
                                  " WHERE messages.database_identifier = ? AND event_content_part_id = ?"));
    set(Sql::partForObjectIdentifier,
        parts(" WHERE events.client_id = ? AND event_content_parts.event_content_part_id = ?"));
    set(Sql::partForExternalURL, parts(" WHERE event_content_parts.url = ?"));
    set(Sql::partsWithoutURL,
        parts(" WHERE streams.stream_id IS NOT NULL AND event_content_parts.file_path IS NOT NULL AND "
              "event_content_parts.url IS NULL AND (event_content_parts.transfer_status = ? OR "
              "event_content_parts.transfer_status = ?)"));
    set(Sql::incompleteUploads,
        parts(" WHERE event_content_parts.file_path IS NOT NULL AND event_content_parts.url IS NOT NULL AND "
              "event_content_parts.transfer_status = ? LIMIT ?"));
    set(Sql::expiredDownloads, {"", std::string(contentColumns) + "i"});
    set(Sql::incompleteDownloads,
        rankedParts(" WHERE ((url IS NOT NULL) AND (access_expiration > ?)) AND file_path IS NOT NULL AND "
                    "transfer_status = ? AND (purged = 0 OR purged IS NULL) ORDER BY distance_from_eos ASC, "
                    "events.client_seq DESC, events.creator_id DESC LIMIT ?"));
    set(Sql::diskUtilization,
        {"SELECT SUM(event_content_parts.size) FROM event_content_parts WHERE (transfer_status = ? OR "
         "transfer_status = ? OR transfer_status = ?) AND file_path IS NOT NULL AND size IS NOT NULL AND "
         "(purged = 0 OR purged IS NULL)",
         "i"});
    set(Sql::leastRecentlyAccessed,
        parts(" WHERE file_path IS NOT NULL AND transfer_status != ? AND transfer_status != ? AND "
              "last_accessed IS NOT NULL AND (purged = 0 OR purged IS NULL) ORDER BY last_accessed ASC"));
    return texts;
}

}  // namespace zav::bench
