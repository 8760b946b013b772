#pragma once

#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"

namespace zav {

/// The event on the current row of an event query, without its metadata and content.
[[nodiscard]] std::shared_ptr<ZAVEvent> ZAVBareEventFromRow(const FMResultSet& row);

/// A metadata value on the current row, whose `value` is followed by whether it is bytes: texts are the bytes
/// that encode them.
[[nodiscard]] ZAVDictionaryValue ZAVMetadataValueFromRow(const FMResultSet& row, int valueColumn);

/// Has the content of an event consist of these parts; none is no content.
void ZAVSetContent(ZAVEvent& event, std::vector<std::shared_ptr<ZAVTContent>> parts);

namespace projections {

/// The statement that selects the content parts of the events whose rows `events` selects.
template <class Text>
[[nodiscard]] constexpr auto selectContentOf(const Text& events) noexcept {
    return content + contentSource + " WHERE event_content_parts.event_database_identifier IN (" + events +
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
    return content +
           " FROM events CROSS JOIN event_content_parts"
           " ON event_content_parts.event_database_identifier = events.database_identifier"
           " LEFT JOIN streams ON (streams.database_identifier = events.stream_database_identifier)" +
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
        std::vector<std::shared_ptr<ZAVTContent>> parts;
        ZAVDictionary metadata;
    };
    std::map<ZAVDatabaseIdentifier, Belongings> belongings;
    ZAVError failure;
    {
        auto parts = runQuery(repository.database(), &failure, contentStatement, values...);
        while (parts && parts->nextWithError(&failure)) {
            auto part = repository.eventContentFromResultSet(*parts);
            const ZAVDatabaseIdentifier event = part->eventDatabaseIdentifier();
            belongings[event].parts.push_back(std::move(part));
        }
    }
    if (!failure) {
        auto entries = runQuery(repository.database(), &failure, metadataStatement, values...);
        while (entries && entries->nextWithError(&failure)) {
            belongings[entries->longLongIntForColumnIndex(0)].metadata.set(
                entries->stringForColumnIndex(1).value_or(std::string()),
                ZAVMetadataValueFromRow(*entries, 2));
        }
    }
    if (failure) {
        ZAVStoreError(error, failure);
        return false;
    }
    for (const auto& event : events) {
        Belongings& own = belongings[event->databaseIdentifier()];
        event->set_transient_metadata(std::move(own.metadata));
        ZAVSetContent(*event, std::move(own.parts));
    }
    return true;
}

}  // namespace zav
