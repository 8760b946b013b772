#include <cstdint>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryReading.h"

namespace zav {
namespace {

/// Content parts with how far their events are from the end of their streams: what is near is wanted first.
constexpr auto rankedContent =
    projections::content + ", (streams.seq - events.preceding_seq) AS distance_from_eos";

/// The four queues share their texts, which speak of uploads.
constexpr ZAVRepositoryOperation<> queueOperation(std::string_view function) {
    return {function, "fetching event content parts awaiting uploads",
            "failed to fetch event content parts awaiting uploads %@"};
}

/// Reads a queue. `query` is run inside the unit of work, so that "now" is the moment at which the queue is
/// asked.
template <class Query>
std::optional<ZAVSet<ZAVEventContent>> readQueue(const ZAVRepositoryOperation<>& operation,
                                                 const ZAVEventRepository& repository, ZAVError* error,
                                                 const Query& query) {
    return readSet<ZAVEventContent>(operation, repository, error, query,
                                    [&](ZAVSet<ZAVEventContent>& contents, const FMResultSet& row) {
                                        contents.append(repository.eventContentFromResultSet(row));
                                        return true;
                                    });
}

/// The types as text of the statement, in single quotes and otherwise as they are.
std::string quotedList(const std::set<std::string>& types) {
    std::string list;
    for (const std::string& type : types) {
        list += list.empty() ? "'" : ", '";
        list += type;
        list += '\'';
    }
    return list;
}

// The blanks inside these two statements are part of them.
constexpr auto expiredDownloadsOfTypes =
    rankedContent + projections::contentSource +
    " WHERE ((url IS NULL) OR (access_expiration IS NULL) OR (access_expiration <= ?)) AND       "
    "file_path IS NOT NULL AND (purged = 0 OR purged IS NULL) AND       "
    "(transfer_status = ? OR (transfer_status = ? AND event_content_parts.type IN (%@)) OR "
    "(transfer_status = ? AND size <= ?))       "
    "ORDER BY distance_from_eos ASC, events.client_seq DESC, events.creator_id DESC       LIMIT ?";
constexpr auto expiredDownloadsOfAnyType =
    rankedContent + " " + projections::contentSource +
    " WHERE ((url IS NULL) OR (access_expiration IS NULL) OR (access_expiration <= ?)) AND       "
    "file_path IS NOT NULL AND (purged = 0 OR purged IS NULL) AND       "
    "(transfer_status = ? OR transfer_status = ? OR (transfer_status = ? AND size <= ?))      "
    "ORDER BY distance_from_eos ASC, events.client_seq DESC, events.creator_id DESC       LIMIT ?";

}  // namespace

std::optional<ZAVSet<ZAVEventContent>> ZAVEventRepository::eventContentsHavingUnassignedURLsWithError(
    ZAVError* error) const {
    static constexpr auto operation =
        queueOperation("-[ZAVEventRepository eventContentsHavingUnassignedURLsWithError:]");
    static constexpr auto statement = projections::selectContent(
        " WHERE streams.stream_id IS NOT NULL AND event_content_parts.file_path IS NOT NULL AND "
        "event_content_parts.url IS NULL AND (event_content_parts.transfer_status = ? OR "
        "event_content_parts.transfer_status = ?)");
    return readQueue(
        operation, *this, error,
        selecting(*this, statement, ZAVContentTransferAwaitingUpload, ZAVContentTransferUploading));
}

std::optional<ZAVSet<ZAVEventContent>> ZAVEventRepository::eventContentsHavingIncompleteUploadsWithLimit(
    ZAVSize limit, ZAVError* error) const {
    static constexpr auto operation =
        queueOperation("-[ZAVEventRepository eventContentsHavingIncompleteUploadsWithLimit:error:]");
    static constexpr auto statement = projections::selectContent(
        " WHERE event_content_parts.file_path IS NOT NULL AND event_content_parts.url IS NOT NULL AND "
        "event_content_parts.transfer_status = ? LIMIT ?");
    return readQueue(operation, *this, error,
                     selecting(*this, statement, ZAVContentTransferUploading, limit));
}

std::optional<ZAVSet<ZAVEventContent>>
ZAVEventRepository::eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
    const std::optional<std::set<std::string>>& autodownloadMIMETypes, ZAVSize autodownloadMaxSize,
    ZAVSize limit, ZAVError* error) const {
    static constexpr auto operation = queueOperation(
        "-[ZAVEventRepository "
        "eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes:autodownloadMaxSize:limit:error:]");
    return readQueue(operation, *this, error, [&](ZAVError& outError) {
        const std::string ofTypes =
            autodownloadMIMETypes
                ? ZAVStringWithFormat(expiredDownloadsOfTypes, quotedList(*autodownloadMIMETypes))
                : std::string();
        return runQuery(database(), &outError,
                        autodownloadMIMETypes ? ZAVSQL(ofTypes) : ZAVSQL(expiredDownloadsOfAnyType), ZAVNow(),
                        ZAVContentTransferDownloading, ZAVContentTransferReadyForDownload,
                        ZAVContentTransferReadyForDownload, static_cast<std::uint32_t>(autodownloadMaxSize),
                        limit);
    });
}

std::optional<ZAVSet<ZAVEventContent>> ZAVEventRepository::eventContentsHavingIncompleteDownloadsWithLimit(
    ZAVSize limit, ZAVError* error) const {
    static constexpr auto operation =
        queueOperation("-[ZAVEventRepository eventContentsHavingIncompleteDownloadsWithLimit:error:]");
    static constexpr auto statement =
        rankedContent + projections::contentSource +
        " WHERE ((url IS NOT NULL) AND (access_expiration > ?)) AND file_path IS NOT NULL AND "
        "transfer_status = ? AND (purged = 0 OR purged IS NULL) ORDER BY distance_from_eos ASC, "
        "events.client_seq DESC, events.creator_id DESC LIMIT ?";
    return readQueue(operation, *this, error, [&](ZAVError& outError) {
        return runQuery(database(), &outError, statement, ZAVNow(), ZAVContentTransferDownloading, limit);
    });
}

void ZAVPrepareEventContentsForDownload(ZAVEvent& event, const ZAVUUID& appID,
                                        std::string_view authenticatedUserID) {
    std::uint64_t index = 0;
    for (const auto& part : event.contentParts()) {
        const std::uint64_t position = index++;
        if (part == nullptr || !part->external_url() || part->external_url()->empty()) {
            continue;
        }
        part->setTransferStatus(ZAVContentTransferReadyForDownload);
        const auto directory = ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(
            appID, authenticatedUserID, ZAVUUIDFromData(event.client_id()));
        part->setFileURL(ZAVMessageRepositoryMakeMessagePartFileURL(position, directory));
    }
}

}  // namespace zav
