#include <ZAVEventRepository/ZAVStreamRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {
namespace {

constexpr ZAVSQL selectByUUID = "SELECT database_identifier FROM streams WHERE stream_id = ?";
constexpr ZAVSQL insertWithUUID = "INSERT INTO streams (stream_id) VALUES (?)";

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

std::optional<std::uint64_t> ZAVStreamRepository::countOfStreams(ZAVError* error) const {
    const auto count = readNumber(database(), error, "SELECT COUNT(*) FROM streams");
    return count ? std::optional(static_cast<std::uint64_t>(*count)) : std::nullopt;
}

}  // namespace zav
