#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVDatabaseRepository.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVMessagePart.h>
#include <ZAVEventRepository/ZAVSet.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>
#include <ZAVEventRepository/ZAVUnitOfWork.h>

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
/// precondition is a programming error and throws `NSInternalInconsistencyException`. Memory of the process
/// running out throws `std::bad_alloc`. Whichever it is, no cursor stays open. Nothing else is thrown but
/// what the application's own code throws: its sink, its observers, its override of a mapper.
///
/// What an operation works on is what it was called with: an observer or a sink that changes a set, an
/// event's content or a name meanwhile does not change what is walked. The records themselves are shared.
///
/// The row identifier 9223372036854775807 means "not set". An event that gets that row, which comes after the
/// greatest one that a caller can choose, or whose stream has it, fails with `ZAVDatabaseErrorUnusableRow`.
/// What was written before stays; an event that is read from that row looks as if it had not been stored.
///
/// `error` is left as it was when nothing failed, with one exception: an operation that reads events also
/// stores there why an event's transient metadata could not be read. The event then has an empty dictionary,
/// and nothing is logged. A content part that cannot be read is missing from its event, and neither `error`
/// nor the log tells.
///
/// The records that are returned are the caller's: new with each call, and tied to nothing.
class ZAV_EXPORT ZAVEventRepository : public ZAVDatabaseRepository {
public:
    /// Sets a repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// Calls `unitOfWork` once, on this thread, and returns what it returns; false when it is absent. Nothing
    /// else.
    bool attemptBlock(const ZAVUnitOfWork& unitOfWork) const;

    /// @name Row mappers
    /// @{

    /// The event on the current row of an event query (columns: `ZAVEventMapperColumn`), with its transient
    /// metadata and content parts, for which it runs two further queries on the handle. Never null; an
    /// override that answers null ends the query without a result and without an error.
    ///
    /// The event's `seq` is set, and its `seqIsSet` true, also when the column was NULL: it is then 0. Its
    /// `transient_metadata` are always present: an empty dictionary when there are none, and when they could
    /// not be read. Parts that could not be read are missing from its `content`, and nothing tells.
    /// @param error receives why the metadata could not be read.
    [[nodiscard]] virtual std::shared_ptr<ZAVEvent> objectFromResultSet(const FMResultSet& row,
                                                                        ZAVError* error = nullptr) const;

    /// The content part on the current row of a content part query (columns:
    /// `ZAVEventMapperEventContentPartsColumn`). Never null. A stored URL or path that is not a URL reads as
    /// absent; bytes stored beside a URL are not read.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> eventContentFromResultSet(const FMResultSet& row) const;

    /// @}
    /// @name Event queries
    /// Sets hold each stored event once, in the order in which the database yields them.
    /// @{

    /// Every event. None on failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEvent>> allEvents(ZAVError* error = nullptr) const;

    /// How many events there are, read as a signed 32-bit number. 0 on failure.
    [[nodiscard]] std::size_t countOfEvents(ZAVError* error = nullptr) const;

    /// The events that can be sent to the service: not yet sequenced, in a stream that the service knows; of
    /// messages only those that have content parts, all of them completely transferred. Judged are the parts
    /// that could be read: one that could not does not hold its message back. A part that is not a
    /// `ZAVEventContent`, which only an override of the mapper makes, counts as not transferred. None on
    /// failure.
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
    /// is stored. `transient_metadata`, when present, replace all that is stored, so an empty dictionary
    /// deletes it; `set_transient_metadata(std::nullopt)` leaves what is stored alone. Metadata given as
    /// bytes are stored as text, and left out when they are not UTF-8.
    ///
    /// The records are changed as they are stored: events get their rows and `stream_id`, parts the row and
    /// `client_id` of their event and the identifier of its stream. They keep these also when a later event
    /// fails. Parts do not get their `index` and `eventSeq`: before a part but the first is updated, set its
    /// index or read it again.
    /// @throws NSInternalInconsistencyException for an element that is not a `ZAVEvent`, an event without a
    /// type, stream or `client_id`, and content that is not a `ZAVEventContent`, before anything of the event
    /// is written; for a stream that is not registered; when the database refuses the event although no event
    /// is stored at its stream and `seq`; and for tables that lack the columns of the schema. Events before
    /// it are stored.
    /// @return true when every event was stored, and for an empty set.
    bool persistEvents(const ZAVSet<ZAVTEvent>& events, ZAVError* error = nullptr) const;

    /// @}
    /// @name Sequence assignment
    /// @{

    /// Records on an event's row what the event acquires when it is published: `seq`, `creator_id` and
    /// `server_timestamp`, each as the record holds it, set or not.
    ///
    /// This operation logs nothing and never writes `error`: a caller who wants the reason asks the database
    /// handle.
    /// @throws NSInternalInconsistencyException when the event has no `stream_id`.
    /// @return true when the statement ran, even if it matched no row: ask `database().changes()`.
    bool updateObject(const ZAVEvent& event, ZAVError* error = nullptr) const;

    /// @}
    /// @name Removal and tombstoning
    /// @{

    /// Forgets that events wait to be processed: removes what `synced_changes` records of them, of whatever
    /// kind. The events stay. At most 500 go with one statement; a failing one leaves the earlier ones done.
    /// @return whether all were forgotten; false, without an error, for an empty set.
    bool deleteUnprocessedEvents(const ZAVSet<ZAVEvent>& events, ZAVError* error = nullptr) const;

    /// Deletes the events' rows, and nothing that refers to them. Content parts that stay behind are still
    /// found by the transfer queues, where no operation removes them: delete them as well.
    /// @return whether all statements ran; false, without an error, for an empty set.
    bool deleteEvents(const ZAVSet<ZAVEvent>& events, ZAVError* error = nullptr) const;

    /// Turns the event at a sequence of a stream into a tombstone, by its type alone: its content and
    /// metadata stay, and to store the event again makes it what it was.
    /// @return true when the statement ran, even if it matched no row: ask `database().changes()`.
    bool persistTombstoneEventWithTargetSeq(ZAVSequence targetSeq,
                                            ZAVDatabaseIdentifier streamDatabaseIdentifier,
                                            ZAVError* error = nullptr) const;

    /// @}
    /// @name Participant and message sequences
    /// @{

    /// Records how far a member of a stream's conversation has progressed. A smaller sequence overwrites a
    /// larger one. A failure is logged as a verbose line, unlike all others.
    /// @return true when the update ran, even if it matched no row: ask `database().changes()`. False,
    /// without an error, when the stream has no conversation.
    bool persistConversationsParticipantsSeq(ZAVSequence seq, std::string_view memberID,
                                             const ZAVUUID& streamIdentifier,
                                             ZAVError* error = nullptr) const;

    /// Records the sequence of the message that an event carries.
    /// @return true when the update ran, even if it matched no row: ask `database().changes()`.
    bool persistMessageSeq(ZAVSequence seq, ZAVDatabaseIdentifier eventDatabaseIdentifier,
                           ZAVError* error = nullptr) const;

    /// @}
    /// @name Content part lookups
    /// Each finds one part; null when there is none, and on failure. Of several that match, the first that
    /// the database yields.
    /// @{

    /// The part in a row of its own.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> eventContentDatabaseIdentifier(
        ZAVDatabaseIdentifier databaseIdentifier, ZAVError* error = nullptr) const;

    /// The part at a position of an event.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> eventContentForEventDatabaseIdentifier(
        ZAVDatabaseIdentifier eventDatabaseIdentifier, std::int64_t eventContentIndex,
        ZAVError* error = nullptr) const;

    /// The part that a part of a message shows.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> eventContentForMessagePart(
        const ZAVMessagePart& messagePart, ZAVError* error = nullptr) const;

    /// The part that an object identifier names; see `ZAVMakeMessagePartObjectIdentifier`.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> eventContentForMessagePartObjectIdentifier(
        const ZAVURL& objectIdentifier, ZAVError* error = nullptr) const;

    /// The part whose content the service keeps under a URL, compared as text.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> eventContentForExternalContentURL(
        const ZAVURL& externalContentURL, ZAVError* error = nullptr) const;

    /// @}
    /// @name Transfer queues
    /// What to move next. Sets, none on failure; nothing is changed. Progress is recorded with
    /// `persistEventContentUpdate`.
    /// @{

    /// Parts that were stored to a file and have no URL to upload to, in streams that the service knows.
    [[nodiscard]] std::optional<ZAVSet<ZAVEventContent>> eventContentsHavingUnassignedURLsWithError(
        ZAVError* error = nullptr) const;

    /// Uploads that were started and not finished, at most `limit` of them.
    [[nodiscard]] std::optional<ZAVSet<ZAVEventContent>> eventContentsHavingIncompleteUploadsWithLimit(
        ZAVSize limit, ZAVError* error = nullptr) const;

    /// Parts that need a new URL before they can be fetched: those being downloaded, and those ready for it
    /// that are wanted without being asked for. A URL without an expiration counts as expired. The most
    /// recent of their streams come first, counted from what `ZAVStreamRepository::setSeq` recorded: where
    /// nothing was, recency is not known, and the part comes before all others. At most `limit` of them.
    /// @param autodownloadMIMETypes the types that are wanted whatever their size; when absent, every part
    /// is. They become part of the statement as they are, between quotes: pass only types that the
    /// application itself wrote, or has checked. A type with a single quote is SQL from there on. At best the
    /// statement is malformed and the operation fails; a well-made one selects other parts, and reads
    /// whatever else is in the file.
    /// @param autodownloadMaxSize parts of at most so many bytes are wanted whatever their type. Only the low
    /// 32 bits count.
    [[nodiscard]] std::optional<ZAVSet<ZAVEventContent>>
    eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
        const std::optional<std::set<std::string>>& autodownloadMIMETypes, ZAVSize autodownloadMaxSize,
        ZAVSize limit, ZAVError* error = nullptr) const;

    /// Downloads that were started and not finished, and whose URL has an expiration that is still to come,
    /// in the same order, at most `limit` of them.
    [[nodiscard]] std::optional<ZAVSet<ZAVEventContent>> eventContentsHavingIncompleteDownloadsWithLimit(
        ZAVSize limit, ZAVError* error = nullptr) const;

    /// @}
    /// @name Content updates and disk accounting
    /// @{

    /// Records a part's URL and its expiration, size, transfer status, file, last access and purge mark. The
    /// row is found by the part's event and index; its type and inline data stay.
    ///
    /// A stored URL or path that is not one of RFC 3986 was read as absent: this erases it, unless another is
    /// set before. An expiration loses its fraction of a second in the same way.
    /// @throws NSInternalInconsistencyException when the part belongs to no stored event.
    /// @return true when the statement ran, even if it matched no row: ask `database().changes()`.
    bool persistEventContentUpdate(const ZAVEventContent& eventContent, ZAVError* error = nullptr) const;

    /// Bytes that content files occupy: of the parts that have a file and are neither purged nor still to
    /// come.
    ///
    /// The sum is read as a signed 32-bit number and widened: from 2147483648 bytes on it is not the true
    /// one.
    /// @return the total; 18446744073709551615 on failure, without an error when only reading the sum failed.
    [[nodiscard]] ZAVSize totalDiskUtilizationOfEventContentPartsWithError(ZAVError* error = nullptr) const;

    /// The parts whose files to remove, least recently accessed first, until their sizes exceed
    /// `totalSizeInBytes`: the one that exceeds it is the last. A part that is still to be uploaded is never
    /// chosen; one that is still to be downloaded may be, though the total does not count it. None on
    /// failure.
    [[nodiscard]] std::optional<ZAVSet<ZAVEventContent>> leastRecentlyAccessedEventContentPartsForSize(
        ZAVSize totalSizeInBytes, ZAVError* error = nullptr) const;

    /// @}
};

/// Makes the content parts of a received event ready for download: each part with an external URL gets the
/// status `ZAVContentTransferReadyForDownload` and the path where its file will be, or none when the event's
/// `client_id` is not a UUID. Parts without a URL, and content that is not a `ZAVEventContent`, stay as they
/// are. Records only; the database and the file system are not touched.
/// @param appID the application, and `authenticatedUserID` its user, for whom the file is kept.
ZAV_EXPORT void ZAVPrepareEventContentsForDownload(ZAVEvent& event, const ZAVUUID& appID,
                                                   std::string_view authenticatedUserID);

}  // namespace zav
