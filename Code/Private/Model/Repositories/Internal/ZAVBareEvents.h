#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVEventFromRow.h"
#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"

namespace zav {
namespace projections {

inline constexpr ZAVStatementText eventMetadata(
    "SELECT object_database_identifier, key, value, typeof(value) = 'blob' FROM ");

/// The statement that selects the content parts of the events whose rows `events` selects.
template <class Text>
[[nodiscard]] constexpr auto selectContentOf(const Text& events) noexcept {
    return contentOfKnownEvents + " FROM event_content_parts WHERE event_database_identifier IN (" + events +
           ") ORDER BY event_database_identifier, event_content_part_id";
}

/// The statement that selects the transient metadata of the events whose rows `events` selects.
template <class Text>
[[nodiscard]] constexpr auto selectMetadataOf(const Text& events) noexcept {
    return eventMetadata + "keyed_values_remote WHERE object_database_identifier IN (" + events +
           ") AND object_type = 'event' AND key_type = 0";
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
    return eventMetadata +
           "events CROSS JOIN keyed_values_remote ON object_database_identifier = events.database_identifier"
           " AND object_type = 'event' AND key_type = 0" +
           condition;
}

}  // namespace projections

/// Events that were read without their metadata and content, which are read for all of them at once.
class ZAVBareEvents {
public:
    explicit ZAVBareEvents(std::size_t count) { events_.reserve(count); }

    /// @param event outlives this.
    /// @param hasSequence whether there is one in the row: the record cannot tell.
    void add(ZAVEvent& event, bool hasSequence);

    /// Gives the events their content and metadata, with three statements at most, however many events there
    /// are. They are the same records then as `ZAVEventRepository::objectFromResultSet` makes. Events whose
    /// rows stand together, as those do that came in one go, are found by that and not by the statements.
    /// @param contentStatement selects the content of these events, and perhaps of others.
    /// @param metadataStatement the same of their metadata.
    /// @param values those of both statements.
    /// @return whether all could be read; if not, the reason is in `error`.
    template <class... Values>
    [[nodiscard]] bool readContent(FMDatabase& database, ZAVSQL contentStatement, ZAVSQL metadataStatement,
                                   ZAVError* error, const Values&... values) {
        sortByRow();
        if (rowsStandTogether()) {
            return readByRows(database, error);
        }
        const auto isAny = isAnyMetadata(database, error);
        return isAny && read(database, contentStatement,
                             *isAny ? std::optional(metadataStatement) : std::nullopt, error, values...);
    }

private:
    struct Event {
        ZAVDatabaseIdentifier row;
        ZAVEvent* record;
        ZAVEventOfContent identity;
        std::vector<std::shared_ptr<ZAVTContent>> parts{};
        ZAVDictionary metadata{};
    };

    void sortByRow();
    [[nodiscard]] bool rowsStandTogether() const noexcept;
    [[nodiscard]] bool readByRows(FMDatabase& database, ZAVError* error);
    [[nodiscard]] std::optional<bool> isAnyMetadata(FMDatabase& database, ZAVError* error) const;
    [[nodiscard]] Event* eventInColumn(const FMResultSet& row, int column) noexcept;
    void takePart(const FMResultSet& row);
    void takeMetadata(const FMResultSet& row);

    /// @param metadataStatement none when there is no metadata.
    template <class... Values>
    [[nodiscard]] bool read(FMDatabase& database, ZAVSQL contentStatement,
                            const std::optional<ZAVSQL>& metadataStatement, ZAVError* error,
                            const Values&... values) {
        const auto addPart = [this](const FMResultSet& row) { takePart(row); };
        const auto addMetadata = [this](const FMResultSet& row) { takeMetadata(row); };
        if (!visitRows(database, error, contentStatement, addPart, values...) ||
            (metadataStatement && !visitRows(database, error, *metadataStatement, addMetadata, values...))) {
            return false;
        }
        complete();
        return true;
    }
    void complete();

    std::vector<Event> events_;
};

}  // namespace zav
