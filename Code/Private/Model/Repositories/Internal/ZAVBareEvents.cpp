#include "Private/Model/Repositories/Internal/ZAVBareEvents.h"

#include <algorithm>
#include <cstdint>
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

bool ZAVBareEvents::readByRows(FMDatabase& database, ZAVError* error) {
    if (events_.empty()) {
        return true;
    }
    const ZAVDatabaseIdentifier first = events_.front().row;
    const ZAVDatabaseIdentifier last = events_.back().row;
    return read(database, contentOfRows, ZAVSQL(metadataOfRows), error, first, last);
}

/// Many stores have none, and then it need not be looked for in the place of each event.
std::optional<bool> ZAVBareEvents::isAnyMetadata(FMDatabase& database, ZAVError* error) const {
    return readNumber<bool>(database, error, anyMetadataOfRows, events_.front().row, events_.back().row);
}

/// None when the row belongs to an event that is not one of these.
ZAVBareEvents::Event* ZAVBareEvents::eventInColumn(const FMResultSet& row, int column) noexcept {
    const ZAVDatabaseIdentifier wanted = row.longLongIntForColumnIndex(column);
    const auto found =
        std::lower_bound(events_.begin(), events_.end(), wanted,
                         [](const Event& one, ZAVDatabaseIdentifier other) { return one.row < other; });
    return found == events_.end() || found->row != wanted ? nullptr : &*found;
}

void ZAVBareEvents::takePart(const FMResultSet& row) {
    if (Event* const event =
            eventInColumn(row, ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier)) {
        event->parts.push_back(ZAVContentFromRow(row, event->identity));
    }
}

void ZAVBareEvents::takeMetadata(const FMResultSet& row) {
    if (Event* const event = eventInColumn(row, 0)) {
        event->metadata.set(row.stringForColumnIndex(1).value_or(std::string()),
                            ZAVMetadataValueFromRow(row, 2));
    }
}

void ZAVBareEvents::complete() {
    for (Event& event : events_) {
        event.record->set_transient_metadata(std::move(event.metadata));
        ZAVSetContent(*event.record, std::move(event.parts));
    }
}

}  // namespace zav
