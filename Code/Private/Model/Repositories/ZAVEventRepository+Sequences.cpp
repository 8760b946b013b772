#include <string>

#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryOperation.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {

// Stands outside the operation frame: it logs nothing and leaves the out-parameter alone.
bool ZAVEventRepository::updateObject(const ZAVEvent& event, ZAVError* /*error*/) const {
    if (!event.stream_id()) {
        throw NSInternalInconsistencyException(
            "Failed to persist sequence by event. Event's stream_id property shouldn't be `nil`, since it's not "
            "possible to publish events for streams that don't exist in the data source yet.");
    }
    return database().executeBoundedUpdate(
        "UPDATE events SET seq = ?, creator_id = ?, timestamp = ? WHERE database_identifier = ?", event.seq(),
        event.creator_id(), event.server_timestamp(), event.databaseIdentifier());
}

bool ZAVEventRepository::persistConversationsParticipantsSeq(ZAVSequence seq, std::string_view memberID,
                                                             const ZAVUUID& streamIdentifier,
                                                             ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVSequence, std::string, ZAVUUID> operation{
        "-[ZAVEventRepository persistConversationsParticipantsSeq:memberID:streamIdentifier:error:]",
        "persisting conversations participant's seq:%u for member:%@ with stream identifier:%@",
        "failed persisting conversations participant's seq:%u for member:%@ with stream identifier:%@ with %@",
        DDLogFlagVerbose};
    // Both are needed after the first statement, whose observer may change what they were given as.
    const std::string member(memberID);
    const ZAVUUID stream = streamIdentifier;
    bool succeeded = false;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            const auto conversation = readNumber(
                database(), &outError,
                "SELECT conversations.database_identifier FROM conversations WHERE conversations.stream_id = ?",
                stream);
            if (!conversation) {
                return !outError;  // no conversation: neither a success of the operation nor an error
            }
            succeeded = runUpdate(database(), &outError,
                                  "UPDATE conversation_participants SET seq = ? WHERE member_id = ? AND "
                                  "conversation_database_identifier = ?",
                                  seq, member, *conversation);
            return succeeded;
        },
        seq, member, stream);
    return succeeded;
}

bool ZAVEventRepository::persistMessageSeq(ZAVSequence seq, ZAVDatabaseIdentifier eventDatabaseIdentifier,
                                           ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVSequence, ZAVDatabaseIdentifier> operation{
        "-[ZAVEventRepository persistMessageSeq:eventDatabaseIdentifier:error:]",
        "updating message's seq:%d event database ID:%llu",
        "failed to update message's seq:%d event database ID:%llu with %@"};
    return operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return runUpdate(database(), &outError,
                             "UPDATE messages SET seq = ? WHERE event_database_identifier = ?", seq,
                             eventDatabaseIdentifier);
        },
        seq, eventDatabaseIdentifier);
}

}  // namespace zav
