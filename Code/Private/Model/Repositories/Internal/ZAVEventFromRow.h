#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <ZAVEventRepository/FMResultSet.h>
#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// What a content part has of its event.
struct ZAVEventOfContent {
    std::optional<ZAVUUID> clientID;
    std::optional<ZAVUUID> streamUUID;
    ZAVSequence seq = ZAVSequenceNotSet;  ///< an event at that very number counts as one without
};

/// The event on the current row of an event query, without its metadata and content.
[[nodiscard]] std::shared_ptr<ZAVEvent> ZAVBareEventFromRow(const FMResultSet& row);

/// A metadata value on the current row, whose `value` is followed by whether it is bytes: texts are the bytes
/// that encode them.
[[nodiscard]] ZAVDictionaryValue ZAVMetadataValueFromRow(const FMResultSet& row, int valueColumn);

/// The content part on the current row of a content part query, whose columns of the event are not read.
[[nodiscard]] std::shared_ptr<ZAVEventContent> ZAVContentFromRow(const FMResultSet& row,
                                                                 const ZAVEventOfContent& event);

/// Has the content of an event consist of these parts; none is no content.
void ZAVSetContent(ZAVEvent& event, std::vector<std::shared_ptr<ZAVTContent>> parts);

}  // namespace zav
