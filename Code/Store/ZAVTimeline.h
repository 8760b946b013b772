#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVReceiving.h>
#include <ZAVEventRepository/ZAVTimelineCursor.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// Which events a timeline has. What is not asked for is passed over, and counts nowhere.
struct ZAVTimelineOptions {
    /// The types that are asked for, 0 to 62; empty for all.
    std::vector<ZAVTEventType> types{};

    /// Whether tombstones are, whatever `types` says.
    bool tombstones = true;
};

/// A piece of a timeline without gaps but those of the stream, as it was at one moment.
struct ZAVTimelinePage {
    /// The events, from the oldest to the newest: those with a sequence by their sequence, then those that
    /// wait for one by `client_seq` and row. They are the records that `ZAVEventRepository` makes.
    std::vector<std::shared_ptr<ZAVEvent>> events{};

    /// Where each of them stands.
    std::vector<ZAVTimelineCursor> cursors{};

    bool hasEarlier = false;  ///< whether there are events before the first of them
    bool hasLater = false;    ///< whether there are events behind the last of them

    /// The sequences that are missing here, in their order: from the event before the page up to its last
    /// one; behind that too, as far as the stream has come, when no sequenced event follows. So all pages of
    /// a stream together tell of each gap once.
    std::vector<ZAVSequenceGap> missing{};
};

/// The events of a stream in the order in which they are shown, page by page.
///
/// Each call reads one moment of the store, or that of the work that it is called in, with a number of
/// statements that does not depend on how many events it answers or the stream has. It may be used by any
/// thread, as the store may, which must outlive it. A stream that is not registered has no events.
class ZAV_EXPORT ZAVTimeline {
public:
    /// The timeline of the stream that the service knows by an identifier.
    ZAVTimeline(ZAVEventStore& store, const ZAVUUID& stream, ZAVTimelineOptions options = {});

    /// The timeline of the stream in a row, which the service need not know.
    ZAVTimeline(ZAVEventStore& store, ZAVDatabaseIdentifier stream, ZAVTimelineOptions options = {});

    /// The newest events.
    /// @param count how many at most; so it is with the others.
    /// @return none on failure, with the reason in `error`; so it is with the others.
    [[nodiscard]] std::optional<ZAVTimelinePage> latest(std::size_t count, ZAVError* error = nullptr) const;

    /// The events that come next before a cursor of this stream. A cursor of another one is an error,
    /// `ZAVEventStoreErrorBadCursor`.
    [[nodiscard]] std::optional<ZAVTimelinePage> before(const ZAVTimelineCursor& cursor, std::size_t count,
                                                        ZAVError* error = nullptr) const;

    /// The events that come next behind a cursor of this stream.
    [[nodiscard]] std::optional<ZAVTimelinePage> after(const ZAVTimelineCursor& cursor, std::size_t count,
                                                       ZAVError* error = nullptr) const;

    /// The events around a sequence, which none of them needs to have: as many before it as from it on, or
    /// more of the one where there are too few of the other.
    [[nodiscard]] std::optional<ZAVTimelinePage> around(ZAVSequence seq, std::size_t count,
                                                        ZAVError* error = nullptr) const;

    /// The events from one place to another, both included: what the others answered, read anew.
    /// @param first none for the beginning.
    /// @param last none for the end.
    [[nodiscard]] std::optional<ZAVTimelinePage> between(const std::optional<ZAVTimelineCursor>& first,
                                                         const std::optional<ZAVTimelineCursor>& last,
                                                         ZAVError* error = nullptr) const;

    /// Calls `visit` with each event that has a sequence, in the order in which a state is rebuilt from them,
    /// that of `ZAVEventRepository::eventsFromRevivedStreamWithStreamDatabaseIdentifier`, until it answers
    /// false. It holds one event at a time, and reads one moment meanwhile: a log cannot be folded past it.
    /// The options do not matter here.
    /// @return whether it came to the end, or `visit` wanted no more; if not, the reason is in `error`.
    bool replay(const std::function<bool(const std::shared_ptr<ZAVEvent>& event)>& visit,
                ZAVError* error = nullptr) const;

private:
    friend class ZAVTimelineWindow;

    template <class Read>
    [[nodiscard]] std::optional<ZAVTimelinePage> page(const Read& read, ZAVError* error) const;

    ZAVEventStore& store_;
    std::optional<ZAVUUID> uuid_;
    ZAVDatabaseIdentifier row_ = ZAVDatabaseIdentifierNotSet;
    ZAVTimelineOptions options_;
};

}  // namespace zav
