#include "PlainFloor.h"

#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVEventMapperColumns.h>

#include <algorithm>
#include <stdexcept>

namespace zav::bench {
namespace {

template <class Row>
std::int32_t int32Of(Row& row, int column) {
    return static_cast<std::int32_t>(row.int64(column));
}

template <class Row>
std::optional<std::int32_t> int32OrNull(Row& row, int column) {
    return row.isNull(column) ? std::nullopt : std::optional(int32Of(row, column));
}

template <class Row>
std::optional<PlainBytes> bytesOf(Row& row, int column) {
    const auto bytes = row.bytes(column);
    return bytes ? std::optional<PlainBytes>(std::in_place, bytes->begin(), bytes->end()) : std::nullopt;
}

template <class Row>
std::optional<PlainUUID> uuidOf(Row& row, int column) {
    const auto bytes = row.bytes(column);
    PlainUUID uuid;
    if (!bytes || bytes->size() != uuid.size()) {
        return std::nullopt;
    }
    std::copy(bytes->begin(), bytes->end(), uuid.begin());
    return uuid;
}

template <class Row>
PlainPart mapPart(Row& row) {
    PlainPart part;
    part.event = row.int64(ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier);
    part.index = row.int64(ZAVEventMapperEventContentPartsColumnIndex);
    part.eventClient = uuidOf(row, ZAVEventMapperEventContentPartsColumnClientID);
    part.stream = uuidOf(row, ZAVEventMapperEventContentPartsColumnStreamID);
    part.eventSeq = int32OrNull(row, ZAVEventMapperEventContentPartsColumnSeq);
    part.type = row.text(ZAVEventMapperEventContentPartsColumnType);
    part.url = row.text(ZAVEventMapperEventContentPartsColumnURL);
    if (!part.url) {
        part.body = bytesOf(row, ZAVEventMapperEventContentPartsColumnValue);
    }
    part.expiration = row.int64(ZAVEventMapperEventContentPartsColumnAccessExpiration);
    part.size = row.int64(ZAVEventMapperEventContentPartsColumnSize);
    part.status = row.int64(ZAVEventMapperEventContentPartsColumnTransferStatus);
    part.path = row.text(ZAVEventMapperEventContentPartsColumnFilePath);
    if (!row.isNull(ZAVEventMapperEventContentPartsColumnLastAccessed)) {
        part.lastAccessed = row.real(ZAVEventMapperEventContentPartsColumnLastAccessed);
    }
    part.isPurged = row.int64(ZAVEventMapperEventContentPartsColumnPurged) != 0;
    return part;
}

template <class Row>
PlainEvent mapEvent(Row& row) {
    PlainEvent event;
    event.row = row.int64(ZAVEventMapperColumnEventDatabaseIdentifier);
    event.streamRow = row.int64(ZAVEventMapperColumnStreamDatabaseIdentifier);
    event.stream = bytesOf(row, ZAVEventMapperColumnEventStreamID);
    event.client = bytesOf(row, ZAVEventMapperColumnClientID);
    event.type = int32Of(row, ZAVEventMapperColumnType);
    event.creator = row.text(ZAVEventMapperColumnCreatorID);
    event.creatorName = row.text(ZAVEventMapperColumnCreatorName);
    event.member = row.text(ZAVEventMapperColumnMemberID);
    event.seq = int32OrNull(row, ZAVEventMapperColumnEventSeq);
    event.timestamp = row.int64(ZAVEventMapperColumnTimestamp);
    event.precedingSeq = int32Of(row, ZAVEventMapperColumnPrecedingSeq);
    event.clientSeq = int32Of(row, ZAVEventMapperColumnClientSeq);
    event.subtype = static_cast<std::uint8_t>(row.int64(ZAVEventMapperColumnSubType));
    event.targetSeq = int32OrNull(row, ZAVEventMapperColumnTargetSeq);
    return event;
}

template <class Row>
void requireRow(Row& row, const char* reason) {
    if (!row.next()) {
        throw std::runtime_error(reason);
    }
}

std::optional<std::int64_t> rowOrNull(std::int64_t row) {
    return row == 0 ? std::nullopt : std::optional(row);
}

std::int64_t rowOrZero(ZAVDatabaseIdentifier row) {
    return row == ZAVDatabaseIdentifierNotSet ? 0 : row;
}

std::optional<PlainBytes> plainBytesOf(const std::optional<ZAVData>& data) {
    return data ? std::optional<PlainBytes>(std::in_place, data->begin(), data->end()) : std::nullopt;
}

PlainPart plainPartOf(const ZAVEventContent& part) {
    PlainPart plain;
    plain.type = part.media_type();
    plain.body = plainBytesOf(part.body());
    plain.url = part.external_url();
    plain.size = part.size();
    plain.status = part.transferStatus();
    if (part.fileURL()) {
        plain.path = part.fileURL()->relativePath();
    }
    if (part.externalContentURLExpiration()) {
        plain.expiration =
            static_cast<std::int64_t>(ZAVSecondsSince1970(*part.externalContentURLExpiration()));
    }
    if (part.lastAccessed()) {
        plain.lastAccessed = ZAVSecondsSince1970(*part.lastAccessed());
    }
    plain.isPurged = part.isPurged();
    return plain;
}

}  // namespace

PlainEvent plainEventOf(const ZAVEvent& event) {
    PlainEvent plain;
    plain.row = rowOrZero(event.databaseIdentifier());
    plain.streamRow = rowOrZero(event.streamDatabaseIdentifier());
    plain.stream = plainBytesOf(event.stream_id());
    plain.client = plainBytesOf(event.client_id());
    plain.type = event.type();
    plain.creator = event.creator_id();
    plain.creatorName = event.creator_name();
    plain.member = event.member_id();
    plain.seq = event.seq();
    plain.timestamp = event.server_timestamp();
    plain.precedingSeq = event.preceding_seq();
    plain.clientSeq = event.client_seq();
    plain.subtype = event.subtype();
    if (event.target_seqIsSet()) {
        plain.targetSeq = event.target_seq();
    }
    if (event.content()) {
        for (const auto& part : *event.content()) {
            plain.parts.push_back(plainPartOf(static_cast<const ZAVEventContent&>(*part)));
        }
    }
    return plain;
}

void PlainFloor::persist(std::vector<PlainEvent>& events) {
    for (PlainEvent& event : events) {
        resolveStream(event);
        insertOrUpdate(event);
        writeMetadata(event);
        writeParts(event);
    }
}

void PlainFloor::resolveStream(PlainEvent& event) {
    constexpr const char* reason = "an event's stream is not registered";
    if (event.streamRow == 0) {
        auto&& rows = engine_.query(Sql::streamWithUUID, event.stream);
        requireRow(rows, reason);
        event.streamRow = rows.int64(0);
    } else {
        auto&& rows = engine_.query(Sql::streamInRow, event.streamRow);
        requireRow(rows, reason);
        event.stream = bytesOf(rows, 1);
    }
}

void PlainFloor::insertOrUpdate(PlainEvent& event) {
    engine_.update(Sql::insertEvent, rowOrNull(event.row), event.type, event.creator, event.seq,
                   event.timestamp, event.precedingSeq, event.clientSeq, event.subtype, event.member,
                   event.targetSeq, event.streamRow, event.client, event.creatorName);
    if (engine_.changes() != 0) {
        if (event.row == 0) {
            event.row = engine_.lastInsertRowId();
        }
        return;
    }
    if (event.row == 0) {
        auto&& rows = engine_.query(Sql::eventAtSeq, event.streamRow, event.seq);
        requireRow(rows, "an event collides with none");
        event.row = rows.int64(0);
    }
    engine_.update(Sql::updateEvent, event.type, event.creator, event.seq, event.timestamp,
                   event.precedingSeq, event.clientSeq, event.subtype, event.member, event.targetSeq,
                   event.streamRow, event.client, event.creatorName, event.row);
}

void PlainFloor::writeMetadata(const PlainEvent& event) {
    if (event.metadata.empty()) {
        return;
    }
    std::vector<std::string> obsolete;
    {
        auto&& rows = engine_.query(Sql::keysOfEvent, event.row, eventType_, 0);
        while (rows.next()) {
            std::string key = rows.text(0).value_or("");
            if (std::none_of(event.metadata.begin(), event.metadata.end(),
                             [&](const auto& entry) { return entry.first == key; })) {
                obsolete.push_back(std::move(key));
            }
        }
    }
    for (const auto& [key, value] : event.metadata) {
        engine_.update(Sql::insertKey, event.row, eventType_, 0, key, value, std::optional<double>());
    }
    for (const std::string& key : obsolete) {
        engine_.update(Sql::removeKey, event.row, eventType_, 0, key);
    }
}

void PlainFloor::writeParts(PlainEvent& event) {
    std::int64_t index = 0;
    for (PlainPart& part : event.parts) {
        part.event = event.row;
        part.index = index++;
        engine_.update(Sql::insertPart, part.index, part.event, part.type, part.body,
                       rowOrNull(part.expiration), part.url, part.size, part.status, part.path,
                       part.lastAccessed, part.isPurged);
    }
}

void PlainFloor::updatePart(const PlainPart& part) {
    engine_.update(Sql::updatePart, rowOrNull(part.expiration), part.url, part.size, part.status, part.path,
                   part.lastAccessed, part.isPurged, part.index, part.event);
}

template <class Row>
PlainEvent PlainFloor::readEvent(Row& row) {
    PlainEvent event = mapEvent(row);
    {
        auto&& values = engine_.query(Sql::valuesOfEvent, event.row, eventType_, 0);
        while (values.next()) {
            event.metadata.emplace_back(values.text(0).value_or(""), values.text(1).value_or(""));
        }
    }
    auto&& parts = engine_.query(Sql::partsOfEvent, event.row);
    while (parts.next()) {
        event.parts.push_back(mapPart(parts));
    }
    return event;
}

std::vector<PlainEvent> PlainFloor::allEvents() {
    std::vector<PlainEvent> events;
    auto&& rows = engine_.query(Sql::allEvents);
    while (rows.next()) {
        events.push_back(readEvent(rows));
    }
    return events;
}

std::optional<PlainEvent> PlainFloor::eventInRow(std::int64_t row) {
    auto&& rows = engine_.query(Sql::eventInRow, row);
    return rows.next() ? std::optional(readEvent(rows)) : std::nullopt;
}

std::optional<PlainPart> PlainFloor::partInRow(std::int64_t row) {
    auto&& rows = engine_.query(Sql::partInRow, row);
    return rows.next() ? std::optional(mapPart(rows)) : std::nullopt;
}

std::vector<PlainPart> PlainFloor::incompleteDownloads(std::int64_t limit) {
    std::vector<PlainPart> parts;
    auto&& rows = engine_.query(Sql::incompleteDownloads, ZAVNow(), ZAVContentTransferDownloading, limit);
    while (rows.next()) {
        parts.push_back(mapPart(rows));
    }
    return parts;
}

std::vector<PlainPart> PlainFloor::leastRecentlyAccessed(std::int64_t size) {
    std::vector<PlainPart> parts;
    auto&& rows = engine_.query(Sql::leastRecentlyAccessed, ZAVContentTransferAwaitingUpload,
                                ZAVContentTransferUploading);
    std::int64_t sum = 0;
    while (sum <= size && rows.next()) {
        parts.push_back(mapPart(rows));
        sum += parts.back().size;
    }
    return parts;
}

}  // namespace zav::bench
