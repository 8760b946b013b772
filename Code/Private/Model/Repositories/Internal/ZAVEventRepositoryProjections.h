#pragma once

#include <cstddef>

#include "Private/Model/Repositories/Internal/ZAVStatementText.h"

namespace zav::projections {

inline constexpr ZAVStatementText eventColumnsBeforeTheStreams(
    "SELECT events.client_id, events.client_seq, events.creator_id, events.member_id, events.preceding_seq, "
    "events.stream_database_identifier, events.subtype, events.target_seq, events.timestamp, events.type, "
    "events.seq AS event_seq, events.database_identifier AS event_database_identifier, ");

/// The select list of every event query, as `ZAVEventMapperColumn` counts it.
inline constexpr auto event =
    eventColumnsBeforeTheStreams +
    "streams.stream_id AS event_stream_id, streams.seq AS streams_seq, events.creator_name";

/// The same for events that are all of the stream in row ?1, which is looked up once for all of them. The
/// sequence of the stream, which is no field of an event, is left out.
inline constexpr auto eventOfOneStream =
    eventColumnsBeforeTheStreams +
    "(SELECT stream_id FROM streams WHERE database_identifier = ?1), NULL, events.creator_name FROM events";

/// Events with their streams. An event whose stream is missing is still a row.
inline constexpr ZAVStatementText eventSource(
    " FROM events LEFT JOIN streams ON (events.stream_database_identifier = streams.database_identifier)");

/// The select list of content parts whose events are at hand.
inline constexpr ZAVStatementText contentOfKnownEvents(
    "SELECT event_content_parts.event_content_part_id, event_content_parts.event_database_identifier, "
    "event_content_parts.type, event_content_parts.value, event_content_parts.access_expiration, "
    "event_content_parts.url, event_content_parts.size, event_content_parts.transfer_status, "
    "event_content_parts.file_path, event_content_parts.last_accessed, event_content_parts.purged");

/// The select list of every other content part query, as `ZAVEventMapperEventContentPartsColumn` counts it.
inline constexpr auto content = contentOfKnownEvents + ", events.client_id, events.seq, streams.stream_id";

/// Content parts with their events and those events' streams. A part whose event is missing is still a row.
inline constexpr ZAVStatementText contentSource(
    " FROM event_content_parts"
    " LEFT JOIN events ON (events.database_identifier = event_content_parts.event_database_identifier)"
    " LEFT JOIN streams ON (streams.database_identifier = events.stream_database_identifier)");

/// The statement that selects the events which `tail` names: " WHERE ...", or nothing for all of them.
template <std::size_t TailSize>
// NOLINTNEXTLINE(modernize-avoid-c-arrays): a literal is one
[[nodiscard]] constexpr auto selectEvents(const char (&tail)[TailSize]) noexcept {
    return event + eventSource + tail;
}

/// The sequenced events of the stream in a row, in the order in which a state is rebuilt from them.
inline constexpr auto replayed = selectEvents(
    " WHERE events.seq IS NOT NULL AND streams.database_identifier = ?"
    " ORDER BY events.preceding_seq, events.creator_id, events.client_seq");

/// The statement that selects the content parts which `tail` names.
template <std::size_t TailSize>
// NOLINTNEXTLINE(modernize-avoid-c-arrays)
[[nodiscard]] constexpr auto selectContent(const char (&tail)[TailSize]) noexcept {
    return content + contentSource + tail;
}

}  // namespace zav::projections
