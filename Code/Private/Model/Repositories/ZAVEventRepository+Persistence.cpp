#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVUTF8.h>

#include "Private/Model/Repositories/Internal/ZAVEventMetadata.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryOperation.h"
#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"
#include "Private/Model/Synchronization/Internal/ZAVRecordCast.h"

namespace zav {
namespace {

template <class... Arguments>
[[noreturn]] void raise(ZAVFormatString<std::type_identity_t<Arguments>...> reason,
                        const Arguments&... arguments) {
    throw NSInternalInconsistencyException(ZAVStringWithFormat(reason, arguments...));
}

std::string_view classNameOf(const ZAVObject* object) noexcept {
    return object == nullptr ? "(null)" : object->className();
}

[[noreturn]] void refuseEvent(const ZAVObject* event) {
    raise("Failed to persist an event. Expected 'ZAVEvent' but received an object of type '%@'",
          classNameOf(event));
}

using Parts = std::vector<std::shared_ptr<ZAVEventContent>>;

/// The element as an event that can be stored, and its parts in `parts`: whoever observes the statements may
/// give the event other ones meanwhile.
/// @throws NSInternalInconsistencyException when it is not one.
ZAVEvent& requireStorable(const std::shared_ptr<ZAVTEvent>& element, Parts& parts) {
    auto* const event = ZAVRecordCast<ZAVEvent>(element.get());
    if (event == nullptr) {
        refuseEvent(element.get());
    }
    if (event->type() == 0) {
        raise("Cannot persist event: invalid type of 0 encountered. (%@)", event->description());
    }
    if (!event->stream_id() && event->streamDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
        raise("Failed to persist an event. Event should have 'stream_id' OR 'streamDatabaseIdentifier' set!");
    }
    if (!event->client_id()) {
        raise("Failed to persist an event with an undefined client_id; event = %@", event->description());
    }
    // One list for all events: `contentParts` would make one for each.
    parts.clear();
    if (event->content()) {
        for (const auto& part : *event->content()) {
            auto* const storable = ZAVRecordCast<ZAVEventContent>(part.get());
            if (storable == nullptr) {
                raise(
                    "Failed to persist an event's content. Expected 'ZAVEventContent' but received an object of type "
                    "'%@'",
                    classNameOf(part.get()));
            }
            parts.emplace_back(part, storable);
        }
    }
    return *event;
}

/// The row to bind: NULL lets the database choose one.
std::optional<ZAVDatabaseIdentifier> rowOrNull(ZAVDatabaseIdentifier row) noexcept {
    return row == ZAVDatabaseIdentifierNotSet ? std::nullopt : std::optional(row);
}

/// Writes one event. A step that fails has put the reason into the operation's error cell when it returns
/// false; a violated precondition throws.
class EventWriter {
public:
    /// @param event completed with the rows that it is stored in.
    EventWriter(FMDatabase& database, const ZAVKeyedValueRepository& keyedValues, ZAVEvent& event,
                const Parts& parts, ZAVError& outError)
        : database_(database), keyedValues_(keyedValues), event_(event), parts_(parts), outError_(outError) {}

    [[nodiscard]] bool write() {
        const bool hasStream = event_.streamDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet
                                   ? findStreamRow()
                                   : findStreamUUID();
        return hasStream && insertOrUpdate() && writeMetadata() && writeContent();
    }

private:
    [[nodiscard]] bool findStreamRow() {
        auto rows = runQuery(database_, &outError_, "SELECT * FROM streams WHERE stream_id = ? LIMIT 1",
                             *event_.stream_id());
        if (!rows || !rows->nextWithError(&outError_)) {
            if (!outError_) {
                raise(
                    "Failed to persist an event. stream_id='%@' doesn't exist yet in the database. Should create a "
                    "new stream with that identifier before persisting the event.",
                    event_.streamUUID());
            }
            return false;
        }
        event_.setStreamDatabaseIdentifier(rows->longLongIntForColumn("database_identifier"));
        return isUsableRow(event_.streamDatabaseIdentifier(), &outError_) && rows->closeWithError(&outError_);
    }

    [[nodiscard]] bool findStreamUUID() {
        auto rows =
            runQuery(database_, &outError_, "SELECT * FROM streams WHERE database_identifier = ? LIMIT 1",
                     event_.streamDatabaseIdentifier());
        if (!rows || !rows->nextWithError(&outError_)) {
            if (!outError_) {
                raise(
                    "Failed to persist the event. stream_database_identifier='%lld' doesn't exist in the database. "
                    "The stream might have been deleted before the event could be persisted.",
                    event_.streamDatabaseIdentifier());
            }
            return false;
        }
        event_.set_stream_id(rows->dataForColumn("stream_id"));
        return rows->closeWithError(&outError_);
    }

    [[nodiscard]] bool insertOrUpdate() {
        if (!insert()) {
            return false;
        }
        if (database_.changes() == 0 && !(adoptExistingRow() && update())) {
            return false;
        }
        if (event_.databaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
            event_.setDatabaseIdentifier(database_.lastInsertRowId());
            return isUsableRow(event_.databaseIdentifier(), &outError_);
        }
        return true;
    }

    [[nodiscard]] bool insert() {
        const bool hasSeq = event_.seqIsSet() && event_.seq() != ZAVSequenceNotSet;
        return runUpdate(
            database_, &outError_,
            "INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, "
            "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, "
            "client_id, creator_name) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
            rowOrNull(event_.databaseIdentifier()), event_.type(), event_.creator_id(),
            hasSeq ? std::optional(event_.seq()) : std::nullopt, event_.server_timestamp(),
            event_.preceding_seq(), event_.client_seq(), event_.subtype(), event_.member_id(), targetSeq(),
            rowOrNull(event_.streamDatabaseIdentifier()), event_.client_id(), event_.creator_name());
    }

    /// An event without a row collided with the one at its sequence, and takes that one's row.
    [[nodiscard]] bool adoptExistingRow() {
        if (event_.databaseIdentifier() != ZAVDatabaseIdentifierNotSet) {
            return true;
        }
        auto rows = runQuery(database_, &outError_,
                             "SELECT * FROM events WHERE stream_database_identifier = ? AND seq = ? LIMIT 1",
                             event_.streamDatabaseIdentifier(), event_.seq());
        if (!rows || !rows->nextWithError(&outError_)) {
            if (!outError_) {
                raise("Failed to persist an event with an existing stream_id and seq.");
            }
            return false;
        }
        event_.setDatabaseIdentifier(rows->longLongIntForColumn("database_identifier"));
        return isUsableRow(event_.databaseIdentifier(), &outError_);
    }

    /// Unlike `insert`, this writes a `seq` that was set to `ZAVSequenceNotSet` as that number.
    [[nodiscard]] bool update() {
        return runUpdate(
            database_, &outError_,
            "UPDATE events SET type = ?, creator_id = ?, seq = ?, timestamp = ?, preceding_seq = ?, "
            "client_seq = ?, subtype = ?, member_id = ?, target_seq = ?, stream_database_identifier = ?, "
            "client_id = ?, creator_name = ? WHERE database_identifier = ?",
            event_.type(), event_.creator_id(),
            event_.seqIsSet() ? std::optional(event_.seq()) : std::nullopt, event_.server_timestamp(),
            event_.preceding_seq(), event_.client_seq(), event_.subtype(), event_.member_id(), targetSeq(),
            rowOrNull(event_.streamDatabaseIdentifier()), event_.client_id(), event_.creator_name(),
            event_.databaseIdentifier());
    }

    [[nodiscard]] bool writeMetadata() {
        if (!event_.transient_metadata()) {
            return true;
        }
        return keyedValues_.setKeyedValuesWithDictionary(
            ZAVStorableMetadata(*event_.transient_metadata()), std::nullopt,
            ZAVContextOfEventMetadata(event_.databaseIdentifier()), &outError_);
    }

    [[nodiscard]] bool writeContent() {
        std::uint64_t index = 0;
        return std::all_of(parts_.begin(), parts_.end(),
                           [&](const auto& part) { return writePart(*part, index++); });
    }

    [[nodiscard]] bool writePart(ZAVEventContent& part, std::uint64_t index) {
        part.setEventDatabaseIdentifier(event_.databaseIdentifier());
        part.setEventClientID(ZAVUUIDFromData(event_.client_id()));
        part.setStreamUUID(event_.streamUUID());
        return runUpdate(
            database_, &outError_,
            "INSERT OR IGNORE INTO event_content_parts (event_content_part_id, event_database_identifier, "
            "type, value, access_expiration, url, size, transfer_status, file_path, last_accessed, purged) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
            index, event_.databaseIdentifier(), part.media_type(), part.body(),
            part.externalContentURLExpiration(), part.external_url(), part.size(), part.transferStatus(),
            part.fileURL() ? std::optional(part.fileURL()->relativePath()) : std::nullopt,
            part.lastAccessed(), part.isPurged());
    }

    /// A `target_seq` that was set to `ZAVSequenceNotSet` is stored as that number: only the flag counts.
    [[nodiscard]] std::optional<ZAVSequence> targetSeq() const noexcept {
        return event_.target_seqIsSet() ? std::optional(event_.target_seq()) : std::nullopt;
    }

    FMDatabase& database_;
    const ZAVKeyedValueRepository& keyedValues_;
    ZAVEvent& event_;
    const Parts& parts_;
    ZAVError& outError_;
};

}  // namespace

ZAVDictionary ZAVStorableMetadata(const ZAVDictionary& metadata) {
    ZAVDictionary storable;
    for (const auto& [key, value] : metadata) {
        const auto* bytes = std::get_if<ZAVData>(&value);
        if (bytes == nullptr) {
            storable.set(key, value);
        } else if (ZAVIsUTF8(bytes->asText())) {
            storable.set(key, std::string(bytes->asText()));
        }
    }
    return storable;
}

bool ZAVEventRepository::persistEvents(const ZAVSet<ZAVTEvent>& events, ZAVError* error) const {
    static constexpr ZAVRepositoryOperation<ZAVSet<ZAVTEvent>> operation{
        "-[ZAVEventRepository persistEvents:error:]", "failed to persist events:%@ with %@"};
    operation.announceAs("persisting %lu event(s)", events.size());
    return operation.attempt(
        *this, error,
        // A set of its own: whoever observes the statements may change the caller's.
        [this, walked = events](ZAVError& outError) {
            const auto keyedValues = ZAVKeyedValueRepository::repositoryWithDatabase(sharedDatabase());
            Parts parts;
            for (const auto& element : walked) {
                ZAVEvent& event = requireStorable(element, parts);
                if (!EventWriter(database(), keyedValues, event, parts, outError).write()) {
                    return false;
                }
            }
            return true;
        },
        events);
}

}  // namespace zav
