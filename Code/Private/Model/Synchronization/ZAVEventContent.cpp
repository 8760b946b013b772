#include <ZAVEventRepository/ZAVEventContent.h>

#include <utility>

#include <ZAVEventRepository/ZAVFormat.h>
#include <ZAVEventRepository/ZAVPrintable.h>

namespace zav {

ZAVEventContent::ZAVEventContent(ZAVDatabaseIdentifier eventDatabaseIdentifier,
                                 std::optional<ZAVUUID> eventClientID, std::int64_t index,
                                 std::optional<std::string> MIMEType, std::optional<ZAVData> inlineData,
                                 std::int64_t size, std::optional<ZAVURL> fileURL,
                                 const std::optional<ZAVURL>& externalURL,
                                 std::optional<ZAVDate> externalAccessExpiration)
    : eventClientID_(eventClientID),
      eventDatabaseIdentifier_(eventDatabaseIdentifier),
      index_(index),
      fileURL_(std::move(fileURL)) {
    setExternalContentURLExpiration(externalAccessExpiration);
    set_media_type(std::move(MIMEType));
    set_size(size);
    if (inlineData) {
        set_body(std::move(inlineData));
    }
    if (externalURL) {
        set_external_url(externalURL->absoluteString());
    }
}

void ZAVEventContent::describeFields(std::string& text) const {
    text += " eventDatabaseIdentifier=";
    text += eventDatabaseIdentifier_ == ZAVDatabaseIdentifierNotSet
                ? "not set"
                : ZAVDescription(eventDatabaseIdentifier_);
    text += " index=" + std::to_string(index_);
    text += " transferStatus=" + std::to_string(transferStatus_);
    if (fileURL_) {
        text += " fileURL=";
        ZAVAppendPrintable(text, fileURL_->absoluteString());
    }
    if (isPurged_) {
        text += " purged";
    }
    ZAVTContent::describeFields(text);
}

}  // namespace zav
