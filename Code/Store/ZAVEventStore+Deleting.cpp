#include <ZAVEventRepository/ZAVEventStore.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVEventRemover.h"
#include "Store/Internal/ZAVStoreCore.h"

namespace zav {
namespace {

/// A number that need not be there: whether it could be looked for.
bool look(FMDatabase& database, std::optional<std::int64_t>& number, ZAVError* error, ZAVSQL statement,
          const auto&... values) {
    ZAVError failure;
    number = readNumber(database, &failure, statement, values...);
    if (failure) {
        ZAVStoreError(error, failure);
    }
    return !failure;
}

/// What was found, if it could be written.
template <class Found>
std::optional<Found> answered(bool isWritten, const Found& found, const ZAVError& failure, ZAVError* error) {
    if (!isWritten) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return found;
}

/// Records a sequence in one write, if one that is recorded may give way to it.
/// @param lookAtRecorded finds whether what is recorded is before it; nothing when there is no place for it.
std::optional<bool> recordSeq(ZAVEventStore& store, ZAVEventStore::SequenceChange change, ZAVError* error,
                              const auto& lookAtRecorded, const auto& record) {
    bool isRecorded = false;
    ZAVError failure;
    const auto work = [&](const ZAVRepositories& repositories) {
        std::optional<std::int64_t> isBefore;
        if (!lookAtRecorded(repositories.events.database(), isBefore, &failure)) {
            return false;
        }
        isRecorded = isBefore && (*isBefore != 0 || change == ZAVEventStore::SequenceChange::any);
        return !isRecorded || record(repositories.events, &failure);
    };
    const bool isWritten = store.write(work, &failure);
    return answered(isWritten, isRecorded, failure, error);
}

}  // namespace

std::optional<std::size_t> ZAVEventStore::deleteEvents(std::span<const ZAVDatabaseIdentifier> rows,
                                                       ZAVError* error) {
    std::size_t count = 0;
    ZAVError failure;
    const auto remove = [&](const ZAVRepositories&) {
        const ZAVEventRemover remover(core_->handleOfWork());
        for (const ZAVDatabaseIdentifier row : rows) {
            const auto wasThere = remover.remove(row, &failure);
            if (!wasThere) {
                return false;
            }
            count += *wasThere ? 1 : 0;
        }
        return true;
    };
    const bool isWritten = write(remove, &failure);
    return answered(isWritten, count, failure, error);
}

std::optional<bool> ZAVEventStore::makeTombstone(const ZAVUUID& streamUUID, ZAVSequence seq,
                                                 ZAVError* error) {
    std::optional<bool> isThere = false;
    ZAVError failure;
    const auto bury = [&](const ZAVRepositories& repositories) {
        std::optional<std::int64_t> stream;
        if (!look(repositories.events.database(), stream, &failure,
                  "SELECT database_identifier FROM streams WHERE stream_id = ?", streamUUID)) {
            return false;
        }
        isThere = stream ? makeTombstone(*stream, seq, &failure) : false;
        return isThere.has_value();
    };
    const bool isWritten = write(bury, &failure);
    return answered(isWritten, isThere.value_or(false), failure, error);
}

std::optional<bool> ZAVEventStore::makeTombstone(ZAVDatabaseIdentifier stream, ZAVSequence seq,
                                                 ZAVError* error) {
    std::optional<std::int64_t> row;
    ZAVError failure;
    const auto bury = [&](const ZAVRepositories& repositories) {
        return look(repositories.events.database(), row, &failure,
                    "SELECT database_identifier FROM events WHERE stream_database_identifier = ? AND seq = ?",
                    stream, seq) &&
               (!row || ZAVEventRemover(core_->handleOfWork()).makeTombstone(*row, seq, stream, &failure));
    };
    const bool isWritten = write(bury, &failure);
    return answered(isWritten, row.has_value(), failure, error);
}

std::optional<bool> ZAVEventStore::deleteStream(ZAVDatabaseIdentifier stream, ZAVError* error) {
    bool isThere = false;
    ZAVError failure;
    const auto remove = [&](const ZAVRepositories& repositories) {
        const bool isRemoved = ZAVEventRemover(core_->handleOfWork()).removeStream(stream, &failure);
        isThere = isRemoved && repositories.events.database().changes() != 0;
        return isRemoved;
    };
    const bool isWritten = write(remove, &failure);
    return answered(isWritten, isThere, failure, error);
}

std::optional<bool> ZAVEventStore::recordParticipantSeq(const ZAVUUID& streamUUID,
                                                        const std::string& memberID, ZAVSequence seq,
                                                        SequenceChange change, ZAVError* error) {
    return recordSeq(
        *this, change, error,
        [&](FMDatabase& database, std::optional<std::int64_t>& isBefore, ZAVError* failure) {
            return look(
                database, isBefore, failure,
                "SELECT participants.seq IS NULL OR participants.seq < ? FROM conversations"
                " JOIN conversation_participants AS participants"
                " ON participants.conversation_database_identifier = conversations.database_identifier"
                " WHERE conversations.stream_id = ? AND participants.member_id = ?",
                seq, streamUUID, memberID);
        },
        [&](const ZAVEventRepository& events, ZAVError* failure) {
            return events.persistConversationsParticipantsSeq(seq, memberID, streamUUID, failure);
        });
}

std::optional<bool> ZAVEventStore::recordMessageSeq(ZAVDatabaseIdentifier event, ZAVSequence seq,
                                                    SequenceChange change, ZAVError* error) {
    return recordSeq(
        *this, change, error,
        [&](FMDatabase& database, std::optional<std::int64_t>& isBefore, ZAVError* failure) {
            return look(
                database, isBefore, failure,
                "SELECT MAX(seq IS NULL OR seq < ?) FROM messages WHERE event_database_identifier = ?", seq,
                event);
        },
        [&](const ZAVEventRepository& events, ZAVError* failure) {
            return events.persistMessageSeq(seq, event, failure);
        });
}

}  // namespace zav
