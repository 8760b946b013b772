#include "Private/Model/Repositories/ZAVStreamRepository.h"

namespace zav {

ZAVDatabaseIdentifier ZAVStreamRepository::streamDatabaseIdentifierForUUID(const ZAVUUID& uuid,
                                                                           ZAVError* error) const {
    auto rows = database().executeQuery("SELECT database_identifier FROM streams WHERE stream_id = ?", uuid);
    if (!rows) {
        ZAVStoreError(error, database().lastError());
        return ZAVDatabaseIdentifierNotSet;
    }
    return rows->nextWithError(error) ? rows->longLongIntForColumnIndex(0) : ZAVDatabaseIdentifierNotSet;
}

ZAVDatabaseIdentifier ZAVStreamRepository::findOrCreateStreamWithUUID(const ZAVUUID& uuid,
                                                                      ZAVError* error) const {
    ZAVError lookupError;
    const ZAVDatabaseIdentifier existing = streamDatabaseIdentifierForUUID(uuid, &lookupError);
    if (lookupError) {
        ZAVStoreError(error, lookupError);
        return ZAVDatabaseIdentifierNotSet;
    }
    return existing != ZAVDatabaseIdentifierNotSet ? existing : insert(uuid, error);
}

ZAVDatabaseIdentifier ZAVStreamRepository::createStreamWithoutUUID(ZAVError* error) const {
    return insert(std::nullopt, error);
}

bool ZAVStreamRepository::setUUID(const ZAVUUID& uuid, ZAVDatabaseIdentifier streamDatabaseIdentifier,
                                  ZAVError* error) const {
    return report(database().executeUpdate("UPDATE streams SET stream_id = ? WHERE database_identifier = ?",
                                           uuid, streamDatabaseIdentifier),
                  error);
}

bool ZAVStreamRepository::setSeq(ZAVSequence seq, ZAVDatabaseIdentifier streamDatabaseIdentifier,
                                 ZAVError* error) const {
    return report(database().executeUpdate("UPDATE streams SET seq = ? WHERE database_identifier = ?", seq,
                                           streamDatabaseIdentifier),
                  error);
}

std::optional<std::uint64_t> ZAVStreamRepository::countOfStreams(ZAVError* error) const {
    auto rows = database().executeQuery("SELECT COUNT(*) FROM streams");
    if (!rows) {
        ZAVStoreError(error, database().lastError());
        return std::nullopt;
    }
    if (!rows->nextWithError(error)) {
        return std::nullopt;
    }
    return rows->unsignedLongLongIntForColumnIndex(0);
}

ZAVDatabaseIdentifier ZAVStreamRepository::insert(const std::optional<ZAVUUID>& uuid, ZAVError* error) const {
    if (!report(database().executeUpdate("INSERT INTO streams (stream_id) VALUES (?)", uuid), error)) {
        return ZAVDatabaseIdentifierNotSet;
    }
    return database().lastInsertRowId();
}

bool ZAVStreamRepository::report(bool succeeded, ZAVError* error) const {
    if (!succeeded) {
        ZAVStoreError(error, database().lastError());
    }
    return succeeded;
}

}  // namespace zav
