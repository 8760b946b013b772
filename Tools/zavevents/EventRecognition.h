#pragma once

#include <cstddef>
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
#include <ZAVEventRepository/ZAVEvent.h>

namespace zavevents {

/// Recognises which stored event an incoming one is.
///
/// An event with a sequence is the one at that sequence of its stream. Else it is an event of the same
/// stream, author and `client_id` that waits for its sequence; of several the oldest. An event that waits
/// itself is also the one that the service has sequenced since. Nothing else is ever taken for it.
///
/// A waiting event without an author is the user's. While no user is known it is equal to none but another
/// waiting event without an author.
///
/// Decides on the rows as they are: used inside a transaction that holds the write lock. What it has found
/// serves for as long as no other connection writes, so that events of one `client_id`, however many, are
/// recognised in linear time.
class EventRecognition {
public:
    /// @param userID whose the events without an author are, if that is known.
    EventRecognition(std::shared_ptr<zav::FMDatabase> database, std::optional<std::string> userID);

    /// What an incoming event is: a new one when nothing is said.
    struct Answer {
        /// The row of the stored event that it is, or that stands at its sequence.
        std::optional<zav::ZAVDatabaseIdentifier> row;

        /// The `client_id` of another event, which stands at its sequence: they cannot both be stored.
        std::optional<zav::ZAVData> conflictingClientID;

        /// The row of an event that it may be, but for an author who is unknown because the user is.
        std::optional<zav::ZAVDatabaseIdentifier> passedOver;
    };

    /// To be called when a transaction begins.
    /// @return whether another connection has written since the last one.
    /// @throws ToolError like all that follows, when the database cannot be read.
    bool begin();

    /// Recognises an event. One that is answered with a row of its own is counted on to be stored there.
    [[nodiscard]] Answer recognise(const zav::ZAVEvent& event, zav::ZAVDatabaseIdentifier stream);

    /// Takes note that an event has been stored.
    void noteStored(const zav::ZAVEvent& event);

    /// The author of an event that may name none: the user then, if that is known.
    [[nodiscard]] const std::optional<std::string>& authorOf(
        const std::optional<std::string>& creator) const {
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
    using Key =
        std::tuple<zav::ZAVDatabaseIdentifier, std::optional<std::string>, bool, zav::ZAVDatabaseIdentifier>;
    using Keys = std::set<Key>;

    [[nodiscard]] Answer atSequence(const zav::ZAVEvent& event, zav::ZAVDatabaseIdentifier stream);
    [[nodiscard]] Answer byClientID(const zav::ZAVEvent& event, zav::ZAVDatabaseIdentifier stream);
    [[nodiscard]] Stream& streamAt(zav::ZAVDatabaseIdentifier row);
    [[nodiscard]] Keys& eventsOf(const zav::ZAVData& clientID);

    std::shared_ptr<zav::FMDatabase> database_;
    std::optional<std::string> userID_;
    std::optional<std::int64_t> version_;  ///< changes when another connection writes
    std::unordered_map<zav::ZAVDatabaseIdentifier, Stream> streams_;
    std::map<zav::ZAVData, Keys> clients_;
};

}  // namespace zavevents
