#include "Private/Model/Repositories/Internal/ZAVBareEvents.h"

#include <algorithm>
#include <string>
#include <utility>

#include <ZAVEventRepository/ZAVEventMapperColumns.h>

namespace zav {
namespace {

constexpr auto contentOfRows = projections::contentOfKnownEvents +
                               " FROM event_content_parts WHERE event_database_identifier BETWEEN ? AND ?"
                               " ORDER BY event_database_identifier, event_content_part_id";
constexpr auto metadataOfRows = projections::eventMetadata +
                                "keyed_values_remote WHERE object_database_identifier BETWEEN ? AND ?"
                                " AND object_type = 'event' AND key_type = 0";
constexpr ZAVStatementText anyMetadataOfRows(
    "SELECT EXISTS (SELECT 1 FROM keyed_values_remote WHERE object_database_identifier BETWEEN ? AND ?)");

}  // namespace

void ZAVBareEvents::add(ZAVEvent& event, bool hasSequence) {
    events_.push_back({event.databaseIdentifier(),
                       &event,
                       {ZAVUUIDFromData(event.client_id()), ZAVUUIDFromData(event.stream_id()),
                        hasSequence ? event.seq() : ZAVSequenceNotSet}});
}

void ZAVBareEvents::sortByRow() {
    const auto isBefore = [](const Event& one, const Event& other) { return one.row < other.row; };
    if (!std::is_sorted(events_.begin(), events_.end(), isBefore)) {
        std::sort(events_.begin(), events_.end(), isBefore);
    }
}

/// A few rows of others between them cost less than to look for the rows of each.
bool ZAVBareEvents::rowsStandTogether() const noexcept {
    return events_.empty() ||
           static_cast<std::uint64_t>(events_.back().row) - static_cast<std::uint64_t>(events_.front().row) <
               events_.size() + events_.size() / 4;
}

bool ZAVBareEvents::completeByRows(FMDatabase& database, ZAVError* error) {
    if (events_.empty()) {
        return true;
    }
    const ZAVDatabaseIdentifier first = events_.front().row;
    const ZAVDatabaseIdentifier last = events_.back().row;
    ZAVError failure;
    takeContent(runQuery(database, &failure, contentOfRows, first, last), failure);
    if (!failure) {
        takeMetadata(runQuery(database, &failure, metadataOfRows, first, last), failure);
    }
    return finish(failure, error);
}

/// Many stores have none, and then it need not be looked for in the place of each event.
bool ZAVBareEvents::anyMayHaveMetadata(FMDatabase& database, ZAVError& failure) const {
    return readNumber(database, &failure, anyMetadataOfRows, events_.front().row, events_.back().row)
               .value_or(0) != 0;
}

/// None when the row belongs to an event that is not one of these.
ZAVBareEvents::Event* ZAVBareEvents::eventInColumn(const FMResultSet& row, int column) noexcept {
    const ZAVDatabaseIdentifier wanted = row.longLongIntForColumnIndex(column);
    const auto found =
        std::lower_bound(events_.begin(), events_.end(), wanted,
                         [](const Event& one, ZAVDatabaseIdentifier other) { return one.row < other; });
    return found == events_.end() || found->row != wanted ? nullptr : &*found;
}

void ZAVBareEvents::takeContent(std::optional<FMResultSet> rows, ZAVError& failure) {
    while (rows && rows->nextWithError(&failure)) {
        if (Event* const event =
                eventInColumn(*rows, ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier)) {
            event->parts.push_back(ZAVContentFromRow(*rows, event->identity));
        }
    }
}

void ZAVBareEvents::takeMetadata(std::optional<FMResultSet> rows, ZAVError& failure) {
    while (rows && rows->nextWithError(&failure)) {
        if (Event* const event = eventInColumn(*rows, 0)) {
            event->metadata.set(rows->stringForColumnIndex(1).value_or(std::string()),
                                ZAVMetadataValueFromRow(*rows, 2));
        }
    }
}

bool ZAVBareEvents::finish(const ZAVError& failure, ZAVError* error) {
    if (failure) {
        ZAVStoreError(error, failure);
        return false;
    }
    for (Event& event : events_) {
        event.record->set_transient_metadata(std::move(event.metadata));
        ZAVSetContent(*event.record, std::move(event.parts));
    }
    return true;
}

}  // namespace zav
