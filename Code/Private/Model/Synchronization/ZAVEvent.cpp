#include <ZAVEventRepository/ZAVEvent.h>

#include <ZAVEventRepository/ZAVFormat.h>

#include "Private/Model/Synchronization/Internal/ZAVRecordCast.h"

namespace zav {
namespace {

std::string describeRow(ZAVDatabaseIdentifier row) {
    return row == ZAVDatabaseIdentifierNotSet ? "not set" : std::to_string(row);
}

}  // namespace

std::vector<std::shared_ptr<ZAVEventContent>> ZAVEvent::contentParts() const {
    std::vector<std::shared_ptr<ZAVEventContent>> parts;
    if (content()) {
        parts.reserve(content()->size());
        for (const auto& element : *content()) {
            auto* const part = ZAVRecordCast<ZAVEventContent>(element.get());
            parts.push_back(part == nullptr ? nullptr : std::shared_ptr<ZAVEventContent>(element, part));
        }
    }
    return parts;
}

void ZAVEvent::describeFields(std::string& text) const {
    text += " databaseIdentifier=" + describeRow(databaseIdentifier_);
    text += " streamDatabaseIdentifier=" + describeRow(streamDatabaseIdentifier_);
    if (streamID_) {
        text += " stream_id=" + ZAVDescription(streamUUID());
    }
    ZAVTEvent::describeFields(text);
}

}  // namespace zav
