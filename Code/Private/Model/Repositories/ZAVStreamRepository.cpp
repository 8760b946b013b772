#include <ZAVEventRepository/ZAVStreamRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {
namespace {

constexpr ZAVSQL selectByUUID = "SELECT database_identifier FROM streams WHERE stream_id = ?";
constexpr ZAVSQL insertWithUUID = "INSERT INTO streams (stream_id) VALUES (?)";

/// The streams that a query finds; none on failure.
std::optional<std::vector<ZAVRegisteredStream>> readStreams(FMDatabase& database, ZAVError* error,
                                                            ZAVSQL statement, ZAVDatabaseIdentifier row) {
    auto rows = runQuery(database, error, statement, row);
    if (!rows) {
        return std::nullopt;
    }
    std::vector<ZAVRegisteredStream> streams;
    ZAVError failure;
    while (rows->nextWithError(&failure)) {
        streams.push_back({rows->longLongIntForColumnIndex(0), ZAVUUIDFromData(rows->dataForColumnIndex(1))});
    }
    if (failure) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    return streams;
}

}  // namespace

ZAVDatabaseIdentifier ZAVStreamRepository::streamDatabaseIdentifierForUUID(const ZAVUUID& uuid,
                                                                           ZAVError* error) const {
    return readRow(database(), error, selectByUUID, uuid).value_or(ZAVDatabaseIdentifierNotSet);
}

ZAVDatabaseIdentifier ZAVStreamRepository::findOrCreateStreamWithUUID(const ZAVUUID& uuid,
                                                                      ZAVError* error) const {
    return findOrInsert(database(), error, selectByUUID, insertWithUUID, uuid)
        .value_or(ZAVDatabaseIdentifierNotSet);
}

ZAVDatabaseIdentifier ZAVStreamRepository::createStreamWithoutUUID(ZAVError* error) const {
    return insertRow(database(), error, insertWithUUID, std::nullopt).value_or(ZAVDatabaseIdentifierNotSet);
}

bool ZAVStreamRepository::setUUID(const ZAVUUID& uuid, ZAVDatabaseIdentifier streamDatabaseIdentifier,
                                  ZAVError* error) const {
    return runUpdate(database(), error, "UPDATE streams SET stream_id = ? WHERE database_identifier = ?",
                     uuid, streamDatabaseIdentifier);
}

bool ZAVStreamRepository::setSeq(ZAVSequence seq, ZAVDatabaseIdentifier streamDatabaseIdentifier,
                                 ZAVError* error) const {
    return runUpdate(database(), error, "UPDATE streams SET seq = ? WHERE database_identifier = ?", seq,
                     streamDatabaseIdentifier);
}

std::optional<ZAVRegisteredStream> ZAVStreamRepository::streamForDatabaseIdentifier(
    ZAVDatabaseIdentifier streamDatabaseIdentifier, ZAVError* error) const {
    const auto streams = readStreams(
        database(), error, "SELECT database_identifier, stream_id FROM streams WHERE database_identifier = ?",
        streamDatabaseIdentifier);
    return streams && !streams->empty() ? std::optional(streams->front()) : std::nullopt;
}

std::optional<std::vector<ZAVRegisteredStream>> ZAVStreamRepository::streamsAbove(
    ZAVDatabaseIdentifier streamDatabaseIdentifier, ZAVError* error) const {
    return readStreams(database(), error,
                       "SELECT database_identifier, stream_id FROM streams WHERE database_identifier > ?"
                       " ORDER BY database_identifier",
                       streamDatabaseIdentifier);
}

std::optional<std::uint64_t> ZAVStreamRepository::countOfStreams(ZAVError* error) const {
    const auto count = readNumber(database(), error, "SELECT COUNT(*) FROM streams");
    return count ? std::optional(static_cast<std::uint64_t>(*count)) : std::nullopt;
}

}  // namespace zav
