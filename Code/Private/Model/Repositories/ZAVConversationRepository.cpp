#include <ZAVEventRepository/ZAVConversationRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {

ZAVDatabaseIdentifier ZAVConversationRepository::findOrCreateConversationWithStreamUUID(
    const ZAVUUID& streamUUID, ZAVError* error) const {
    return findOrInsert(database(), error,
                        "SELECT database_identifier FROM conversations WHERE stream_id = ?",
                        "INSERT INTO conversations (stream_id) VALUES (?)", streamUUID);
}

bool ZAVConversationRepository::addParticipant(std::string_view memberID,
                                               ZAVDatabaseIdentifier conversationDatabaseIdentifier,
                                               ZAVError* error) const {
    return runUpdate(
        database(), error,
        "INSERT OR IGNORE INTO conversation_participants (conversation_database_identifier, member_id) "
        "VALUES (?, ?)",
        conversationDatabaseIdentifier, memberID);
}

std::optional<ZAVSequence> ZAVConversationRepository::seqOfParticipant(
    std::string_view memberID, ZAVDatabaseIdentifier conversationDatabaseIdentifier, ZAVError* error) const {
    return readNumber<ZAVSequence>(
        database(), error,
        "SELECT seq FROM conversation_participants WHERE conversation_database_identifier = ? AND member_id = ?",
        conversationDatabaseIdentifier, memberID);
}

}  // namespace zav
