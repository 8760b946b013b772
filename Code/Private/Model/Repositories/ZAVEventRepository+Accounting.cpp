#include <cstdint>
#include <limits>

#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryOperation.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {
namespace {

/// The contract of the two accounting queries: they are judged by what `attemptBlock` returns, not by the
/// error cell, and fill the caller's out-parameter before the error line is written.
template <class UnitOfWork, class... LogArguments>
void account(const ZAVRepositoryOperation<LogArguments...>& operation, const ZAVEventRepository& repository,
             ZAVError* error, const UnitOfWork& unitOfWork, const LogArguments&... arguments) {
    ZAVError outError;
    operation.announce(arguments...);
    if (!repository.attemptBlock([&] { return unitOfWork(outError); })) {
        ZAVStoreError(error, outError);
        operation.reportFailure(arguments..., outError);
    }
}

}  // namespace

bool ZAVEventRepository::persistEventContentUpdate(const ZAVEventContent& eventContent,
                                                   ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVEventContent> operation{
        "-[ZAVEventRepository persistEventContentUpdate:error:]",
        "persisting event content update for eventContent=%@",
        "failed persisting event content update for eventContent=%@ with %@"};
    operation.announce(eventContent);
    if (eventContent.eventDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
        throw NSInternalInconsistencyException(ZAVStringWithFormat(
            "Failed to persist event content update for event content that hasn't been persisted "
            "before; eventContent=%@",
            eventContent));
    }
    return operation.attempt(
        *this, error,
        [&](ZAVError& outError) {
            return runUpdate(
                database(), &outError,
                "UPDATE event_content_parts SET access_expiration = ?, url = ?, size = ?, transfer_status = ?, "
                "file_path = ?, last_accessed = ?, purged = ? WHERE event_content_part_id = ? AND "
                "event_database_identifier = ?",
                eventContent.externalContentURLExpiration(), eventContent.external_url(), eventContent.size(),
                eventContent.transferStatus(),
                eventContent.fileURL() ? std::optional(eventContent.fileURL()->relativePath()) : std::nullopt,
                eventContent.lastAccessed(), eventContent.isPurged(), eventContent.index(),
                eventContent.eventDatabaseIdentifier());
        },
        eventContent);
}

ZAVSize ZAVEventRepository::totalDiskUtilizationOfEventContentPartsWithError(ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository totalDiskUtilizationOfEventContentPartsWithError:]",
        "Calculating total disk utilization of all the event content parts.",
        "Failed calculating total disk utilization of all the event content parts with %@"};
    ZAVSize total = std::numeric_limits<ZAVSize>::max();
    account(operation, *this, error, [&](ZAVError& outError) {
        auto rows = runQuery(
            database(), &outError,
            "SELECT SUM(event_content_parts.size) FROM event_content_parts WHERE (transfer_status = ? OR "
            "transfer_status = ? OR transfer_status = ?) AND file_path IS NOT NULL AND size IS NOT NULL AND "
            "(purged = 0 OR purged IS NULL)",
            ZAVContentTransferAwaitingUpload, ZAVContentTransferUploading, ZAVContentTransferComplete);
        if (!rows) {
            return false;
        }
        if (rows->next()) {
            // Read as 32 bits and widened with its sign: a sum that does not fit comes out as another number.
            total = static_cast<ZAVSize>(std::int64_t{rows->intForColumnIndex(0)});
        }
        return true;
    });
    return total;
}

std::optional<ZAVSet<ZAVEventContent>> ZAVEventRepository::leastRecentlyAccessedEventContentPartsForSize(
    ZAVSize totalSizeInBytes, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVSize> operation{
        "-[ZAVEventRepository leastRecentlyAccessedEventContentPartsForSize:error:]",
        "Collecting least recently accessed event content parts with external content with total size summing up to "
        "%lu byte(s).",
        "Failed collecting least recently accessed event content parts with external content with total size summing "
        "up to %lu byte(s) with %@"};
    static constexpr auto statement = projections::selectContent(
        " WHERE file_path IS NOT NULL AND transfer_status != ? AND transfer_status != ? AND last_accessed IS NOT NULL "
        "AND (purged = 0 OR purged IS NULL) ORDER BY last_accessed ASC");
    std::optional<ZAVSet<ZAVEventContent>> contents;
    account(
        operation, *this, error,
        [&](ZAVError& outError) {
            auto rows = runQuery(database(), &outError, statement, ZAVContentTransferAwaitingUpload,
                                 ZAVContentTransferUploading);
            if (!rows) {
                return false;
            }
            contents.emplace();
            ZAVSize sum = 0;
            while (sum <= totalSizeInBytes && rows->nextWithError(&outError)) {
                // Each row is mapped twice: once for its size, once for the record that is handed out.
                sum += static_cast<ZAVSize>(eventContentFromResultSet(*rows)->size());
                contents->append(eventContentFromResultSet(*rows));
            }
            if (outError || !rows->closeWithError(&outError)) {
                contents.reset();
                return false;
            }
            return true;
        },
        totalSizeInBytes);
    return contents;
}

}  // namespace zav
