#include "Store/Internal/ZAVReceiver.h"

#include <algorithm>
#include <string>
#include <utility>

#include <ZAVEventRepository/NSInternalInconsistencyException.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVEventMetadata.h"
#include "Store/Internal/ZAVEventChecks.h"
#include "Store/Internal/ZAVFieldsNotSaid.h"
#include "Store/Internal/ZAVStreamRecency.h"

namespace zav {
namespace {

std::string textOf(const ZAVData& clientID) {
    const auto uuid = ZAVUUIDFromData(clientID);
    return uuid ? uuid->UUIDString() : "one that is no UUID";
}

/// Answers a conflict if another event stands at the sequence of this one.
/// @return whether one does.
bool answerConflict(const ZAVEventRecognition::Answer& stored, const ZAVEvent& event,
                    ZAVReceivedEvent& answer) {
    if (stored.conflictingClientID) {
        answer = {ZAVReceivedEvent::Outcome::conflict, *stored.row,
                  ZAVErrorOfStore(ZAVEventStoreErrorConflict,
                                  "at the sequence " + std::to_string(event.seq()) +
                                      " stands another event: its client_id is " +
                                      textOf(*stored.conflictingClientID) + ", that of this one " +
                                      textOf(*event.client_id()))};
    }
    return stored.conflictingClientID.has_value();
}

ZAVError errorOfNoSequence() {
    return ZAVErrorOfUnusableEvent("it has no sequence, which the service gives to what it sends");
}

bool hasText(const std::optional<std::string>& text) {
    return text && !text->empty();
}

}  // namespace

ZAVReceiver::ZAVReceiver(ZAVStoreHandle& handle, const ZAVStoreOwner& owner, const ZAVReceiveOptions& options)
    : handle_(handle),
      database_(*handle.database()),
      repositories_(handle.repositories()),
      owner_(owner),
      options_(options),
      recognition_(handle.database(), owner.userID),
      remover_(handle) {}

bool ZAVReceiver::begin(const ZAVUUID& stream, ZAVError* error) {
    streamUUID_ = stream;
    stream_ = repositories_.streams.findOrCreateStreamWithUUID(stream, error);
    return stream_ != ZAVDatabaseIdentifierNotSet;
}

bool ZAVReceiver::receive(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error) {
    if (ZAVError objection = objectionTo(event)) {
        answer = {Outcome::refused, ZAVDatabaseIdentifierNotSet, std::move(objection)};
        return true;
    }
    ZAVWorkSavepoint savepoint(handle_, error);
    if (!savepoint.isSet()) {
        return false;
    }
    event.setDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
    event.setStreamDatabaseIdentifier(stream_);
    event.set_stream_id(ZAVDataFromUUID(streamUUID_));
    try {
        if (!store(event, answer, error)) {
            return false;
        }
    } catch (const NSInternalInconsistencyException& exception) {
        answer = {Outcome::refused, ZAVDatabaseIdentifierNotSet, ZAVErrorOfUnusableEvent(exception.reason())};
        return true;
    }
    greatestSeq_ = std::max(greatestSeq_.value_or(event.seq()), event.seq());
    return savepoint.keep(error);
}

ZAVError ZAVReceiver::objectionTo(const ZAVEvent& event) const {
    if (ZAVError objection = ZAVObjectionToEvent(event)) {
        return objection;
    }
    if (!event.seqIsSet() || event.seq() == ZAVSequenceNotSet) {
        return errorOfNoSequence();
    }
    if (event.stream_id() && event.streamUUID() != streamUUID_) {
        return ZAVErrorOfUnusableEvent("it is of another stream");
    }
    return {};
}

bool ZAVReceiver::store(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error) {
    const auto stored = recognition_.recognise(event, stream_, error);
    if (!stored) {
        return false;
    }
    if (answerConflict(*stored, event, answer)) {
        return true;
    }
    const bool isOwn = stored->isWaiting && options_.recognisesOwnEvents;
    if (!stored->row || (stored->isWaiting && !isOwn)) {
        return storeNew(event, answer, error);
    }
    const ZAVFieldsNotSaid notSaid(event);
    if (!giveRow(event, *stored->row, isOwn, notSaid, answer, error)) {
        return false;
    }
    const auto isDeleted = isDeletedAlready(event.seq(), error);
    const auto wasDeleted = isTombstone(answer.row, error);
    if (!isDeleted || !wasDeleted) {
        return false;
    }
    if (*wasDeleted && options_.keepsTombstones) {
        answer.outcome = Outcome::tombstone;
        return true;
    }
    if (*isDeleted || (event.type() == EventType_TOMBSTONE && !*wasDeleted)) {
        answer.outcome = Outcome::tombstone;
        return remover_.makeTombstone(answer.row, event.seq(), stream_, error) &&
               recordChange(answer.row, ZAVSyncedChangeTypeUpdate, error);
    }
    bool isChanged = false;
    if (!bringUpToDate(event, isChanged, error)) {
        return false;
    }
    if (isChanged && answer.outcome == Outcome::known) {
        answer.outcome = Outcome::changed;
    }
    return (answer.outcome == Outcome::known || recordChange(answer.row, ZAVSyncedChangeTypeUpdate, error)) &&
           applyDeletion(event, error);
}

/// Gives an event that is stored its row, with what the event does not say.
bool ZAVReceiver::giveRow(ZAVEvent& event, ZAVDatabaseIdentifier row, bool isOwn,
                          const ZAVFieldsNotSaid& notSaid, ZAVReceivedEvent& answer, ZAVError* error) {
    answer = {isOwn ? Outcome::own : Outcome::known, row, {}};
    if (!notSaid.takeFrom(database_, row, error)) {
        return false;
    }
    if (isOwn) {
        return assignSequence(event, row, error);
    }
    event.setDatabaseIdentifier(row);
    if (!options_.recognisesOwnEvents) {
        return true;
    }
    const auto twin = recognition_.waitingTwin(event, stream_, error);
    if (!twin || !twin->row) {
        return twin.has_value();
    }
    answer = {Outcome::own, *twin->row, {}};
    return mergeTwin(row, event, *twin->row, error) && notSaid.takeFrom(database_, *twin->row, error);
}

bool ZAVReceiver::storeNew(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error) {
    const auto isDeleted = isDeletedAlready(event.seq(), error);
    if (!isDeleted) {
        return false;
    }
    answer.outcome = *isDeleted ? Outcome::tombstone : Outcome::added;
    prepareParts(event);
    if (!(*isDeleted ? storeTombstone(event, error) : ZAVPersistEvent(repositories_.events, event, error))) {
        return false;
    }
    answer.row = event.databaseIdentifier();
    recognition_.noteStored(event);
    // What the user has done on another device is no news to the user.
    const bool isNews = !owner_.userID || event.creator_id() != owner_.userID;
    return (!isNews || recordChange(answer.row, ZAVSyncedChangeTypeInsert, error)) &&
           applyDeletion(event, error);
}

/// An event whose deletion came before it: what it said is never stored.
bool ZAVReceiver::storeTombstone(ZAVEvent& event, ZAVError* error) {
    ZAVEvent tombstone(ZAVDatabaseIdentifierNotSet, stream_);
    tombstone.set_type(EventType_TOMBSTONE);
    tombstone.set_client_id(event.client_id());
    tombstone.set_creator_id(event.creator_id());
    tombstone.set_creator_name(event.creator_name());
    tombstone.set_member_id(event.member_id());
    tombstone.set_seq(event.seq());
    tombstone.set_server_timestamp(event.server_timestamp());
    tombstone.set_preceding_seq(event.preceding_seq());
    tombstone.set_client_seq(event.client_seq());
    tombstone.set_subtype(event.subtype());
    if (event.target_seqIsSet()) {
        tombstone.set_target_seq(event.target_seq());
    }
    const bool succeeded = ZAVPersistEvent(repositories_.events, tombstone, error);
    event.setDatabaseIdentifier(tombstone.databaseIdentifier());
    return succeeded;
}

bool ZAVReceiver::bringUpToDate(ZAVEvent& event, bool& isChanged, ZAVError* error) {
    const auto isUpToDate = isStoredAsItIs(event, error);
    if (!isUpToDate) {
        return false;
    }
    isChanged = !*isUpToDate;
    if (isChanged) {
        prepareParts(event);  // for parts that are not stored yet
        changesStored_ = true;
        if (!ZAVPersistEvent(repositories_.events, event, error)) {
            return false;
        }
    }
    return !options_.renewsURLs || renewURLs(event, isChanged, error);
}

bool ZAVReceiver::renewURLs(const ZAVEvent& event, bool& isChanged, ZAVError* error) {
    std::int64_t index = 0;
    for (const auto& part : event.contentParts()) {
        const std::int64_t position = index++;
        if (!hasText(part->external_url())) {
            continue;
        }
        const auto expiration = part->external_access_expirationIsSet()
                                    ? std::optional(options_.expirationOf(part->external_access_expiration()))
                                    : part->externalContentURLExpiration();
        if (!runUpdate(database_, error,
                       "UPDATE event_content_parts SET url = ?, access_expiration = ?"
                       " WHERE event_database_identifier = ? AND event_content_part_id = ?"
                       " AND transfer_status IS NOT 4 AND (url IS NOT ? OR access_expiration IS NOT ?)",
                       part->external_url(), expiration, event.databaseIdentifier(), position,
                       part->external_url(), expiration)) {
            return false;
        }
        isChanged = isChanged || database_.changes() > 0;
    }
    return true;
}

/// The row that waits becomes the one at the event's sequence.
bool ZAVReceiver::assignSequence(ZAVEvent& event, ZAVDatabaseIdentifier row, ZAVError* error) {
    event.setDatabaseIdentifier(row);
    changesStored_ = true;
    if (repositories_.events.updateObject(event)) {
        return true;
    }
    ZAVStoreError(error, database_.lastError());
    return false;
}

/// Clients that did not recognise their own events have left two rows of one. The one that waited is what the
/// application knows; it stays.
bool ZAVReceiver::mergeTwin(ZAVDatabaseIdentifier sequenced, ZAVEvent& event, ZAVDatabaseIdentifier waiting,
                            ZAVError* error) {
    const auto wasDeleted = isTombstone(sequenced, error);
    return wasDeleted &&
           runUpdate(database_, error,
                     "UPDATE messages SET event_database_identifier = ? WHERE event_database_identifier = ?"
                     " AND NOT EXISTS (SELECT 1 FROM messages WHERE event_database_identifier = ?)",
                     waiting, sequenced, waiting) &&
           remover_.remove(sequenced, error) && assignSequence(event, waiting, error) &&
           (!*wasDeleted || remover_.makeTombstone(waiting, event.seq(), stream_, error));
}

bool ZAVReceiver::applyDeletion(const ZAVEvent& deletion, ZAVError* error) {
    if (!options_.appliesDeletions || deletion.type() != EventType_EVENT_DELETED ||
        !deletion.target_seqIsSet()) {
        return true;
    }
    std::optional<std::int64_t> target;
    return findNumber(database_, target, error,
                      "SELECT database_identifier FROM events"
                      " WHERE stream_database_identifier = ? AND seq = ? AND type <> 10 LIMIT 1",
                      stream_, deletion.target_seq()) &&
           (!target || (remover_.makeTombstone(*target, deletion.target_seq(), stream_, error) &&
                        recordChange(*target, ZAVSyncedChangeTypeUpdate, error)));
}

bool ZAVReceiver::recordChange(ZAVDatabaseIdentifier row, ZAVSyncedChangeType type, ZAVError* error) {
    return !options_.recordsChanges ||
           repositories_.changes.recordChange(ZAVSyncedChangeTableNameEvents, row, type, error);
}

void ZAVReceiver::prepareParts(ZAVEvent& event) const {
    if (options_.preparesDownloads && owner_.appID && owner_.userID) {
        ZAVPrepareEventContentsForDownload(event, *owner_.appID, *owner_.userID);
    }
    for (const auto& part : event.contentParts()) {
        if (!hasText(part->external_url())) {
            if (options_.completesParts && part->body()) {
                part->setTransferStatus(ZAVContentTransferComplete);
            }
        } else if (options_.preparesDownloads && part->external_access_expirationIsSet()) {
            part->setExternalContentURLExpiration(options_.expirationOf(part->external_access_expiration()));
        }
    }
}

std::optional<bool> ZAVReceiver::isDeletedAlready(ZAVSequence seq, ZAVError* error) const {
    if (!options_.appliesDeletions) {
        return false;
    }
    return readNumber<bool>(database_, error,
                            "SELECT EXISTS (SELECT 1 FROM events WHERE stream_database_identifier = ?"
                            " AND target_seq = ? AND type = 9)",
                            stream_, seq);
}

std::optional<bool> ZAVReceiver::isTombstone(ZAVDatabaseIdentifier row, ZAVError* error) const {
    return readNumber<bool>(
        database_, error, "SELECT EXISTS (SELECT 1 FROM events WHERE database_identifier = ? AND type = 10)",
        row);
}

/// What the sending client chose about its place among others does not change any more, and is not compared:
/// the service need not send it back as it was.
std::optional<bool> ZAVReceiver::isStoredAsItIs(const ZAVEvent& event, ZAVError* error) const {
    const auto parts = event.contentParts();
    const auto isSame = readNumber<bool>(
        database_, error,
        "SELECT type IS ? AND creator_id IS ? AND timestamp IS ? AND subtype IS ? AND member_id IS ?"
        " AND target_seq IS ? AND creator_name IS ? AND ? ="
        " (SELECT COUNT(*) FROM event_content_parts WHERE event_database_identifier = ?"
        " AND event_content_part_id BETWEEN 0 AND ?) FROM events WHERE database_identifier = ?",
        event.type(), event.creator_id(), event.server_timestamp(), event.subtype(), event.member_id(),
        event.target_seqIsSet() ? std::optional(event.target_seq()) : std::nullopt, event.creator_name(),
        static_cast<std::int64_t>(parts.size()), event.databaseIdentifier(),
        static_cast<std::int64_t>(parts.size()) - 1, event.databaseIdentifier());
    if (!isSame.value_or(false) || !event.transient_metadata()) {
        return isSame;
    }
    const auto metadata = repositories_.keyedValues.keyedValuesInContext(
        ZAVContextOfEventMetadata(event.databaseIdentifier()), error);
    return metadata
               ? std::optional(metadata->keyedValues() == ZAVStorableMetadata(*event.transient_metadata()))
               : std::nullopt;
}

bool ZAVReceiver::recordPosted(ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error) {
    if (event.seq() == ZAVSequenceNotSet) {
        answer = {Outcome::refused, ZAVDatabaseIdentifierNotSet, errorOfNoSequence()};
        return true;
    }
    event.setStreamDatabaseIdentifier(stream_);
    event.set_stream_id(ZAVDataFromUUID(streamUUID_));
    const auto stored = recognition_.recognise(event, stream_, error);
    if (!stored) {
        return false;
    }
    if (answerConflict(*stored, event, answer)) {
        return true;
    }
    if (!stored->row) {
        return answerOfAbsent(event, answer, error);
    }
    answer.outcome = Outcome::own;
    if (stored->isWaiting) {
        answer.row = *stored->row;
        const auto isDeleted = isDeletedAlready(event.seq(), error);
        return isDeleted && assignSequence(event, *stored->row, error) &&
               (!*isDeleted || remover_.makeTombstone(*stored->row, event.seq(), stream_, error));
    }
    const auto twin = recognition_.waitingTwin(event, stream_, error);
    if (!twin) {
        return false;
    }
    answer.outcome = twin->row ? Outcome::own : Outcome::known;
    answer.row = twin->row ? *twin->row : *stored->row;
    return twin->row ? mergeTwin(*stored->row, event, *twin->row, error)
                     : recordTimestamp(event, *stored->row, error);
}

/// The event that came before the answer need not have said when it was posted.
bool ZAVReceiver::recordTimestamp(const ZAVEvent& event, ZAVDatabaseIdentifier row, ZAVError* error) {
    if (!runUpdate(
            database_, error,
            "UPDATE events SET timestamp = ? WHERE database_identifier = ? AND IFNULL(timestamp, 0) = 0"
            " AND timestamp IS NOT ?",
            event.server_timestamp(), row, event.server_timestamp())) {
        return false;
    }
    changesStored_ = changesStored_ || database_.changes() > 0;
    return true;
}

/// Nothing waits for its sequence: the event is not there, or has another sequence.
bool ZAVReceiver::answerOfAbsent(const ZAVEvent& event, ZAVReceivedEvent& answer, ZAVError* error) const {
    answer = {Outcome::refused, ZAVDatabaseIdentifierNotSet,
              ZAVErrorOfUnusableEvent("no event of this author and client_id waits for its sequence")};
    const auto take = [&](const FMResultSet& stored) {
        answer = {Outcome::conflict, stored.longLongIntForColumnIndex(0),
                  ZAVErrorOfStore(ZAVEventStoreErrorConflict,
                                  "it stands at the sequence " +
                                      std::to_string(stored.longLongIntForColumnIndex(1)) + " already")};
    };
    return visitRows(database_, error,
                     "SELECT database_identifier, seq FROM events WHERE client_id = ?"
                     " AND stream_database_identifier = ? AND creator_id IS ? AND seq IS NOT NULL LIMIT 1",
                     take, event.client_id(), stream_, event.creator_id());
}

bool ZAVReceiver::finish(ZAVError* error) {
    const bool advances = options_.advancesStream && greatestSeq_;
    return (!advances ||
            runUpdate(database_, error,
                      "UPDATE streams SET seq = ? WHERE database_identifier = ? AND (seq IS NULL OR seq < ?)",
                      *greatestSeq_, stream_, *greatestSeq_)) &&
           (!changesStored_ || ZAVStreamRecency(repositories_).update(stream_, error));
}

}  // namespace zav
