#include "Store/Internal/ZAVEventRemover.h"

#include <algorithm>
#include <array>
#include <memory>

#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

bool ZAVEventRemover::removeBelongings(ZAVDatabaseIdentifier event, ZAVError* error) const {
    static constexpr std::array<ZAVSQL, 5> removals{
        "DELETE FROM event_content_parts WHERE event_database_identifier = ?",
        "DELETE FROM keyed_values_local WHERE object_database_identifier = ? AND object_type = 'event'",
        "DELETE FROM keyed_values_remote WHERE object_database_identifier = ? AND object_type = 'event'",
        "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier = ?",
        "DELETE FROM messages WHERE event_database_identifier = ?"};
    return std::all_of(removals.begin(), removals.end(), [&](const ZAVSQL& removal) {
        return runUpdate(repositories_.events.database(), error, removal, event);
    });
}

bool ZAVEventRemover::remove(ZAVDatabaseIdentifier event, ZAVError* error) const {
    ZAVSet<ZAVEvent> events;
    events.insert(std::make_shared<ZAVEvent>(event, ZAVDatabaseIdentifierNotSet));
    return removeBelongings(event, error) && repositories_.events.deleteEvents(events, error);
}

bool ZAVEventRemover::makeTombstone(ZAVDatabaseIdentifier event, ZAVSequence seq,
                                    ZAVDatabaseIdentifier stream, ZAVError* error) const {
    return repositories_.events.persistTombstoneEventWithTargetSeq(seq, stream, error) &&
           removeBelongings(event, error);
}

}  // namespace zav
