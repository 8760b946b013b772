#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Private/Foundation/NSInternalInconsistencyException.h"
#include "Private/Foundation/ZAVError.h"
#include "Private/Foundation/ZAVIdentifiers.h"
#include "Private/Foundation/ZAVSet.h"
#include "Private/Foundation/ZAVUUID.h"
#include "Private/Model/Repositories/ZAVDatabaseRepository.h"
#include "Private/Model/Repositories/ZAVUnitOfWork.h"
#include "Private/Model/Synchronization/ZAVEvent.h"
#include "Private/Model/Synchronization/ZAVEventContent.h"

namespace zav {

/// Moves conversation events and their content parts between records and the local database.
///
/// Every operation is synchronous and runs on the caller's thread; one repository, and the database handle
/// under it, is used by one thread at a time. The repository keeps no state and opens no transaction: an
/// operation on several rows that fails part-way keeps the rows that it wrote, unless the caller rolls back a
/// `ZAVTransaction` of its own.
///
/// Two kinds of failure are kept apart. The database failing is an error: the operation answers nothing, 0 or
/// false, stores the reason through its `error` argument, if one is given, and logs it. A violated
/// precondition is a programming error and throws `NSInternalInconsistencyException`. Whichever it is, no
/// cursor stays open.
///
/// `error` is left as it was when nothing failed, with one exception: an operation that reads events also
/// stores there why an event's transient metadata could not be read. The event is then returned without them,
/// and nothing is logged.
///
/// The records that are returned are the caller's: new with each call, complete, and tied to nothing.
class ZAVEventRepository : public ZAVDatabaseRepository {
public:
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// Calls `unitOfWork` once, on this thread, and returns what it returns; false when it is absent. Nothing
    /// else.
    bool attemptBlock(ZAVUnitOfWork unitOfWork) const;

    /// @name Row mappers
    /// @{

    /// The event on the current row of an event query (columns: `ZAVEventMapperColumn`), with its transient
    /// metadata and content parts, for which it runs two further queries on the handle. Never null.
    ///
    /// The event's `seq` is set, and its `seqIsSet` true, also when the column was NULL: it is then 0.
    /// @param error receives why the metadata could not be read; the event has none then.
    [[nodiscard]] virtual std::shared_ptr<ZAVEvent> objectFromResultSet(const FMResultSet& row,
                                                                        ZAVError* error = nullptr) const;

    /// The content part on the current row of a content part query (columns:
    /// `ZAVEventMapperEventContentPartsColumn`). Never null. A stored URL or path that is no URL reads as
    /// absent; bytes stored beside a URL are not read.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> eventContentFromResultSet(const FMResultSet& row) const;

    /// @}
    /// @name Event queries
    /// Sets hold each stored event once, in the order in which the database yields them.
    /// @{

    /// Every event. None on failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEvent>> allEvents(ZAVError* error = nullptr) const;

    /// How many events there are. 0 on failure.
    [[nodiscard]] std::size_t countOfEvents(ZAVError* error = nullptr) const;

    /// The events that can be sent to the service: not yet sequenced, in a stream that the service knows; of
    /// messages only those that have content parts, all of them completely transferred. None on failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEvent>> publishableEvents(ZAVError* error = nullptr) const;

    /// The events that are not yet sequenced and whose stream the service does not know, or that have no
    /// stream. None on failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEvent>> unpublishableEvents(ZAVError* error = nullptr) const;

    /// The events whose insertion is recorded in `synced_changes`. None on failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEvent>> unprocessedEvents(ZAVError* error = nullptr) const;

    /// The sequenced events of one stream in replay order: by preceding sequence, creator and client
    /// sequence. None on failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEvent>> eventsFromRevivedStreamWithStreamDatabaseIdentifier(
        ZAVDatabaseIdentifier streamDatabaseIdentifier, ZAVError* error = nullptr) const;

    /// The events that the service has sequenced. None on failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEvent>> postedAndProcessedEvents(ZAVError* error = nullptr) const;

    /// The event at a sequence of a stream. Null when there is none, and on failure.
    [[nodiscard]] std::shared_ptr<ZAVEvent> eventWithSeq(ZAVSequence seq, const ZAVUUID& streamIdentifier,
                                                         ZAVError* error = nullptr) const;

    /// The event in a row. Null when there is none, and on failure.
    [[nodiscard]] std::shared_ptr<ZAVEvent> eventForDatabaseIdentifier(
        ZAVDatabaseIdentifier databaseIdentifier, ZAVError* error = nullptr) const;

    /// @}
    /// @name Event persistence
    /// @{

    /// Stores events in the set's order, each with its transient metadata and content parts, and stops at the
    /// first failure.
    ///
    /// An event's stream is named by its row or, if that is not set, by `stream_id`; the other is filled in.
    /// An event that collides with a stored one, by its row or by stream and `seq`, overwrites every column
    /// of it. Content parts are numbered by their position, and a part that is stored already is kept as it
    /// is stored. Metadata given as bytes are stored as text, and left out when they are no UTF-8.
    ///
    /// The records are changed as they are stored: events get their rows and `stream_id`, parts their
    /// back-references. They keep these also when a later event fails.
    /// @throws NSInternalInconsistencyException for an element that is no `ZAVEvent`, an event without a
    /// type, stream
    ///     or `client_id`, content that is no `ZAVEventContent`, and a stream that is not registered. Events
    ///     before it are stored.
    /// @return true when every event was stored, and for an empty set.
    bool persistEvents(const ZAVSet<ZAVTEvent>& events, ZAVError* error = nullptr) const;

    /// @}
};

/// Makes the content parts of a received event ready for download: each part with an external URL gets the
/// status `ZAVContentTransferReadyForDownload` and its local file. Records only; the database is not touched.
/// @param appID the application, and `authenticatedUserID` its user, for whom the file is kept.
void ZAVPrepareEventContentsForDownload(ZAVEvent& event, const ZAVUUID& appID,
                                        std::string_view authenticatedUserID);

}  // namespace zav
