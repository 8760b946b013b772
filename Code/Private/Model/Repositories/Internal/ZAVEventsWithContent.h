#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVEventMapperColumns.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"

namespace zav {

/// The event on the current row of an event query, without its metadata and content.
[[nodiscard]] std::shared_ptr<ZAVEvent> ZAVBareEventFromRow(const FMResultSet& row);

/// A metadata value on the current row, whose `value` is followed by whether it is bytes: texts are the bytes
/// that encode them.
[[nodiscard]] ZAVDictionaryValue ZAVMetadataValueFromRow(const FMResultSet& row, int valueColumn);

/// The content part on the current row of a content part query, whose columns of the event's identifier and
/// of its stream's are not read: they are given.
[[nodiscard]] std::shared_ptr<ZAVEventContent> ZAVContentFromRow(const FMResultSet& row,
                                                                 const std::optional<ZAVUUID>& clientID,
                                                                 const std::optional<ZAVUUID>& streamUUID);

/// Has the content of an event consist of these parts; none is no content.
void ZAVSetContent(ZAVEvent& event, std::vector<std::shared_ptr<ZAVTContent>> parts);

namespace projections {

/// The statement that selects the content parts of the events whose rows `events` selects.
template <class Text>
[[nodiscard]] constexpr auto selectContentOf(const Text& events) noexcept {
    return contentOfKnownEvents +
           " FROM event_content_parts CROSS JOIN events"
           " ON events.database_identifier = event_content_parts.event_database_identifier"
           " WHERE event_content_parts.event_database_identifier IN (" +
           events +
           ") ORDER BY event_content_parts.event_database_identifier, event_content_parts.event_content_part_id";
}

/// The statement that selects the transient metadata of the events whose rows `events` selects.
template <class Text>
[[nodiscard]] constexpr auto selectMetadataOf(const Text& events) noexcept {
    return ZAVStatementText(
               "SELECT object_database_identifier, key, value, typeof(value) = 'blob' FROM keyed_values_remote"
               " WHERE object_database_identifier IN (") +
           events + ") AND object_type = 'event' AND key_type = 0";
}

// The same for events that a condition selects, " WHERE ..." on their table: where one index leads to all of
// them, it is gone through, and no list of rows is made first. The order is that of such an index.

/// The statement that selects the content parts of the events that `condition` selects.
template <class Text>
[[nodiscard]] constexpr auto selectContentOfEvents(const Text& condition) noexcept {
    return contentOfKnownEvents +
           " FROM events CROSS JOIN event_content_parts"
           " ON event_content_parts.event_database_identifier = events.database_identifier" +
           condition +
           " ORDER BY events.seq, events.database_identifier, event_content_parts.event_content_part_id";
}

/// The statement that selects the transient metadata of the events that `condition` selects.
template <class Text>
[[nodiscard]] constexpr auto selectMetadataOfEvents(const Text& condition) noexcept {
    return ZAVStatementText(
               "SELECT object_database_identifier, key, value, typeof(value) = 'blob' FROM events"
               " CROSS JOIN keyed_values_remote ON object_database_identifier = events.database_identifier"
               " AND object_type = 'event' AND key_type = 0") +
           condition;
}

}  // namespace projections

/// Gives events that were read without them their content and metadata, with two statements, however many
/// events there are. They are the same records then as `ZAVEventRepository::objectFromResultSet` makes.
/// @param values those of both statements.
/// @return whether all could be read; if not, the reason is in `error`.
template <class... Values>
bool ZAVReadContentAndMetadata(const ZAVEventRepository& repository,
                               const std::vector<std::shared_ptr<ZAVEvent>>& events, ZAVSQL contentStatement,
                               ZAVSQL metadataStatement, ZAVError* error, const Values&... values) {
    struct Belongings {
        ZAVEvent* event;
        std::optional<ZAVUUID> clientID;
        std::optional<ZAVUUID> streamUUID;
        std::vector<std::shared_ptr<ZAVTContent>> parts;
        ZAVDictionary metadata;
    };
    std::unordered_map<ZAVDatabaseIdentifier, Belongings> belongings;
    belongings.reserve(events.size());
    for (const auto& event : events) {
        belongings.emplace(event->databaseIdentifier(), Belongings{event.get(),
                                                                   ZAVUUIDFromData(event->client_id()),
                                                                   ZAVUUIDFromData(event->stream_id()),
                                                                   {},
                                                                   {}});
    }
    const auto belongingsInColumn = [&](const FMResultSet& row, int column) -> Belongings* {
        const auto found = belongings.find(row.longLongIntForColumnIndex(column));
        return found == belongings.end() ? nullptr : &found->second;
    };
    ZAVError failure;
    {
        auto parts = runQuery(repository.database(), &failure, contentStatement, values...);
        while (parts && parts->nextWithError(&failure)) {
            Belongings* const own =
                belongingsInColumn(*parts, ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier);
            if (own != nullptr) {
                own->parts.push_back(ZAVContentFromRow(*parts, own->clientID, own->streamUUID));
            }
        }
    }
    if (!failure) {
        auto entries = runQuery(repository.database(), &failure, metadataStatement, values...);
        while (entries && entries->nextWithError(&failure)) {
            if (Belongings* const own = belongingsInColumn(*entries, 0); own != nullptr) {
                own->metadata.set(entries->stringForColumnIndex(1).value_or(std::string()),
                                  ZAVMetadataValueFromRow(*entries, 2));
            }
        }
    }
    if (failure) {
        ZAVStoreError(error, failure);
        return false;
    }
    for (auto& [row, own] : belongings) {
        own.event->set_transient_metadata(std::move(own.metadata));
        ZAVSetContent(*own.event, std::move(own.parts));
    }
    return true;
}

}  // namespace zav
