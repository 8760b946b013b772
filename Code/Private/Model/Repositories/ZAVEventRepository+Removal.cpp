#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVSQLVector.h>
#include <ZAVEventRepository/ZAVSyncedChangeType.h>

#include "Private/Model/Repositories/Internal/ZAVDistinctRows.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryOperation.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {
namespace {

/// How many row identifiers go with one statement.
constexpr std::size_t vectorLimit = 500;

/// The rows of events, each once, in the set's order.
std::vector<ZAVDatabaseIdentifier> rowsOf(const ZAVSet<ZAVEvent>& events) {
    std::vector<ZAVDatabaseIdentifier> rows;
    rows.reserve(events.size());
    ZAVDistinctRows seen;
    for (const auto& event : events) {
        if (seen.insert(event->databaseIdentifier())) {
            rows.push_back(event->databaseIdentifier());
        }
    }
    return rows;
}

}  // namespace

bool ZAVEventRepository::deleteUnprocessedEvents(const ZAVSet<ZAVEvent>& events, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository deleteUnprocessedEvents:error:]",
                                                      "failed to delete unprocessed events with %@"};
    const std::vector<ZAVDatabaseIdentifier> rows = rowsOf(events);
    operation.announceAs("deleting unprocessed events with database identifiers: %@", rows);
    return operation.attempt(*this, error, [&](ZAVError& outError) {
        const auto vectors = ZAVSQLVector::arrayOfVectorsWithCollection(rows, vectorLimit);
        for (const ZAVSQLVector& vector : vectors) {
            const std::string statement = ZAVStringWithFormat(
                "DELETE FROM synced_changes WHERE table_name = '%@' AND row_identifier IN %@",
                ZAVSyncedChangeTableNameEvents, vector.stringRepresentation());
            if (!database().executeBoundedUpdateWithArgumentsInArray(statement, vector.arguments())) {
                outError = database().lastError();
                return false;
            }
        }
        return !vectors.empty();
    });
}

bool ZAVEventRepository::deleteEvents(const ZAVSet<ZAVEvent>& events, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{"-[ZAVEventRepository deleteEvents:error:]",
                                                      "deleting events", "failed to delete events with %@"};
    operation.announce();
    // A set of its own: whoever observes the statements may change the caller's.
    return operation.attempt(*this, error, [this, walked = events](ZAVError& outError) {
        return !walked.empty() && std::all_of(walked.begin(), walked.end(), [&](const auto& event) {
            return runUpdate(database(), &outError, "DELETE FROM events WHERE database_identifier = ?",
                             event->databaseIdentifier());
        });
    });
}

bool ZAVEventRepository::persistTombstoneEventWithTargetSeq(ZAVSequence targetSeq,
                                                            ZAVDatabaseIdentifier streamDatabaseIdentifier,
                                                            ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVSequence, ZAVDatabaseIdentifier> operation{
        "-[ZAVEventRepository persistTombstoneEventWithTargetSeq:streamDatabaseIdentifier:error:]",
        "tombstoning event with seq:%d and streamDBID:%llu",
        "failed to tombstone the event with seq:%d and streamDBID:%llu with %@"};
    return operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return runUpdate(database(), &outError,
                             "UPDATE events SET type = ? WHERE seq = ? AND stream_database_identifier = ?",
                             EventType_TOMBSTONE, targetSeq, streamDatabaseIdentifier);
        },
        targetSeq, streamDatabaseIdentifier);
}

}  // namespace zav
