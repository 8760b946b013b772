#include <ZAVEventRepository/ZAVMessageRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {

std::shared_ptr<ZAVMessage> ZAVMessageRepository::findOrCreateMessageForEventDatabaseIdentifier(
    ZAVDatabaseIdentifier eventDatabaseIdentifier, ZAVError* error) const {
    const auto row = findOrInsert(
        database(), error, "SELECT database_identifier FROM messages WHERE event_database_identifier = ?",
        "INSERT INTO messages (event_database_identifier) VALUES (?)", eventDatabaseIdentifier);
    return row ? std::make_shared<ZAVMessage>(*row) : nullptr;
}

std::optional<ZAVSequence> ZAVMessageRepository::seqOfMessage(const ZAVMessage& message,
                                                              ZAVError* error) const {
    const auto seq = readNumber(database(), error, "SELECT seq FROM messages WHERE database_identifier = ?",
                                message.databaseIdentifier());
    return seq ? std::optional(static_cast<ZAVSequence>(*seq)) : std::nullopt;
}

}  // namespace zav
