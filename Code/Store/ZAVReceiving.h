#pragma once

#include <cstdint>
#include <functional>

#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// What `ZAVEventStore::receive` does beside storing events. By default what a client wants.
struct ZAVReceiveOptions {
    /// Whether an event of the user, which was sent from here, is known for the row that waits for its
    /// sequence. Otherwise it becomes a row of its own.
    bool recognisesOwnEvents = true;

    /// Whether what was deleted stays deleted when the event comes again.
    bool keepsTombstones = true;

    /// Whether an `EventType_EVENT_DELETED` makes a tombstone of its target, and removes what belongs to it.
    /// A target that comes later is stored as a tombstone, without its content and metadata.
    bool appliesDeletions = true;

    /// Whether a part with a body and without a URL is complete from the beginning.
    bool completesParts = true;

    /// Whether a part with a URL gets the place of its file, waits for its download, and takes over the
    /// expiration of the URL. The store must have been opened with a user and an application.
    bool preparesDownloads = true;

    /// Whether a stored part that is not complete gets the URL with which its event comes again.
    bool renewsURLs = true;

    /// Whether the stream's `seq` becomes the greatest sequence that was seen, if that is greater.
    bool advancesStream = true;

    /// Whether what was stored, changed or made a tombstone is recorded as not processed yet. An event of the
    /// user's that comes from another device never is when it is stored: `added` tells of it, and no count of
    /// what is new to the user does.
    bool recordsChanges = false;

    /// Whether one event that is refused has all others taken back.
    bool refusesAllForOne = false;

    /// What the wire field `external_access_expiration` says. By default it is seconds since 1970.
    std::function<ZAVDate(std::int64_t)> expirationOf = [](std::int64_t seconds) {
        return ZAVDateFromSecondsSince1970(static_cast<double>(seconds));
    };
};

/// What became of an event that was received.
struct ZAVReceivedEvent {
    /// In which way.
    enum class Outcome : std::uint8_t {
        added,      ///< it is new
        own,        ///< it was sent from here, and its row waits for its sequence no more
        known,      ///< it was stored already, as it is
        changed,    ///< it was stored already, and has been brought up to date
        tombstone,  ///< it was deleted, before it came or before it came again
        conflict,   ///< another event, of another `client_id`, stands at its sequence: it is not stored
        refused,    ///< it cannot be stored
    };

    Outcome outcome = Outcome::refused;  ///< in which way

    /// The row of the event; of the other one in a conflict. `ZAVDatabaseIdentifierNotSet` when it was
    /// refused.
    ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;

    ZAVError reason{};  ///< of a conflict or a refusal; empty otherwise
};

/// Sequences that are missing in a stream.
struct ZAVSequenceGap {
    ZAVSequence first = 0;  ///< the smallest of them
    ZAVSequence last = 0;   ///< the greatest of them

    /// Equal when both are.
    friend bool operator==(const ZAVSequenceGap&, const ZAVSequenceGap&) = default;
};

}  // namespace zav
