#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// Recognises which stored event an incoming one is.
///
/// An event with a sequence is the one at that sequence of its stream. Else it is an event of the same
/// stream, author and `client_id` that waits for its sequence; of several the oldest. An event that waits
/// itself is also the one that the service has sequenced since. Nothing else is ever taken for it.
///
/// A waiting event without an author is the user's. While no user is known it is equal to none but another
/// waiting event without an author.
///
/// Decides on the rows as they are: used inside a transaction that holds the write lock, on the thread of its
/// handle. What it has found serves for as long as no other connection writes, so that events of one
/// `client_id`, however many, are recognised in linear time.
class ZAV_EXPORT ZAVEventRecognition {
public:
    /// @param database an open handle, which is shared.
    /// @param userID whose the events without an author are, if that is known.
    ZAVEventRecognition(std::shared_ptr<FMDatabase> database, std::optional<std::string> userID);

    /// What an incoming event is: a new one when nothing is said.
    struct Answer {
        /// The row of the stored event that it is, or that stands at its sequence.
        std::optional<ZAVDatabaseIdentifier> row{};

        /// Whether that event waits for its sequence.
        bool isWaiting = false;

        /// The `client_id` of another event, which stands at its sequence: they cannot both be stored.
        std::optional<ZAVData> conflictingClientID{};

        /// The row of an event that it may be, but for an author who is unknown because the user is.
        std::optional<ZAVDatabaseIdentifier> passedOver{};
    };

    /// To be called when a transaction begins.
    /// @return whether another connection has written since the last one; none when the database cannot be
    /// read, with the reason in `error`.
    std::optional<bool> begin(ZAVError* error = nullptr);

    /// Recognises an event, which has a `client_id`. One that is answered with a row of its own is counted on
    /// to be stored there.
    /// @return none when the database cannot be read, with the reason in `error`.
    [[nodiscard]] std::optional<Answer> recognise(const ZAVEvent& event, ZAVDatabaseIdentifier stream,
                                                  ZAVError* error = nullptr);

    /// The event of the same stream, author and `client_id` that waits beside one that stands at its
    /// sequence, as clients have left them that did not recognise it: no row when there is none. It is not
    /// answered a second time.
    /// @return none when the database cannot be read, with the reason in `error`.
    [[nodiscard]] std::optional<Answer> waitingTwin(const ZAVEvent& event, ZAVDatabaseIdentifier stream,
                                                    ZAVError* error = nullptr);

    /// Takes note that an event has been stored.
    void noteStored(const ZAVEvent& event);

    /// The author of an event that may name none: the user then, if that is known.
    [[nodiscard]] const std::optional<std::string>& authorOf(
        const std::optional<std::string>& creator) const noexcept {
        return creator ? creator : userID_;
    }

private:
    /// What is known of a stream without looking for a single event.
    struct Stream {
        std::int64_t greatestSeq = std::numeric_limits<std::int64_t>::min();
        bool hasWaiting = false;
    };

    /// A stored event: its stream, its author, whether it is sequenced, its row. Of those that differ by row
    /// alone the oldest comes first, and those that wait come before those that do not.
    using Key = std::tuple<ZAVDatabaseIdentifier, std::optional<std::string>, bool, ZAVDatabaseIdentifier>;
    using Keys = std::set<Key>;

    [[nodiscard]] std::optional<Answer> atSequence(const ZAVEvent& event, ZAVDatabaseIdentifier stream,
                                                   ZAVError* error);
    [[nodiscard]] std::optional<Answer> byClientID(const ZAVEvent& event, ZAVDatabaseIdentifier stream,
                                                   ZAVError* error);
    [[nodiscard]] const Stream* streamAt(ZAVDatabaseIdentifier row, ZAVError* error);
    [[nodiscard]] Keys* eventsOf(const ZAVData& clientID, ZAVError* error);

    std::shared_ptr<FMDatabase> database_;
    std::optional<std::string> userID_;
    std::optional<std::int64_t> version_;  ///< changes when another connection writes
    std::unordered_map<ZAVDatabaseIdentifier, Stream> streams_;
    std::map<ZAVData, Keys> clients_;
};

}  // namespace zav
