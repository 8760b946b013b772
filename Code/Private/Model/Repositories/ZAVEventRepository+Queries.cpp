#include <algorithm>
#include <utility>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeType.h>

#include "Private/Model/Repositories/Internal/ZAVDistinctRows.h"
#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryReading.h"

namespace zav {
namespace {

constexpr auto everyEvent = [](const ZAVEvent&) { return true; };

/// Reads those events of a query that `belongs` accepts. A mapper that answers null fails the operation.
template <class Belongs, class Query, class... LogArguments>
std::optional<ZAVSet<ZAVEvent>> readEvents(const ZAVRepositoryOperation<LogArguments...>& operation,
                                           const ZAVEventRepository& repository, ZAVError* error,
                                           const Belongs& belongs, const Query& query,
                                           const LogArguments&... logArguments) {
    ZAVDistinctRows seen;
    const auto append = [&](ZAVSet<ZAVEvent>& events, const FMResultSet& row) {
        auto event = repository.objectFromResultSet(row, error);
        if (event == nullptr) {
            return false;
        }
        // A join, or a damaged table, may yield an event more than once. It counts once.
        const ZAVDatabaseIdentifier identifier = event->databaseIdentifier();
        if ((identifier == ZAVDatabaseIdentifierNotSet || seen.insert(identifier)) && belongs(*event)) {
            events.append(std::move(event));
        }
        return true;
    };
    return readSet<ZAVEvent>(operation, repository, error, query, append, logArguments...);
}

template <class Query, class... LogArguments>
std::shared_ptr<ZAVEvent> readEvent(const ZAVRepositoryOperation<LogArguments...>& operation,
                                    const ZAVEventRepository& repository, ZAVError* error, const Query& query,
                                    const LogArguments&... logArguments) {
    return readFirst(
        operation, repository, error, query,
        [&](const FMResultSet& row) { return repository.objectFromResultSet(row, error); }, logArguments...);
}

/// A message can be sent when it has content parts and each has been transferred; any other event always can.
/// A part that only the wire knows, as an overriding mapper may return it, has no transfer that could be
/// complete.
bool isComplete(const ZAVEvent& event) {
    if (event.type() != EventType_MESSAGE) {
        return true;
    }
    const auto parts = event.contentParts();
    return !parts.empty() && std::all_of(parts.begin(), parts.end(), [](const auto& part) {
        return part != nullptr && part->transferStatus() == ZAVContentTransferComplete;
    });
}

}  // namespace

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::allEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository allEvents:]",
                                                      "fetching publishable events",
                                                      "failed to fetch publishable events with %@"};
    static constexpr auto statement = projections::selectEvents("");
    return readEvents(operation, *this, error, everyEvent, selecting(*this, statement));
}

std::size_t ZAVEventRepository::countOfEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository countOfEvents:]",
                                                      "fetching syncable change count",
                                                      "failed to fetch events with %@"};
    const auto count = [](const FMResultSet& row) {
        return static_cast<std::size_t>(row.intForColumnIndex(0));
    };
    return readFirst(operation, *this, error, selecting(*this, "SELECT COUNT(*) FROM events"), count);
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::publishableEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository publishableEvents:]",
                                                      "fetching publishable events",
                                                      "failed to fetch publishable events with %@"};
    static constexpr auto statement =
        projections::selectEvents(" WHERE events.seq IS NULL AND event_stream_id IS NOT NULL");
    return readEvents(operation, *this, error, isComplete, selecting(*this, statement));
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::unpublishableEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository unpublishableEvents:]",
                                                      "fetching unpublishable events",
                                                      "failed to fetch unpublishable events with %@"};
    static constexpr auto statement =
        projections::selectEvents(" WHERE events.seq IS NULL AND event_stream_id IS NULL");
    return readEvents(operation, *this, error, everyEvent, selecting(*this, statement));
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::unprocessedEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository unprocessedEvents:]",
                                                      "fetching unprocessed events",
                                                      "failed to fetch unprocessed events with %@"};
    static constexpr auto statement =
        projections::event + ", synced_changes.*" + projections::eventSource +
        " LEFT JOIN synced_changes ON (events.database_identifier = row_identifier)"
        " WHERE synced_changes.table_name = ? AND change_type = ?";
    return readEvents(operation, *this, error, everyEvent,
                      selecting(*this, statement, ZAVSyncedChangeTableNameEvents, ZAVSyncedChangeTypeInsert));
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::eventsFromRevivedStreamWithStreamDatabaseIdentifier(
    ZAVDatabaseIdentifier streamDatabaseIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVDatabaseIdentifier> operation{
        "-[ZAVEventRepository eventsFromRevivedStreamWithStreamDatabaseIdentifier:error:]",
        "fetching events for revived stream (streamDatabaseIdentifier=%lld)",
        "failed to fetch events for revived stream (streamDatabaseIdentifier=%lld) with %@"};
    return readEvents(operation, *this, error, everyEvent,
                      selecting(*this, projections::replayed, streamDatabaseIdentifier),
                      streamDatabaseIdentifier);
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::postedAndProcessedEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository postedAndProcessedEvents:]",
                                                      "fetching posted and processed events",
                                                      "failed to fetch posted and processed events with %@"};
    static constexpr auto statement = projections::selectEvents(" WHERE events.seq IS NOT NULL");
    return readEvents(operation, *this, error, everyEvent, selecting(*this, statement));
}

std::shared_ptr<ZAVEvent> ZAVEventRepository::eventWithSeq(ZAVSequence seq, const ZAVUUID& streamIdentifier,
                                                           ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVSequence, ZAVUUID> operation{
        "-[ZAVEventRepository eventWithSeq:streamIdentifier:error:]",
        "fetching event by seq:%d and stream identifier:%@",
        "failed to fetch event by seq:%d and stream identifier:%@ with %@"};
    static constexpr auto statement =
        projections::selectEvents(" WHERE events.seq = ? AND event_stream_id = ?");
    const ZAVUUID stream = streamIdentifier;
    return readEvent(operation, *this, error, selecting(*this, statement, seq, stream), seq, stream);
}

std::shared_ptr<ZAVEvent> ZAVEventRepository::eventForDatabaseIdentifier(
    ZAVDatabaseIdentifier databaseIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVDatabaseIdentifier> operation{
        "-[ZAVEventRepository eventForDatabaseIdentifier:error:]",
        "fetching event for database identifier:%lld",
        "failed to fetch event for database identifier:%lld with %@"};
    static constexpr auto statement = projections::selectEvents(" WHERE events.database_identifier = ?");
    return readEvent(operation, *this, error, selecting(*this, statement, databaseIdentifier),
                     databaseIdentifier);
}

}  // namespace zav
