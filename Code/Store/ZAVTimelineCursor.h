#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// Where an event stands in the timeline of its stream: a value that may be kept, also as a text, for as long
/// as the database file is there.
///
/// The cursor of an event that waited stands at its sequence as soon as the event has one. That of an event
/// that was deleted stands where the event stood.
class ZAV_EXPORT ZAVTimelineCursor {
public:
    /// Where the event of a sequence stands, or would stand.
    [[nodiscard]] static ZAVTimelineCursor atSequence(ZAVDatabaseIdentifier stream,
                                                      std::int64_t seq) noexcept {
        return {stream, seq, std::nullopt};
    }

    /// Where an event stands that waits for its sequence.
    /// @param clientSeq the event's `client_seq`; 0 for none.
    [[nodiscard]] static ZAVTimelineCursor atWaiting(ZAVDatabaseIdentifier stream, std::int64_t clientSeq,
                                                     ZAVDatabaseIdentifier event) noexcept {
        return {stream, clientSeq, event};
    }

    /// The cursor that `text` answered.
    /// @return none for any other text (`ZAVEventStoreErrorBadCursor`), with the reason in `error`.
    [[nodiscard]] static std::optional<ZAVTimelineCursor> fromText(std::string_view text,
                                                                   ZAVError* error = nullptr);

    /// A text of printable ASCII without blanks, by which damage is noticed.
    [[nodiscard]] std::string text() const;

    /// The row of the stream.
    [[nodiscard]] ZAVDatabaseIdentifier stream() const noexcept { return stream_; }

    /// The sequence; none for an event that waited when the cursor was made.
    [[nodiscard]] std::optional<std::int64_t> seq() const noexcept {
        return waitingEvent_ ? std::nullopt : std::optional(number_);
    }

    /// The `client_seq` of the event that waited; 0 when there was none.
    [[nodiscard]] std::int64_t clientSeq() const noexcept { return waitingEvent_ ? number_ : 0; }

    /// The row of the event that waited.
    [[nodiscard]] std::optional<ZAVDatabaseIdentifier> waitingEvent() const noexcept { return waitingEvent_; }

    /// Equal when they name the same place in the same way.
    friend bool operator==(const ZAVTimelineCursor&, const ZAVTimelineCursor&) = default;

private:
    ZAVTimelineCursor(ZAVDatabaseIdentifier stream, std::int64_t number,
                      std::optional<ZAVDatabaseIdentifier> waitingEvent) noexcept
        : stream_(stream), number_(number), waitingEvent_(waitingEvent) {}

    ZAVDatabaseIdentifier stream_;
    std::int64_t number_;  ///< the sequence; of an event that waited its `client_seq`
    std::optional<ZAVDatabaseIdentifier> waitingEvent_;
};

}  // namespace zav
