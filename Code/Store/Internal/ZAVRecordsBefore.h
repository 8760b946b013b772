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
            events_.emplace_back(event);
            for (const auto& part : event->contentParts()) {
                if (part != nullptr) {
                    parts_.emplace_back(part);
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
        explicit Event(std::shared_ptr<ZAVEvent> event)
            : record(std::move(event)),
              row(record->databaseIdentifier()),
              stream(record->streamDatabaseIdentifier()),
              streamID(record->stream_id()),
              creatorID(valueIf(record->creator_idIsSet(), record->creator_id())),
              clientSeq(valueIf(record->client_seqIsSet(), record->client_seq())),
              precedingSeq(valueIf(record->preceding_seqIsSet(), record->preceding_seq())) {}

        void restore() {
            record->setDatabaseIdentifier(row);
            record->setStreamDatabaseIdentifier(stream);
            record->set_stream_id(std::move(streamID));
            record->set_creator_id(creatorID.value_or(std::nullopt));
            record->set_client_seq(clientSeq.value_or(0));
            record->set_preceding_seq(precedingSeq.value_or(0));
            if (!creatorID) {
                record->unset_creator_id();
            }
            if (!clientSeq) {
                record->unset_client_seq();
            }
            if (!precedingSeq) {
                record->unset_preceding_seq();
            }
        }

        template <class Value>
        static std::optional<Value> valueIf(bool isSet, const Value& value) {
            return isSet ? std::optional<Value>(value) : std::nullopt;
        }

        std::shared_ptr<ZAVEvent> record;
        ZAVDatabaseIdentifier row;
        ZAVDatabaseIdentifier stream;
        std::optional<ZAVData> streamID;
        std::optional<std::optional<ZAVTProviderUserId>> creatorID;
        std::optional<ZAVSequence> clientSeq;
        std::optional<ZAVSequence> precedingSeq;
    };

    /// A part without its body, which nothing changes.
    struct Part {
        explicit Part(std::shared_ptr<ZAVEventContent> part)
            : record(std::move(part)),
              event(record->eventDatabaseIdentifier()),
              clientID(record->eventClientID()),
              stream(record->streamUUID()),
              status(record->transferStatus()),
              fileURL(record->fileURL()),
              expiration(record->externalContentURLExpiration()) {}

        void restore() {
            record->setEventDatabaseIdentifier(event);
            record->setEventClientID(clientID);
            record->setStreamUUID(stream);
            record->setTransferStatus(status);
            record->setFileURL(std::move(fileURL));
            record->setExternalContentURLExpiration(expiration);
        }

        std::shared_ptr<ZAVEventContent> record;
        ZAVDatabaseIdentifier event;
        std::optional<ZAVUUID> clientID;
        std::optional<ZAVUUID> stream;
        ZAVContentTransferStatus status;
        std::optional<ZAVURL> fileURL;
        std::optional<ZAVDate> expiration;
    };

    std::vector<Event> events_;
    std::vector<Part> parts_;
    bool isKept_ = false;
};

}  // namespace zav
