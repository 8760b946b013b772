#pragma once

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVEventMapperColumns.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>

namespace zav::bench {

// A row has: isNull(column), int64(column), real(column), text(column) as an optional string and
// bytes(column) as an optional span that is valid until the next call on the row.

template <class Row>
std::int32_t int32Of(Row& row, int column) {
    return static_cast<std::int32_t>(row.int64(column));
}

template <class Row>
std::optional<ZAVData> dataOf(Row& row, int column) {
    const auto bytes = row.bytes(column);
    return bytes ? std::optional<ZAVData>(std::in_place, bytes->data(), bytes->size()) : std::nullopt;
}

template <class Row>
std::optional<ZAVUUID> uuidOf(Row& row, int column) {
    const auto bytes = row.bytes(column);
    ZAVUUID::Bytes held;
    if (!bytes || bytes->size() != held.size()) {
        return std::nullopt;
    }
    std::copy(bytes->begin(), bytes->end(), held.begin());
    return ZAVUUID(held);
}

/// The event's own columns; its metadata and parts are read with statements of their own.
template <class Row>
std::shared_ptr<ZAVEvent> mapEvent(Row& row) {
    auto event = std::make_shared<ZAVEvent>(row.int64(ZAVEventMapperColumnEventDatabaseIdentifier),
                                            row.int64(ZAVEventMapperColumnStreamDatabaseIdentifier));
    event->set_client_id(dataOf(row, ZAVEventMapperColumnClientID));
    event->set_client_seq(int32Of(row, ZAVEventMapperColumnClientSeq));
    event->set_creator_id(row.text(ZAVEventMapperColumnCreatorID));
    event->set_creator_name(row.text(ZAVEventMapperColumnCreatorName));
    event->set_member_id(row.text(ZAVEventMapperColumnMemberID));
    event->set_preceding_seq(int32Of(row, ZAVEventMapperColumnPrecedingSeq));
    event->set_subtype(static_cast<std::uint8_t>(row.int64(ZAVEventMapperColumnSubType)));
    if (!row.isNull(ZAVEventMapperColumnTargetSeq)) {
        event->set_target_seq(int32Of(row, ZAVEventMapperColumnTargetSeq));
    }
    event->set_server_timestamp(row.int64(ZAVEventMapperColumnTimestamp));
    event->set_type(static_cast<ZAVTEventType>(int32Of(row, ZAVEventMapperColumnType)));
    event->set_seq(int32Of(row, ZAVEventMapperColumnEventSeq));
    event->set_stream_id(dataOf(row, ZAVEventMapperColumnEventStreamID));
    return event;
}

template <class Row>
std::shared_ptr<ZAVEventContent> mapPart(Row& row, const ZAVURL& cacheDirectory) {
    const auto url = row.text(ZAVEventMapperEventContentPartsColumnURL);
    std::optional<ZAVData> body;
    if (!url) {
        body = dataOf(row, ZAVEventMapperEventContentPartsColumnValue);
        if (!body) {
            body.emplace();
        }
    }
    std::optional<ZAVURL> file;
    if (const auto path = row.text(ZAVEventMapperEventContentPartsColumnFilePath)) {
        file = ZAVURL::URLWithString(*path, cacheDirectory);
    }
    std::optional<ZAVDate> expiration;
    if (const auto seconds = row.int64(ZAVEventMapperEventContentPartsColumnAccessExpiration); seconds != 0) {
        expiration = ZAVDateFromSecondsSince1970(static_cast<double>(static_cast<std::uint64_t>(seconds)));
    }
    auto type = row.text(ZAVEventMapperEventContentPartsColumnType);
    auto part = std::make_shared<ZAVEventContent>(
        row.int64(ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier),
        uuidOf(row, ZAVEventMapperEventContentPartsColumnClientID),
        row.int64(ZAVEventMapperEventContentPartsColumnIndex),
        type ? std::move(type) : std::optional<std::string>("application/octet-stream"), std::move(body),
        row.int64(ZAVEventMapperEventContentPartsColumnSize), std::move(file),
        url ? ZAVURL::URLWithString(*url) : std::nullopt, expiration);
    part->setTransferStatus(static_cast<ZAVContentTransferStatus>(
        row.int64(ZAVEventMapperEventContentPartsColumnTransferStatus)));
    if (!row.isNull(ZAVEventMapperEventContentPartsColumnLastAccessed)) {
        part->setLastAccessed(
            ZAVDateFromSecondsSince1970(row.real(ZAVEventMapperEventContentPartsColumnLastAccessed)));
    }
    part->setIsPurged(row.int64(ZAVEventMapperEventContentPartsColumnPurged) != 0);
    part->setStreamUUID(uuidOf(row, ZAVEventMapperEventContentPartsColumnStreamID));
    if (!row.isNull(ZAVEventMapperEventContentPartsColumnSeq)) {
        part->setEventSeq(int32Of(row, ZAVEventMapperEventContentPartsColumnSeq));
    }
    return part;
}

}  // namespace zav::bench
