#pragma once

#include <string_view>

namespace zav::projections {

/// The select list of every event query, as `ZAVEventMapperColumn` counts it.
inline constexpr std::string_view event =
    "SELECT events.client_id, events.client_seq, events.creator_id, events.member_id, events.preceding_seq, "
    "events.stream_database_identifier, events.subtype, events.target_seq, events.timestamp, events.type, "
    "events.seq AS event_seq, events.database_identifier AS event_database_identifier, "
    "streams.stream_id AS event_stream_id, streams.seq AS streams_seq, events.creator_name";

/// Events with their streams. An event whose stream is missing is still a row.
inline constexpr std::string_view eventSource =
    " FROM events LEFT JOIN streams ON (events.stream_database_identifier = streams.database_identifier)";

/// The select list of every content part query, as `ZAVEventMapperEventContentPartsColumn` counts it.
inline constexpr std::string_view content =
    "SELECT event_content_parts.event_content_part_id, event_content_parts.event_database_identifier, "
    "event_content_parts.type, event_content_parts.value, event_content_parts.access_expiration, "
    "event_content_parts.url, event_content_parts.size, event_content_parts.transfer_status, "
    "event_content_parts.file_path, event_content_parts.last_accessed, event_content_parts.purged, "
    "events.client_id, events.seq, streams.stream_id";

/// Content parts with their events and those events' streams. A part whose event is missing is still a row.
inline constexpr std::string_view contentSource =
    " FROM event_content_parts"
    " LEFT JOIN events ON (events.database_identifier = event_content_parts.event_database_identifier)"
    " LEFT JOIN streams ON (streams.database_identifier = events.stream_database_identifier)";

}  // namespace zav::projections
