#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <ZAVEventRepository/ZAVContentTransferStatus.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVTContent.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// A content part of an event, with what only this device knows of it: its event, its file and its transfer.
///
/// The back-references to the event and its stream are set by the repository; an application reads them.
/// Reading a part sets all of them and its index; storing it sets neither its index nor `eventSeq`.
class ZAV_EXPORT ZAVEventContent : public ZAVTContent {
public:
    /// A part that belongs to no event yet.
    ZAVEventContent() = default;

    /// @param inlineData the part's body, for a part without an external URL.
    /// @param size the part's size in bytes, wherever its bytes are.
    /// @param fileURL the local file, relative to the content cache directory.
    /// @param externalURL where the service's content store holds the content; kept as its absolute string.
    /// @param externalAccessExpiration when `externalURL` ceases to work.
    ZAVEventContent(ZAVDatabaseIdentifier eventDatabaseIdentifier, std::optional<ZAVUUID> eventClientID,
                    std::int64_t index, std::optional<std::string> MIMEType,
                    std::optional<ZAVData> inlineData, std::int64_t size, std::optional<ZAVURL> fileURL,
                    const std::optional<ZAVURL>& externalURL,
                    std::optional<ZAVDate> externalAccessExpiration);

    /// Row of the event; `ZAVDatabaseIdentifierNotSet` until the part is stored.
    [[nodiscard]] ZAVDatabaseIdentifier eventDatabaseIdentifier() const noexcept {
        return eventDatabaseIdentifier_;
    }

    /// For the repository.
    void setEventDatabaseIdentifier(ZAVDatabaseIdentifier value) noexcept {
        eventDatabaseIdentifier_ = value;
    }

    /// The event's `client_id`; none when the event's row is missing.
    [[nodiscard]] const std::optional<ZAVUUID>& eventClientID() const noexcept { return eventClientID_; }

    /// For the repository.
    void setEventClientID(std::optional<ZAVUUID> value) noexcept { eventClientID_ = value; }

    /// The event's sequence when the part was read; `ZAVSequenceNotSet` when it had none, and in a part that
    /// was not read from the database.
    [[nodiscard]] ZAVSequence eventSeq() const noexcept { return eventSeq_; }

    /// For the repository.
    void setEventSeq(ZAVSequence value) noexcept { eventSeq_ = value; }

    /// Position within the event, from 0. Storing an event numbers its parts by their position in its
    /// `content`, whatever their index says, and does not set it; a later update of a part finds its row by
    /// this index.
    [[nodiscard]] std::int64_t index() const noexcept { return index_; }

    /// Names another row for the next update of this part.
    void setIndex(std::int64_t value) noexcept { index_ = value; }

    /// The stream's identifier; none while the service does not know the stream.
    [[nodiscard]] const std::optional<ZAVUUID>& streamUUID() const noexcept { return streamUUID_; }

    /// For the repository.
    void setStreamUUID(std::optional<ZAVUUID> value) noexcept { streamUUID_ = value; }

    /// Where the part stands; a new one awaits its upload, so set another for one that holds its body. A
    /// stored number that has no name is kept as it is.
    [[nodiscard]] ZAVContentTransferStatus transferStatus() const noexcept { return transferStatus_; }

    /// Stored by the next update of the part.
    void setTransferStatus(ZAVContentTransferStatus value) noexcept { transferStatus_ = value; }

    /// The local file of the content.
    [[nodiscard]] const std::optional<ZAVURL>& fileURL() const noexcept { return fileURL_; }

    /// Sets the local file, which is stored as its relative path: see
    /// `ZAVMessageRepositoryMakeMessagePartFileURL`.
    void setFileURL(std::optional<ZAVURL> value) noexcept { fileURL_ = std::move(value); }

    /// When the file was last used. A part without it is never chosen to be purged.
    [[nodiscard]] std::optional<ZAVDate> lastAccessed() const noexcept {
        return hasLastAccessed_ ? std::optional(lastAccessed_) : std::nullopt;
    }

    /// Stored by the next update of the part.
    void setLastAccessed(std::optional<ZAVDate> value) noexcept {
        lastAccessed_ = value.value_or(ZAVDate());
        hasLastAccessed_ = value.has_value();
    }

    /// When `external_url` ceases to work; without it the URL counts as expired. Stored with its fraction of
    /// a second, read back without.
    [[nodiscard]] std::optional<ZAVDate> externalContentURLExpiration() const noexcept {
        return hasExternalContentURLExpiration_ ? std::optional(externalContentURLExpiration_) : std::nullopt;
    }

    /// Stored with the part. The wire field `external_access_expiration` is not: who receives an event
    /// carries it over.
    void setExternalContentURLExpiration(std::optional<ZAVDate> value) noexcept {
        externalContentURLExpiration_ = value.value_or(ZAVDate());
        hasExternalContentURLExpiration_ = value.has_value();
    }

    /// Whether the local file was removed to reclaim space.
    [[nodiscard]] bool isPurged() const noexcept { return isPurged_; }

    /// Stored by the next update of the part. The file is the caller's to remove.
    void setIsPurged(bool value) noexcept { isPurged_ = value; }

    [[nodiscard]] std::string_view className() const noexcept override { return "ZAVEventContent"; }

protected:
    void describeFields(std::string& text) const override;

private:
    // The presence of the dates is kept apart from them: two optional dates would pad 14 bytes into every
    // part.
    bool isPurged_ = false;
    bool hasLastAccessed_ = false;
    bool hasExternalContentURLExpiration_ = false;
    std::optional<ZAVUUID> eventClientID_;
    std::optional<ZAVUUID> streamUUID_;
    ZAVSequence eventSeq_ = ZAVSequenceNotSet;
    ZAVContentTransferStatus transferStatus_ = ZAVContentTransferAwaitingUpload;
    ZAVDatabaseIdentifier eventDatabaseIdentifier_ = ZAVDatabaseIdentifierNotSet;
    std::int64_t index_ = 0;
    std::optional<ZAVURL> fileURL_;
    ZAVDate lastAccessed_;
    ZAVDate externalContentURLExpiration_;
};

}  // namespace zav
