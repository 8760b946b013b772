#include <ZAVEventRepository/ZAVEventStore.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVEventRemover.h"
#include "Store/Internal/ZAVStoreCore.h"

namespace zav {
namespace {

/// Records a sequence in one write, if one that is recorded may give way to it.
/// @param lookAtRecorded finds whether what is recorded is before it; nothing when there is no place for it.
std::optional<bool> recordSeq(ZAVEventStore& store, ZAVEventStore::SequenceChange change, ZAVError* error,
                              const auto& lookAtRecorded, const auto& record) {
    bool isRecorded = false;
    const auto work = [&](const ZAVRepositories& repositories) {
        std::optional<std::int64_t> isBefore;
        if (!lookAtRecorded(repositories.events.database(), isBefore)) {
            return false;
        }
        isRecorded = isBefore && (*isBefore != 0 || change == ZAVEventStore::SequenceChange::any);
        return !isRecorded || record(repositories.events);
    };
    return store.write(work, error) ? std::optional(isRecorded) : std::nullopt;
}

}  // namespace

std::optional<std::size_t> ZAVEventStore::deleteEvents(std::span<const ZAVDatabaseIdentifier> rows,
                                                       ZAVError* error) {
    std::size_t count = 0;
    const auto remove = [&](const ZAVRepositories&) {
        const ZAVEventRemover remover(core_->handleOfWork());
        for (const ZAVDatabaseIdentifier row : rows) {
            const auto wasThere = remover.remove(row, error);
            if (!wasThere) {
                return false;
            }
            count += *wasThere ? 1 : 0;
        }
        return true;
    };
    return write(remove, error) ? std::optional(count) : std::nullopt;
}

std::optional<bool> ZAVEventStore::makeTombstone(const ZAVUUID& streamUUID, ZAVSequence seq,
                                                 ZAVError* error) {
    std::optional<bool> isThere;
    const auto bury = [&](const ZAVRepositories& repositories) {
        std::optional<std::int64_t> stream;
        if (!findNumber(repositories.events.database(), stream, error,
                        "SELECT database_identifier FROM streams WHERE stream_id = ?", streamUUID)) {
            return false;
        }
        isThere = stream ? makeTombstone(*stream, seq, error) : false;
        return isThere.has_value();
    };
    return write(bury, error) ? isThere : std::nullopt;
}

std::optional<bool> ZAVEventStore::makeTombstone(ZAVDatabaseIdentifier stream, ZAVSequence seq,
                                                 ZAVError* error) {
    std::optional<std::int64_t> row;
    const auto bury = [&](const ZAVRepositories& repositories) {
        return findNumber(
                   repositories.events.database(), row, error,
                   "SELECT database_identifier FROM events WHERE stream_database_identifier = ? AND seq = ?",
                   stream, seq) &&
               (!row || ZAVEventRemover(core_->handleOfWork()).makeTombstone(*row, seq, stream, error));
    };
    return write(bury, error) ? std::optional(row.has_value()) : std::nullopt;
}

std::optional<bool> ZAVEventStore::deleteStream(ZAVDatabaseIdentifier stream, ZAVError* error) {
    bool isThere = false;
    const auto remove = [&](const ZAVRepositories& repositories) {
        const bool isRemoved = ZAVEventRemover(core_->handleOfWork()).removeStream(stream, error);
        isThere = isRemoved && repositories.events.database().changes() != 0;
        return isRemoved;
    };
    return write(remove, error) ? std::optional(isThere) : std::nullopt;
}

std::optional<bool> ZAVEventStore::recordParticipantSeq(const ZAVUUID& streamUUID,
                                                        const std::string& memberID, ZAVSequence seq,
                                                        SequenceChange change, ZAVError* error) {
    return recordSeq(
        *this, change, error,
        [&](FMDatabase& database, std::optional<std::int64_t>& isBefore) {
            return findNumber(
                database, isBefore, error,
                "SELECT participants.seq IS NULL OR participants.seq < ? FROM conversations"
                " JOIN conversation_participants AS participants"
                " ON participants.conversation_database_identifier = conversations.database_identifier"
                " WHERE conversations.stream_id = ? AND participants.member_id = ?",
                seq, streamUUID, memberID);
        },
        [&](const ZAVEventRepository& events) {
            return events.persistConversationsParticipantsSeq(seq, memberID, streamUUID, error);
        });
}

std::optional<bool> ZAVEventStore::recordMessageSeq(ZAVDatabaseIdentifier event, ZAVSequence seq,
                                                    SequenceChange change, ZAVError* error) {
    return recordSeq(
        *this, change, error,
        [&](FMDatabase& database, std::optional<std::int64_t>& isBefore) {
            return findNumber(
                database, isBefore, error,
                "SELECT MAX(seq IS NULL OR seq < ?) FROM messages WHERE event_database_identifier = ?", seq,
                event);
        },
        [&](const ZAVEventRepository& events) { return events.persistMessageSeq(seq, event, error); });
}

}  // namespace zav
