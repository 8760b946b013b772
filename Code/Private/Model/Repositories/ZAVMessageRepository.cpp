#include <ZAVEventRepository/ZAVMessageRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {

std::shared_ptr<ZAVMessage> ZAVMessageRepository::findOrCreateMessageForEventDatabaseIdentifier(
    ZAVDatabaseIdentifier eventDatabaseIdentifier, ZAVError* error) const {
    const ZAVDatabaseIdentifier row = findOrInsert(
        database(), error, "SELECT database_identifier FROM messages WHERE event_database_identifier = ?",
        "INSERT INTO messages (event_database_identifier) VALUES (?)", eventDatabaseIdentifier);
    return row == ZAVDatabaseIdentifierNotSet ? nullptr : std::make_shared<ZAVMessage>(row);
}

std::optional<ZAVSequence> ZAVMessageRepository::seqOfMessage(const ZAVMessage& message,
                                                              ZAVError* error) const {
    return readNumber<ZAVSequence>(database(), error,
                                   "SELECT seq FROM messages WHERE database_identifier = ?",
                                   message.databaseIdentifier());
}

}  // namespace zav
