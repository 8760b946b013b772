#pragma once

#include <cstddef>

namespace zav {

/// Columns of an event query, by their position in its select list.
enum ZAVEventMapperColumn : std::size_t {
    ZAVEventMapperColumnClientID = 0,
    ZAVEventMapperColumnClientSeq = 1,
    ZAVEventMapperColumnCreatorID = 2,
    ZAVEventMapperColumnMemberID = 3,
    ZAVEventMapperColumnPrecedingSeq = 4,
    ZAVEventMapperColumnStreamDatabaseIdentifier = 5,
    ZAVEventMapperColumnSubType = 6,
    ZAVEventMapperColumnTargetSeq = 7,
    ZAVEventMapperColumnTimestamp = 8,
    ZAVEventMapperColumnType = 9,
    ZAVEventMapperColumnEventSeq = 10,
    ZAVEventMapperColumnEventDatabaseIdentifier = 11,
    ZAVEventMapperColumnEventStreamID = 12,
    ZAVEventMapperColumnStreamSeq = 13,  ///< selected, and left unread by the mapper
    ZAVEventMapperColumnCreatorName = 14,
};

/// Columns of a content part query, by their position in its select list. Further columns may follow.
enum ZAVEventMapperEventContentPartsColumn : std::size_t {
    ZAVEventMapperEventContentPartsColumnIndex = 0,
    ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier = 1,
    ZAVEventMapperEventContentPartsColumnType = 2,
    ZAVEventMapperEventContentPartsColumnValue = 3,
    ZAVEventMapperEventContentPartsColumnAccessExpiration = 4,
    ZAVEventMapperEventContentPartsColumnURL = 5,
    ZAVEventMapperEventContentPartsColumnSize = 6,
    ZAVEventMapperEventContentPartsColumnTransferStatus = 7,
    ZAVEventMapperEventContentPartsColumnFilePath = 8,
    ZAVEventMapperEventContentPartsColumnLastAccessed = 9,
    ZAVEventMapperEventContentPartsColumnPurged = 10,
    ZAVEventMapperEventContentPartsColumnClientID = 11,
    ZAVEventMapperEventContentPartsColumnSeq = 12,
    ZAVEventMapperEventContentPartsColumnStreamID = 13,
};

}  // namespace zav
