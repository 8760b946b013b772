#include <ZAVEventRepository/ZAVEvent.h>

#include <ZAVEventRepository/ZAVFormat.h>

namespace zav {
namespace {

std::string describeRow(ZAVDatabaseIdentifier row) {
    return row == ZAVDatabaseIdentifierNotSet ? "not set" : std::to_string(row);
}

}  // namespace

void ZAVEvent::describeFields(std::string& text) const {
    text += " databaseIdentifier=" + describeRow(databaseIdentifier_);
    text += " streamDatabaseIdentifier=" + describeRow(streamDatabaseIdentifier_);
    if (streamID_) {
        text += " stream_id=" + ZAVDescription(streamUUID());
    }
    ZAVTEvent::describeFields(text);
}

}  // namespace zav
