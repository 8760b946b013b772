#include <algorithm>
#include <string_view>
#include <utility>

#include <ZAVEventRepository/ZAVEventMapperColumns.h>
#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Private/Model/Repositories/Internal/ZAVDistinctRows.h"

#include <ZAVEventRepository/ZAVSyncedChangeType.h>

#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Private/Model/Repositories/Internal/ZAVRecordCast.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryOperation.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {
namespace {

constexpr auto everyEvent = [](const ZAVEvent&) { return true; };

/// The reading body of a set: those events of a query that `belongs` accepts. `error` is the caller's own
/// out-parameter, for the mapper. A mapper that answers null fails the operation.
template <class Belongs, class... Values>
bool readEvents(const ZAVEventRepository& repository, std::optional<ZAVSet<ZAVEvent>>& result,
                ZAVError& outError, ZAVError* error, const Belongs& belongs, std::string_view statement,
                const Values&... values) {
    auto rows = repository.database().executeBoundedQuery(statement, values...);
    if (!rows) {
        outError = repository.database().lastError();
        return false;
    }
    ZAVSet<ZAVEvent> events;
    ZAVDistinctRows seen;
    while (rows->nextWithError(&outError)) {
        auto event = repository.objectFromResultSet(*rows, error);
        if (event == nullptr) {
            return false;
        }
        // A join, or a damaged table, may yield an event more than once. It counts once.
        const ZAVDatabaseIdentifier row = event->databaseIdentifier();
        if ((row == ZAVDatabaseIdentifierNotSet || seen.insert(row)) && belongs(*event)) {
            events.append(std::move(event));
        }
    }
    if (outError) {
        return false;
    }
    result = std::move(events);
    return true;
}

/// The reading body of a single event.
template <class... Values>
bool readEvent(const ZAVEventRepository& repository, std::shared_ptr<ZAVEvent>& result, ZAVError& outError,
               ZAVError* error, std::string_view statement, const Values&... values) {
    return readFirstRow(
        repository.database(), result, outError,
        [&](const FMResultSet& row) { return repository.objectFromResultSet(row, error); }, statement,
        values...);
}

/// A message can be sent when it has content parts and each has been transferred; any other event always can.
/// A part that only the wire knows, as an overriding mapper may return it, has no transfer that could be
/// complete.
bool isComplete(const ZAVEvent& event) {
    if (event.type() != EventType_MESSAGE) {
        return true;
    }
    const auto& content = event.content();
    return content && !content->empty() &&
           std::all_of(content->begin(), content->end(), [](const auto& element) {
               const auto* const part = ZAVRecordCast<const ZAVEventContent>(element.get());
               return part != nullptr && part->transferStatus() == ZAVContentTransferComplete;
           });
}

}  // namespace

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::allEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository allEvents:]",
                                                      "fetching publishable events",
                                                      "failed to fetch publishable events with %@"};
    static constexpr auto statement = projections::selectEvents("");
    std::optional<ZAVSet<ZAVEvent>> events;
    operation.run(*this, error, [&](ZAVError& outError) {
        return readEvents(*this, events, outError, error, everyEvent, statement);
    });
    return events;
}

std::size_t ZAVEventRepository::countOfEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository countOfEvents:]",
                                                      "fetching syncable change count",
                                                      "failed to fetch events with %@"};
    std::size_t count = 0;
    operation.run(*this, error, [&](ZAVError& outError) {
        auto rows = database().executeBoundedQuery("SELECT COUNT(*) FROM events");
        if (!rows) {
            outError = database().lastError();
            return false;
        }
        rows->nextWithError(&outError);
        if (outError) {
            return false;
        }
        count = static_cast<std::size_t>(rows->intForColumnIndex(0));
        return true;
    });
    return count;
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::publishableEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository publishableEvents:]",
                                                      "fetching publishable events",
                                                      "failed to fetch publishable events with %@"};
    static constexpr auto statement =
        projections::selectEvents(" WHERE events.seq IS NULL AND event_stream_id IS NOT NULL");
    std::optional<ZAVSet<ZAVEvent>> events;
    operation.run(*this, error, [&](ZAVError& outError) {
        return readEvents(*this, events, outError, error, isComplete, statement);
    });
    return events;
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::unpublishableEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository unpublishableEvents:]",
                                                      "fetching unpublishable events",
                                                      "failed to fetch unpublishable events with %@"};
    static constexpr auto statement =
        projections::selectEvents(" WHERE events.seq IS NULL AND event_stream_id IS NULL");
    std::optional<ZAVSet<ZAVEvent>> events;
    operation.run(*this, error, [&](ZAVError& outError) {
        return readEvents(*this, events, outError, error, everyEvent, statement);
    });
    return events;
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::unprocessedEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository unprocessedEvents:]",
                                                      "fetching unprocessed events",
                                                      "failed to fetch unprocessed events with %@"};
    static constexpr auto statement =
        projections::event + ", synced_changes.*" + projections::eventSource +
        " LEFT JOIN synced_changes ON (events.database_identifier = row_identifier)"
        " WHERE synced_changes.table_name = ? AND change_type = ?";
    std::optional<ZAVSet<ZAVEvent>> events;
    operation.run(*this, error, [&](ZAVError& outError) {
        return readEvents(*this, events, outError, error, everyEvent, statement,
                          ZAVSyncedChangeTableNameEvents, ZAVSyncedChangeTypeInsert);
    });
    return events;
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::eventsFromRevivedStreamWithStreamDatabaseIdentifier(
    ZAVDatabaseIdentifier streamDatabaseIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventsFromRevivedStreamWithStreamDatabaseIdentifier:error:]",
        "fetching events for revived stream (streamDatabaseIdentifier=%lld)",
        "failed to fetch events for revived stream (streamDatabaseIdentifier=%lld) with %@"};
    static constexpr auto statement = projections::selectEvents(
        " WHERE events.seq IS NOT NULL AND streams.database_identifier = ?"
        " ORDER BY events.preceding_seq, events.creator_id, events.client_seq");
    std::optional<ZAVSet<ZAVEvent>> events;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return readEvents(*this, events, outError, error, everyEvent, statement,
                              streamDatabaseIdentifier);
        },
        streamDatabaseIdentifier);
    return events;
}

std::optional<ZAVSet<ZAVEvent>> ZAVEventRepository::postedAndProcessedEvents(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository postedAndProcessedEvents:]",
                                                      "fetching posted and processed events",
                                                      "failed to fetch posted and processed events with %@"};
    static constexpr auto statement = projections::selectEvents(" WHERE events.seq IS NOT NULL");
    std::optional<ZAVSet<ZAVEvent>> events;
    operation.run(*this, error, [&](ZAVError& outError) {
        return readEvents(*this, events, outError, error, everyEvent, statement);
    });
    return events;
}

std::shared_ptr<ZAVEvent> ZAVEventRepository::eventWithSeq(ZAVSequence seq, const ZAVUUID& streamIdentifier,
                                                           ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventWithSeq:streamIdentifier:error:]",
        "fetching event by seq:%d and stream identifier:%@",
        "failed to fetch event by seq:%d and stream identifier:%@ with %@"};
    static constexpr auto statement =
        projections::selectEvents(" WHERE events.seq = ? AND event_stream_id = ?");
    const ZAVUUID stream = streamIdentifier;
    std::shared_ptr<ZAVEvent> event;
    operation.run(
        *this, error,
        [&](ZAVError& outError) { return readEvent(*this, event, outError, error, statement, seq, stream); },
        seq, stream);
    return event;
}

std::shared_ptr<ZAVEvent> ZAVEventRepository::eventForDatabaseIdentifier(
    ZAVDatabaseIdentifier databaseIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventForDatabaseIdentifier:error:]",
        "fetching event for database identifier:%lld",
        "failed to fetch event for database identifier:%lld with %@"};
    static constexpr auto statement = projections::selectEvents(" WHERE events.database_identifier = ?");
    std::shared_ptr<ZAVEvent> event;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return readEvent(*this, event, outError, error, statement, databaseIdentifier);
        },
        databaseIdentifier);
    return event;
}

}  // namespace zav
