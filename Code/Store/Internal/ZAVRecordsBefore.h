#pragma once

#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVEvent.h>

namespace zav {

/// What storing writes to records, which get it back unless all is stored.
class ZAVRecordsBefore {
public:
    explicit ZAVRecordsBefore(std::span<const std::shared_ptr<ZAVEvent>> events) {
        events_.reserve(events.size());
        for (const auto& event : events) {
            if (event == nullptr) {
                continue;
            }
            events_.push_back({event});
            for (const auto& part : event->contentParts()) {
                if (part != nullptr) {
                    parts_.push_back({part});
                }
            }
        }
    }
    ~ZAVRecordsBefore() {
        if (!isKept_) {
            for (Event& event : events_) {
                event.restore();
            }
            for (Part& part : parts_) {
                part.restore();
            }
        }
    }
    ZAVRecordsBefore(const ZAVRecordsBefore&) = delete;
    ZAVRecordsBefore& operator=(const ZAVRecordsBefore&) = delete;

    /// The records stay as they are now.
    void forget() noexcept { isKept_ = true; }

private:
    struct Event {
        std::shared_ptr<ZAVEvent> record;
        ZAVDatabaseIdentifier row = record->databaseIdentifier();
        ZAVDatabaseIdentifier stream = record->streamDatabaseIdentifier();
        std::optional<ZAVData> streamID = record->stream_id();
        std::optional<ZAVTProviderUserId> creatorID = record->creator_id();
        ZAVSequence clientSeq = record->client_seq();
        ZAVSequence precedingSeq = record->preceding_seq();
        bool saysCreatorID = record->creator_idIsSet();
        bool saysClientSeq = record->client_seqIsSet();
        bool saysPrecedingSeq = record->preceding_seqIsSet();

        void restore() {
            record->setDatabaseIdentifier(row);
            record->setStreamDatabaseIdentifier(stream);
            record->set_stream_id(std::move(streamID));
            record->set_creator_id(std::move(creatorID));
            record->set_client_seq(clientSeq);
            record->set_preceding_seq(precedingSeq);
            if (!saysCreatorID) {
                record->unset_creator_id();
            }
            if (!saysClientSeq) {
                record->unset_client_seq();
            }
            if (!saysPrecedingSeq) {
                record->unset_preceding_seq();
            }
        }
    };

    /// A part without its body, which nothing changes.
    struct Part {
        std::shared_ptr<ZAVEventContent> record;
        ZAVDatabaseIdentifier event = record->eventDatabaseIdentifier();
        std::optional<ZAVUUID> clientID = record->eventClientID();
        std::optional<ZAVUUID> stream = record->streamUUID();
        ZAVContentTransferStatus status = record->transferStatus();
        std::optional<ZAVURL> fileURL = record->fileURL();
        std::optional<ZAVDate> expiration = record->externalContentURLExpiration();

        void restore() {
            record->setEventDatabaseIdentifier(event);
            record->setEventClientID(clientID);
            record->setStreamUUID(stream);
            record->setTransferStatus(status);
            record->setFileURL(std::move(fileURL));
            record->setExternalContentURLExpiration(expiration);
        }
    };

    std::vector<Event> events_;
    std::vector<Part> parts_;
    bool isKept_ = false;
};

}  // namespace zav
