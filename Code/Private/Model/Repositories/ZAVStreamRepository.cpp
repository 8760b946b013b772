#include <ZAVEventRepository/ZAVStreamRepository.h>

#include <utility>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {
namespace {

constexpr ZAVSQL selectByUUID = "SELECT database_identifier FROM streams WHERE stream_id = ?";
constexpr ZAVSQL insertWithUUID = "INSERT INTO streams (stream_id) VALUES (?)";

/// The streams that a query finds; none on failure.
std::optional<std::vector<ZAVRegisteredStream>> readStreams(FMDatabase& database, ZAVError* error,
                                                            ZAVSQL statement, ZAVDatabaseIdentifier row) {
    std::vector<ZAVRegisteredStream> streams;
    const auto add = [&](const FMResultSet& stream) {
        streams.push_back(
            {stream.longLongIntForColumnIndex(0), ZAVUUIDFromData(stream.dataForColumnIndex(1))});
    };
    return visitRows(database, error, statement, add, row) ? std::optional(std::move(streams)) : std::nullopt;
}

}  // namespace

ZAVDatabaseIdentifier ZAVStreamRepository::streamDatabaseIdentifierForUUID(const ZAVUUID& uuid,
                                                                           ZAVError* error) const {
    return readRow(database(), error, selectByUUID, uuid);
}

ZAVDatabaseIdentifier ZAVStreamRepository::findOrCreateStreamWithUUID(const ZAVUUID& uuid,
                                                                      ZAVError* error) const {
    return findOrInsert(database(), error, selectByUUID, insertWithUUID, uuid);
}

ZAVDatabaseIdentifier ZAVStreamRepository::createStreamWithoutUUID(ZAVError* error) const {
    return insertRow(database(), error, insertWithUUID, std::nullopt);
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
    return readNumber<std::uint64_t>(database(), error, "SELECT COUNT(*) FROM streams");
}

}  // namespace zav
