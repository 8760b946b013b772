#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <ZAVEventRepository/ZAVEventMapperColumns.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVEventFromRow.h"
#include "Private/Model/Repositories/Internal/ZAVEventMetadata.h"
#include "Private/Model/Repositories/Internal/ZAVEventRepositoryProjections.h"
#include "Private/Model/Repositories/Internal/ZAVKeyedValueFromRow.h"

namespace zav {
namespace {

/// A stored value, a text turned into its UTF-8 bytes.
ZAVDictionaryValue metadataValueFrom(const ZAVDictionaryValue& stored) {
    const auto* text = std::get_if<std::string>(&stored);
    return text != nullptr ? ZAVDictionaryValue(ZAVData::fromText(*text)) : stored;
}

ZAVDictionary metadataFromKeyedValues(const std::optional<ZAVKeyedValues>& stored) {
    ZAVDictionary metadata;
    if (stored) {
        for (const auto& [key, value] : stored->keyedValues()) {
            metadata.set(key, metadataValueFrom(value));
        }
    }
    return metadata;
}

/// The UUID in a column that may be NULL, or not hold 16 bytes.
std::optional<ZAVUUID> UUIDForColumn(const FMResultSet& row, int column) {
    return ZAVUUIDFromData(row.dataForColumnIndex(column));
}

}  // namespace

std::shared_ptr<ZAVEvent> ZAVBareEventFromRow(const FMResultSet& row) {
    auto event = std::make_shared<ZAVEvent>(
        row.longLongIntForColumnIndex(ZAVEventMapperColumnEventDatabaseIdentifier),
        row.longLongIntForColumnIndex(ZAVEventMapperColumnStreamDatabaseIdentifier));
    event->set_client_id(row.dataForColumnIndex(ZAVEventMapperColumnClientID));
    event->set_client_seq(row.intForColumnIndex(ZAVEventMapperColumnClientSeq));
    event->set_creator_id(row.stringForColumnIndex(ZAVEventMapperColumnCreatorID));
    event->set_creator_name(row.stringForColumnIndex(ZAVEventMapperColumnCreatorName));
    event->set_member_id(row.stringForColumnIndex(ZAVEventMapperColumnMemberID));
    event->set_preceding_seq(row.intForColumnIndex(ZAVEventMapperColumnPrecedingSeq));
    event->set_subtype(static_cast<std::uint8_t>(row.intForColumnIndex(ZAVEventMapperColumnSubType)));
    if (!row.columnIndexIsNull(ZAVEventMapperColumnTargetSeq)) {
        event->set_target_seq(row.intForColumnIndex(ZAVEventMapperColumnTargetSeq));
    }
    event->set_server_timestamp(row.longLongIntForColumnIndex(ZAVEventMapperColumnTimestamp));
    event->set_type(static_cast<ZAVTEventType>(row.intForColumnIndex(ZAVEventMapperColumnType)));
    event->set_seq(row.intForColumnIndex(ZAVEventMapperColumnEventSeq));
    event->set_stream_id(row.dataForColumnIndex(ZAVEventMapperColumnEventStreamID));
    return event;
}

ZAVDictionaryValue ZAVMetadataValueFromRow(const FMResultSet& row, int valueColumn) {
    return metadataValueFrom(ZAVKeyedValueFromRow(row, valueColumn));
}

void ZAVSetContent(ZAVEvent& event, std::vector<std::shared_ptr<ZAVTContent>> parts) {
    if (parts.empty()) {
        event.set_content(std::nullopt);
    } else {
        event.set_content(std::move(parts));
    }
}

std::shared_ptr<ZAVEvent> ZAVEventRepository::objectFromResultSet(const FMResultSet& row,
                                                                  ZAVError* error) const {
    auto event = ZAVBareEventFromRow(row);
    const auto keyedValues = ZAVKeyedValueRepository::repositoryWithDatabase(sharedDatabase());
    event->set_transient_metadata(metadataFromKeyedValues(
        keyedValues.keyedValuesInContext(ZAVContextOfEventMetadata(event->databaseIdentifier()), error)));

    static constexpr auto contentOfEvent = projections::selectContent(
        " WHERE event_database_identifier = ? ORDER BY event_content_parts.event_content_part_id ASC");
    std::vector<std::shared_ptr<ZAVTContent>> content;
    if (auto parts = runQuery(database(), nullptr, contentOfEvent, event->databaseIdentifier())) {
        while (parts->next()) {
            auto part = eventContentFromResultSet(*parts);
            // One that memory ran out for is missing: half of it could be taken for the whole.
            if (parts->rowIsSound()) {
                content.push_back(std::move(part));
            }
        }
    }
    ZAVSetContent(*event, std::move(content));
    return event;
}

std::shared_ptr<ZAVEventContent> ZAVEventRepository::eventContentFromResultSet(const FMResultSet& row) const {
    ZAVEventOfContent event{UUIDForColumn(row, ZAVEventMapperEventContentPartsColumnClientID),
                            UUIDForColumn(row, ZAVEventMapperEventContentPartsColumnStreamID)};
    if (!row.columnIndexIsNull(ZAVEventMapperEventContentPartsColumnSeq)) {
        event.seq = row.intForColumnIndex(ZAVEventMapperEventContentPartsColumnSeq);
    }
    return ZAVContentFromRow(row, event);
}

std::shared_ptr<ZAVEventContent> ZAVContentFromRow(const FMResultSet& row, const ZAVEventOfContent& event) {
    const std::uint64_t expirationSeconds =
        row.unsignedLongLongIntForColumnIndex(ZAVEventMapperEventContentPartsColumnAccessExpiration);
    std::optional<std::string> urlText = row.stringForColumnIndex(ZAVEventMapperEventContentPartsColumnURL);
    const std::optional<std::string> filePath =
        row.stringForColumnIndex(ZAVEventMapperEventContentPartsColumnFilePath);

    std::optional<ZAVData> inlineData;
    if (!urlText) {
        inlineData = row.dataForColumnIndex(ZAVEventMapperEventContentPartsColumnValue).value_or(ZAVData());
    }
    std::optional<ZAVURL> fileURL;
    if (filePath) {
        fileURL = ZAVURL::URLWithString(*filePath, ZAVMessageRepositoryCacheBaseDirectoryURL());
    }
    std::optional<ZAVDate> expiration;
    if (expirationSeconds != 0) {
        expiration = ZAVDateFromSecondsSince1970(static_cast<double>(expirationSeconds));
    }

    auto content = std::make_shared<ZAVEventContent>(
        static_cast<ZAVDatabaseIdentifier>(row.unsignedLongLongIntForColumnIndex(
            ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier)),
        event.clientID,
        static_cast<std::int64_t>(
            row.unsignedLongLongIntForColumnIndex(ZAVEventMapperEventContentPartsColumnIndex)),
        row.stringForColumnIndex(ZAVEventMapperEventContentPartsColumnType)
            .value_or("application/octet-stream"),
        std::move(inlineData),
        static_cast<std::int64_t>(
            row.unsignedLongLongIntForColumnIndex(ZAVEventMapperEventContentPartsColumnSize)),
        std::move(fileURL), std::nullopt, expiration);
    if (urlText && ZAVURL::isURL(*urlText)) {
        content->set_external_url(std::move(urlText));
    }
    content->setTransferStatus(static_cast<ZAVContentTransferStatus>(
        row.intForColumnIndex(ZAVEventMapperEventContentPartsColumnTransferStatus)));
    content->setLastAccessed(row.dateForColumnIndex(ZAVEventMapperEventContentPartsColumnLastAccessed));
    content->setIsPurged(row.boolForColumnIndex(ZAVEventMapperEventContentPartsColumnPurged));
    content->setStreamUUID(event.streamUUID);
    if (event.seq != ZAVSequenceNotSet) {
        content->setEventSeq(event.seq);
    }
    return content;
}

}  // namespace zav
