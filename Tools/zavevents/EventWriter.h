#pragma once

#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVEvent.h>

namespace zavevents {

/// Appends an event as one line of JSON, with its line break.
/// @param sequenced whether the service has sequenced the event, which cannot be seen from the record.
void appendEvent(const zav::ZAVEvent& event, bool sequenced, std::string& text);

/// Appends an event as a JSON object.
/// @param cursor the text of the cursor that names its place, where that is told.
void appendEventObject(const zav::ZAVEvent& event, bool sequenced, std::string& text,
                       const std::optional<std::string>& cursor = {});

/// Appends a content part as one line of JSON, with its line break.
void appendPart(const zav::ZAVEventContent& part, std::string& text);

}  // namespace zavevents
