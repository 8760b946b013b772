#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>

#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryReading.h"

namespace zav {
namespace {

template <class Query, class... LogArguments>
std::shared_ptr<ZAVEventContent> readContent(const ZAVRepositoryOperation<LogArguments...>& operation,
                                             const ZAVEventRepository& repository, ZAVError* error,
                                             const Query& query, const LogArguments&... logArguments) {
    return readFirst(
        operation, repository, error, query,
        [&](const FMResultSet& row) { return repository.eventContentFromResultSet(row); }, logArguments...);
}

}  // namespace

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentDatabaseIdentifier(
    ZAVDatabaseIdentifier databaseIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVDatabaseIdentifier> operation{
        "-[ZAVEventRepository eventContentDatabaseIdentifier:error:]",
        "fetching event content part for databaseIdentifier=%lld",
        "failed to fetch event for databaseIdentifier=%lld %@"};
    static constexpr auto statement =
        projections::selectContent(" WHERE event_content_parts.database_identifier = ?");
    return readContent(operation, *this, error, selecting(*this, statement, databaseIdentifier),
                       databaseIdentifier);
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForEventDatabaseIdentifier(
    ZAVDatabaseIdentifier eventDatabaseIdentifier, std::int64_t eventContentIndex, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVDatabaseIdentifier, std::int64_t> operation{
        "-[ZAVEventRepository eventContentForEventDatabaseIdentifier:eventContentIndex:error:]",
        "fetching event content part for eventDatabaseIdentifier=%lld index=%ld",
        "failed to fetch event for eventDatabaseIdentifier=%lld index=%ld %@"};
    static constexpr auto statement =
        projections::selectContent(" WHERE event_database_identifier = ? AND event_content_part_id = ?");
    return readContent(operation, *this, error,
                       selecting(*this, statement, eventDatabaseIdentifier, eventContentIndex),
                       eventDatabaseIdentifier, eventContentIndex);
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForMessagePart(
    const ZAVMessagePart& messagePart, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVMessagePart> operation{
        "-[ZAVEventRepository eventContentForMessagePart:error:]",
        "fetching event content part for messagePart=%@", "failed to fetch event for messagePart=%@ %@"};
    static constexpr auto statement = projections::selectContent(
        " LEFT JOIN messages ON (event_content_parts.event_database_identifier = messages.event_database_identifier)"
        " WHERE messages.database_identifier = ? AND event_content_part_id = ?");
    return readContent(
        operation, *this, error,
        selecting(*this, statement, messagePart.message()->databaseIdentifier(), messagePart.index()),
        messagePart);
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForMessagePartObjectIdentifier(
    const ZAVURL& objectIdentifier, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVURL> operation{
        "-[ZAVEventRepository eventContentForMessagePartObjectIdentifier:error:]",
        "fetching event content part for messagePart->objectIdentifier=%@",
        "failed event content part for messagePart->objectIdentifier=%@ %@"};
    static constexpr auto statement = projections::selectContent(
        " WHERE events.client_id = ? AND event_content_parts.event_content_part_id = ?");
    const ZAVURL identifier = objectIdentifier;
    return readContent(
        operation, *this, error,
        [&](ZAVError& outError) {
            // An invalid identifier binds NULL, which no client_id equals.
            return runQuery(database(), &outError, statement,
                            ZAVClientIdentifierForObjectIdentifier(identifier),
                            ZAVPartIndexForObjectIdentifier(identifier));
        },
        identifier);
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentForExternalContentURL(
    const ZAVURL& externalContentURL, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVURL> operation{
        "-[ZAVEventRepository eventContentForExternalContentURL:error:]",
        "fetching event content part for externalContentURL=%@",
        "failed event content part for externalContentURL=%@ %@"};
    static constexpr auto statement = projections::selectContent(" WHERE event_content_parts.url = ?");
    const ZAVURL url = externalContentURL;
    return readContent(
        operation, *this, error,
        [&](ZAVError& outError) { return runQuery(database(), &outError, statement, url.absoluteString()); },
        url);
}

}  // namespace zav
