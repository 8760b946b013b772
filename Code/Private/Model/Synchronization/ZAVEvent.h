#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVTEvent.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// An event with its rows in this device's database.
///
/// To store a new event, make one, set `type`, `client_id` and either `stream_id` or the stream's row, and
/// pass it to `ZAVEventRepository::persistEvents`, which writes the rows back onto it.
///
/// An event that was read from the database has its `seq` set by the setter: `seqIsSet` is true also when the
/// service has not sequenced the event, and `seq` is then 0. Which events have no sequence is a question for
/// the repository's queries, not for the record.
class ZAV_EXPORT ZAVEvent : public ZAVTEvent {
public:
    /// An event that has not been stored, in a stream yet to be named.
    ZAVEvent() = default;

    /// @param databaseIdentifier the row of a stored event, or `ZAVDatabaseIdentifierNotSet`.
    /// @param streamDatabaseIdentifier the row of its stream, or `ZAVDatabaseIdentifierNotSet`.
    ZAVEvent(ZAVDatabaseIdentifier databaseIdentifier,
             ZAVDatabaseIdentifier streamDatabaseIdentifier) noexcept
        : databaseIdentifier_(databaseIdentifier), streamDatabaseIdentifier_(streamDatabaseIdentifier) {}

    /// Row of the event; `ZAVDatabaseIdentifierNotSet` until it is stored. Any other value, 0 included, names
    /// a row.
    [[nodiscard]] ZAVDatabaseIdentifier databaseIdentifier() const noexcept { return databaseIdentifier_; }

    /// For the repository, which sets it when the event is stored, and to store an event anew in another row.
    void setDatabaseIdentifier(ZAVDatabaseIdentifier value) noexcept { databaseIdentifier_ = value; }

    /// Row of the event's stream; `ZAVDatabaseIdentifierNotSet` until it is known.
    [[nodiscard]] ZAVDatabaseIdentifier streamDatabaseIdentifier() const noexcept {
        return streamDatabaseIdentifier_;
    }

    /// Names the stream by its row; `persistEvents` then fills in `stream_id`.
    void setStreamDatabaseIdentifier(ZAVDatabaseIdentifier value) noexcept {
        streamDatabaseIdentifier_ = value;
    }

    /// The stream's identifier, 16 bytes; none while the service does not know the stream.
    [[nodiscard]] const std::optional<ZAVData>& stream_id() const noexcept { return streamID_; }

    /// Names the stream by its identifier; `persistEvents` then fills in its row, if that is not set.
    void set_stream_id(std::optional<ZAVData> value) { streamID_ = std::move(value); }

    /// `stream_id` as a UUID.
    [[nodiscard]] std::optional<ZAVUUID> streamUUID() const { return ZAVUUIDFromData(streamID_); }

    /// The parts of `content`, in order; none for an event without content. Null stands for an element that
    /// is not a `ZAVEventContent`. Events that the library reads have no such element, and `persistEvents`
    /// refuses one.
    [[nodiscard]] std::vector<std::shared_ptr<ZAVEventContent>> contentParts() const;

    [[nodiscard]] std::string_view className() const noexcept override { return "ZAVEvent"; }

protected:
    void describeFields(std::string& text) const override;

private:
    ZAVDatabaseIdentifier databaseIdentifier_ = ZAVDatabaseIdentifierNotSet;
    ZAVDatabaseIdentifier streamDatabaseIdentifier_ = ZAVDatabaseIdentifierNotSet;
    std::optional<ZAVData> streamID_;
};

}  // namespace zav
