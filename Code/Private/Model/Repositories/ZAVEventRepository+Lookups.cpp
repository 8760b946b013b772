#include <string_view>

#include <ZAVEventRepository/ZAVEventRepository.h>

#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>

#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"

#include "Private/Model/Repositories/Internal/ZAVRepositoryOperation.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {
namespace {

/// The reading body of a single content part.
template <class... Values>
bool readContent(const ZAVEventRepository& repository, std::shared_ptr<ZAVEventContent>& result,
                 ZAVError& outError, std::string_view statement, const Values&... values) {
    return readFirstRow(
        repository.database(), result, outError,
        [&](const FMResultSet& row) { return repository.eventContentFromResultSet(row); }, statement,
        values...);
}

}  // namespace

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentDatabaseIdentifier(
    ZAVDatabaseIdentifier databaseIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventContentDatabaseIdentifier:error:]",
        "fetching event content part for databaseIdentifier=%lld",
        "failed to fetch event for databaseIdentifier=%lld %@"};
    static constexpr auto statement =
        projections::selectContent(" WHERE event_content_parts.database_identifier = ?");
    std::shared_ptr<ZAVEventContent> content;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return readContent(*this, content, outError, statement, databaseIdentifier);
        },
        databaseIdentifier);
    return content;
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForEventDatabaseIdentifier(
    ZAVDatabaseIdentifier eventDatabaseIdentifier, std::int64_t eventContentIndex, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventContentForEventDatabaseIdentifier:eventContentIndex:error:]",
        "fetching event content part for eventDatabaseIdentifier=%lld index=%ld",
        "failed to fetch event for eventDatabaseIdentifier=%lld index=%ld %@"};
    static constexpr auto statement =
        projections::selectContent(" WHERE event_database_identifier = ? AND event_content_part_id = ?");
    std::shared_ptr<ZAVEventContent> content;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return readContent(*this, content, outError, statement, eventDatabaseIdentifier,
                               eventContentIndex);
        },
        eventDatabaseIdentifier, eventContentIndex);
    return content;
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForMessagePart(
    const ZAVMessagePart& messagePart, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventContentForMessagePart:error:]",
        "fetching event content part for messagePart=%@", "failed to fetch event for messagePart=%@ %@"};
    static constexpr auto statement = projections::selectContent(
        " LEFT JOIN messages ON (event_content_parts.event_database_identifier = messages.event_database_identifier)"
        " WHERE messages.database_identifier = ? AND event_content_part_id = ?");
    std::shared_ptr<ZAVEventContent> content;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return readContent(*this, content, outError, statement,
                               messagePart.message()->databaseIdentifier(), messagePart.index());
        },
        messagePart);
    return content;
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForMessagePartObjectIdentifier(
    const ZAVURL& objectIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventContentForMessagePartObjectIdentifier:error:]",
        "fetching event content part for messagePart->objectIdentifier=%@",
        "failed event content part for messagePart->objectIdentifier=%@ %@"};
    static constexpr auto statement = projections::selectContent(
        " WHERE events.client_id = ? AND event_content_parts.event_content_part_id = ?");
    const ZAVURL identifier = objectIdentifier;
    std::shared_ptr<ZAVEventContent> content;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            // An identifier that names no event binds NULL, which no client_id equals.
            const auto clientID = ZAVClientIdentifierForObjectIdentifier(identifier);
            const auto index = ZAVPartIndexForObjectIdentifier(identifier);
            return readContent(*this, content, outError, statement, clientID, index);
        },
        identifier);
    return content;
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForExternalContentURL(
    const ZAVURL& externalContentURL, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation operation{
        "-[ZAVEventRepository eventContentForExternalContentURL:error:]",
        "fetching event content part for externalContentURL=%@",
        "failed event content part for externalContentURL=%@ %@"};
    static constexpr auto statement = projections::selectContent(" WHERE event_content_parts.url = ?");
    const ZAVURL url = externalContentURL;
    std::shared_ptr<ZAVEventContent> content;
    operation.run(
        *this, error,
        [&](ZAVError& outError) {
            return readContent(*this, content, outError, statement, url.absoluteString());
        },
        url);
    return content;
}

}  // namespace zav
